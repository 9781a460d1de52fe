#pragma once
// The per-thread law context: one record per kernel thread, holding the root-finding
// tolerances and the L'Hospital depth counter, so that threads never share them.

#include <lawutil/law_export.h>

struct LAW_API lawutil_thread_ctx {
    // Root tolerances (set_root_tol_default writes these defaults).
    double root_x_tol = 1e-14;
    double root_f_tol = 1e-7;
    double root_step_tol = 1e-7;
    double root_hole_fraction = 0.05;
    double root_ratio_b = 0.1;
    double root_extremum_ratio = 0.1;
    int root_newton_iters = 10;
    int root_bisect_iters = 40;
    int root_int_c = 7;
    int root_int_d = 10000;
    double root_coarse_tol = 1e-4;

    /// Law evaluations made by the numerics (roots, extrema, integrals, finite
    /// differences) in this thread since it started; read it before and after a call to
    /// learn what the call cost.
    long numeric_evaluations = 0;

    /// Nesting of L'Hospital's rule inside one 0/0 division.
    int lhospital_depth = 0;
};

/// The calling thread's record (never null).  Records live in chunks of 64, indexed by
/// the kernel's thread index; a thread with a higher index grows the store by whole
/// chunks under a lock, and lookups of existing records take no lock.
LAW_API lawutil_thread_ctx* lawutil_context();

namespace law_internal {
/// Create and destroy the store; called by initialize_law and terminate_law.
void create_thread_contexts();
void destroy_thread_contexts();
}  // namespace law_internal
