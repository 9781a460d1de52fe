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
#include <lawutil/law_errors.h>
#include <lawutil/law_registry.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/tolerance.h>
#include <qem/version.h>

using law_internal::check_return_dim_of;
using law_internal::evaluate_as;
using law_internal::fire;
using law_internal::numbered_text;
using law_internal::present_part;
using law_internal::scalar_parts;

// ============================================================== domains

domain_law::domain_law(law** subs, int size) : multiple_law(subs, size) {}

int domain_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size % 2 == 1 && subs[0];
    for (int i = 1; ok && i < size; ++i)
        ok = check_return_dim_of(subs[i], 1) && subs[i]->take_dim() == 0;
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* domain_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new domain_law(subs, size);
}

law* domain_law::rebuild(law** subs, int size) const {
    return new domain_law(subs, size);
}

QEM::interval domain_law::own_domain(int which) const {
    if (which < 0 || which >= restricted()) return QEM::interval(QEM::interval_infinite);
    const law* lo = sub_laws_[1 + 2 * which];
    const law* hi = sub_laws_[2 + 2 * which];
    if (!lo || !hi) return QEM::interval(QEM::interval_infinite);
    // The bounds take no input: their value anywhere is their value.
    return QEM::interval(lo->eval(0.0), hi->eval(0.0));
}

// Inside (to within the base library's resolution) the value is f's; outside it is an
// error, not an extrapolation.
void domain_law::evaluate(const double* x, double* answer) const {
    const law* f = present_part(sub_laws_, law_count_, 0);
    for (int i = 0; i < restricted(); ++i)
        if (!own_domain(i).contains(x[i])) sys_error(LAW_BAD_DOMAN);
    f->evaluate(x, answer);
}

law* domain_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!sub_laws_ || law_count_ < 1 || !sub_laws_[0]) return nullptr;
    return fire(name, "domain(A)=A", law_ref::retain(sub_laws_[0]));
}

int domain_law::term_domain(int which, QEM::interval& domain) const {
    domain = own_domain(which);
    if (sub_laws_ && law_count_ >= 1 && sub_laws_[0]) {
        QEM::interval inner;
        sub_laws_[0]->term_domain(which, inner);
        domain &= inner;
    }
    return 1;
}

int domain_law::in_domain(double* x) const {
    for (int i = 0; i < restricted(); ++i)
        if (!own_domain(i).contains(x[i])) return 0;
    return !sub_laws_ || law_count_ < 1 || !sub_laws_[0] || sub_laws_[0]->in_domain(x);
}

namespace {

// The parts of a restriction of `f`: f, then each interval's ends as constants (held in
// `made`).  An empty interval gets NaN ends, between which no point lies.
std::vector<law*> restriction_parts(law* f, const QEM::interval* domains, int n,
                                    std::vector<law_ref>& made) {
    std::vector<law*> raw{f};
    for (int i = 0; i < n; ++i) {
        const QEM::interval& d = domains[i];
        const double nan = std::nan("");
        made.push_back(make_law<constant_law>(d.empty() ? nan : d.start_pt()));
        raw.push_back(made.back().get());
        made.push_back(make_law<constant_law>(d.empty() ? nan : d.end_pt()));
        raw.push_back(made.back().get());
    }
    return raw;
}

}  // namespace

// `flag` is the number of intervals given (below 1: one); each meets this law's own.
law* domain_law::set_domain(QEM::interval* domains, int flag) const {
    const int given = domains ? std::max(flag, 1) : 0;
    const int n = std::max(given, restricted());
    std::vector<QEM::interval> meet(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        meet[static_cast<size_t>(i)] = own_domain(i);
        if (i < given) meet[static_cast<size_t>(i)] &= domains[i];
    }
    std::vector<law_ref> made;
    std::vector<law*> raw =
        restriction_parts(present_part(sub_laws_, law_count_, 0), meet.data(), n, made);
    return rebuild(raw.data(), static_cast<int>(raw.size()));
}

// Restricting a law that keeps no domains of its own wraps it in DOMAIN.  `flag` is the
// number of intervals in `domains` (below 1: one, for the first variable); trailing whole
// lines restrict nothing and are left out, and a law restricted nowhere is returned as
// it is (with a use for the caller).
law* law::set_domain(QEM::interval* domains, int flag) const {
    int n = domains ? std::max(flag, 1) : 0;
    while (n > 0 && domains[n - 1].infinite()) --n;
    if (n == 0) {
        add(this);
        return const_cast<law*>(this);
    }
    std::vector<law_ref> made;
    std::vector<law*> raw = restriction_parts(const_cast<law*>(this), domains, n, made);
    return new domain_law(raw.data(), static_cast<int>(raw.size()));
}

law* domain_law::deriv(int which) const {
    law_ref df = law_ref::adopt(present_part(sub_laws_, law_count_, 0)->derivative(which));
    std::vector<law*> raw(sub_laws_, sub_laws_ + law_count_);
    raw[0] = df.get();
    return rebuild(raw.data(), law_count_);
}

