// Hostile and mistaken texts: what the parser reads, refuses, and what it costs.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "leak_check.h"

namespace {

class LawText : public leak_checked {};

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// The value at 0 of the law read from `text`, or NaN with `at` the failing offset.
double value(const std::string& text, int* at = nullptr) {
    int offset = 0;
    law* l = str_to_law(text.c_str(), nullptr, 0, at ? at : &offset);
    const double v = l ? l->eval(0) : NAN;
    law::remove(l);
    return v;
}

TEST_F(LawText, NumbersReadAsTheCLibraryReadsThemOrFailWhole) {
    EXPECT_EQ(value("1E+400") + value("1.8E+308"), HUGE_VAL);
    EXPECT_EQ(value("1E-400"), 0.0);
    EXPECT_EQ(value("1." + repeat("0", 29) + "5"), 1.0);  // 32 characters: read whole
    int at = -1;
    EXPECT_TRUE(std::isnan(value("3.141592653589793238462643383279502884", &at)));
    EXPECT_STREQ(TEST_get_error(), "number too long at 3");
    EXPECT_TRUE(std::isnan(value("X * 0.1234567890123456789012345678901234", &at)));
    EXPECT_EQ(at, 4);
}

TEST_F(LawText, CheckerPointsAtEachMisleadingReadingOnly) {
    const std::vector<std::pair<const char*, std::vector<int>>> cases = {
        {"2(X+1)", {1}}, {"X Y", {2}},   {"1.5.3", {3}},      {"X +", {2}},
        {"SIN()", {4}},  {"((X)", {0}},  {"1,5", {0, 1}},     {"(", {0, 0}},
        {"-X^2", {}},    {"2X+3PI", {}}, {"NOT X>1", {}},     {"SINX", {}},
        {"", {}},        {"NULL", {}},   {"MAX(X,1E-3)", {}}, {"VEC(COS(X),SIN(X),X/10)", {}},
        {"X2.5", {1}},   {"A3+X12", {}}};
    for (const auto& [text, expected] : cases) {
        law_text_warning* w = nullptr;
        std::vector<int> at(static_cast<size_t>(check_law_text(text, &w)));
        for (size_t i = 0; i < at.size(); ++i) at[i] = w[i].offset;
        vorn_discard(w);
        EXPECT_EQ(at, expected) << text;
    }
    TEST_set_error("earlier");  // the check parses the text, but keeps the caller's message
    EXPECT_EQ(check_law_text("X+$", nullptr), 0);
    EXPECT_STREQ(TEST_get_error(), "earlier");
}

// 1 MB texts parsed in a child process capped at 256 MB of address space: a parse whose
// memory grows faster than the text fails there.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LawText, MegabyteTextsParseWithinAFixedMemoryBound) {
    const int n = 1 << 18;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit cap{256u << 20, 256u << 20};
        setrlimit(RLIMIT_AS, &cap);
        bool ok = true;
        for (const std::string& deep : {repeat("SIN(", n) + "X", repeat("-", 4 * n) + "X",
                                        repeat("VEC(X,", n / 2) + "X", repeat("X+(", n) + "X"}) {
            ok = ok && std::isnan(value(deep)) &&
                 std::string(TEST_get_error()).rfind("law nested too deeply", 0) == 0;
        }
        ok = ok && value(repeat("(", 2 * n) + "X+1" + repeat(")", 2 * n)) == 1;
        ok = ok && !std::isnan(value(repeat("(", 900) + "X" + repeat("+X", 40000) + ")"));
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}
#endif

}  // namespace
