#pragma once
// Tree helpers shared by the general simplifier rules and the class rules of the
// arithmetic laws.  Internal to the library.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/main_law.h>

namespace law_internal {

/// True for a constant_law (the simplifier's notion of a constant).
bool is_constant(const law* l);
double constant_value(const law* l);
/// True for a constant within 0 tolerance of `value`.
bool is_constant_value(const law* l, double value);
/// True for a constant holding an integer.
bool is_integer_constant(const law* l);

/// The operands of a chain of the operator of `op` (same class), left to right; borrowed.
std::vector<law*> flatten(const binary_law* op);
/// The operands folded left into a tree of the operator of `op`; one operand is shared.
law_ref fold(const std::vector<law*>& parts, const binary_law* op);
law_ref fold_product(const std::vector<law*>& parts);
law_ref fold_sum(const std::vector<law*>& parts);

/// The operands without i and j (i < j), with `replacement` in the place of i.
std::vector<law*> replace_pair(const std::vector<law*>& parts, size_t i, size_t j,
                               law* replacement);
/// fold(replace_pair(parts, i, j, replacement), chain), where `parts` are the flattened
/// operands of `chain`: the same tree, but when the chain is left-deep over its first i
/// operands (as fold builds it) that part is the chain's own object, so only the nodes
/// above it are new, and the simplifier finds the rest already done.
law_ref replace_pair_in_chain(const binary_law* chain, const std::vector<law*>& parts, size_t i,
                              size_t j, law* replacement);

/// The base and constant power of a power with a constant exponent, else null.
law* power_base(law* f, double* power);
/// A factor as base and exponent: a power's own parts, anything else to the power 1.
void split_power(law* f, law_ref& base, law_ref& exponent);

/// A term as constant factor times the rest (null rest for a constant term).
struct scaled {
    double factor = 1.0;
    law_ref rest;
};
scaled split_scale(const law* l);

/// Structural equality of two products up to the order of their factors (null == null).
bool same_product(const law* a, const law* b);
/// The factors of a product (its chain flattened), or the law alone; borrowed.
std::vector<law*> factors_of(const law* l);
/// The same factors, up to their order (each law of `a` matched by an equal one of `b`).
bool same_factors(const std::vector<law*>& a, const std::vector<law*>& b);

/// A hash that laws equal under == share (class and shape hash); null has its own.
inline std::uint64_t law_key(const law* l) {
    return l ? l->shape_hash() * 0x100000001b3ULL + static_cast<std::uint64_t>(l->type()) : 0;
}

/// The first pair i < j of the items 0..n-1, in index order (smallest i, then smallest
/// j), for which `match(i, j)` holds; `key(i)` is a hash that matching items share.
/// Long lists are sorted by key, so that only items of one key are tried together: the
/// same pair as trying every pair, in about n log n instead of n^2 steps.
template <class Key, class Match>
std::optional<std::pair<size_t, size_t>> first_matching_pair(size_t n, Key key, Match match) {
    constexpr size_t few = 12;
    if (n <= few) {
        for (size_t i = 0; i < n; ++i)
            for (size_t j = i + 1; j < n; ++j)
                if (match(i, j)) return std::pair{i, j};
        return std::nullopt;
    }
    std::vector<std::pair<std::uint64_t, size_t>> order(n);
    for (size_t i = 0; i < n; ++i) order[i] = {key(i), i};
    std::sort(order.begin(), order.end());
    std::vector<size_t> rank(n);
    for (size_t p = 0; p < n; ++p) rank[order[p].second] = p;
    for (size_t i = 0; i < n; ++i)
        for (size_t p = rank[i] + 1; p < n && order[p].first == order[rank[i]].first; ++p)
            if (match(i, order[p].second)) return std::pair{i, order[p].second};
    return std::nullopt;
}

}  // namespace law_internal
