#include <clocale>
#include <cmath>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <qem/version.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class MainLaw : public leak_checked {};

TEST_F(MainLaw, ScalarAndVectorOperandRules) {
    auto v = vec({K(1), K(2), K(3)});
    // The scalar goes to the first component only.
    EXPECT_EQ(values(op<plus_law>(K(1), v), {}), (std::vector<double>{2, 2, 3}));
    EXPECT_EQ(values(op<minus_law>(K(1), v), {}), (std::vector<double>{0, -2, -3}));
    auto w = vec({K(10), K(20)});
    EXPECT_EQ(values(op<plus_law>(v, w), {}), (std::vector<double>{11, 22, 3}));
    EXPECT_EQ(values(op<minus_law>(w, v), {}), (std::vector<double>{9, 18, -3}));
    EXPECT_EQ(values(op<times_law>(K(2), v), {}), (std::vector<double>{2, 4, 6}));
    EXPECT_EQ(values(make_law<negate_law>(v.get()), {}), (std::vector<double>{-1, -2, -3}));
    // Two vectors cannot be multiplied: raised when evaluated, not when built.
    auto vv = op<times_law>(v, w);
    EXPECT_EQ(vv->return_dim(), 3);
    double out[3];
    EXPECT_LAW_ERROR(vv->evaluate(nullptr, out), LAW_TIMES);
}

