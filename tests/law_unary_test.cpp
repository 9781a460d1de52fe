#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <qem/tolerance.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class LawUnary : public leak_checked {};

constexpr double pi = 3.14159265358979323846;
const double ln2 = std::log(2.0);
constexpr double resmch = QEM::resmch;

// The function T applied to the input itself, at x.
template <class T>
double at(double x) {
    return fn<T>(X())->eval(x);
}

void expect_vector_near(const std::vector<double>& got, const std::vector<double>& want,
                        double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "component " << i;
}

// Central differences of order 4 with h = 1e-4: the truncation error is about
// h^4 |f^(5)| / 30 and the rounding error about 1e-16 |f| / h, both below 1e-10 at the
// points used (kept away from poles), so a tolerance of 1e-7 relative separates them from
// any wrong formula, whose error is of order 1.
constexpr double fd_step = 1e-4;

std::vector<double> finite_difference(const law_ref& l, std::vector<double> x, int which) {
    auto at_offset = [&](double d) {
        std::vector<double> p = x;
        p[static_cast<size_t>(which)] += d;
        return values(l, p);
    };
    const double h = fd_step;
    const std::vector<double> p1 = at_offset(h), m1 = at_offset(-h);
    const std::vector<double> p2 = at_offset(2 * h), m2 = at_offset(-2 * h);
    std::vector<double> out(p1.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = (8 * (p1[i] - m1[i]) - (p2[i] - m2[i])) / (12 * h);
    return out;
}

double finite_difference(const std::function<double(double)>& f, double x) {
    const double h = fd_step;
    return (8 * (f(x + h) - f(x - h)) - (f(x + 2 * h) - f(x - 2 * h))) / (12 * h);
}

// Every component of the cached derivative agrees with the finite difference.
void expect_derivative_matches(const law_ref& l, std::vector<double> x, int which = 0) {
    law_ref d = law_ref::adopt(l->derivative(which));
    const std::vector<double> got = values(d, x);
    const std::vector<double> want = finite_difference(l, x, which);
    ASSERT_EQ(got.size(), want.size()) << text(l);
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(got[i], want[i], 1e-7 * (1 + std::fabs(want[i])))
            << text(l) << " at " << x[0] << ", d/dx" << which << " component " << i;
}

// A new law of the class of `proto` over `sub`, built by make_one.
law_ref make_one_of(const law_ref& proto, law* sub) {
    return law_ref::adopt(static_cast<const unary_law*>(proto.get())->make_one(sub));
}
law_ref make_one_parts(const law_ref& proto, std::vector<law*> parts) {
    auto* m = static_cast<const multiple_law*>(proto.get());
    return law_ref::adopt(m->make_one(parts.data(), static_cast<int>(parts.size())));
}

// Installs the restore waiver for the scope.
struct restore_waiver {
    restore_waiver() {
        register_law_restore_problem_callback(
            nullptr, [] { return true; }, [] { return true; });
    }
    ~restore_waiver() { register_law_restore_problem_callback(nullptr, nullptr, nullptr); }
};

bool toxic_reported() {
    const bool posted = std::string(TEST_get_error()) == "Toxic law detected";
    TEST_clear_error();
    return posted;
}

// ------------------------------------------------------------------ values and domains

TEST_F(LawUnary, TrigonometricValuesAndPoles) {
    EXPECT_NEAR(at<sin_law>(pi / 6), 0.5, 1e-15);
    EXPECT_NEAR(at<cos_law>(pi / 3), 0.5, 1e-15);
    EXPECT_NEAR(at<tan_law>(pi / 4), 1.0, 1e-15);
    EXPECT_NEAR(at<tan_law>(-pi / 4), -1.0, 1e-15);
    EXPECT_NEAR(at<cot_law>(pi / 4), 1.0, 1e-15);
    EXPECT_NEAR(at<cot_law>(3 * pi / 4), -1.0, 1e-15);
    EXPECT_NEAR(at<sec_law>(pi / 3), 2.0, 1e-14);
    EXPECT_NEAR(at<sec_law>(pi), -1.0, 1e-15);
    EXPECT_NEAR(at<csc_law>(pi / 6), 2.0, 1e-14);
    EXPECT_NEAR(at<csc_law>(-pi / 2), -1.0, 1e-15);
    // Poles: tan and sec at pi/2 + k pi, cot and csc at k pi.
    for (double x : {pi / 2, -pi / 2, 3 * pi / 2, pi / 2 + 5e-12}) {
        EXPECT_LAW_ERROR(at<tan_law>(x), LAW_TAN);
        EXPECT_LAW_ERROR(at<sec_law>(x), LAW_SEC);
    }
    for (double x : {0.0, pi, -2 * pi, 5e-12}) {
        EXPECT_LAW_ERROR(at<cot_law>(x), LAW_COT);
        EXPECT_LAW_ERROR(at<csc_law>(x), LAW_CSC);
    }
    // Just outside the resmch band the values are large and finite.
    EXPECT_NEAR(at<tan_law>(pi / 2 - 1e-6), 1e6, 1e-3);
    EXPECT_NEAR(at<cot_law>(1e-6), 1e6, 1e-3);
    EXPECT_GT(std::fabs(at<tan_law>(pi / 2 + 3e-11)), 1e10);
}

TEST_F(LawUnary, HyperbolicValuesAndCutoffs) {
    // At ln 2: e = 2 and 1/e = 1/2.
    EXPECT_NEAR(at<sinh_law>(ln2), 0.75, 1e-15);
    EXPECT_NEAR(at<cosh_law>(ln2), 1.25, 1e-15);
    EXPECT_NEAR(at<tanh_law>(ln2), 0.6, 1e-15);
    EXPECT_NEAR(at<coth_law>(ln2), 5.0 / 3.0, 1e-15);
    EXPECT_NEAR(at<sech_law>(ln2), 0.8, 1e-15);
    EXPECT_NEAR(at<csch_law>(ln2), 4.0 / 3.0, 1e-15);
    EXPECT_NEAR(at<csch_law>(-ln2), -4.0 / 3.0, 1e-15);
    EXPECT_EQ(at<sech_law>(0.0), 1.0);
    EXPECT_LAW_ERROR(at<coth_law>(0.0), LAW_COTH);
    EXPECT_LAW_ERROR(at<csch_law>(0.0), LAW_CSCH);
    EXPECT_LAW_ERROR(at<csch_law>(1e-12), LAW_CSCH);
    // Far out both are exactly 0.
    for (double x : {300.0, -300.0, 1e300}) {
        EXPECT_EQ(at<sech_law>(x), 0.0);
        EXPECT_EQ(at<csch_law>(x), 0.0);
    }
}

TEST_F(LawUnary, InverseTrigonometricValuesClampsAndOddities) {
    EXPECT_NEAR(at<arcsin_law>(0.5), pi / 6, 1e-15);
    EXPECT_NEAR(at<arccos_law>(0.5), pi / 3, 1e-15);
    // Rounding noise beyond +-1 takes the end values; further out is an error.
    EXPECT_EQ(at<arcsin_law>(1 + resmch / 2), pi / 2);
    EXPECT_EQ(at<arcsin_law>(-1 - resmch / 2), -pi / 2);
    EXPECT_EQ(at<arccos_law>(1 + resmch / 2), 0.0);
    EXPECT_EQ(at<arccos_law>(-1 - resmch / 2), pi);
    EXPECT_LAW_ERROR(at<arcsin_law>(1.1), LAW_ARCSIN);
    EXPECT_LAW_ERROR(at<arcsin_law>(-1 - 2 * resmch), LAW_ARCSIN);
    EXPECT_LAW_ERROR(at<arccos_law>(1.1), LAW_ARCCOS);
    EXPECT_LAW_ERROR(at<arccos_law>(-1.1), LAW_ARCCOS);
    // arccot adds pi to atan(1/x) for every x != 0.
    EXPECT_EQ(at<arccot_law>(0.0), pi / 2);
    EXPECT_NEAR(at<arccot_law>(1.0), pi / 4 + pi, 1e-15);
    EXPECT_NEAR(at<arccot_law>(-1.0), 3 * pi / 4, 1e-15);
    EXPECT_NEAR(at<arccot_law>(std::sqrt(3.0)), pi / 6 + pi, 1e-15);
    // arcsec is the negated principal arccos(1/x).
    EXPECT_NEAR(at<arcsec_law>(2.0), -pi / 3, 1e-15);
    EXPECT_NEAR(at<arcsec_law>(-2.0), -2 * pi / 3, 1e-15);
    EXPECT_EQ(at<arcsec_law>(1.0), 0.0);
    EXPECT_NEAR(at<arcsec_law>(-1.0), -pi, 1e-15);
    // arccsc is -pi minus the principal arcsin(1/x).
    EXPECT_NEAR(at<arccsc_law>(2.0), -7 * pi / 6, 1e-15);
    EXPECT_NEAR(at<arccsc_law>(-2.0), -5 * pi / 6, 1e-15);
    EXPECT_NEAR(at<arccsc_law>(1.0), -3 * pi / 2, 1e-15);
    for (double x : {0.5, 0.0, -0.999}) {
        EXPECT_LAW_ERROR(at<arcsec_law>(x), LAW_ARCSEC);
        EXPECT_LAW_ERROR(at<arccsc_law>(x), LAW_ARCCSC);
    }
}

TEST_F(LawUnary, InverseHyperbolicValuesAndDomains) {
    // sinh, cosh, tanh and coth of ln 2 are 3/4, 5/4, 3/5 and 5/3; csch is 4/3.
    EXPECT_NEAR(at<arcsinh_law>(0.75), ln2, 1e-15);
    EXPECT_NEAR(at<arcsinh_law>(-0.75), -ln2, 1e-15);
    // arcsinh(-1e8) = -ln(1e8 + sqrt(1e16 + 1)) = -ln(2e8) to 1e-17.
    EXPECT_NEAR(at<arcsinh_law>(-1e8), -std::log(2e8), 1e-12);
    EXPECT_NEAR(at<arccosh_law>(1.25), ln2, 1e-15);
    EXPECT_EQ(at<arccosh_law>(1.0), 0.0);
    EXPECT_NEAR(at<arccosh_law>(1 - resmch / 2), 0.0, 1e-11);  // in the band: no NaN
    EXPECT_LAW_ERROR(at<arccosh_law>(0.5), LAW_ARCCOSH);
    EXPECT_LAW_ERROR(at<arccosh_law>(1 - 2 * resmch), LAW_ARCCOSH);
    EXPECT_NEAR(at<arctanh_law>(0.6), ln2, 1e-15);
    EXPECT_NEAR(at<arctanh_law>(-0.6), -ln2, 1e-15);
    for (double x : {1.0, -1.0, 1 - resmch / 2, 2.0})
        EXPECT_LAW_ERROR(at<arctanh_law>(x), LAW_ARCTANH);
    EXPECT_NEAR(at<arccoth_law>(5.0 / 3.0), ln2, 1e-15);
    EXPECT_NEAR(at<arccoth_law>(-5.0 / 3.0), -ln2, 1e-15);
    for (double x : {1.0, -1.0, 0.0, 0.5}) EXPECT_LAW_ERROR(at<arccoth_law>(x), LAW_ARCCOTH);
    // arcsech divides the logarithm by x: at 0.8 ln(0.6 + 1) / 0.8, where the principal
    // value would be ln 2.
    EXPECT_NEAR(at<arcsech_law>(0.8), std::log(1.6) / 0.8, 1e-15);
    EXPECT_GT(std::fabs(at<arcsech_law>(0.8) - ln2), 0.1);
    EXPECT_EQ(at<arcsech_law>(1.0), 0.0);
    for (double x : {0.0, -0.5, 1.5}) EXPECT_LAW_ERROR(at<arcsech_law>(x), LAW_ARCSECH);
    EXPECT_NEAR(at<arccsch_law>(4.0 / 3.0), ln2, 1e-15);
    EXPECT_NEAR(at<arccsch_law>(-4.0 / 3.0), -ln2, 1e-15);
    // arccsch(x) = ln(1/|x| + sqrt(1/x^2 + 1)) -> ln(2e6) + 2.5e-13 at |x| = 1e-6.
    EXPECT_NEAR(at<arccsch_law>(-1e-6), -std::log(2e6), 1e-11);
    EXPECT_LAW_ERROR(at<arccsch_law>(1e-11), LAW_ARCCSCH);
    EXPECT_LAW_ERROR(at<arccsch_law>(0.0), LAW_ARCCSCH);
}

TEST_F(LawUnary, RootsLogarithmsAndRounding) {
    EXPECT_EQ(at<sqrt_law>(2.25), 1.5);
    EXPECT_EQ(at<sqrt_law>(0.0), 0.0);
    EXPECT_EQ(at<sqrt_law>(-resmch / 2), 0.0);
    EXPECT_LAW_ERROR(at<sqrt_law>(-1.0), LAW_SQRT);
    EXPECT_LAW_ERROR(at<sqrt_law>(-resmch), LAW_SQRT);
    EXPECT_EQ(at<natural_log_law>(1.0), 0.0);
    EXPECT_NEAR(at<natural_log_law>(8.0), 3 * ln2, 1e-15);
    EXPECT_LAW_ERROR(at<natural_log_law>(0.0), LAW_LN);
    EXPECT_LAW_ERROR(at<natural_log_law>(-1.0), LAW_LN);
    EXPECT_EQ(at<exp_law>(0.0), 1.0);
    EXPECT_NEAR(at<exp_law>(ln2), 2.0, 1e-15);
    EXPECT_EQ(at<abs_law>(-2.5), 2.5);
    EXPECT_EQ(at<abs_law>(3.0), 3.0);
    EXPECT_EQ(at<floor_law>(-1.5), -2.0);
    EXPECT_EQ(at<floor_law>(2.0), 2.0);
    EXPECT_EQ(at<ceil_law>(-1.5), -1.0);
    EXPECT_EQ(at<ceil_law>(1.2), 2.0);
    EXPECT_EQ(at<set_law>(0.5), 1.0);
    EXPECT_EQ(at<set_law>(0.0), 0.0);
    EXPECT_EQ(at<set_law>(-1.0), 0.0);
    // A scalar function of a vector law reads its first component; the law keeps the
    // vector's dimension and its other components are 0.
    auto v = fn<sqrt_law>(vec({X(), K(9), K(16)}));
    EXPECT_EQ(v->return_dim(), 3);
    EXPECT_EQ(values(v, {4.0}), (std::vector<double>{2, 0, 0}));
}

TEST_F(LawUnary, PredicatesAndRand) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (double x : {3.0, -3.0, 0.0}) EXPECT_EQ(at<int_law>(x), 1.0) << x;
    for (double x : {2.5, 1e10, -1e10, nan}) EXPECT_EQ(at<int_law>(x), 0.0) << x;
    for (double x : {4.0, -2.0, 0.0}) EXPECT_EQ(at<even_law>(x), 1.0) << x;
    for (double x : {3.0, 2.5, 1e10}) EXPECT_EQ(at<even_law>(x), 0.0) << x;
    for (double x : {3.0, -3.0, 1.0}) EXPECT_EQ(at<odd_law>(x), 1.0) << x;
    for (double x : {4.0, 3.5, 0.0}) EXPECT_EQ(at<odd_law>(x), 0.0) << x;
    // 1 and 3 count as prime, 2 does not.
    for (double x : {1.0, 3.0, 5.0, 7.0, 97.0, 7919.0}) EXPECT_EQ(at<prime_law>(x), 1.0) << x;
    for (double x : {2.0, 9.0, 2.5, 0.0, -3.0, 4.0, 25.0, 91.0, 7917.0})
        EXPECT_EQ(at<prime_law>(x), 0.0) << x;
    // RAND is 100 cos x less its floor: cos 0 = 1 gives 0; cos x = 0.123 gives 0.3.
    EXPECT_EQ(at<rand_law>(0.0), 0.0);
    EXPECT_NEAR(at<rand_law>(std::acos(0.123)), 0.3, 1e-12);
    EXPECT_EQ(at<rand_law>(0.7), at<rand_law>(0.7));
    for (double x : {0.1, 1.0, 2.0, 10.0}) {
        EXPECT_GE(at<rand_law>(x), 0.0);
        EXPECT_LT(at<rand_law>(x), 1.0);
    }
    EXPECT_EQ(at<not_law>(0.0), 1.0);
    EXPECT_EQ(at<not_law>(-0.0), 1.0);
    EXPECT_EQ(at<not_law>(2.0), 0.0);
    EXPECT_EQ(at<not_law>(1e-300), 0.0);
    // No derivative: the raw tree is null and derivative() raises.
    auto p = fn<prime_law>(X());
    EXPECT_EQ(p->unsimplified_derivative(0), nullptr);
    EXPECT_LAW_ERROR(law::remove(p->derivative(0)), LAW_DERIV);
    EXPECT_LAW_ERROR(law::remove(fn<rand_law>(X())->derivative(0)), LAW_DERIV);
    EXPECT_LAW_ERROR(law::remove(fn<not_law>(X())->derivative(0)), LAW_DERIV);
}

