// Sweep frames against their mathematics: the rotation-minimising frame of a helix turns
// against the Frenet frame by -tau*s; a closed planar circle brings the frame home.

#include <cmath>

#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class SweepLaw : public leak_checked {};

law_ref parse(const char* text) {
    law_ref l = law_ref::adopt(str_to_law(text));
    EXPECT_TRUE(l) << text << ": " << TEST_get_error();
    return l;
}

QEM::vector at(const law_ref& l, double t) {
    return l->evaluateR_V(t);
}

// The parser turns a coded error into a posted message and no law.
void expect_refused(const std::string& text, err_mess_type code) {
    law_ref l = law_ref::adopt(str_to_law(text.c_str()));
    EXPECT_FALSE(l) << text;
    EXPECT_STREQ(TEST_get_error(), find_err_mess(code)) << text;
    TEST_clear_error();
}

// Helix (a cos t, a sin t, b t): speed L = sqrt(a^2+b^2), torsion tau = b/L^2, Frenet
// normal N = -(cos t, sin t, 0), binormal B = (b sin t, -b cos t, a)/L.  The frame that
// starts at N turns from it by theta = -tau s = -b t / L within the N, B plane.
constexpr double a = 2.0, b = 1.0;
const double L = std::sqrt(a * a + b * b);
const char* helix = "MINROT(DOMAIN(VEC(2*COS(X),2*SIN(X),X),0,6.283185307179586),VEC(-1,0,0))";

QEM::vector analytic_frame(double t) {
    const double th = -b * t / L, c = std::cos(th), s = std::sin(th);
    const QEM::vector N(-std::cos(t), -std::sin(t), 0), B(b * std::sin(t), -b * std::cos(t), a);
    return N * c + B * (s / L);
}

double frame_error(const law_ref& frame) {
    double worst = 0;
    for (int i = 0; i <= 200; ++i) {
        const double t = 6.27 * i / 200.0 + 1e-3 * (i % 7);  // between samples too
        worst = std::max(worst, (at(frame, t) - analytic_frame(t)).len());
    }
    return worst;
}

}  // namespace

TEST_F(SweepLaw, HelixFrameFollowsTheAnalyticRotationMinimisingFrame) {
    law_ref plain = parse(helix);
    auto* m = static_cast<min_rotation_law*>(plain.get());
    ASSERT_EQ(m->sample_count(), 1000);
    // The plain step is first order: each step is off by O(h^2) in angle, always the same
    // way, so N steps are off by O(h) (h = 2 pi / 999); measured 2.8e-3.
    const double plain_error = frame_error(plain);
    EXPECT_LT(plain_error, 4e-3);
    m->set_alt_eval(1);
    EXPECT_EQ(m->alt_eval(), 1);
    // The rotation carrying one tangent onto the next is second order: measured 7.4e-6.
    EXPECT_LT(frame_error(plain), 1.5e-5);
    for (double t : {0.5, 4.0}) EXPECT_NEAR(at(plain, t).len(), 1.0, 1e-12);
    // The plain step leaves nothing along the tangent, also between, below and beyond the
    // samples.
    law_ref open = parse("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,6.283185307179586)");
    law_ref tangent = parse("VEC(-2*SIN(X),2*COS(X),1)");
    for (double t : {-0.5, 0.0, 0.00314, 1.0, 3.3333, 6.2831, 7.0})
        EXPECT_NEAR(at(open, t) % at(tangent, t), 0.0, 1e-12) << t;
}

TEST_F(SweepLaw, FrameReturnsToItsStartOnAClosedPlanarCircle) {
    // In the plane and across it the plain step is exact; a vector between the two drifts
    // towards the normal of the plane by the first-order error (about pi h / 2).
    for (auto [v, tol] :
         {std::pair{"VEC(-1,0,0)", 1e-12}, {"VEC(0,0,3)", 1e-12}, {"VEC(-1,0,1)", 1.5e-2}}) {
        std::string text = std::string("MINROT(VEC(COS(X),SIN(X),0),") + v + ",0,2*PI)";
        law_ref frame = parse(text.c_str());
        const QEM::vector start = at(frame, 0), end = at(frame, 6.283185307179586);
        EXPECT_LT((start - end).len(), tol) << v;
        // Half way round the in-plane part has turned with the tangent.
        EXPECT_NEAR(at(frame, 3.141592653589793).x(), -start.x(), tol);
        EXPECT_NEAR(at(frame, 3.141592653589793).z(), start.z(), tol);
    }
}

TEST_F(SweepLaw, DerivativeAgreesWithDifferencesAndPrintsAsD) {
    law_ref frame = parse(helix);
    law_ref d = law_ref::adopt(frame->derivative(0));
    EXPECT_EQ(text(d).rfind("D(MINROT(", 0), 0u);
    const double h = 1e-6;  // inside one sample interval (2*pi/999): no kink in between
    for (double t : {0.4, 2.5005}) {
        const QEM::vector fd = (at(frame, t + h) - at(frame, t - h)) / (2 * h);
        EXPECT_LT((at(d, t) - fd).len(), 1e-6) << t;
    }
    law_ref dy = law_ref::adopt(frame->derivative(1));
    EXPECT_EQ(values(dy, {1.0}), (std::vector<double>{0, 0, 0}));
    // Read back, the printed law has the same values.
    law_ref again = parse(text(frame).c_str());
    EXPECT_LT((at(again, 1.7) - at(frame, 1.7)).len(), 1e-15);
}

