#include <cmath>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class LawData : public leak_checked {};

law_ref parse(const char* s, law_data** data = nullptr, int n = 0) {
    return law_ref::adopt(str_to_law(s, data, n));
}

// Drops the creator's use when the test leaves scope.
struct datum_ref {
    law_data* d;
    explicit datum_ref(law_data* datum) : d(datum) {}
    datum_ref(const datum_ref&) = delete;
    datum_ref& operator=(const datum_ref&) = delete;
    ~datum_ref() noexcept(false) { d->remove(); }
    law_data* operator->() const { return d; }
};

// The helix (cos t, sin t, t/10) on [0, 2 pi]: curvature 1/1.01 towards the axis, speed
// sqrt(1.01).
law_data* helix() {
    return new law_curve_law_data(parse("VEC(COS(X),SIN(X),X/10)").get(), 0.0, 2 * M_PI);
}

std::vector<double> fd3(const law_ref& l, double t) {  // central difference, order 4
    const double h = 1e-4;
    std::vector<double> out(3);
    auto v = [&](double s) { return values(l, {s}); };
    const auto a = v(t + h), b = v(t - h), c = v(t + 2 * h), d = v(t - 2 * h);
    for (size_t i = 0; i < 3; ++i) out[i] = (8 * (a[i] - b[i]) - (c[i] - d[i])) / (12 * h);
    return out;
}

void expect_near(const std::vector<double>& got, const std::vector<double>& want, double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "component " << i;
}

TEST_F(LawData, CurveLawsReadAHelixAndItsDerivatives) {
    datum_ref h(helix());
    law_ref cur = make_law<curve_law>(h.d);
    const double t = 0.7;
    expect_near(values(cur, {t}), {std::cos(t), std::sin(t), t / 10}, 1e-15);
    QEM::interval dom;
    cur->term_domain(0, dom);
    EXPECT_EQ(dom, QEM::interval(0, 2 * M_PI));
    // CUR differentiates to DCUR over the same curve and the order 1, then 2; each agrees
    // with a finite difference of the one before.
    law_ref d1 = law_ref::adopt(cur->derivative(0));
    EXPECT_EQ(text(d1), "DCUR(LCURVE,LAW)");
    expect_near(values(d1, {t}), fd3(cur, t), 1e-9);
    law_ref d2 = law_ref::adopt(d1->derivative(0));
    expect_near(values(d2, {t}), fd3(d1, t), 1e-9);
    expect_near(values(d2, {t}), {-std::cos(t), -std::sin(t), 0}, 1e-12);
    EXPECT_TRUE(law_ref::adopt(cur->derivative(1))->zero());
    // The curve's own geometry: curvature vector, arc length, nearest point, distance.
    const double k = 1 / 1.01, speed = std::sqrt(1.01);
    expect_near(values(make_law<curvature_law>(h.d), {t}), {-k * std::cos(t), -k * std::sin(t), 0},
                1e-12);
    auto* path = static_cast<path_law_data*>(h.d);
    EXPECT_NEAR(path->length(0, 2 * M_PI), 2 * M_PI * speed, 1e-12);
    EXPECT_NEAR(path->length_param(1.0, 2.0 * speed), 3.0, 1e-12);
    // (2 cos 1, 2 sin 1, 0.1) lies on the normal through the helix point at t = 1.
    const std::vector<double> p = {2 * std::cos(1.0), 2 * std::sin(1.0), 0.1};
    EXPECT_NEAR(values(make_law<intersect_lawi>(h.d), p)[0], 1.0, 1e-12);
    EXPECT_NEAR(values(make_law<distance_lawi>(h.d), p)[0], 1.0, 1e-12);
    // The datum evaluates point and derivatives together, and no higher than it can.
    QEM::position at;
    QEM::vector first, second;
    QEM::vector* derivs[2] = {&first, &second};
    EXPECT_EQ(static_cast<curve_law*>(cur.get())->evaluate(t, at, derivs, 2), 2);
    EXPECT_NEAR(first.x(), -std::sin(t), 1e-15);
    EXPECT_NEAR(second.y(), -std::sin(t), 1e-12);
    EXPECT_LAW_ERROR(path->eval(t, 4), LAW_DATA_CURVE);
    // A straight curve is linear and not planar; the helix is neither.
    datum_ref line(new law_curve_law_data(parse("VEC(1+X,2*X,3)").get(), 0, 1));
    QEM::position root;
    QEM::unit_vector dir;
    EXPECT_TRUE(static_cast<curve_law*>(make_law<curve_law>(line.d).get())->is_linear(root, dir));
    EXPECT_NEAR(dir.y(), 2 / std::sqrt(5.0), 1e-15);
    EXPECT_FALSE(static_cast<curve_law*>(cur.get())->is_linear(root, dir));
    EXPECT_FALSE(static_cast<curve_law*>(cur.get())->is_planar(root, dir));
}