// ------------------------------------------------------------------ derivatives

TEST_F(LawUnary, DerivativesAgreeWithFiniteDifferences) {
    // Each function is applied to u = 2x - 1, so the chain rule's factor 2 is checked
    // too; the points are given as values of u inside the domain, away from poles.
    struct check {
        law_ref (*make)(const law_ref&);
        std::vector<double> u;
    };
    const check checks[] = {
        {fn<sin_law>, {-2, 0.3, 1.7}},
        {fn<cos_law>, {-2, 0.3, 1.7}},
        {fn<tan_law>, {-1.2, 0.4, 1.1}},
        {fn<cot_law>, {-2.5, 0.6, 2.0}},
        {fn<sec_law>, {-1.2, 0.4, 2.5}},
        {fn<sinh_law>, {-1.5, 0.2, 2}},
        {fn<cosh_law>, {-1.5, 0.2, 2}},
        {fn<tanh_law>, {-1.5, 0.2, 2}},
        {fn<coth_law>, {-2, 0.5, 1.5}},
        {fn<sech_law>, {-2, 0.3, 1.5}},
        {fn<csch_law>, {-2, 0.5, 1.5}},
        {fn<arcsin_law>, {-0.7, 0.1, 0.8}},
        {fn<arccos_law>, {-0.7, 0.1, 0.8}},
        {fn<arccot_law>, {-3, -0.5, 0.5, 2}},
        {fn<arcsinh_law>, {-3, 0.2, 4}},
        {fn<arccosh_law>, {1.2, 2, 5}},
        {fn<arctanh_law>, {-0.7, 0.1, 0.8}},
        {fn<arccoth_law>, {-3, 1.5, 4}},
        {fn<arccsch_law>, {-3, -0.5, 0.5, 2}},
        {fn<sqrt_law>, {0.3, 1, 4}},
        {fn<natural_log_law>, {0.3, 1, 5}},
        {fn<exp_law>, {-2, 0, 1.5}},
        {fn<abs_law>, {-2, -0.3, 0.4, 3}},
        {fn<floor_law>, {-1.5, 0.3, 2.5}},
        {fn<ceil_law>, {-1.5, 0.3, 2.5}},
        {fn<set_law>, {-1, 0.5}},
        {fn<negate_law>, {-1, 2}},
        // arcsec and arccsc: below -1, where the tree is the derivative of the value.
        {fn<arcsec_law>, {-3, -1.5}},
        {fn<arccsc_law>, {-3, -1.5}},
    };
    auto u = op<minus_law>(op<times_law>(K(2), X()), K(1));
    for (const check& c : checks) {
        law_ref f = c.make(u);
        for (double ui : c.u) expect_derivative_matches(f, {(ui + 1) / 2});
    }
    // A non-linear argument and a second derivative through the cache.
    auto s = fn<sin_law>(op<times_law>(X(), X()));
    expect_derivative_matches(s, {0.9});
    law_ref ds = law_ref::adopt(s->derivative(0));
    expect_derivative_matches(ds, {0.9});
    auto g = fn<arctanh_law>(op<times_law>(X(), Y()));
    expect_derivative_matches(g, {0.5, 0.7}, 1);
}

