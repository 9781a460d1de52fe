#include "qem/qem_printf.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace {

void stdout_sink(const char* text, void* /*user*/) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

struct sink_state {
    std::recursive_mutex mutex;
    qem_printf_sink sink = &stdout_sink;
    void* user = nullptr;
};

// Leaked so that output from late static destructors still works.
sink_state& state() {
    static sink_state* instance = new sink_state;
    return *instance;
}

void deliver(const char* text) {
    sink_state& s = state();
    // Held while delivering so that messages from different threads reach the
    // sink one at a time, and so that a sink being replaced is not called
    // after qem_set_printf_sink returns. Recursive, so a sink may print.
    std::lock_guard lock(s.mutex);
    s.sink(text, s.user);
}

}  // namespace

int qem_vprintf(const char* fmt, va_list args) {
    // Most messages fit on the stack; longer ones are formatted a second time
    // into a buffer of the exact size.
    char local[1024];
    va_list again;
    va_copy(again, args);
    int length = std::vsnprintf(local, sizeof local, fmt, args);
    if (length < 0) {
        va_end(again);
        return length;
    }
    if (static_cast<size_t>(length) < sizeof local) {
        va_end(again);
        deliver(local);
        return length;
    }
    std::string big(static_cast<size_t>(length), '\0');
    std::vsnprintf(big.data(), big.size() + 1, fmt, again);
    va_end(again);
    deliver(big.c_str());
    return length;
}

int qem_printf(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int length = qem_vprintf(fmt, args);
    va_end(args);
    return length;
}

void qem_set_printf_sink(qem_printf_sink sink, void* user) {
    sink_state& s = state();
    std::lock_guard lock(s.mutex);
    s.sink = sink ? sink : &stdout_sink;
    s.user = sink ? user : nullptr;
}
