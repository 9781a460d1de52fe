#pragma once
// Frames for sweeping over geometry held as law data, and over paths made of pieces:
//   MTRAIL(C)             the rotation-minimising vector along a curve datum
//   CURVEPERP(C, V[, A])  V made perpendicular to a curve's tangent, turned by A about it
//   SURFPERP(S, V[, UV])  V made tangent to a surface (perpendicular to its normal)
//   ROTATE([F,] T)        vectors turned by a transform's linear part
//   LENGTH_PARAM(C, B, S) a curve reparametrised by arc length
//   MULTI_CUR(P1, ..., Pn)          paths joined end to end in one parameter
//   MULTI_CURVEPERP(M, V)           CURVEPERP over a MULTI_CUR
// The data laws' `make_one` (what the parser calls) runs the class's check and builds
// nothing (null) when it fails, after a toxic-law report; the checks test the count, then
// each datum's type, then (unless a tolerant restore is under way) the held laws' shapes.
//
// "Unit" below means divided by its length, the zero vector staying zero (as NORM does):
// where a vector to be normalised vanishes the value is the zero vector, never a NaN.
//
// Ownership: the constructors take their own uses of the data and parts.

#include <lawutil/law_unary_data.h>

/// MTRAIL(C): the rotation-minimising vector along the curve datum C (type 3) over its
/// parameter range [a, b]: MINROT(CUR(C), V0) with the option's sample count, where V0 is
/// the unit principal normal of C at a, or, where C is straight at a, the unit vector
/// across C'(a) nearest the coordinate axis least aligned with C'(a).  So on a helix it
/// starts as the principal normal and turns against the torsion (angle -tau s at arc
/// length s).  One input, three values; its domain is [a, b].  The derivative is that of
/// the MINROT it holds.  Raises LAW_MR when C' vanishes at a.  check: one curve datum.
class LAW_API minrot_rail_law final : public unary_data_law {
    LAW_IDENTITY(minrot_rail_law, unary_data_law)
    LAW_KEYWORD(minrot_rail_law)
  public:
    explicit minrot_rail_law(law_data* datum);
    ~minrot_rail_law() noexcept(false) override;
    law* make_one(law_data* datum) const override;
    static int check(law_data* datum);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;
    /// The MINROT that carries the frame (borrowed), null for the prototype.
    const law* frame() const { return frame_; }

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }

  private:
    /// Takes over the caller's use of `frame`.
    minrot_rail_law(law* frame, law_data* datum);
    law* frame_ = nullptr;
};

/// The shared body of the frame laws defined by an equivalent law tree: the value is the
/// tree's, and so is the derivative (symbolic).  The tree is built once, when the law is.
class LAW_API formula_data_law : public multiple_data_law {
  public:
    formula_data_law(law_data** data, int size, law* formula);
    formula_data_law(const formula_data_law& other);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;
    /// The tree that defines the value (borrowed), null when a datum is missing.
    const law* formula() const { return formula_; }

  protected:
    ~formula_data_law() noexcept(false) override;
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override { return 3; }

    law* formula_;
};

/// CURVEPERP(C, V) and CURVEPERP(C, V, A): at t, with T the unit tangent C'(t)/|C'(t)| of
/// the curve datum C (type 3),
///     w = unit(V(t) - T (T . V(t)))          (V with its part along T removed)
///     out = w cos A(t) + (T x w) sin A(t)      (w turned by A about T; A = 0 without it)
/// so out is a unit vector perpendicular to the tangent.  V is a law datum of 3 values, A
/// of 1.  One input.  check: 2 or 3 data, (curve, law of 3 values[, law of 1 value]).
class LAW_API curveperp_law final : public formula_data_law {
    LAW_IDENTITY(curveperp_law, multiple_data_law)
    LAW_KEYWORD(curveperp_law)
  public:
    curveperp_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
};

/// SURFPERP(S, V) and SURFPERP(S, V, UV): with N the unit normal Su x Sv / |Su x Sv| of the
/// surface datum S (type 5),
///     out = unit(V - N (N . V))
/// V made tangent to the surface.  With two data the inputs are the surface parameters
/// (u, v) and V is read there; with three, S is read at the parameters UV(x) (a law of 2
/// values, say a curve in the surface's parameter space) and V at x, so the law takes
/// what V and UV take.  check: 2 or 3 data, (surface, law of 3 values[, law of 2 values]).
class LAW_API surfperp_law final : public formula_data_law {
    LAW_IDENTITY(surfperp_law, multiple_data_law)
    LAW_KEYWORD(surfperp_law)
  public:
    surfperp_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
};

