#include "qem/geometry.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "qem/errors.h"
#include "qem/heap.h"
#include "qem/tolerance.h"

namespace QEM {

// ------------------------------------------------------------- unit_vector

unit_vector::unit_vector(double x, double y, double z) : unit_vector(normalise(vector(x, y, z))) {}

unit_vector normalise(const vector& v) {
    // len() uses hypot, so tiny vectors (whose squared length would
    // underflow to zero) still normalise instead of turning into NaNs.
    double length = v.len();
    if (length == 0.0) return unit_vector();
    return unit_vector(v / length, unit_vector::already_unit{});
}

// ------------------------------------------------------------------ matrix

matrix::matrix(const vector& r0, const vector& r1, const vector& r2)
    : e_{{r0.x(), r0.y(), r0.z()}, {r1.x(), r1.y(), r1.z()}, {r2.x(), r2.y(), r2.z()}} {}

matrix matrix::transpose() const {
    return matrix(column(0), column(1), column(2));
}

double matrix::determinant() const {
    // Triple product of the rows.
    return row(0) % (row(1) * row(2));
}

matrix matrix::inverse() const {
    // Work on a copy scaled so its largest element is about 1: otherwise the
    // determinant of a tiny or huge (but well-conditioned) matrix under- or
    // overflows. The scale is a power of two, so scaling adds no rounding.
    double largest = 0.0;
    for (const auto& r : e_)
        for (double v : r) largest = std::max(largest, std::fabs(v));
    if (!(largest > 0.0) || !std::isfinite(largest)) sys_error(QEM_SINGULAR_MATRIX);
    int exponent;
    std::frexp(largest, &exponent);
    const double scale = std::ldexp(1.0, -exponent);
    vector r0 = scale * row(0), r1 = scale * row(1), r2 = scale * row(2);

    // The rows of the inverse's transpose are the pairwise cross products of
    // the rows, divided by the determinant (the adjugate formula).
    vector c0 = r1 * r2, c1 = r2 * r0, c2 = r0 * r1;
    double det = r0 % c0;
    // Hadamard's inequality bounds |det| by the product of the row lengths;
    // a determinant negligible against that bound means the rows are
    // numerically dependent.
    double bound = r0.len() * r1.len() * r2.len();
    if (!(std::fabs(det) > 64.0 * DBL_EPSILON * bound)) sys_error(QEM_SINGULAR_MATRIX);
    // inverse(s A) = inverse(A) / s, so undo the scaling by multiplying.
    return (scale / det) * matrix(c0, c1, c2).transpose();
}

matrix identity_matrix() {
    return matrix(1, 0, 0, 0, 1, 0, 0, 0, 1);
}

vector operator*(const matrix& m, const vector& v) {
    return vector(m.row(0) % v, m.row(1) % v, m.row(2) % v);
}

vector operator*(const vector& v, const matrix& m) {
    return vector(v % m.column(0), v % m.column(1), v % m.column(2));
}

matrix operator*(const matrix& a, const matrix& b) {
    return matrix(a.row(0) * b, a.row(1) * b, a.row(2) * b);
}

matrix operator*(double s, const matrix& m) {
    return matrix(s * m.row(0), s * m.row(1), s * m.row(2));
}

// ------------------------------------------------------------------ transf

transf::transf() : affine_(identity_matrix()) {}

transf::transf(const matrix& affine, const vector& translation)
    : affine_(affine), translation_(translation) {}

transf transf::inverse() const {
    // q = p A + t  =>  p = q A^-1 - t A^-1.
    matrix inv = affine_.inverse();
    return transf(inv, -(translation_ * inv));
}

transf operator*(const transf& first, const transf& second) {
    // (p A1 + t1) A2 + t2 = p (A1 A2) + (t1 A2 + t2).
    return transf(first.affine() * second.affine(),
                  first.translation() * second.affine() + second.translation());
}

position operator*(const position& p, const transf& t) {
    vector moved = vector(p.x(), p.y(), p.z()) * t.affine() + t.translation();
    return position(moved.x(), moved.y(), moved.z());
}

vector operator*(const vector& v, const transf& t) {
    return v * t.affine();
}

transf translate_transf(const vector& displacement) {
    return transf(identity_matrix(), displacement);
}

transf rotate_transf(double angle, const vector& axis) {
    unit_vector u = normalise(axis);
    if (u.len_sq() == 0.0) return transf();
    double c = std::cos(angle);
    double s = std::sin(angle);
    double k = 1.0 - c;
    // Rodrigues' rotation, transposed because points are row vectors.
    matrix m(c + k * u.x() * u.x(), k * u.x() * u.y() + s * u.z(), k * u.x() * u.z() - s * u.y(),
             k * u.y() * u.x() - s * u.z(), c + k * u.y() * u.y(), k * u.y() * u.z() + s * u.x(),
             k * u.z() * u.x() + s * u.y(), k * u.z() * u.y() - s * u.x(), c + k * u.z() * u.z());
    return transf(m, vector());
}

transf scale_transf(double factor) {
    return transf(factor * identity_matrix(), vector());
}

// ---------------------------------------------------------------- interval

// The empty interval is stored as [+inf, -inf]. That makes hull and
// intersection plain min/max operations, and keeps one representation so
// that the defaulted equality is meaningful.

interval::interval() : lo_(HUGE_VAL), hi_(-HUGE_VAL) {}

interval::interval(interval_type type) : interval() {
    if (type == interval_infinite) {
        lo_ = -HUGE_VAL;
        hi_ = HUGE_VAL;
    }
}

interval::interval(double lo, double hi) : interval() {
    if (std::isnan(lo) || std::isnan(hi)) return;
    if (lo > hi) std::swap(lo, hi);
    // An interval starting at +inf or ending at -inf holds no real number.
    if (lo == HUGE_VAL || hi == -HUGE_VAL) return;
    lo_ = lo;
    hi_ = hi;
}

interval interval::below(double hi) {
    return interval(-HUGE_VAL, hi);
}

interval interval::above(double lo) {
    return interval(lo, HUGE_VAL);
}

interval_type interval::type() const {
    if (empty()) return interval_empty;
    bool lo_finite = std::isfinite(lo_);
    bool hi_finite = std::isfinite(hi_);
    if (lo_finite && hi_finite) return interval_finite;
    if (lo_finite) return interval_finite_below;
    if (hi_finite) return interval_finite_above;
    return interval_infinite;
}

double interval::length() const {
    return empty() ? 0.0 : hi_ - lo_;
}

double interval::mid_pt() const {
    switch (type()) {
        case interval_finite:
            // Halve first: lo + hi may overflow although the midpoint cannot.
            return 0.5 * lo_ + 0.5 * hi_;
        case interval_finite_below:
            return lo_;
        case interval_finite_above:
            return hi_;
        default:
            return 0.0;
    }
}

bool interval::contains(double x) const {
    return contains(x, get_resabs());
}

bool interval::contains(double x, double tol) const {
    return !empty() && x >= lo_ - tol && x <= hi_ + tol;
}

interval& interval::operator|=(const interval& o) {
    lo_ = std::min(lo_, o.lo_);
    hi_ = std::max(hi_, o.hi_);
    return *this;
}

interval& interval::operator&=(const interval& o) {
    lo_ = std::max(lo_, o.lo_);
    hi_ = std::min(hi_, o.hi_);
    if (lo_ > hi_) *this = interval();
    return *this;
}

interval operator+(const interval& a, const interval& b) {
    if (a.empty() || b.empty()) return interval();
    // Lower ends are never +inf and upper ends never -inf, so no inf - inf.
    return interval(a.start_pt() + b.start_pt(), a.end_pt() + b.end_pt());
}

interval operator-(const interval& a) {
    if (a.empty()) return interval();
    return interval(-a.end_pt(), -a.start_pt());
}

interval operator-(const interval& a, const interval& b) {
    return a + (-b);
}

interval operator*(double s, const interval& a) {
    if (a.empty() || std::isnan(s)) return interval();
    // Taken as exact zero even for unbounded intervals, where 0 * inf would
    // otherwise produce NaN ends.
    if (s == 0.0) return interval(0.0, 0.0);
    return interval(s * a.start_pt(), s * a.end_pt());
}

// ----------------------------------------------------------------- nvector

nvector::nvector() noexcept : data_(inline_) {}

nvector::nvector(int n) : data_(inline_) {
    allocate(n);
    std::fill(data_, data_ + n_, 0.0);
}

nvector::nvector(int n, const double* values) : data_(inline_) {
    allocate(n);
    if (n_ > 0) std::copy(values, values + n_, data_);
}

nvector::nvector(const nvector& o) : nvector(o.n_, o.data_) {}

nvector::nvector(nvector&& o) noexcept : data_(inline_) {
    steal(o);
}

nvector& nvector::operator=(const nvector& o) {
    if (this != &o) {
        // Copy first so a failed allocation leaves *this untouched.
        nvector copy(o);
        release();
        steal(copy);
    }
    return *this;
}

nvector& nvector::operator=(nvector&& o) noexcept {
    if (this != &o) {
        release();
        steal(o);
    }
    return *this;
}

nvector::~nvector() {
    release();
}

double nvector::at(int i) const {
    if (i < 0 || i >= n_) sys_error(QEM_BAD_INDEX);
    return data_[i];
}

void nvector::allocate(int n) {
    if (n < 0) sys_error(QEM_BAD_SIZE);
    data_ = n <= inline_capacity ? inline_ : QEM_ALLOC_ARRAY(double, static_cast<size_t>(n));
    n_ = n;
}

void nvector::release() {
    if (on_heap()) vorn_discard(data_);
    data_ = inline_;
    n_ = 0;
}

void nvector::steal(nvector& o) noexcept {
    // Precondition: *this holds nothing.
    if (o.on_heap()) {
        data_ = o.data_;
    } else {
        std::copy(o.inline_, o.inline_ + o.n_, inline_);
        data_ = inline_;
    }
    n_ = o.n_;
    o.data_ = o.inline_;
    o.n_ = 0;
}

bool operator==(const nvector& a, const nvector& b) {
    return a.size() == b.size() && std::equal(a.data(), a.data() + a.size(), b.data());
}

}  // namespace QEM
