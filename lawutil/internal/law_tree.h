#pragma once
// Writing formulas as law trees in C++: t::node<cross_law>(a, b) takes law* and law_ref
// operands alike and hands the new node over as a counted handle, so an error raised half
// way through a tree releases what was built.  Used by laws whose value or derivative is
// defined by an equivalent tree of simpler laws.  Internal to the library.

#include <initializer_list>

#include <lawutil/internal/law_ref.h>
#include <lawutil/main_law.h>

namespace law_tree {

inline law* raw(law* l) {
    return l;
}
inline law* raw(const law_ref& l) {
    return l.get();
}

template <class T, class... Parts>
law_ref node(const Parts&... parts) {
    return make_law<T>(raw(parts)...);
}

/// A multiple law over its parts: many<dot_law>({a, b}).
template <class T>
law_ref many(std::initializer_list<law*> parts) {
    law* p[8];
    int n = 0;
    for (law* l : parts) p[n++] = l;
    return make_law<T>(p, n);
}

inline law_ref K(double v) {
    return make_law<constant_law>(v);
}

inline law_ref vec3(const law_ref& a, const law_ref& b, const law_ref& c) {
    return many<vector_law>({a.get(), b.get(), c.get()});
}

inline law_ref vec3(double a, double b, double c) {
    return vec3(K(a), K(b), K(c));
}

/// Component k (1-based) of a vector law.
inline law_ref term(const law_ref& v, int k) {
    return law_ref::adopt(make_term_law(v.get(), k));
}

inline law_ref dot(const law_ref& a, const law_ref& b) {
    return many<dot_law>({a.get(), b.get()});
}
inline law_ref cross(const law_ref& a, const law_ref& b) {
    return many<cross_law>({a.get(), b.get()});
}
inline law_ref add(const law_ref& a, const law_ref& b) {
    return node<plus_law>(a, b);
}
inline law_ref sub(const law_ref& a, const law_ref& b) {
    return node<minus_law>(a, b);
}
inline law_ref mul(const law_ref& a, const law_ref& b) {
    return node<times_law>(a, b);
}
inline law_ref div(const law_ref& a, const law_ref& b) {
    return node<division_law>(a, b);
}

/// The derivative of `f` with respect to variable `which` (one use).
inline law_ref d(const law* f, int which = 0) {
    return law_ref::adopt(f->derivative(which));
}

}  // namespace law_tree
