#include <cmath>
#include <sstream>
#include <vector>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;
using QEM::position;

class SwCurve : public leak_checked {};

// A rational cubic with an interior double knot and uneven weights: exercises every path
// of the evaluator (rational quotient rule, repeated knots, several spans).
sw_curve wavy_rational() {
    const position p[] = {{0, 0, 0},  {1, 2, 0}, {2, -1, 1}, {3, 3, 2},
                          {4, 0, -1}, {5, 1, 0}, {6, 2, 2}};
    const double w[] = {1, 2, 0.5, 1.5, 3, 1, 0.7};
    const double k[] = {0, 0, 0, 0, 0.3, 0.5, 0.5, 1, 1, 1, 1};
    return sw_curve(3, 7, p, w, k);
}

double gap(const double* a, const double* b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

TEST_F(SwCurve, BasisIsAPartitionOfUnityWithMatchingDerivatives) {
    const double k[] = {0, 0, 0, 0, 0.2, 0.2, 0.6, 0.9, 1, 1, 1, 1};
    const int n = 8, p = 3;
    auto basis = [&](double t, int order, double* out) {  // all n functions
        double d[3 * 4];
        const int s = sw_find_span(k, n, p, t);
        std::fill(out, out + 3 * n, 0.0);
        sw_basis_derivs(k, p, s, t, order, d);
        for (int o = 0; o <= order; ++o)
            for (int j = 0; j <= p; ++j) out[o * n + s - p + j] = d[o * (p + 1) + j];
    };
    for (double t = 0.013; t < 1; t += 0.0371) {
        double b[3 * 8], lo[3 * 8], hi[3 * 8];
        basis(t, 2, b);
        double sum[3] = {0, 0, 0};
        for (int o = 0; o < 3; ++o)
            for (int i = 0; i < n; ++i) sum[o] += b[o * n + i];
        EXPECT_NEAR(sum[0], 1.0, 1e-14);  // sum N_i = 1, so its derivatives vanish
        EXPECT_NEAR(sum[1], 0.0, 1e-11);
        EXPECT_NEAR(sum[2], 0.0, 1e-9);
        const double h = 1e-6;  // stays inside the span: no knot within h of the samples
        basis(t - h, 1, lo);
        basis(t + h, 1, hi);
        for (int i = 0; i < n; ++i) {
            EXPECT_NEAR(b[n + i], (hi[i] - lo[i]) / (2 * h), 1e-6) << t;
            EXPECT_NEAR(b[2 * n + i], (hi[n + i] - lo[n + i]) / (2 * h), 1e-4) << t;
        }
    }
}

TEST_F(SwCurve, RationalDerivativesMatchFiniteDifferences) {
    const sw_curve c = wavy_rational();
    ASSERT_TRUE(c.rational());
    for (double t : {0.05, 0.21, 0.41, 0.66, 0.93}) {
        double d[12], lo[12], hi[12];
        const double h = 1e-5;
        c.derivs(t, 3, d);
        c.derivs(t - h, 3, lo);
        c.derivs(t + h, 3, hi);
        for (int o = 1; o <= 3; ++o)
            for (int x = 0; x < 3; ++x)
                EXPECT_NEAR(d[3 * o + x], (hi[3 * (o - 1) + x] - lo[3 * (o - 1) + x]) / (2 * h),
                            1e-5 * (1 + std::abs(d[3 * o + x])))
                    << "order " << o << " at " << t;
        position p;
        QEM::vector d1, d2;
        c.eval(t, p, &d1, &d2);
        EXPECT_EQ(p, position(d[0], d[1], d[2]));
        EXPECT_EQ(d2, QEM::vector(d[6], d[7], d[8]));
    }
}

TEST_F(SwCurve, KnotInsertionLeavesTheCurveUnchanged) {
    const sw_curve before = wavy_rational();
    sw_curve after = before;
    EXPECT_EQ(after.insert_knot(0.7, 2), 2);
    EXPECT_EQ(after.insert_knot(0.5, 5), 1);  // already double: only up to the degree
    EXPECT_EQ(after.insert_knot(0.5), 0);
    EXPECT_EQ(after.insert_knot(1.0), 0);  // the end is not an inner knot
    EXPECT_EQ(after.insert_knot(0.123), 1);
    EXPECT_EQ(after.control_count(), before.control_count() + 4);
    for (double t = 0; t <= 1; t += 1.0 / 64) {
        double a[9], b[9];
        before.derivs(t, 2, a);
        after.derivs(t, 2, b);
        EXPECT_LT(gap(a, b), 1e-13) << t;
        EXPECT_LT(gap(a + 3, b + 3), 1e-11) << t;
    }
}

TEST_F(SwCurve, ReproducesACubicAndACircleExactly) {
    // (t, t^2, t^3) in Bezier form: t -> (0, 1/3, 2/3, 1), t^2 -> (0, 0, 1/3, 1),
    // t^3 -> (0, 0, 0, 1).
    const position p[] = {{0, 0, 0}, {1.0 / 3, 0, 0}, {2.0 / 3, 1.0 / 3, 0}, {1, 1, 1}};
    const double k[] = {0, 0, 0, 0, 1, 1, 1, 1};
    sw_curve cubic(3, 4, p, nullptr, k);
    cubic.insert_knot(0.4);
    for (double t = -0.25; t <= 1.25; t += 0.125) {  // beyond the ends too
        double d[12];
        cubic.derivs(t, 3, d);
        const double expected[12] = {t, t * t, t * t * t, 1, 2 * t, 3 * t * t,
                                     0, 2,     6 * t,     0, 0,     6};
        for (int i = 0; i < 12; ++i) EXPECT_NEAR(d[i], expected[i], 1e-13) << t;
    }
    // The unit circle as nine quarter-arc points, corner weights 1/sqrt(2).
    const double r = std::sqrt(0.5);
    const position q[] = {{1, 0, 0},   {1, 1, 0},  {0, 1, 0},  {-1, 1, 0}, {-1, 0, 0},
                          {-1, -1, 0}, {0, -1, 0}, {1, -1, 0}, {1, 0, 0}};
    const double w[] = {1, r, 1, r, 1, r, 1, r, 1};
    const double kc[] = {0, 0, 0, 0.25, 0.25, 0.5, 0.5, 0.75, 0.75, 1, 1, 1};
    const sw_curve circle(2, 9, q, w, kc);
    for (double t = 0; t <= 1; t += 0.01) {
        position c;
        QEM::vector d1, d2;
        circle.eval(t, c, &d1, &d2);
        const QEM::vector radial = c - position(0, 0, 0);
        EXPECT_NEAR(radial % radial, 1.0, 1e-14) << t;
        EXPECT_NEAR(radial % d1, 0.0, 1e-13) << t;
        // Curvature |C' x C''| / |C'|^3 of the unit circle is 1.
        const QEM::vector n = d1 * d2;
        EXPECT_NEAR(std::sqrt(n % n) / std::pow(d1 % d1, 1.5), 1.0, 1e-12) << t;
    }
}

TEST_F(SwCurve, RefusesMalformedCurves) {
    const position p[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
    const double k[] = {0, 0, 1, 1, 1};
    const double bad_w[] = {1, 0, 1};
    const double falling[] = {0, 0, 1, 0.5, 1};
    const double k2[] = {0, 0, 0, 1, 1, 1};
    EXPECT_LAW_ERROR(sw_curve(0, 3, p, nullptr, k), SW_BAD_ORDER);
    EXPECT_LAW_ERROR(sw_curve(2, 3, p, bad_w, k2), SW_BAD_WEIGHTS);
    EXPECT_LAW_ERROR(sw_curve(1, 3, p, nullptr, falling), LAW_DIM);
    EXPECT_LAW_ERROR(sw_curve(3, 3, p, nullptr, k), LAW_DIM);  // too few points
}

// The helix of radius 2 and pitch 2 pi / 10 over two turns, written as a law.
law_ref helix() {
    return law_ref::adopt(str_to_law("VEC(2*COS(X),2*SIN(X),X/10)"));
}

TEST_F(SwCurve, ApproximatesAHelixToTheTolerance) {
    const law_ref f = helix();
    const double b = 4 * M_PI, tol = 1e-6;
    sw_fit_info info;
    const sw_curve c = law_to_sw_curve(f.get(), 0, b, tol, &info);
    EXPECT_TRUE(info.reached);
    EXPECT_LE(info.deviation, tol);
    EXPECT_LT(c.control_count(), 400);  // cubic Hermite: error ~ h^4, about 0.07 a span
    double worst = 0;
    for (int i = 0; i <= 10000; ++i) {
        const double t = b * i / 10000;
        const double exact[3] = {2 * std::cos(t), 2 * std::sin(t), t / 10};
        double fit[3];
        c.derivs(t, 0, fit);
        worst = std::max(worst, gap(exact, fit));
    }
    EXPECT_LE(worst, tol);
    EXPECT_LE(sw_curve_accuracy(c, f.get()), tol);
    ::testing::Test::RecordProperty("control_points", c.control_count());

    // The spline as a law: its derivative is the spline's own, close to the helix's.
    const law_ref s = law_ref::adopt(make_spline_law(c));
    const law_ref ds = law_ref::adopt(s->derivative(0));
    EXPECT_EQ(text(s), "SPLINE_LAW(SWEDGE)");
    EXPECT_EQ(text(ds), "D(SPLINE_LAW(SWEDGE),X,1)");
    for (double t : {0.3, 2.0, 7.7}) {
        const std::vector<double> v = values(ds, {t});
        double d[6];
        c.derivs(t, 1, d);
        EXPECT_NEAR(v[0], d[3], 1e-15);
        EXPECT_NEAR(v[0], -2 * std::sin(t), 1e-3);
        EXPECT_NEAR(v[2], 0.1, 1e-3);
    }
    EXPECT_EQ(values(law_ref::adopt(s->derivative(1)), {1.0}), std::vector<double>(3, 0.0));
}

TEST_F(SwCurve, ReportsWhatItCannotReach) {
    const law_ref f = helix();
    sw_fit_info info;
    const sw_curve c = law_to_sw_curve(f.get(), 0, 4 * M_PI, 1e-12, &info, 40);
    EXPECT_FALSE(info.reached);
    EXPECT_LE(c.control_count(), 40);
    EXPECT_GT(info.deviation, 1e-12);
    EXPECT_NEAR(sw_curve_accuracy(c, f.get()), info.deviation, 0.5 * info.deviation);

    const law_ref scalar = X();
    EXPECT_LAW_ERROR(law_to_sw_curve(scalar.get(), 0, 1, 1e-3), LAW_DIM);
    EXPECT_LAW_ERROR(law_to_sw_curve(f.get(), 1, 1, 1e-3), LAW_DIM);
    // A law that fails part way through the fit: the error reaches the caller, nothing leaks.
    const law_ref log_curve = law_ref::adopt(str_to_law("VEC(X,LN(1.7-X),X)"));
    EXPECT_LAW_ERROR(law_to_sw_curve(log_curve.get(), 0, 2, 1e-3), LAW_LN);

    // A spline law over a datum that holds no spline cannot be evaluated, and is refused
    // as toxic when read from text.
    law_data* wrong = new law_law_data(f.get());
    const law_ref s = make_law<spline_law>(wrong);
    EXPECT_LAW_ERROR(values(s, {0.0}), LAW_EVAL);
    EXPECT_EQ(str_to_law("SPLINE_LAW(LAW1)", &wrong, 1), nullptr);
    wrong->remove();
    EXPECT_TRUE(reported_toxic());
}

TEST_F(SwCurve, SwedgeIsACurveDatumThatReadsBackFromItsData) {
    law_data* datum = new sw_curve_law_data(wavy_rational());
    law_data* data[] = {datum, datum};
    const law_ref both = law_ref::adopt(str_to_law("CUR(SWEDGE1)+SPLINE_LAW(SWEDGE2)", data, 2));
    const law_ref cur = law_ref::adopt(str_to_law("CUR(SWEDGE1)", data, 1));
    ASSERT_TRUE(both && cur);
    for (double t : {0.1, 0.4, 0.8}) {  // away from the knots 0.3 and 0.5
        double p[3];
        wavy_rational().derivs(t, 0, p);
        EXPECT_EQ(values(cur, {t}), std::vector<double>(p, p + 3));
        expect_derivative_matches(cur, {t});
    }
    law_data** collected = nullptr;
    int n = 0;
    char* printed = both->string_and_data(&collected, &n);
    EXPECT_STREQ(printed, "CUR(SWEDGE1)+SPLINE_LAW(SWEDGE2)");
    const law_ref back = law_ref::adopt(str_to_law(printed, collected, n));
    EXPECT_TRUE(back && *back.get() == *both.get());
    for (int i = 0; i < n; ++i) collected[i]->remove();
    vorn_discard(collected);
    vorn_discard(printed);
    std::stringstream saved;
    law_save(both.get(), saved);
    const law_ref restored = law_ref::adopt(law_restore(saved));
    EXPECT_TRUE(restored && *restored.get() == *both.get());
    // A simple knot of a cubic leaves the third derivative to jump, a double one the second.
    double* where = nullptr;
    int* order = nullptr;
    EXPECT_EQ(static_cast<sw_curve_law_data*>(datum)->discontinuities(&where, &order, 0, 1), 2);
    EXPECT_TRUE(where[1] == 0.5 && order[0] == 3 && order[1] == 2);
    vorn_discard(where);
    vorn_discard(order);
    datum->remove();
}

}  // namespace
