// Basic geometric value types: vectors, positions, parameter pairs, 3x3
// matrices, affine transforms, real intervals, short numeric vectors and
// complex numbers.
//
// Conventions:
//  * Points and vectors are row vectors. Applying a transform is written
//    `p * t`, so `p * t1 * t2` applies t1 first; `v * m` is the row-vector
//    product, `m * v` the ordinary column product.
//  * Equality of vectors, positions and matrices is exact; compare within a
//    tolerance explicitly where rounding matters.
#pragma once

#include <cmath>

#include "qem/qem_export.h"

namespace QEM {

// ------------------------------------------------------------------ vector

class vector {
  public:
    constexpr vector() : c_{0.0, 0.0, 0.0} {}
    constexpr vector(double x, double y, double z) : c_{x, y, z} {}

    constexpr double x() const { return c_[0]; }
    constexpr double y() const { return c_[1]; }
    constexpr double z() const { return c_[2]; }
    // Component i; precondition 0 <= i < 3.
    constexpr double operator[](int i) const { return c_[i]; }
    constexpr double& operator[](int i) { return c_[i]; }

    vector& operator+=(const vector& v) {
        for (int i = 0; i < 3; ++i) c_[i] += v.c_[i];
        return *this;
    }
    vector& operator-=(const vector& v) {
        for (int i = 0; i < 3; ++i) c_[i] -= v.c_[i];
        return *this;
    }
    vector& operator*=(double s) {
        for (double& c : c_) c *= s;
        return *this;
    }
    vector& operator/=(double s) {
        for (double& c : c_) c /= s;
        return *this;
    }

    double len_sq() const { return c_[0] * c_[0] + c_[1] * c_[1] + c_[2] * c_[2]; }
    // Euclidean length, free of intermediate overflow and underflow.
    double len() const { return std::hypot(c_[0], c_[1], c_[2]); }

    friend bool operator==(const vector&, const vector&) = default;

  private:
    double c_[3];
};

inline vector operator+(vector a, const vector& b) {
    return a += b;
}
inline vector operator-(vector a, const vector& b) {
    return a -= b;
}
inline vector operator-(const vector& a) {
    return vector(-a.x(), -a.y(), -a.z());
}
inline vector operator*(vector a, double s) {
    return a *= s;
}
inline vector operator*(double s, vector a) {
    return a *= s;
}
inline vector operator/(vector a, double s) {
    return a /= s;
}
// Dot product.
inline double operator%(const vector& a, const vector& b) {
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}
// Cross product (right-handed).
inline vector operator*(const vector& a, const vector& b) {
    return vector(a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(),
                  a.x() * b.y() - a.y() * b.x());
}

// -------------------------------------------------------------- unit_vector

class unit_vector;

// v scaled to unit length; the zero vector yields the zero vector (no error).
QEM_API unit_vector normalise(const vector& v);

// A direction: a vector of length 1, or the zero vector meaning "no
// direction" (what normalising a zero vector yields). Members that could
// break the length are hidden.
class QEM_API unit_vector : public vector {
  public:
    // The zero vector ("no direction").
    constexpr unit_vector() = default;
    // Normalises (x, y, z); the zero vector stays zero.
    unit_vector(double x, double y, double z);

    // Read-only: declaring only this overload hides the writable one.
    constexpr double operator[](int i) const { return vector::operator[](i); }
    unit_vector& operator+=(const vector&) = delete;
    unit_vector& operator-=(const vector&) = delete;
    unit_vector& operator*=(double) = delete;
    unit_vector& operator/=(double) = delete;

  private:
    friend unit_vector normalise(const vector& v);
    friend unit_vector operator-(const unit_vector& u);
    struct already_unit {};
    constexpr unit_vector(const vector& v, already_unit) : vector(v) {}
};

inline unit_vector operator-(const unit_vector& u) {
    return unit_vector(-static_cast<const vector&>(u), unit_vector::already_unit{});
}

// ---------------------------------------------------------------- position

class position {
  public:
    constexpr position() : c_{0.0, 0.0, 0.0} {}
    constexpr position(double x, double y, double z) : c_{x, y, z} {}

    constexpr double x() const { return c_[0]; }
    constexpr double y() const { return c_[1]; }
    constexpr double z() const { return c_[2]; }
    // Coordinate i; precondition 0 <= i < 3.
    constexpr double operator[](int i) const { return c_[i]; }
    constexpr double& operator[](int i) { return c_[i]; }

    position& operator+=(const vector& v) {
        for (int i = 0; i < 3; ++i) c_[i] += v[i];
        return *this;
    }
    position& operator-=(const vector& v) {
        for (int i = 0; i < 3; ++i) c_[i] -= v[i];
        return *this;
    }

    friend bool operator==(const position&, const position&) = default;

