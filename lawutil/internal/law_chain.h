#pragma once
// Long chains: the parser builds a sum (or any chain of one precedence) of n terms as a
// left-deep tree n nodes deep.  Walks that follow such a tree by recursion would exhaust
// the stack, so printing and evaluation follow the left spine by a loop, and the
// operations that still recurse count their nesting and give up instead of overflowing:
// a derivative raises LAW_DERIV, simplification leaves the law as it is.  Never part of a public
// header.

namespace law_internal {

/// Chains at least this long are evaluated by the loop; shorter ones by recursion, which
/// costs nothing extra.
inline constexpr int chain_threshold = 256;

/// Nesting allowed to the recursive walks (derivatives and simplification together),
/// well inside an ordinary thread's stack.
inline constexpr int max_walk_depth = 10000;
/// Stack the recursive walks leave unused, in bytes: they give up before reaching it.
inline constexpr long stack_reserve = 1L << 20;

/// One level of a recursive walk on the calling thread, given back on every way out.
class walk_level {
  public:
    walk_level();
    ~walk_level();
    walk_level(const walk_level&) = delete;
    walk_level& operator=(const walk_level&) = delete;
    /// The walk is nested deeper than max_walk_depth, or the stack is nearly used up: the
    /// caller gives up.
    bool too_deep() const;
};

}  // namespace law_internal
