#pragma once
// Sparse polynomials in a law (law_polynomial), recognised in law trees by
// law::polynomial and combined algebraically; make_polynomial_law turns a dense
// coefficient array back into a law tree; small integer helpers for exponent arithmetic.
// A law whose product or integer power would pass degree 1000 is not read as a
// polynomial (expanding it costs the cube of its degree).

#include <lawutil/law_base.h>
#include <lawutil/law_export.h>
#include <qem/heap.h>

/// A polynomial sum of coefficient * in^power terms.  `in` may be null (a constant, or a
/// polynomial not yet tied to a law); the polynomial holds one use of it.  Terms need
/// not be sorted.  A degree of -1 marks a failed combination: two polynomials in laws
/// that are not equal, or a negative power.
class LAW_API law_polynomial : public QEM::heap_object {
  public:
    /// The zero polynomial: degree 0, no terms, no `in`.
    law_polynomial();
    /// `n` terms copied from the two arrays (either may be null only when n is 0); the
    /// degree is the largest power, 0 without terms.  Takes a use of `in` (may be null).
    law_polynomial(const double* coefficients, const int* powers, int n, law* in);
    law_polynomial(const law_polynomial& other);
    law_polynomial& operator=(const law_polynomial& other);
    ~law_polynomial();

    /// The coefficient of the term with that power (linear search); 0.0 when none has it.
    double coefficent(int power) const;
    int degree() const { return degree_; }
    int nterms() const { return nterms_; }
    /// The law it is a polynomial in (borrowed), or null.
    law* in() const { return in_; }
    /// "Polynomial in <in>" (or "Polynomial"), "Of degree <d>", then one
    /// "Term <power> = <coefficient>" line per stored term, through qem_printf.
    void print() const;

    /// Products, sums and differences of polynomials in equal laws (or where one has no
    /// `in`): equal powers are merged and terms that become exactly 0 are dropped.  The
    /// product's degree is the sum of the degrees; a sum's is its largest stored power.
    /// A product whose degree or a power of which would pass INT_MAX fails (degree -1).
    friend LAW_API law_polynomial operator*(const law_polynomial& p, const law_polynomial& q);
    friend LAW_API law_polynomial operator+(const law_polynomial& p, const law_polynomial& q);
    friend LAW_API law_polynomial operator-(const law_polynomial& p, const law_polynomial& q);
    friend LAW_API law_polynomial operator-(const law_polynomial& p);
    /// p to a non-negative integer power (power 0 gives 1); a negative power fails.
    friend LAW_API law_polynomial operator^(const law_polynomial& p, int power);

  private:
    static law_polynomial failed();
    void assign(const double* c, const int* p, int n, law* in, int degree);

    int degree_;
    int nterms_;
    double* coefficients_;
    int* powers_;
    law* in_;
};

/// The polynomial sum c[0] + c[1]*X + c[2]*X^2 + ... + c[degree]*X^degree as a law tree
/// of degree + 1 terms (zero coefficients are kept); degree 0 gives a constant_law.  One
/// use to the caller.  Raises LAW_DIM for a null array or a negative degree.
LAW_API law* make_polynomial_law(double* coefficients, int degree);

/// pow(base, exponent) + 0.5 truncated to int: the nearest integer for non-negative
/// results only.
LAW_API int pow_int(int base, int exponent);

/// The prime factors of n (n > 0) below the truncated square root of n, found by trial
/// division, with their multiplicities: two heap arrays in ascending order of prime (null
/// when none) that the caller frees with vorn_discard; returns their length.  The cofactor
/// left after trial division is not recorded, so a prime factor at or above the root is
/// missing (9 and 25 give none; 14 gives only 2).  n below 1 raises LAW_DIM.
LAW_API int factor_int(int n, int** primes, int** multiplicities);

/// The product of the primes of values[0] (as factor_int finds them) that no other value
/// rules out, each to the smallest multiplicity met.  A value rules a prime out only when
/// its own ascending list passes it without meeting it; a list that ends first leaves the
/// prime in.  1 when count is below 1 or values is null.
LAW_API int GCD_int(int* values, int count);
