#pragma once
// Small builders for tests: each hands its tree over as a counted handle, so a test
// releases everything it builds by leaving scope.

#include <initializer_list>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/lawutil.h>

namespace law_test {

inline law_ref X() {
    return make_law<identity_law>(0, 'X');
}
inline law_ref Y() {
    return make_law<identity_law>(1, 'Y');
}
inline law_ref U() {
    return make_law<identity_law>(0, 'U');
}
inline law_ref V() {
    return make_law<identity_law>(1, 'V');
}
inline law_ref K(double v) {
    return make_law<constant_law>(v);
}

template <class T>
law_ref fn(const law_ref& f) {
    return make_law<T>(f.get());
}

template <class T>
law_ref op(const law_ref& a, const law_ref& b) {
    return make_law<T>(a.get(), b.get());
}

/// A part of a vector; temporaries live until the vector has taken its own uses.
struct part {
    law* p;
    part(const law_ref& r) : p(r.get()) {}  // NOLINT: implicit on purpose
};

inline law_ref vec(std::initializer_list<part> parts) {
    std::vector<law*> raw;
    for (const part& p : parts) raw.push_back(p.p);
    return make_law<vector_law>(raw.data(), static_cast<int>(raw.size()));
}

inline std::string text(const law* l, law_symbol_type t = SYMBOL_PARSE) {
    char* s = l->string(t);
    std::string out(s);
    vorn_discard(s);
    return out;
}

inline std::string text(const law_ref& l, law_symbol_type t = SYMBOL_PARSE) {
    return text(l.get(), t);
}

/// All values of `l` at the point `x`.
inline std::vector<double> values(const law_ref& l, std::vector<double> x) {
    std::vector<double> out(static_cast<size_t>(l->return_dim()));
    l->evaluate(x.data(), out.data());
    return out;
}

}  // namespace law_test
