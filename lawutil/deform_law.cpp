#include <lawutil/deform_law.h>

#include <algorithm>
#include <cmath>

#include <lawutil/internal/law_tree.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_registry.h>
#include <qem/tolerance.h>

using namespace law_tree;
using QEM::vector;

// ============================================================== formula_law

formula_law::formula_law(law* expansion, law** subs, int size)
    : multiple_law(subs, size), expansion_(expansion) {}

formula_law::~formula_law() noexcept(false) {
    remove(expansion_);
}

void formula_law::evaluate(const double* x, double* answer) const {
    if (!expansion_) law_operand::raise_missing();
    expansion_->evaluate(x, answer);
}

law* formula_law::deriv(int which) const {
    if (!expansion_) law_operand::raise_missing();
    return expansion_->derivative(which);
}

int formula_law::take_size() const {
    const int own = multiple_law::take_size();
    return expansion_ ? std::max(own, expansion_->take_dim()) : own;
}

int formula_law::return_size() const {
    return expansion_ ? expansion_->return_dim() : 3;
}

namespace {

// ------------------------------------------------------------- part checks

bool any_missing(law** subs, int size) {
    for (int i = 0; i < size; ++i)
        if (!subs[i] || subs[i]->incomplete()) return true;
    return false;
}

// The common start of every expansion: null for the prototype and for a part missing (the
// law prints and raises when evaluated); the count error first.
bool ready(law** subs, int size, bool count_ok, err_mess_type count_error) {
    if (!subs || size <= 0) return false;
    if (!count_ok) sys_error(count_error);
    return !any_missing(subs, size);
}

// Parts of the wrong size are reported as toxic; the law is built all the same.
void expect_dims(law** subs, int size, std::initializer_list<int> dims) {
    if (law_restore_waived()) return;
    int i = 0;
    for (int dim : dims) {
        if (i == size) return;
        if (dim > 0 && subs[i]->return_dim() != dim) {
            toxic_law_error();
            return;
        }
        ++i;
    }
}

// A constant part: its values at the point 0.
vector constant_vector(const law* l) {
    const int n = std::max(1, l->take_dim());
    law_internal::value_buffer x(n), out(std::max(3, l->return_dim()));
    for (int i = 0; i < n; ++i) x[i] = 0.0;
    l->evaluate(x.data(), out.data());
    return vector(out[0], out[1], out[2]);
}

double constant_scalar(const law* l) {
    return constant_vector(l).x();
}

law_ref K3(const vector& v) {
    return vec3(v.x(), v.y(), v.z());
}

law_ref scale(const law_ref& v, double s) {
    return mul(K(s), v);
}

// The coordinates X, Y, Z of a map written in the input point, composed with f below.
law_ref coordinate(int i) {
    return make_law<identity_law>(i, static_cast<char>('X' + i));
}

law_ref point_xyz() {
    return vec3(coordinate(0), coordinate(1), coordinate(2));
}

// map o f: the map, written in X, Y, Z, read at the values of f.
law_ref compose(const law_ref& map, law* f) {
    return node<composite_law>(map, f);
}

// ------------------------------------------------------------- frames from parts

// x^, y^ and z^ of VECTRANS as trees over the axis parts.
struct axes {
    law_ref x, y, z;
};

axes frame_of(law* x_axis, law* y_axis) {
    axes a;
    a.x = node<norm_law>(x_axis);
    a.z = node<norm_law>(many<cross_law>({x_axis, y_axis}));
    a.y = cross(a.z, a.x);
    return a;
}

// p1 x^ + p2 y^ + p3 z^.
law_ref in_frame(law* p, const axes& a) {
    law_ref f = law_ref::retain(p);
    return add(add(mul(term(f, 1), a.x), mul(term(f, 2), a.y)), mul(term(f, 3), a.z));
}

// ------------------------------------------------------------- bending

// The constants of a bend: root, unit axis a^, unit direction d^ across it, n^ = a^ x d^.
struct bend_frame {
    vector root, a, d, n;
    double radius;
};

bend_frame bend_parts(law** subs) {
    bend_frame b;
    b.root = constant_vector(subs[1]);
    const vector axis = constant_vector(subs[2]);
    const vector dir = constant_vector(subs[3]);
    b.radius = constant_scalar(subs[4]);
    const double al = axis.len();
    if (al == 0.0) sys_error(LAW_BEND_PARALLEL);
    b.a = axis / al;
    const vector across = dir - b.a * (b.a % dir);
    if (!(across.len() > QEM::get_resnor() * dir.len())) sys_error(LAW_BEND_PARALLEL);
    b.d = across / across.len();
    b.n = b.a * b.d;
    if (b.radius == 0.0) sys_error(LAW_ZERODIVIDE);
    return b;
}

law_ref bend_map(const bend_frame& b) {
    law_ref q = sub(point_xyz(), K3(b.root));
    law_ref u = dot(q, K3(b.d)), w = dot(q, K3(b.n)), h = dot(q, K3(b.a));
    law_ref theta = div(u, K(b.radius));
    law_ref swing = sub(mul(node<sin_law>(theta), K3(b.d)), mul(node<cos_law>(theta), K3(b.n)));
    law_ref centre = K3(b.root + b.n * b.radius);
    return add(add(centre, mul(sub(K(b.radius), w), swing)), mul(h, K3(b.a)));
}

law_ref unbend_map(const bend_frame& b) {
    const double s = b.radius > 0 ? 1.0 : -1.0;
    law_ref q = sub(point_xyz(), K3(b.root + b.n * b.radius));
    law_ref qd = dot(q, K3(b.d)), qn = dot(q, K3(b.n)), h = dot(q, K3(b.a));
    law_ref rho = node<sqrt_law>(add(mul(qd, qd), mul(qn, qn)));
    law_ref theta = many<arctan_law>({scale(qd, s).get(), scale(qn, -s).get()});
    law_ref w = sub(K(b.radius), scale(rho, s));
    law_ref out = add(K3(b.root), mul(scale(theta, b.radius), K3(b.d)));
    return add(add(out, mul(w, K3(b.n))), mul(h, K3(b.a)));
}

// ------------------------------------------------------------- cyclides

struct cyclide_parts {
    double a, c, mu, b2;
};

cyclide_parts cyclide_constants(law** subs) {
    cyclide_parts p{constant_scalar(subs[1]), constant_scalar(subs[2]), constant_scalar(subs[3]),
                    0.0};
    if (!(p.a > std::fabs(p.c))) sys_error(LAW_BAD_RANGE);
    p.b2 = p.a * p.a - p.c * p.c;
    return p;
}

// The cyclide in the parameters X = u, Y = v.
law_ref cyclide_map(const cyclide_parts& p) {
    const double b = std::sqrt(p.b2);
    law_ref cu = node<cos_law>(coordinate(0)), su = node<sin_law>(coordinate(0));
    law_ref cv = node<cos_law>(coordinate(1)), sv = node<sin_law>(coordinate(1));
    law_ref cucv = mul(cu, cv);
    law_ref den = sub(K(p.a), scale(cucv, p.c));
    law_ref x = add(scale(sub(K(p.c), scale(cucv, p.a)), p.mu), scale(cu, p.b2));
    law_ref y = scale(mul(su, sub(K(p.a), scale(cv, p.mu))), b);
    law_ref z = scale(mul(sv, sub(scale(cu, p.c), K(p.mu))), b);
    return vec3(div(x, den), div(y, den), div(z, den));
}

// (u, v) from f's first two values.
law_ref parameter_pair(law* f) {
    law_ref p = law_ref::retain(f);
    law_ref both[2] = {term(p, 1), term(p, 2)};
    law* raw[2] = {both[0].get(), both[1].get()};
    return make_law<vector_law>(raw, 2);
}

enum class cyclide_output { point, normal, partials };

law_ref cyclide_expansion(law** subs, int size, cyclide_output which) {
    if (!ready(subs, size, size == 4, LAW_DIM)) return {};
    expect_dims(subs, size, {0, 1, 1, 1});
    law_ref surface = cyclide_map(cyclide_constants(subs));
    law_ref map;
    if (which == cyclide_output::point) {
        map = std::move(surface);
    } else {
        law_ref du = d(surface.get(), 0), dv = d(surface.get(), 1);
        if (which == cyclide_output::normal) {
            map = node<norm_law>(cross(du, dv));
        } else {
            law* six[6];
            law_ref parts[6];
            for (int k = 0; k < 3; ++k) {
                parts[k] = term(du, k + 1);
                parts[k + 3] = term(dv, k + 1);
            }
            for (int k = 0; k < 6; ++k) six[k] = parts[k].get();
            map = make_law<vector_law>(six, 6);
        }
    }
    return compose(map, parameter_pair(subs[0]).get());
}

// ------------------------------------------------------------- conics

// The rational quadratic arc in X = t.
law_ref conic_map(law** subs) {
    const vector p0 = constant_vector(subs[1]), p1 = constant_vector(subs[2]),
                 p2 = constant_vector(subs[3]);
    const double rho = constant_scalar(subs[4]);
    if (!(rho > 0.0 && rho < 1.0)) sys_error(LAW_BAD_RANGE);
    const double w = rho / (1.0 - rho);
    law_ref t = coordinate(0);
    law_ref s = sub(K(1), t);
    law_ref b0 = mul(s, s), b1 = scale(mul(t, s), 2 * w), b2 = mul(t, t);
    law_ref top = add(add(mul(b0, K3(p0)), mul(b1, K3(p1))), mul(b2, K3(p2)));
    return div(top, add(add(b0, b1), b2));
}

// ------------------------------------------------------------- the expansions

law_ref scaletrans_expansion(law** subs, int size) {
    if (!ready(subs, size, size == 2 || size == 3, LAW_SCALE_NUM)) return {};
    expect_dims(subs, size, {3, 0, 3});
    law_ref p = law_ref::retain(subs[0]);
    law_ref c = size == 3 ? law_ref::retain(subs[2]) : vec3(0, 0, 0);
    law_ref q = sub(p, c);
    law_ref s = law_ref::retain(subs[1]);
    law_ref scaled;
    if (s->return_dim() == 1) {
        scaled = mul(s, q);
    } else {
        scaled = vec3(mul(term(s, 1), term(q, 1)), mul(term(s, 2), term(q, 2)),
                      mul(term(s, 3), term(q, 3)));
    }
    return add(c, scaled);
}

law_ref vectrans_expansion(law** subs, int size) {
    if (!ready(subs, size, size == 3, LAW_VEC_NUM)) return {};
    expect_dims(subs, size, {3, 3, 3});
    return in_frame(subs[0], frame_of(subs[1], subs[2]));
}

law_ref postrans_expansion(law** subs, int size) {
    if (!ready(subs, size, size == 4, LAW_POS_NUM)) return {};
    expect_dims(subs, size, {3, 3, 3, 3});
    return add(law_ref::retain(subs[1]), in_frame(subs[0], frame_of(subs[2], subs[3])));
}

law_ref surfvec_expansion(law** subs, int size) {
    if (!ready(subs, size, size == 2, LAW_DIM)) return {};
    expect_dims(subs, size, {3, 2});
    law_ref w = law_ref::retain(subs[1]);
    return add(mul(term(w, 1), d(subs[0], 0)), mul(term(w, 2), d(subs[0], 1)));
}

law_ref bend_expansion(law** subs, int size, bool inverse) {
    if (!ready(subs, size, size == 5, LAW_DIM)) return {};
    expect_dims(subs, size, {3, 3, 3, 3, 1});
    const bend_frame b = bend_parts(subs);
    return compose(inverse ? unbend_map(b) : bend_map(b), subs[0]);
}

law_ref conic_expansion(law** subs, int size, bool trough) {
    if (!ready(subs, size, size == (trough ? 6 : 5), LAW_DIM)) return {};
    expect_dims(subs, size, {0, 3, 3, 3, 1, 3});
    law_ref arc = conic_map(subs);
    if (!trough) return compose(arc, subs[0]);  // reads t, f's first value
    law_ref map = add(arc, mul(coordinate(1), K3(constant_vector(subs[5]))));
    return compose(map, parameter_pair(subs[0]).get());
}

}  // namespace

