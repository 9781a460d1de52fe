#pragma once
// The simplifier: rewrites a law tree bottom-up by named rules until nothing changes.
// General rules live in three process-wide lists (main, extra for level 2 and above, and
// the post pass that turns canonical forms back into readable ones); each law class adds
// its own rules through law::sub_simplify.

#include <lawutil/law_base.h>

class binary_law;

/// A new law equivalent to `in` (one use to the caller; `in` keeps its own), or null for
/// a null input.  `level` 1 uses the main rules; 2 or more alternates them with the extra
/// rules.  `debug` 0 is silent; non-zero prints the input, the result and each rule that
/// fires (through qem_printf); above 2 also every intermediate law.  Raises only what
/// evaluating a constant sub-law raises.
LAW_API law* law_simplify(const law* in, int level = 1, int debug = 0);

/// One rewrite rule: `fn` returns a new law (one use to the caller) or null when the rule
/// does not apply, and never changes its argument.  Constructing a rule links it at the
/// front of list `list` (0, 1 or 2), so a list is walked in reverse order of construction.
class LAW_API SRule {
  public:
    SRule(law* (*fn)(law*), int list, const char* name);
    SRule(const SRule&) = default;
    SRule& operator=(const SRule&) = default;
    SRule(SRule&&) = default;
    SRule& operator=(SRule&&) = default;

    law* (*fn)(law*);
    SRule* next;
    const char* name;

    /// The first rule of list `list` (walking order), or null.
    static SRule* head(int list);
};

/// The operands of a tree of one associative operator (the operator of `op`), left to
/// right: a new heap array of `n` borrowed pointers that the caller frees with vorn_discard.
LAW_API law** get_asso_list(const binary_law* op, int& n);

/// Folds `n` operands back into a left-leaning tree of the operator of `op` (one use to
/// the caller; a single operand is returned with a new use).
LAW_API law* make_list_law(law** list, int n, const binary_law* op);

/// m when `b` is structurally m times `a` (1 when they are equal), else 0.
LAW_API double law_multiple(const law* a, const law* b);

/// The factors of `l` with non-negative powers (their product), and the factors with
/// negative constant powers raised to the opposite powers (their product; the constant 1
/// when there are none).  One use to the caller each.
LAW_API law* numerator(const law* l);
LAW_API law* denominator(const law* l);

/// The process-wide debug level of the current simplification (trace output only).
LAW_API int simplify_debug_level();
