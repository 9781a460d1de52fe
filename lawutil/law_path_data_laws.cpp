// The laws that read curves, parameter curves and wires: CUR, PCUR, WIRE, their
// derivative laws DCUR, DPCUR, DWIRE, and CURC, CURI, CURD.
#include <lawutil/law_unary_data.h>

#include <cmath>

#include <lawutil/internal/data_law_util.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/path_eval_cache.h>
#include <lawutil/law_data_geom.h>
#include <lawutil/law_registry.h>
#include <qem/tolerance.h>

using law_internal::check_unary;
using law_internal::data_uses;
using law_internal::order_datum;

namespace {

const path_law_data* as_path(const law_data* d, int type_id) {
    return d && d->type() == type_id ? static_cast<const path_law_data*>(d) : nullptr;
}

const path_law_data* need(const path_law_data* p) {
    if (!p) sys_error(LAW_EVAL);  // no datum of the kind this law reads
    return p;
}

void write(const QEM::vector& v, double* answer, int dims) {
    for (int i = 0; i < dims; ++i) answer[i] = v[i];
}

int path_domain(const path_law_data* p, QEM::interval& domain) {
    domain =
        p ? QEM::interval(p->data_start(), p->data_end()) : QEM::interval(QEM::interval_infinite);
    return 1;
}

}  // namespace

// ============================================================== path_point_law

path_point_law::path_point_law(law_data* datum, int path_type, int dims)
    : unary_data_law(datum), path_(as_path(datum, path_type)), dims_(dims) {}

path_point_law::path_point_law(const path_point_law& other)
    : unary_data_law(other), path_(other.path_), dims_(other.dims_) {}

void path_point_law::evaluate(const double* x, double* answer) const {
    write(law_internal::cached_path_eval(need(path_), x[0], 0, 0), answer, dims_);
}

void path_point_law::evaluate_with_side(const double* x, double* answer, const int* side) const {
    write(law_internal::cached_path_eval(need(path_), x[0], 0, side ? side[0] : 0), answer, dims_);
}

int path_point_law::term_domain(int, QEM::interval& domain) const {
    return path_domain(path_, domain);
}

int path_point_law::singularities(double** where, int** order, double start, double end,
                                  double** period) const {
    if (period) *period = nullptr;
    if (!path_) return law::singularities(where, order, start, end, nullptr);
    return path_->singularities(where, order, start, end);
}

law* path_point_law::deriv(int which) const {
    if (which != 0) return new constant_law(0.0);
    if (!datum_) return nullptr;
    data_uses two;
    two.d[0] = datum_;
    datum_->add();
    two.d[1] = order_datum(nullptr, 1.0);
    return make_derivative(two.d);
}

// ============================================================== path_deriv_law

path_deriv_law::path_deriv_law(law_data** data, int size, int path_type, int dims)
    : multiple_data_law(data, size),
      path_(size >= 2 && data ? as_path(data[0], path_type) : nullptr),
      order_(held_law(1)),
      dims_(dims) {}

path_deriv_law::path_deriv_law(const path_deriv_law& other)
    : multiple_data_law(other), path_(other.path_), order_(other.order_), dims_(other.dims_) {}

int path_deriv_law::check_path(law_data** data, int size, int path_type, bool exact) {
    bool ok = data && (exact ? size == 2 : size >= 2);
    ok = ok && check_data_type(data[0], path_type) && check_data_type(data[1], law_law_data_id);
    if (ok && law_restore_waived()) return 1;
    if (ok) {
        const law* order = static_cast<const law_law_data*>(data[1])->data_law();
        ok = order && check_return_dim(order, 1) && order->take_dim() <= 1;
    }
    if (!ok) toxic_law_error();
    return ok ? 1 : 0;
}

void path_deriv_law::evaluate(const double* x, double* answer) const {
    evaluate_with_side(x, answer, nullptr);
}

void path_deriv_law::evaluate_with_side(const double* x, double* answer, const int* side) const {
    const path_law_data* p = need(path_);
    if (!order_) sys_error(LAW_EVAL);
    const int n = law::safe_convert_to_int(order_->evaluate_scalar(x));
    write(law_internal::cached_path_eval(p, x[0], n, side ? side[0] : 0), answer, dims_);
}

int path_deriv_law::term_domain(int, QEM::interval& domain) const {
    return path_domain(path_, domain);
}

