// lawcalc as a user runs it: a process with arguments, standard input and output.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct result {
    int status;
    std::string out;
};

// Runs lawcalc with `args` (shell syntax), standard error joined to standard output.
result lawcalc(const std::string& args, const std::string& input = "") {
    std::string command = std::string(LAWCALC_PATH) + " " + args + " 2>&1";
    if (!input.empty()) command = "printf '" + input + "' | " + command;
    FILE* p = popen(command.c_str(), "r");
    result r{-1, ""};
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int status = pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

bool has(const result& r, const std::string& piece) {
    return r.out.find(piece) != std::string::npos;
}

TEST(Lawcalc, EvaluatesDifferentiatesAndSimplifies) {
    const result r = lawcalc("'SIN(X)^2+COS(X)^2' --at 0.3 --derivative --simplify");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(has(r, "law: SIN(X)^2+COS(X)^2\n")) << r.out;
    EXPECT_TRUE(has(r, "simplified: 1\n")) << r.out;
    EXPECT_TRUE(has(r, "derivative 1 wrt variable 1: 0\n")) << r.out;
    EXPECT_TRUE(has(r, "at 0.3: 1")) << r.out;
}

TEST(Lawcalc, PointsOfSeveralVariablesAndOtherVariables) {
    const result r = lawcalc("'X*Y+Z' --at 1,2,3 --derivative --wrt Y --second");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(has(r, "at (1, 2, 3): 5  derivative: 1")) << r.out;
    EXPECT_TRUE(has(r, "derivative 1 wrt variable 2: X")) << r.out;
}

TEST(Lawcalc, BadFormulaShowsTheMessageAndACaret) {
    const result r = lawcalc("'X + * 2'");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r, "error: bad syntax at *\n  X + * 2\n      ^\n")) << r.out;
}

TEST(Lawcalc, TablesAndReadsStandardInput) {
    const result t = lawcalc("'VEC(COS(X),SIN(X),X/10)' --table 0 6.2832 9");
    EXPECT_EQ(t.status, 0) << t.out;
    EXPECT_TRUE(has(t, "0                        (1, 0, 0)\n")) << t.out;
    int rows = 0;
    std::istringstream lines(t.out);
    for (std::string line; std::getline(lines, line);) rows += line.rfind("law:", 0) != 0;
    EXPECT_EQ(rows, 9);
    const result s = lawcalc("--at 2", "X^2\\nX+$\\n");
    EXPECT_EQ(s.status, 1);  // the second line fails, the first still prints
    EXPECT_TRUE(has(s, "at 2: 4")) << s.out;
    EXPECT_TRUE(has(s, "error: ")) << s.out;
}

TEST(Lawcalc, JetsAtPointsAndInTables) {
    const struct {
        const char* args;
        const char* piece;
    } cases[] = {
        {"'X*Y^3' --at 1,2 --wrt Y --jet 3", "at (1, 2): 8  jet: 8; 12; 12; 6\n"},
        {"'VEC(X^2,EXP(X))' --table 0 1 3 --jet 2",
         "0                        (0, 1)  jet: (0, 1); (0, 1); (2, 1)\n"},
        {"'1/X' --table -1 1 3 --jet 2", "1                        1  jet: 1; -1; 2\n"},
    };
    for (const auto& c : cases) {
        const result r = lawcalc(c.args);
        EXPECT_TRUE(has(r, c.piece)) << c.args << "\n" << r.out;
    }
    EXPECT_EQ(lawcalc("X --jet 0").status, 2);
    EXPECT_EQ(lawcalc("'SQRT(X)' --at 0 --jet 1").status, 1);
}

TEST(Lawcalc, PlotsAnSvgPicture) {
    const std::string file = testing::TempDir() + "lawcalc_plot.svg";
    const result r = lawcalc("'X^3-X' --plot -2 2 " + file);
    EXPECT_EQ(r.status, 0) << r.out;
    std::ifstream in(file);
    std::stringstream svg;
    svg << in.rdbuf();
    EXPECT_NE(svg.str().find("<svg"), std::string::npos);
    EXPECT_NE(svg.str().find("<path"), std::string::npos);
    EXPECT_NE(svg.str().find("X^3-X"), std::string::npos);
}

TEST(Lawcalc, HelpAndUsageErrors) {
    EXPECT_EQ(lawcalc("--help").status, 0);
    EXPECT_TRUE(has(lawcalc("--help"), "usage: lawcalc"));
    EXPECT_EQ(lawcalc("X --frobnicate").status, 2);
}

}  // namespace

