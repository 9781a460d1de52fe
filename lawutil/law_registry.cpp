#include <lawutil/law_registry.h>

#include <lawutil/law_data.h>

namespace {
// Constant-initialised, so registrations from any translation unit's static
// initialisers find them ready.
law_list* law_head = nullptr;
law_data_list* law_data_head = nullptr;
}  // namespace

law_list::law_list(law* prototype) : prototype_(prototype), next_(law_head) {
    prototype_->set_use_count(0);
    law_head = this;
}

const law_list* law_list::head() {
    return law_head;
}

law_data_list::law_data_list(law_data* prototype) : prototype_(prototype), next_(law_data_head) {
    prototype_->set_use_count(0);
    law_data_head = this;
}

const law_data_list* law_data_list::head() {
    return law_data_head;
}

const law* law_prototype_of(int type_id) {
    // The built-in ids are small and fixed: one table, filled on first use (the registry
    // is complete once static initialisation is over).  Other ids walk the list.
    struct by_id {
        const law* prototypes[128] = {};
        by_id() {
            for (const law_list* n = law_list::head(); n; n = n->next()) {
                const int id = n->prototype()->type();
                if (id >= 0 && id < 128 && !prototypes[id]) prototypes[id] = n->prototype();
            }
        }
    };
    static const by_id table;
    if (type_id >= 0 && type_id < 128 && table.prototypes[type_id])
        return table.prototypes[type_id];
    for (const law_list* n = law_list::head(); n; n = n->next())
        if (n->prototype()->type() == type_id) return n->prototype();
    return nullptr;
}