TEST_F(LawUnary, DeliberateDerivativeShapesAreKept) {
    // csc: the tree is -f f', so the derivative of CSC(X) at x is -x.
    auto c = fn<csc_law>(X());
    law_ref dc = law_ref::adopt(c->derivative(0));
    EXPECT_NEAR(dc->eval(0.7), -0.7, 1e-15);
    EXPECT_NEAR(dc->eval(1.3), -1.3, 1e-15);
    // arcsec and arccsc above 1: the trees are the principal functions' derivatives,
    // +-1/(x sqrt(x^2 - 1)) = +-1/(2 sqrt 3) at 2, opposite to the slope of the values.
    const double slope = 1 / (2 * std::sqrt(3.0));
    auto sec_inv = fn<arcsec_law>(X());
    law_ref dsec = law_ref::adopt(sec_inv->derivative(0));
    EXPECT_NEAR(dsec->eval(2.0), slope, 1e-15);
    EXPECT_NEAR(finite_difference(sec_inv, {2.0}, 0)[0], -slope, 1e-9);
    auto csc_inv = fn<arccsc_law>(X());
    law_ref dcsc = law_ref::adopt(csc_inv->derivative(0));
    EXPECT_NEAR(dcsc->eval(2.0), -slope, 1e-15);
    EXPECT_NEAR(finite_difference(csc_inv, {2.0}, 0)[0], slope, 1e-9);
    // arcsech: the tree is the derivative of the principal ln((1 + sqrt(1 - x^2)) / x).
    auto sech_inv = fn<arcsech_law>(X());
    law_ref dsech = law_ref::adopt(sech_inv->derivative(0));
    auto principal = [](double x) { return std::log((1 + std::sqrt(1 - x * x)) / x); };
    for (double x : {0.3, 0.6, 0.9}) {
        EXPECT_NEAR(dsech->eval(x), finite_difference(principal, x), 1e-8) << x;
        EXPECT_NEAR(dsech->eval(x), -1 / (x * std::sqrt(1 - x * x)), 1e-14) << x;
    }
}

