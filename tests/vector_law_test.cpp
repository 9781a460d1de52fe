#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <qem/qem_printf.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class VectorLaw : public leak_checked {};

// Simplifies `l` tracing the rules; expects `rule` to have fired and the values and the
// dimension to be kept at `x`.
law_ref expect_rule(const law_ref& l, const std::string& rule, std::vector<double> x) {
    trace_capture trace;
    law_ref s = law_ref::adopt(law_simplify(l.get(), 1, 1));
    EXPECT_NE(trace.text().find("\n" + rule + " "), std::string::npos) << trace.text();
    EXPECT_EQ(s->return_dim(), l->return_dim()) << text(s);
    const std::vector<double> want = values(l, x), got = values(s, x);
    for (size_t k = 0; k < want.size(); ++k)
        EXPECT_NEAR(got[k], want[k], 1e-14 * (1 + std::fabs(want[k]))) << rule << " " << text(s);
    return s;
}

// A vector law that counts its evaluations: component i is x + i.
struct counting_vector : law {
    explicit counting_vector(int n) : n(n) {}
    mutable int calls = 0;
    int n;
    const char* class_name() const override { return "counting_vector"; }
    void evaluate(const double* x, double* answer) const override {
        ++calls;
        for (int i = 0; i < n; ++i) answer[i] = x[0] + i;
    }

  protected:
    int return_size() const override { return n; }
};

// The identity that remembers how many heap blocks were live while it was evaluated.
struct heap_probe : law {
    mutable long seen = -1;
    const char* class_name() const override { return "heap_probe"; }
    void evaluate(const double* x, double* answer) const override {
        seen = vorn_live_blocks();
        answer[0] = x[0];
    }
};

