#include <lawutil/internal/path_eval_cache.h>

#include <atomic>

namespace law_internal {

namespace {

// Destroying any datum moves the epoch on; an entry made in an older epoch may name a
// datum whose address has since been reused, so it never answers.  The release/acquire
// pair makes a destruction that happened before a datum reached this thread visible here.
std::atomic<unsigned long> epoch{1};

struct entry {
    const path_law_data* path;
    unsigned long epoch;
    double t;
    int deriv;
    int side;
    double v[3];
};

// Sixteen entries hold the point and three derivatives at four parameters: enough for a
// frame, its derivative and a position law read at one or two parameters in turn.
constexpr int cache_size = 16;

struct thread_memory {
    entry entries[cache_size];
    unsigned next;
};

thread_local thread_memory memory{};

}  // namespace

QEM::vector cached_path_eval(const path_law_data* p, double t, int deriv, int side) {
    const unsigned long now = epoch.load(std::memory_order_acquire);
    thread_memory& m = memory;
    for (const entry& e : m.entries)
        if (e.path == p && e.t == t && e.deriv == deriv && e.side == side && e.epoch == now)
            return QEM::vector(e.v[0], e.v[1], e.v[2]);
    const QEM::vector v = p->eval(t, deriv, side);
    m.entries[m.next++ % cache_size] = entry{p, now, t, deriv, side, {v.x(), v.y(), v.z()}};
    return v;
}

void forget_path_evaluations() {
    epoch.fetch_add(1, std::memory_order_release);
}

}  // namespace law_internal
