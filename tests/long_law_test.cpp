// Laws as long as the parser accepts: chains of one operator, n terms deep.

#include <cmath>
#include <stdexcept>
#include <string>

#include "leak_check.h"

namespace {

class LongLaw : public leak_checked {};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int big = 200000;  // still far beyond what a recursive walk survives
#else
constexpr int big = 1000000;
#endif

std::string chain(const std::string& first, const std::string& link, int n) {
    std::string out = first;
    for (int i = 1; i < n; ++i) out += link;
    return out;
}

// Parse failures stop the test: every text here is valid.
law* parse(const std::string& text) {
    int at = 0;
    law* l = str_to_law(text.c_str(), nullptr, 0, &at);
    if (!l) throw std::runtime_error(TEST_get_error());
    return l;
}

std::string text_of(const law* l) {
    char* s = l->string();
    std::string out(s);
    vorn_discard(s);
    return out;
}

TEST_F(LongLaw, MillionTermSumPrintsEvaluatesAndReleases) {
    const std::string text = chain("X", "+0.1", big);
    law* sum = parse(text);
    EXPECT_TRUE(text_of(sum) == text);
    double expected = 2.0;  // added left to right, as the chain reads
    for (int i = 1; i < big; ++i) expected += 0.1;
    EXPECT_EQ(sum->eval(2.0), expected);
    // Too deep for a derivative, which says so; simplification leaves the law as it is.
    EXPECT_LAW_ERROR(law::remove(sum->derivative(0)), LAW_DERIV);
    EXPECT_LAW_ERROR(law::remove(law_deep_copy(sum)), LAW_DEEP_COPY);
    law_program* compiled = law_compile(&sum, 1);  // as deep as the tree, as exact
    const double two = 2.0;
    double value = 0;
    compiled->evaluate(&two, &value);
    EXPECT_EQ(value, expected);
    law_program_release(compiled);
    law* simple = sum->simplify();
    EXPECT_EQ(simple->eval(2.0), expected);
    law::remove(simple);
    law* twin = parse(text);
    EXPECT_TRUE(*twin == *sum);
    law::remove(twin);
    law::remove(sum);
}

// Every chaining operator, long enough for the loop, rounds as a left-to-right fold, and
// prints back to the same law (short enough for the parser's nesting of parentheses).
TEST_F(LongLaw, LongChainsFoldLeftToRightAndPrintBack) {
    const int n = 900;
    struct fold {
        const char* link;
        double (*step)(double, double);
    };
    const fold folds[] = {
        {"-(X-0.3)", [](double a, double x) { return a - (x - 0.3); }},
        {"/1.001", [](double a, double) { return a / 1.001; }},
        {"+X*X", [](double a, double x) { return a + x * x; }},
        {"^1.0001", [](double a, double) { return std::pow(a, 1.0001); }},
        {"<X", [](double a, double x) { return a < x ? 1.0 : 0.0; }},
        {" AND X", [](double a, double x) { return a != 0 && x != 0 ? 1.0 : 0.0; }},
    };
    for (const fold& f : folds) {
        law* l = parse(chain("(X+1)", f.link, n));
        for (double x : {0.0, 1.7}) {
            double expected = x + 1;
            for (int i = 1; i < n; ++i) expected = f.step(expected, x);
            EXPECT_EQ(l->eval(x), expected) << f.link << " at " << x;
        }
        law* again = parse(text_of(l));
        EXPECT_TRUE(*again == *l) << f.link;
        law::remove(again);
        law::remove(l);
    }
    // Within the nesting the recursive operations allow, a sum still has its derivative.
    law* squares = parse(chain("X*X", "+X*X", 2000));
    law* slope = squares->derivative(0);
    EXPECT_EQ(slope->eval(3.0), 2000 * 6.0);
    law::remove(slope);
    law::remove(squares);
}

}  // namespace
