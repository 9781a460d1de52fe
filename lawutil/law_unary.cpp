#include <lawutil/law_unary.h>

#include <climits>
#include <cmath>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>
#include <qem/tolerance.h>

using law_internal::value_buffer;
using QEM::resmch;

namespace {

constexpr double pi = 3.141592653589793;
constexpr double half_pi = pi / 2;

// Derivative trees are written with these: node<times_law>(a, b) takes law* or law_ref
// operands alike and hands the new node over as a counted handle, so that an error raised
// half-way through a tree releases what was built.
law* raw(law* l) {
    return l;
}
law* raw(const law_ref& l) {
    return l.get();
}
template <class T, class... Parts>
law_ref node(const Parts&... parts) {
    return make_law<T>(raw(parts)...);
}
law_ref K(double value) {
    return make_law<constant_law>(value);
}

// f' with respect to variable `which`: f's cached derivative, one use to the caller.
law_ref derivative_of(const law* f, int which) {
    if (!f) law_operand::raise_missing();
    return law_ref::adopt(f->derivative(which));
}

// The chain rule's last step, g * f', with f' taken after the rest of the tree is built.
law* chain(const law_ref& g, const law* f, int which) {
    law_ref df = derivative_of(f, which);
    return new times_law(g.get(), df.get());
}

// A scalar function over a vector f has f's dimension (the unary_law rule) but only one
// value of its own: the further components are written as 0 rather than left unset.
void write_scalar(const law* l, double value, double* answer) {
    answer[0] = value;
    const int n = l->return_dim();
    for (int i = 1; i < n; ++i) answer[i] = 0.0;
}

// make_one runs the class's part check when it has one.
template <class C>
void run_check(const law* sub) {
    if constexpr (requires { C::check(sub); }) C::check(sub);
}

// A failed part check: reported as toxic, and the law is built all the same.
int toxic_part() {
    toxic_law_error();
    return 0;
}

// x as an int when it is one exactly; values outside the int range never are.
bool exact_int(double x, int& n) {
    if (!(x >= INT_MIN && x <= INT_MAX)) return false;  // NaN fails too
    n = static_cast<int>(x);
    return n == x;
}

// (-c)*A for a product c*A whose left operand is a constant c < 0, else empty.
law_ref flip_negative_factor(const law* f) {
    if (!f || !f->isa(times_law_id)) return {};
    const auto* product = static_cast<const times_law*>(f);
    const law* c = product->fleft();
    if (!c || !c->isa(constant_law_id)) return {};
    const double value = static_cast<const constant_law*>(c)->value();
    if (!(value < 0.0)) return {};
    return node<times_law>(K(-value), product->fright());
}

// Vector helpers for the frame laws.
double length_of(const double* v, int n) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += v[i] * v[i];
    return std::sqrt(sum);
}

// The zero vector (and a vector of zero length) has no direction: it is left as it is.
void normalise(double* v, int n) {
    const double length = length_of(v, n);
    if (length > 0.0)
        for (int i = 0; i < n; ++i) v[i] /= length;
}

void cross3(const double* a, const double* b, double* out) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

// The first three components of `l` at `x`, a missing one counting as 0.
void first_three(const law* l, const double* x, double* out) {
    const int n = l->return_dim();
    value_buffer values(n);
    l->evaluate(x, values.data());
    for (int i = 0; i < 3; ++i) out[i] = i < n ? values[i] : 0.0;
}

}  // namespace

// The shared part of every function of one scalar; each class adds `value` and `deriv`.
#define LAW_UNARY_FUNCTION_BODY(cls)                            \
    cls::cls(law* sub) : unary_law(sub) {}                      \
    law* cls::make_one(law* sub) const {                        \
        run_check<cls>(sub);                                    \
        return new cls(sub);                                    \
    }                                                           \
    void cls::evaluate(const double* x, double* answer) const { \
        write_scalar(this, value(sub_value(x)), answer);        \
    }                                                           \
    double cls::evaluate_scalar(const double* x) const {        \
        return value(sub_value(x));                             \
    }

