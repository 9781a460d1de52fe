#include <lawutil/main_law.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <lawutil/internal/arith_rules.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/main_law_util.h>
#include <lawutil/internal/simplify_util.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/tolerance.h>
#include <qem/version.h>

using law_internal::check_return_dim_of;
using law_internal::constant_value;
using law_internal::evaluate_as;
using law_internal::heap_string;
using law_internal::present_part;
using law_internal::scalar_parts;
using law_internal::value_buffer;

// ============================================================== selections and steps

step_law::step_law(law** subs, int size) : multiple_law(subs, size) {}

int step_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size % 2 == 1;
    for (int i = 0; ok && i < size; ++i) {
        ok = subs[i] != nullptr;
        if (!ok || i % 2 == 0) continue;
        ok = subs[i]->isa(constant_law_id);
        // Only a decrease fails: equal neighbouring breakpoints are accepted on purpose
        // (the piece between them is never chosen).
        if (ok && i >= 3) ok = !(constant_value(subs[i]) < constant_value(subs[i - 2]));
    }
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* step_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new step_law(subs, size);
}

// The piece before the first breakpoint greater than x; the last one when there is none.
// At a breakpoint itself the piece after it is chosen: each piece is closed on its left.
void step_law::evaluate(const double* x, double* answer) const {
    const int n = sub_laws_ ? law_count_ : 0;
    int piece = n - 1;
    for (int i = 1; i < n; i += 2) {
        if (present_part(sub_laws_, n, i)->evaluate_scalar(x) > x[0]) {
            piece = i - 1;
            break;
        }
    }
    evaluate_as(present_part(sub_laws_, n, piece), x, answer, return_dim());
}

law* step_law::deriv(int which) const {
    const int n = sub_laws_ ? law_count_ : 0;
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        law* part = present_part(sub_laws_, n, i);
        parts.push_back(i % 2 ? law_ref::retain(part) : law_ref::adopt(part->derivative(which)));
        raw.push_back(parts.back().get());
    }
    return new step_law(raw.data(), n);
}

int step_law::take_size() const {
    return std::max(1, multiple_law::take_size());
}

// ---------------------------------------------------------------- comparisons and logic

#define LAW_COMPARISON_BODY(cls, holds)                          \
    cls::cls(law* left, law* right) : binary_law(left, right) {} \
    law* cls::make_one(law* left, law* right) const {            \
        return new cls(left, right);                             \
    }                                                            \
    double cls::evaluate_scalar(const double* x) const {         \
        const double a = left_value(x);                          \
        const double b = same_operands_ ? a : right_value(x);    \
        return (holds) ? 1.0 : 0.0;                              \
    }                                                            \
    double cls::chain_step(double a, const double* x) const {    \
        const double b = same_operands_ ? a : right_value(x);    \
        return (holds) ? 1.0 : 0.0;                              \
    }                                                            \
    void cls::evaluate(const double* x, double* answer) const {  \
        answer[0] = evaluate_scalar(x);                          \
    }

// The equality tests are exact, with no tolerance, on purpose: a tolerance belongs to the
// law that wants one (ABS(A-B)<1E-6 says it).
LAW_COMPARISON_BODY(less_than_law, a < b)
LAW_COMPARISON_BODY(less_than_or_equal_law, a <= b)
LAW_COMPARISON_BODY(greater_than_law, a > b)
LAW_COMPARISON_BODY(greater_than_or_equal_law, a >= b)
LAW_COMPARISON_BODY(equal_law, a == b)
LAW_COMPARISON_BODY(not_equal_law, a != b)

#undef LAW_COMPARISON_BODY

and_law::and_law(law* left, law* right) : binary_law(left, right) {}

law* and_law::make_one(law* left, law* right) const {
    return new and_law(left, right);
}

// Short-circuit: a false left operand decides without the right one, which is therefore
// never evaluated (nor can it raise).
double and_law::evaluate_scalar(const double* x) const {
    const double a = left_value(x);
    if (a == 0.0) return 0.0;
    const double b = left_law_ == right_law_ ? a : right_value(x);
    return b != 0.0 ? 1.0 : 0.0;
}

void and_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

or_law::or_law(law* left, law* right) : binary_law(left, right) {}

law* or_law::make_one(law* left, law* right) const {
    return new or_law(left, right);
}

// Both operands are always evaluated, deliberately unlike AND: an error in either one is
// raised whatever the other's value.
double or_law::evaluate_scalar(const double* x) const {
    const double a = left_value(x);
    const double b = same_operands_ ? a : right_value(x);
    return a != 0.0 || b != 0.0 ? 1.0 : 0.0;
}

void or_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

true_law::true_law() : constant_law(1.0) {}

law* true_law::make_one(double) const {
    return new true_law();
}

char* true_law::string(law_symbol_type type, QEM::optional<int&>,
                       QEM::optional<law_data_node*&>) const {
    return heap_string(symbol(type));
}

law* true_law::deep_copy(pointer_map*) const {
    return new true_law();
}

