#pragma once
// Roots and extrema of laws: every real root of a law of one variable on an interval
// (Nroot), the solutions of f = g (Nsolve), the parameters of the largest and smallest
// values (Nmax, Nmin and the sampled Nmax_quick, Nmin_quick), a compass-search minimiser
// in n variables (NminND), and the two-variable Nroot2D and Nmin2D.
//
// Tolerances are the calling thread's (lawutil_context()); set_root_tol_default writes
// the defaults.  Every returned array is on the tracked heap and owned by the caller, who
// frees it with vorn_discard.  Arguments that make no sense raise: a null law or a law of
// the wrong dimensions LAW_DIM, a NaN or infinite bound LAW_BAD_BOUNDS.  Non-convergence
// is reported by the result, never by an error.  Errors raised by a law's evaluation pass
// to the caller with every temporary released.
//
// Each call adds the number of law evaluations it made (the law and its derivatives) to
// the calling thread's lawutil_thread_ctx::numeric_evaluations.  A long root hunt evaluates the law
// and its derivatives through one compiled program (option "compile_numerics"), with the
// same results, counts and errors as the tree.

#include <lawutil/law_base.h>
#include <lawutil/law_export.h>
#include <qem/geometry.h>

/// Writes the default root tolerances into the calling thread's context.
LAW_API void set_root_tol_default();

/// All roots of the scalar law f of one variable on [a, b] (either order), double roots
/// included, in ascending order: a heap array of `*n` doubles, null when there is none.
/// A law that is constant on [a, b] and zero yields the single root min(a, b).  On return
/// the thread's tolerances are the defaults, whatever they were before (also when the law
/// raises).
LAW_API double* Nroot(law* f, double a, double b, int* n);

/// The solutions of f = g on [a, b]: Nroot of f - g.
LAW_API double* Nsolve(law* f, law* g, double a, double b, int* n);

/// The parameter in [a, b] at which the scalar law f is largest (smallest): the better of
/// the ends, the critical points and the law's singularities.  Ties keep the earlier
/// candidate (a before b).
LAW_API double Nmax(law* f, double a, double b);
LAW_API double Nmin(law* f, double a, double b);

/// A quick local minimum (maximum): the best of `samples` evenly spaced values on [a, b]
/// refined by NminND with initial step `step`, stopping when the step falls to `tol`.
/// `samples` below 2 counts as 2.
LAW_API double Nmin_quick(law* f, double a, double b, int samples, double step, double tol);
LAW_API double Nmax_quick(law* f, double a, double b, int samples, double step, double tol);

/// Compass search for a local minimum of the scalar law f of start.size() variables from
/// `start` with per-coordinate steps `steps`.  A point at which `constraint` (may be null)
/// is not positive counts as the largest double.  Each iteration probes the point plus and
/// minus the step along each coordinate and moves to the best improving probe (also trying
/// the accumulated direction of the last successful moves); with no improvement the steps
/// shrink by half, after three improving iterations in a row (or the same winning probe
/// twice in a row) they grow by half.  Stops after root_int_d evaluations, when the step
/// norm falls below max(1e-14, root_x_tol), when the value (or the value of `last` when
/// given) falls below `target`, or when the search oscillates between shrinking and
/// growing.  Returns the best point; writes its value to `*value` and the final steps to
/// `*final_steps` (each when not null).
LAW_API QEM::nvector NminND(law* f, law* constraint, QEM::nvector& start, QEM::nvector& steps,
                            double* value, QEM::nvector* final_steps, double target,
                            law* last = nullptr);

/// Sorts (location, type) pairs by location and drops those outside [lo - resabs,
/// hi + resabs] and those within resabs of their predecessor.  When something is dropped
/// both arrays are replaced by new heap arrays (null when nothing is left).  Returns the
/// new count.
LAW_API int sort_singularities(double** where, int** type, int n, double lo, double hi);

/// The common roots of the scalar laws f and g of two variables in the box
/// [u0, u1] x [v0, v1]: a heap array of 2 * `*n` doubles (u, v pairs, ascending in u then
/// v), null when there is none.  Each cell of a `cells` x `cells` grid (at least 1) starts
/// a Newton iteration; converged points inside the box with |f| and |g| below root_f_tol
/// are kept once.  Roots closer than a cell's size to each other may merge.
LAW_API double* Nroot2D(law* f, law* g, double u0, double u1, double v0, double v1, int* n,
                        int cells = 16);

/// The point of the box [u0, u1] x [v0, v1] at which the scalar law f of two variables is
/// smallest: the best of a `samples` x `samples` grid (at least 2) refined by NminND
/// inside the box.  Writes u and v to `uv[0]`, `uv[1]` and returns the value there.
LAW_API double Nmin2D(law* f, double u0, double u1, double v0, double v1, double* uv,
                      int samples = 17);
