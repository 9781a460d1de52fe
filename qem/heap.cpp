#include "qem/heap.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

// Laws are small and short-lived, and a parse or a derivative makes thousands of them:
// each thread counts its own blocks (and the other tallies, such as live laws) without a
// locked instruction.  The counts of all threads add up to the process's; a thread that
// ends folds its counts into `retired`.  (Keeping discarded blocks per thread for reuse
// was tried: it made short texts faster but long ones slower, the kept blocks keeping
// the heap from joining the rest, and parsing no longer linear.)
struct thread_tallies {
    std::atomic<long> tally[vorn_tally_count] = {};  // written by its thread only
    thread_tallies* next = nullptr;
    thread_tallies* prev = nullptr;
};

std::mutex tallies_lock;
thread_tallies* all_tallies = nullptr;  // of every started thread, under tallies_lock
std::atomic<long> retired[vorn_tally_count] = {};

// Initial-exec: one instruction to reach; the library is linked, not opened late.
[[gnu::tls_model("initial-exec")]] thread_local thread_tallies* current_tallies = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local bool tallies_retired = false;

void retire(thread_tallies* h) {
    {
        std::lock_guard<std::mutex> guard(tallies_lock);
        for (int i = 0; i < vorn_tally_count; ++i)
            retired[i].fetch_add(h->tally[i].load(std::memory_order_relaxed),
                                 std::memory_order_relaxed);
        if (h->prev)
            h->prev->next = h->next;
        else
            all_tallies = h->next;
        if (h->next) h->next->prev = h->prev;
    }
    delete h;
}

// Folds the thread's tallies when the thread ends; later calls on the thread (from other
// thread-exit code) change the shared counts.
struct tallies_owner {
    thread_tallies* tallies = nullptr;
    ~tallies_owner() {
        current_tallies = nullptr;
        tallies_retired = true;
        if (tallies) retire(tallies);
    }
};
thread_local tallies_owner owner;

thread_tallies* this_thread_tallies() {
    if (current_tallies || tallies_retired) return current_tallies;
    thread_tallies* h = new thread_tallies;
    {
        std::lock_guard<std::mutex> guard(tallies_lock);
        h->next = all_tallies;
        if (all_tallies) all_tallies->prev = h;
        all_tallies = h;
    }
    owner.tallies = h;
    current_tallies = h;
    return h;
}

void count(thread_tallies* h, int which, long change) {
    if (h) {
        std::atomic<long>& t = h->tally[which];
        t.store(t.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
    } else {
        retired[which].fetch_add(change, std::memory_order_relaxed);
    }
}

// Below this size a linear scan beats hashing.
constexpr size_t void_list_hash_threshold = 32;

}  // namespace

void* vorn_allocate(size_t bytes, const char* /*file*/, int /*line*/) {
    // malloc(0) may return null, which would look like exhaustion and would
    // not give distinct addresses; ask for one byte instead.
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p == nullptr) throw std::bad_alloc();
    count(this_thread_tallies(), vorn_tally_blocks, 1);
    return p;
}

void vorn_discard(void* p) {
    if (p == nullptr) return;
    count(this_thread_tallies(), vorn_tally_blocks, -1);
    std::free(p);
}

void vorn_tally_change(int which, long change) {
    count(this_thread_tallies(), which, change);
}

long vorn_tally_total(int which) {
    std::lock_guard<std::mutex> guard(tallies_lock);
    long total = retired[which].load(std::memory_order_relaxed);
    for (const thread_tallies* h = all_tallies; h; h = h->next)
        total += h->tally[which].load(std::memory_order_relaxed);
    return total;
}

long vorn_live_blocks() {
    return vorn_tally_total(vorn_tally_blocks);
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
