// Feeds arbitrary bytes to the parser: whatever parses is printed, the print is parsed
// again, and both laws are evaluated at a few points.  Coded errors of an evaluation are
// expected; anything else (a crash, a leak, a sanitizer report, a hang) is a finding.

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
// minutes, which is its real cost and not a finding.  Such texts are parsed, printed and
// parsed again, but not evaluated.
bool differentiates(const std::string& text) {
    std::string upper;
    for (char c : text)
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            upper += (c >= 'a' && c <= 'z') ? c - 32 : c;
    for (const char* word : {"FRENET", "SURFNORM", "D("})
        if (upper.find(word) != std::string::npos) return true;
    return false;
}

bool started = [] { return initialize_law() == 1; }();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)started;
    if (size > 4096) return 0;  // long inputs only slow the search down
    const std::string text(reinterpret_cast<const char*>(data), size);
    law* l = str_to_law(text.c_str(), nullptr, 0);
    if (!l) return 0;
    const bool evaluate = !differentiates(text);
    if (evaluate) evaluate_a_little(l);
    char* printed = l->string();
    law* again = str_to_law(printed, nullptr, 0);
    if (evaluate) evaluate_a_little(again);
    law::remove(again);
    vorn_discard(printed);
    law::remove(l);
    return 0;
}
