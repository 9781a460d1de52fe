// Hostile and mistaken texts: what the parser reads, refuses, and what it costs.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class LawText : public leak_checked {};

std::string repeat(const std::string& s, int n) {
    std::string out;
    out.reserve(s.size() * static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// The law read from `text`, or null with the message and the failing offset.
law_ref read(const std::string& text, int* at = nullptr) {
    int offset = 0;
    TEST_clear_error();
    law_ref l = law_ref::adopt(str_to_law(text.c_str(), nullptr, 0, &offset));
    if (at) *at = offset;
    return l;
}

TEST_F(LawText, NumbersReadAsTheCLibraryReadsThemOrFailWhole) {
    EXPECT_EQ(read("1E+400")->eval(0), HUGE_VAL);
    EXPECT_EQ(read("1.8E+308")->eval(0), HUGE_VAL);
    EXPECT_EQ(read("1E-400")->eval(0), 0.0);
    EXPECT_EQ(read("1.7E+308")->eval(0), 1.7e308);
    // 32 characters are read; one more would read as a different number.
    const std::string digits32 = "1." + repeat("0", 29) + "5";
    EXPECT_EQ(read(digits32)->eval(0), 1.0);
    int at = 0;
    EXPECT_FALSE(read("3.141592653589793238462643383279502884", &at));
    EXPECT_STREQ(TEST_get_error(), "number too long at 3");
    EXPECT_EQ(at, 0);
    EXPECT_FALSE(read("X * 0.1234567890123456789012345678901234", &at));
    EXPECT_EQ(at, 4);
}

// The offsets the checker warns at.
std::vector<int> warned_at(const char* text) {
    law_text_warning* w = nullptr;
    const int n = check_law_text(text, &w);
    std::vector<int> at;
    for (int i = 0; i < n; ++i) at.push_back(w[i].offset);
    vorn_discard(w);
    return at;
}

TEST_F(LawText, CheckerPointsAtEachMisleadingReading) {
    using at = std::vector<int>;
    EXPECT_EQ(warned_at("2(X+1)"), at{1});  // read as 2
    EXPECT_EQ(warned_at("X Y"), at{2});     // read as Y
    EXPECT_EQ(warned_at("1.5.3"), at{3});   // read as 1.5
    EXPECT_EQ(warned_at("X +"), at{2});     // read as X+0
    EXPECT_EQ(warned_at("SIN()"), at{4});   // read as SIN(0)
    EXPECT_EQ(warned_at("VEC(1,,2)"), at{6});
    EXPECT_EQ(warned_at("((X)"), at{0});      // read as X
    EXPECT_EQ(warned_at("1,5"), (at{0, 1}));  // no law, no message
    EXPECT_EQ(warned_at("("), (at{0, 0}));
    // What the language means on purpose is not a warning.
    for (const char* clean : {"SIN(X)^2+COS(X)^2", "VEC(COS(X),SIN(X),X/10)", "2X+3PI", "-X^2",
                              "MAX(X,Y,1E-3)", "NOT X>1", "SINX", "", "NULL"})
        EXPECT_EQ(warned_at(clean), at{}) << clean;
    // The caller's posted message survives the check, which parses the text itself.
    TEST_set_error("earlier");
    EXPECT_EQ(check_law_text("X+$", nullptr), 0);
    EXPECT_STREQ(TEST_get_error(), "earlier");
}

// Parses each text in a child process whose address space is capped at 256 MB: a parse
// that needs memory beyond a small multiple of the text's length fails there.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LawText, MegabyteTextsParseWithinAFixedMemoryBound) {
    const int n = 1 << 18;  // 1 MB texts
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit cap{256u << 20, 256u << 20};
        setrlimit(RLIMIT_AS, &cap);
        auto refused = [](const std::string& text) {
            law* l = str_to_law(text.c_str());
            const bool ok =
                !l && std::string(TEST_get_error()).rfind("law nested too deeply", 0) == 0;
            law::remove(l);
            return ok;
        };
        bool ok = refused(repeat("SIN(", n) + "X" + repeat(")", n));
        ok = ok && refused(repeat("-", 4 * n) + "X");
        ok = ok && refused(repeat("VEC(X,", n / 2) + "X" + repeat(")", n / 2));
        ok = ok && refused(repeat("X+(", n) + "X" + repeat(")", n));
        law* parens = str_to_law((repeat("(", n * 2) + "X+1" + repeat(")", n * 2)).c_str());
        ok = ok && parens && parens->eval(2) == 3;
        law::remove(parens);
        law* sum =
            str_to_law((repeat("(", 900) + "X" + repeat("+X", n) + repeat(")", 900)).c_str());
        ok = ok && sum && sum->isa(plus_law_id);  // accepted: 900 levels are allowed
        law::remove(sum);
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}
#endif

}  // namespace