  private:
    double c_[3];
};

inline vector operator-(const position& a, const position& b) {
    return vector(a.x() - b.x(), a.y() - b.y(), a.z() - b.z());
}
inline position operator+(position p, const vector& v) {
    return p += v;
}
inline position operator+(const vector& v, position p) {
    return p += v;
}
inline position operator-(position p, const vector& v) {
    return p -= v;
}

// ----------------------------------------------------------------- par_pos

// A point in a surface's (u, v) parameter plane.
class par_pos {
  public:
    constexpr par_pos() = default;
    constexpr par_pos(double u, double v) : u_(u), v_(v) {}
    constexpr double u() const { return u_; }
    constexpr double v() const { return v_; }
    friend bool operator==(const par_pos&, const par_pos&) = default;

  private:
    double u_ = 0.0;
    double v_ = 0.0;
};

// ------------------------------------------------------------------ matrix

// 3x3 matrix, row-major.
class QEM_API matrix {
  public:
    // The zero matrix; use identity_matrix() for the identity.
    constexpr matrix() : e_{} {}
    constexpr matrix(double e00, double e01, double e02, double e10, double e11, double e12,
                     double e20, double e21, double e22)
        : e_{{e00, e01, e02}, {e10, e11, e12}, {e20, e21, e22}} {}
    // Matrix with the given rows.
    matrix(const vector& r0, const vector& r1, const vector& r2);

    // Element in row i, column j; precondition 0 <= i, j < 3.
    constexpr double element(int i, int j) const { return e_[i][j]; }
    vector row(int i) const { return vector(e_[i][0], e_[i][1], e_[i][2]); }
    vector column(int j) const { return vector(e_[0][j], e_[1][j], e_[2][j]); }

    matrix transpose() const;
    double determinant() const;
    // The inverse. Raises sys_error(QEM_SINGULAR_MATRIX) when the matrix is
    // singular relative to the size of its rows.
    matrix inverse() const;

    friend bool operator==(const matrix&, const matrix&) = default;

  private:
    double e_[3][3];
};

QEM_API matrix identity_matrix();
// Column product: result[i] = sum_j m(i,j) v[j].
QEM_API vector operator*(const matrix& m, const vector& v);
// Row product: result[j] = sum_i v[i] m(i,j).
QEM_API vector operator*(const vector& v, const matrix& m);
QEM_API matrix operator*(const matrix& a, const matrix& b);
QEM_API matrix operator*(double s, const matrix& m);

// ------------------------------------------------------------------ transf

// Affine transform p -> p * affine + translation (row vectors). The affine
// part may rotate, scale, shear or reflect.
class QEM_API transf {
  public:
    // The identity.
    transf();
    transf(const matrix& affine, const vector& translation);

    const matrix& affine() const { return affine_; }
    const vector& translation() const { return translation_; }
    // The transform undoing this one. Raises sys_error(QEM_SINGULAR_MATRIX)
    // when the affine part is singular.
    transf inverse() const;

  private:
    matrix affine_;
    vector translation_;
};

// Composition: applying the result equals applying `first`, then `second`.
QEM_API transf operator*(const transf& first, const transf& second);
QEM_API position operator*(const position& p, const transf& t);
// Vectors are directions/displacements: the translation does not apply.
QEM_API vector operator*(const vector& v, const transf& t);
inline position& operator*=(position& p, const transf& t) {
    return p = p * t;
}
inline vector& operator*=(vector& v, const transf& t) {
    return v = v * t;
}
inline transf& operator*=(transf& a, const transf& b) {
    return a = a * b;
}

QEM_API transf translate_transf(const vector& displacement);
// Right-handed rotation by `angle` radians about `axis` through the origin.
// A zero axis gives the identity.
QEM_API transf rotate_transf(double angle, const vector& axis);
QEM_API transf scale_transf(double factor);

// ---------------------------------------------------------------- interval

enum interval_type {
    interval_unknown = 0,
    interval_finite = 1,
    interval_finite_below = 2,  // [lo, +inf)
    interval_finite_above = 3,  // (-inf, hi]
    interval_infinite = 4,      // the whole real line
    interval_empty = 5
};

// A closed interval of the real line, possibly unbounded at either end, or
// empty. Unbounded ends are reported as -HUGE_VAL / +HUGE_VAL (infinities).
class QEM_API interval {
  public:
    // The empty interval.
    interval();
    // interval_infinite gives the whole line; every other type names bounds
    // that are not supplied, so it gives the empty interval.
    interval(interval_type type);
    // [min(lo,hi), max(lo,hi)]. An infinite argument leaves that end
    // unbounded; a NaN argument gives the empty interval.
    interval(double lo, double hi);
    // (-inf, hi] and [lo, +inf).
    static interval below(double hi);
    static interval above(double lo);

    // Never interval_unknown.
    interval_type type() const;
    bool empty() const { return lo_ > hi_; }
    // Both ends finite (type() == interval_finite).
    bool finite() const { return !empty() && std::isfinite(lo_) && std::isfinite(hi_); }
    // Has a finite lower end: type() is interval_finite or interval_finite_below.
    bool finite_below() const { return !empty() && std::isfinite(lo_); }
    // Has a finite upper end: type() is interval_finite or interval_finite_above.
    bool finite_above() const { return !empty() && std::isfinite(hi_); }
    // The whole real line.
    bool infinite() const { return std::isinf(lo_) && lo_ < 0 && std::isinf(hi_) && hi_ > 0; }

