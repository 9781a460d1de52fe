// Laws held by static objects and by threads that end are released after the thread's
// own thread-local objects are gone.  A program of its own, since what it checks happens
// at exit: it fails (a sanitizer report, a crash, a nonzero status) if a release writes
// into freed per-thread state, or if the laws or heap blocks are not all given back.

#include <cstdio>
#include <cstdlib>
#include <thread>

#include <lawutil/lawutil.h>

namespace {

// Releases its law when destroyed: at exit, or as its thread ends.
struct law_release {
    law* held = nullptr;
    ~law_release() { law::remove(held); }
};

// A static cache of parsed laws, as real callers keep, emptied when the program ends.
struct law_holder {
    law* held = nullptr;
    long library_laws = 0;  // the library's own, live before any law of the program
    ~law_holder() {
        law::remove(held);
        // Everything is back once the last law goes; a leak or a lost count shows here.
        if (law::live_laws() != library_laws) std::_Exit(3);
    }
};
law_holder at_exit;

law* parse(const char* text) {
    law* l = str_to_law(text, nullptr, 0);
    if (!l) std::_Exit(2);
    return l;
}

}  // namespace

int main() {
    if (initialize_law() != 1) return 1;
    at_exit.library_laws = law::live_laws();
    const char* texts[] = {"SIN(X)+1", "X^2-COS(X)", "VEC(X,Y,Z)"};
    for (const char* t : texts) law::remove(parse(t));  // built and released on this thread
    at_exit.held = parse(texts[0]);
    // A law built on a thread that ends, released here; and one released by its thread
    // after the thread's own thread-local objects are destroyed.
    law* from_thread = nullptr;
    std::thread([&] { from_thread = parse("X*Y+1"); }).join();
    law::remove(from_thread);
    std::thread([] {
        // Made before the thread first uses the library, so destroyed after its objects.
        thread_local law_release released_at_thread_end;
        released_at_thread_end.held = parse("EXP(X)-1");
        law::remove(parse("COS(X)*2"));
    }).join();
    std::printf("ok\n");
    return 0;
}