TEST_F(VectorLaw, VectorValuesAndDerivatives) {
    auto x = X(), y = Y();
    auto v = vec({x, op<exponent_law>(x, K(2)), K(3)});
    EXPECT_EQ(values(v, {2}), (std::vector<double>{2, 4, 3}));
    law_ref dv = law_ref::adopt(v->derivative(0));
    EXPECT_EQ(values(dv, {2}), (std::vector<double>{1, 4, 0}));
    // Component by component against finite differences, in both variables.
    auto w = vec({op<times_law>(fn<sin_law>(x), y), op<times_law>(x, op<times_law>(y, y)),
                  fn<exp_law>(op<minus_law>(x, y))});
    expect_derivative_matches(w, {0.7, 1.3}, 0);
    expect_derivative_matches(w, {0.7, 1.3}, 1);
    // The derivative of a constant vector keeps its three values.
    law_ref dc = law_ref::adopt(vec({K(1), K(2), K(3)})->derivative(0));
    EXPECT_EQ(values(dc, {0}), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(text(v, SYMBOL_SECOND), "[X,X**2,3]");
}

TEST_F(VectorLaw, UpToFourComponentsEvaluateWithoutTheHeap) {
    auto* probe = new heap_probe;
    law_ref p = law_ref::adopt(probe);
    auto x = X();
    auto v = vec({p, op<times_law>(x, x), fn<sin_law>(x), K(3)});
    auto w = vec({K(1), K(2), K(3), K(4)});
    std::vector<law_ref> uses;
    uses.push_back(law_ref::retain(v.get()));
    uses.push_back(op<plus_law>(v, w));
    uses.push_back(op<minus_law>(w, v));
    uses.push_back(op<times_law>(K(2), v));
    uses.push_back(multi<dot_law>({v, w}));
    uses.push_back(multi<dot_law>({v, v}));
    uses.push_back(multi<cross_law>({vec({p, K(1), K(2)}), vec({K(0), x, K(1)})}));
    uses.push_back(multi<term_law>({v, K(4)}));
    uses.push_back(op<composite_law>(vec({op<times_law>(x, K(2))}), v));
    uses.push_back(multi<step_law>({v, K(1), w}));
    for (const law_ref& use : uses) {
        const double at = 0.5;
        double out[4];
        probe->seen = -1;
        const long before = vorn_live_blocks();
        use->evaluate(&at, out);
        EXPECT_EQ(probe->seen, before) << text(use);  // no block taken while evaluating
        EXPECT_EQ(vorn_live_blocks(), before);
    }
    // The probe does see the temporaries of a fifth component: the two operands of a sum.
    auto five = vec({p, x, x, x, x});
    auto sum = op<plus_law>(five, five);
    const double at = 0.5;
    double out[5];
    const long before = vorn_live_blocks();
    sum->evaluate(&at, out);
    EXPECT_EQ(probe->seen, before + 2);
    EXPECT_EQ(vorn_live_blocks(), before);
}

// Built the parser's way, malformed parts are reported as toxic and the law is built all the
// same, or the class raises its coded error; under the restore waiver nothing is reported.
TEST_F(VectorLaw, PartChecksOfEveryMultipleLaw) {
    auto x_ref = X(), y_ref = Y(), v_ref = vec({X(), Y()});
    auto c0 = K(0), c1 = K(1), c2 = K(2), c_half = K(1.5), c_neg = K(-2);
    law *x = x_ref.get(), *y = y_ref.get(), *v = v_ref.get();
    law *k0 = c0.get(), *k1 = c1.get(), *k2 = c2.get();
    const struct {
        const char* keyword;
        std::vector<law*> parts;
        bool toxic;
        err_mess_type error;  // 0 when the law is built
    } cases[] = {
        {"VEC", {x, k1}, false, 0},
        {"VEC", {x, v}, true, 0},
        {"TERM", {v}, true, 0},
        {"DOT", {x, x, x}, true, LAW_DOT_NUM},
        {"DOT", {x, nullptr}, true, 0},
        {"CROSS", {v}, true, LAW_CROSS_NUM},
        {"CROSS", {nullptr, v}, true, 0},
        {"STEP", {x, k1, k2, k1, x}, false, 0},  // equal neighbouring breakpoints
        {"STEP", {x, k1}, true, 0},
        {"STEP", {x, x, x}, true, 0},
        {"STEP", {x, k2, x, k1, x}, true, 0},
        {"STEP", {x, k1, nullptr}, true, 0},
        {"MAX", {x, k1}, false, 0},
        {"MIN", {x, v}, true, 0},
        {"PIECEWISE", {x, y, x}, false, 0},
        {"PIECEWISE", {x}, true, 0},
        {"PIECEWISE", {v, x, x}, true, 0},
        {"PIECEWISE", {x, x, v}, true, 0},
        {"DOMAIN", {x, k0}, true, 0},
        {"PDOMAIN", {x, k0, y}, true, 0},
        {"DOMAIN", {nullptr, k0, k1}, true, 0},
        {"D", {x, x, k1, k1}, true, LAW_DL_NUM},
        {"D", {}, true, LAW_DL_NUM},
        {"D", {x, c_half.get()}, true, 0},
        {"MOD", {x}, true, 0},
        {"ARCTAN", {x, x, x}, true, 0},
        {"LOG", {x, x}, false, LAW_BASE_C},
        {"LOG", {x, c_neg.get()}, false, LAW_BASE_P},
        {"LOG", {x, k1}, false, LAW_BASE_P},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.keyword) + " of " + std::to_string(c.parts.size()));
        for (bool waived : {false, true}) {
            TEST_clear_error();
            QEM::optional<restore_waiver> waiver;
            if (waived) waiver.emplace();
            if (c.error)
                EXPECT_LAW_ERROR(made(c.keyword, c.parts), c.error);
            else
                EXPECT_TRUE(made(c.keyword, c.parts));
            EXPECT_EQ(reported_toxic(), c.toxic && !waived);
        }
    }
    // The checks themselves, given no parts array at all.
    EXPECT_EQ(vector_law::check(nullptr, 2), 0);
    EXPECT_EQ(step_law::check(nullptr, 1), 0);
    EXPECT_EQ(max_law::check(nullptr, 0), 0);
    EXPECT_TRUE(reported_toxic());
}

