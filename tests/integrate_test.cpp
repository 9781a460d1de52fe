#include <cmath>
#include <numbers>

#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class Integrate : public leak_checked {};

law_ref parse(const char* text) {
    return law_ref::adopt(str_to_law(text));
}

double integral(const char* text, double a, double b, int* levels = nullptr) {
    double v = NAN;
    const int r = Nintegrate(parse(text).get(), a, b, &v, 1e-12, 3, 22);
    if (levels) *levels = r;
    return v;
}

}  // namespace

TEST_F(Integrate, ClosedFormsAndRombergContract) {
    EXPECT_NEAR(integral("EXP(X)", 0, 1), std::numbers::e - 1, 1e-12);
    EXPECT_NEAR(integral("1/(1+X^2)", 0, 1), std::numbers::pi / 4, 1e-12);
    // Reversing the bounds changes the sign; integrals add over adjacent pieces.
    EXPECT_NEAR(integral("COS(X)", 2, 0), -std::sin(2.0), 1e-12);
    EXPECT_NEAR(integral("COS(X)", 0, 0.5) + integral("COS(X)", 0.5, 2), std::sin(2.0), 1e-12);

    // Simpson's row is exact on a cubic, so the next row changes nothing: 4 levels.
    // Each level evaluates only its new midpoints: 2 + 1 + 2.
    int levels = 0;
    const long before = lawutil_context()->numeric_evaluations;
    EXPECT_NEAR(integral("X^3-2*X+1", 0, 2, &levels), 2.0, 1e-13);
    EXPECT_EQ(levels, 4);
    EXPECT_EQ(lawutil_context()->numeric_evaluations - before, 5);
    EXPECT_EQ(integral("EXP(X)", 1, 1, &levels), 0.0);

    // Reaching max_level reports 0 with the best estimate kept (SQRT converges slowly).
    double v = 0;
    EXPECT_EQ(Nintegrate(parse("SQRT(X)").get(), 0, 1, &v, 1e-12, 3, 6), 0);
    EXPECT_NEAR(v, 2.0 / 3, 2e-3);
    EXPECT_EQ(Nintegrate(parse("X").get(), 0, 1, &v, 1e-12, 8, 5), 0);
    EXPECT_EQ(Nintegrate(parse("X").get(), 0, 1, &v, 1e-12, 3, -4), 0);
    EXPECT_NEAR(v, 0.5, 1e-15);

    EXPECT_LAW_ERROR(Nintegrate(nullptr, 0, 1, &v), LAW_DIM);
    EXPECT_LAW_ERROR(Nintegrate(parse("X").get(), 0, NAN, &v), LAW_BAD_BOUNDS);
    EXPECT_LAW_ERROR(Nintegrate(parse("LN(X)").get(), -1, 1, &v), LAW_LN);
}

TEST_F(Integrate, OverOneVariableAndAcrossSplits) {
    double x[2] = {0, 3}, v = 0;
    EXPECT_GT(Nintegrate_wrt(parse("X*Y^2").get(), 0, 2, 0, x, &v), 0);
    EXPECT_NEAR(v, 18.0, 1e-10);  // y^2 * x^2 / 2
    // A kink at the split point is integrated exactly piece by piece.
    double split[] = {0.5};
    EXPECT_GT(Nintegrate_wrt_and_split(parse("ABS(X-0.5)").get(), 0, 2, 0, x, &v, 1, split), 0);
    EXPECT_NEAR(v, 0.125 + 1.125, 1e-10);
}

// Analytic derivatives of SIN at 0.7; the tolerance grows with the order as rounding
// (about 1e-16 / h^order with h = 1e-4) takes over from the truncation error.
TEST_F(Integrate, FiniteDifferencesMatchAnalyticDerivatives) {
    const law_ref s = parse("SIN(X)");
    const double x = 0.7;
    const double want[] = {std::sin(x), std::cos(x), -std::sin(x), -std::cos(x)};
    const double tol[] = {0, 1e-11, 1e-7, 5e-3};
    for (int order = 0; order < 4; ++order) {
        double d = NAN, one_sided = NAN;
        Ndifferentiate(s.get(), &x, 0, &d, order);
        EXPECT_NEAR(d, want[order], tol[order]) << "order " << order;
        Ndifferentiate_sided(s.get(), &x, 0, order % 2, &one_sided, order);
        EXPECT_NEAR(one_sided, want[order], 1e3 * tol[order] + 1e-9) << "order " << order;
    }
    // Every output of a vector law; x is left as it was.
    double v[2];
    const double p[2] = {0.5, 2.0};
    Ndifferentiate(parse("VEC(X^3,X*Y)").get(), p, 0, v, 1);
    EXPECT_NEAR(v[0], 0.75, 1e-10);
    EXPECT_NEAR(v[1], 2.0, 1e-10);
    EXPECT_EQ(p[0], 0.5);
    // Below 0 lies outside SQRT's domain: the samples move above.
    const double z = 0.0;
    Ndifferentiate_sided(parse("SQRT(X+1)").get(), &z, 0, 1, v, 1);
    EXPECT_NEAR(v[0], 0.5, 1e-6);
    EXPECT_LAW_ERROR(Ndifferentiate(s.get(), &x, 0, v, -1), LAW_DERIV);
}