TEST_F(LawUnary, RawDerivativeTreesKeepTheirShapeAndOrder) {
    auto x = X();
    // X' is the constant 1, so f' prints as 1 and every tree below is the class's own.
    auto raw = [&](law_ref (*make)(const law_ref&)) {
        return text(law_ref::adopt(make(x)->unsimplified_derivative(0)));
    };
    EXPECT_EQ(raw(fn<sin_law>), "COS(X)*1");
    EXPECT_EQ(raw(fn<cos_law>), "-SIN(X)*1");
    EXPECT_EQ(raw(fn<tan_law>), "SEC(X)*SEC(X)*1");
    EXPECT_EQ(raw(fn<cot_law>), "-(CSC(X)*CSC(X))*1");
    EXPECT_EQ(raw(fn<sec_law>), "SEC(X)*TAN(X)*1");
    EXPECT_EQ(raw(fn<csc_law>), "-X*1");
    EXPECT_EQ(raw(fn<sinh_law>), "COSH(X)*1");
    EXPECT_EQ(raw(fn<cosh_law>), "SINH(X)*1");
    EXPECT_EQ(raw(fn<tanh_law>), "SECH(X)*SECH(X)*1");
    EXPECT_EQ(raw(fn<coth_law>), "-(CSCH(X)*CSCH(X))*1");
    EXPECT_EQ(raw(fn<sech_law>), "-(SECH(X)*TANH(X))*1");
    EXPECT_EQ(raw(fn<csch_law>), "-(CSCH(X)*COTH(X))*1");
    EXPECT_EQ(raw(fn<arcsin_law>), "(1/SQRT(1-X*X))*1");
    EXPECT_EQ(raw(fn<arccos_law>), "-(1/SQRT(1-X*X))*1");
    EXPECT_EQ(raw(fn<arccot_law>), "-(1/(1+X*X))*1");
    EXPECT_EQ(raw(fn<arcsec_law>), "(1/(X*SQRT(X*X-1)))*1");
    EXPECT_EQ(raw(fn<arccsc_law>), "-(1/(X*SQRT(X*X-1)))*1");
    EXPECT_EQ(raw(fn<arcsinh_law>), "(1/SQRT(1+X*X))*1");
    EXPECT_EQ(raw(fn<arccosh_law>), "(1/SQRT(X*X-1))*1");
    EXPECT_EQ(raw(fn<arctanh_law>), "(1/(1-X*X))*1");
    EXPECT_EQ(raw(fn<arccoth_law>), "(1/(1-X*X))*1");
    EXPECT_EQ(raw(fn<arcsech_law>), "(-1/(X*SQRT(1-X*X)))*1");
    EXPECT_EQ(raw(fn<arccsch_law>), "(-1/(ABS(X)*SQRT(1+X*X)))*1");
    EXPECT_EQ(raw(fn<sqrt_law>), "(1/(2*SQRT(X)))*1");
    EXPECT_EQ(raw(fn<exp_law>), "EXP(X)*1");
    EXPECT_EQ(raw(fn<natural_log_law>), "1/X");
    EXPECT_EQ(raw(fn<abs_law>), "SET(X)*1-(1-SET(X))*1");
    EXPECT_EQ(raw(fn<floor_law>), "0");
    EXPECT_EQ(raw(fn<negate_law>), "-1");

    // Grouping the printer hides: tan' is (sec * sec) * f', with f' on the right.
    auto t = fn<tan_law>(op<times_law>(x, x));
    law_ref dt = law_ref::adopt(t->unsimplified_derivative(0));
    ASSERT_TRUE(dt->isa(times_law_id));
    auto* outer = static_cast<binary_law*>(dt.get());
    ASSERT_TRUE(outer->fleft()->isa(times_law_id));
    auto* squares = static_cast<binary_law*>(outer->fleft());
    EXPECT_TRUE(squares->fleft()->isa(sec_law_id));
    EXPECT_TRUE(squares->fright()->isa(sec_law_id));
    EXPECT_FALSE(outer->fright()->isa(sec_law_id));
    // csc' multiplies the negated argument itself, not a copy of it.
    auto c = fn<csc_law>(x);
    law_ref dc = law_ref::adopt(c->unsimplified_derivative(0));
    auto* neg = static_cast<binary_law*>(dc.get())->fleft();
    ASSERT_TRUE(neg->isa(negate_law_id));
    EXPECT_EQ(static_cast<unary_law*>(neg)->fsub(), x.get());
}

