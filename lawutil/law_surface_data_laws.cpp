// The laws that read surfaces, patterns and transforms: SURF, BS, DSURF, the four
// surface curvatures, PATTRANS and TRANS.
#include <lawutil/law_unary_data.h>

#include <cmath>

#include <lawutil/internal/data_law_util.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/law_data_geom.h>
#include <lawutil/law_registry.h>

using law_internal::check_unary;
using law_internal::data_uses;
using law_internal::order_datum;

namespace {

const base_surface_law_data* as_surface(const law_data* d) {
    return d && d->type() == base_surface_law_data_id ? static_cast<const base_surface_law_data*>(d)
                                                      : nullptr;
}

const base_surface_law_data* need(const base_surface_law_data* s) {
    if (!s) sys_error(LAW_EVAL);
    return s;
}

int surface_domain(const base_surface_law_data* s, int which, QEM::interval& domain) {
    if (!s || which < 0 || which > 1)
        domain = QEM::interval(QEM::interval_infinite);
    else
        domain = which == 0 ? s->u_range() : s->v_range();
    return 1;
}

void write3(const QEM::vector& v, double* answer) {
    answer[0] = v.x();
    answer[1] = v.y();
    answer[2] = v.z();
}

// DSURF over `surface` with the orders (u, v) raised by (du, dv) (one use to the caller).
law* raised_dsurface(law_data* surface, const law* order_u, const law* order_v, int du, int dv) {
    data_uses three;
    three.d[0] = surface;
    surface->add();
    three.d[1] = order_datum(order_u, du);
    three.d[2] = order_datum(order_v, dv);
    return new dsurface_law(three.d, 3);
}

}  // namespace

// ============================================================== SURF, BS

surface_point_law::surface_point_law(law_data* datum)
    : unary_data_law(datum), surface_(as_surface(datum)) {}

surface_point_law::surface_point_law(const surface_point_law& other)
    : unary_data_law(other), surface_(other.surface_) {}

int surface_point_law::check(law_data* datum) {
    return check_unary(datum, base_surface_law_data_id);
}

void surface_point_law::evaluate(const double* x, double* answer) const {
    write3(need(surface_)->eval(x[0], x[1], 0, 0), answer);
}

int surface_point_law::term_domain(int which, QEM::interval& domain) const {
    return surface_domain(surface_, which, domain);
}

law* surface_point_law::deriv(int which) const {
    if (which < 0 || which > 1) return new constant_law(0.0);
    if (!datum_) return nullptr;
    return raised_dsurface(datum_, nullptr, nullptr, which == 0, which == 1);
}

law* surface_law::make_one(law_data* datum) const {
    return check(datum) ? new surface_law(datum) : nullptr;
}

law* bs3_surface_law::make_one(law_data* datum) const {
    return check(datum) ? new bs3_surface_law(datum) : nullptr;
}

// ============================================================== DSURF

dsurface_law::dsurface_law(law_data** data, int size)
    : multiple_data_law(data, size),
      surface_(size >= 1 && data ? as_surface(data[0]) : nullptr),
      order_u_(held_law(1)),
      order_v_(held_law(2)) {}

int dsurface_law::check(law_data** data, int size) {
    bool ok = data && size == 3 && check_data_type(data[0], base_surface_law_data_id) &&
              check_data_type(data[1], law_law_data_id) &&
              check_data_type(data[2], law_law_data_id);
    if (ok && law_restore_waived()) return 1;
    for (int i = 1; ok && i < 3; ++i) {
        const law* order = static_cast<const law_law_data*>(data[i])->data_law();
        ok = order && check_return_dim(order, 1) && order->take_dim() <= 1;
    }
    if (!ok) toxic_law_error();
    return ok ? 1 : 0;
}

law* dsurface_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new dsurface_law(data, size) : nullptr;
}

void dsurface_law::evaluate(const double* x, double* answer) const {
    const base_surface_law_data* s = need(surface_);
    if (!order_u_ || !order_v_) sys_error(LAW_EVAL);
    const int du = law::safe_convert_to_int(order_u_->evaluate_scalar(x));
    const int dv = law::safe_convert_to_int(order_v_->evaluate_scalar(x));
    write3(s->eval(x[0], x[1], du, dv), answer);
}

int dsurface_law::term_domain(int which, QEM::interval& domain) const {
    return surface_domain(surface_, which, domain);
}

law* dsurface_law::deriv(int which) const {
    if (which < 0 || which > 1) return new constant_law(0.0);
    if (!surface_ || !order_u_ || !order_v_) return nullptr;
    return raised_dsurface(data_[0], order_u_, order_v_, which == 0, which == 1);
}

// ============================================================== surface curvatures

surface_curvature_law::surface_curvature_law(law_data* datum, which kind)
    : unary_data_law(datum), surface_(as_surface(datum)), kind_(kind) {}

surface_curvature_law::surface_curvature_law(const surface_curvature_law& other)
    : unary_data_law(other), surface_(other.surface_), kind_(other.kind_) {}

