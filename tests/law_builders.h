#pragma once
// Small builders for tests: each hands its tree over as a counted handle, so a test
// releases everything it builds by leaving scope.

#include <cmath>
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

/// d/dx_which of every component of `l` at `x` by central differences of order 4 with
/// h = 1e-4: truncation (h^4 |f^(5)| / 30) and rounding (1e-16 |f| / h) both stay near
/// 1e-10 at points kept away from poles and jumps, so any tolerance from 1e-8 up
/// separates them from a wrong formula, whose error is of order 1.
inline std::vector<double> finite_difference(const law_ref& l, std::vector<double> x,
                                             int which = 0) {
    auto at = [&](double d) {
        std::vector<double> p = x;
        p[static_cast<size_t>(which)] += d;
        return values(l, p);
    };
    const double h = 1e-4;
    const std::vector<double> p1 = at(h), m1 = at(-h), p2 = at(2 * h), m2 = at(-2 * h);
    std::vector<double> out(p1.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = (8 * (p1[i] - m1[i]) - (p2[i] - m2[i])) / (12 * h);
    return out;
}

/// The derivative law agrees with the finite difference, component by component, to
/// `tol` relative to the size of the value.
inline void expect_derivative_matches(const law_ref& l, std::vector<double> x, int which = 0,
                                      double tol = 1e-7) {
    law_ref d = law_ref::adopt(l->derivative(which));
    const std::vector<double> got = values(d, x), want = finite_difference(l, x, which);
    ASSERT_EQ(got.size(), want.size()) << text(l) << " -> " << text(d);
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(got[i], want[i], tol * (1 + std::fabs(want[i])))
            << text(l) << " d/dx" << which << " = " << text(d) << " at " << x[0] << ", component "
            << i;
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

/// Waives the restore checks for its scope, as a restore that tolerates problems does.
struct restore_waiver {
    restore_waiver() { register_law_restore_problem_callback(nullptr, &yes, &yes); }
    ~restore_waiver() { register_law_restore_problem_callback(nullptr, nullptr, nullptr); }
    restore_waiver(const restore_waiver&) = delete;
    restore_waiver& operator=(const restore_waiver&) = delete;
    static bool yes() { return true; }
};

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
