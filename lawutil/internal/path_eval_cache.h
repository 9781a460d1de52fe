#pragma once
// A small per-thread memory of recent path evaluations.  A sweep reads one path many
// times at the same parameter (the frame, its derivative and the position law all ask
// for P(t), P'(t), P''(t)), and a kernel curve is costly to evaluate, so the laws that
// read path data go through here.  Each thread keeps its own few entries: no lock and no
// allocation on the evaluation path.  Internal to the library.

#include <lawutil/law_data.h>

namespace law_internal {

/// p->eval(t, deriv, side), from this thread's memory when the same datum was asked the
/// same question since the last datum was destroyed.  Whatever eval raises passes through.
QEM::vector cached_path_eval(const path_law_data* p, double t, int deriv, int side);

/// Invalidates every thread's memory: a new datum may reuse a destroyed one's address.
/// Called by law_data's destructor.
void forget_path_evaluations();

}  // namespace law_internal