// ============================================================== trigonometric

LAW_UNARY_FUNCTION_BODY(sin_law)

double sin_law::value(double x) {
    return std::sin(x);
}

// (sin f)' = cos(f) f'
law* sin_law::deriv(int which) const {
    return chain(node<cos_law>(sub_law_), sub_law_, which);
}

// sin(c*A) with a constant c < 0 becomes -sin((-c)*A): sine is odd.  Only a constant left
// operand is matched, where the simplifier gathers a product's constants.
law* sin_law::sub_simplify(int, QEM::optional<const char*&> rule_name) const {
    law_ref flipped = flip_negative_factor(sub_law_);
    if (!flipped) return nullptr;
    law* out = new negate_law(node<sin_law>(flipped).get());
    if (rule_name) *rule_name = "sin(-CA)=-sin(CA)";
    return out;
}

LAW_UNARY_FUNCTION_BODY(cos_law)

double cos_law::value(double x) {
    return std::cos(x);
}

// (cos f)' = -sin(f) f'
law* cos_law::deriv(int which) const {
    return chain(node<negate_law>(node<sin_law>(sub_law_)), sub_law_, which);
}

// cos(c*A) with a constant c < 0 becomes cos((-c)*A): cosine is even.  Matched as for sine.
law* cos_law::sub_simplify(int, QEM::optional<const char*&> rule_name) const {
    law_ref flipped = flip_negative_factor(sub_law_);
    if (!flipped) return nullptr;
    law* out = new cos_law(flipped.get());
    if (rule_name) *rule_name = "cos(-CA)=cos(CA)";
    return out;
}

LAW_UNARY_FUNCTION_BODY(tan_law)

// Poles at pi/2 + k pi: x - pi/2 within resmch of a multiple of pi.
double tan_law::value(double x) {
    const double y = x - half_pi;
    if (std::fabs(y - pi * std::floor(y / pi + 0.5)) < resmch) sys_error(LAW_TAN);
    return std::tan(x);
}

