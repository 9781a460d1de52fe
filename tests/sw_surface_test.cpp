#include <cmath>
#include <vector>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;
using QEM::position;

class SwSurface : public leak_checked {};

// The unit cylinder of height 2: a rational quadratic circle in u times a line in v.
sw_surface cylinder() {
    const double r = std::sqrt(0.5);
    const double xy[9][2] = {{1, 0},   {1, 1},  {0, 1},  {-1, 1}, {-1, 0},
                             {-1, -1}, {0, -1}, {1, -1}, {1, 0}};
    std::vector<position> p;
    std::vector<double> w;
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 2; ++j) {
            p.emplace_back(xy[i][0], xy[i][1], 2.0 * j);
            w.push_back(i % 2 ? r : 1.0);
        }
    const double ku[] = {0, 0, 0, 0.25, 0.25, 0.5, 0.5, 0.75, 0.75, 1, 1, 1};
    const double kv[] = {0, 0, 1, 1};
    return sw_surface(2, 1, 9, 2, p.data(), w.data(), ku, kv);
}

void expect_near(const QEM::vector& a, const QEM::vector& b, double tol, const char* what) {
    const QEM::vector d = a - b;
    EXPECT_LT(std::sqrt(d % d), tol) << what;
}

TEST_F(SwSurface, RationalPartialsMatchTheCylinderAndFiniteDifferences) {
    const sw_surface s = cylinder();
    const double h = 1e-5;
    for (double u : {0.1, 0.37, 0.62, 0.9})
        for (double v : {0.2, 0.7}) {
            const sw_surface_derivs d = s.eval(u, v);
            EXPECT_NEAR(d.point.x() * d.point.x() + d.point.y() * d.point.y(), 1.0, 1e-14);
            EXPECT_NEAR(d.point.z(), 2 * v, 1e-14);
            const sw_surface_derivs ua = s.eval(u - h, v), ub = s.eval(u + h, v);
            const sw_surface_derivs va = s.eval(u, v - h), vb = s.eval(u, v + h);
            expect_near(d.du, (ub.point - ua.point) / (2 * h), 1e-8, "du");
            expect_near(d.dv, QEM::vector(0, 0, 2), 1e-12, "dv");
            expect_near(d.duu, (ub.du - ua.du) / (2 * h), 1e-6, "duu");
            expect_near(d.duv, (vb.du - va.du) / (2 * h), 1e-6, "duv");
            expect_near(d.dvv, QEM::vector(0, 0, 0), 1e-12, "dvv");
        }
    // Knot insertion in either direction leaves the surface and its partials unchanged.
    sw_surface refined = s;
    EXPECT_EQ(refined.insert_knot_u(0.3, 2), 2);
    EXPECT_EQ(refined.insert_knot_u(0.5, 3), 0);  // already at the degree's multiplicity
    EXPECT_EQ(refined.insert_knot_v(0.4), 1);
    EXPECT_EQ(refined.control_count(), 11 * 3);
    for (double u = 0; u <= 1; u += 0.0625)
        for (double v = 0; v <= 1; v += 0.25) {
            const sw_surface_derivs a = s.eval(u, v), b = refined.eval(u, v);
            expect_near(a.point - b.point, QEM::vector(0, 0, 0), 1e-14, "point");
            expect_near(a.duv, b.duv, 1e-12, "duv");
            expect_near(a.duu, b.duu, 1e-11, "duu");
        }
    EXPECT_LAW_ERROR(s.eval(1.01, 0.5), SW_SURFACE_EVAL);
    EXPECT_LAW_ERROR(s.eval_position(0.5, -0.01), SW_SURFACE_EVAL);
}

TEST_F(SwSurface, ApproximatesATorusPatchToTheTolerance) {
    const law_ref f = law_ref::adopt(str_to_law("VEC((3+COS(Y))*COS(X),(3+COS(Y))*SIN(X),SIN(Y))"));
    const double tol = 1e-5;
    sw_fit_info info;
    const sw_surface s = law_to_sw_surface(f.get(), 0, M_PI, 0, M_PI, tol, &info);
    EXPECT_TRUE(info.reached);
    double worst = 0;
    for (int i = 0; i <= 97; ++i)
        for (int j = 0; j <= 97; ++j) {
            const double u = M_PI * i / 97, v = M_PI * j / 97;
            const position exact((3 + std::cos(v)) * std::cos(u), (3 + std::cos(v)) * std::sin(u),
                                 std::sin(v));
            const QEM::vector d = s.eval_position(u, v) - exact;
            worst = std::max(worst, std::sqrt(d % d));
        }
    EXPECT_LE(worst, tol);
    EXPECT_LE(sw_surface_accuracy(s, f.get()), tol);

    const sw_surface coarse = law_to_sw_surface(f.get(), 0, M_PI, 0, M_PI, 1e-10, &info, 400);
    EXPECT_FALSE(info.reached);
    EXPECT_LE(coarse.control_count(), 400);
    EXPECT_GT(info.deviation, 1e-10);

    const law_ref curve = law_ref::adopt(str_to_law("VEC(X,X,X)"));
    EXPECT_LAW_ERROR(law_to_sw_surface(curve.get(), 0, 1, 0, 1, 1e-3), LAW_DIM);
}

}  // namespace