TEST_F(LawData, PrintingNumbersEveryUseAndTheTextReadsBackWithItsData) {
    datum_ref h(helix());
    const int uses = h->ref_count();
    law_ref cur = make_law<curve_law>(h.d);
    law_ref twice = op<plus_law>(cur, law_ref::adopt(cur->derivative(0)));
    // Without a count: keywords alone, and no use taken.
    EXPECT_EQ(text(twice), "CUR(LCURVE)+DCUR(LCURVE,LAW)");
    EXPECT_EQ(h->ref_count(), uses + 2);
    // With one: every printing takes a new number, the same curve included.
    law_data** data = nullptr;
    int n = 0;
    char* s = twice->string_and_data(&data, &n);
    EXPECT_STREQ(s, "CUR(LCURVE1)+DCUR(LCURVE2,LAW3)");
    ASSERT_EQ(n, 3);
    EXPECT_EQ(data[0], h.d);
    EXPECT_EQ(data[1], h.d);
    EXPECT_EQ(static_cast<law_law_data*>(data[2])->data_law()->eval(0), 1.0);
    law_ref back = parse(s, data, n);
    ASSERT_TRUE(back);
    expect_near(values(back, {0.4}), values(twice, {0.4}), 0);
    char* again = back->string();
    EXPECT_STREQ(again, "CUR(LCURVE)+DCUR(LCURVE,LAW)");
    for (int i = 0; i < n; ++i) data[i]->remove();
    vorn_discard(data);
    vorn_discard(s);
    vorn_discard(again);
    // Every law datum kind prints and reads back the same way.
    datum_ref surf(new law_surface_law_data(parse("VEC(X,Y,X*Y)").get(), QEM::interval(0, 1),
                                            QEM::interval(-1, 1)));
    const QEM::transf quarter = QEM::rotate_transf(M_PI / 2, QEM::vector(0, 0, 1));
    datum_ref turn(new rigid_transform_law_data(&quarter));
    law_data* given[3] = {surf.d, new law_law_data(parse("VEC(X,1,0)").get()), turn.d};
    law_ref mixed = parse("SURF(X)+TRANS(LAW2,TRANSFORM3)+MEANCUR(LSURFACE1)*VEC(0,0,1)", given, 3);
    ASSERT_TRUE(mixed);
    expect_near(values(mixed, {0.5, 0.25}),
                {0.5 - 1, 0.25 + 0.5, 0.125 + 0.125 / std::pow(1.3125, 1.5)}, 1e-12);
    s = mixed->string_and_data(&data, &n);
    EXPECT_STREQ(s, "SURF(LSURFACE1)+TRANS(LAW2,TRANSFORM3)+MEANCUR(LSURFACE4)*VEC(0,0,1)");
    law_ref mixed_back = parse(s, data, n);
    ASSERT_TRUE(mixed_back);
    EXPECT_TRUE(*mixed_back.get() == *mixed.get());
    for (int i = 0; i < n; ++i) data[i]->remove();
    vorn_discard(data);
    vorn_discard(s);
    given[1]->remove();
    for (law_ref* l : {&cur, &twice, &back}) *l = law_ref();
    EXPECT_EQ(h->ref_count(), uses);
}

// A pattern of three translations, by (i, 0, 0).
struct row_pattern final : base_pattern_law_data {
    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "ROW"; }
    law_data* deep_copy(pointer_map*) const override { return new row_pattern; }
    int size() const override { return 3; }
    QEM::transf get_transf(int i) const override {
        return QEM::translate_transf(QEM::vector(i, 0, 0));
    }
};
// Joined to the registry the way a kernel joins its kinds, so its keyword reads.
LAW_REGISTER_DATA_PROTOTYPE(row_pattern)

