#include "qem/errors.h"

#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

namespace {

using QEM::message_entry;
using QEM::message_module;

// Width of the code block given to each module. Large tables take several
// consecutive blocks.
constexpr err_mess_type block_size = 1000;

struct module_registry {
    std::mutex mutex;
    std::map<err_mess_type, const message_module*> by_base;
    err_mess_type next_base = block_size;
};

// Modules register from static constructors of arbitrary libraries and
// unregister from static destructors that may run after this library's own
// statics are gone, so the registry is created on first use and deliberately
// never destroyed.
module_registry& registry() {
    static module_registry* instance = new module_registry;
    return *instance;
}

// Entry owning `code`, or null. The caller must hold the registry mutex for as
// long as it reads the entry's module.
const message_entry* locked_find(module_registry& reg, err_mess_type code) {
    auto it = reg.by_base.upper_bound(code);
    if (it == reg.by_base.begin()) return nullptr;
    --it;
    return it->second->entry(code - it->first);
}

int table_length(const message_entry* list) {
    int n = 0;
    while (list != nullptr && (list[n].ident != nullptr || list[n].message != nullptr)) ++n;
    return n;
}

const message_entry qem_table[] = {
    {"QEM_NOT_MAIN_THREAD", "This operation may only be called on the main thread"},
    {"QEM_ASSERTION", "Internal consistency check failed"},
    {"QEM_BAD_INDEX", "Index out of range"},
    {"QEM_BAD_SIZE", "Size must not be negative"},
    {"QEM_SINGULAR_MATRIX", "Matrix is singular and cannot be inverted"},
    {nullptr, nullptr},
};

const message_module& qem_module() {
    static const message_module module("qem", qem_table);
    return module;
}

// Register while the library loads so the base library's codes come first
// and do not depend on which caller happens to need them.
[[maybe_unused]] const bool qem_module_registered = (qem_module(), true);

// Per-thread state: warnings and posted text must not leak between threads
// that run independent modelling operations.
thread_local std::vector<err_mess_type> thread_warnings;
thread_local std::string thread_posted_text;

std::atomic<long> assert_failures{0};

void default_assert_handler(const char* what, const char* file, int line) {
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, "assertion failed: %s (%s:%d)", what ? what : "?",
                  file ? file : "?", line);
    try {
        TEST_set_error(buffer);
    } catch (...) {
        // Out of memory while reporting; the failure is still counted.
    }
}

std::atomic<QEM::assert_handler> current_assert_handler{&default_assert_handler};

}  // namespace

void sys_error(err_mess_type code) {
    throw QEM::vorn_exception(code);
}

void sys_warning(err_mess_type code) {
    thread_warnings.push_back(code);
}

int sys_warning_count() {
    return static_cast<int>(thread_warnings.size());
}

err_mess_type sys_last_warning() {
    return thread_warnings.empty() ? 0 : thread_warnings.back();
}

void sys_clear_warnings() {
    thread_warnings.clear();
}

const char* find_err_mess(err_mess_type code) {
    module_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    const message_entry* e = locked_find(reg, code);
    return e ? e->message : nullptr;
}

const char* find_err_ident(err_mess_type code) {
    module_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    const message_entry* e = locked_find(reg, code);
    return e ? e->ident : nullptr;
}

void TEST_set_error(const char* text) {
    thread_posted_text = text ? text : "";
}

const char* TEST_get_error() {
    return thread_posted_text.c_str();
}

void TEST_clear_error() {
    thread_posted_text.clear();
}

namespace QEM {

// The text is copied now: the module that owns it may be unloaded while the
// exception is still propagating.
vorn_exception::vorn_exception(err_mess_type code) : code_(code) {
    const char* text = find_err_mess(code);
    text_ = std::make_shared<const std::string>(text ? std::string(text)
                                                     : "unknown error " + std::to_string(code));
}

const char* vorn_exception::what() const noexcept {
    return text_->c_str();
}

message_module::message_module(const char* module_name, const message_entry* list)
    : name_(module_name ? module_name : ""), list_(list), count_(table_length(list)) {
    module_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    base_ = reg.next_base;
    reg.next_base += block_size * (count_ / block_size + 1);
    reg.by_base.emplace(base_, this);
}

message_module::~message_module() {
    module_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    reg.by_base.erase(base_);
}

const message_entry* message_module::entry(int local_index) const noexcept {
    if (local_index < 0 || local_index >= count_) return nullptr;
    return &list_[local_index];
}

err_mess_type qem_message_code(qem_message which) {
    return qem_module().message_code(static_cast<int>(which));
}

void qem_assert_hook(const char* what, const char* file, int line) {
    assert_failures.fetch_add(1, std::memory_order_relaxed);
    current_assert_handler.load(std::memory_order_acquire)(what, file, line);
}

long qem_assert_count() {
    return assert_failures.load(std::memory_order_relaxed);
}

assert_handler qem_set_assert_handler(assert_handler handler) {
    if (handler == nullptr) handler = &default_assert_handler;
    return current_assert_handler.exchange(handler, std::memory_order_acq_rel);
}

}  // namespace QEM
