#pragma once
// Accurate definite integrals of laws of one variable, beside Romberg's Nintegrate: the
// double-exponential (tanh-sinh) rule, which takes end-point singularities in its stride,
// and adaptive Gauss-Kronrod (7-15), which is hard to beat on smooth integrands.  Both take
// infinite ends (-inf, +inf) and return an error estimate and their evaluation count.

#include <lawutil/law_base.h>
#include <lawutil/law_export.h>

/// What an integration found.
struct law_integral_result {
    double value = 0;      ///< the integral
    double error = 0;      ///< the estimated absolute error
    long evaluations = 0;  ///< evaluations of the law
    bool converged = false;
};

/// The integral of the scalar law f of one variable from a to b (either order; either end
/// may be infinite) by the double-exponential rule: tanh-sinh on a finite interval,
/// exp-sinh on a half-line, sinh-sinh on the whole line, halving the step until two
/// estimates agree to `tol` relative to the integral of |f|.  The law is never evaluated
/// at a finite end, so it may be singular there.  On a finite interval one 15-point
/// Kronrod rule is tried first: an integrand it settles to 1e-6 is smooth and is finished
/// by adaptive Gauss-Kronrod (at most 64 intervals), which costs fewer evaluations there;
/// if that does not converge the double-exponential rule runs after all, and when that
/// does not converge either (a kink inside) adaptive Gauss-Kronrod again.  A law that
/// raises within 1e-12 (relative) of a finite end ends the rule's reach there: what lies
/// beyond is left out (1/SQRT(X) raises below 1e-12 and so is not integrable to 0 this
/// way; X^(-0.5) is).  The evaluations are also added to the thread's
/// numeric_evaluations.  Raises LAW_DIM for a law that is not scalar in one variable,
/// LAW_BAD_BOUNDS for a NaN end; errors of the law's evaluation pass to the caller.
LAW_API law_integral_result law_integrate_de(law* f, double a, double b, double tol = 1e-12);

/// The same by adaptive Gauss-Kronrod: the interval with the largest error estimate
/// (|K15 - G7|) is halved until the estimates add up to at most `tol` relative to the
/// integral of |f|, or `max_intervals` intervals are in use.  Infinite ends are mapped
/// onto a finite interval (x = t/(1 - t) and x = t/(1 - t^2)).  An interval narrower than
/// 1e-12 of the whole on which the law raises is left out.
LAW_API law_integral_result law_integrate_gk(law* f, double a, double b, double tol = 1e-12,
                                             int max_intervals = 1000);
