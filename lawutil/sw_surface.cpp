#include <lawutil/sw_surface.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <lawutil/internal/sw_arrays.h>
#include <lawutil/law_errors.h>

using law_internal::sw_copy_array;
using law_internal::sw_homogeneous_points;

namespace {

void check_inside(double t, double lo, double hi) {
    const double slack = 1e-12 * (hi - lo);
    if (!(t >= lo - slack && t <= hi + slack)) sys_error(SW_SURFACE_EVAL);
}

}  // namespace

sw_surface::sw_surface(int degree_u, int degree_v, int count_u, int count_v,
                       const QEM::position* points, const double* weights, const double* knots_u,
                       const double* knots_v)
    : degree_u_(degree_u), degree_v_(degree_v), count_u_(count_u), count_v_(count_v) {
    for (int p : {degree_u, degree_v})
        if (p < 1 || p > sw_max_degree) sys_error(SW_BAD_ORDER);
    if (count_u < degree_u + 1 || count_v < degree_v + 1 || !points || !knots_u || !knots_v)
        sys_error(LAW_DIM);
    if (!sw_valid_knots(knots_u, count_u, degree_u) || !sw_valid_knots(knots_v, count_v, degree_v))
        sys_error(LAW_DIM);
    const int n = count_u * count_v;
    knots_u_ = sw_copy_array(knots_u, count_u + degree_u + 1);
    knots_v_ = sw_copy_array(knots_v, count_v + degree_v + 1);
    cpw_ = sw_homogeneous_points(points, weights, n, rational_);
}

sw_surface::sw_surface(const sw_surface& other)
    : degree_u_(other.degree_u_),
      degree_v_(other.degree_v_),
      count_u_(other.count_u_),
      count_v_(other.count_v_),
      rational_(other.rational_) {
    if (other.control_count() == 0) return;
    knots_u_ = sw_copy_array(other.knots_u_.get(), count_u_ + degree_u_ + 1);
    knots_v_ = sw_copy_array(other.knots_v_.get(), count_v_ + degree_v_ + 1);
    cpw_ = sw_copy_array(other.cpw_.get(), 4 * control_count());
}

sw_surface& sw_surface::operator=(const sw_surface& other) {
    if (this != &other) {
        sw_surface copy(other);
        *this = std::move(copy);
    }
    return *this;
}

namespace {

// One insertion of t by Boehm's rule (see sw_curve::insert_knot) into every line of the
// net that runs along the direction of `knots`; `at_old(line, i)` and `at_new(line, i)`
// give the place of point i of a line in the old and the new net.  Returns false when the
// knot already has the degree's multiplicity.
template <class OldIndex, class NewIndex>
bool boehm_lines(QEM::scoped_heap_array<double>& knots, int count, int p, double t, int lines,
                 QEM::scoped_heap_array<double>& cpw, OldIndex at_old, NewIndex at_new) {
    const int k = sw_find_span(knots.get(), count, p, t);
    int multiplicity = 0;
    for (int i = k; i >= 0 && knots[i] == t; --i) ++multiplicity;
    if (multiplicity >= p) return false;
    QEM::scoped_heap_array<double> nk(QEM_ALLOC_ARRAY(double, static_cast<size_t>(count + p + 2)));
    for (int i = 0; i <= k; ++i) nk[i] = knots[i];
    nk[k + 1] = t;
    for (int i = k + 1; i < count + p + 1; ++i) nk[i + 1] = knots[i];
    QEM::scoped_heap_array<double> q(
        QEM_ALLOC_ARRAY(double, 4 * static_cast<size_t>(lines) * (count + 1)));
    for (int l = 0; l < lines; ++l)
        for (int i = 0; i <= count; ++i) {
            double* to = q.get() + 4 * at_new(l, i);
            const double a = i <= k - p ? 1.0
                             : i > k    ? 0.0
                                        : (t - knots[i]) / (knots[i + p] - knots[i]);
            const double* now = cpw.get() + 4 * at_old(l, std::min(i, count - 1));
            const double* before = cpw.get() + 4 * at_old(l, std::max(i - 1, 0));
            for (int c = 0; c < 4; ++c) to[c] = a * now[c] + (1.0 - a) * before[c];
        }
    knots = std::move(nk);
    cpw = std::move(q);
    return true;
}

}  // namespace

int sw_surface::insert_knot_u(double u, int times) {
    if (control_count() == 0 || !(u > start_u() && u < end_u())) return 0;
    int inserted = 0;
    for (; inserted < times; ++inserted) {
        const int nv = count_v_;
        if (!boehm_lines(
                knots_u_, count_u_, degree_u_, u, nv, cpw_,
                [nv](int j, int i) { return i * nv + j; },
                [nv](int j, int i) { return i * nv + j; }))
            break;
        ++count_u_;
    }
    return inserted;
}