// (tan f)' = sec(f) sec(f) f'; one secant node serves both factors, evaluated once.
law* tan_law::deriv(int which) const {
    law_ref sec = node<sec_law>(sub_law_);
    return chain(node<times_law>(sec, sec), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(cot_law)

// Poles at k pi.
double cot_law::value(double x) {
    if (std::fabs(x - pi * std::floor(x / pi + 0.5)) < resmch) sys_error(LAW_COT);
    return std::tan(half_pi - x);
}

// (cot f)' = -(csc(f) csc(f)) f'
law* cot_law::deriv(int which) const {
    law_ref csc = node<csc_law>(sub_law_);
    return chain(node<negate_law>(node<times_law>(csc, csc)), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(sec_law)

double sec_law::value(double x) {
    const double c = std::cos(x);
    if (std::fabs(c) < resmch) sys_error(LAW_SEC);
    return 1.0 / c;
}

// (sec f)' = sec(f) tan(f) f'
law* sec_law::deriv(int which) const {
    return chain(node<times_law>(node<sec_law>(sub_law_), node<tan_law>(sub_law_)), sub_law_,
                 which);
}

LAW_UNARY_FUNCTION_BODY(csc_law)

double csc_law::value(double x) {
    const double s = std::sin(x);
    if (std::fabs(s) < resmch) sys_error(LAW_CSC);
    return 1.0 / s;
}

// Deliberately -f * f', not -csc(f) cot(f) f': kept exactly as it stands, down to the csc(f)
// and cot(f) nodes that are built and released unused.
law* csc_law::deriv(int which) const {
    law_ref unused_csc = node<csc_law>(sub_law_);
    law_ref unused_cot = node<cot_law>(sub_law_);
    return chain(node<negate_law>(sub_law_), sub_law_, which);
}

// ============================================================== hyperbolic

LAW_UNARY_FUNCTION_BODY(sinh_law)

double sinh_law::value(double x) {
    return std::sinh(x);
}

// (sinh f)' = cosh(f) f'
law* sinh_law::deriv(int which) const {
    return chain(node<cosh_law>(sub_law_), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(cosh_law)

double cosh_law::value(double x) {
    return std::cosh(x);
}

// (cosh f)' = sinh(f) f'
law* cosh_law::deriv(int which) const {
    return chain(node<sinh_law>(sub_law_), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(tanh_law)

double tanh_law::value(double x) {
    return std::tanh(x);
}

// (tanh f)' = sech(f) sech(f) f'
law* tanh_law::deriv(int which) const {
    law_ref sech = node<sech_law>(sub_law_);
    return chain(node<times_law>(sech, sech), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(coth_law)

double coth_law::value(double x) {
    const double t = std::tanh(x);
    if (std::fabs(t) < resmch) sys_error(LAW_COTH);
    return 1.0 / t;
}

// (coth f)' = -(csch(f) csch(f)) f'
law* coth_law::deriv(int which) const {
    law_ref csch = node<csch_law>(sub_law_);
    return chain(node<negate_law>(node<times_law>(csch, csch)), sub_law_, which);
}

// Beyond this magnitude sech and csch are below 3e-87 and are taken as exactly 0, which
// also keeps cosh and sinh far from overflow.
constexpr double hyperbolic_cutoff = 200.0;

LAW_UNARY_FUNCTION_BODY(sech_law)

double sech_law::value(double x) {
    if (std::fabs(x) > hyperbolic_cutoff) return 0.0;
    return 1.0 / std::cosh(x);
}

// (sech f)' = -(sech(f) tanh(f)) f'
law* sech_law::deriv(int which) const {
    law_ref product = node<times_law>(node<sech_law>(sub_law_), node<tanh_law>(sub_law_));
    return chain(node<negate_law>(product), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(csch_law)

double csch_law::value(double x) {
    if (std::fabs(x) > hyperbolic_cutoff) return 0.0;
    const double s = std::sinh(x);
    if (std::fabs(s) < resmch) sys_error(LAW_CSCH);
    return 1.0 / s;
}

// (csch f)' = -(csch(f) coth(f)) f'
law* csch_law::deriv(int which) const {
    law_ref product = node<times_law>(node<csch_law>(sub_law_), node<coth_law>(sub_law_));
    return chain(node<negate_law>(product), sub_law_, which);
}

// ============================================================== inverse trigonometric

LAW_UNARY_FUNCTION_BODY(arcsin_law)

// Values beyond +-1 by rounding noise (up to resmch) take the end values.
double arcsin_law::value(double x) {
    if (std::fabs(x) > 1.0 + resmch) sys_error(LAW_ARCSIN);
    if (x > 1.0) return half_pi;
    if (x < -1.0) return -half_pi;
    return std::asin(x);
}

// (arcsin f)' = (1 / sqrt(1 - f f)) f'
law* arcsin_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(K(1), node<times_law>(sub_law_, sub_law_)));
    return chain(node<division_law>(K(1), root), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccos_law)

double arccos_law::value(double x) {
    if (std::fabs(x) > 1.0 + resmch) sys_error(LAW_ARCCOS);
    if (x > 1.0) return 0.0;
    if (x < -1.0) return pi;
    return std::acos(x);
}

// (arccos f)' = -(1 / sqrt(1 - f f)) f'
law* arccos_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(K(1), node<times_law>(sub_law_, sub_law_)));
    return chain(node<negate_law>(node<division_law>(K(1), root)), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccot_law)

// Deliberately atan(1/x) + pi for every x != 0, so the values lie in (pi/2, 3pi/2) with a
// jump at 0 (where the value is pi/2); kept as the function has always been defined.
double arccot_law::value(double x) {
    if (x == 0.0) return half_pi;
    return std::atan(1.0 / x) + pi;
}

// (arccot f)' = -(1 / (1 + f f)) f'
law* arccot_law::deriv(int which) const {
    law_ref sum = node<plus_law>(K(1), node<times_law>(sub_law_, sub_law_));
    return chain(node<negate_law>(node<division_law>(K(1), sum)), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arcsec_law)

// Deliberately the negated principal value -arccos(1/x); kept as it has always been.
double arcsec_law::value(double x) {
    if (x > -1.0 && x < 1.0) sys_error(LAW_ARCSEC);
    const double v = 1.0 / x;
    return -(v > 1.0 ? 0.0 : v < -1.0 ? pi : std::acos(v));
}

// (1 / (f sqrt(f f - 1))) f': the derivative of the principal arcsec, whatever the sign
// convention of the value.
law* arcsec_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(node<times_law>(sub_law_, sub_law_), K(1)));
    law_ref bottom = node<times_law>(sub_law_, root);
    return chain(node<division_law>(K(1), bottom), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccsc_law)

// Deliberately -pi - arcsin(1/x); kept as it has always been.
double arccsc_law::value(double x) {
    if (x > -1.0 && x < 1.0) sys_error(LAW_ARCCSC);
    const double v = 1.0 / x;
    const double a = v > 1.0 ? half_pi : v < -1.0 ? -half_pi : std::asin(v);
    return -pi - a;
}

// -(1 / (f sqrt(f f - 1))) f': the derivative of the principal arccsc.
law* arccsc_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(node<times_law>(sub_law_, sub_law_), K(1)));
    law_ref bottom = node<times_law>(sub_law_, root);
    return chain(node<negate_law>(node<division_law>(K(1), bottom)), sub_law_, which);
}

// ============================================================== inverse hyperbolic

LAW_UNARY_FUNCTION_BODY(arcsinh_law)

// ln(sqrt(x x + 1) + x), taken at |x| and given x's sign: the same function, without the
// cancellation of sqrt(x x + 1) + x for large negative x.
double arcsinh_law::value(double x) {
    const double a = std::fabs(x);
    const double v = std::log(std::sqrt(a * a + 1.0) + a);
    return x < 0.0 ? -v : v;
}

// (arcsinh f)' = (1 / sqrt(1 + f f)) f'
law* arcsinh_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<plus_law>(K(1), node<times_law>(sub_law_, sub_law_)));
    return chain(node<division_law>(K(1), root), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccosh_law)

// Inside the tolerance band just below 1 the radicand x x - 1 is a tiny negative number;
// it is taken as 0 so that the value stays near arccosh(1) = 0 instead of becoming NaN.
double arccosh_law::value(double x) {
    if (x <= 1.0 - resmch) sys_error(LAW_ARCCOSH);
    return std::log(std::sqrt(std::fmax(x * x - 1.0, 0.0)) + x);
}

// (arccosh f)' = (1 / sqrt(f f - 1)) f'
law* arccosh_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(node<times_law>(sub_law_, sub_law_), K(1)));
    return chain(node<division_law>(K(1), root), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arctanh_law)

double arctanh_law::value(double x) {
    if (std::fabs(x) > 1.0 - resmch) sys_error(LAW_ARCTANH);
    return 0.5 * std::log((x + 1.0) / (1.0 - x));
}

// (arctanh f)' = (1 / (1 - f f)) f'
law* arctanh_law::deriv(int which) const {
    law_ref bottom = node<minus_law>(K(1), node<times_law>(sub_law_, sub_law_));
    return chain(node<division_law>(K(1), bottom), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccoth_law)

double arccoth_law::value(double x) {
    if (x >= -1.0 && x <= 1.0) sys_error(LAW_ARCCOTH);
    return 0.5 * std::log((x + 1.0) / (x - 1.0));
}

// (arccoth f)' = (1 / (1 - f f)) f', the same form as arctanh's on the other domain.
law* arccoth_law::deriv(int which) const {
    law_ref bottom = node<minus_law>(K(1), node<times_law>(sub_law_, sub_law_));
    return chain(node<division_law>(K(1), bottom), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arcsech_law)

// Deliberately ln(sqrt(1 - x x) + 1) / x, the logarithm divided by x rather than the
// logarithm of the quotient; kept as it has always been.
double arcsech_law::value(double x) {
    if (x <= 0.0 || x > 1.0) sys_error(LAW_ARCSECH);
    return std::log(std::sqrt(1.0 - x * x) + 1.0) / x;
}

// (-1 / (f sqrt(1 - f f))) f': the derivative of the principal arcsech.
law* arcsech_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<minus_law>(K(1), node<times_law>(sub_law_, sub_law_)));
    law_ref bottom = node<times_law>(sub_law_, root);
    return chain(node<division_law>(K(-1), bottom), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(arccsch_law)

// ln((sqrt(x x + 1) + 1) / x) for x > 0.  For x < 0 the value ln((1 - sqrt(x x + 1)) / x)
// equals -ln((sqrt(x x + 1) + 1) / |x|), which is how it is computed: no cancellation in
// 1 - sqrt(x x + 1) for small |x|.
double arccsch_law::value(double x) {
    if (std::fabs(x) < 1e-10) sys_error(LAW_ARCCSCH);
    const double a = std::fabs(x);
    const double v = std::log((std::sqrt(a * a + 1.0) + 1.0) / a);
    return x > 0.0 ? v : -v;
}

// (arccsch f)' = (-1 / (|f| sqrt(1 + f f))) f'
law* arccsch_law::deriv(int which) const {
    law_ref root = node<sqrt_law>(node<plus_law>(K(1), node<times_law>(sub_law_, sub_law_)));
    law_ref bottom = node<times_law>(node<abs_law>(sub_law_), root);
    return chain(node<division_law>(K(-1), bottom), sub_law_, which);
}

// ============================================================== roots, powers, rounding

LAW_UNARY_FUNCTION_BODY(sqrt_law)

// Rounding noise below 0 (down to -resmch) counts as 0.
double sqrt_law::value(double x) {
    if (x <= -resmch) sys_error(LAW_SQRT);
    return x < 0.0 ? 0.0 : std::sqrt(x);
}

// (sqrt f)' = (1 / (2 sqrt(f))) f'
law* sqrt_law::deriv(int which) const {
    law_ref bottom = node<times_law>(K(2), node<sqrt_law>(sub_law_));
    return chain(node<division_law>(K(1), bottom), sub_law_, which);
}

// sqrt(f) = f^0.5, always: powers are the form the simplifier's product rules work on.
law* sqrt_law::sub_simplify(int, QEM::optional<const char*&> rule_name) const {
    if (!sub_law_) return nullptr;
    law* out = new exponent_law(sub_law_, K(0.5).get());
    if (rule_name) *rule_name = "sqrt(x)=x^.5";
    return out;
}

LAW_UNARY_FUNCTION_BODY(natural_log_law)

double natural_log_law::value(double x) {
    if (x <= 0.0) sys_error(LAW_LN);
    return std::log(x);
}

// (ln f)' = f' / f
law* natural_log_law::deriv(int which) const {
    law_ref df = derivative_of(sub_law_, which);
    return new division_law(df.get(), sub_law_);
}

LAW_UNARY_FUNCTION_BODY(exp_law)

double exp_law::value(double x) {
    return std::exp(x);
}

// (exp f)' = exp(f) f'; a new exponential node, not this law, which would then hold a use
// of itself through its own derivative cache.
law* exp_law::deriv(int which) const {
    return chain(node<exp_law>(sub_law_), sub_law_, which);
}

LAW_UNARY_FUNCTION_BODY(abs_law)

double abs_law::value(double x) {
    return std::fabs(x);
}

// |f|' = set(f) f' - (1 - set(f)) f': two terms on purpose, not one product with a sign,
// because the simplifier and the printer are meant to see this shape.
law* abs_law::deriv(int which) const {
    law_ref step = node<set_law>(sub_law_);
    law_ref other_side = node<minus_law>(K(1), step);
    law_ref df = derivative_of(sub_law_, which);
    law_ref up = node<times_law>(step, df);
    law_ref down = node<times_law>(other_side, df);
    return new minus_law(up.get(), down.get());
}

int abs_law::check(const law* sub) {
    if (law_restore_waived() || check_return_dim(sub, 1)) return 1;
    return toxic_part();
}

LAW_UNARY_FUNCTION_BODY(floor_law)

double floor_law::value(double x) {
    return std::floor(x);
}

// Zero between the jumps; the jumps contribute nothing.
law* floor_law::deriv(int) const {
    return new constant_law(0.0);
}

LAW_UNARY_FUNCTION_BODY(ceil_law)

double ceil_law::value(double x) {
    return std::ceil(x);
}

law* ceil_law::deriv(int) const {
    return new constant_law(0.0);
}

LAW_UNARY_FUNCTION_BODY(set_law)

double set_law::value(double x) {
    return x > 0.0 ? 1.0 : 0.0;
}

law* set_law::deriv(int) const {
    return new constant_law(0.0);
}

// ============================================================== predicates

LAW_UNARY_FUNCTION_BODY(int_law)

double int_law::value(double x) {
    int n;
    return exact_int(x, n) ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_BODY(even_law)

double even_law::value(double x) {
    int n;
    return exact_int(x, n) && n % 2 == 0 ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_BODY(odd_law)

double odd_law::value(double x) {
    int n;
    return exact_int(x, n) && n % 2 != 0 ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_BODY(prime_law)

// Trial division by the odd numbers up to the square root.  Deliberately 1 and 3 count as
// prime and 2 does not, and the bound is the single-precision square root: both kept as
// the predicate has always answered.
double prime_law::value(double x) {
    int n;
    if (!exact_int(x, n) || n < 1 || n % 2 == 0) return 0.0;
    if (n < 4) return 1.0;
    const int bound = static_cast<int>(std::sqrt(static_cast<float>(n)));
    for (int d = 3; d <= bound; d += 2)
        if (n % d == 0) return 0.0;
    return 1.0;
}

LAW_UNARY_FUNCTION_BODY(rand_law)

// A deterministic scramble of x (equal inputs give equal values), so that a law using it
// evaluates the same way every time.
double rand_law::value(double x) {
    const double w = 100.0 * std::cos(x);
    return w - std::floor(w);
}

LAW_UNARY_FUNCTION_BODY(not_law)

double not_law::value(double x) {
    return x == 0.0 ? 1.0 : 0.0;
}

#undef LAW_UNARY_FUNCTION_BODY

// ============================================================== negate

negate_law::negate_law(law* sub) : unary_law(sub) {}

law* negate_law::make_one(law* sub) const {
    return new negate_law(sub);
}

void negate_law::evaluate(const double* x, double* answer) const {
    if (!sub_law_) law_operand::raise_missing();
    const int n = sub_law_->return_dim();
    if (n == 1) {
        answer[0] = -sub_value(x);
        return;
    }
    sub_law_->evaluate(x, answer);
    for (int i = 0; i < n; ++i) answer[i] = -answer[i];
}

double negate_law::evaluate_scalar(const double* x) const {
    if (sub_law_ && sub_law_->return_dim() != 1) return law::evaluate_scalar(x);
    return -sub_value(x);
}

// (-f)' = -(f')
law* negate_law::deriv(int which) const {
    return new negate_law(derivative_of(sub_law_, which).get());
}

// -(A) = (-1)*A, always: negation joins the canonical products, and the simplifier's last
// pass turns (-1)*A back into -(A).
law* negate_law::sub_simplify(int, QEM::optional<const char*&> rule_name) const {
    if (!sub_law_) return nullptr;
    law* out = new times_law(K(-1).get(), sub_law_);
    if (rule_name) *rule_name = "-(A)=(-1)*A";
    return out;
}

// ============================================================== size and norm

size_law::size_law(law* sub) : unary_law(sub) {}

law* size_law::make_one(law* sub) const {
    return new size_law(sub);
}

void size_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

double size_law::evaluate_scalar(const double* x) const {
    if (!sub_law_) law_operand::raise_missing();
    const int n = sub_law_->return_dim();
    if (n == 1) return std::fabs(sub_value(x));
    value_buffer v(n);
    sub_law_->evaluate(x, v.data());
    return length_of(v.data(), n);
}

// |f|' = (f . f') / |f|
law* size_law::deriv(int which) const {
    law_ref df = derivative_of(sub_law_, which);
    law_ref top = node<dot_law>(sub_law_, df);
    return new division_law(top.get(), node<size_law>(sub_law_).get());
}

norm_law::norm_law(law* sub) : unary_law(sub) {}

law* norm_law::make_one(law* sub) const {
    return new norm_law(sub);
}

void norm_law::evaluate(const double* x, double* answer) const {
    if (!sub_law_) law_operand::raise_missing();
    const int n = sub_law_->return_dim();
    sub_law_->evaluate(x, answer);
    normalise(answer, n);
}

// (f/|f|)' = f'/|f| - f (f . f')/|f|^3 = (f' - n (n . f')) / |f| with n = norm(f): the part
// of f' across the direction, scaled.  A new norm node, not this law (see exp_law::deriv).
law* norm_law::deriv(int which) const {
    law_ref unit = node<norm_law>(sub_law_);
    law_ref df = derivative_of(sub_law_, which);
    law_ref along = node<times_law>(unit, node<dot_law>(unit, df));
    law_ref across = node<minus_law>(df, along);
    return new division_law(across.get(), node<size_law>(sub_law_).get());
}

// ============================================================== frames

frenet_law::frenet_law(law* sub) : unary_law(sub) {}

int frenet_law::check(const law* sub) {
    if (law_restore_waived() || check_return_dim(sub, 3)) return 1;
    return toxic_part();
}

law* frenet_law::make_one(law* sub) const {
    check(sub);
    return new frenet_law(sub);
}

// n = ((f' x f'') x f') / |(f' x f'') x f'|: the part of f'' across f', as a unit vector.
// A binormal that is only rounding noise (f'' parallel to f' up to the last bits, as on a
// straight line written non-linearly) has no direction: normalising it would give an
// arbitrary unit vector, so it counts as zero.
void frenet_law::evaluate(const double* x, double* answer) const {
    law_ref d1 = derivative_of(sub_law_, 0);
    law_ref d2 = derivative_of(d1.get(), 0);
    double tangent[3], bend[3], binormal[3];
    first_three(d1.get(), x, tangent);
    first_three(d2.get(), x, bend);
    cross3(tangent, bend, binormal);
    const double noise = 1e-13 * length_of(tangent, 3) * length_of(bend, 3);
    if (!(length_of(binormal, 3) > noise)) {
        answer[0] = answer[1] = answer[2] = 0.0;
        return;
    }
    cross3(binormal, tangent, answer);
    normalise(answer, 3);
}

// The derivative of the same normal written as a tree, NORM(CROSS(CROSS(f', f''), f')).
law* frenet_law::deriv(int which) const {
    law_ref d1 = derivative_of(sub_law_, 0);
    law_ref d2 = derivative_of(d1.get(), 0);
    law_ref binormal = node<cross_law>(d1, d2);
    law_ref normal = node<norm_law>(node<cross_law>(binormal, d1));
    return normal->unsimplified_derivative(which);
}

surfnorm_law::surfnorm_law(law* sub) : unary_law(sub) {}

int surfnorm_law::check(const law* sub) {
    if (law_restore_waived() || (sub && sub->take_dim() <= 2 && check_return_dim(sub, 3))) return 1;
    return toxic_part();
}

law* surfnorm_law::make_one(law* sub) const {
    check(sub);
    return new surfnorm_law(sub);
}

// n = (df/du x df/dv) / |df/du x df/dv|
void surfnorm_law::evaluate(const double* x, double* answer) const {
    law_ref du = derivative_of(sub_law_, 0);
    law_ref dv = derivative_of(sub_law_, 1);
    double a[3], b[3];
    first_three(du.get(), x, a);
    first_three(dv.get(), x, b);
    cross3(a, b, answer);
    normalise(answer, 3);
}

// The derivative of the same normal written as a tree, NORM(CROSS(df/du, df/dv)).
law* surfnorm_law::deriv(int which) const {
    law_ref du = derivative_of(sub_law_, 0);
    law_ref dv = derivative_of(sub_law_, 1);
    law_ref normal = node<norm_law>(node<cross_law>(du, dv));
    return normal->unsimplified_derivative(which);
}

// ============================================================== prototypes

// Every class of this family can be written as text.
LAW_REGISTER_PROTOTYPE(sin_law, nullptr)
LAW_REGISTER_PROTOTYPE(cos_law, nullptr)
LAW_REGISTER_PROTOTYPE(tan_law, nullptr)
LAW_REGISTER_PROTOTYPE(cot_law, nullptr)
LAW_REGISTER_PROTOTYPE(sec_law, nullptr)
LAW_REGISTER_PROTOTYPE(csc_law, nullptr)
LAW_REGISTER_PROTOTYPE(sinh_law, nullptr)
LAW_REGISTER_PROTOTYPE(cosh_law, nullptr)
LAW_REGISTER_PROTOTYPE(tanh_law, nullptr)
LAW_REGISTER_PROTOTYPE(coth_law, nullptr)
LAW_REGISTER_PROTOTYPE(sech_law, nullptr)
LAW_REGISTER_PROTOTYPE(csch_law, nullptr)
LAW_REGISTER_PROTOTYPE(arcsin_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccos_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccot_law, nullptr)
LAW_REGISTER_PROTOTYPE(arcsec_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccsc_law, nullptr)
LAW_REGISTER_PROTOTYPE(arcsinh_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccosh_law, nullptr)
LAW_REGISTER_PROTOTYPE(arctanh_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccoth_law, nullptr)
LAW_REGISTER_PROTOTYPE(arcsech_law, nullptr)
LAW_REGISTER_PROTOTYPE(arccsch_law, nullptr)
LAW_REGISTER_PROTOTYPE(sqrt_law, nullptr)
LAW_REGISTER_PROTOTYPE(natural_log_law, nullptr)
LAW_REGISTER_PROTOTYPE(exp_law, nullptr)
LAW_REGISTER_PROTOTYPE(abs_law, nullptr)
LAW_REGISTER_PROTOTYPE(floor_law, nullptr)
LAW_REGISTER_PROTOTYPE(ceil_law, nullptr)
LAW_REGISTER_PROTOTYPE(set_law, nullptr)
LAW_REGISTER_PROTOTYPE(int_law, nullptr)
LAW_REGISTER_PROTOTYPE(even_law, nullptr)
LAW_REGISTER_PROTOTYPE(odd_law, nullptr)
LAW_REGISTER_PROTOTYPE(prime_law, nullptr)
LAW_REGISTER_PROTOTYPE(rand_law, nullptr)
LAW_REGISTER_PROTOTYPE(not_law, nullptr)
LAW_REGISTER_PROTOTYPE(negate_law, nullptr)
LAW_REGISTER_PROTOTYPE(size_law, nullptr)
LAW_REGISTER_PROTOTYPE(norm_law, nullptr)
LAW_REGISTER_PROTOTYPE(frenet_law, nullptr)
LAW_REGISTER_PROTOTYPE(surfnorm_law, nullptr)