// ------------------------------------------------------------------ symbols and identity

TEST_F(LawUnary, SymbolsIdentitiesAndPrecedence) {
    struct row {
        law_ref (*make)(const law_ref&);
        int id;
        const char* parse;
        const char* second;
    };
    const row rows[] = {
        {fn<sin_law>, 102, "SIN", "sin"},
        {fn<cos_law>, 24, "COS", "cos"},
        {fn<tan_law>, 112, "TAN", "tan"},
        {fn<cot_law>, 26, "COT", "cot"},
        {fn<sec_law>, 98, "SEC", "sec"},
        {fn<csc_law>, 29, "CSC", "csc"},
        {fn<sinh_law>, 103, "SINH", "sinh"},
        {fn<cosh_law>, 25, "COSH", "cosh"},
        {fn<tanh_law>, 113, "TANH", "tanh"},
        {fn<coth_law>, 27, "COTH", "coth"},
        {fn<sech_law>, 99, "SECH", "sech"},
        {fn<csch_law>, 30, "CSCH", "csch"},
        {fn<arcsin_law>, 10, "ARCSIN", "arcsin"},
        {fn<arccos_law>, 2, "ARCCOS", "arccos"},
        {fn<arccot_law>, 4, "ARCCOT", "arccot"},
        {fn<arcsec_law>, 8, "ARCSEC", "arcsec"},
        {fn<arccsc_law>, 6, "ARCCSC", "arccsc"},
        {fn<arcsinh_law>, 11, "ARCSINH", "arcsinh"},
        {fn<arccosh_law>, 3, "ARCCOSH", "arccosh"},
        {fn<arctanh_law>, 13, "ARCTANH", "arctanh"},
        {fn<arccoth_law>, 5, "ARCCOTH", "arccoth"},
        {fn<arcsech_law>, 9, "ARCSECH", "arcsech"},
        {fn<arccsch_law>, 7, "ARCCSCH", "arccsch"},
        {fn<sqrt_law>, 106, "SQRT", "sqrt"},
        {fn<natural_log_law>, 80, "LN", "ln"},
        {fn<exp_law>, 50, "EXP", "exp"},
        {fn<abs_law>, 0, "ABS", "abs"},
        {fn<floor_law>, 53, "FLOOR", "floor"},
        {fn<ceil_law>, 18, "CEIL", "ceil"},
        {fn<int_law>, 59, "INT?", "int?"},
        {fn<even_law>, 49, "EVEN?", "even?"},
        {fn<odd_law>, 85, "ODD?", "odd?"},
        {fn<prime_law>, 94, "PRIME?", "prime?"},
        {fn<rand_law>, 95, "RAND", "rand"},
        {fn<not_law>, 84, "NOT", "not"},
        {fn<set_law>, 100, "SET", "no_maple"},
        {fn<norm_law>, 82, "NORM", "normalize"},
        {fn<size_law>, 104, "SIZE", "no_maple"},
        {fn<frenet_law>, 54, "FRENET", "no_maple"},
        {fn<surfnorm_law>, 109, "SURFNORM", "no_maple"},
    };
    auto x = X();
    auto y = Y();
    for (const row& r : rows) {
        law_ref l = r.make(x);
        EXPECT_EQ(l->type(), r.id) << r.parse;
        EXPECT_TRUE(l->isa(unary_law_id)) << r.parse;
        EXPECT_EQ(text(l), std::string(r.parse) + "(X)");
        EXPECT_EQ(text(l, SYMBOL_SECOND), std::string(r.second) + "(X)");
        EXPECT_EQ(l->precedence(), r.id == 84 ? 3 : 8) << r.parse;  // NOT binds loosely
        law_ref again = make_one_of(l, y.get());
        EXPECT_EQ(again->type(), r.id) << r.parse;
        EXPECT_EQ(static_cast<unary_law*>(again.get())->fsub(), y.get()) << r.parse;
    }
    TEST_clear_error();  // FRENET and SURFNORM of a scalar are reported as toxic
    auto n = fn<negate_law>(x);
    EXPECT_EQ(n->type(), 81);
    EXPECT_EQ(text(n), "-X");
    EXPECT_EQ(text(n, SYMBOL_SECOND), "-X");
    auto d = make_law<dot_law>(x.get(), y.get());
    EXPECT_EQ(d->type(), 42);
    EXPECT_EQ(text(d), "DOT(X,Y)");
    EXPECT_EQ(text(d, SYMBOL_SECOND), "dotprod(X,Y)");
    auto c = make_law<cross_law>(x.get(), y.get());
    EXPECT_EQ(c->type(), 28);
    EXPECT_TRUE(c->isa(multiple_law_id));
    EXPECT_EQ(text(c), "CROSS(X,Y)");
    EXPECT_EQ(text(c, SYMBOL_SECOND), "crossprod(X,Y)");
    EXPECT_EQ(static_cast<multiple_law*>(d.get())->commutative(), 1);
    EXPECT_EQ(static_cast<multiple_law*>(c.get())->commutative(), 0);
}

