#include <cfloat>
#include <cmath>
#include <numbers>
#include <thread>
#include <vector>

#include "data/legendre_roots.h"
#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class Roots : public leak_checked {};

constexpr double pi = std::numbers::pi;

law_ref parse(const char* text) {
    return law_ref::adopt(str_to_law(text));
}

/// Nroot's answer as a vector (the heap array is freed here).
std::vector<double> roots(const law_ref& f, double a, double b) {
    int n = -1;
    double* r = Nroot(f.get(), a, b, &n);
    std::vector<double> out(r, r + n);
    vorn_discard(r);
    return out;
}

long evaluations() {
    return lawutil_context()->numeric_evaluations;
}

/// Every expected root found once, each within `tol`, and each a root of f.
void expect_roots(const law_ref& f, const std::vector<double>& got, const std::vector<double>& want,
                  double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_NEAR(got[i], want[i], tol) << "root " << i;
        EXPECT_LT(std::fabs(f->eval(got[i])), 1e-7);
    }
}

}  // namespace

// Closed forms: Chebyshev T_n has roots cos((2k-1) pi / 2n), SIN(n X) has k pi / n, and
// the Legendre roots come from the committed high-precision table.
TEST_F(Roots, FindsEveryRootOfPolynomialsAndSines) {
    double t8[] = {1, 0, -32, 0, 160, 0, -256, 0, 128};
    const law_ref cheb = law_ref::adopt(make_polynomial_law(t8, 8));
    std::vector<double> want;
    for (int k = 8; k >= 1; --k) want.push_back(std::cos((2 * k - 1) * pi / 16));
    expect_roots(cheb, roots(cheb, -1, 1), want, 1e-12);

    double p12[13];
    std::copy(std::begin(legendre12_coefficients), std::end(legendre12_coefficients), p12);
    const law_ref leg = law_ref::adopt(make_polynomial_law(p12, 12));
    expect_roots(leg, roots(leg, -1, 1), {std::begin(legendre12_roots), std::end(legendre12_roots)},
                 1e-12);

    const law_ref s = parse("SIN(10*X)");
    const long before = evaluations();
    const std::vector<double> got = roots(s, 0, 10);
    // The cost of the hunt, held to a budget: about 33 evaluations per root.
    EXPECT_LT(evaluations() - before, 32 * 35);
    want.clear();
    for (int k = 0; k <= 31; ++k) want.push_back(k * pi / 10);
    expect_roots(s, got, want, 1e-12);
}

// Touching zeros have no sign change; the hunt must still see them.
TEST_F(Roots, FindsDoubleRoots) {
    expect_roots(parse("(X-1)^2*(X+0.5)"), roots(parse("(X-1)^2*(X+0.5)"), -2, 3), {-0.5, 1}, 1e-6);
    expect_roots(parse("SIN(X)^2"), roots(parse("SIN(X)^2"), 0.5, 7), {pi, 2 * pi}, 1e-6);
    expect_roots(parse("X^3-X"), roots(parse("X^3-X"), 2, -2), {-1, 0, 1}, 1e-12);
}

TEST_F(Roots, ConstantsBoundsAndTolerances) {
    EXPECT_EQ(roots(K(0), 3, 1), std::vector<double>{1});  // the lower end
    int n = -1;
    EXPECT_EQ(Nroot(K(2).get(), 0, 1, &n), nullptr);
    EXPECT_EQ(n, 0);

    // The caller's tolerances are replaced by the defaults, also when the law raises.
    lawutil_context()->root_f_tol = 1e-3;
    EXPECT_LAW_ERROR(Nroot(parse("LN(X)").get(), -1, 1, &n), LAW_LN);
    EXPECT_EQ(lawutil_context()->root_f_tol, 1e-7);
    lawutil_context()->root_x_tol = 1;
    roots(parse("X-0.5"), 0, 1);
    EXPECT_EQ(lawutil_context()->root_x_tol, 1e-14);

    EXPECT_LAW_ERROR(Nroot(nullptr, 0, 1, &n), LAW_DIM);
    EXPECT_LAW_ERROR(Nroot(parse("X*Y").get(), 0, 1, &n), LAW_DIM);
    EXPECT_LAW_ERROR(Nroot(parse("VEC(X,X)").get(), 0, 1, &n), LAW_DIM);
    EXPECT_LAW_ERROR(Nroot(X().get(), NAN, 1, &n), LAW_BAD_BOUNDS);
    EXPECT_LAW_ERROR(Nmax(X().get(), 0, INFINITY), LAW_BAD_BOUNDS);
}