TEST_F(Integrate, IntegralLawHasTheIntegrandAsDerivative) {
    const law_ref F = law_ref::adopt(law_integrate(parse("COS(X)").get()));
    EXPECT_NEAR(F->eval(1.2), std::sin(1.2), 1e-10);
    const law_ref dF = law_ref::adopt(F->derivative(0));
    EXPECT_NEAR(dF->eval(1.2), std::cos(1.2), 1e-14);
    EXPECT_EQ(text(F), "INTEGRATE(COS(X),0,X)");
}

// Overflowed rows are never converged; a variable the law does not take is refused.
TEST_F(Integrate, OverflowAndVariableIndex) {
    const struct {
        const char* text;
        double a, b;
    } overflows[] = {{"X", 0, 1e200}, {"X", -1e308, 1e308}, {"EXP(X)", 0, 800}};
    for (const auto& c : overflows) {
        double v = 0;
        EXPECT_EQ(Nintegrate(parse(c.text).get(), c.a, c.b, &v), 0) << c.text;
        EXPECT_FALSE(std::isfinite(v)) << c.text;
    }
    const law_ref x = parse("X");
    double pt[3] = {1, 2, 3}, out[1];
    EXPECT_LAW_ERROR(Ndifferentiate(x.get(), pt, 1, out, 1), LAW_DIM);
    EXPECT_LAW_ERROR(Ndifferentiate_sided(x.get(), pt, 2, 0, out, 1), LAW_DIM);
    EXPECT_LAW_ERROR(Nintegrate_wrt(x.get(), 0, 1, 1, pt, out), LAW_DIM);
    Ndifferentiate(x.get(), pt, 0, out, 1);
    EXPECT_NEAR(out[0], 1, 1e-9);
    // At the edge of a domain the law does not state, the samples take the other side.
    const double edge[1] = {0};
    Ndifferentiate_sided(parse("SQRT(X)^3").get(), edge, 0, 1, out, 1);
    EXPECT_NEAR(out[0], 0, 1e-2);  // 1.5 sqrt(x) sampled from 0 up
    Ndifferentiate_sided(parse("LN(X+1)").get(), pt, 0, 1, out, 1);
    EXPECT_NEAR(out[0], 0.5, 1e-6);
}

// Derivatives of every order to the accuracy the estimate states; orders past the
// limit are refused, not answered with noise.
TEST_F(Integrate, DerivativesWithAStepForTheOrder) {
    const struct {
        const char* text;
        int order;
        double at, exact;
    } cases[] = {
        {"SIN(X)", 5, 1, std::cos(1.0)},
        {"X^4", 4, 1, 24},
        {"X^3-X", 1, 2, 11},
        {"EXP(X)", 8, 0, 1},
        {"EXP(X)", 6, 3, std::exp(3.0)},
        {"SIN(X)", 2, 0.5, -std::sin(0.5)},
        {"X^2", 0, 3, 9},
    };
    for (const auto& c : cases) {
        double x[1] = {c.at}, d[1];
        const double error = Ndifferentiate_estimate(parse(c.text).get(), x, 0, d, c.order);
        EXPECT_LE(std::fabs(d[0] - c.exact), error + 1e-12 * std::fabs(c.exact)) << c.text;
        EXPECT_LT(error, 1e-3 * std::max(1.0, std::fabs(c.exact))) << c.text;
    }
    double x[1] = {1}, d[1];
    EXPECT_LAW_ERROR(Ndifferentiate_estimate(parse("SIN(X)").get(), x, 0, d, 1000), LAW_DERIV);
}