// ============================================================== the classes

#define LAW_FORMULA_DEFINE(cls, expansion)                                           \
    cls::cls(law** subs, int size) : formula_law(expansion.release(), subs, size) {} \
    law* cls::make_one(law** subs, int size) const {                                 \
        return new cls(subs, size);                                                  \
    }                                                                                \
    LAW_REGISTER_PROTOTYPE(cls, nullptr, 0)

LAW_FORMULA_DEFINE(scaletrans_law, scaletrans_expansion(subs, size))
LAW_FORMULA_DEFINE(vectrans_law, vectrans_expansion(subs, size))
LAW_FORMULA_DEFINE(postrans_law, postrans_expansion(subs, size))
LAW_FORMULA_DEFINE(surfvec_law, surfvec_expansion(subs, size))
LAW_FORMULA_DEFINE(bend_law, bend_expansion(subs, size, false))
LAW_FORMULA_DEFINE(unbend_law, bend_expansion(subs, size, true))
LAW_FORMULA_DEFINE(cyclide_law, cyclide_expansion(subs, size, cyclide_output::point))
LAW_FORMULA_DEFINE(cyclide_perp_law, cyclide_expansion(subs, size, cyclide_output::normal))
LAW_FORMULA_DEFINE(dcyclide_law, cyclide_expansion(subs, size, cyclide_output::partials))
LAW_FORMULA_DEFINE(conic_line_law, conic_expansion(subs, size, false))
LAW_FORMULA_DEFINE(conic_trough_line_law, conic_expansion(subs, size, true))