// ------------------------------------------------------------------ vector laws

// (cos t, sin t, t): principal normal (-cos t, -sin t, 0).
law_ref helix() {
    auto t = X();
    return vec({fn<cos_law>(t), fn<sin_law>(t), t});
}

// (cos u cos v, sin u cos v, sin v): the outward unit normal is the point itself.
law_ref sphere() {
    auto u = U(), v = V();
    auto cv = fn<cos_law>(v);
    return vec(
        {op<times_law>(fn<cos_law>(u), cv), op<times_law>(fn<sin_law>(u), cv), fn<sin_law>(v)});
}

TEST_F(LawUnary, SizeAndNormValues) {
    auto v = vec({K(3), K(4), K(12)});
    auto size = fn<size_law>(v);
    EXPECT_EQ(size->return_dim(), 1);
    EXPECT_EQ(size->eval(0.0), 13.0);
    EXPECT_EQ(fn<size_law>(X())->eval(-2.0), 2.0);
    EXPECT_NEAR(fn<size_law>(vec({X(), op<times_law>(K(2), X())}))->eval(1.0), std::sqrt(5.0),
                1e-15);
    // Five components: the temporary lives on the heap and is given back.
    EXPECT_NEAR(fn<size_law>(vec({K(1), K(1), K(1), K(1), K(1)}))->eval(0.0), std::sqrt(5.0),
                1e-15);
    auto norm = fn<norm_law>(v);
    EXPECT_EQ(norm->return_dim(), 3);
    expect_vector_near(values(norm, {}), {3.0 / 13, 4.0 / 13, 12.0 / 13}, 1e-16);
    // The zero vector stays the zero vector; a scalar normalises to its sign.
    EXPECT_EQ(values(fn<norm_law>(vec({K(0), K(0), K(0)})), {}), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(fn<norm_law>(X())->eval(-2.0), -1.0);
    EXPECT_EQ(fn<norm_law>(X())->eval(0.0), 0.0);
    EXPECT_EQ(fn<norm_law>(vec({X(), Y()}))->take_dim(), 2);
}

TEST_F(LawUnary, FrenetAndSurfaceNormalValues) {
    auto frenet = fn<frenet_law>(helix());
    EXPECT_EQ(frenet->return_dim(), 3);
    EXPECT_EQ(frenet->take_dim(), 1);
    for (double t : {0.0, 0.7, 2.5})
        expect_vector_near(values(frenet, {t}), {-std::cos(t), -std::sin(t), 0.0}, 1e-14);
    // (t, t^2, 0) at t = 1: f' = (1, 2, 0), f'' = (0, 2, 0), (f' x f'') x f' = (-4, 2, 0).
    auto parabola = vec({X(), op<times_law>(X(), X()), K(0)});
    auto pn = fn<frenet_law>(parabola);
    expect_vector_near(values(pn, {1.0}), {-2 / std::sqrt(5.0), 1 / std::sqrt(5.0), 0.0}, 1e-14);
    expect_vector_near(values(pn, {0.0}), {0.0, 1.0, 0.0}, 1e-14);
    // A straight line has no principal normal: the zero vector.
    auto line = vec({X(), op<times_law>(K(2), X()), op<times_law>(K(3), X())});
    EXPECT_EQ(values(fn<frenet_law>(line), {0.5}), (std::vector<double>{0, 0, 0}));
    // Also where rounding leaves a tiny f' x f'' on a line written non-linearly.
    law_ref bent = law_ref::adopt(str_to_law("FRENET(VEC(SIN(X)/3,SIN(X)*0.7,SIN(X)*1.3))"));
    for (double t : {0.3, 0.7, 1.1, 2.2})
        EXPECT_EQ(values(bent, {t}), (std::vector<double>{0, 0, 0})) << t;

    auto plane = fn<surfnorm_law>(vec({U(), V(), K(0)}));
    EXPECT_EQ(plane->return_dim(), 3);
    EXPECT_EQ(values(plane, {0.3, -2.0}), (std::vector<double>{0, 0, 1}));
    EXPECT_EQ(values(fn<surfnorm_law>(vec({V(), U(), K(0)})), {0.3, -2.0}),
              (std::vector<double>{0, 0, -1}));
    auto s = fn<surfnorm_law>(sphere());
    for (auto [u, v] : {std::pair{0.4, 0.3}, std::pair{2.0, -1.1}}) {
        expect_vector_near(values(s, {u, v}),
                           {std::cos(u) * std::cos(v), std::sin(u) * std::cos(v), std::sin(v)},
                           1e-14);
    }
}

TEST_F(LawUnary, VectorLawDerivativesAgreeComponentByComponent) {
    auto x = X(), y = Y();
    auto curve = vec({x, op<times_law>(x, x), K(1)});
    expect_derivative_matches(fn<size_law>(curve), {0.7});
    expect_derivative_matches(fn<size_law>(x), {-1.5});
    expect_derivative_matches(fn<norm_law>(curve), {0.7});
    expect_derivative_matches(fn<norm_law>(curve), {-1.3});
    auto mixed = vec({fn<sin_law>(x), op<times_law>(fn<cos_law>(x), y), y});
    expect_derivative_matches(fn<norm_law>(mixed), {0.5, 2.0}, 0);
    expect_derivative_matches(fn<norm_law>(mixed), {0.5, 2.0}, 1);
    // The helix's normal (-cos t, -sin t, 0) turns at (sin t, -cos t, 0).
    auto frenet = fn<frenet_law>(helix());
    law_ref df = law_ref::adopt(frenet->derivative(0));
    for (double t : {0.3, 2.0}) {
        expect_vector_near(values(df, {t}), {std::sin(t), -std::cos(t), 0.0}, 1e-14);
        expect_derivative_matches(frenet, {t});
    }
    expect_derivative_matches(fn<frenet_law>(vec({x, op<times_law>(x, x), K(0)})), {0.5});
    // The sphere's normal is the point: its u-derivative is (-sin u cos v, cos u cos v, 0).
    auto s = fn<surfnorm_law>(sphere());
    law_ref ds = law_ref::adopt(s->derivative(0));
    expect_vector_near(values(ds, {0.4, 0.3}),
                       {-std::sin(0.4) * std::cos(0.3), std::cos(0.4) * std::cos(0.3), 0.0}, 1e-14);
    expect_derivative_matches(s, {0.4, 0.3}, 0);
    expect_derivative_matches(s, {0.4, 0.3}, 1);
}

TEST_F(LawUnary, PartChecksReportToxicLawsAndStillBuild) {
    auto x = X();
    auto pair = vec({x, Y()});
    auto abs_proto = fn<abs_law>(x);
    EXPECT_FALSE(toxic_reported());
    EXPECT_TRUE(make_one_of(abs_proto, x.get()));
    EXPECT_FALSE(toxic_reported());
    law_ref bad_abs = make_one_of(abs_proto, pair.get());
    EXPECT_TRUE(toxic_reported());
    ASSERT_TRUE(bad_abs);
    EXPECT_EQ(bad_abs->type(), abs_law_id);  // built all the same
    // The constructors themselves do not check.
    EXPECT_TRUE(fn<abs_law>(pair));
    EXPECT_FALSE(toxic_reported());

    auto curve = helix();
    auto frenet_proto = fn<frenet_law>(curve);
    EXPECT_TRUE(make_one_of(frenet_proto, curve.get()));
    EXPECT_FALSE(toxic_reported());
    EXPECT_TRUE(make_one_of(frenet_proto, x.get()));
    EXPECT_TRUE(toxic_reported());

    auto surface = sphere();
    auto surf_proto = fn<surfnorm_law>(surface);
    EXPECT_TRUE(make_one_of(surf_proto, surface.get()));
    EXPECT_FALSE(toxic_reported());
    auto three_inputs = vec({x, Y(), make_law<identity_law>(2, 'Z')});
    for (law* sub : {static_cast<law*>(nullptr), three_inputs.get(), pair.get()}) {
        EXPECT_TRUE(make_one_of(surf_proto, sub));
        EXPECT_TRUE(toxic_reported());
    }
    // Under the restore waiver nothing is reported.
    restore_waiver waiver;
    EXPECT_TRUE(make_one_of(abs_proto, pair.get()));
    EXPECT_TRUE(make_one_of(frenet_proto, x.get()));
    EXPECT_TRUE(make_one_of(surf_proto, nullptr));
    EXPECT_FALSE(toxic_reported());
}

// ------------------------------------------------------------------ dot and cross

// A 3-vector law (x, 2, 3) that counts its evaluations.
struct counting_vector : law {
    mutable int calls = 0;
    const char* class_name() const override { return "counting_vector"; }
    void evaluate(const double* x, double* answer) const override {
        ++calls;
        answer[0] = x[0];
        answer[1] = 2;
        answer[2] = 3;
    }

  protected:
    int return_size() const override { return 3; }
};

TEST_F(LawUnary, DotAndCrossValues) {
    auto a = vec({K(1), K(2), K(3)});
    auto b = vec({K(4), K(5), K(6)});
    auto dot = [](const law_ref& l, const law_ref& r) {
        return make_law<dot_law>(l.get(), r.get());
    };
    auto cross = [](const law_ref& l, const law_ref& r) {
        return make_law<cross_law>(l.get(), r.get());
    };
    EXPECT_EQ(dot(a, b)->return_dim(), 1);
    EXPECT_EQ(dot(a, b)->eval(0.0), 32.0);
    // A missing component counts as 0.
    EXPECT_EQ(dot(a, vec({K(4), K(5)}))->eval(0.0), 14.0);
    EXPECT_EQ(dot(vec({K(4), K(5)}), a)->eval(0.0), 14.0);
    // A scalar meets the first component only: 2 * 3, not 2 * (3 + 4 + 5).
    auto c = vec({K(3), K(4), K(5)});
    EXPECT_EQ(dot(K(2), c)->eval(0.0), 6.0);
    EXPECT_EQ(dot(c, K(2))->eval(0.0), 6.0);
    auto xy = dot(X(), Y());
    EXPECT_EQ(xy->take_dim(), 2);
    EXPECT_EQ(values(xy, {3.0, -2.0})[0], -6.0);
    // Five components on both sides go through heap temporaries.
    auto five = vec({K(1), K(2), K(3), K(4), K(5)});
    EXPECT_EQ(dot(five, five)->eval(0.0), 55.0);
    EXPECT_EQ(dot(five, vec({K(1), K(1), K(1), K(1), K(1)}))->eval(0.0), 15.0);

    auto ab = cross(a, b);
    EXPECT_EQ(ab->return_dim(), 3);
    EXPECT_EQ(values(ab, {}), (std::vector<double>{-3, 6, -3}));
    EXPECT_EQ(values(cross(vec({K(1), K(0), K(0)}), vec({K(0), K(1), K(0)})), {}),
              (std::vector<double>{0, 0, 1}));
    EXPECT_EQ(values(cross(b, a), {}), (std::vector<double>{3, -6, 3}));

    // One object on both sides: the dot product evaluates it once and sums squares; the
    // cross product is 0 without evaluating it at all.
    auto* counted = new counting_vector;
    law_ref held = law_ref::adopt(counted);
    EXPECT_EQ(dot(held, held)->eval(1.0), 14.0);
    EXPECT_EQ(counted->calls, 1);
    counted->calls = 0;
    EXPECT_EQ(values(cross(held, held), {1.0}), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(counted->calls, 0);
}

TEST_F(LawUnary, DotAndCrossDerivatives) {
    auto x = X(), y = Y();
    auto l = vec({x, op<times_law>(x, x), K(1)});
    auto r = vec({fn<sin_law>(x), y, x});
    auto dot = make_law<dot_law>(l.get(), r.get());
    expect_derivative_matches(dot, {0.7, 1.5}, 0);
    expect_derivative_matches(dot, {0.7, 1.5}, 1);
    auto cross = make_law<cross_law>(l.get(), r.get());
    expect_derivative_matches(cross, {0.7, 1.5}, 0);
    expect_derivative_matches(cross, {-0.4, 2.0}, 1);
    // (L.R)' = L'.R + L.R' before any simplification.
    auto xy = make_law<dot_law>(x.get(), y.get());
    EXPECT_EQ(text(law_ref::adopt(xy->unsimplified_derivative(0))), "DOT(1,Y)+DOT(X,0)");
    auto xyc = make_law<cross_law>(x.get(), y.get());
    EXPECT_EQ(text(law_ref::adopt(xyc->unsimplified_derivative(1))), "CROSS(0,Y)+CROSS(X,1)");
}

TEST_F(LawUnary, DotAndCrossRejectWrongCounts) {
    auto x = X(), y = Y(), z = K(3);
    auto dot_proto = make_law<dot_law>(x.get(), y.get());
    auto cross_proto = make_law<cross_law>(x.get(), y.get());
    EXPECT_EQ(make_one_parts(dot_proto, {y.get(), x.get()})->type(), dot_law_id);
    EXPECT_EQ(make_one_parts(cross_proto, {y.get(), x.get()})->type(), cross_law_id);
    EXPECT_FALSE(toxic_reported());
    // A wrong count is toxic and then an error; nothing built is left behind.
    EXPECT_LAW_ERROR(make_one_parts(dot_proto, {x.get(), y.get(), z.get()}), LAW_DOT_NUM);
    EXPECT_TRUE(toxic_reported());
    EXPECT_LAW_ERROR(make_one_parts(dot_proto, {x.get()}), LAW_DOT_NUM);
    EXPECT_TRUE(toxic_reported());
    EXPECT_LAW_ERROR(make_one_parts(cross_proto, {x.get(), y.get(), z.get()}), LAW_CROSS_NUM);
    EXPECT_TRUE(toxic_reported());
    EXPECT_LAW_ERROR(make_one_parts(cross_proto, std::vector<law*>{}), LAW_CROSS_NUM);
    EXPECT_TRUE(toxic_reported());
    // A missing part is toxic, the law is built, and evaluating it is an error.
    law_ref half = make_one_parts(cross_proto, {x.get(), nullptr});
    EXPECT_TRUE(toxic_reported());
    double out[3];
    EXPECT_LAW_ERROR(half->evaluate(nullptr, out), LAW_EVAL);
    law_ref half_dot = make_one_parts(dot_proto, {nullptr, y.get()});
    EXPECT_TRUE(toxic_reported());
    EXPECT_LAW_ERROR(half_dot->eval(1.0), LAW_EVAL);
    // The part check of a cross product, and the waiver that silences it.
    std::vector<law*> three = {x.get(), y.get(), z.get()};
    EXPECT_EQ(cross_law::check(three.data(), 2), 1);
    EXPECT_EQ(cross_law::check(three.data(), 3), 0);
    EXPECT_TRUE(toxic_reported());
    restore_waiver waiver;
    EXPECT_EQ(cross_law::check(three.data(), 3), 1);
    EXPECT_FALSE(toxic_reported());
}

// ------------------------------------------------------------------ class rules

TEST_F(LawUnary, ClassRulesFireByNameAndKeepTheValue) {
    auto x = X();
    const char* name = "none";
    auto rewrite = [&](const law_ref& l) {
        name = "none";
        return law_ref::adopt(l->sub_simplify(0, QEM::optional<const char*&>(name)));
    };
    auto same_values = [](const law_ref& a, const law_ref& b, std::vector<double> points) {
        for (double p : points) EXPECT_NEAR(a->eval(p), b->eval(p), 1e-15) << p;
    };

    auto neg = fn<negate_law>(op<plus_law>(x, K(1)));
    law_ref times = rewrite(neg);
    ASSERT_TRUE(times);
    EXPECT_STREQ(name, "-(A)=(-1)*A");
    EXPECT_EQ(text(times), "-1*(X+1)");
    same_values(neg, times, {-2.0, 0.5, 3.0});
    auto neg_vec = fn<negate_law>(vec({x, K(2), K(-3)}));
    EXPECT_EQ(values(rewrite(neg_vec), {1.5}), values(neg_vec, {1.5}));
    // Without a name to report the rule still fires.
    EXPECT_TRUE(law_ref::adopt(neg->sub_simplify(0, QEM::optional<const char*&>())));

    auto sin_neg = fn<sin_law>(op<times_law>(K(-2), x));
    law_ref sin_pos = rewrite(sin_neg);
    ASSERT_TRUE(sin_pos);
    EXPECT_STREQ(name, "sin(-CA)=-sin(CA)");
    EXPECT_EQ(text(sin_pos), "-SIN(2*X)");
    same_values(sin_neg, sin_pos, {-1.0, 0.3, 2.0});
    // Only a negative constant on the left of a product matches.
    for (const law_ref& sub : {op<times_law>(K(2), x), op<times_law>(x, K(-2)), X(),
                               op<plus_law>(K(-2), x), op<times_law>(K(0), x)}) {
        EXPECT_FALSE(rewrite(fn<sin_law>(sub))) << text(sub);
        EXPECT_FALSE(rewrite(fn<cos_law>(sub))) << text(sub);
        EXPECT_STREQ(name, "none");
    }

    auto cos_neg = fn<cos_law>(op<times_law>(K(-3), x));
    law_ref cos_pos = rewrite(cos_neg);
    ASSERT_TRUE(cos_pos);
    EXPECT_STREQ(name, "cos(-CA)=cos(CA)");
    EXPECT_EQ(text(cos_pos), "COS(3*X)");
    same_values(cos_neg, cos_pos, {-1.0, 0.3, 2.0});

    auto root = fn<sqrt_law>(op<plus_law>(x, K(1)));
    law_ref power = rewrite(root);
    ASSERT_TRUE(power);
    EXPECT_STREQ(name, "sqrt(x)=x^.5");
    EXPECT_EQ(text(power), "(X+1)^0.5");
    same_values(root, power, {0.0, 1.25, 3.0});

    // Classes without rules of their own rewrite nothing.
    EXPECT_FALSE(rewrite(fn<tan_law>(op<times_law>(K(-2), x))));
}

}  // namespace
