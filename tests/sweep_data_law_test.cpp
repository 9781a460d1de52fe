// Frames over law data against their mathematics: the rail frame of a helix turns by
// -tau*s, the perpendicular laws leave nothing along the tangent or the normal, the
// arc-length path runs at unit speed; and a path read repeatedly is evaluated once.

#include <atomic>
#include <cmath>

#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class SweepDataLaw : public leak_checked {};

// Drops the creator's use when the test leaves scope.
struct datum_ref {
    law_data* d;
    ~datum_ref() noexcept(false) { d->remove(); }
};

law_ref read(const char* text, std::vector<law_data*> data = {}) {
    return law_ref::adopt(str_to_law(text, data.data(), static_cast<int>(data.size())));
}

QEM::vector v3(const law_ref& l, std::vector<double> x) {
    const std::vector<double> v = values(l, x);
    return QEM::vector(v[0], v[1], v[2]);
}

// Helix (2 cos t, 2 sin t, t): speed L = sqrt(5), torsion 1/5; the rotation-minimising
// frame that starts at the Frenet normal N turns from it by -t/L towards the binormal B.
const double L = std::sqrt(5.0);
law_data* helix() {
    return new law_curve_law_data(read("VEC(2*COS(X),2*SIN(X),X)").get(), 0, 2 * M_PI);
}
QEM::vector helix_tangent(double t) {
    return QEM::vector(-2 * std::sin(t), 2 * std::cos(t), 1) / L;
}

// A curve that counts how often it is evaluated: the unit circle.
struct counting_circle final : base_curve_law_data {
    mutable std::atomic<int> calls{0};
    counting_circle() : base_curve_law_data(0, 2 * M_PI) {}
    QEM::vector eval(double t, int deriv, int) const override {
        ++calls;
        const double c = std::cos(t + deriv * M_PI / 2), s = std::sin(t + deriv * M_PI / 2);
        return QEM::vector(c, s, 0);
    }
    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "COUNTED"; }
    law_data* deep_copy(pointer_map*) const override { return new counting_circle; }
};
LAW_REGISTER_DATA_PROTOTYPE(counting_circle)

}  // namespace

TEST_F(SweepDataLaw, RailFrameOfAHelixFollowsTheAnalyticFrame) {
    datum_ref h{helix()};
    law_ref rail = read("MTRAIL(LCURVE1)", {h.d});
    ASSERT_TRUE(rail);
    double worst = 0;
    for (double t = 0; t < 6.28; t += 0.0917) {
        const double th = -t / L;
        const QEM::vector N(-std::cos(t), -std::sin(t), 0),
            B(std::sin(t) / L, -std::cos(t) / L, 2 / L);
        worst = std::max(worst, (v3(rail, {t}) - (N * std::cos(th) + B * std::sin(th))).len());
        EXPECT_NEAR(v3(rail, {t}) % helix_tangent(t), 0, 1e-12);
    }
    // As MINROT's plain step over 1000 samples: first order, measured 2.8e-3.
    EXPECT_LT(worst, 4e-3);
}

TEST_F(SweepDataLaw, PerpendicularLawsLeaveNothingAlongTangentOrNormal) {
    datum_ref h{helix()};
    law_ref perp = read("CURVEPERP(LCURVE1,VEC(0,0,1))", {h.d});
    law_ref turned = read("CURVEPERP(LCURVE1,VEC(0,0,1),PI/2)", {h.d});
    ASSERT_TRUE(perp && turned);
    for (double t : {0.3, 2.0, 5.5}) {
        const QEM::vector w = v3(perp, {t}), T = helix_tangent(t);
        EXPECT_NEAR(w % T, 0, 1e-14);
        EXPECT_NEAR(w.len(), 1, 1e-14);
        EXPECT_NEAR((v3(turned, {t}) - T * w).len(), 0, 1e-14);  // a quarter turn about T
        expect_derivative_matches(perp, {t});
        expect_derivative_matches(turned, {t});
    }
    // On the saddle z = uv the normal is (-v, -u, 1)/|.|; with UV the surface is read at
    // UV(x), so SURFPERP(S, V, (x, x^2)) at x is SURFPERP(S, V) at (x, x^2).
    datum_ref saddle{new law_surface_law_data(read("VEC(X,Y,X*Y)").get(), QEM::interval(-2, 2),
                                              QEM::interval(-2, 2))};
    law_ref sp = read("SURFPERP(LSURFACE1,VEC(0,1,1))", {saddle.d});
    law_ref along = read("SURFPERP(LSURFACE1,VEC(0,1,1),VEC(X,X^2))", {saddle.d});
    ASSERT_TRUE(sp && along);
    for (double u : {-0.5, 0.7}) {
        const double v = u * u;
        EXPECT_NEAR(v3(sp, {u, v}) % QEM::vector(-v, -u, 1), 0, 1e-14);
        EXPECT_NEAR((v3(along, {u}) - v3(sp, {u, v})).len(), 0, 1e-14);
        expect_derivative_matches(sp, {u, v}, 1);
        expect_derivative_matches(along, {u});
    }
}