TEST_F(LawData, ChecksReportBadDataAndBuildNothing) {
    datum_ref h(helix()), pattern(new row_pattern);
    datum_ref one(new law_law_data(K(1).get())), vec_order(new law_law_data(vec({X(), X()}).get()));
    datum_ref two_in(new law_law_data(op<plus_law>(X(), Y()).get()));
    auto* dcur = static_cast<const multiple_data_law*>(registered("DCUR", multiple_data_law_id));
    auto* dpcur = static_cast<const multiple_data_law*>(registered("DPCUR", multiple_data_law_id));
    auto* dsurf = static_cast<const multiple_data_law*>(registered("DSURF", multiple_data_law_id));
    auto* cur = static_cast<const unary_data_law*>(registered("CUR", unary_data_law_id));
    auto build = [](const multiple_data_law* p, std::vector<law_data*> d) {
        return law_ref::adopt(p->make_one(d.data(), static_cast<int>(d.size())));
    };
    EXPECT_TRUE(build(dcur, {h.d, one.d}));
    EXPECT_FALSE(reported_toxic());
    // Counts (DPCUR alone accepts more), types, null data, order laws of the wrong shape.
    EXPECT_FALSE(build(dcur, {h.d, one.d, one.d}));
    EXPECT_TRUE(reported_toxic());
    datum_ref uv(new law_pcurve_law_data(vec({X(), K(2)}).get(), 0, 1));
    EXPECT_TRUE(build(dpcur, {uv.d, one.d, one.d}));
    EXPECT_FALSE(build(dpcur, {h.d, one.d}));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(build(dcur, {h.d, nullptr}));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(build(dcur, {h.d, vec_order.d}));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(build(dcur, {h.d, two_in.d}));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(build(dsurf, {h.d, one.d, one.d}));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(law_ref::adopt(cur->make_one(pattern.d)));
    EXPECT_TRUE(reported_toxic());
    // A restore that tolerates problems skips the shape of the order law, not the types.
    register_law_restore_problem_callback(
        nullptr, [] { return true; }, [] { return true; });
    EXPECT_TRUE(build(dcur, {h.d, vec_order.d}));
    EXPECT_FALSE(build(dcur, {pattern.d, one.d}));
    register_law_restore_problem_callback(nullptr, nullptr, nullptr);
    EXPECT_TRUE(reported_toxic());
    // The parser: a datum of the wrong type, an index past the data.
    EXPECT_FALSE(parse("CUR(X)", &pattern.d, 1));
    EXPECT_TRUE(reported_toxic());
    EXPECT_FALSE(parse("CUR(LCURVE2)", &h.d, 1));
    // Built directly over the wrong datum, a law raises when evaluated.
    EXPECT_LAW_ERROR(make_law<curve_law>(pattern.d)->eval(0), LAW_EVAL);
    // Geometry refuses laws of the wrong shape and pieces that are not curves.
    EXPECT_LAW_ERROR(new law_curve_law_data(op<plus_law>(X(), Y()).get(), 0, 1), LAW_DIM);
    EXPECT_LAW_ERROR(new law_surface_law_data(X().get(), QEM::interval(), QEM::interval()),
                     LAW_DIM);
    base_curve_law_data* bad[1] = {nullptr};
    EXPECT_LAW_ERROR(new law_wire_law_data(bad, 1), LAW_DATA_UNKNOWN);
    // PATTRANS: transform i as 12 values, and nothing outside the pattern.
    law_ref pt = make_law<patterntrans_law>(pattern.d);
    EXPECT_EQ(values(pt, {2})[9], 2.0);
    EXPECT_EQ(values(pt, {2})[0], 1.0);
    EXPECT_LAW_ERROR(pt->eval(3), LAW_EVAL);
}

