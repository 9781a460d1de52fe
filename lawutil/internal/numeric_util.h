#pragma once
// Internal helpers of the numerics: a law evaluation that counts, and the argument checks
// every numeric entry point makes.  Never part of a public header.

#include <cmath>

#include <lawutil/internal/fast_eval.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/law_base.h>
#include <lawutil/main_law.h>

namespace law_internal {

/// f at the point whose every coordinate is x, every call counted: for methods that never
/// ask for a point twice, or whose evaluation counts must say what they asked.
struct plain_counted_law {
    const law* f;
    long count = 0;
    double operator()(double x) {
        ++count;
        return f->eval(x);
    }
};

/// f at the point whose every coordinate is x, counted in `*evaluations`.  The last few
/// values are remembered: the searches ask for the same point again (a root solve and an
/// extremum solve start at the same place, neighbouring gaps share an end), and a law's
/// value does not change.  With a group that holds f, the group computes the values.
struct counted_law {
    counted_law(const law* f, long* count, joint_evaluator* g = nullptr)
        : l(f), evaluations(count), group(g), index(g ? g->index_of(f) : -1) {}
    const law* l;
    long* evaluations;
    joint_evaluator* group;
    int index;

    double operator()(double x) const {
        for (int i = 0; i < memo_size; ++i)
            if (memo_x_[i] == x && memo_set_[i]) return memo_v_[i];
        ++*evaluations;
        const double v = index >= 0 ? group->value(index, x) : l->eval(x);
        next_ = (next_ + 1) % memo_size;
        memo_x_[next_] = x;
        memo_v_[next_] = v;
        memo_set_[next_] = true;
        return v;
    }

  private:
    static constexpr int memo_size = 4;
    mutable double memo_x_[memo_size] = {};
    mutable double memo_v_[memo_size] = {};
    mutable bool memo_set_[memo_size] = {};
    mutable int next_ = 0;
};

/// Raises LAW_DIM unless f is a scalar law of at most `max_vars` variables.
inline void require_scalar_law(const law* f, int max_vars) {
    if (!f || f->return_dim() != 1 || f->take_dim() > max_vars) sys_error(LAW_DIM);
}

/// Raises LAW_BAD_BOUNDS unless both bounds are finite numbers.
inline void require_finite(double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
}

/// The law X >= lo AND X <= hi over variable `index` (printed as `letter`): the box
/// constraint of the compass search.
inline law_ref between(int index, char letter, double lo, double hi) {
    const law_ref x = make_law<identity_law>(index, letter);
    const law_ref klo = make_law<constant_law>(lo), khi = make_law<constant_law>(hi);
    const law_ref ge = make_law<greater_than_or_equal_law>(x.get(), klo.get());
    const law_ref le = make_law<less_than_or_equal_law>(x.get(), khi.get());
    return make_law<and_law>(ge.get(), le.get());
}

}  // namespace law_internal
