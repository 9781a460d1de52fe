#pragma once
// The quick reader of the law language: one pass over the text for the formulas people
// write most (numbers, variables, binary operators, parentheses, functions, argument
// lists and named constants), giving up at the first thing it is not sure of so that the
// general parser reads that text from the start.

#include <lawutil/law_base.h>

namespace law_internal {

enum class quick_outcome {
    built,    ///< *result holds the law, one use to the caller
    refused,  ///< a law refused its parts: its error's text is posted, *result is null
    gave_up,  ///< nothing was built or posted: the general parser must read the text
};

/// Reads `text` as the general parser would, when the text uses only the common forms.
/// The laws are built only once the whole text has been read, so giving up has no side
/// effect.  On `refused`, *error_offset (when given) is the offset in `text` of the
/// operator or function that refused its parts.  Raises only what building a law raises
/// besides a coded error (an exhausted heap), with every partial law released.
quick_outcome quick_read(const char* text, law** result, int* error_offset);

}  // namespace law_internal