void surface_curvature_law::evaluate(const double* x, double* answer) const {
    const base_surface_law_data* s = need(surface_);
    const double u = x[0], v = x[1];
    const QEM::vector su = s->eval(u, v, 1, 0), sv = s->eval(u, v, 0, 1);
    const QEM::vector suu = s->eval(u, v, 2, 0), suv = s->eval(u, v, 1, 1),
                      svv = s->eval(u, v, 0, 2);
    // First fundamental form E, F, G; second L, M, N measured against the normal
    // n = Su x Sv / |Su x Sv| with the sign flipped, so that bending away from n counts
    // positive: K = (LN - M^2) / (EG - F^2), H = (EN - 2FM + GL) / (2 (EG - F^2)), and the
    // principal curvatures are H +- sqrt(H^2 - K).
    const QEM::vector cross = su * sv;
    const double area2 = cross % cross;  // = EG - F^2
    if (area2 <= 1e-30) sys_error(LAW_ZERODIVIDE);
    const QEM::vector n = cross / std::sqrt(area2);
    const double E = su % su, F = su % sv, G = sv % sv;
    const double L = -(suu % n), M = -(suv % n), N = -(svv % n);
    const double K = (L * N - M * M) / area2;
    const double H = (E * N - 2.0 * F * M + G * L) / (2.0 * area2);
    const double spread = std::sqrt(std::fmax(H * H - K, 0.0));
    switch (kind_) {
        case which::gaussian:
            answer[0] = K;
            break;
        case which::mean:
            answer[0] = H;
            break;
        case which::max:
            answer[0] = H + spread;
            break;
        case which::min:
            answer[0] = H - spread;
            break;
    }
}

int surface_curvature_law::term_domain(int which, QEM::interval& domain) const {
    return surface_domain(surface_, which, domain);
}

#define LAW_SURFACE_CURVATURE_MAKE(cls)                                                 \
    law* cls::make_one(law_data* datum) const {                                         \
        return check_unary(datum, base_surface_law_data_id) ? new cls(datum) : nullptr; \
    }
LAW_SURFACE_CURVATURE_MAKE(gaussian_curvature_law)
LAW_SURFACE_CURVATURE_MAKE(mean_curvature_law)
LAW_SURFACE_CURVATURE_MAKE(max_curvature_law)
LAW_SURFACE_CURVATURE_MAKE(min_curvature_law)
#undef LAW_SURFACE_CURVATURE_MAKE

// ============================================================== PATTRANS

patterntrans_law::patterntrans_law(law_data* datum)
    : unary_data_law(datum),
      pattern_(datum && datum->type() == base_pattern_law_data_id
                   ? static_cast<const base_pattern_law_data*>(datum)
                   : nullptr) {}

int patterntrans_law::check(law_data* datum) {
    return check_unary(datum, base_pattern_law_data_id);
}

law* patterntrans_law::make_one(law_data* datum) const {
    return check(datum) ? new patterntrans_law(datum) : nullptr;
}

void patterntrans_law::evaluate(const double* x, double* answer) const {
    if (!pattern_) sys_error(LAW_EVAL);
    const int i = law::safe_convert_to_int(x[0]);
    if (i < 0 || i >= pattern_->size()) sys_error(LAW_EVAL);
    const QEM::transf t = pattern_->get_transf(i);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) answer[3 * r + c] = t.affine().element(r, c);
    for (int c = 0; c < 3; ++c) answer[9 + c] = t.translation()[c];
}

// ============================================================== TRANS

transform_law::transform_law(law_data** data, int size)
    : multiple_data_law(data, size),
      inner_(held_law(0)),
      trans_(size == 2 && data && data[1] && data[1]->type() == base_transform_law_data_id
                 ? static_cast<const base_transform_law_data*>(data[1])
                 : nullptr) {}

int transform_law::check(law_data** data, int size) {
    bool ok = data && size == 2 && check_data_type(data[0], law_law_data_id) &&
              check_data_type(data[1], base_transform_law_data_id);
    if (ok && law_restore_waived()) return 1;
    if (ok) {
        const law* f = static_cast<const law_law_data*>(data[0])->data_law();
        ok = f && check_return_dim(f, 3);
    }
    if (!ok) toxic_law_error();
    return ok ? 1 : 0;
}

law* transform_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new transform_law(data, size) : nullptr;
}

void transform_law::evaluate(const double* x, double* answer) const {
    if (!inner_ || !trans_) sys_error(LAW_EVAL);
    double p[3];
    inner_->evaluate(x, p);
    const QEM::position moved = trans_->transform(QEM::position(p[0], p[1], p[2]));
    answer[0] = moved.x();
    answer[1] = moved.y();
    answer[2] = moved.z();
}

int transform_law::term_domain(int which, QEM::interval& domain) const {
    if (inner_) return inner_->term_domain(which, domain);
    return law::term_domain(which, domain);
}

int transform_law::take_size() const {
    return inner_ ? inner_->take_dim() : 1;
}

law* transform_law::deriv(int which) const {
    if (!inner_ || !trans_) return nullptr;
    law_ref d = law_ref::adopt(inner_->derivative(which));
    const QEM::transf linear(trans_->get_trans()->affine(), QEM::vector(0, 0, 0));
    data_uses two;
    two.d[0] = new law_law_data(d.get());
    two.d[1] = new rigid_transform_law_data(&linear);
    return new transform_law(two.d, 2);
}

LAW_REGISTER_PROTOTYPE(surface_law, nullptr)
LAW_REGISTER_PROTOTYPE(bs3_surface_law, nullptr)
LAW_REGISTER_PROTOTYPE(dsurface_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(gaussian_curvature_law, nullptr)
LAW_REGISTER_PROTOTYPE(mean_curvature_law, nullptr)
LAW_REGISTER_PROTOTYPE(max_curvature_law, nullptr)
LAW_REGISTER_PROTOTYPE(min_curvature_law, nullptr)
LAW_REGISTER_PROTOTYPE(patterntrans_law, nullptr)
LAW_REGISTER_PROTOTYPE(transform_law, nullptr, 0)
