// Error reporting.
//
// Errors are identified by err_mess_type codes. Each library registers a
// message_module listing its messages; the registry hands the module a block
// of codes, so codes are unique among live modules without central planning.
// Hard errors are raised with sys_error (throws QEM::vorn_exception); soft
// ones are recorded per thread with sys_warning.
//
// The functions marked "global" live in the global namespace and are also
// reachable as QEM::name.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "qem/qem_export.h"

// Error code. 0 means "no error"; registered codes are always positive.
typedef int err_mess_type;

// Global. Throws QEM::vorn_exception carrying `code`.
[[noreturn]] QEM_API void sys_error(err_mess_type code);

// Global. Appends `code` to the calling thread's warning list.
QEM_API void sys_warning(err_mess_type code);
// Global. Number of warnings recorded on the calling thread since the last clear.
QEM_API int sys_warning_count();
// Global. Most recent warning on the calling thread, or 0 if there is none.
QEM_API err_mess_type sys_last_warning();
// Global. Empties the calling thread's warning list.
QEM_API void sys_clear_warnings();

// Global. Message text / identifier registered for `code`, or null when no
// live module owns the code. The text belongs to the registering module and
// stays valid while that module is registered.
QEM_API const char* find_err_mess(err_mess_type code);
QEM_API const char* find_err_ident(err_mess_type code);

// Global. Per-thread posted error text, used to pass a human-readable detail
// alongside an error code. TEST_get_error returns "" when nothing is posted;
// the pointer stays valid until the next set/clear on the same thread.
QEM_API void TEST_set_error(const char* text);
QEM_API const char* TEST_get_error();
QEM_API void TEST_clear_error();

namespace QEM {

using ::find_err_ident;
using ::find_err_mess;
using ::sys_clear_warnings;
using ::sys_error;
using ::sys_last_warning;
using ::sys_warning;
using ::sys_warning_count;
using ::TEST_clear_error;
using ::TEST_get_error;
using ::TEST_set_error;

// The exception thrown by sys_error. what() returns the message text captured
// when the exception was made (so it survives the module being unregistered),
// or "unknown error <n>" for an unregistered code. Copying never throws.
class QEM_API vorn_exception : public std::exception {
  public:
    explicit vorn_exception(err_mess_type code);
    err_mess_type error_number() const noexcept { return code_; }
    const char* what() const noexcept override;

  private:
    err_mess_type code_;
    std::shared_ptr<const std::string> text_;
};

// One line of a module's message table. Tables end with {nullptr, nullptr}.
struct message_entry {
    const char* ident;
    const char* message;
};

// A registered block of messages. Construction registers the table (which
// must outlive the module; normally it is a static array) and assigns a code
// base; destruction unregisters it. Bases are multiples of 1000 handed out in
// registration order and never reused, so a stale code can never name a
// different message. Safe to construct during static initialisation.
class QEM_API message_module {
  public:
    message_module(const char* module_name, const message_entry* list);
    ~message_module();
    message_module(const message_module&) = delete;
    message_module& operator=(const message_module&) = delete;

    const char* name() const noexcept { return name_; }
    // Number of entries in the table.
    int count() const noexcept { return count_; }
    // First code of this module's block.
    err_mess_type base() const noexcept { return base_; }
    // Code of the entry at 0-based `local_index`: base() + local_index.
    err_mess_type message_code(int local_index) const noexcept { return base_ + local_index; }
    // Entry for `local_index`, or null when out of range.
    const message_entry* entry(int local_index) const noexcept;

  private:
    const char* name_;
    const message_entry* list_;
    int count_;
    err_mess_type base_;
};

// Indices into the base library's own table.
enum class qem_message : int {
    not_main_thread = 0,
    assertion,
    bad_index,
    bad_size,
    singular_matrix,
};

// Code of one of the base library's own messages.
QEM_API err_mess_type qem_message_code(qem_message which);

// Runs a callback only when its scope is left by an exception, e.g. to undo a
// half-finished change. The callback must not throw; if it does, the
// exception is swallowed because it would otherwise terminate the unwinding.
class error_guard {
  public:
    explicit error_guard(std::function<void()> on_error)
        : on_error_(std::move(on_error)), exceptions_(std::uncaught_exceptions()) {}
    ~error_guard() {
        if (!on_error_ || std::uncaught_exceptions() <= exceptions_) return;
        try {
            on_error_();
        } catch (...) {
        }
    }
    error_guard(const error_guard&) = delete;
    error_guard& operator=(const error_guard&) = delete;

    // The callback will not run.
    void dismiss() noexcept { on_error_ = nullptr; }

  private:
    std::function<void()> on_error_;
    int exceptions_;
};

// Runs a callback whenever its scope is left, unless dismissed. The callback
// must not throw.
template <class F>
class scope_exit {
  public:
    explicit scope_exit(F f) : f_(std::move(f)) {}
    ~scope_exit() {
        if (active_) f_();
    }
    scope_exit(const scope_exit&) = delete;
    scope_exit& operator=(const scope_exit&) = delete;

    void dismiss() noexcept { active_ = false; }

  private:
    F f_;
    bool active_ = true;
};

// Receives failed QEM_ASSERT checks.
using assert_handler = void (*)(const char* what, const char* file, int line);

// Counts the failure, then passes it to the current handler. The default
// handler posts "assertion failed: <what> (<file>:<line>)" with
// TEST_set_error. Never aborts and never throws by itself.
QEM_API void qem_assert_hook(const char* what, const char* file, int line);
// Failed checks seen by qem_assert_hook since the process started, all threads.
QEM_API long qem_assert_count();
// Installs `handler` (null restores the default); returns the previous one.
QEM_API assert_handler qem_set_assert_handler(assert_handler handler);

}  // namespace QEM

using QEM::vorn_exception;
using QEM::qem_assert_count;
using QEM::qem_assert_hook;
using QEM::qem_set_assert_handler;

#define QEM_ASSERT(cond)                                                \
    do {                                                                \
        if (!(cond)) ::QEM::qem_assert_hook(#cond, __FILE__, __LINE__); \
    } while (0)

// Codes of the base library's own messages.
#define QEM_NOT_MAIN_THREAD (::QEM::qem_message_code(::QEM::qem_message::not_main_thread))
#define QEM_ASSERTION (::QEM::qem_message_code(::QEM::qem_message::assertion))
#define QEM_BAD_INDEX (::QEM::qem_message_code(::QEM::qem_message::bad_index))
#define QEM_BAD_SIZE (::QEM::qem_message_code(::QEM::qem_message::bad_size))
#define QEM_SINGULAR_MATRIX (::QEM::qem_message_code(::QEM::qem_message::singular_matrix))
