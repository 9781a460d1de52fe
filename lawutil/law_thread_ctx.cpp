#include <lawutil/law_thread_ctx.h>

#include <atomic>
#include <mutex>

#include <qem/threads.h>

namespace {

constexpr int records_per_chunk = 64;
// Room for 64k simultaneous kernel threads; thread indices are recycled by the base
// library, so the index of a live thread stays small.
constexpr int max_chunks = 1024;

struct context_chunk {
    lawutil_thread_ctx records[records_per_chunk];
};

struct context_store {
    std::atomic<context_chunk*> chunks[max_chunks] = {};
    std::mutex grow_lock;
};

context_store& store() {
    static context_store s;
    return s;
}

// A thread whose index does not fit the store still gets a record of its own.
thread_local lawutil_thread_ctx overflow_record;

}  // namespace

lawutil_thread_ctx* lawutil_context() {
    const int index = QEM::tls_get_context()->index();
    const int chunk = index / records_per_chunk;
    if (index < 0 || chunk >= max_chunks) return &overflow_record;

    context_store& s = store();
    context_chunk* c = s.chunks[chunk].load(std::memory_order_acquire);
    if (c == nullptr) {
        std::lock_guard<std::mutex> hold(s.grow_lock);
        // Grow by whole chunks up to the one this thread needs.
        for (int i = 0; i <= chunk; ++i)
            if (s.chunks[i].load(std::memory_order_relaxed) == nullptr)
                s.chunks[i].store(new context_chunk, std::memory_order_release);
        c = s.chunks[chunk].load(std::memory_order_acquire);
    }
    return &c->records[index % records_per_chunk];
}

namespace law_internal {

void create_thread_contexts() {
    (void)lawutil_context();
}

void destroy_thread_contexts() {
    context_store& s = store();
    std::lock_guard<std::mutex> hold(s.grow_lock);
    for (auto& slot : s.chunks) delete slot.exchange(nullptr, std::memory_order_acq_rel);
}

}  // namespace law_internal
