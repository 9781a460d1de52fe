#include "qem/heap.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

// Laws are small and short-lived, and a parse or a derivative makes thousands of them:
// each thread keeps the small blocks it discards and hands them out again, and counts
// its own blocks without a locked instruction.  The counts of all threads add up to the
// process's; a thread that ends folds its counts into `retired`.  The same holds for the
// other tallies (live laws, ...).
constexpr size_t granule = 16;
constexpr size_t size_classes = 16;  // blocks of up to 256 bytes are kept
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers must see every block freed and allocated anew.
constexpr size_t bytes_kept = 0;
#else
constexpr size_t bytes_kept = size_t{4} << 20;  // per thread
#endif

struct kept_block {
    kept_block* next;
};

struct thread_heap {
    kept_block* kept[size_classes + 1] = {};
    size_t kept_bytes = 0;
    std::atomic<long> tally[vorn_tally_count] = {};  // written by its thread only
    thread_heap* next = nullptr;
    thread_heap* prev = nullptr;
};

std::mutex heaps_lock;
thread_heap* heaps = nullptr;  // every started thread's heap, under heaps_lock
std::atomic<long> retired[vorn_tally_count] = {};

// Initial-exec: one instruction to reach; the library is linked, not opened late.
[[gnu::tls_model("initial-exec")]] thread_local thread_heap* current_heap = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local bool heap_retired = false;

void retire(thread_heap* h) {
    {
        std::lock_guard<std::mutex> guard(heaps_lock);
        for (int i = 0; i < vorn_tally_count; ++i)
            retired[i].fetch_add(h->tally[i].load(std::memory_order_relaxed),
                                 std::memory_order_relaxed);
        if (h->prev)
            h->prev->next = h->next;
        else
            heaps = h->next;
        if (h->next) h->next->prev = h->prev;
    }
    for (kept_block*& list : h->kept)
        while (list) {
            kept_block* b = list;
            list = b->next;
            std::free(b);
        }
    delete h;
}

// Ends the thread's heap when the thread ends; later calls on the thread (from other
// thread-exit code) use the plain heap and the shared count.
struct heap_owner {
    thread_heap* heap = nullptr;
    ~heap_owner() {
        current_heap = nullptr;
        heap_retired = true;
        if (heap) retire(heap);
    }
};
thread_local heap_owner owner;

thread_heap* this_thread_heap() {
    if (current_heap || heap_retired) return current_heap;
    thread_heap* h = new thread_heap;
    {
        std::lock_guard<std::mutex> guard(heaps_lock);
        h->next = heaps;
        if (heaps) heaps->prev = h;
        heaps = h;
    }
    owner.heap = h;
    current_heap = h;
    return h;
}

void count(thread_heap* h, int which, long change) {
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
    thread_heap* h = this_thread_heap();
    // A zero request still gets a block of its own.
    const size_t cls = bytes == 0 ? 1 : (bytes + granule - 1) / granule;
    void* p = nullptr;
    if (cls <= size_classes && h && h->kept[cls]) {
        kept_block* b = h->kept[cls];
        h->kept[cls] = b->next;
        h->kept_bytes -= cls * granule;
        p = b;
    } else {
        // Small blocks in whole granules, so that each goes back to the class it came from.
        p = std::malloc(cls <= size_classes ? cls * granule : bytes);
        if (p == nullptr) throw std::bad_alloc();
    }
    count(h, vorn_tally_blocks, 1);
    return p;
}

void vorn_discard(void* p) {
    if (p == nullptr) return;
    thread_heap* h = this_thread_heap();
    count(h, vorn_tally_blocks, -1);
    // The class whose every request the block can serve.
    const size_t cls = malloc_usable_size(p) / granule;
    if (h && cls <= size_classes && h->kept_bytes + cls * granule <= bytes_kept) {
        kept_block* b = static_cast<kept_block*>(p);
        b->next = h->kept[cls];
        h->kept[cls] = b;
        h->kept_bytes += cls * granule;
        return;
    }
    std::free(p);
}

void vorn_tally_change(int which, long change) {
    count(this_thread_heap(), which, change);
}

long vorn_tally_total(int which) {
    std::lock_guard<std::mutex> guard(heaps_lock);
    long total = retired[which].load(std::memory_order_relaxed);
    for (const thread_heap* h = heaps; h; h = h->next)
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
