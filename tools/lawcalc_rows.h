#pragma once
// lawcalc's tables and plots: a law evaluated at many points along its first variable,
// through its compiled form when there are enough points for compiling to pay.

#include <functional>
#include <vector>

#include <lawutil/lawutil.h>

namespace lawcalc {

/// Called once per point, in order: `values` holds the law's max(1, return_dim()) values
/// at the point, or is null and `error` says what the law raised there.
using row_fn = std::function<void(size_t i, const double* values, const char* error)>;

/// Evaluates `l` at the points (xs[i], 0, 0, ...) padded to the law's inputs, the values
/// and the errors those of law::evaluate bit for bit, whether compiled or not.  Compiles
/// when there are at least 128 points, the option "compile_numerics" allows it and the
/// program does more than hand the law to the tree.
void evaluate_rows(const law* l, const std::vector<double>& xs, const row_fn& row);

}  // namespace lawcalc