TEST_F(VectorLaw, TermPicksOneBasedComponents) {
    auto x = X(), y = Y();
    auto z = make_law<identity_law>(2, 'Z');
    auto t = multi<term_law>({vec({x, y, z}), K(2)});
    EXPECT_EQ(values(t, {1, 5, 9}), (std::vector<double>{5}));
    // The index is a law like any other, truncated after subtracting 1.
    auto ten = vec({K(10), K(20), K(30)});
    EXPECT_EQ(multi<term_law>({ten, x})->eval(3.0), 30.0);
    EXPECT_EQ(multi<term_law>({ten, x})->eval(0.5), 10.0);  // -0.5 truncates to 0
    EXPECT_LAW_ERROR(multi<term_law>({ten, x})->eval(4.0), LAW_DIM);
    // (x^2, x^3)[2]' = 3x^2
    auto cubes = multi<term_law>({vec({op<times_law>(x, x), op<exponent_law>(x, K(3))}), K(2)});
    law_ref d = law_ref::adopt(cubes->derivative(0));
    EXPECT_EQ(d->eval(2.0), 12.0);
    EXPECT_EQ(text(t, SYMBOL_SECOND), "[X,Y,Z][2]");
    EXPECT_EQ(text(multi<term_law>({op<plus_law>(x, ten), K(1)}), SYMBOL_SECOND),
              "(X+[10,20,30])[1]");
}

