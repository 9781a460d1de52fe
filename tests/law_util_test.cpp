#include <clocale>
#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class Parser : public leak_checked {};

law_ref parse(const char* text, law_data** data = nullptr, int count = 0) {
    return law_ref::adopt(str_to_law(text, data, count));
}

// The value of a formula at a point of up to three coordinates.
double value(const char* text, double x = 0, double y = 0, double z = 0) {
    law_ref l = parse(text);
    EXPECT_TRUE(l) << text << ": " << TEST_get_error();
    if (!l) return NAN;
    const double at[3] = {x, y, z};
    return l->evaluate_scalar(at);
}

bool same_law(const char* a, const char* b) {
    law_ref x = parse(a), y = parse(b);
    return x && y && *x.get() == *y.get();
}

// The posted message and the offset of a formula that must fail.
std::string failure(const char* text, int* offset = nullptr, law_data** data = nullptr,
                    int count = 0) {
    TEST_clear_error();
    int at = -2;
    law* l = str_to_law(text, data, count, &at);
    EXPECT_EQ(l, nullptr) << text;
    law::remove(l);
    if (offset) *offset = at;
    return TEST_get_error();
}

TEST_F(Parser, NormalisesSpaceCaseAndImpliedProducts) {
    EXPECT_TRUE(same_law("x + y", "X+Y"));
    EXPECT_TRUE(same_law("S I N ( X )", "SIN(X)"));
    EXPECT_TRUE(same_law("T", "X"));
    EXPECT_TRUE(same_law("2X", "2*X"));
    EXPECT_TRUE(same_law("2E5", "2*E5"));  // not scientific notation without a sign
    EXPECT_EQ(value("2E+5"), 200000.0);
    EXPECT_EQ(value("2*E+5"), 200000.0);  // kept on purpose: the product becomes a number
    EXPECT_EQ(value("2OR1"), 1.0);
    EXPECT_EQ(value("0AND1"), 0.0);
}

TEST_F(Parser, ReadsTheLongestSymbol) {
    EXPECT_NEAR(value("TAN(X)", 0.5), std::tan(0.5), 1e-15);    // not T*AN
    EXPECT_NEAR(value("TANH(X)", 0.5), std::tanh(0.5), 1e-15);  // not TAN(H...)
    EXPECT_NEAR(value("EXP(1)"), std::exp(1.0), 1e-15);         // not E*XP
    EXPECT_EQ(value("X1", 4), 4.0);
    EXPECT_EQ(value("E1", 4), 4.0);  // a variable: longer than the constant E
    EXPECT_EQ(value("A3", 0, 0, 7), 7.0);
    law_ref y1 = parse("Y1");
    EXPECT_EQ(static_cast<identity_law*>(y1.get())->index(), 0);
    EXPECT_EQ(text(y1), "Y1");
}

TEST_F(Parser, OperatorsAssociateLeftAndPrefixesBindTheirOperand) {
    EXPECT_EQ(value("X^2^3", 2), 64.0);  // (X^2)^3
    EXPECT_EQ(value("1-2-3"), -4.0);
    EXPECT_EQ(value("-X^2", 3), 9.0);  // (-X)^2, intended
    EXPECT_EQ(value("-(X^2)", 3), -9.0);
    EXPECT_EQ(value("NOT X>1", 2), 0.0);  // NOT(X>1)
    EXPECT_EQ(value("X<2 OR X>4", 5), 1.0);
    EXPECT_EQ(value("SINX", 0), 0.0);
    EXPECT_EQ(value("--X", 2), 2.0);
    EXPECT_EQ(value("X--2", 1), 3.0);
}

TEST_F(Parser, EmptyNullAndMissingArguments) {
    law_ref zero = parse("");
    ASSERT_TRUE(zero);
    EXPECT_EQ(zero->eval(1), 0.0);
    TEST_clear_error();
    EXPECT_FALSE(parse("NULL"));
    EXPECT_STREQ(TEST_get_error(), "");
    EXPECT_FALSE(parse("()"));
    EXPECT_STREQ(TEST_get_error(), "");
    EXPECT_EQ(text(parse("SIN()")), "SIN(0)");
}