TEST_F(Roots, SolveAndExtrema) {
    int n = 0;
    double* r = Nsolve(parse("COS(X)").get(), X().get(), 2, 0, &n);
    ASSERT_EQ(n, 1);
    EXPECT_NEAR(r[0], 0.7390851332151607, 1e-12);  // the fixed point of cos
    vorn_discard(r);

    EXPECT_NEAR(Nmax(parse("SIN(X)").get(), 0, 3), pi / 2, 1e-9);
    EXPECT_NEAR(Nmin(parse("X^2-2*X").get(), 3, -1), 1, 1e-9);
    EXPECT_EQ(Nmax(parse("X").get(), 0, 1), 1);
    EXPECT_EQ(Nmax(K(5).get(), 2, 1), 1);  // a tie keeps the lower end
    EXPECT_NEAR(Nmin_quick(parse("(X-0.3)^2").get(), 0, 1, 11, 0.05, 1e-10), 0.3, 1e-6);
    EXPECT_NEAR(Nmax_quick(parse("SIN(X)").get(), 0, 3, 7, 0.1, 1e-10), pi / 2, 1e-5);

    double* where = QEM_ALLOC_ARRAY(double, 4);
    int* type = QEM_ALLOC_ARRAY(int, 4);
    const double w[] = {3, -5, 1, 1 + 1e-9};
    for (int i = 0; i < 4; ++i) {
        where[i] = w[i];
        type[i] = i;
    }
    ASSERT_EQ(sort_singularities(&where, &type, 4, 0, 4), 2);
    EXPECT_EQ(where[0], 1);
    EXPECT_EQ(type[0], 2);
    EXPECT_EQ(where[1], 3);
    vorn_discard(where);
    vorn_discard(type);
}

TEST_F(Roots, TwoVariables) {
    int n = 0;
    double* r = Nroot2D(parse("X^2+Y^2-1").get(), parse("X-Y").get(), -2, 2, -2, 2, &n);
    ASSERT_EQ(n, 2);
    const double h = std::sqrt(0.5);
    EXPECT_NEAR(r[0], -h, 1e-10);
    EXPECT_NEAR(r[1], -h, 1e-10);
    EXPECT_NEAR(r[2], h, 1e-10);
    EXPECT_NEAR(r[3], h, 1e-10);
    vorn_discard(r);

    double uv[2];
    EXPECT_NEAR(Nmin2D(parse("(X-0.3)^2+(Y+0.2)^2+1").get(), 0, 1, -1, 1, uv), 1, 1e-9);
    EXPECT_NEAR(uv[0], 0.3, 1e-5);
    EXPECT_NEAR(uv[1], -0.2, 1e-5);
}

TEST_F(Roots, CompassSearchFindsTheBottomOfABowl) {
    const law_ref bowl = parse("(X-1)^2+(Y+2)^2+(Z-0.5)^2+3");
    QEM::nvector start(3), steps(3);
    for (int i = 0; i < 3; ++i) steps[i] = 1;
    double value = 0;
    QEM::nvector m = NminND(bowl.get(), nullptr, start, steps, &value, nullptr, -1e300);
    EXPECT_NEAR(m[0], 1, 1e-6);
    EXPECT_NEAR(m[1], -2, 1e-6);
    EXPECT_NEAR(m[2], 0.5, 1e-6);
    EXPECT_NEAR(value, 3, 1e-12);
    // Outside the constraint counts as the largest value: the minimum moves to X = 0.5.
    m = NminND(bowl.get(), parse("X<=0.5").get(), start, steps, &value, nullptr, -1e300);
    EXPECT_NEAR(m[0], 0.5, 1e-6);
    EXPECT_NEAR(value, 3.25, 1e-9);
    // A target stops the search as soon as the value falls below it.
    NminND(bowl.get(), nullptr, start, steps, &value, nullptr, 5.0);
    EXPECT_LT(value, 5.0);
    EXPECT_GT(value, 3.0);
}