TEST_F(VectorLaw, DotAndCrossProducts) {
    auto x = X(), y = Y();
    auto a = vec({K(1), K(2), K(3)}), b = vec({K(4), K(5), K(6)});
    EXPECT_EQ(multi<dot_law>({a, b})->eval(0), 32.0);
    // (1,2,3) x (4,5,6) = (2*6-3*5, 3*4-1*6, 1*5-2*4)
    EXPECT_EQ(values(multi<cross_law>({a, b}), {0}), (std::vector<double>{-3, 6, -3}));
    // A scalar meets the vector's first component only, deliberately.
    EXPECT_EQ(multi<dot_law>({x, b})->eval(5.0), 20.0);
    EXPECT_EQ(multi<dot_law>({b, x})->eval(5.0), 20.0);
    // A shorter part counts its missing components as 0: (1,2,0) with (4,5,6).
    auto short_part = vec({K(1), K(2)});
    EXPECT_EQ(multi<dot_law>({b, short_part})->eval(0), 14.0);
    EXPECT_EQ(values(multi<cross_law>({short_part, b}), {0}), (std::vector<double>{12, -6, -3}));
    // Five components on both sides go through heap temporaries.
    auto five = vec({K(1), K(2), K(3), K(4), K(5)});
    EXPECT_EQ(multi<dot_law>({five, five})->eval(0), 55.0);
    // One law on both sides: the dot product evaluates it once, (x, x+1, x+2) at 1 giving
    // 1+4+9; the cross product is zero without evaluating it at all.
    auto* c = new counting_vector(3);
    law_ref counted = law_ref::adopt(c);
    EXPECT_EQ(multi<dot_law>({counted, counted})->eval(1.0), 14.0);
    EXPECT_EQ(c->calls, 1);
    c->calls = 0;
    EXPECT_EQ(values(multi<cross_law>({counted, counted}), {7}), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(c->calls, 0);
    // The product rules against finite differences, in both variables.
    auto l = vec({x, op<times_law>(x, x), K(1)}), r = vec({fn<cos_law>(x), y, fn<sin_law>(x)});
    for (int which : {0, 1}) {
        expect_derivative_matches(multi<dot_law>({l, r}), {0.4, 2.0}, which);
        expect_derivative_matches(multi<cross_law>({l, r}), {0.4, 2.0}, which);
    }
    // A missing part is built; a dot product then raises when evaluated.
    EXPECT_LAW_ERROR(made("DOT", {x.get(), nullptr})->eval(1.0), LAW_EVAL);
    EXPECT_EQ(made("CROSS", {nullptr, a.get()})->return_dim(), 3);
}

TEST_F(VectorLaw, VectorRulesKeepValuesAndDimension) {
    auto x = X(), y = Y();
    auto z = make_law<identity_law>(2, 'Z');
    const struct {
        law_ref l;
        const char* rule;
        const char* result;  // null: checked by value only
    } cases[] = {
        {vec({K(5)}), "vec(c)=c", "5"},
        {vec({K(0)}), "vec(0)=0", "0"},
        {multi<term_law>({vec({x, y, z}), K(2)}), "term(vec)=sub", "Y"},
        {multi<dot_law>({K(0), vec({x, y})}), "Dot(0,A)=Dot(A,0)=0", "0"},
        {multi<dot_law>({vec({x, y}), vec({y, x})}), "dot(vec,vec)", nullptr},
        {multi<cross_law>({vec({x, y, z}), K(0)}), "Cross(0,A)=Cross(A,0)=0", "VEC(0,0,0)"},
        {multi<cross_law>({vec({x, K(1), K(0)}), vec({K(0), y, K(1)})}), "cross(vec,vec)", nullptr},
        {multi<cross_law>({vec({x, y}), vec({y, K(2), x})}), "cross(vec,vec)", nullptr},
        {op<plus_law>(vec({x, K(1)}), vec({y, K(2)})), "vec+vec=vec", "VEC(X+Y,3)"},
        {op<times_law>(x, vec({K(1), y})), "f*vec", "VEC(X,X*Y)"},
        {op<composite_law>(vec({x, op<exponent_law>(x, K(2))}), op<plus_law>(x, K(1))),
         "vec o f = vec", nullptr},
    };
    for (const auto& c : cases) {
        law_ref s = expect_rule(c.l, c.rule, {2, 3, 5});
        EXPECT_TRUE(!c.result || text(s) == c.result) << text(s);
    }
    // Several zeros stay a vector of that many values, also as a product.
    EXPECT_EQ(text(law_ref::adopt(law_simplify(vec({K(0), K(0), K(0)}).get()))), "VEC(0,0,0)");
    EXPECT_EQ(text(law_ref::adopt(law_simplify(op<times_law>(K(0), vec({x, y})).get()))),
              "VEC(0,0)");
    // Vectors of different lengths add as they are: no rule can write the missing zero.
    auto uneven = op<plus_law>(vec({x, y}), vec({K(1), K(2), K(3)}));
    {
        trace_capture trace;
        law_ref s = law_ref::adopt(law_simplify(uneven.get(), 1, 1));
        EXPECT_EQ(trace.text().find("vec+vec=vec"), std::string::npos);
        EXPECT_EQ(values(s, {2, 3}), (std::vector<double>{3, 5, 3}));
    }
    // A scalar plus a vector: the scalar still goes to the first component only.
    law_ref m = law_ref::adopt(law_simplify(op<plus_law>(K(1), vec({x, y, K(3)})).get()));
    EXPECT_EQ(values(m, {2, 3}), (std::vector<double>{3, 3, 3}));
}

TEST_F(VectorLaw, StepPiecesAreClosedOnTheLeft) {
    auto x = X();
    auto x2 = op<exponent_law>(x, K(2));
    auto s = made("STEP", {x.get(), K(1).get(), x2.get()});
    EXPECT_EQ(s->eval(0.5), 0.5);
    EXPECT_EQ(s->eval(1.0), 1.0);  // the second piece, 1^2
    EXPECT_EQ(s->eval(2.0), 4.0);
    law_ref d = law_ref::adopt(s->derivative(0));
    EXPECT_EQ(d->eval(0.5), 1.0);
    EXPECT_EQ(d->eval(1.5), 3.0);
    // Equal neighbouring breakpoints are accepted; the piece between them is never used.
    auto twice = made("STEP", {x.get(), K(1).get(), K(5).get(), K(1).get(), x2.get()});
    EXPECT_EQ(twice->eval(1.0), 1.0);
    EXPECT_EQ(twice->eval(3.0), 9.0);
    // Pieces and breakpoints beyond the first input coordinate: the switch reads x only.
    auto y = Y();
    auto by_x = multi<step_law>({y, K(0), K(-1)});
    EXPECT_EQ(values(by_x, {-1, 7}), (std::vector<double>{7}));
    EXPECT_EQ(values(by_x, {0, 7}), (std::vector<double>{-1}));
    // A step of constants still reads its input.
    EXPECT_EQ(multi<step_law>({K(2), K(0), K(3)})->take_dim(), 1);
    // Vector pieces: the law returns what its first piece returns.
    auto vs = multi<step_law>({vec({x, K(0)}), K(0), vec({K(0), x})});
    EXPECT_EQ(values(vs, {-2}), (std::vector<double>{-2, 0}));
    EXPECT_EQ(values(vs, {2}), (std::vector<double>{0, 2}));
}

}  // namespace