law* path_deriv_law::deriv(int which) const {
    if (which != 0) return new constant_law(0.0);
    if (!order_ || !data_[0]) return nullptr;
    // d/dt of the n-th derivative is the (n+1)-th: the same law over order + 1.
    data_uses two;
    two.d[0] = data_[0];
    data_[0]->add();
    two.d[1] = order_datum(order_, 1.0);
    return make_one(two.d, 2);
}

// ============================================================== CUR, PCUR, WIRE

curve_law::curve_law(law_data* datum) : path_point_law(datum, base_curve_law_data_id, 3) {}

int curve_law::check(law_data* datum) {
    return check_unary(datum, base_curve_law_data_id);
}

law* curve_law::make_one(law_data* datum) const {
    return check(datum) ? new curve_law(datum) : nullptr;
}

law* curve_law::make_derivative(law_data** data) const {
    return new dcurve_law(data, 2);
}

int curve_law::evaluate(double t, QEM::position& point, QEM::vector** derivs, int n,
                        int side) const {
    return need(path_)->evaluate(t, point, derivs, n, side);
}

int curve_law::discontinuities(double** where, int** order, double lo, double hi) const {
    return need(path_)->discontinuities(where, order, lo, hi);
}

namespace {

QEM::position point_at(const path_law_data* p, double t) {
    const QEM::vector v = p->eval(t, 0, 0);
    return QEM::position(v.x(), v.y(), v.z());
}

double range_param(const path_law_data* p, int i, int n) {
    return p->data_start() + (p->data_end() - p->data_start()) * i / (n - 1);
}

}  // namespace

int curve_law::is_linear(QEM::position& root, QEM::unit_vector& dir) const {
    const path_law_data* p = need(path_);
    const QEM::position a = point_at(p, p->data_start()), b = point_at(p, p->data_end());
    const QEM::vector chord = b - a;
    const double len = std::sqrt(chord % chord), tol = QEM::get_resabs();
    if (len <= tol) return 0;
    for (int i = 1; i < 8; ++i) {
        const QEM::vector off = point_at(p, range_param(p, i, 9)) - a;
        const QEM::vector across = off * chord / len;
        if (across % across > tol * tol) return 0;
    }
    root = a;
    dir = QEM::unit_vector(chord.x(), chord.y(), chord.z());
    return 1;
}

int curve_law::is_planar(QEM::position& root, QEM::unit_vector& normal) const {
    const path_law_data* p = need(path_);
    constexpr int n = 17;
    QEM::position pts[n];
    for (int i = 0; i < n; ++i) pts[i] = point_at(p, range_param(p, i, n));
    // The normal from the widest triangle on the start point.
    QEM::vector best(0, 0, 0);
    for (int i = 1; i < n; ++i)
        for (int j = i + 1; j < n; ++j) {
            const QEM::vector c = (pts[i] - pts[0]) * (pts[j] - pts[0]);
            if (c % c > best % best) best = c;
        }
    const double size = std::sqrt(best % best), tol = QEM::get_resabs();
    if (size <= tol * tol) return 0;
    const QEM::vector unit = best / size;
    for (int i = 1; i < n; ++i)
        if (std::fabs((pts[i] - pts[0]) % unit) > tol) return 0;
    root = pts[0];
    normal = QEM::unit_vector(unit.x(), unit.y(), unit.z());
    return 1;
}

QEM::position* curve_law::get_points_on_curve(int n) const {
    const path_law_data* p = need(path_);
    if (n < 2) n = 2;
    QEM::position* out = QEM_ALLOC_ARRAY(QEM::position, static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) out[i] = point_at(p, range_param(p, i, n));
    return out;
}

law* curve_law::sub_inverse() const {
    return new intersect_lawi(datum_);
}

pcurve_law::pcurve_law(law_data* datum) : path_point_law(datum, base_pcurve_law_data_id, 2) {}

int pcurve_law::check(law_data* datum) {
    return check_unary(datum, base_pcurve_law_data_id);
}

law* pcurve_law::make_one(law_data* datum) const {
    return check(datum) ? new pcurve_law(datum) : nullptr;
}

law* pcurve_law::make_derivative(law_data** data) const {
    return new dpcurve_law(data, 2);
}

wire_law::wire_law(law_data* datum) : path_point_law(datum, base_wire_law_data_id, 3) {}

