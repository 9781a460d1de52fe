// The quick reader against the general parser: random formulas, their printed forms in
// both symbol styles, the fuzz corpus and hostile token soups must read to equal laws
// (== and the same printed text) or to the same message at the same offset.

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "law_builders.h"
#include "leak_check.h"

namespace {

struct reading {
    law_ref law;
    std::string message;
    int offset = -2;
};

template <class F>
reading read_with(F&& parse) {
    TEST_clear_error();
    reading r;
    r.law = law_ref::adopt(parse(&r.offset));
    r.message = TEST_get_error();
    return r;
}

std::string printed(const law_ref& l, law_symbol_type style) {
    char* s = l->string(style);
    std::string out = s;
    vorn_discard(s);
    return out;
}

void expect_same(const reading& a, const reading& b, const std::string& text) {
    EXPECT_EQ(a.message, b.message) << text;
    EXPECT_EQ(a.offset, b.offset) << text;
    ASSERT_EQ(!a.law, !b.law) << text;
    if (!a.law) return;
    EXPECT_TRUE(*a.law.get() == *b.law.get()) << text;
    EXPECT_EQ(printed(a.law, SYMBOL_PARSE), printed(b.law, SYMBOL_PARSE)) << text;
}

// Compares str_to_law, the general parser and the quick reader on one text; true when
// the quick reader read it.
bool compare_readers(const std::string& text) {
    const char* t = text.c_str();
    const reading general = read_with([&](int* at) { return str_to_law_general(t, 0, 0, at); });
    const reading both = read_with([&](int* at) { return str_to_law(t, nullptr, 0, at); });
    law* quick_law = nullptr;
    bool quick = false;
    const reading quick_only = read_with([&](int* at) {
        quick = str_to_law_quick(t, &quick_law, at);
        return quick_law;
    });
    expect_same(general, both, text);
    if (quick)
        expect_same(general, quick_only, text);
    else
        EXPECT_TRUE(!quick_only.law && quick_only.message.empty()) << text;
    return quick;
}

// Formulas of the common grammar with odd spacing and case, and token soups of everything
// the quick reader must leave alone.
class text_maker {
  public:
    explicit text_maker(unsigned seed) : rng_(seed) {}

    std::string formula(int depth) {
        static const char* const leaves[] = {
            "X",  "y",    "Z",  "T", "A3", "2",    "1.5",
            ".5", "1E-3", "PI", "E", "E1", "TRUE", "1.7976931348623157E+308"};
        static const char* const ops[] = {
            "+", "-", "*", "/", "^", "<", ">=", "!=", "=", "AND", "OR", "O", "^", "*"};
        static const char* const calls[] = {"SIN(",    "cos(", "EXP(", "-",       "--",   "-(",
                                            "ARCTAN(", "VEC(", "MAX(", "MINROT(", "ABS ("};
        if (depth == 0 || pick(6) == 0) return leaves[pick(14)];
        const std::string a = formula(depth - 1);
        switch (pick(4)) {
            case 0:
                return "(" + a + ")";
            case 1: {
                const std::string f = calls[pick(11)];
                const bool list = f == "ARCTAN(" || f == "VEC(" || f == "MAX(" || f == "MINROT(";
                return f + a + (list ? "," + formula(depth - 1) : "") +
                       (f.back() == '(' ? ")" : "");
            }
            default:
                return a + (pick(3) ? "" : " ") + ops[pick(14)] + formula(depth - 1);
        }
    }

    std::string soup() {
        static const char* const tokens[] = {
            "X",     "Y",    "A0",          "X1.5",   "X2E1",  "2",
            "1.5.3", "1E5",  "2E+5",        "2*E+5",  "1E",    "0123456789012345678901234567890123",
            ".",     " ",    "(",           ")",      ",",     "+",
            "-",     "*",    "**",          "/",      "^",     "<",
            "<>",    "<=",   "NOT",         "AND",    "2OR1",  "SIN",
            "SINX",  "VEC(", "SPLINE_LAW1", "CUR(X)", "LAW",   "LAW2",
            "NULL",  "FOO",  "\xc3\xa4",    "2X",     "D(X,1)"};
        std::string s;
        for (int n = 1 + pick(10); n > 0; --n) s += tokens[pick(41)];
        return s;
    }

    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }

  private:
    std::mt19937 rng_;
};

class QuickReader : public leak_checked {};

TEST_F(QuickReader, ReadsAsTheGeneralParserDoes) {
    int read_quickly = 0, formulas = 0;
    for (unsigned seed = 1; seed <= 3000; ++seed) {
        text_maker make(seed);
        const std::string text = make.formula(5);
        ++formulas;
        if (compare_readers(text)) ++read_quickly;
        // Every prefix of the text: truncated formulas fail, or read, alike.
        compare_readers(
            text.substr(0, static_cast<size_t>(make.pick(static_cast<int>(text.size())))));
        compare_readers(make.soup());
        law_ref l = law_ref::adopt(str_to_law_general(text.c_str(), nullptr, 0, nullptr));
        if (!l) continue;
        // What the printer writes reads back the same both ways, in either style.
        compare_readers(printed(l, SYMBOL_PARSE));
        compare_readers(printed(l, SYMBOL_SECOND));
        if (HasFatalFailure()) return;
    }
    // Most of the common grammar is read quickly, or the comparison proves little.
    EXPECT_GT(read_quickly, formulas / 2);
}

TEST_F(QuickReader, HostileTextsReadAsTheGeneralParserDoes) {
    for (const auto& entry : std::filesystem::directory_iterator(LAW_FUZZ_CORPUS)) {
        std::ifstream file(entry.path());
        std::stringstream text;
        text << file.rdbuf();
        compare_readers(text.str());
    }
    // Nesting around the quick reader's limit and the general parser's.
    for (int n : {40, 47, 48, 49, 60, 999, 1001}) {
        compare_readers(std::string(n, '(') + "X" + std::string(n, ')'));
        compare_readers(std::string(n, '-') + "X");
        std::string calls;
        for (int i = 0; i < n; ++i) calls += "SIN(";
        compare_readers(calls + "X" + std::string(n, ')'));
    }
    for (const char* t : {"", "NULL", "X+NULL", "()", "1E400", "1E-400", "4.9E-324",
                          "12345678901234567890123456789012", "123456789012345678901234567890123",
                          "VEC(X)+1", "TERM(X,Y)", "PIECEWISE(X,1)", "X\t+\nY", "X^2^3"})
        compare_readers(t);
}

}  // namespace