// (2 cos u cos v, 2 sin u cos v, 2 sin v): a sphere of radius 2 with outward normals.
TEST_F(LawData, SurfaceCurvaturesOfSphereAndCylinder) {
    datum_ref sphere(
        new law_surface_law_data(parse("VEC(2*COS(X)*COS(Y),2*SIN(X)*COS(Y),2*SIN(Y))").get(),
                                 QEM::interval(0, 6), QEM::interval(-1.5, 1.5)));
    datum_ref cylinder(new law_surface_law_data(parse("VEC(2*COS(X),2*SIN(X),Y)").get(),
                                                QEM::interval(0, 6), QEM::interval(0, 1)));
    const std::vector<double> uv = {0.3, 0.4};
    auto curv = [&](law_data* s) {
        return std::vector<double>{values(make_law<gaussian_curvature_law>(s), uv)[0],
                                   values(make_law<mean_curvature_law>(s), uv)[0],
                                   values(make_law<max_curvature_law>(s), uv)[0],
                                   values(make_law<min_curvature_law>(s), uv)[0]};
    };
    expect_near(curv(sphere.d), {0.25, 0.5, 0.5, 0.5}, 1e-12);
    expect_near(curv(cylinder.d), {0, 0.25, 0.5, 0}, 1e-12);
    // SURF's partials are DSURF of the raised orders, and agree with finite differences.
    law_ref s = make_law<surface_law>(sphere.d);
    law_ref su = law_ref::adopt(s->derivative(0));
    law_ref suv = law_ref::adopt(su->derivative(1));
    EXPECT_EQ(text(suv), "DSURF(LSURFACE,LAW,LAW)");
    const double h = 1e-5;
    auto at = [&](const law_ref& l, double du, double dv) {
        return values(l, {uv[0] + du, uv[1] + dv});
    };
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(values(su, uv)[i], (at(s, h, 0)[i] - at(s, -h, 0)[i]) / (2 * h), 1e-9);
        EXPECT_NEAR(values(suv, uv)[i], (at(su, 0, h)[i] - at(su, 0, -h)[i]) / (2 * h), 1e-9);
    }
    QEM::interval dom;
    s->term_domain(1, dom);
    EXPECT_EQ(dom, QEM::interval(-1.5, 1.5));
    // BS reads the same surface.
    expect_near(values(make_law<bs3_surface_law>(sphere.d), uv), values(s, uv), 0);
}

TEST_F(LawData, WireJoinsPiecesUnderOneParameter) {
    // (t, 0, 0) on [0, 1], then (1, t - 2, 0) on [2, 3]: a corner at wire parameter 1.
    datum_ref a(new law_curve_law_data(vec({X(), K(0), K(0)}).get(), 0, 1));
    datum_ref b(new law_curve_law_data(vec({K(1), op<minus_law>(X(), K(2)), K(0)}).get(), 2, 3));
    base_curve_law_data* pieces[2] = {static_cast<base_curve_law_data*>(a.d),
                                      static_cast<base_curve_law_data*>(b.d)};
    datum_ref w(new law_wire_law_data(pieces, 2));
    law_ref wire = make_law<wire_law>(w.d);
    expect_near(values(wire, {1.5}), {1, 0.5, 0}, 1e-15);
    law_ref dw = law_ref::adopt(wire->derivative(0));
    const int below = -1, above = 1;
    EXPECT_EQ(dw->evaluateR_V(1.0, &below), QEM::vector(1, 0, 0));
    EXPECT_EQ(dw->evaluateR_V(1.0, &above), QEM::vector(0, 1, 0));
    auto* path = static_cast<path_law_data*>(w.d);
    EXPECT_NEAR(path->length(0, 2), 2.0, 1e-14);
    double* where = nullptr;
    int* order = nullptr;
    ASSERT_EQ(path->discontinuities(&where, &order, 0, 2), 1);
    EXPECT_EQ(where[0], 1.0);
    EXPECT_EQ(order[0], 1);
    vorn_discard(where);
    vorn_discard(order);
    EXPECT_LAW_ERROR(path->eval(0.5, 4), LAW_DATA_WIRE);
}

