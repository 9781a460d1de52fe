#pragma once
// Definite integrals of laws by Romberg extrapolation of the trapezoid rule, derivatives
// of any order by repeated fourth-order finite-difference stencils, and integrate_law, a
// law whose value is an integral of another.
//
// A null law, a variable index outside the law, a NaN or infinite bound or a negative
// order raise (LAW_DIM, LAW_BAD_BOUNDS, LAW_DERIV); errors raised by the law's evaluation
// pass to the caller with every temporary released.  Each call adds its law evaluations
// to the calling thread's lawutil_thread_ctx::numeric_evaluations.  Long Romberg rows go
// through the law's compiled form (option "compile_numerics"), with the same sums,
// counts and errors as the tree.

#include <lawutil/law_export.h>
#include <lawutil/main_law.h>

/// Writes the integral of the scalar law f of one variable from a to b to `*answer`.
/// Romberg rows are added while the last diagonal entry changes by more than `tol` and
/// fewer than `max_level` levels have run, and at least until `min_level` levels have
/// run.  Returns the number of levels used, or 0 when it reached (or passed) `max_level`
/// (then `*answer` holds the best estimate); a max_level below 3 therefore always reports
/// 0 after one refinement.  a == b writes 0.
LAW_API int Nintegrate(law* f, double a, double b, double* answer, double tol = 1e-10,
                       int min_level = 3, int max_level = 22);

/// The same over variable `which` of a law of several variables, the others fixed at the
/// values in `x`; `x[which]` is left at the last sample.
LAW_API int Nintegrate_wrt(law* f, double a, double b, int which, double* x, double* answer,
                           double tol = 1e-10, int min_level = 3, int max_level = 22);

/// The same over the nsplit + 1 pieces cut by the ascending interior points `splits`,
/// each piece nudged 1e-14 inward from its ends so that no sample falls on a split point.
/// `*answer` is the sum; returns the largest return value of the pieces.
LAW_API int Nintegrate_wrt_and_split(law* f, double a, double b, int which, double* x,
                                     double* answer, int nsplit, double* splits, double tol = 1e-10,
                                     int min_level = 3, int max_level = 22);

/// The `order`-th partial derivative of every output of f with respect to variable
/// `which` at x, by centred samples with step 1e-4 (one double per output into `answer`).
/// Order 0 gives f(x).
LAW_API void Ndifferentiate(law* f, const double* x, int which, double* answer, int order);

/// The same with one-sided samples: `side` 1 takes them below x, any other value above.
/// Samples that would leave the law's domain on that side move to the other side.
LAW_API void Ndifferentiate_sided(law* f, const double* x, int which, int side, double* answer,
                                  int order);

/// The highest order Ndifferentiate_estimate takes: beyond it no step leaves a digit.
inline constexpr int ndifferentiate_max_order = 20;

/// The `order`-th derivative as Ndifferentiate, with a step chosen for the order
/// (from order 4, eps^(1/(order + 4)) times max(1, |x[which]|)) instead of the fixed
/// 1e-4, which at order 4 and above is rounding noise.  Returns an estimate of the
/// absolute error (the largest over the outputs of twice the change from a second run at
/// 1.5 times the step); infinite when a value overflowed.  Orders above ndifferentiate_max_order
/// raise LAW_DERIV.
LAW_API double Ndifferentiate_estimate(law* f, const double* x, int which, double* answer,
                                       int order);

/// The integral of the scalar law `integrand` over its variable `which`, from the value
/// of the law `lower` to the value of the law `upper` (both read at the same point, the
/// other variables of the integrand fixed there), by Nintegrate_wrt with the given
/// tolerance and levels.  Its derivative (for a one-variable integrand) is
/// integrand(upper) upper' - integrand(lower) lower'.  Prints as
/// INTEGRATE(integrand, lower, upper), which is not read back.
class LAW_API integrate_law final : public multiple_law {
    LAW_IDENTITY(integrate_law, multiple_law)
  public:
    integrate_law(law* integrand, law* lower, law* upper, int which = 0, double tol = 1e-10,
                  int min_level = 3, int max_level = 22);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override { return 1; }

  private:
    int which_;
    double tol_;
    int min_level_, max_level_;
};

/// The integral of the scalar law f of one variable from `start` to X: a new
/// integrate_law (one use to the caller) whose derivative is f.
LAW_API law* law_integrate(law* f, double start = 0.0, double tol = 1e-10, int min_level = 3,
                           int max_level = 22);