namespace {

TEST(Lawcalc, RefusesArgumentsOutOfRangeAndLawsTooWide) {
    for (const char* args : {"X --derivative=99999999999", "X --derivative=-3", "X --wrt 1e11",
                             "X --plot 0 0 none.svg", "X --table 0 nan 3"})
        EXPECT_EQ(lawcalc(args).status, 2) << args;
    // A point is padded to the law's inputs: two thousand million of them is refused.
    EXPECT_TRUE(has(lawcalc("X99999999999 --at 2"), "lawcalc evaluates at most 65536"));
}

TEST(Lawcalc, ReportsWhatFailedWarnsOfWhatMisleads) {
    EXPECT_FALSE(has(lawcalc("'RAND(X)' --derivative --at 1"), "derivative:"));
    EXPECT_TRUE(has(lawcalc("--at 2 -- -X"), "at 2: -2"));
    // The caret counts characters, and a message never holds half of one.
    EXPECT_TRUE(has(lawcalc("'X+\xc3\xa9'"), "at \xc3\xa9\n  X+\xc3\xa9\n    ^\n"));
    EXPECT_TRUE(has(lawcalc("'X*0.1234567890123456789012345678901234'"), "901234\n    ^"));
    const result w = lawcalc("'2(X+1)' --at 1");
    EXPECT_TRUE(w.status == 0 && has(w, "warning: ") && has(w, "  2(X+1)\n   ^\n") &&
                has(w, "at 1: 2\n"))
        << w.out;
    const result s = lawcalc("--strict 'X Y' --at 1");
    EXPECT_TRUE(s.status == 1 && has(s, "error: ") && !has(s, "at 1")) << s.out;
}

}  // namespace
TEST(Lawcalc, NumericsPrintTheirAnswersAndCost) {
    const result r =
        lawcalc("'X^3-X' --roots 2 -2 --max -1 0 --integrate 0 2 --nderiv 1 2 --solve X 0 2");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(has(r, "roots on [2, -2]: -1 0 1  [")) << r.out;
    EXPECT_TRUE(has(r, "max on [-1, 0] at -0.577350269189626")) << r.out;  // -1/sqrt(3)
    EXPECT_TRUE(has(r, "integral from 0 to 2: 2 (converged)")) << r.out;
    EXPECT_TRUE(has(r, "derivative 1 at 2: 11.00000000")) << r.out;  // 3x^2 - 1
    EXPECT_TRUE(has(r, "solutions on [0, 2]: 0 1.4142135623731")) << r.out;
    EXPECT_TRUE(has(r, " evaluations]")) << r.out;

    const std::string svg = testing::TempDir() + "lawcalc_marks.svg";
    EXPECT_EQ(lawcalc("'X^3-X' --plot -2 2 " + svg).status, 0);
    std::ifstream in(svg);
    std::stringstream text;
    text << in.rdbuf();
    size_t circles = 0;
    for (size_t at = 0; (at = text.str().find("<circle", at)) != std::string::npos; ++at) ++circles;
    EXPECT_EQ(circles, 3u);  // the three roots
    std::remove(svg.c_str());

    const result bad = lawcalc("'X*Y' --roots 0 1");
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(has(bad, "error: Bad law dimensions")) << bad.out;
}

TEST(Lawcalc, SweepDrawsOneFrameVectorPerSample) {
    const std::string svg = testing::TempDir() + "lawcalc_sweep.svg";
    const result r = lawcalc(
        "--sweep 'VEC(COS(X),SIN(X),X/4)' "
        "'MINROT(VEC(COS(X),SIN(X),X/4),VEC(-1,0,0),0,6)' 0 6 5 " +
        svg);
    EXPECT_EQ(r.status, 0) << r.out;
    std::ifstream in(svg);
    std::stringstream text;
    text << in.rdbuf();
    size_t arrows = 0;
    for (size_t at = 0; (at = text.str().find("stroke=\"#d62728\"", at)) != std::string::npos; ++at)
        ++arrows;
    EXPECT_EQ(arrows, 5u);
    EXPECT_EQ(text.str().find("nan"), std::string::npos);
    std::remove(svg.c_str());
    // A path of the wrong width, and a count that is not a whole number.
    EXPECT_NE(lawcalc("--sweep 'X' 'VEC(1,0,0)' 0 1 5 " + svg).status, 0);
    EXPECT_EQ(lawcalc("--sweep 'X' 'VEC(1,0,0)' 0 1 2.5 " + svg).status, 2);
}