TEST_F(Roots, OpenSetKeepsDisjointSortedCover) {
    Open_set s(0, 10, 1);
    s.add(2, 3);
    s.add(6, 7);
    s.add(2.5, 4);  // joins the first
    EXPECT_EQ(s.parts(), 2);
    EXPECT_EQ(s.hole(), 5);
    EXPECT_EQ(s.hole_size(), 2);
    double size;
    EXPECT_EQ(s.largest_hole(size), 9.5);  // 7 .. 10 wrapping to 0 .. 2
    EXPECT_EQ(size, 5);
    EXPECT_EQ(s.in(6.5)->start, 6);
    EXPECT_EQ(s.in(5), nullptr);
    EXPECT_EQ(s.after(5)->start, 6);
    EXPECT_EQ(s.before(5)->end, 4);
    s.remove(3, 6.5);
    double* mids = s.mid_points();
    EXPECT_EQ(mids[0], 2.5);
    EXPECT_EQ(mids[1], 6.75);
    vorn_discard(mids);
    s.add(0, 10);
    EXPECT_TRUE(s.is_full());
}

// Each thread keeps its own tolerances while another searches.
TEST_F(Roots, ThreadsKeepTheirOwnTolerances) {
    std::atomic<int> stage{0};
    double seen = 0;
    std::thread other([&] {
        lawutil_context()->root_f_tol = 1e-3;
        stage = 1;
        while (stage != 2) std::this_thread::yield();
        seen = lawutil_context()->root_f_tol;
    });
    while (stage != 1) std::this_thread::yield();
    lawutil_context()->root_f_tol = 1e-9;
    roots(parse("X^2-2"), 0, 2);
    stage = 2;
    other.join();
    EXPECT_EQ(seen, 1e-3);
    EXPECT_EQ(lawutil_context()->root_f_tol, 1e-7);
}

// Extrema at kinks (ABS, MIN, MAX, steps, the comparisons of a PIECEWISE) and at poles
// the law rises towards, which no root of the derivative shows.
TEST_F(Roots, ExtremaAtKinksAndPoles) {
    const struct {
        const char* text;
        bool max;
        double a, b, at;
    } cases[] = {
        {"ABS(X-0.5)", false, 0, 1, 0.5},
        {"MIN(X,1-X)", true, 0, 1, 0.5},
        {"ABS(SIN(X))", false, 1, 4, pi},
        {"MAX(X,1-X)", false, 0, 1, 0.5},
        {"STEP(X,0.5,1-X)", true, 0, 1, 0.5},
        {"PIECEWISE(X<0.25,X,0.5-X)", true, 0, 1, 0.25},
        {"1/(X-0.3)^2", true, 0, 1, 0.3},
        {"1/(X-0.3)", false, 0, 1, 0.3},
        {"3/(X-0.6)", true, 0, 1, 0.6},
        {"-1/(X-0.3)^2", true, 0, 1, 1},
        {"SIN(X)", true, 0, 3, pi / 2},
        {"1/X", true, -1, 1, 0},
        {"1/X", true, 0, 1, 0},
        {"1/X", false, -1, 0, 0},
    };
    for (const auto& c : cases) {
        const law_ref f = parse(c.text);
        const double x = c.max ? Nmax(f.get(), c.a, c.b) : Nmin(f.get(), c.a, c.b);
        EXPECT_NEAR(x, c.at, 1e-6) << c.text;
    }
}

// Ranges whose width passes the largest double, and halves of them, end with their roots.
TEST_F(Roots, WidestRanges) {
    const struct {
        const char* text;
        double a, b, root;
    } cases[] = {
        {"X", -1e308, 1e308, 0},
        {"X", -1e308, 0, 0},
        {"X-1", -DBL_MAX, DBL_MAX, 1},
    };
    for (const auto& c : cases) {
        int n = 0;
        const QEM::scoped_heap_array<double> r(Nroot(parse(c.text).get(), c.a, c.b, &n));
        ASSERT_EQ(n, 1) << c.text << " " << c.a;
        EXPECT_NEAR(r.get()[0], c.root, 1e-9) << c.text;
    }
}