int domain_law::take_size() const {
    return std::max(multiple_law::take_size(), restricted());
}

permanent_domain_law::permanent_domain_law(law** subs, int size) : domain_law(subs, size) {}

law* permanent_domain_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new permanent_domain_law(subs, size);
}

law* permanent_domain_law::rebuild(law** subs, int size) const {
    return new permanent_domain_law(subs, size);
}

law* permanent_domain_law::sub_simplify(int, QEM::optional<const char*&>) const {
    return nullptr;
}

// ============================================================== further functions

namespace {

// The variable of D(f, v, n): an identity law's index, or a 1-based constant truncated as
// TERM's index is; the first variable when v is not given.  -1 for anything else.
int derivative_variable(law* const* parts, int n) {
    if (n < 2) return 0;
    const law* v = parts[1];
    if (!v) return -1;
    if (v->isa(identity_law_id)) return static_cast<const identity_law*>(v)->index();
    if (!v->constant()) return -1;
    return law::safe_convert_to_int(v->eval(0.0) - 1.0);
}

// The order of D(f, v, n): a constant truncated toward zero; 1 when n is not given.
int derivative_order(law* const* parts, int n) {
    if (n < 3) return 1;
    const law* k = parts[2];
    if (!k || !k->constant()) return -1;
    return law::safe_convert_to_int(k->eval(0.0));
}

bool integer_constant(const law* l, double least) {
    if (!l || !l->constant() || l->return_dim() != 1) return false;
    const double v = l->eval(0.0);
    return v >= least && v == std::floor(v) && v <= INT32_MAX;
}

}  // namespace

derivative_law::derivative_law(law** subs, int size) : multiple_law(subs, size) {}

derivative_law::~derivative_law() noexcept(false) {
    remove(derived_);
}

int derivative_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size <= 3 && subs[0];
    if (ok && size >= 2)
        ok = subs[1] && (subs[1]->isa(identity_law_id) || integer_constant(subs[1], 1.0));
    if (ok && size == 3) ok = integer_constant(subs[2], 0.0);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

namespace {
constexpr int max_derivative_order = 64;
static_assert(max_derivative_order == 64, "the refusal below names the limit");

// A variable or an order that no evaluation could use is refused when the law is made,
// saying what is wrong, rather than at every evaluation with the derivative code's text.
void refuse_unusable_derivative(law* const* subs, int size) {
    if (law_restore_waived() || !subs || size < 1 || size > 3 || !subs[0]) return;
    const char* why = nullptr;
    if (derivative_variable(subs, size) < 0) {
        why = "D: the variable must be X, Y, Z... or a whole number from 1";
    } else if (const int order = derivative_order(subs, size);
               order < 0 || order > max_derivative_order) {
        why = "D: the order must be a whole number from 0 to 64";
    }
    if (!why) return;
    law_post_refusal(why);
    sys_error(LAW_DERIV);
}
}  // namespace

law* derivative_law::make_one(law** subs, int size) const {
    check(subs, size);
    if (size < 1 || size > 3) sys_error(LAW_DL_NUM);
    refuse_unusable_derivative(subs, size);
    return new derivative_law(subs, size);
}

// Built on first use and kept: law::derivative caches each step in the law before it, so
// this holds one use of the last.  A build that raises leaves nothing behind and is tried
// again by the next evaluation.

const law* derivative_law::derived() const {
    std::call_once(built_once_, [this] {
        if (law_count_ < 1 || law_count_ > 3) sys_error(LAW_DL_NUM);
        law_ref d = law_ref::retain(present_part(sub_laws_, law_count_, 0));
        const int variable = derivative_variable(sub_laws_, law_count_);
        const int order = derivative_order(sub_laws_, law_count_);
        // Each order is a new tree; an order beyond any real use is refused rather than
        // built for hours.  A variable below 0 raises LAW_DERIV from law::derivative.
        if (order > max_derivative_order) sys_error(LAW_DERIV);
        for (int i = 0; i < order; ++i) d = law_ref::adopt(d->derivative(variable));
        derived_ = d.release();
    });
    return derived_;
}

void derivative_law::evaluate(const double* x, double* answer) const {
    evaluate_as(derived(), x, answer, return_dim());
}

law* derivative_law::deriv(int which) const {
    return derived()->derivative(which);
}

// ---------------------------------------------------------------- MOD

mod_law::mod_law(law** subs, int size) : multiple_law(subs, size) {}

int mod_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 2, 2);
}

law* mod_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new mod_law(subs, size);
}

// a - b floor(a/b), computed as fmod's exact remainder moved to b's sign.
double mod_law::evaluate_scalar(const double* x) const {
    const double a = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    const double b = present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x);
    if (b == 0.0) sys_error(LAW_ZERODIVIDE);
    double r = std::fmod(a, b);
    if (r != 0.0 && (r < 0.0) != (b < 0.0)) r += b;
    return r;
}

