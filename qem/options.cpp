#include "qem/options.h"

#include <algorithm>
#include <cstring>

namespace {

struct option_registry {
    std::mutex mutex;
    std::vector<QEM::option_header*> options;
};

// Options register from static constructors of other libraries and may
// unregister after this library's statics are destroyed, so the registry is
// created on first use and never destroyed.
option_registry& registry() {
    static option_registry* instance = new option_registry;
    return *instance;
}

}  // namespace

namespace QEM {

option_header::option_header(const char* name, int default_value)
    : name_(name ? name : ""), default_(default_value), value_(default_value) {
    option_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    reg.options.push_back(this);
}

option_header::~option_header() {
    option_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    auto& list = reg.options;
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
}

void option_header::set(int value) {
    value_.store(value, std::memory_order_relaxed);
}

void option_header::push(int value) {
    std::lock_guard lock(stack_mutex_);
    saved_.push_back(count());
    set(value);
}

void option_header::pop() {
    std::lock_guard lock(stack_mutex_);
    if (saved_.empty()) return;
    set(saved_.back());
    saved_.pop_back();
}

void option_header::reset() {
    std::lock_guard lock(stack_mutex_);
    saved_.clear();
    set(default_);
}

}  // namespace QEM

QEM::option_header* find_option(const char* name) {
    if (name == nullptr) return nullptr;
    option_registry& reg = registry();
    std::lock_guard lock(reg.mutex);
    for (QEM::option_header* option : reg.options)
        if (std::strcmp(option->name(), name) == 0) return option;
    return nullptr;
}
