#include <cmath>
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

// A new law of the class of `proto` over `sub`, built by make_one.
law_ref make_one_of(const law_ref& proto, law* sub) {
    return law_ref::adopt(static_cast<const unary_law*>(proto.get())->make_one(sub));
}

// ------------------------------------------------------------------ values and domains

using maker = law_ref (*)(const law_ref&);

TEST_F(LawUnary, ValuesAtKnownPoints) {
    // At ln 2, e^x = 2 and e^-x = 1/2, so every hyperbolic value is a simple fraction.
    const struct {
        maker f;
        double x, want;
    } cases[] = {
        // clang-format off
        {fn<sin_law>, pi / 6, 0.5}, {fn<cos_law>, pi / 3, 0.5}, {fn<tan_law>, -pi / 4, -1},
        {fn<cot_law>, 3 * pi / 4, -1}, {fn<sec_law>, pi, -1}, {fn<csc_law>, pi / 6, 2},
        {fn<sinh_law>, ln2, 0.75}, {fn<cosh_law>, ln2, 1.25}, {fn<tanh_law>, ln2, 0.6},
        {fn<coth_law>, ln2, 5.0 / 3}, {fn<sech_law>, ln2, 0.8}, {fn<csch_law>, -ln2, -4.0 / 3},
        {fn<arcsin_law>, 0.5, pi / 6}, {fn<arccos_law>, 0.5, pi / 3},
        // arccot adds pi to atan(1/x) for every x != 0; arcsec is the negated principal
        // arccos(1/x); arccsc is -pi minus the principal arcsin(1/x).  All kept on purpose.
        {fn<arccot_law>, 0, pi / 2}, {fn<arccot_law>, 1, 5 * pi / 4},
        {fn<arccot_law>, -1, 3 * pi / 4},
        {fn<arcsec_law>, 2, -pi / 3}, {fn<arcsec_law>, -2, -2 * pi / 3}, {fn<arcsec_law>, -1, -pi},
        {fn<arccsc_law>, 2, -7 * pi / 6}, {fn<arccsc_law>, -2, -5 * pi / 6},
        {fn<arcsinh_law>, -0.75, -ln2}, {fn<arccosh_law>, 1.25, ln2}, {fn<arctanh_law>, 0.6, ln2},
        {fn<arccoth_law>, -5.0 / 3, -ln2}, {fn<arccsch_law>, 4.0 / 3, ln2},
        // arcsech divides the logarithm by x: ln(1.6) / 0.8 where the principal is ln 2.
        {fn<arcsech_law>, 0.8, std::log(1.6) / 0.8}, {fn<arcsech_law>, 1, 0},
        // Far from 0, where the textbook formulas cancel or overflow; arccsch(-1e-6) is
        // -ln(1e6 + sqrt(1e12 + 1)) = -ln(2e6) - 2.5e-13.
        {fn<arcsinh_law>, -1e8, -std::log(2e8)},
        {fn<arccsch_law>, -1e-6, -std::log(2e6) - 2.5e-13},
        {fn<sech_law>, 300, 0}, {fn<csch_law>, -1e300, 0},
        // Rounding noise just past the end of a domain takes the end value.
        {fn<arcsin_law>, -1 - resmch / 2, -pi / 2}, {fn<arccos_law>, -1 - resmch / 2, pi},
        {fn<sqrt_law>, -resmch / 2, 0},
        {fn<sqrt_law>, 2.25, 1.5}, {fn<natural_log_law>, 8, 3 * ln2}, {fn<exp_law>, ln2, 2},
        {fn<abs_law>, -2.5, 2.5}, {fn<floor_law>, -1.5, -2}, {fn<ceil_law>, -1.5, -1},
        {fn<set_law>, 0.5, 1}, {fn<set_law>, 0, 0}, {fn<set_law>, -1, 0}};
    // clang-format on
    for (const auto& c : cases) {
        law_ref l = c.f(X());
        EXPECT_NEAR(l->eval(c.x), c.want, 4e-15 * (1 + std::fabs(c.want)))
            << text(l) << " at " << c.x;
    }
    // Inside the band below 1 arccosh is 0 to rounding, not NaN.
    EXPECT_NEAR(at<arccosh_law>(1 - resmch / 2), 0.0, 1e-11);
    // Just outside the band around a pole the values are large and finite.
    EXPECT_NEAR(at<tan_law>(pi / 2 - 1e-6), 1e6, 1e-3);
    EXPECT_GT(std::fabs(at<tan_law>(pi / 2 + 3e-11)), 1e10);
    // A scalar function of a vector law reads its first component; the law keeps the
    // vector's dimension and its other components are 0.
    auto v = fn<sqrt_law>(vec({X(), K(9), K(16)}));
    EXPECT_EQ(values(v, {4.0}), (std::vector<double>{2, 0, 0}));
}