false_law::false_law() : constant_law(0.0) {}

law* false_law::make_one(double) const {
    return new false_law();
}

char* false_law::string(law_symbol_type type, QEM::optional<int&>,
                        QEM::optional<law_data_node*&>) const {
    return heap_string(symbol(type));
}

law* false_law::deep_copy(pointer_map*) const {
    return new false_law();
}

// ---------------------------------------------------------------- piecewise

piecewise_law::piecewise_law(law** subs, int size) : multiple_law(subs, size) {}

int piecewise_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 2 && subs[size - 1];
    const int r = ok ? subs[size - 1]->return_dim() : 0;
    for (int i = 0; ok && i < size - 1; ++i) ok = check_return_dim_of(subs[i], i % 2 ? r : 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* piecewise_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new piecewise_law(subs, size);
}

int piecewise_law::return_size() const {
    if (!sub_laws_ || law_count_ < 1 || !sub_laws_[law_count_ - 1]) return 0;
    return sub_laws_[law_count_ - 1]->return_dim();
}

// The law after the first condition that holds; NaN is not 0, so it holds.
void piecewise_law::evaluate(const double* x, double* answer) const {
    const int n = sub_laws_ ? law_count_ : 0;
    int chosen = n - 1;
    for (int i = 0; i < n - 1; i += 2) {
        if (present_part(sub_laws_, n, i)->evaluate_scalar(x) != 0.0) {
            chosen = i + 1;
            break;
        }
    }
    evaluate_as(present_part(sub_laws_, n, chosen), x, answer, return_dim());
}

// The conditions are shared; the laws (odd positions) and the default are differentiated.
law* piecewise_law::deriv(int which) const {
    const int n = sub_laws_ ? law_count_ : 0;
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        law* part = present_part(sub_laws_, n, i);
        const bool condition = i % 2 == 0 && i != n - 1;
        parts.push_back(condition ? law_ref::retain(part)
                                  : law_ref::adopt(part->derivative(which)));
        raw.push_back(parts.back().get());
    }
    return new piecewise_law(raw.data(), n);
}

// ---------------------------------------------------------------- extrema

namespace {

// The value of the first part that `better` than every other: a later part replaces the
// answer only when strictly better, so the first of equal parts wins.
template <class Better>
double extremum(law* const* parts, int n, const double* x, Better better) {
    double best = present_part(parts, n, 0)->evaluate_scalar(x);
    for (int i = 1; i < n; ++i) {
        const double v = present_part(parts, n, i)->evaluate_scalar(x);
        if (better(v, best)) best = v;
    }
    return best;
}

// The derivative of the part that is the answer, with the evaluation's tie rule: part k is
// the answer when no earlier part was and it is at least (Compare) every later part, so
// the piecewise law's first holding condition picks the first extremal part.
template <class Compare>
law* extremum_derivative(law* const* parts, int n, int which) {
    if (n == 1) return present_part(parts, n, 0)->derivative(which);
    std::vector<law_ref> held;
    std::vector<law*> raw;
    for (int k = 0; k < n; ++k) {
        law* pk = present_part(parts, n, k);
        if (k < n - 1) {
            law_ref condition;
            for (int j = k + 1; j < n; ++j) {
                law_ref c = make_law<Compare>(pk, present_part(parts, n, j));
                condition = condition ? make_law<and_law>(condition.get(), c.get()) : std::move(c);
            }
            held.push_back(std::move(condition));
            raw.push_back(held.back().get());
        }
        held.push_back(law_ref::adopt(pk->derivative(which)));
        raw.push_back(held.back().get());
    }
    return new piecewise_law(raw.data(), static_cast<int>(raw.size()));
}

}  // namespace

max_law::max_law(law** subs, int size) : multiple_law(subs, size) {}

int max_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, INT32_MAX);
}

law* max_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new max_law(subs, size);
}

double max_law::evaluate_scalar(const double* x) const {
    return extremum(sub_laws_, sub_laws_ ? law_count_ : 0, x,
                    [](double v, double best) { return v > best; });
}

void max_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

law* max_law::deriv(int which) const {
    return extremum_derivative<greater_than_or_equal_law>(sub_laws_, sub_laws_ ? law_count_ : 0,
                                                          which);
}

min_law::min_law(law** subs, int size) : multiple_law(subs, size) {}

int min_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, INT32_MAX);
}

law* min_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new min_law(subs, size);
}

double min_law::evaluate_scalar(const double* x) const {
    return extremum(sub_laws_, sub_laws_ ? law_count_ : 0, x,
                    [](double v, double best) { return v < best; });
}

void min_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

law* min_law::deriv(int which) const {
    return extremum_derivative<less_than_or_equal_law>(sub_laws_, sub_laws_ ? law_count_ : 0,
                                                       which);
}

// ============================================================== prototypes

LAW_REGISTER_PROTOTYPE(and_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(or_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(step_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(piecewise_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(max_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(min_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(true_law)
LAW_REGISTER_PROTOTYPE(false_law)