TEST_F(LawData, TransformsAndGrids) {
    const QEM::transf move =
        QEM::rotate_transf(0.3, QEM::vector(1, 1, 0)) * QEM::translate_transf(QEM::vector(1, 2, 3));
    datum_ref t(new rigid_transform_law_data(&move));
    auto* rigid = static_cast<base_transform_law_data*>(t.d);
    const QEM::position p(0.5, -1, 2);
    const QEM::position back = rigid->transform_inverse(rigid->transform(p));
    EXPECT_NEAR((back - p) % (back - p), 0, 1e-28);
    // TRANS moves the points of a law; its derivative turns the tangent only.
    law_data* given[2] = {new law_law_data(parse("VEC(X,X^2,1)").get()), t.d};
    law_ref tl = parse("TRANS(LAW1,TRANSFORM2)", given, 2);
    given[0]->remove();
    ASSERT_TRUE(tl);
    const QEM::position moved = QEM::position(0.5, 0.25, 1) * move;
    expect_near(values(tl, {0.5}), {moved.x(), moved.y(), moved.z()}, 1e-15);
    expect_near(values(law_ref::adopt(tl->derivative(0)), {0.5}), fd3(tl, 0.5), 1e-9);
    // Grids: sizes, indexing, the unit-cube reset and the smooth drag.
    EXPECT_EQ(static_cast<position_grid_law_data*>(datum_ref(new position_grid_law_data).d)
                  ->get_data_size(),
              1);
    const int dims[3] = {3, 2, 2};
    std::vector<QEM::position> pts(12);
    for (int i = 0; i < 12; ++i) pts[i] = QEM::position(i, 0, 0);
    datum_ref g(new position_grid_law_data(pts.data(), dims, 3));
    auto* grid = static_cast<position_grid_law_data*>(g.d);
    int x, y, z;
    grid->index_to_xyz(10, x, y, z);
    EXPECT_EQ(std::vector<int>({x, y, z}), std::vector<int>({1, 1, 1}));
    grid->reset_point(10);
    EXPECT_EQ(grid->get_data()[10], QEM::position(0.5, 1, 1));
    const int one[3] = {1, 1, 1};
    datum_ref single(new position_grid_law_data(pts.data(), one, 3));
    static_cast<position_grid_law_data*>(single.d)->reset_point(0);
    EXPECT_EQ(static_cast<position_grid_law_data*>(single.d)->get_data()[0],
              QEM::position(1, 1, 1));
    int moved_index = 0;
    grid->update_point(&moved_index, 1, QEM::vector(0, 1, 0), 2.0);
    EXPECT_EQ(grid->get_data()[0].y(), 1.0);
    EXPECT_EQ(grid->get_data()[1].y(), 0.5625);  // distance 1 of 2: (1 - 1/4)^2
    EXPECT_EQ(grid->get_data()[2].y(), 0.0);
}

// The data a law refers to, in order of numbering (borrowed).
std::vector<law_data*> data_of(const law* l) {
    law_data** data = nullptr;
    int n = 0;
    vorn_discard(l->string_and_data(&data, &n));
    std::vector<law_data*> out(data, data + n);
    for (law_data* d : out) d->remove();
    vorn_discard(data);
    return out;
}

TEST_F(LawData, DeepCopiesAndSavedLawsShareWhatTheOriginalShares) {
    datum_ref h(helix());
    law_ref sine = parse("SIN(X)");
    law_ref cur = make_law<curve_law>(h.d);
    law_ref both = op<plus_law>(op<plus_law>(cur, law_ref::adopt(cur->derivative(0))),
                                op<times_law>(sine, sine));
    law_ref copy = law_ref::adopt(law_deep_copy(both.get()));
    EXPECT_TRUE(*copy.get() == *both.get());
    auto copied = data_of(copy.get());
    ASSERT_EQ(copied.size(), 3u);
    EXPECT_EQ(copied[0], copied[1]);  // one copy of the shared curve
    EXPECT_NE(copied[0], h.d);
    auto* square = static_cast<binary_law*>(static_cast<binary_law*>(copy.get())->fright());
    EXPECT_EQ(square->fleft(), square->fright());
    EXPECT_NE(square->fleft(), sine.get());
    // Saved with a wire, a surface and a transform, and read back: an equal law, the
    // shared curve still shared.
    datum_ref a(new law_curve_law_data(vec({X(), K(0), K(0)}).get(), 0, 1));
    base_curve_law_data* pieces[2] = {static_cast<base_curve_law_data*>(a.d),
                                      static_cast<base_curve_law_data*>(h.d)};
    datum_ref w(new law_wire_law_data(pieces, 2));
    datum_ref surf(new law_surface_law_data(parse("VEC(X,Y,X*Y)").get(), QEM::interval(0, 1),
                                            QEM::interval(-1, 1)));
    const QEM::transf turn = QEM::rotate_transf(0.1, QEM::vector(0, 1, 1)) *
                             QEM::translate_transf(QEM::vector(0.1, 0.2, 0.3));
    datum_ref rigid(new rigid_transform_law_data(&turn));
    law_data* given[5] = {h.d, w.d, surf.d, rigid.d, new law_law_data(both.get())};
    law_ref all = parse("LAW5+WIRE(LWIRE2)+SURF(LSURFACE3)+TRANS(LAW5,TRANSFORM4)", given, 5);
    given[4]->remove();
    ASSERT_TRUE(all);
    std::stringstream stream;
    law_save(all.get(), stream);
    law_ref back = law_ref::adopt(law_restore(stream));
    ASSERT_TRUE(back) << stream.str();
    EXPECT_TRUE(*back.get() == *all.get());
    expect_near(values(back, {0.3, 0.6}), values(all, {0.3, 0.6}), 0);
    auto restored = data_of(back.get());
    EXPECT_EQ(restored[0], restored[1]);
    EXPECT_NE(restored[0], h.d);
    // A kernel's datum cannot be written; a damaged record is reported and reads as none.
    datum_ref pattern(new row_pattern);
    std::stringstream refused;
    EXPECT_LAW_ERROR(law_save(make_law<patterntrans_law>(pattern.d).get(), refused), LAW_DATA_SAVE);
    static int problems = 0;
    register_law_restore_problem_callback([] { ++problems; }, nullptr, nullptr);
    std::stringstream damaged("law 1\nBOGUS 1 2\n6:CUR(X)\n");
    EXPECT_FALSE(law_ref::adopt(law_restore(damaged)));
    register_law_restore_problem_callback(nullptr, nullptr, nullptr);
    EXPECT_EQ(problems, 1);
}

