// Feeds arbitrary bytes to the parser: whatever parses is printed, the print is parsed
// again, and both laws are evaluated at a few points.  Coded errors of an evaluation are
// expected; anything else (a crash, a leak, a sanitizer report, a hang) is a finding, and
// so is a text that the general parser alone reads otherwise than str_to_law does.

#include <cstddef>
#include <cstdint>
#include <string>

#include <lawutil/lawutil.h>

namespace {

void evaluate_a_little(const law* l) {
    if (!l || l->take_dim() > 8 || l->return_dim() > 64 || l->return_dim() < 0) return;
    double x[8] = {0.5, -1.25, 2.0, 3.0, 0.0, 1.0, -2.0, 4.0};
    double out[64];
    for (double shift : {0.0, 0.75, -3.5}) {
        for (double& v : x) v += shift;
        try {
            l->evaluate(x, out);
        } catch (const vorn_exception&) {
        }
    }
}

// Laws that differentiate their part symbolically when evaluated (a moving frame, a
// surface normal, a derivative law) build derivative trees whose size grows
// exponentially with the nesting of what they differentiate (powers with variable
// exponents double at each level); one of them over a long random formula can take
// minutes, which is its real cost and not a finding.  Laws holding one are parsed,
// printed and parsed again, but not evaluated.
bool differentiates(const law* l) {
    for (int type : {static_cast<int>(derivative_law_id), static_cast<int>(frenet_law_id),
                     static_cast<int>(surfnorm_law_id)}) {
        VOID_LIST found;
        l->hasa(type, found);
        if (found.count() > 0) return true;
    }
    return false;
}

// str_to_law tries the quick reader first: the general parser alone must give an equal
// law, or the same message at the same place.
void compare_with_general(const std::string& text, const law* l, int offset) {
    const std::string message = TEST_get_error();
    TEST_clear_error();
    int general_offset = -2;
    law* g = str_to_law_general(text.c_str(), nullptr, 0, &general_offset);
    bool same = (!l && !g) || (l && g && *l == *g);
    if (same && l) {
        char* a = l->string();
        char* b = g->string();
        same = std::string(a) == b;
        vorn_discard(a);
        vorn_discard(b);
    }
    same = same && offset == general_offset && message == TEST_get_error();
    law::remove(g);
    if (!same) __builtin_trap();
}

bool started = [] { return initialize_law() == 1; }();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)started;
    if (size > 4096) return 0;  // long inputs only slow the search down
    const std::string text(reinterpret_cast<const char*>(data), size);
    law_text_warning* warnings = nullptr;
    check_law_text(text.c_str(), &warnings);  // the checker reads every text too
    vorn_discard(warnings);
    TEST_clear_error();
    int offset = -2;
    law* l = str_to_law(text.c_str(), nullptr, 0, &offset);
    compare_with_general(text, l, offset);
    if (!l) return 0;
    const bool evaluate = !differentiates(l);
    if (evaluate) evaluate_a_little(l);
    char* printed = l->string();
    law* again = str_to_law(printed, nullptr, 0);
    if (evaluate) evaluate_a_little(again);
    law::remove(again);
    vorn_discard(printed);
    law::remove(l);
    return 0;
}
