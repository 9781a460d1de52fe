#pragma once
// Helpers shared by the laws that read law data: the check of a single datum's type, the
// order datum of a derivative law, and a scope that owns a few data uses.

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_data.h>
#include <lawutil/law_errors.h>
#include <lawutil/main_law.h>

namespace law_internal {

/// 1 when `d` is a datum of `type_id`; otherwise a toxic law is reported and 0 returned.
inline int check_unary(const law_data* d, int type_id) {
    if (d && d->type() == type_id) return 1;
    toxic_law_error();
    return 0;
}

/// A new law datum holding `base` + step (the constant step without a base), simplified
/// so that repeated derivatives print as DCUR(E1,LAW2) with LAW2 holding 2, not 1+1.
inline law_data* order_datum(const law* base, double step) {
    law_ref k = make_law<constant_law>(step);
    law_ref sum =
        base ? make_law<plus_law>(const_cast<law*>(base), k.get()) : law_ref::retain(k.get());
    law_ref simple = law_ref::adopt(sum->simplify());
    return new law_law_data(simple.get());
}

/// Owns the uses of a few data for a scope (the laws built over them take their own).
struct data_uses {
    law_data* d[3] = {};
    ~data_uses() noexcept(false) {
        for (law_data* x : d)
            if (x) x->remove();
    }
};

}  // namespace law_internal
