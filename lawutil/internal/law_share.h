#pragma once
// Equal sub-laws made one object.  Internal to the library.

#include <lawutil/internal/law_ref.h>

namespace law_internal {

/// `l` with its equal sub-laws made one object each: the first met of each structure
/// stands for the others, so the tree is stored, printed from, differentiated and
/// simplified once per distinct sub-law.  Only classes whose state is their parts
/// (arithmetic, functions, constants, variables, vectors) are shared, and the walk does
/// not enter any other law.  A law marked parts_shared is not entered again: it is
/// shared as a whole.  The law prints and evaluates exactly as before.  One use to the
/// caller.
///
/// Sharing stays within the one law: a process-wide table would let a law's cached
/// derivative hold a law that holds the law again (the derivatives of SIN(X) come back
/// to SIN(X) after four steps), and such a ring of uses is never released.
law_ref share_equal_parts(law* l);

}  // namespace law_internal