// Long tables go through the compiled form: every line as the tree prints it, the errors
// and the signs of NaN included.
TEST(Lawcalc, LongTablesPrintWhatTheTreePrints) {
    for (const char* args :
         {"'VEC(1/(X-0.5),X*X)' --table 0 1 201", "'-(EXP(X*100)-EXP(X*100))*X+Y' --table 0 10 301",
          "'X^3-X' --plot -2 2 /dev/null --roots -2 2"}) {
        const result compiled = lawcalc(args), tree = lawcalc(std::string(args) + " --no-compile");
        EXPECT_EQ(compiled.out, tree.out) << args;
        EXPECT_EQ(compiled.status, tree.status) << args;
    }
    EXPECT_TRUE(has(lawcalc("'1/(X-0.5)' --table 0 1 201"), "0.5                      error: "));
    EXPECT_TRUE(has(lawcalc("'EXP(X*100)-EXP(X*100)' --table 0 10 301"), "-nan"));
}

// The accurate methods are the defaults; --method and --frame-method name the others (the
// hunt finds a double root only to about 1e-6).
TEST(Lawcalc, AccurateMethodsByDefaultAndTheOthersByName) {
    const struct {
        std::string args;
        std::vector<std::string> lines;
    } cases[] = {
        {"'SIN(X)^2' --roots 0 10 --roots 1 10 --method hunt",
         {"roots on [0, 10]: 0 (double) 3.14159265358979 (double) 6.28318530717959 (double) "
          "9.42477796076938 (double)  [",
          "roots on [1, 10]: 3.14159"}},
        {"'EXP(-(X^2))' --integrate -inf inf --integrate inf -inf --method gk",
         {"integral from -inf to inf: 1.77245385090551", "by de",
          "integral from inf to -inf: -1.7724538509055", "by gk"}},
        {"'SQRT(X)' --integrate 0 1 --method romberg", {"(not converged)  [1048577 evaluations]"}},
        {"'MINROT(VEC(COS(X),SIN(X),X/4),VEC(-1,0,0),0,12.5)' --at 12.5",
         {"at 12.5: (0.99354311289"}},
        {"--frame-method step 'MINROT(VEC(COS(X),SIN(X),X/4),VEC(-1,0,0),0,12.5)' --at 12.5",
         {"at 12.5: (0.99353863950"}},
    };
    for (const auto& c : cases) {
        const result r = lawcalc(c.args);
        EXPECT_EQ(r.status, 0) << c.args << "\n" << r.out;
        for (const std::string& line : c.lines)
            EXPECT_TRUE(has(r, line)) << c.args << "\n" << r.out;
    }
    for (const char* bad : {"X --roots 0 1 --method de", "X --integrate 0 1 --method cheb",
                            "X --frame-method twist", "X --method cheb"})
        EXPECT_EQ(lawcalc(bad).status, 2) << bad;
}

// Answers that used to print wrongly with status 0: kinks, poles, high derivatives and
// a picture without a curve.
TEST(Lawcalc, NumericsAtKinksPolesAndHighOrders) {
    const struct {
        const char* args;
        int status;
        const char* piece;
    } cases[] = {
        {"'ABS(X-0.5)' --min 0 1", 0, "min on [0, 1] at 0.5: 0"},
        {"'MIN(X,1-X)' --max 0 1", 0, "max on [0, 1] at 0.5: 0.5"},
        {"'1/(X-0.3)^2' --max 0 1", 0, "at 0.3: unbounded (a pole)"},
        {"'SIN(X)' --nderiv 5 1", 0, "derivative 5 at 1: 0.5403"},
        {"'X^4' --nderiv 4 1", 0, "derivative 4 at 1: 23.9999"},
        {"'SQRT(X)' --plot -2 -1 /dev/null", 1, "error: the law has no value anywhere"},
        {"'SIN(1/X)' --roots 0.01 1 --method hunt", 0, "oscillates faster than the hunt resolves"},
    };
    for (const auto& c : cases) {
        const result r = lawcalc(c.args);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.out;
        EXPECT_TRUE(has(r, c.piece)) << c.args << "\n" << r.out;
    }
}