TEST_F(LawUnary, PolesAndDomainsRaiseTheirOwnCodes) {
    // Poles: tan and sec at pi/2 + k pi, cot and csc at k pi, within resmch.
    for (double x : {pi / 2, -pi / 2, 3 * pi / 2, pi / 2 + 5e-12}) {
        EXPECT_LAW_ERROR(at<tan_law>(x), LAW_TAN);
        EXPECT_LAW_ERROR(at<sec_law>(x), LAW_SEC);
    }
    for (double x : {0.0, pi, -2 * pi, 5e-12}) {
        EXPECT_LAW_ERROR(at<cot_law>(x), LAW_COT);
        EXPECT_LAW_ERROR(at<csc_law>(x), LAW_CSC);
    }
    const struct {
        maker f;
        double x;
        err_mess_type code;
    } cases[] = {// clang-format off
        {fn<coth_law>, 0, LAW_COTH}, {fn<csch_law>, 1e-12, LAW_CSCH},
        {fn<arcsin_law>, 1.1, LAW_ARCSIN},
        {fn<arcsin_law>, -1 - 2 * resmch, LAW_ARCSIN}, {fn<arccos_law>, -1.1, LAW_ARCCOS},
        {fn<arcsec_law>, 0.5, LAW_ARCSEC}, {fn<arcsec_law>, -0.999, LAW_ARCSEC},
        {fn<arccsc_law>, 0, LAW_ARCCSC}, {fn<arccosh_law>, 1 - 2 * resmch, LAW_ARCCOSH},
        {fn<arctanh_law>, -1, LAW_ARCTANH}, {fn<arctanh_law>, 1 - resmch / 2, LAW_ARCTANH},
        {fn<arccoth_law>, 0.5, LAW_ARCCOTH}, {fn<arccoth_law>, 1, LAW_ARCCOTH},
        {fn<arcsech_law>, -0.5, LAW_ARCSECH}, {fn<arcsech_law>, 1.5, LAW_ARCSECH},
        {fn<arccsch_law>, 1e-11, LAW_ARCCSCH}, {fn<sqrt_law>, -resmch, LAW_SQRT},
        {fn<natural_log_law>, 0, LAW_LN}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(text(c.f(X())) + " at " + std::to_string(c.x));
        EXPECT_LAW_ERROR(c.f(X())->eval(c.x), c.code);
    }
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
    for (double x : {0.0, -0.0}) EXPECT_EQ(at<not_law>(x), 1.0);
    for (double x : {2.0, 1e-300}) EXPECT_EQ(at<not_law>(x), 0.0);
}

// ------------------------------------------------------------------ derivatives

