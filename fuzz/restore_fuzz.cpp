// Feeds arbitrary bytes to law_restore: a text that restores is saved again, the save is
// restored, and the two laws must be equal; a text that is refused must say why.  A
// crash, a leak, a sanitizer report, a hang, runaway memory or a silent refusal is a
// finding.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <lawutil/lawutil.h>

namespace {

bool started = [] { return initialize_law() == 1; }();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)started;
    if (size > 8192) return 0;  // long inputs only slow the search down
    std::stringstream in(std::string(reinterpret_cast<const char*>(data), size));
    TEST_clear_error();
    law* l = law_restore(in);
    if (!l) {
        if (std::string(TEST_get_error()).empty()) __builtin_trap();
        return 0;
    }
    std::stringstream saved;
    bool same = true;
    try {
        law_save(l, saved);
        law* back = law_restore(saved);
        same = back && *back == *l;
        law::remove(back);
    } catch (const vorn_exception&) {
        // A datum of a kind that cannot be written: refused up front, with its code.
    }
    law::remove(l);
    if (!same) __builtin_trap();
    return 0;
}