TEST_F(SweepDataLaw, RotateTurnsDirectionsAndLengthParamRunsAtUnitSpeed) {
    const QEM::transf quarter = QEM::rotate_transf(M_PI / 2, QEM::vector(0, 0, 1)) *
                                QEM::translate_transf(QEM::vector(5, 5, 5));
    datum_ref turn{new rigid_transform_law_data(&quarter)};
    law_ref r = read("ROTATE(TRANSFORM1)", {turn.d});
    law_ref rf = read("ROTATE(VEC(X,X^2),TRANSFORM1)", {turn.d});
    ASSERT_TRUE(r && rf);
    EXPECT_NEAR((v3(r, {1, 2, 3}) - QEM::vector(-2, 1, 3)).len(), 0, 1e-14);
    EXPECT_NEAR((v3(rf, {3}) - QEM::vector(-9, 3, 0)).len(), 0, 1e-14);
    expect_derivative_matches(r, {1, 2, 3}, 1);
    expect_derivative_matches(rf, {0.5});
    // From parameter 1 the helix covers arc length L per unit of parameter.
    datum_ref h{helix()};
    law_ref arc = read("LENGTH_PARAM(LCURVE1,1,X)", {h.d});
    ASSERT_TRUE(arc);
    for (double s : {0.5, 3.0, 7.0}) {
        const double t = 1 + s / L;
        EXPECT_NEAR((v3(arc, {s}) - QEM::vector(2 * std::cos(t), 2 * std::sin(t), t)).len(), 0,
                    1e-9);
        const std::vector<double> speed = finite_difference(arc, {s});
        EXPECT_NEAR(std::hypot(speed[0], speed[1], speed[2]), 1, 1e-8);
    }
}

TEST_F(SweepDataLaw, MultiCurveJoinsPiecesAndRefusesGaps) {
    law_ref m = read("MULTI_CUR(DOMAIN(VEC(X,0,0),0,1),DOMAIN(VEC(1,X-1,0),1,3))");
    ASSERT_TRUE(m) << TEST_get_error();
    EXPECT_EQ(values(m, {0.5}), (std::vector<double>{0.5, 0, 0}));
    EXPECT_EQ(values(m, {2.5}), (std::vector<double>{1, 1.5, 0}));
    law_ref dm = law_ref::adopt(m->derivative(0));
    EXPECT_EQ(values(dm, {0.5}), (std::vector<double>{1, 0, 0}));
    EXPECT_EQ(values(dm, {1}), (std::vector<double>{0, 1, 0}));  // the later piece
    law_ref mp = made("MULTI_CURVEPERP", {m.get(), vec({K(1), K(1), K(1)}).get()});
    EXPECT_NEAR((v3(mp, {2}) - QEM::vector(1, 0, 1) / std::sqrt(2.0)).len(), 0, 1e-15);
    for (const char* bad :
         {"MULTI_CUR(DOMAIN(VEC(X,0,0),0,1),DOMAIN(VEC(X,1,0),2,3))", "MULTI_CUR(VEC(X,0,0))"}) {
        EXPECT_FALSE(read(bad)) << bad;
        EXPECT_STREQ(TEST_get_error(), find_err_mess(LAW_MULTI_CURVE_DOM));
        TEST_clear_error();
    }
}

TEST_F(SweepDataLaw, ChecksRefuseBadDataAndPrintedLawsReadBack) {
    datum_ref h{helix()}, turn{new rigid_transform_law_data(nullptr)};
    for (const char* bad :
         {"MTRAIL(TRANSFORM2)", "CURVEPERP(LCURVE1)", "CURVEPERP(LCURVE1,X)",
          "CURVEPERP(LCURVE1,VEC(0,0,1),VEC(X,X))", "CURVEPERP(TRANSFORM2,VEC(0,0,1))",
          "SURFPERP(LCURVE1,VEC(0,0,1))", "ROTATE(LCURVE1)", "ROTATE(VEC(1,2,3,4),TRANSFORM2)",
          "ROTATE(TRANSFORM2,TRANSFORM2)", "LENGTH_PARAM(LCURVE1,0)", "LENGTH_PARAM(LCURVE1,0,X,X)",
          "LENGTH_PARAM(LCURVE1,0,X+Y)", "MULTI_CURVEPERP(VEC(X,0,0),VEC(0,0,1))"}) {
        law_ref l = read(bad, {h.d, turn.d});
        EXPECT_TRUE(reported_toxic()) << bad;
        EXPECT_FALSE(l && l->isa(multiple_data_law_id)) << bad;  // data laws build nothing
    }
    law_ref frame =
        read("CURVEPERP(LCURVE1,VEC(0,0,1),X)+ROTATE(TRANSFORM2)*0+MTRAIL(LCURVE1)", {h.d, turn.d});
    ASSERT_TRUE(frame);
    law_data** data = nullptr;
    int n = 0;
    char* s = frame->string_and_data(&data, &n);
    EXPECT_STREQ(s, "CURVEPERP(LCURVE1,LAW2,LAW3)+ROTATE(TRANSFORM4)*0+MTRAIL(LCURVE5)");
    law_ref back = read(s, std::vector<law_data*>(data, data + n));
    ASSERT_TRUE(back);
    EXPECT_EQ(values(back, {0.4, 0, 0}), values(frame, {0.4, 0, 0}));
    for (int i = 0; i < n; ++i) data[i]->remove();
    vorn_discard(data);
    vorn_discard(s);
}

TEST_F(SweepDataLaw, RepeatedReadsOfAPathEvaluateItOnce) {
    auto* circle = new counting_circle;
    datum_ref owner{circle};
    law_ref point = read("CUR(COUNTED1)", {circle});
    law_ref frame = read("CURVEPERP(COUNTED1,VEC(1,1,1))", {circle});
    ASSERT_TRUE(point && frame);
    law_ref turn = law_ref::adopt(frame->derivative(0));  // reads C' and C''
    for (const law_ref* l : {&point, &frame, &turn}) values(*l, {0.25});
    const int first = circle->calls;
    EXPECT_EQ(first, 3);  // the point, C' and C'' at 0.25, each once
    for (const law_ref* l : {&point, &frame, &turn}) values(*l, {0.25});
    EXPECT_EQ(circle->calls, first);
    values(point, {0.5});
    EXPECT_EQ(circle->calls, first + 1);
}
