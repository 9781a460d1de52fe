#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class LogicLaw : public leak_checked {};

// A scalar law that counts its evaluations and answers `value`.
struct counting_law : law {
    explicit counting_law(double v) : value(v) {}
    double value;
    mutable int calls = 0;
    const char* class_name() const override { return "counting_law"; }
    void evaluate(const double*, double* answer) const override {
        ++calls;
        answer[0] = value;
    }
};

const double nan = std::numeric_limits<double>::quiet_NaN();

TEST_F(LogicLaw, ComparisonsAreExact) {
    auto x = X(), two = K(2);
    // Read from text, so each operator is also found by its keyword.  No tolerance: the
    // next double after 2 is not 2.
    const double next = std::nextafter(2.0, 3.0);
    const struct {
        const char* text;
        double at, want;
    } cases[] = {{"X<2", 2, 0},     {"X<2", 1.5, 1},  {"X<=2", 2, 1}, {"X<=2", 2.5, 0},
                 {"X>2", 2, 0},     {"X>2", 3, 1},    {"X>=2", 2, 1}, {"X>=2", 1, 0},
                 {"X=2", 2, 1},     {"X=2", next, 0}, {"X!=2", 2, 0}, {"X!=2", next, 1},
                 {"X AND 0", 1, 0}, {"0 OR X", 3, 1}, {"TRUE", 0, 1}, {"FALSE", 0, 0}};
    for (const auto& c : cases) {
        law_ref l = law_ref::adopt(str_to_law(c.text));
        ASSERT_TRUE(l) << c.text;
        EXPECT_EQ(l->eval(c.at), c.want) << c.text << " at " << c.at;
    }
    // NaN compares false everywhere and unequal to itself.
    EXPECT_EQ(op<equal_law>(x, x)->eval(nan), 0.0);
    EXPECT_EQ(op<not_equal_law>(x, K(nan))->eval(1.0), 1.0);
    // Vector operands are read as scalars: their first components.
    auto v = vec({x, K(9)});
    auto c = op<less_than_law>(v, K(2));
    EXPECT_EQ(c->return_dim(), 1);
    EXPECT_EQ(c->eval(1.0), 1.0);
    // Neither comparisons nor connectives have a derivative.
    EXPECT_LAW_ERROR(op<less_than_law>(x, two)->derivative(0), LAW_DERIV);
    EXPECT_LAW_ERROR(op<and_law>(x, two)->derivative(0), LAW_DERIV);
    EXPECT_LAW_ERROR(op<or_law>(x, two)->derivative(0), LAW_DERIV);
    // Folded by the simplifier like any operator over constants.
    EXPECT_EQ(text(law_ref::adopt(law_simplify(op<less_than_law>(K(1), two).get()))), "1");
}

TEST_F(LogicLaw, AndShortCircuitsAndOrDoesNot) {
    auto x = X();
    auto* c = new counting_law(5.0);
    law_ref l = law_ref::adopt(c);
    EXPECT_EQ(op<and_law>(K(0), l)->eval(0), 0.0);
    EXPECT_EQ(c->calls, 0);
    EXPECT_EQ(op<and_law>(K(1), l)->eval(0), 1.0);
    EXPECT_EQ(c->calls, 1);
    c->calls = 0;
    EXPECT_EQ(op<and_law>(l, l)->eval(0), 1.0);
    EXPECT_EQ(c->calls, 1);  // the same object: its value is reused
    c->calls = 0;
    EXPECT_EQ(op<or_law>(K(1), l)->eval(0), 1.0);
    EXPECT_EQ(c->calls, 1);  // evaluated although the answer was known
    EXPECT_EQ(op<or_law>(K(0), K(-2))->eval(0), 1.0);
    EXPECT_EQ(op<and_law>(K(3), K(-2))->eval(0), 1.0);
    // NaN is not 0, so it is true.
    EXPECT_EQ(op<and_law>(K(nan), K(1))->eval(0), 1.0);
    EXPECT_EQ(op<or_law>(K(0), K(nan))->eval(0), 1.0);
    // The asymmetry shows in errors: AND never reaches a failing right operand after a
    // false left one; OR always does.
    auto ln = fn<natural_log_law>(x);
    EXPECT_EQ(op<and_law>(op<greater_than_law>(x, K(0)), ln)->eval(-1.0), 0.0);
    EXPECT_LAW_ERROR(op<or_law>(K(1), ln)->eval(-1.0), LAW_LN);
}

TEST_F(LogicLaw, PrintingAndPrecedences) {
    auto x = X(), y = Y();
    auto both = op<and_law>(op<less_than_law>(x, K(1)), op<greater_than_or_equal_law>(y, K(2)));
    EXPECT_EQ(text(both), "X<1ANDY>=2");
    auto either = op<or_law>(both, op<not_equal_law>(x, y));
    EXPECT_EQ(text(either), "X<1ANDY>=2ORX!=Y");
    EXPECT_EQ(text(op<not_equal_law>(x, y), SYMBOL_SECOND), "X<>Y");
    // A weaker operator under a stronger one keeps its parentheses.
    EXPECT_EQ(text(op<less_than_law>(op<or_law>(x, y), K(1))), "(XORY)<1");
    EXPECT_EQ(text(op<less_than_law>(op<plus_law>(x, y), K(1))), "X+Y<1");
}