TEST_F(Parser, FailuresPostAMessageAndTheirPlace) {
    int at = 0;
    EXPECT_EQ(failure("+X", &at), "bad syntax at +");
    EXPECT_EQ(at, 0);
    EXPECT_EQ(failure("X**2", &at), "bad syntax at *");
    EXPECT_EQ(at, 2);  // the second star
    EXPECT_EQ(failure("  x +  $", &at), "bad syntax at $");
    EXPECT_EQ(at, 7);  // offsets count in the caller's text, spaces included
    EXPECT_EQ(failure("A<>B", &at), "bad syntax at A");  // the symbol is "!="
    EXPECT_EQ(failure("SIN(X)+COS(LAW2)"), "law 2 was not given");
    // A class that refuses its parts raises; the parser reports it instead.
    EXPECT_EQ(failure("D(SIN(X),1,,)", &at), "Wrong number of parts in derivative_law");
    EXPECT_EQ(at, 0);
    EXPECT_EQ(failure("1+X/VEC(X,2)", &at), "Right side of division must be a scalar");
    EXPECT_EQ(at, 3);
    std::string deep;
    for (int i = 0; i < 1500; ++i) deep += "SIN(";
    deep += "X";
    EXPECT_EQ(failure(deep.c_str()).rfind("law nested too deeply", 0), 0u);
}

TEST_F(Parser, VariableNumberZeroIsToxicAndNeverReadsOutsideThePoint) {
    TEST_clear_error();
    law_ref a0 = parse("A0*2");
    ASSERT_TRUE(a0);
    EXPECT_STREQ(TEST_get_error(), "Toxic law detected");
    const double at[3] = {1, 2, 3};
    EXPECT_LAW_ERROR(a0->evaluate_scalar(at), LAW_DIM);
    law_ref v = parse("VEC(0L0,1)");
    double out[2];
    EXPECT_LAW_ERROR(v->evaluate(at, out), LAW_DIM);
}

TEST_F(Parser, APartThatStandsForNothingFailsTheText) {
    // Never a law with a hole: each text fails with the message at the place named.
    struct row {
        const char* text;
        const char* message;
        int offset;
    };
    const row rows[] = {
        {"X*(X", "missing ')'", 4},
        {"X-(X", "missing ')'", 4},
        {"X^(X", "missing ')'", 4},
        {"X AND (X", "missing ')'", 8},
        {"SIN(X*(X", "missing ')'", 8},
        {"X+()", "missing operand at +", 1},
        {"SURFNORM(VEC(X)^,Y,X*Y))", "missing operand at ^", 15},
        {"SIN(LCURVE1)", "data 1 was not given", 4},
        {"SIN(SPLINE_LAW1)", "data 1 was not given", 4},
        {"CUR(LCURVE1)", "data 1 was not given", 4},
        {"TRANS(X)", "Toxic law detected", 0},  // at the law that refused
        {"X+D(SIN(X),1,100)", "D: the order must be a whole number from 0 to 64", 2},
        {"D(SIN(X),1,-1)", "D: the order must be a whole number from 0 to 64", 0},
        {"D(SIN(X),0)", "D: the variable must be X, Y, Z... or a whole number from 1", 0},
    };
    for (const row& r : rows) {
        int at = -2;
        EXPECT_EQ(failure(r.text, &at), r.message) << r.text;
        EXPECT_EQ(at, r.offset) << r.text;
    }
    // Where the unclosed group leaves no hole, the text still reads to its end.
    EXPECT_TRUE(same_law("SIN(X", "SIN(X)"));
    EXPECT_TRUE(same_law("SIN(X)+(", "SIN(X)+0"));
    // An outer law that takes more values than the inner one gives.
    law_ref short_inner = parse("(X+Z)O(2*X)");
    ASSERT_TRUE(short_inner);
    const double at[2] = {1, 2};
    EXPECT_LAW_ERROR(short_inner->evaluate_scalar(at), LAW_DIM);
}

