#include <lawutil/internal/law_share.h>

#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <lawutil/internal/law_chain.h>
#include <lawutil/main_law.h>

namespace law_internal {

namespace {

// Classes whose objects are fully told by their class and parts (or, for a leaf, its
// value), so that two of them with the same parts can be one object.  RAND is left out:
// two draws are not one.
bool shareable(const law* l) {
    const int id = l->type();
    if (id == constant_law_id || id == pi_law_id || id == e_law_id || id == identity_law_id)
        return true;
    if (id == vector_law_id || id == dot_law_id || id == cross_law_id || id == term_law_id)
        return l->isa(multiple_law_id);
    if (id == rand_law_id) return false;
    const law_kind_row* row = law_kind_find(id);
    if (!row) return false;  // a class from outside the library
    if (row->kind == law_kind::UNARY) return l->isa(unary_law_id);
    if (row->kind == law_kind::BINARY) return l->isa(binary_law_id);
    return false;
}

std::vector<law*> parts_of(const law* l) {
    if (l->isa(unary_law_id)) return {static_cast<const unary_law*>(l)->fsub()};
    if (l->isa(binary_law_id)) {
        auto* b = static_cast<const binary_law*>(l);
        return {b->fleft(), b->fright()};
    }
    if (l->isa(multiple_law_id)) {
        auto* m = static_cast<const multiple_law*>(l);
        if (!m->fsubs()) return std::vector<law*>(static_cast<size_t>(m->fsize()), nullptr);
        return std::vector<law*>(m->fsubs(), m->fsubs() + m->fsize());
    }
    return {};
}

// The same class over new parts, keeping what the simplifier knew of the old node.
law_ref rebuilt(const law* l, std::vector<law*>& parts) {
    law_ref made;
    if (l->isa(unary_law_id))
        made = law_ref::adopt(static_cast<const unary_law*>(l)->make_one(parts[0]));
    else if (l->isa(binary_law_id))
        made = law_ref::adopt(static_cast<const binary_law*>(l)->make_one(parts[0], parts[1]));
    else
        made = law_ref::adopt(static_cast<const multiple_law*>(l)->make_one(
            parts.data(), static_cast<int>(parts.size())));
    if (law* s = l->simplified_form(0)) {
        made->set_simplify(s == l ? made.get() : s, 0);
        law::remove(s);
    }
    for (int list = 1; list < 3; ++list)
        if (l->pass_keeps(list)) made->set_pass_keeps(list);
    return made;
}

class sharer {
  public:
    law_ref operator()(law* l) {
        if (!l || !shareable(l)) return law_ref::retain(l);
        auto seen = done_.find(l);
        if (seen != done_.end()) return law_ref::retain(seen->second.get());
        law_ref node = law_ref::retain(l);
        if (!l->parts_shared()) {
            const walk_level level;
            if (level.too_deep()) return law_ref::retain(l);  // left as it is, still correct
            std::vector<law*> parts = parts_of(l);
            std::vector<law_ref> shared;
            shared.reserve(parts.size());
            bool changed = false;
            for (law*& part : parts) {
                shared.push_back((*this)(part));
                changed = changed || shared.back().get() != part;
                part = shared.back().get();
            }
            if (changed) node = rebuilt(l, parts);
        }
        law* out = first_of_its_kind(node.get());
        out->set_parts_shared();
        done_.emplace(l, law_ref::retain(out));
        return law_ref::retain(out);
    }

  private:
    // Exactly the same law, not just an equal one: == takes 0 and -0 for one constant and
    // X and T for one variable, which print (and divide) differently.  Pairs found
    // identical are remembered: two copies of one structure made apart share nothing,
    // and walking them as trees costs their printed size, not their distinct nodes.
    bool identical(const law* a, const law* b) {
        if (a == b) return true;
        if (!a || !b || a->type() != b->type() || a->shape_hash() != b->shape_hash()) return false;
        if (a->isa(constant_law_id)) {
            const double x = static_cast<const constant_law*>(a)->value();
            const double y = static_cast<const constant_law*>(b)->value();
            return std::memcmp(&x, &y, sizeof x) == 0;
        }
        if (a->isa(identity_law_id)) {
            auto* x = static_cast<const identity_law*>(a);
            auto* y = static_cast<const identity_law*>(b);
            return x->index() == y->index() && x->letter() == y->letter();
        }
        if (!shareable(a)) return false;
        if (same_.count({a, b})) return true;
        const walk_level level;
        if (level.too_deep()) return false;  // not shared: still correct
        const std::vector<law*> pa = parts_of(a), pb = parts_of(b);
        if (pa.size() != pb.size()) return false;
        for (size_t i = 0; i < pa.size(); ++i)
            if (!identical(pa[i], pb[i])) return false;
        same_.insert({a, b});
        return true;
    }

    law* first_of_its_kind(law* node) {
        auto [first, last] = kinds_.equal_range(node->shape_hash());
        for (auto it = first; it != last; ++it)
            if (identical(it->second, node)) return it->second;
        kinds_.emplace(node->shape_hash(), node);
        return node;
    }

    // Keyed by laws of the tree walked, which it keeps alive; the values hold a use.
    std::unordered_map<const law*, law_ref> done_;
    // One law of each structure met, by shape hash; each is held through done_.
    std::unordered_multimap<std::uint64_t, law*> kinds_;
    struct pair_hash {
        size_t operator()(const std::pair<const law*, const law*>& p) const {
            return std::hash<const law*>()(p.first) * 31 + std::hash<const law*>()(p.second);
        }
    };
    std::unordered_set<std::pair<const law*, const law*>, pair_hash> same_;
};

}  // namespace

law_ref share_equal_parts(law* l) {
    return sharer()(l);
}

}  // namespace law_internal