/// ROTATE(T): the vector of its three inputs turned by the linear part of the transform T
/// (type 7; the translation does not apply to directions).  ROTATE(F, T): F's values,
/// padded with zeros to three ((a) -> (a, 0, 0), (a, b) -> (a, b, 0)), turned the same way;
/// it takes what F takes.  Three values.  The derivative of ROTATE(F, T) is ROTATE(F', T);
/// that of ROTATE(T) in input i is the turned i-th axis, a constant.
/// check: ROTATE(transform) or ROTATE(law of fewer than 4 values, transform).
class LAW_API rotate_law final : public multiple_data_law {
    LAW_IDENTITY(rotate_law, multiple_data_law)
    LAW_KEYWORD(rotate_law)
  public:
    rotate_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
    void evaluate(const double* x, double* answer) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override { return 3; }

  private:
    const law* inner_ = nullptr;
    const base_transform_law_data* trans_ = nullptr;
};

/// LENGTH_PARAM(C, B, S): the point of the curve datum C (type 3) reached after the arc
/// length S(x) from the parameter B(x): C(t) with length(B(x), t) = S(x), t from the
/// datum's length_param.  With B constant and S = X the result runs at unit speed,
/// |d/dx| = 1.  One input, three values; no symbolic derivative (derivative raises
/// LAW_DERIV): differentiate CUR of the curve and divide by its speed instead.
/// check: exactly 3 data, (curve, law, law), each law of 1 value and at most 1 input.
class LAW_API length_param_law final : public multiple_data_law {
    LAW_IDENTITY(length_param_law, multiple_data_law)
    LAW_KEYWORD(length_param_law)
  public:
    length_param_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
    void evaluate(const double* x, double* answer) const override;

  protected:
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }

  private:
    const path_law_data* curve_ = nullptr;
    const law* base_ = nullptr;
    const law* length_ = nullptr;
};

/// MULTI_CUR(P1, ..., Pn): paths joined in one parameter.  Each Pi has a finite domain
/// [ai, bi] (restrict it with DOMAIN) and each starts where the one before ends (ai =
/// b(i-1) to the base library's resolution); the value at x is Pi(x) for the piece whose
/// domain holds x, the later piece at a joint, the first below a1 and the last beyond bn.
/// Its domain is [a1, bn].  The derivative is MULTI_CUR(PDOMAIN(P1', a1, b1), ...).
/// Raises LAW_MULTI_CURVE_DOM (nothing built) when a domain is not finite or the pieces
/// do not join; the pieces should return the same number of values (else a toxic law).
class LAW_API multiple_curve_law final : public multiple_law {
    LAW_IDENTITY(multiple_curve_law, multiple_law)
    LAW_KEYWORD(multiple_curve_law)
  public:
    multiple_curve_law(law** subs, int size);
    ~multiple_curve_law() noexcept(false) override;
    law* make_one(law** subs, int size) const override;
    static int check(law** subs, int size);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;
    /// The piece used at x.
    int segment(double x) const;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }

  private:
    double* breaks_ = nullptr;  ///< a1, b1 = a2, ..., bn: law_count_ + 1 entries
};

/// MULTI_CURVEPERP(M, V): as CURVEPERP(C, V) with the path M, a MULTI_CUR:
///     out = unit(V - T (T . V)),   T = unit(M')
/// one input, three values; the derivative is that of the formula.
/// check: two parts, a MULTI_CUR and a law of 3 values.
class LAW_API multiple_curveperp_law final : public multiple_law {
    LAW_IDENTITY(multiple_curveperp_law, multiple_law)
    LAW_KEYWORD(multiple_curveperp_law)
  public:
    multiple_curveperp_law(law** subs, int size);
    ~multiple_curveperp_law() noexcept(false) override;
    law* make_one(law** subs, int size) const override;
    static int check(law** subs, int size);
    void evaluate(const double* x, double* answer) const override;
    /// The path (borrowed), null when the first part is not a MULTI_CUR.
    const multiple_curve_law* get_mc_law() const;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }

  private:
    law* formula_ = nullptr;
};