TEST_F(LawUnary, DerivativesAgreeWithFiniteDifferences) {
    // Each function is applied to u = 2x - 1, so the chain rule's factor 2 is checked
    // too; the points are given as values of u inside the domain, away from poles.
    struct check {
        maker make;
        std::vector<double> u;
    };
    const check checks[] = {
        // clang-format off
        {fn<sin_law>, {-2, 0.3, 1.7}}, {fn<cos_law>, {-2, 0.3, 1.7}},
        {fn<tan_law>, {-1.2, 0.4, 1.1}},
        {fn<cot_law>, {-2.5, 0.6, 2.0}}, {fn<sec_law>, {-1.2, 0.4, 2.5}},
        {fn<sinh_law>, {-1.5, 0.2, 2}},
        {fn<cosh_law>, {-1.5, 0.2, 2}}, {fn<tanh_law>, {-1.5, 0.2, 2}},
        {fn<coth_law>, {-2, 0.5, 1.5}},
        {fn<sech_law>, {-2, 0.3, 1.5}}, {fn<csch_law>, {-2, 0.5, 1.5}},
        {fn<arcsin_law>, {-0.7, 0.1, 0.8}},
        {fn<arccos_law>, {-0.7, 0.1, 0.8}}, {fn<arccot_law>, {-3, -0.5, 0.5, 2}},
        {fn<arcsinh_law>, {-3, 0.2, 4}}, {fn<arccosh_law>, {1.2, 2, 5}},
        {fn<arctanh_law>, {-0.7, 0.1, 0.8}}, {fn<arccoth_law>, {-3, 1.5, 4}},
        {fn<arccsch_law>, {-3, -0.5, 0.5, 2}}, {fn<sqrt_law>, {0.3, 1, 4}},
        {fn<natural_log_law>, {0.3, 1, 5}}, {fn<exp_law>, {-2, 0, 1.5}},
        {fn<abs_law>, {-2, -0.3, 0.4, 3}}, {fn<floor_law>, {-1.5, 0.3, 2.5}},
        {fn<ceil_law>, {-1.5, 0.3, 2.5}}, {fn<set_law>, {-1, 0.5}}, {fn<negate_law>, {-1, 2}},
        // arcsec and arccsc: below -1, where the tree is the derivative of the value.
        {fn<arcsec_law>, {-3, -1.5}}, {fn<arccsc_law>, {-3, -1.5}}};
    // clang-format on
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
    for (double x : {0.3, 0.6, 0.9})
        EXPECT_NEAR(dsech->eval(x), -1 / (x * std::sqrt(1 - x * x)), 1e-14) << x;
}