int wire_law::check(law_data* datum) {
    return check_unary(datum, base_wire_law_data_id);
}

law* wire_law::make_one(law_data* datum) const {
    return check(datum) ? new wire_law(datum) : nullptr;
}

law* wire_law::make_derivative(law_data** data) const {
    return new dwire_law(data, 2);
}

// ============================================================== DCUR, DPCUR, DWIRE

dcurve_law::dcurve_law(law_data** data, int size)
    : path_deriv_law(data, size, base_curve_law_data_id, 3) {}

int dcurve_law::check(law_data** data, int size) {
    return check_path(data, size, base_curve_law_data_id, true);
}

law* dcurve_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new dcurve_law(data, size) : nullptr;
}

dpcurve_law::dpcurve_law(law_data** data, int size)
    : path_deriv_law(data, size, base_pcurve_law_data_id, 2) {}

// At least two: a parameter curve may come with more data (its surface, say), which
// this law does not read.
int dpcurve_law::check(law_data** data, int size) {
    return check_path(data, size, base_pcurve_law_data_id, false);
}

law* dpcurve_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new dpcurve_law(data, size) : nullptr;
}

dwire_law::dwire_law(law_data** data, int size)
    : path_deriv_law(data, size, base_wire_law_data_id, 3) {}

int dwire_law::check(law_data** data, int size) {
    return check_path(data, size, base_wire_law_data_id, true);
}

law* dwire_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new dwire_law(data, size) : nullptr;
}

// ============================================================== CURC, CURI, CURD

curvature_law::curvature_law(law_data* datum) : unary_data_law(datum) {}

law* curvature_law::make_one(law_data* datum) const {
    return check_unary(datum, base_curve_law_data_id) ? new curvature_law(datum) : nullptr;
}

void curvature_law::evaluate(const double* x, double* answer) const {
    write(need(as_path(datum_, base_curve_law_data_id))->curvature(x[0]), answer, 3);
}

int curvature_law::term_domain(int, QEM::interval& domain) const {
    return path_domain(as_path(datum_, base_curve_law_data_id), domain);
}

intersect_lawi::intersect_lawi(law_data* datum) : unary_data_law(datum) {}

law* intersect_lawi::make_one(law_data* datum) const {
    return check_unary(datum, base_curve_law_data_id) ? new intersect_lawi(datum) : nullptr;
}

void intersect_lawi::evaluate(const double* x, double* answer) const {
    answer[0] =
        need(as_path(datum_, base_curve_law_data_id))->point_perp(QEM::position(x[0], x[1], x[2]));
}

void intersect_lawi::evaluate_with_guess(const double* x, double* answer,
                                         const double* guess) const {
    if (!guess) return evaluate(x, answer);
    answer[0] = need(as_path(datum_, base_curve_law_data_id))
                    ->point_perp(QEM::position(x[0], x[1], x[2]), guess[0]);
}

distance_lawi::distance_lawi(law_data* datum) : unary_data_law(datum) {}

law* distance_lawi::make_one(law_data* datum) const {
    return check_unary(datum, base_curve_law_data_id) ? new distance_lawi(datum) : nullptr;
}

namespace {

double distance_to(const path_law_data* p, const double* x, const double* guess) {
    const QEM::position target(x[0], x[1], x[2]);
    const double t = guess ? p->point_perp(target, guess[0]) : p->point_perp(target);
    const QEM::vector off = point_at(p, t) - target;
    return std::sqrt(off % off);
}

}  // namespace

void distance_lawi::evaluate(const double* x, double* answer) const {
    answer[0] = distance_to(need(as_path(datum_, base_curve_law_data_id)), x, nullptr);
}

void distance_lawi::evaluate_with_guess(const double* x, double* answer,
                                        const double* guess) const {
    answer[0] = distance_to(need(as_path(datum_, base_curve_law_data_id)), x, guess);
}

LAW_REGISTER_PROTOTYPE(curve_law, nullptr)
LAW_REGISTER_PROTOTYPE(pcurve_law, nullptr)
LAW_REGISTER_PROTOTYPE(wire_law, nullptr)
LAW_REGISTER_PROTOTYPE(dcurve_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(dpcurve_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(dwire_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(curvature_law, nullptr)
LAW_REGISTER_PROTOTYPE(intersect_lawi, nullptr)
LAW_REGISTER_PROTOTYPE(distance_lawi, nullptr)
