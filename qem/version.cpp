#include "qem/version.h"

#include <atomic>

namespace {

constexpr int latest_version = 3000000;

// Relaxed: the version is an independent setting read on hot paths.
std::atomic<int> global_version{latest_version};

}  // namespace

int get_global_version() {
    return global_version.load(std::memory_order_relaxed);
}

void set_global_version(int version) {
    global_version.store(version, std::memory_order_relaxed);
}

int latest_global_version() {
    return latest_version;
}
