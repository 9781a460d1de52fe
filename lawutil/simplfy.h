#pragma once
// The simplifier: rewrites a law tree to an equivalent, smaller one.

#include <lawutil/law_base.h>

/// A new law equivalent to `in` (one use to the caller; `in` keeps its own), or null for
/// a null input.  `level` 1 uses the main rules; `debug` non-zero prints a trace.
LAW_API law* law_simplify(const law* in, int level = 1, int debug = 0);