TEST_F(LogicLaw, ExtremaKeepTheFirstOfEqualParts) {
    auto x = X();
    auto m = multi<max_law>({x, K(2), fn<negate_law>(x)});
    EXPECT_EQ(m->eval(-3.0), 3.0);
    EXPECT_EQ(m->eval(5.0), 5.0);
    EXPECT_EQ(multi<min_law>({x, K(2), fn<negate_law>(x)})->eval(-3.0), -3.0);
    // Equal values: the first part stays.  +0 and -0 are equal and tell which one it was.
    EXPECT_FALSE(std::signbit(multi<min_law>({K(0.0), K(-0.0)})->eval(0)));
    EXPECT_TRUE(std::signbit(multi<min_law>({K(-0.0), K(0.0)})->eval(0)));
    EXPECT_FALSE(std::signbit(multi<max_law>({K(0.0), K(-0.0)})->eval(0)));
    // A later NaN never replaces the answer; a first NaN is never replaced.
    EXPECT_EQ(multi<max_law>({K(1), K(nan)})->eval(0), 1.0);
    EXPECT_TRUE(std::isnan(multi<max_law>({K(nan), K(1)})->eval(0)));
    // A vector part is reported (see the vector tests); the law stays a scalar.
    EXPECT_EQ(made("MIN", {x.get(), vec({x, x}).get()})->return_dim(), 1);
}

TEST_F(LogicLaw, ExtremaDerivativesFollowTheSelectedPart) {
    auto x = X();
    auto m = multi<max_law>({x, K(2), fn<negate_law>(x)});
    law_ref d = law_ref::adopt(m->derivative(0));
    EXPECT_EQ(d->eval(-3.0), -1.0);
    EXPECT_EQ(d->eval(0.0), 0.0);
    EXPECT_EQ(d->eval(3.0), 1.0);
    auto x2 = op<exponent_law>(x, K(2));
    auto wave = multi<min_law>({fn<sin_law>(x), x2, op<plus_law>(x, K(0.5))});
    for (double at : {-2.0, -0.3, 0.2, 1.1, 2.5}) expect_derivative_matches(wave, {at}, 0, 1e-8);
    // At a tie the first part's derivative is taken, as evaluation takes its value.
    law_ref first_x = law_ref::adopt(multi<max_law>({x, x2})->derivative(0));
    law_ref first_sq = law_ref::adopt(multi<max_law>({x2, x})->derivative(0));
    EXPECT_EQ(first_x->eval(1.0), 1.0);
    EXPECT_EQ(first_sq->eval(1.0), 2.0);
    law_ref min_tie = law_ref::adopt(multi<min_law>({x2, x})->derivative(0));
    EXPECT_EQ(min_tie->eval(1.0), 2.0);
    EXPECT_EQ(min_tie->eval(0.5), 1.0);  // x^2 < x here
}

TEST_F(LogicLaw, PiecewiseChoosesTheFirstHoldingCondition) {
    auto x = X();
    auto neg = fn<negate_law>(x);
    auto abs_like = multi<piecewise_law>({op<less_than_law>(x, K(0)), neg, x});
    EXPECT_EQ(abs_like->eval(-3.0), 3.0);
    EXPECT_EQ(abs_like->eval(5.0), 5.0);
    EXPECT_EQ(abs_like->eval(0.0), 0.0);
    // Conditions are tried in order.
    auto bands = multi<piecewise_law>(
        {op<less_than_law>(x, K(1)), K(10), op<less_than_law>(x, K(2)), K(20), K(30)});
    EXPECT_EQ(bands->eval(1.5), 20.0);
    EXPECT_EQ(bands->eval(2.0), 30.0);
    // An even count: the last condition's law is also the default, so it has no effect.
    auto even = multi<piecewise_law>(
        {op<less_than_law>(x, K(0)), neg, op<greater_than_law>(x, K(10)), K(7)});
    EXPECT_EQ(even->eval(20.0), 7.0);
    EXPECT_EQ(even->eval(-1.0), 1.0);
    // A NaN condition holds.
    EXPECT_EQ(multi<piecewise_law>({K(nan), K(1), K(2)})->eval(0), 1.0);
    // Derivative: the laws' derivatives over the same conditions.
    auto curve = multi<piecewise_law>({op<less_than_law>(x, K(0)), neg, op<exponent_law>(x, K(2))});
    law_ref d = law_ref::adopt(curve->derivative(0));
    EXPECT_EQ(d->eval(-3.0), -1.0);
    EXPECT_EQ(d->eval(3.0), 6.0);
    // Vector laws: the law returns what its default returns.
    auto vp = multi<piecewise_law>({op<less_than_law>(x, K(0)), vec({x, K(1)}), vec({K(1), x})});
    EXPECT_EQ(vp->return_dim(), 2);
    EXPECT_EQ(values(vp, {-2}), (std::vector<double>{-2, 1}));
    EXPECT_EQ(values(vp, {2}), (std::vector<double>{1, 2}));
    // A law of another size than the default is reported and built all the same; the short
    // law is padded, so the answer is never overrun.
    law_ref mixed = made("PIECEWISE", {x.get(), x.get(), vec({x, x}).get()});
    EXPECT_EQ(values(mixed, {1}), (std::vector<double>{1, 0}));
}

}  // namespace
