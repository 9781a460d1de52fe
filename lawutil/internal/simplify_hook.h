#pragma once
// How the law base reaches the simplifier without depending on it: the simplifier, which
// depends on the law classes, installs itself when the library loads.  Internal.

#include <lawutil/law_base.h>

namespace law_internal {

/// law_simplify's signature: a new law (one use to the caller) equivalent to `in`.
using simplifier_fn = law* (*)(const law* in, int level, int debug);

/// Installs the simplifier that law::derivative and law::simplify call.
void install_simplifier(simplifier_fn simplify);

/// The installed simplifier's result for `in` at `level`; before one is installed, `in`
/// itself with one more use (a law is its own simplest form).
law* run_simplifier(const law* in, int level);

}  // namespace law_internal