    // Lower / upper end. The empty interval reports +HUGE_VAL / -HUGE_VAL.
    double start_pt() const { return lo_; }
    double end_pt() const { return hi_; }
    // hi - lo; HUGE_VAL when unbounded, 0 when empty.
    double length() const;
    // Midpoint when finite; the finite end of a half-infinite interval; 0 for
    // the whole line and for the empty interval.
    double mid_pt() const;

    // True when x lies within get_resabs() of the interval.
    bool contains(double x) const;
    bool contains(double x, double tol) const;
    bool operator>>(double x) const { return contains(x); }

    // Same type and bounds.
    friend bool operator==(const interval&, const interval&) = default;

    // Smallest interval containing both (the hull).
    interval& operator|=(const interval& o);
    // Common part; empty when disjoint.
    interval& operator&=(const interval& o);

  private:
    double lo_;
    double hi_;
};

inline interval operator|(interval a, const interval& b) {
    return a |= b;
}
inline interval operator&(interval a, const interval& b) {
    return a &= b;
}
// Interval arithmetic: the set of all x op y for x in a, y in b. Any empty
// operand gives the empty interval.
QEM_API interval operator+(const interval& a, const interval& b);
QEM_API interval operator-(const interval& a, const interval& b);
QEM_API interval operator-(const interval& a);
// { s x : x in a }. A zero factor gives [0, 0] for any non-empty interval.
QEM_API interval operator*(double s, const interval& a);
inline interval operator*(const interval& a, double s) {
    return s * a;
}

// ----------------------------------------------------------------- nvector

// A short vector of n doubles. Up to four values are stored in place; longer
// vectors use the tracked heap. Copies are deep.
class QEM_API nvector {
  public:
    nvector() noexcept;
    // n zeros. Raises sys_error(QEM_BAD_SIZE) when n < 0.
    explicit nvector(int n);
    // Copies n values from `values` (which may be null only when n == 0).
    nvector(int n, const double* values);
    nvector(const nvector& o);
    // The source is left empty.
    nvector(nvector&& o) noexcept;
    nvector& operator=(const nvector& o);
    nvector& operator=(nvector&& o) noexcept;
    ~nvector();

    int size() const { return n_; }
    // Precondition: 0 <= i < size().
    double operator[](int i) const { return data_[i]; }
    double& operator[](int i) { return data_[i]; }
    // Checked access; raises sys_error(QEM_BAD_INDEX) when out of range.
    double at(int i) const;
    const double* data() const { return data_; }
    double* data() { return data_; }

  private:
    static constexpr int inline_capacity = 4;
    bool on_heap() const { return data_ != inline_; }
    void allocate(int n);
    void release();
    void steal(nvector& o) noexcept;

    int n_ = 0;
    double* data_;
    double inline_[inline_capacity] = {};
};

// Same size and values.
QEM_API bool operator==(const nvector& a, const nvector& b);

// ---------------------------------------------------------- complex_number

class complex_number {
  public:
    constexpr complex_number(double re = 0.0, double im = 0.0) : re_(re), im_(im) {}
    constexpr double real() const { return re_; }
    constexpr double imag() const { return im_; }
    // Modulus, free of intermediate overflow.
    double abs() const { return std::hypot(re_, im_); }
    constexpr complex_number conj() const { return complex_number(re_, -im_); }

    friend constexpr bool operator==(const complex_number&, const complex_number&) = default;

  private:
    double re_;
    double im_;
};

constexpr complex_number operator+(const complex_number& a, const complex_number& b) {
    return complex_number(a.real() + b.real(), a.imag() + b.imag());
}
constexpr complex_number operator-(const complex_number& a, const complex_number& b) {
    return complex_number(a.real() - b.real(), a.imag() - b.imag());
}
constexpr complex_number operator-(const complex_number& a) {
    return complex_number(-a.real(), -a.imag());
}
constexpr complex_number operator*(const complex_number& a, const complex_number& b) {
    return complex_number(a.real() * b.real() - a.imag() * b.imag(),
                          a.real() * b.imag() + a.imag() * b.real());
}
// Division by zero gives infinities/NaNs, as for doubles.
inline complex_number operator/(const complex_number& a, const complex_number& b) {
    // Scale by the larger part of b (Smith's method) so that |b|^2 is never
    // formed: it would overflow or underflow long before the quotient does.
    if (std::fabs(b.real()) >= std::fabs(b.imag())) {
        double r = b.imag() / b.real();
        double d = b.real() + b.imag() * r;
        return complex_number((a.real() + a.imag() * r) / d, (a.imag() - a.real() * r) / d);
    }
    double r = b.real() / b.imag();
    double d = b.real() * r + b.imag();
    return complex_number((a.real() * r + a.imag()) / d, (a.imag() * r - a.real()) / d);
}

}  // namespace QEM
