#include <lawutil/sw_curve.h>

#include <algorithm>
#include <cstring>

#include <lawutil/internal/sw_arrays.h>
#include <lawutil/law_errors.h>

using law_internal::sw_copy_array;
using law_internal::sw_homogeneous_points;

sw_curve::sw_curve(int degree, int count, const QEM::position* points, const double* weights,
                   const double* knots)
    : degree_(degree), count_(count) {
    if (degree < 1 || degree > sw_max_degree) sys_error(SW_BAD_ORDER);
    if (count < degree + 1 || !points || !knots) sys_error(LAW_DIM);
    if (!sw_valid_knots(knots, count, degree)) sys_error(LAW_DIM);
    knots_ = sw_copy_array(knots, count + degree + 1);
    cpw_ = sw_homogeneous_points(points, weights, count, rational_);
    build_pieces();
}

sw_curve::sw_curve(const sw_curve& other)
    : degree_(other.degree_), count_(other.count_), rational_(other.rational_) {
    if (other.count_ == 0) return;
    knots_ = sw_copy_array(other.knots_.get(), other.knot_count());
    cpw_ = sw_copy_array(other.cpw_.get(), 4 * other.count_);
    pieces_ = sw_copy_array(other.pieces_.get(), (count_ - degree_) * 4 * (degree_ + 1));
}

sw_curve& sw_curve::operator=(const sw_curve& other) {
    if (this != &other) {
        sw_curve copy(other);
        *this = std::move(copy);
    }
    return *this;
}

QEM::position sw_curve::control_point(int i) const {
    const double w = cpw_[4 * i + 3];
    return QEM::position(cpw_[4 * i] / w, cpw_[4 * i + 1] / w, cpw_[4 * i + 2] / w);
}

int sw_curve::span_count() const {
    int spans = 0;
    for (int k = degree_; k < count_; ++k)
        if (knots_[k] < knots_[k + 1]) ++spans;
    return spans;
}

// The homogeneous curve A(t) = sum N_j(t) w_j P_j, w(t) = sum N_j(t) w_j is a polynomial
// on each span.  Its Taylor coefficients at the span's start, A^(j)(u_k) / j!, come once
// from the basis derivatives there; evaluation is then Horner's rule, with no division
// (the basis recurrence costs p(p+1)/2 of them at every point).
void sw_curve::build_pieces() {
    const int p = degree_;
    const int stride = 4 * (p + 1);
    pieces_.reset(QEM_ALLOC_ARRAY(double, static_cast<size_t>(count_ - p) * stride));
    double ders[(sw_max_degree + 1) * (sw_max_degree + 1)];
    for (int k = p; k < count_; ++k) {
        double* c = pieces_.get() + (k - p) * stride;
        std::fill(c, c + stride, 0.0);
        if (!(knots_[k] < knots_[k + 1])) continue;  // an empty span is never looked up
        sw_basis_derivs(knots_.get(), p, k, knots_[k], p, ders);
        double factorial = 1.0;
        for (int j = 0; j <= p; ++j) {
            if (j > 0) factorial *= j;
            const double* cp = cpw_.get() + 4 * (k - p);
            for (int i = 0; i <= p; ++i)
                for (int x = 0; x < 4; ++x)
                    c[4 * j + x] += ders[j * (p + 1) + i] * cp[4 * i + x] / factorial;
        }
    }
}

