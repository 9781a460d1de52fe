#pragma once
// Small builders for tests: each hands its tree over as a counted handle, so a test
// releases everything it builds by leaving scope.

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <lawutil/internal/law_ref.h>
#include <lawutil/lawutil.h>
#include <qem/qem_printf.h>

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

/// A multiple law of class T built straight from its parts (no part check).
template <class T>
law_ref multi(std::initializer_list<part> parts) {
    std::vector<law*> raw;
    for (const part& p : parts) raw.push_back(p.p);
    return make_law<T>(raw.data(), static_cast<int>(raw.size()));
}

/// The registered prototype of kind `kind_id` with parse keyword `keyword`.
inline const law* registered(const char* keyword, int kind_id = multiple_law_id) {
    for (const law_list* n = law_list::head(); n; n = n->next())
        if (n->prototype()->isa(kind_id) && !std::strcmp(n->prototype()->symbol(), keyword))
            return n->prototype();
    ADD_FAILURE() << keyword << " is not registered";
    return nullptr;
}

/// A multiple law built the parser's way: through the prototype's make_one, with its checks.
inline law_ref made(const char* keyword, std::vector<law*> parts) {
    auto* p = static_cast<const multiple_law*>(registered(keyword));
    return law_ref::adopt(p->make_one(parts.data(), static_cast<int>(parts.size())));
}

/// True when a toxic law was reported since the last call (the report is cleared).
inline bool reported_toxic() {
    const bool toxic = std::string(TEST_get_error()) == "Toxic law detected";
    TEST_clear_error();
    return toxic;
}

/// Collects what the library prints (the simplifier's trace) while it lives.
class trace_capture {
  public:
    trace_capture() { qem_set_printf_sink(&trace_capture::sink, this); }
    ~trace_capture() { qem_set_printf_sink(nullptr, nullptr); }
    trace_capture(const trace_capture&) = delete;
    trace_capture& operator=(const trace_capture&) = delete;
    const std::string& text() const { return text_; }

  private:
    static void sink(const char* s, void* self) { static_cast<trace_capture*>(self)->text_ += s; }
    std::string text_;
};

}  // namespace law_test
