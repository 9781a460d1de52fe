#include <cmath>
#include <numbers>

#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class AccurateIntegrals : public leak_checked {};

constexpr double pi = std::numbers::pi;

law_integral_result by(bool de, const char* text, double a, double b) {
    const law_ref f = law_ref::adopt(str_to_law(text));
    return de ? law_integrate_de(f.get(), a, b) : law_integrate_gk(f.get(), a, b);
}

}  // namespace

// Closed forms to 1e-12, including singular ends (the law is never evaluated at a finite
// end) and infinite ends.  Each result's error estimate must cover its actual error.
TEST_F(AccurateIntegrals, ClosedFormsOnFiniteSingularAndInfiniteIntervals) {
    const struct {
        const char* text;
        double a, b, want;
        bool gk_too;  // bisection towards a singular end is slow, but still gets there
    } cases[] = {
        {"EXP(X)", 0, 1, std::numbers::e - 1, true},
        {"1/(1+X^2)", 0, 1, pi / 4, true},
        {"SQRT(X)", 0, 1, 2.0 / 3, true},
        {"LN(X)", 0, 1, -1, true},
        {"X^(-0.5)", 0, 1, 2, true},  // 1/SQRT(X): its division refuses below 1e-6
        {"SQRT(1-X^2)", 1, -1, -pi / 2, true},
        {"EXP(-(X^2))", -INFINITY, INFINITY, std::sqrt(pi), true},
        {"EXP(-X)", 0, INFINITY, 1, true},
        {"1/(1+X^2)", -INFINITY, 0, pi / 2, true},
        {"EXP(X)", 2, 2, 0, true},
        {"1/(1+25*X^2)", 0, 1, std::atan(5.0) / 5, true},  // poles near the interval
        {"ABS(X-0.3)", 0, 1, 0.29, true},                  // a kink inside
    };
    for (const auto& c : cases) {
        for (bool de : {true, false}) {
            if (!de && !c.gk_too) continue;
            SCOPED_TRACE(std::string(c.text) + (de ? " de" : " gk"));
            const law_integral_result r = by(de, c.text, c.a, c.b);
            EXPECT_TRUE(r.converged);
            EXPECT_NEAR(r.value, c.want, 1e-12);
            EXPECT_LE(std::fabs(r.value - c.want), std::max(r.error, 1e-15));
        }
    }
}

// Evaluation budgets: a smooth integrand costs what Gauss-Kronrod costs, a square root at
// an end far less than bisection would (Romberg needs about two million).
TEST_F(AccurateIntegrals, EvaluationBudgets) {
    const struct {
        const char* text;
        long most;
    } cases[] = {{"EXP(X)", 15}, {"1/(1+X^2)", 45}, {"SQRT(X)", 80}, {"LN(X)", 80}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const long before = lawutil_context()->numeric_evaluations;
        const law_integral_result r = by(true, c.text, 0, 1);
        EXPECT_LE(r.evaluations, c.most);
        EXPECT_EQ(lawutil_context()->numeric_evaluations - before, r.evaluations);
    }
}

TEST_F(AccurateIntegrals, RefusesWhatItCannotIntegrate) {
    const law_ref two = law_ref::adopt(str_to_law("X+Y"));
    const law_ref one = law_ref::adopt(str_to_law("X"));
    for (bool de : {true, false}) {
        auto run = [&](law* f, double a, double b) {
            return de ? law_integrate_de(f, a, b) : law_integrate_gk(f, a, b);
        };
        try {
            run(two.get(), 0, 1);
            ADD_FAILURE() << "no error";
        } catch (const vorn_exception& e) {
            EXPECT_EQ(e.error_number(), LAW_DIM);
        }
        try {
            run(one.get(), NAN, 1);
            ADD_FAILURE() << "no error";
        } catch (const vorn_exception& e) {
            EXPECT_EQ(e.error_number(), LAW_BAD_BOUNDS);
        }
    }
}
