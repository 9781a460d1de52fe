// Deformations against closed forms, their derivatives against central differences.

#include <cmath>

#include "law_builders.h"
#include "leak_check.h"

using namespace law_test;

namespace {

class DeformLaw : public leak_checked {};

law_ref parse(const std::string& text) {
    law_ref l = law_ref::adopt(str_to_law(text.c_str()));
    EXPECT_TRUE(l) << text << ": " << TEST_get_error();
    return l;
}

std::vector<double> at(const law_ref& l, std::vector<double> x) {
    x.resize(static_cast<size_t>(std::max(3, l->take_dim())), 0.0);
    return values(l, x);
}

void expect_near(const std::vector<double>& got, const std::vector<double>& want, double tol,
                 const std::string& what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << what << " " << i;
}

const double pi = 3.141592653589793;

// The parser turns a coded error into a posted message and no law.
void expect_refused(const std::string& text, err_mess_type code) {
    law_ref l = law_ref::adopt(str_to_law(text.c_str()));
    EXPECT_FALSE(l) << text;
    EXPECT_STREQ(TEST_get_error(), find_err_mess(code)) << text;
    TEST_clear_error();
}

}  // namespace

TEST_F(DeformLaw, MapsAgreeWithTheirClosedForms) {
    expect_near(at(parse("SCALETRANS(VEC(X,Y,Z),2,VEC(1,1,1))"), {2, 3, 4}), {3, 5, 7}, 0, "scale");
    expect_near(at(parse("SCALETRANS(VEC(X,Y,Z),VEC(1,2,3))"), {1, 1, 1}), {1, 2, 3}, 0, "axes");
    // x^ = (0,1,0), z^ = (0,0,1), y^ = z^ x x^ = (-1,0,0).
    const char* frame = "VEC(0,2,0),VEC(-1,5,0))";
    expect_near(at(parse(std::string("VECTRANS(VEC(1,2,3),") + frame), {}), {-2, 1, 3}, 1e-15,
                "vectrans");
    expect_near(at(parse(std::string("POSTRANS(VEC(1,2,3),VEC(1,1,1),") + frame), {}), {-1, 2, 4},
                1e-15, "postrans");
    // The plane z=0... bent about the z axis onto the cylinder of radius 2 around (0,2,0):
    // (u, 0, h) goes to (2 sin(u/2), 2 - 2 cos(u/2), h), keeping length along the arc.
    const std::string parts = ",VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)";
    law_ref bend = parse("BEND(VEC(X,Y,Z)" + parts);
    law_ref unbend = parse("UNBEND(VEC(X,Y,Z)" + parts);
    for (double u : {0.0, 1.0, pi, -2.5})
        expect_near(at(bend, {u, 0, 0.5}), {2 * std::sin(u / 2), 2 - 2 * std::cos(u / 2), 0.5},
                    1e-14, "bend");
    law_ref round = parse("UNBEND(BEND(VEC(X,Y,Z)" + parts + parts);
    expect_near(at(round, {1.5, -0.3, 0.7}), {1.5, -0.3, 0.7}, 1e-14, "unbend o bend");
    // Torus (c = 0) and the two points (a + c - mu, 0, 0) and (mu - a + c, 0, 0) at u = 0, pi.
    expect_near(
        at(parse("CYCLIDE(VEC(X,Y),3,0,1)"), {0.5, 1.0}),
        {std::cos(0.5) * (3 - std::cos(1.0)), std::sin(0.5) * (3 - std::cos(1.0)), -std::sin(1.0)},
        1e-14, "torus");
    law_ref cyclide = parse("CYCLIDE(VEC(X,Y),3,1,1.5)");
    expect_near(at(cyclide, {0, 0}), {2.5, 0, 0}, 1e-14, "cyclide u=0");
    expect_near(at(cyclide, {pi, 0}), {-0.5, 0, 0}, 1e-14, "cyclide u=pi");
    // w = cos 45 degrees: the quarter circle from (1,0,0) to (0,1,0).
    const double rho = std::sqrt(0.5) / (1 + std::sqrt(0.5));
    law_ref arc =
        parse("CONIC_LINE(X,VEC(1,0,0),VEC(1,1,0),VEC(0,1,0)," + std::to_string(rho) + ")");
    for (double t : {0.1, 0.5, 0.9}) {
        const std::vector<double> p = at(arc, {t});
        EXPECT_NEAR(std::hypot(p[0], p[1]), 1.0, 1e-6) << t;  // rho printed to 6 places
    }
    expect_near(at(parse("CONIC_TROUGH_LINE(VEC(X,Y),VEC(0,0,0),VEC(1,1,0),VEC(2,0,0),0.5,"
                         "VEC(0,0,2))"),
                   {0.5, 3}),
                {1, 0.5, 6}, 1e-15, "parabola trough");
    expect_near(at(parse("SURFVEC(VEC(X,X*Y,Y*Y),VEC(2,3))"), {1, 2}), {2, 4 + 3, 12}, 1e-15,
                "surfvec");
}

