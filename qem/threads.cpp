#include "qem/threads.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qem/errors.h"

namespace QEM {

namespace {

struct index_pool {
    std::mutex mutex;
    std::vector<bool> in_use;
};

// Thread contexts die in thread-exit handlers, some after this library's
// statics are destroyed (the main thread's, for one), so the pool is created
// on first use and never destroyed.
index_pool& pool() {
    static index_pool* instance = new index_pool;
    return *instance;
}

int acquire_index() {
    index_pool& p = pool();
    std::lock_guard lock(p.mutex);
    auto free_slot = std::find(p.in_use.begin(), p.in_use.end(), false);
    int index = static_cast<int>(free_slot - p.in_use.begin());
    if (free_slot == p.in_use.end())
        p.in_use.push_back(true);
    else
        *free_slot = true;
    return index;
}

void release_index(int index) {
    index_pool& p = pool();
    std::lock_guard lock(p.mutex);
    p.in_use[static_cast<size_t>(index)] = false;
}

struct thread_slot {
    thread_context* installed = nullptr;
    // Created lazily so threads that never use the library take no index.
    std::optional<thread_context> own;
};

thread_local thread_slot this_thread_slot;

std::thread::id main_thread_id;

// Runs while the library loads: claims index 0 for the loading thread and
// remembers it as the main thread.
[[maybe_unused]] const bool main_thread_registered = [] {
    main_thread_id = std::this_thread::get_id();
    tls_get_context();
    return true;
}();

struct component_registry {
    std::mutex mutex;
    std::map<std::string, int, std::less<>> counts;
};

component_registry& components() {
    static component_registry* instance = new component_registry;
    return *instance;
}

}  // namespace

thread_context::thread_context() : index_(acquire_index()) {}

thread_context::~thread_context() {
    release_index(index_);
}

thread_context* tls_get_context() {
    thread_slot& slot = this_thread_slot;
    if (slot.installed != nullptr) return slot.installed;
    if (!slot.own) slot.own.emplace();
    return &*slot.own;
}

void set_thread_context(thread_context* context) {
    this_thread_slot.installed = context;
}

bool is_main_thread() {
    return std::this_thread::get_id() == main_thread_id;
}

void mt_thread_not_permitted() {
    if (!is_main_thread()) sys_error(QEM_NOT_MAIN_THREAD);
}

void qem_component_info::addComponent(const char* name) {
    if (name == nullptr) return;
    component_registry& reg = components();
    std::lock_guard lock(reg.mutex);
    ++reg.counts[name];
}

void qem_component_info::removeComponent(const char* name) {
    if (name == nullptr) return;
    component_registry& reg = components();
    std::lock_guard lock(reg.mutex);
    auto it = reg.counts.find(std::string_view(name));
    if (it != reg.counts.end() && --it->second == 0) reg.counts.erase(it);
}

bool qem_component_info::hasComponent(const char* name) {
    if (name == nullptr) return false;
    component_registry& reg = components();
    std::lock_guard lock(reg.mutex);
    return reg.counts.find(std::string_view(name)) != reg.counts.end();
}

int qem_component_info::componentCount() {
    component_registry& reg = components();
    std::lock_guard lock(reg.mutex);
    return static_cast<int>(reg.counts.size());
}

}  // namespace QEM
