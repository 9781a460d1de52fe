#include "qem/heap.h"

#include <atomic>
#include <cstdlib>

namespace {

// Relaxed is enough: the counter is a statistic, not a synchronisation point.
std::atomic<long> live_blocks{0};

// Below this size a linear scan beats hashing.
constexpr size_t void_list_hash_threshold = 32;

}  // namespace

void* vorn_allocate(size_t bytes, const char* /*file*/, int /*line*/) {
    // malloc(0) may return null, which would look like exhaustion and would
    // not give distinct addresses; ask for one byte instead.
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p == nullptr) throw std::bad_alloc();
    live_blocks.fetch_add(1, std::memory_order_relaxed);
    return p;
}

void vorn_discard(void* p) {
    if (p == nullptr) return;
    live_blocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(p);
}

long vorn_live_blocks() {
    return live_blocks.load(std::memory_order_relaxed);
}

int VOID_LIST::add(void* p) {
    int found = lookup(p);
    if (found >= 0) return found;
    int index = count();
    items_.push_back(p);
    if (!index_.empty()) {
        index_.emplace(p, index);
    } else if (items_.size() > void_list_hash_threshold) {
        // Crossing the threshold: index everything seen so far.
        for (size_t i = 0; i < items_.size(); ++i) index_.emplace(items_[i], static_cast<int>(i));
    }
    return index;
}

void* VOID_LIST::operator[](int i) const {
    if (i < 0 || i >= count()) return nullptr;
    return items_[static_cast<size_t>(i)];
}

int VOID_LIST::lookup(void* p) const {
    if (!index_.empty()) {
        auto it = index_.find(p);
        return it == index_.end() ? -1 : it->second;
    }
    for (size_t i = 0; i < items_.size(); ++i)
        if (items_[i] == p) return static_cast<int>(i);
    return -1;
}

void VOID_LIST::clear() {
    items_.clear();
    index_.clear();
}
