#include <lawutil/law_errors.h>

#include <atomic>

#include <qem/d3_ostream.h>

namespace {

const QEM::message_entry law_messages[] = {
#define LAW_ERROR(index, name, message) {#name, message},
#include <lawutil/law_errors.def>
#undef LAW_ERROR
    {nullptr, nullptr}};

static_assert(std::size(law_messages) == law_error_count + 1);

void no_problem() {}
bool no_waiver() {
    return false;
}

// The kernel installs these before laws are built; the defaults make an unregistered
// library behave as if no restore were under way.
std::atomic<void (*)()> problem_hook{&no_problem};
std::atomic<bool (*)()> waive_a_hook{&no_waiver};
std::atomic<bool (*)()> waive_b_hook{&no_waiver};

}  // namespace

const QEM::message_module& get_lawutil_main_law_errmod() {
    static const QEM::message_module module("lawutil", law_messages);
    return module;
}

// Built when the library is loaded, before initialize_law runs.
const QEM::message_module& lawutil_main_law_errmod = get_lawutil_main_law_errmod();

void register_law_restore_problem_callback(void (*problem)(), bool (*waive_a)(),
                                           bool (*waive_b)()) {
    problem_hook.store(problem ? problem : &no_problem);
    waive_a_hook.store(waive_a ? waive_a : &no_waiver);
    waive_b_hook.store(waive_b ? waive_b : &no_waiver);
}

void restore_law_problem_found() {
    problem_hook.load()();
}

void toxic_law_error() {
    problem_hook.load()();
    QEM::D3_ostream text;
    text << "Toxic law detected";
    TEST_set_error(text.c_str());
}

bool law_restore_waived() {
    return waive_a_hook.load()() && waive_b_hook.load()();
}

namespace {
// A plain pointer: nothing for the thread's exit to destroy.
thread_local const char* posted_refusal = nullptr;
}  // namespace

void law_post_refusal(const char* why) {
    posted_refusal = why;
}

const char* law_take_refusal() {
    const char* why = posted_refusal;
    posted_refusal = nullptr;
    return why;
}