// A datum kind of this test, joined to the registry the way the kernel's kinds join it.
class test_curve_data final : public law_data {
  public:
    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "TESTCURVE"; }
    law_data* deep_copy(pointer_map*) const override { return new test_curve_data; }
};

}  // namespace

LAW_REGISTER_DATA_PROTOTYPE(test_curve_data)

namespace {

TEST_F(Parser, DataReferencesNameTheGivenData) {
    EXPECT_NE(get_law_data("TESTCURVE"), nullptr);
    EXPECT_EQ(get_law_data("TESTCURV"), nullptr);
    law_data* curve = new test_curve_data;
    law_ref square = parse("X*X");
    law_data* given[2] = {curve, new law_law_data(square.get())};
    // A reference alone stands for nothing, and says nothing.
    TEST_clear_error();
    EXPECT_FALSE(parse("TESTCURVE1", given, 2));
    EXPECT_STREQ(TEST_get_error(), "");
    // In a data law's arguments a reference takes the datum (with a use), anything else
    // is read as a law and wrapped.
    const int uses = curve->ref_count();
    law_ref m = parse("MAP(LAW2,X+1)", given, 2);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->eval(2.0), 9.0);  // (x + 1)^2
    EXPECT_EQ(curve->ref_count(), uses);
    // An argument that reads as no law is reported, and the law is built all the same.
    TEST_clear_error();
    law_ref hollow = parse("MAP(X^2,())");
    ASSERT_TRUE(hollow);
    EXPECT_STREQ(TEST_get_error(), "Toxic law detected");
    EXPECT_LAW_ERROR(hollow->eval(1.0), LAW_EVAL);
    given[1]->remove();
    curve->remove();
}

TEST_F(Parser, LawReferencesShareTheGivenLaw) {
    law_ref square = parse("X*X");
    law_data* given[2] = {new law_law_data(square.get()), nullptr};
    const int uses = square->ref_count();
    law_ref a = parse("LAW1+1", given, 1);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->eval(3), 10.0);
    law_ref b = parse("LAW", given, 1);  // LAW alone is LAW1
    EXPECT_EQ(b.get(), square.get());
    EXPECT_EQ(square->ref_count(), uses + 2);
    EXPECT_EQ(failure("LAW2", nullptr, given, 1), "law 2 was not given");
    given[0]->remove();
}

TEST_F(Parser, ReadsNumbersInTheCLocaleWhateverTheHostSets) {
    const char* old = std::setlocale(LC_ALL, nullptr);
    const std::string saved = old ? old : "C";
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "no de_DE.UTF-8 locale here";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 1.5);
    EXPECT_STREQ(probe, "1,5");  // the host's locale really has a decimal comma
    EXPECT_EQ(value("1.5"), 1.5);
    EXPECT_EQ(value("X*2.25", 2), 4.5);
    EXPECT_EQ(text(parse("1.5+X")), "1.5+X");
    std::setlocale(LC_ALL, saved.c_str());
}

TEST_F(Parser, RegistryHoldsOnePrototypePerKeyword) {
    // A keyword names one class among the operators and one among the operands ("-" is
    // both minus and negation); the place decides which.
    std::set<std::string> operators, operands;
    int count = 0;
    law_ref x = parse("X");
    for (const law_list* n = law_list::head(); n; n = n->next(), ++count) {
        const law* p = n->prototype();
        EXPECT_EQ(p->ref_count(), 0);
        const char* keyword = p->symbol(SYMBOL_PARSE);
        auto& names = p->isa(binary_law_id) ? operators : operands;
        EXPECT_TRUE(names.insert(keyword).second) << "two prototypes for " << keyword;
        if (!p->isa(unary_law_id)) continue;
        // A function of one argument prints over X as text that reads back as itself.
        law_ref l = law_ref::adopt(static_cast<const unary_law*>(p)->make_one(x.get()));
        const std::string printed = text(l);
        law_ref again = parse(printed.c_str());
        ASSERT_TRUE(again) << printed;
        EXPECT_TRUE(*again.get() == *l.get()) << printed;
    }
    EXPECT_EQ(count, 113);
    TEST_clear_error();  // FRENET and SURFNORM of a scalar are reported as toxic
}