TEST_F(LawData, EveryDataLawReadsFromTextAndPrintsBack) {
    datum_ref h(helix()), pattern(new row_pattern);
    datum_ref uv(new law_pcurve_law_data(vec({X(), K(2)}).get(), 0, 1));
    base_curve_law_data* piece = static_cast<base_curve_law_data*>(h.d);
    datum_ref w(new law_wire_law_data(&piece, 1));
    datum_ref surf(new law_surface_law_data(parse("VEC(X,Y,X*Y)").get(), QEM::interval(0, 1),
                                            QEM::interval(0, 1)));
    datum_ref rigid(new rigid_transform_law_data);
    law_data* data[6] = {h.d, uv.d, w.d, surf.d, pattern.d, rigid.d};
    for (const char* text :
         {"CUR(LCURVE1)", "DCUR(LCURVE1,2)", "CURC(LCURVE1)", "CURI(LCURVE1)", "CURD(LCURVE1)",
          "PCUR(LPCURVE2)", "DPCUR(LPCURVE2,1,X)", "WIRE(LWIRE3)", "DWIRE(LWIRE3,1)",
          "SURF(LSURFACE4)", "BS(LSURFACE4)", "DSURF(LSURFACE4,1,0)", "GAUSCUR(LSURFACE4)",
          "MEANCUR(LSURFACE4)", "MAXCUR(LSURFACE4)", "MINCUR(LSURFACE4)", "PATTRANS(ROW5)",
          "TRANS(VEC(X,1,2),TRANSFORM6)"}) {
        law_ref l = parse(text, data, 6);
        ASSERT_TRUE(l) << text << ": " << TEST_get_error();
        law_data** collected = nullptr;
        int n = 0;
        char* printed = l->string_and_data(&collected, &n);
        law_ref back = parse(printed, collected, n);
        ASSERT_TRUE(back) << printed;
        EXPECT_TRUE(*back.get() == *l.get()) << text << " printed " << printed;
        for (int i = 0; i < n; ++i) collected[i]->remove();
        vorn_discard(collected);
        vorn_discard(printed);
    }
}

TEST_F(LawData, RegistryHoldsEveryDataKeywordOnce) {
    std::set<std::string> keywords;
    int count = 0;
    for (const law_data_list* n = law_data_list::head(); n; n = n->next(), ++count) {
        EXPECT_EQ(n->prototype()->ref_count(), 0);
        keywords.insert(n->prototype()->symbol(SYMBOL_PARSE));
    }
    EXPECT_EQ(keywords.size(), static_cast<size_t>(count));
    for (const char* k :
         {"SPLINE_LAW", "LCURVE", "LPCURVE", "LWIRE", "LSURFACE", "TRANSFORM", "GRID"})
        EXPECT_NE(get_law_data(k), nullptr) << k;
    // A datum destroyed while it is still held is reported.
    auto* w = new law_wire_law_data;
    EXPECT_LAW_ERROR(delete w, BAD_LAW_DATA_USE_COUNT);
}

}  // namespace