TEST_F(DeformLaw, DerivativesAgreeWithCentralDifferences) {
    const std::string bend = ",VEC(1,0,0),VEC(0,1,1),VEC(1,0,0),3)";
    for (const std::string& text :
         {std::string("SCALETRANS(VEC(X,X*X,1),VEC(X,2,3),VEC(1,X,0))"),
          std::string("POSTRANS(VEC(X,1,X*X),VEC(X,0,0),VEC(1,X,0),VEC(0,0,1))"),
          "BEND(VEC(X,2*X,1-X)" + bend, "UNBEND(VEC(X,2*X,1-X)" + bend,
          std::string("CYCLIDE(VEC(X,2*X),3,1,1.5)"),
          std::string("CYCLIDE_PERP(VEC(X,2*X),3,1,1.5)"),
          std::string("DCYCLIDE(VEC(X,2*X),3,1,1.5)"),
          std::string("CONIC_LINE(X,VEC(1,0,0),VEC(1,1,0),VEC(0,1,0),0.3)"),
          std::string("SURFVEC(VEC(X,X*Y,Y*Y),VEC(2,X))")}) {
        law_ref l = parse(text);
        law_ref d = law_ref::adopt(l->derivative(0));
        const double x = 0.37, h = 1e-5;
        const std::vector<double> lo = at(l, {x - h, 0.5}), hi = at(l, {x + h, 0.5});
        const std::vector<double> got = at(d, {x, 0.5});
        ASSERT_EQ(got.size(), lo.size()) << text;
        for (size_t i = 0; i < got.size(); ++i)
            EXPECT_NEAR(got[i], (hi[i] - lo[i]) / (2 * h), 1e-8) << text << " " << i;
        EXPECT_EQ(text, ::law_test::text(parse(::law_test::text(l))));  // stable print
    }
    // The normal is a unit vector across both partials.
    const std::vector<double> n = at(parse("CYCLIDE_PERP(VEC(X,Y),3,1,1.5)"), {0.4, 1.1});
    const std::vector<double> p = at(parse("DCYCLIDE(VEC(X,Y),3,1,1.5)"), {0.4, 1.1});
    EXPECT_NEAR(n[0] * p[0] + n[1] * p[1] + n[2] * p[2], 0, 1e-14);
    EXPECT_NEAR(n[0] * p[3] + n[1] * p[4] + n[2] * p[5], 0, 1e-14);
    EXPECT_NEAR(std::hypot(n[0], n[1], n[2]), 1, 1e-15);
}

TEST_F(DeformLaw, CountsAndBadParametersAreReported) {
    expect_refused("SCALETRANS(VEC(X,Y,Z))", LAW_SCALE_NUM);
    expect_refused("VECTRANS(VEC(X,Y,Z),VEC(1,0,0))", LAW_VEC_NUM);
    expect_refused("POSTRANS(VEC(X,Y,Z),VEC(1,0,0),VEC(0,1,0))", LAW_POS_NUM);
    expect_refused("BEND(VEC(X,Y,Z),VEC(0,0,0),VEC(0,0,1),VEC(0,0,-3),2)", LAW_BEND_PARALLEL);
    expect_refused("BEND(VEC(X,Y,Z),VEC(0,0,0),VEC(0,0,1))", LAW_DIM);
    expect_refused("CYCLIDE(VEC(X,Y),1,2,0.5)", LAW_BAD_RANGE);
    expect_refused("CONIC_LINE(X,VEC(1,0,0),VEC(1,1,0),VEC(0,1,0),1)", LAW_BAD_RANGE);
    // Parallel frame axes collapse to the first axis instead of giving NaN.
    expect_near(at(parse("VECTRANS(VEC(1,2,3),VEC(2,0,0),VEC(1,0,0))"), {}), {1, 0, 0}, 0,
                "collapsed");
    parse("SCALETRANS(X,2)");
    EXPECT_TRUE(reported_toxic());
}