TEST_F(MainLaw, VectorsLongerThanFourUseTheHeapAndReleaseIt) {
    auto v = vec({K(0), K(1), K(2), K(3), K(4), K(5)});
    auto w = vec({K(1), K(1), K(1), K(1), K(1), K(1)});
    EXPECT_EQ(values(op<plus_law>(v, w), {}), (std::vector<double>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(values(op<plus_law>(v, v), {}), (std::vector<double>{0, 2, 4, 6, 8, 10}));
    double out[6];
    // An error raised while a temporary lives on the heap frees it (the fixture checks).
    EXPECT_LAW_ERROR(op<times_law>(v, w)->evaluate(nullptr, out), LAW_TIMES);
    auto inner = vec({X(), X(), X(), X(), make_law<natural_log_law>(X().get())});
    auto outer = make_law<term_law>(std::vector<law*>{inner.get(), K(5).get()}.data(), 2);
    EXPECT_NEAR(outer->eval(M_E), 1.0, 1e-15);
    EXPECT_LAW_ERROR(outer->eval(-1.0), LAW_LN);
}

TEST_F(MainLaw, DivisionRules) {
    auto x = X();
    // A vector over zero: the denominator is clamped to 1e-15, no error.
    auto v = op<division_law>(vec({K(1), K(2), K(3)}), x);
    const std::vector<double> r = values(v, {0.0});
    EXPECT_DOUBLE_EQ(r[0], 1e15);
    EXPECT_DOUBLE_EQ(r[2], 3e15);
    EXPECT_DOUBLE_EQ(values(v, {-1e-20})[1], -2e15);  // the sign is kept
    // x/x at 0 by L'Hospital's rule; x^2/x^2 needs second derivatives and is refused.
    auto xx = op<division_law>(x, x);
    EXPECT_EQ(xx->eval(0.0), 1.0);
    auto sin_like = op<division_law>(op<times_law>(K(3), x), op<times_law>(x, K(2)));
    EXPECT_EQ(sin_like->eval(0.0), 1.5);
    auto sq = op<times_law>(x, x);
    EXPECT_LAW_ERROR(op<division_law>(sq, sq)->eval(0.0), LAW_LHOSPITAL);
    EXPECT_LAW_ERROR(op<division_law>(K(1), x)->eval(0.0), LAW_ZERODIVIDE);
    // Below the resolution tolerance counts as zero when the numerator is not.
    EXPECT_LAW_ERROR(op<division_law>(K(1), x)->eval(1e-7), LAW_ZERODIVIDE);
    EXPECT_EQ(lawutil_context()->lhospital_depth, 0);
    // A vector denominator is refused when the law is built, leaking nothing.
    auto w = vec({K(1), K(2)});
    const int uses = x->ref_count();
    EXPECT_LAW_ERROR(new division_law(x.get(), w.get()), LAW_DIVISION);
    EXPECT_EQ(x->ref_count(), uses);
}

TEST_F(MainLaw, ExponentRulesAndVersionGate) {
    auto x = X();
    auto third = op<division_law>(K(1), K(3));
    EXPECT_LAW_ERROR(op<exponent_law>(K(-8), third)->eval(0.0), LAW_EXPONENT);
    EXPECT_LAW_ERROR(op<exponent_law>(K(0), K(0))->eval(0.0), LAW_EXPONENT);
    EXPECT_LAW_ERROR(op<exponent_law>(K(0), K(-1))->eval(0.0), LAW_EXPONENT);
    EXPECT_EQ(op<exponent_law>(K(0), K(2))->eval(0.0), 0.0);
    auto nearly_three = op<exponent_law>(K(-2), K(3 + 1e-9));
    EXPECT_EQ(nearly_three->eval(0.0), -8.0);  // rounded to the integer within tolerance
    EXPECT_EQ(op<exponent_law>(K(-2), K(2))->eval(0.0), 4.0);
    EXPECT_EQ(op<exponent_law>(x, K(0.5))->eval(2.25), 1.5);
    set_global_version(2170000);  // older models demand an exact integer
    EXPECT_LAW_ERROR(nearly_three->eval(0.0), LAW_EXPONENT);
    EXPECT_EQ(op<exponent_law>(K(-2), K(3))->eval(0.0), -8.0);
    set_global_version(latest_global_version());
}

TEST_F(MainLaw, SameOperandIsEvaluatedOnce) {
    struct counting_law : law {
        mutable int calls = 0;
        const char* class_name() const override { return "counting_law"; }
        void evaluate(const double* x, double* answer) const override {
            ++calls;
            answer[0] = x[0] + 1;
        }
    };
    auto* c = new counting_law;
    law_ref held = law_ref::adopt(c);
    auto sq = make_law<times_law>(c, c);
    EXPECT_EQ(sq->eval(2.0), 9.0);
    EXPECT_EQ(c->calls, 1);
    auto pair = vec({law_ref::retain(c), law_ref::retain(c)});
    auto dot = make_law<plus_law>(pair.get(), pair.get());
    c->calls = 0;
    EXPECT_EQ(values(dot, {1.0}), (std::vector<double>{4, 4}));
    EXPECT_EQ(c->calls, 2);  // the vector once, each part once
}

TEST_F(MainLaw, PrintsOperatorsWithMinimalParentheses) {
    auto x = X(), y = Y();
    auto z = make_law<identity_law>(2, 'Z');
    // A letter prints alone where the parser reads it back as the same coordinate.
    EXPECT_EQ(text(make_law<identity_law>(1, 'X')), "X2");
    EXPECT_EQ(text(make_law<identity_law>(0, 'Y')), "Y1");
    EXPECT_EQ(text(make_law<identity_law>(1, 'V')), "V");
    EXPECT_EQ(text(op<plus_law>(op<plus_law>(x, y), z)), "X+Y+Z");
    EXPECT_EQ(text(op<plus_law>(x, op<plus_law>(y, z))), "X+Y+Z");
    EXPECT_EQ(text(op<minus_law>(x, op<minus_law>(y, z))), "X-(Y-Z)");
    EXPECT_EQ(text(op<minus_law>(op<minus_law>(x, y), z)), "(X-Y)-Z");
    EXPECT_EQ(text(op<exponent_law>(op<plus_law>(x, K(1)), K(2))), "(X+1)^2");
    EXPECT_EQ(text(op<exponent_law>(x, K(2)), SYMBOL_SECOND), "X**2");
    EXPECT_EQ(text(make_law<negate_law>(op<plus_law>(x, K(1)).get())), "-(X+1)");
    EXPECT_EQ(text(make_law<composite_law>(make_law<natural_log_law>(x.get()).get(),
                                           op<plus_law>(x, K(1)).get())),
              "(LN(X))O(X+1)");  // a function binds no tighter than the composition
}

TEST_F(MainLaw, PrintsNumbersWithSixteenDigitsInTheCLocale) {
    EXPECT_EQ(text(K(0.1)), "0.1");
    EXPECT_EQ(text(K(-2)), "-2");
    EXPECT_EQ(text(K(1e20)), "1e+20");
    EXPECT_EQ(text(K(1.0 / 3.0)), "0.3333333333333333");
    if (std::setlocale(LC_ALL, "de_DE.UTF-8")) {
        EXPECT_EQ(text(K(1.5)), "1.5");
        std::setlocale(LC_ALL, "C");
    }
}

TEST_F(MainLaw, DerivativeTreesKeepTheirOperandOrder) {
    auto x = X(), y = Y();
    // (ab)' = a'b + b'a, before any simplification.
    law_ref raw_times = law_ref::adopt(op<times_law>(x, y)->unsimplified_derivative(0));
    EXPECT_EQ(text(raw_times), "1*Y+0*X");
    law_ref raw_div = law_ref::adopt(op<division_law>(x, y)->unsimplified_derivative(0));
    EXPECT_EQ(text(raw_div), "(Y*1-X*0)/Y^2");
}

TEST_F(MainLaw, DerivativesAgreeWithFiniteDifferences) {
    auto x = X(), y = Y();
    expect_derivative_matches(op<plus_law>(op<times_law>(x, x), K(1)), {0.7}, 0);
    expect_derivative_matches(op<division_law>(op<plus_law>(x, K(1)), op<minus_law>(x, K(1))),
                              {3.0}, 0);
    expect_derivative_matches(op<exponent_law>(x, K(3)), {1.3}, 0);
    expect_derivative_matches(op<exponent_law>(x, x), {1.5}, 0);
    expect_derivative_matches(op<exponent_law>(K(2), op<times_law>(x, y)), {0.5, 1.5}, 1);
    auto xy = op<times_law>(x, make_law<negate_law>(y.get()));
    expect_derivative_matches(xy, {2.0, 5.0}, 0);
    expect_derivative_matches(xy, {2.0, 5.0}, 1);
    auto q = op<division_law>(x, y);
    expect_derivative_matches(q, {2.0, 5.0}, 1);
    // Second derivatives are derivatives of the cached first ones.
    auto cube = op<exponent_law>(x, K(3));
    law_ref d1 = law_ref::adopt(cube->derivative(0));
    expect_derivative_matches(d1, {1.7});
}

TEST_F(MainLaw, CompositionAndChainRule) {
    auto x = X(), y = Y();
    // ln o (x^2 + 1)
    auto inner = op<plus_law>(op<times_law>(x, x), K(1));
    auto f = make_law<composite_law>(make_law<natural_log_law>(x.get()).get(), inner.get());
    EXPECT_NEAR(f->eval(2.0), std::log(5.0), 1e-15);
    EXPECT_EQ(f->take_dim(), 1);
    expect_derivative_matches(f, {0.8}, 0);
    // (u, v) -> u * v over (x^2, x + 1): the second constructor builds the vector.
    auto uv = op<times_law>(x, y);
    law* inners[2] = {op<times_law>(x, x).release(), op<plus_law>(x, K(1)).release()};
    auto g = make_law<composite_law>(uv.get(), inners, 2);
    law::remove(inners[0]);
    law::remove(inners[1]);
    EXPECT_EQ(g->eval(3.0), 36.0);
    EXPECT_TRUE(static_cast<binary_law*>(g.get())->fright()->isa(vector_law_id));
    expect_derivative_matches(g, {1.3}, 0);
    // A vector inner law that is not a vector_law goes through its components.
    auto shifted = op<plus_law>(vec({op<times_law>(x, x), x}), K(1));
    auto h = make_law<composite_law>(uv.get(), shifted.get());
    EXPECT_EQ(h->eval(2.0), 10.0);  // (x^2 + 1) * x
    expect_derivative_matches(h, {2.0}, 0);
}

TEST_F(MainLaw, NullPartsAreReportedWhenEvaluated) {
    auto x = X();
    auto p = make_law<plus_law>(x.get(), nullptr);
    EXPECT_EQ(text(p), "X+NULL");
    EXPECT_LAW_ERROR(p->eval(1.0), LAW_EVAL);
    auto n = make_law<negate_law>(nullptr);
    EXPECT_LAW_ERROR(n->eval(1.0), LAW_EVAL);
}

}  // namespace