TEST_F(Parser, RegistryAgreesWithTheTableOfLawKinds) {
    std::set<int> ids;
    std::set<std::string> missing;
    for (const law_list* n = law_list::head(); n; n = n->next()) {
        const law_kind_row* row = law_kind_find(n->prototype()->type());
        ASSERT_TRUE(row && row->keyword && ids.insert(row->id).second);
        EXPECT_STREQ(n->prototype()->symbol(SYMBOL_PARSE), row->keyword);
    }
    for (const law_kind_row& row : law_kind_rows)
        if (row.keyword && !ids.count(row.id)) missing.insert(row.keyword);
    EXPECT_EQ(ids.size() + missing.size(), 113u);
    EXPECT_EQ(missing, std::set<std::string>{});
}

// ---------------------------------------------------------------- round trips

class formula_maker {
  public:
    explicit formula_maker(unsigned seed) : rng_(seed) {}

    // Each shape puts its operands at a and b, and a small power at n.
    std::string make(int depth) {
        if (depth == 0 || pick(4) == 0) return leaf();
        static const char* const shapes[] = {"a+b",          "a-b",
                                             "(a)*b",        "a/(b)",
                                             "(a)^n",        "-(a)",
                                             "SIN(a)",       "COS(a)",
                                             "EXP(a/10)",    "ABS(a)",
                                             "SQRT(ABS(a))", "ARCTAN(a)",
                                             "MAX(a,b)",     "TERM(VEC(a,b),2)",
                                             "(a)<(b)",      "LN(1+ABS(a))"};
        const std::string a = make(depth - 1), b = make(depth - 1);
        std::string out;
        for (const char* c = shapes[pick(16)]; *c; ++c)
            out += *c == 'a'   ? a
                   : *c == 'b' ? b
                   : *c == 'n' ? std::to_string(pick(4))
                               : std::string(1, *c);
        return out;
    }

  private:
    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
    std::string leaf() {
        static const char* const names[] = {"0.125", "Y", "PI", "X", "X"};
        const int k = pick(5);
        return k == 0 ? std::to_string(pick(9) - 4) : names[k - 1];
    }
    std::mt19937 rng_;
};

bool defined_at(const law* l, const double* p, double& v) {
    try {
        v = l->evaluate_scalar(p);
    } catch (const vorn_exception&) {
        return false;
    }
    return std::isfinite(v);
}

TEST_F(Parser, PrintedLawsParseBackToTheSameValues) {
    const double points[][2] = {{0.3, 1.7}, {-1.25, 0.4}, {2.5, -2.9}};
    int compared = 0, second_forms = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        const std::string formula = formula_maker(seed).make(4);
        law_ref original = parse(formula.c_str());
        ASSERT_TRUE(original) << formula << ": " << TEST_get_error();
        for (law_symbol_type style : {SYMBOL_PARSE, SYMBOL_SECOND}) {
            const std::string printed = text(original, style);
            law_ref again = parse(printed.c_str());
            if (style == SYMBOL_SECOND) {
                if (!again) continue;  // not every second form is in the language
                ++second_forms;
            }
            ASSERT_TRUE(again) << formula << " printed " << printed << ": " << TEST_get_error();
            EXPECT_EQ(text(again, style), printed) << formula;  // print, parse, print is stable
            for (const auto& p : points) {
                double want = 0, got = 0;
                if (!defined_at(original.get(), p, want)) continue;
                ASSERT_TRUE(defined_at(again.get(), p, got)) << formula << " printed " << printed;
                EXPECT_EQ(got, want) << formula << " printed " << printed;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 4000);
    EXPECT_GT(second_forms, 100);
}

TEST_F(Parser, LongSumsParseInOnePass) {
    std::string sum = "X";
    for (int i = 1; i < 10000; ++i) sum += "+X";
    law_ref l = parse(sum.c_str());
    ASSERT_TRUE(l);
    EXPECT_EQ(l->eval(1.5), 15000.0);
}

}  // namespace