void mod_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// (a - b floor(a/b))' = a' - b' floor(a/b): floor is constant between its jumps.
law* mod_law::deriv(int which) const {
    law* a = present_part(sub_laws_, law_count_, 0);
    law* b = present_part(sub_laws_, law_count_, 1);
    law_ref da = law_ref::adopt(a->derivative(which));
    law_ref db = law_ref::adopt(b->derivative(which));
    law_ref whole = law_internal::unary_of(floor_law_id, make_law<division_law>(a, b).get());
    law_ref scaled = make_law<times_law>(db.get(), whole.get());
    return new minus_law(da.get(), scaled.get());
}

char* mod_law::string(law_symbol_type type, QEM::optional<int&> count,
                      QEM::optional<law_data_node*&> list) const {
    if (type == SYMBOL_PARSE) return multiple_law::string(type, count, list);
    return numbered_text(symbol(type), sub_laws_, sub_laws_ ? law_count_ : 0, nullptr, type, count,
                         list);
}

// ---------------------------------------------------------------- LOG

namespace {

constexpr double common_base = 10.0;

// A base has logarithms when it is positive and not 1.
void check_base(double b) {
    if (!(b > 0.0) || b == 1.0) sys_error(LAW_BASE_P);
}

}  // namespace

log_law::log_law(law** subs, int size) : multiple_law(subs, size) {}

int log_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, 2);
}

law* log_law::make_one(law** subs, int size) const {
    check(subs, size);
    if (size == 2 && subs && subs[1]) {
        if (!subs[1]->constant()) sys_error(LAW_BASE_C);
        check_base(subs[1]->eval(0.0));
    }
    return new log_law(subs, size);
}

// The bases 10 and 2 use their own functions, exact at the powers of the base.
double log_law::evaluate_scalar(const double* x) const {
    const double v = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    const double b =
        law_count_ >= 2 ? present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x) : common_base;
    check_base(b);
    if (!(v > 0.0)) sys_error(LAW_LOG);
    if (b == 10.0) return std::log10(v);
    if (b == 2.0) return std::log2(v);
    return std::log(v) / std::log(b);
}

void log_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// The derivative of LN(x) / LN(b), base included.
law* log_law::deriv(int which) const {
    law* v = present_part(sub_laws_, law_count_, 0);
    law_ref b = law_count_ >= 2 ? law_ref::retain(present_part(sub_laws_, law_count_, 1))
                                : make_law<constant_law>(common_base);
    law_ref quotient =
        make_law<division_law>(law_internal::unary_of(natural_log_law_id, v).get(),
                               law_internal::unary_of(natural_log_law_id, b.get()).get());
    return quotient->unsimplified_derivative(which);
}

char* log_law::string(law_symbol_type type, QEM::optional<int&> count,
                      QEM::optional<law_data_node*&> list) const {
    if (type == SYMBOL_PARSE) return multiple_law::string(type, count, list);
    return numbered_text(symbol(type), sub_laws_, sub_laws_ ? law_count_ : 0, "10", type, count,
                         list);
}

// ---------------------------------------------------------------- ARCTAN

arctan_law::arctan_law(law** subs, int size) : multiple_law(subs, size) {}

int arctan_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, 2);
}

law* arctan_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new arctan_law(subs, size);
}

double arctan_law::evaluate_scalar(const double* x) const {
    const double y = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    if (law_count_ < 2) return std::atan(y);
    return std::atan2(y, present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x));
}

void arctan_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// atan(y)' = y' / (1 + y^2);  atan2(y, x)' = (x y' - y x') / (x^2 + y^2).
law* arctan_law::deriv(int which) const {
    law* y = present_part(sub_laws_, law_count_, 0);
    law_ref dy = law_ref::adopt(y->derivative(which));
    law_ref two = make_law<constant_law>(2.0);
    law_ref y2 = make_law<exponent_law>(y, two.get());
    if (law_count_ < 2) {
        law_ref bottom = make_law<plus_law>(make_law<constant_law>(1.0).get(), y2.get());
        return new division_law(dy.get(), bottom.get());
    }
    law* x = present_part(sub_laws_, law_count_, 1);
    law_ref dx = law_ref::adopt(x->derivative(which));
    law_ref top = make_law<minus_law>(make_law<times_law>(x, dy.get()).get(),
                                      make_law<times_law>(y, dx.get()).get());
    law_ref bottom = make_law<plus_law>(make_law<exponent_law>(x, two.get()).get(), y2.get());
    return new division_law(top.get(), bottom.get());
}

// ============================================================== prototypes

LAW_REGISTER_PROTOTYPE(domain_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(permanent_domain_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(derivative_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(mod_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(log_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(arctan_law, nullptr, 0)