// Hostile saved texts: each is refused with a message saying why, in memory and stack
// bounded by the text; a length that does not match the text is an error.
TEST_F(LawData, HostileSavedTextsAreRefusedWithAMessage) {
    std::string deep;
    for (int i = 0; i < 3000; ++i) deep += "law 1\nLAW ";
    deep += "law 0\n1:X\n";
    for (int i = 0; i < 3000; ++i) deep += "4:LAW1\n";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"law 200000000\n1:X\n", "data record"},
        {"law 2147483647\n1:X\n", "data record"},
        {"law 99999999999\n1:X\n", "bad record count"},
        {"law 0\n5:LAW1+X\n", "longer than its length"},
        {"law 0\n0:\n", "bad length"},
        {"law 0\n9:X\n", "shorter than its length"},
        {"law 0\n1000000000:X\n", "shorter than its length"},
        {"law 1\nBOGUS 1 2\n6:CUR(X)\n", "was not given"},
        {"law 1\nsame 3\n6:CUR(X)\n", "was not given"},
        {"law 1\nLCURVE 0\n", "ends inside"},
        {"law 0\n6:CUR(X)\n", "was not given"},
        {"wal 0\n1:X\n", "expected \"law\""},
        {"law 0\n1:)\n", "does not read"},
        {deep, "nested deeper"},
    };
    for (const auto& c : cases) {
        std::stringstream in(c.text);
        EXPECT_FALSE(law_ref::adopt(law_restore(in))) << c.text.substr(0, 40);
        EXPECT_NE(std::string(TEST_get_error()).find(c.message), std::string::npos)
            << c.text.substr(0, 40) << " -> " << TEST_get_error();
        EXPECT_EQ(std::string(TEST_get_error()).find("assertion"), std::string::npos);
        TEST_clear_error();
    }
}

// Every law either saves to a text that restores as an equal law, or is refused by
// law_save up front with a message: never a text that fails or reads otherwise later.
TEST_F(LawData, LawsSaveToEqualLawsOrAreRefusedUpFront) {
    law_ref curve = parse("VEC(X,X^2,SIN(X))");
    datum_ref nan_range(new law_curve_law_data(curve.get(), std::nan(""), 1));
    law_data* nan_data[] = {nan_range.d};
    law_ref integral = law_ref::adopt(law_integrate(parse("COS(X)").get()));
    law_ref sampled = parse("MINROT(VEC(X,X^2,0),VEC(0,0,1),0,1)");
    law_ref p = parse("VEC(X,X^2,0)"), v = parse("VEC(0,0,1)"), s = parse("0"), e = parse("1");
    law* parts[] = {p.get(), v.get(), s.get(), e.get()};
    law_ref seven = make_law<min_rotation_law>(parts, 4, 7);
    law_ref refined = make_law<min_rotation_law>(parts, 4);
    static_cast<min_rotation_law*>(refined.get())->set_alt_eval(1);
    law_ref reflected = make_law<min_rotation_law>(parts, 4);
    static_cast<min_rotation_law*>(reflected.get())->set_min_rot_method(1);
    law_ref plain = parse("SIN(X)+1"), vec3 = parse("VEC(X,Y^2,EXP(Z))");
    law_ref on_nan = parse("CUR(X)", nan_data, 1);
    const struct {
        const law_ref& law;
        bool saves;
    } cases[] = {
        {plain, true},     {vec3, true},   {sampled, true},  {on_nan, false},
        {integral, false}, {seven, false}, {refined, false}, {reflected, false},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(c.law.get());
        std::stringstream text;
        TEST_clear_error();
        if (!c.saves) {
            EXPECT_LAW_ERROR(law_save(c.law.get(), text), LAW_DATA_SAVE);
            EXPECT_NE(std::string(TEST_get_error()).find("law save:"), std::string::npos);
            continue;
        }
        law_save(c.law.get(), text);
        law_ref back = law_ref::adopt(law_restore(text));
        ASSERT_TRUE(back) << text.str() << TEST_get_error();
        EXPECT_TRUE(*back.get() == *c.law.get()) << text.str();
    }
}