// From A = w C, Leibniz gives
//     C^(k) = (A^(k) - sum_{i=1..k} binom(k, i) w^(i) C^(k-i)) / w.
void sw_curve::derivs(double t, int order, double* out) const {
    if (order < 0 || order > sw_max_deriv_order) sys_error(LAW_DIM);
    const int p = degree_;
    const int span = sw_find_span(knots_.get(), count_, p, t);
    const double* c = pieces_.get() + (span - p) * 4 * (p + 1);
    const double s = t - knots_[span];
    if (order == 0) {  // the point alone: the hot path of a curve law
        double acc[4] = {c[4 * p], c[4 * p + 1], c[4 * p + 2], c[4 * p + 3]};
        for (int j = p - 1; j >= 0; --j)
            for (int x = 0; x < 4; ++x) acc[x] = acc[x] * s + c[4 * j + x];
        const double inv = 1.0 / acc[3];
        for (int x = 0; x < 3; ++x) out[x] = acc[x] * inv;
        return;
    }

    double hom[4 * (sw_max_deriv_order + 1)];
    const int top = std::min(order, p);
    for (int k = 0; k <= top; ++k) {
        // A^(k)(s) = sum_{j>=k} j!/(j-k)! c_j s^(j-k), by Horner from the top.
        double acc[4] = {0, 0, 0, 0};
        for (int j = p; j >= k; --j) {
            double falling = 1.0;
            for (int i = 0; i < k; ++i) falling *= j - i;
            for (int x = 0; x < 4; ++x) acc[x] = acc[x] * s + falling * c[4 * j + x];
        }
        for (int x = 0; x < 4; ++x) hom[4 * k + x] = acc[x];
    }
    for (int k = top + 1; k <= order; ++k)
        for (int x = 0; x < 4; ++x) hom[4 * k + x] = 0.0;

    const double inv = 1.0 / hom[3];
    if (!rational_) {
        // Equal weights: w is constant and C^(k) = A^(k) / w.
        for (int k = 0; k <= order; ++k)
            for (int x = 0; x < 3; ++x) out[3 * k + x] = hom[4 * k + x] * inv;
        return;
    }
    for (int k = 0; k <= order; ++k) {
        double v[3] = {hom[4 * k], hom[4 * k + 1], hom[4 * k + 2]};
        for (int i = 1; i <= k; ++i) {
            const double f = sw_binomial(k, i) * hom[4 * i + 3];
            for (int x = 0; x < 3; ++x) v[x] -= f * out[3 * (k - i) + x];
        }
        for (int x = 0; x < 3; ++x) out[3 * k + x] = v[x] * inv;
    }
}

void sw_curve::eval(double t, QEM::position& point, QEM::vector* first, QEM::vector* second) const {
    double out[9];
    derivs(t, second ? 2 : first ? 1 : 0, out);
    point = QEM::position(out[0], out[1], out[2]);
    if (first) *first = QEM::vector(out[3], out[4], out[5]);
    if (second) *second = QEM::vector(out[6], out[7], out[8]);
}

QEM::position sw_curve::eval_position(double t) const {
    double out[3];
    derivs(t, 0, out);
    return QEM::position(out[0], out[1], out[2]);
}

// Boehm: inserting t into span k (knots[k] <= t < knots[k+1]) replaces the points
// k-p+1 .. k by Q_i = a_i P_i + (1 - a_i) P_{i-1}, a_i = (t - u_i) / (u_{i+p} - u_i), on the
// homogeneous points, so rational curves are kept exactly.
int sw_curve::insert_knot(double t, int times) {
    if (count_ == 0 || !(t > start_param() && t < end_param())) return 0;
    const int p = degree_;
    int inserted = 0;
    for (; inserted < times; ++inserted) {
        const int k = sw_find_span(knots_.get(), count_, p, t);
        int multiplicity = 0;
        for (int i = k; i >= 0 && knots_[i] == t; --i) ++multiplicity;
        if (multiplicity >= p) break;

        const int n = count_ + 1;
        QEM::scoped_heap_array<double> knots(
            QEM_ALLOC_ARRAY(double, static_cast<size_t>(n + p + 1)));
        QEM::scoped_heap_array<double> cpw(QEM_ALLOC_ARRAY(double, 4 * static_cast<size_t>(n)));
        for (int i = 0; i <= k; ++i) knots[i] = knots_[i];
        knots[k + 1] = t;
        for (int i = k + 1; i < count_ + p + 1; ++i) knots[i + 1] = knots_[i];

        for (int i = 0; i < n; ++i) {
            double* q = cpw.get() + 4 * i;
            if (i <= k - p) {
                std::memcpy(q, cpw_.get() + 4 * i, 4 * sizeof(double));
            } else if (i > k) {
                std::memcpy(q, cpw_.get() + 4 * (i - 1), 4 * sizeof(double));
            } else {
                const double a = (t - knots_[i]) / (knots_[i + p] - knots_[i]);
                for (int c = 0; c < 4; ++c)
                    q[c] = a * cpw_[4 * i + c] + (1.0 - a) * cpw_[4 * (i - 1) + c];
            }
        }
        knots_ = std::move(knots);
        cpw_ = std::move(cpw);
        count_ = n;
    }
    if (inserted > 0) build_pieces();
    return inserted;
}