TEST_F(LawUnary, RawDerivativeTreesKeepTheirShape) {
    auto x = X();
    // tan' is (sec * sec) * f', with f' on the right: a grouping the printer hides.
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
    law_ref dc = law_ref::adopt(fn<csc_law>(x)->unsimplified_derivative(0));
    auto* neg = static_cast<binary_law*>(dc.get())->fleft();
    ASSERT_TRUE(neg->isa(negate_law_id));
    EXPECT_EQ(static_cast<unary_law*>(neg)->fsub(), x.get());
    // Classes without a derivative: the raw tree is null and derivative() raises.
    EXPECT_EQ(fn<prime_law>(x)->unsimplified_derivative(0), nullptr);
    const maker no_derivative[] = {fn<prime_law>, fn<rand_law>, fn<not_law>};
    for (maker f : no_derivative) EXPECT_LAW_ERROR(law::remove(f(x)->derivative(0)), LAW_DERIV);
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
    EXPECT_EQ(size->eval(0.0), 13.0);
    EXPECT_EQ(fn<size_law>(X())->eval(-2.0), 2.0);
    // Five components: the temporary lives on the heap and is given back.
    EXPECT_NEAR(fn<size_law>(vec({K(1), K(1), K(1), K(1), K(1)}))->eval(0.0), std::sqrt(5.0),
                1e-15);
    auto norm = fn<norm_law>(v);
    expect_vector_near(values(norm, {}), {3.0 / 13, 4.0 / 13, 12.0 / 13}, 1e-16);
    // The zero vector stays the zero vector; a scalar normalises to its sign.
    EXPECT_EQ(values(fn<norm_law>(vec({K(0), K(0), K(0)})), {}), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(fn<norm_law>(X())->eval(-2.0), -1.0);
}

TEST_F(LawUnary, FrenetAndSurfaceNormalValues) {
    auto frenet = fn<frenet_law>(helix());
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
    expect_derivative_matches(fn<norm_law>(curve), {0.7});
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
    // The sphere's normal is the point: its u-derivative is (-sin u cos v, cos u cos v, 0).
    auto s = fn<surfnorm_law>(sphere());
    law_ref ds = law_ref::adopt(s->derivative(0));
    expect_vector_near(values(ds, {0.4, 0.3}),
                       {-std::sin(0.4) * std::cos(0.3), std::cos(0.4) * std::cos(0.3), 0.0}, 1e-14);
    expect_derivative_matches(s, {0.4, 0.3}, 0);
    expect_derivative_matches(s, {0.4, 0.3}, 1);
}

TEST_F(LawUnary, PartChecksReportToxicLawsAndStillBuild) {
    auto x = X(), pair = vec({x, Y()}), curve = helix(), surface = sphere();
    auto three_inputs = vec({x, Y(), make_law<identity_law>(2, 'Z')});
    const struct {
        law_ref proto;
        law* sub;
        bool toxic;
    } cases[] = {{fn<abs_law>(x), x.get(), false},
                 {fn<abs_law>(x), pair.get(), true},
                 {fn<frenet_law>(curve), curve.get(), false},
                 {fn<frenet_law>(curve), x.get(), true},
                 {fn<surfnorm_law>(surface), surface.get(), false},
                 {fn<surfnorm_law>(surface), nullptr, true},
                 {fn<surfnorm_law>(surface), three_inputs.get(), true},
                 {fn<surfnorm_law>(surface), pair.get(), true}};
    EXPECT_FALSE(reported_toxic());  // the constructors themselves do not check
    for (const auto& c : cases) {
        SCOPED_TRACE(text(c.proto));
        law_ref made = make_one_of(c.proto, c.sub);
        ASSERT_TRUE(made);  // built all the same
        EXPECT_EQ(made->type(), c.proto->type());
        EXPECT_EQ(reported_toxic(), c.toxic);
        restore_waiver waiver;
        law_ref waived = make_one_of(c.proto, c.sub);
        EXPECT_FALSE(reported_toxic());
    }
}

// ------------------------------------------------------------------ class rules

TEST_F(LawUnary, ClassRulesFireByNameAndKeepTheValue) {
    auto x = X();
    const char* name = "none";
    auto rewrite = [&](const law_ref& l) {
        name = "none";
        return law_ref::adopt(l->sub_simplify(0, QEM::optional<const char*&>(name)));
    };
    const struct {
        law_ref l;
        const char* rule;
        const char* result;
    } cases[] = {{fn<negate_law>(op<plus_law>(x, K(1))), "-(A)=(-1)*A", "-1*(X+1)"},
                 {fn<sin_law>(op<times_law>(K(-2), x)), "sin(-CA)=-sin(CA)", "-SIN(2*X)"},
                 {fn<cos_law>(op<times_law>(K(-3), x)), "cos(-CA)=cos(CA)", "COS(3*X)"},
                 {fn<sqrt_law>(op<plus_law>(x, K(1))), "sqrt(x)=x^.5", "(X+1)^0.5"}};
    for (const auto& c : cases) {
        law_ref r = rewrite(c.l);
        ASSERT_TRUE(r) << c.rule;
        EXPECT_STREQ(name, c.rule);
        EXPECT_EQ(text(r), c.result);
        for (double p : {0.0, 0.3, 1.25, 3.0}) EXPECT_NEAR(r->eval(p), c.l->eval(p), 1e-15) << p;
    }
    auto neg_vec = fn<negate_law>(vec({x, K(2), K(-3)}));
    EXPECT_EQ(values(rewrite(neg_vec), {1.5}), values(neg_vec, {1.5}));
    // Without a name to report the rule still fires.
    EXPECT_TRUE(law_ref::adopt(cases[0].l->sub_simplify(0, QEM::optional<const char*&>())));
    // Only a negative constant on the left of a product matches.
    for (const law_ref& sub : {op<times_law>(K(2), x), op<times_law>(x, K(-2)), X(),
                               op<plus_law>(K(-2), x), op<times_law>(K(0), x)}) {
        EXPECT_FALSE(rewrite(fn<sin_law>(sub))) << text(sub);
        EXPECT_FALSE(rewrite(fn<cos_law>(sub))) << text(sub);
        EXPECT_STREQ(name, "none");
    }
    // Classes without rules of their own rewrite nothing.
    EXPECT_FALSE(rewrite(fn<tan_law>(op<times_law>(K(-2), x))));
}

}  // namespace
