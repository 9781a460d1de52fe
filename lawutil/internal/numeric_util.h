#pragma once
// Internal helpers of the numerics: a law evaluation that counts, and the argument checks
// every numeric entry point makes.  Never part of a public header.

#include <cmath>

#include <lawutil/law_base.h>

namespace law_internal {

/// f at the point whose every coordinate is x, counted in `*evaluations`.
struct counted_law {
    const law* l;
    long* evaluations;
    double operator()(double x) const {
        ++*evaluations;
        return l->eval(x);
    }
};

/// Raises LAW_DIM unless f is a scalar law of at most `max_vars` variables.
inline void require_scalar_law(const law* f, int max_vars) {
    if (!f || f->return_dim() != 1 || f->take_dim() > max_vars) sys_error(LAW_DIM);
}

/// Raises LAW_BAD_BOUNDS unless both bounds are finite numbers.
inline void require_finite(double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
}

}  // namespace law_internal
