#include <lawutil/simplfy.h>

// The rewriting rules arrive with the simplifier proper; until then a simplified law is
// the law itself, shared.
law* law_simplify(const law* in, int, int) {
    if (!in) return nullptr;
    law::add(in);
    return const_cast<law*>(in);
}
