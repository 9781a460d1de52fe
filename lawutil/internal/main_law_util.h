#pragma once

// Helpers shared by the sources of the main laws (main_law*.cpp).

#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/simplify_util.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_errors.h>
#include <lawutil/law_registry.h>
#include <lawutil/main_law.h>

namespace law_internal {

// A sub-law's text as a std::string ("NULL" for a missing part, which the parser reads
// back as a missing part).
inline std::string sub_text(const law* l, law_symbol_type type, QEM::optional<int&> count,
                            QEM::optional<law_data_node*&> list) {
    if (!l) return "NULL";
    char* s = l->string(type, count, list);
    std::string out(s);
    vorn_discard(s);
    return out;
}

// The second form of a class whose symbol numbers its parts ("#1[#2]", "mod[#2]#1"): #k
// is part k's text, in the order the template names them (so law data are numbered as the
// text reads).  A part standing outside brackets is parenthesised when it binds weaker
// than a function; a part that is not there prints as `missing` for #2 (a default the
// class supplies), else as NULL.
inline char* numbered_text(const char* sym, law* const* parts, int n, const char* missing,
                           law_symbol_type type, QEM::optional<int&> count,
                           QEM::optional<law_data_node*&> list) {
    const std::string t = sym;
    std::string out;
    for (size_t i = 0; i < t.size(); ++i) {
        if (t[i] != '#' || i + 1 >= t.size() || t[i + 1] < '1' || t[i + 1] > '9') {
            out += t[i];
            continue;
        }
        const int k = t[i + 1] - '1';
        const law* part = k < n ? parts[k] : nullptr;
        const bool bracketed = i > 0 && t[i - 1] == '[' && i + 2 < t.size() && t[i + 2] == ']';
        if (!part && k == 1 && missing)
            out += missing;
        else if (part && !bracketed && part->precedence() < 8)
            out.append(1, '(').append(sub_text(part, type, count, list)).append(1, ')');
        else
            out += sub_text(part, type, count, list);
        ++i;
    }
    return heap_string(out);
}

inline law* fire(QEM::optional<const char*&>& name, const char* rule, law_ref made) {
    if (name.has_value()) *name = rule;
    return made.release();
}

// A vector_law whose components are all present and scalar: the vector rules rewrite only
// these, component by component.
inline const vector_law* scalar_vector(const law* l) {
    if (!l || !l->isa(vector_law_id)) return nullptr;
    auto* v = static_cast<const vector_law*>(l);
    if (!v->fsubs() || v->fsize() < 1) return nullptr;
    for (int i = 0; i < v->fsize(); ++i)
        if (!v->fsubs()[i] || v->fsubs()[i]->return_dim() != 1) return nullptr;
    return v;
}

// The constant 0, or a vector_law of constant zeros: the zero of the products.
inline bool is_zero_part(const law* l) {
    if (is_constant_value(l, 0.0)) return true;
    if (!l || !l->isa(vector_law_id)) return false;
    auto* v = static_cast<const vector_law*>(l);
    if (!v->fsubs() || v->fsize() < 1) return false;
    for (int i = 0; i < v->fsize(); ++i)
        if (!is_constant_value(v->fsubs()[i], 0.0)) return false;
    return true;
}

// A vector_law over the laws made by `component(i)` for i < n.
template <class F>
law_ref vector_of(int n, F component) {
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        parts.push_back(component(i));
        raw.push_back(parts.back().get());
    }
    return make_law<vector_law>(raw.data(), n);
}

// Evaluates `part` into an answer of `n` values.  A part of another size (only in a law
// that its check reported as toxic) goes through a temporary, truncated or padded with 0,
// so that the answer is never overrun.
inline void evaluate_as(const law* part, const double* x, double* answer, int n) {
    if (!part) law_operand::raise_missing();
    const int m = part->return_dim();
    if (m == n) {
        part->evaluate(x, answer);
        return;
    }
    value_buffer values(m);
    part->evaluate(x, values.data());
    for (int i = 0; i < n; ++i) answer[i] = i < m ? values[i] : 0.0;
}

inline bool check_return_dim_of(const law* l, int dim) {
    return l && l->return_dim() == dim;
}

inline law* present_part(law* const* parts, int count, int i) {
    if (!parts || i < 0 || i >= count || !parts[i]) law_operand::raise_missing();
    return parts[i];
}

// The part check shared by several classes: `count` present scalar parts, `low` <= count
// <= `high`.
inline int scalar_parts(law** subs, int size, int low, int high) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= low && size <= high;
    for (int i = 0; ok && i < size; ++i) ok = check_return_dim_of(subs[i], 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

/// A law of the registered one-part class `type_id` (a function such as LN or FLOOR) over
/// `sub` (one use), built by the class's prototype: the arithmetic laws use the functions
/// without depending on their header, which depends on this family's.
inline law_ref unary_of(int type_id, law* sub) {
    const law* prototype = law_prototype_of(type_id);
    return law_ref::adopt(static_cast<const unary_law*>(prototype)->make_one(sub));
}

}  // namespace law_internal