int sw_surface::insert_knot_v(double v, int times) {
    if (control_count() == 0 || !(v > start_v() && v < end_v())) return 0;
    int inserted = 0;
    for (; inserted < times; ++inserted) {
        const int nv = count_v_;
        if (!boehm_lines(
                knots_v_, count_v_, degree_v_, v, count_u_, cpw_,
                [nv](int i, int j) { return i * nv + j; },
                [nv](int i, int j) { return i * (nv + 1) + j; }))
            break;
        ++count_v_;
    }
    return inserted;
}

QEM::position sw_surface::control_point(int i, int j) const {
    const double* q = cpw_.get() + 4 * (i * count_v_ + j);
    return QEM::position(q[0] / q[3], q[1] / q[3], q[2] / q[3]);
}

// A(u, v) = sum_i sum_j N_i(u) M_j(v) w_ij P_ij: first contract each row of the net with
// the v-basis (and its derivatives), then the results with the u-basis.
void sw_surface::homogeneous(double u, double v, int order, double* hom) const {
    const int pu = degree_u_, pv = degree_v_;
    const int su = sw_find_span(knots_u_.get(), count_u_, pu, u);
    const int sv = sw_find_span(knots_v_.get(), count_v_, pv, v);
    const int du = std::min(order, pu), dv = std::min(order, pv);
    double nu[3 * (sw_max_degree + 1)], nv[3 * (sw_max_degree + 1)];
    sw_basis_derivs(knots_u_.get(), pu, su, u, du, nu);
    sw_basis_derivs(knots_v_.get(), pv, sv, v, dv, nv);

    std::fill(hom, hom + 4 * 9, 0.0);
    for (int l = 0; l <= dv; ++l) {
        for (int r = 0; r <= pu; ++r) {
            // temp = d^l/dv^l of row su - pu + r at v
            double temp[4] = {0, 0, 0, 0};
            const double* row = cpw_.get() + 4 * ((su - pu + r) * count_v_ + sv - pv);
            for (int s = 0; s <= pv; ++s)
                for (int c = 0; c < 4; ++c) temp[c] += nv[l * (pv + 1) + s] * row[4 * s + c];
            for (int k = 0; k + l <= order && k <= du; ++k)
                for (int c = 0; c < 4; ++c)
                    hom[4 * (3 * k + l) + c] += nu[k * (pu + 1) + r] * temp[c];
        }
    }
}

QEM::position sw_surface::eval_position(double u, double v) const {
    check_inside(u, start_u(), end_u());
    check_inside(v, start_v(), end_v());
    double hom[4 * 9];
    homogeneous(u, v, 0, hom);
    return QEM::position(hom[0] / hom[3], hom[1] / hom[3], hom[2] / hom[3]);
}

// From A = w S, Leibniz in two variables gives
//   S^(k,l) = (A^(k,l) - sum_{(i,j) != (0,0), i<=k, j<=l} C(k,i) C(l,j) w^(i,j) S^(k-i,l-j)) / w.
sw_surface_derivs sw_surface::eval(double u, double v) const {
    check_inside(u, start_u(), end_u());
    check_inside(v, start_v(), end_v());
    double hom[4 * 9];
    homogeneous(u, v, 2, hom);
    double s[9][3];
    const double inv = 1.0 / hom[3];
    for (int k = 0; k <= 2; ++k) {
        for (int l = 0; k + l <= 2; ++l) {
            double val[3] = {hom[4 * (3 * k + l)], hom[4 * (3 * k + l) + 1],
                             hom[4 * (3 * k + l) + 2]};
            for (int i = 0; i <= k; ++i)
                for (int j = 0; j <= l; ++j) {
                    if (i == 0 && j == 0) continue;
                    const double f =
                        sw_binomial(k, i) * sw_binomial(l, j) * hom[4 * (3 * i + j) + 3];
                    for (int c = 0; c < 3; ++c) val[c] -= f * s[3 * (k - i) + (l - j)][c];
                }
            for (int c = 0; c < 3; ++c) s[3 * k + l][c] = val[c] * inv;
        }
    }
    auto vec = [&](int k, int l) {
        return QEM::vector(s[3 * k + l][0], s[3 * k + l][1], s[3 * k + l][2]);
    };
    sw_surface_derivs d;
    d.point = QEM::position(s[0][0], s[0][1], s[0][2]);
    d.du = vec(1, 0);
    d.dv = vec(0, 1);
    d.duu = vec(2, 0);
    d.duv = vec(1, 1);
    d.dvv = vec(0, 2);
    return d;
}
