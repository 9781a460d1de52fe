#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "data/legendre_roots.h"
#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class ChebRoots : public leak_checked {};

constexpr double pi = std::numbers::pi;

struct found {
    std::vector<double> x;
    std::vector<int> multiplicity;
    long evaluations = 0;
};

found cheb_roots(const char* text, double a, double b) {
    const law_ref f = law_ref::adopt(str_to_law(text));
    found out;
    int n = -1, *m = nullptr;
    double* r = law_roots_cheb(f.get(), a, b, 1e-14, &n, &out.evaluations, &m);
    out.x.assign(r, r + n);
    out.multiplicity.assign(m, m + n);
    vorn_discard(r);
    vorn_discard(m);
    return out;
}

std::string legendre12_text() {
    std::string s;
    for (int k = 0; k <= 12; k += 2) {
        char term[64];
        std::snprintf(term, sizeof term, "%s%.17g*X^%d", k ? "+" : "", legendre12_coefficients[k],
                      k);
        s += term;
    }
    return s;
}

}  // namespace

// Closed forms: k pi / 10 for SIN(10X), the mpmath table for P12, the factors of the
// polynomials.  Every simple root to 1e-12 after the Newton polish; double roots to the
// accuracy of a simple root of the derivative.
TEST_F(ChebRoots, FindsEveryRootWithItsMultiplicity) {
    std::vector<double> sines, sine_squares;
    for (int k = 0; k < 32; ++k) sines.push_back(k * pi / 10);
    for (int k = 0; k < 4; ++k) sine_squares.push_back(k * pi);
    const std::string p12 = legendre12_text();
    const struct {
        std::string text;
        double a, b;
        std::vector<double> roots;
        int multiplicity;  // of every root, or 0 for "1 except where stated below"
    } cases[] = {
        {"SIN(10*X)", 0, 10, sines, 1},
        {p12, -1, 1, {std::begin(legendre12_roots), std::end(legendre12_roots)}, 1},
        {"X^3-X", -1, 1, {-1, 0, 1}, 1},  // two roots at the ends
        {"X^3-X", -2, 2, {-1, 0, 1}, 1},
        {"SIN(X)^2", 0, 10, sine_squares, 2},  // a double root at an end, too
        {"X^2+1", -3, 3, {}, 1},
        {"X-0.25", 0.25, 3, {0.25}, 1},
        {"X^2-1e-10", 0, 20, {1e-5}, 1},  // a small root on a large scale
        {"FLOOR(X)-0.5", 0, 3, {}, 1},    // the jumps cross zero but are no roots
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const found r = cheb_roots(c.text.c_str(), c.a, c.b);
        ASSERT_EQ(r.x.size(), c.roots.size());
        for (size_t i = 0; i < r.x.size(); ++i) {
            EXPECT_NEAR(r.x[i], c.roots[i], 1e-12) << i;
            EXPECT_EQ(r.multiplicity[i], c.multiplicity) << i;
        }
    }
    // (X-1)^2 (X+2): a simple and a double root.
    const found r = cheb_roots("(X-1)^2*(X+2)", -3, 3);
    ASSERT_EQ(r.x.size(), 2u);
    EXPECT_NEAR(r.x[0], -2, 1e-12);
    EXPECT_NEAR(r.x[1], 1, 1e-12);
    EXPECT_EQ(r.multiplicity, (std::vector<int>{1, 2}));
}

// The evaluation budget that makes the method worth having: fewer than a 201-point grid
// with a bracketing solver on each sign change (343 on SIN(10X)).  The count is also added
// to the thread's numeric_evaluations.
TEST_F(ChebRoots, FewEvaluationsAndCountedLikeTheOtherNumerics) {
    const long before = lawutil_context()->numeric_evaluations;
    const found r = cheb_roots("SIN(10*X)", 10, 0);  // reversed bounds
    EXPECT_EQ(r.x.size(), 32u);
    EXPECT_LT(r.evaluations, 250);
    EXPECT_EQ(lawutil_context()->numeric_evaluations - before, r.evaluations);
}

TEST_F(ChebRoots, RefusesWhatItCannotSearch) {
    const law_ref two = law_ref::adopt(str_to_law("X+Y"));
    const law_ref one = law_ref::adopt(str_to_law("X"));
    int n = 0;
    const struct {
        law* f;
        double a, b;
        err_mess_type code;
    } cases[] = {{two.get(), 0, 1, LAW_DIM},
                 {nullptr, 0, 1, LAW_DIM},
                 {one.get(), 0, INFINITY, LAW_BAD_BOUNDS},
                 {one.get(), NAN, 1, LAW_BAD_BOUNDS}};
    for (const auto& c : cases) {
        try {
            law_roots_cheb(c.f, c.a, c.b, 1e-14, &n);
            ADD_FAILURE() << "no error";
        } catch (const vorn_exception& e) {
            EXPECT_EQ(e.error_number(), c.code);
        }
    }
    // Zero everywhere: the lower end, as Nroot answers.
    const law_ref zero = law_ref::adopt(str_to_law("0*X"));
    double* r = law_roots_cheb(zero.get(), 2, -1, 1e-14, &n);
    ASSERT_EQ(n, 1);
    EXPECT_EQ(r[0], -1);
    vorn_discard(r);
}