TEST_F(SweepLaw, CountsAndDegenerateInputsAreReported) {
    QEM::option_header* samples = find_option("min_rot_samples");
    ASSERT_NE(samples, nullptr);
    samples->push(10);
    EXPECT_EQ(static_cast<min_rotation_law*>(parse("MINROT(VEC(X,X*X,0),VEC(0,0,1),0,1)").get())
                  ->sample_count(),
              10);
    samples->pop();
    law_ref path = parse("VEC(COS(X),SIN(X),X)"), v = parse("VEC(0,0,1)"), one = K(1);
    EXPECT_LAW_ERROR(multi<min_rotation_law>({path, v}), LAW_MR_NUM);  // unbounded domain
    EXPECT_LAW_ERROR(multi<min_rotation_law>({path, v, one}), LAW_MR_NUM);
    expect_refused("MINROT(VEC(X,0,0),VEC(1,0,0),0,1)", LAW_MR);    // along the tangent
    expect_refused("MINROT(VEC(X,X^2,0),VEC(0,0,1),1,1)", LAW_MR);  // no length
    // A cusp keeps the vector it arrives with, rather than dividing by zero.
    law_ref cusp = parse("MINROT(VEC(X^3,X^2,0),VEC(0,0,1),-1,1)");
    EXPECT_EQ(at(cusp, 0.0), QEM::vector(0, 0, 1));
    EXPECT_LAW_ERROR(cusp->eval(NAN), LAW_MR);
    law_ref wrong = made("MINROT", {path.get(), one.get(), K(0).get(), one.get()});
    EXPECT_TRUE(reported_toxic());
    EXPECT_LAW_ERROR(multi<twist_path_law>({path, v}), LAW_TWIST_NUM);
}

TEST_F(SweepLaw, TwistTurnsTheFrameAboutTheTangent) {
    // Turning the helix's normal N by A about T gives N cos A + B sin A (T x N = B).
    law_ref twist = parse("TWIST(VEC(2*COS(X),2*SIN(X),X),-VEC(COS(X),SIN(X),0),X/3)");
    for (double t : {0.0, 1.0, 2.5}) {
        const double A = t / 3;
        const QEM::vector N(-std::cos(t), -std::sin(t), 0),
            B = QEM::vector(b * std::sin(t), -b * std::cos(t), a) / L;
        EXPECT_LT((at(twist, t) - (N * std::cos(A) + B * std::sin(A))).len(), 1e-14) << t;
        law_ref d = law_ref::adopt(twist->derivative(0));
        const double h = 1e-5;
        EXPECT_LT((at(d, t) - (at(twist, t + h) - at(twist, t - h)) / (2 * h)).len(), 1e-8);
    }
}

// Double reflection is fourth order: at the same 1000 samples the helix frame stays within
// 1e-10 rad of the analytic frame, between the samples too.  The option picks it for laws
// built from then on, a rebuild keeps it, and switching back gives the plain step's values.
TEST_F(SweepLaw, DoubleReflectionFollowsTheHelixFrameToRoundOff) {
    QEM::option_header* method = find_option(min_rot_method_option_name);
    ASSERT_NE(method, nullptr);
    method->push(1);
    law_ref frame = parse(helix);
    method->pop();
    auto* m = static_cast<min_rotation_law*>(frame.get());
    EXPECT_EQ(m->min_rot_method(), 1);
    EXPECT_LT(frame_error(frame), 1e-10);
    law_ref copy = law_ref::adopt(m->make_one(m->fsubs(), m->fsize()));
    EXPECT_EQ(static_cast<min_rotation_law*>(copy.get())->min_rot_method(), 1);
    EXPECT_LT((at(copy, 2.2) - at(frame, 2.2)).len(), 1e-15);
    law_ref plain = parse(helix);
    EXPECT_EQ(static_cast<min_rotation_law*>(plain.get())->min_rot_method(), 0);
    m->set_min_rot_method(0);
    EXPECT_EQ(at(frame, 3.3), at(plain, 3.3));
    m->set_min_rot_method(1);
    EXPECT_LT(frame_error(frame), 1e-10);
    // The derivative is the rotation-minimising rate, to the order of the step.
    law_ref d = law_ref::adopt(frame->derivative(0));
    const double h = 1e-6;
    for (double t : {0.4, 2.5005}) {
        const QEM::vector fd = (at(frame, t + h) - at(frame, t - h)) / (2 * h);
        EXPECT_LT((at(d, t) - fd).len(), 1e-5) << t;
    }
    // Across the tangent and of unit length, as the plain step's result is.
    law_ref tangent = parse("VEC(-2*SIN(X),2*COS(X),1)");
    for (double t : {0.0, 1.0, 3.3333, 6.2831}) {
        EXPECT_NEAR(at(frame, t) % at(tangent, t), 0.0, 1e-12) << t;
        EXPECT_NEAR(at(frame, t).len(), 1.0, 1e-14) << t;
    }
}
