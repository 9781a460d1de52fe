// Tracked heap.
//
// Every block obtained from vorn_allocate is counted until it is handed back
// to vorn_discard, so tests and leak checks can compare vorn_live_blocks()
// before and after an operation. The file/line arguments identify the
// allocation site for diagnostics; they are not retained after the call.
//
// The raw functions, SizeAccumulator and VOID_LIST live in the global
// namespace; the C++ helpers live in QEM.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qem/qem_export.h"

// Returns a block of at least `bytes` bytes (a zero request still yields a
// unique block), aligned for any fundamental type. Never returns null: throws
// std::bad_alloc when memory is exhausted. Release with vorn_discard.
QEM_API void* vorn_allocate(size_t bytes, const char* file, int line);

// Releases a block from vorn_allocate. Null is accepted and ignored.
QEM_API void vorn_discard(void* p);

// Number of blocks allocated and not yet discarded, process-wide.
QEM_API long vorn_live_blocks();

// Process-wide counts that threads change often and read rarely, such as live objects of
// a kind: each thread changes its own share without a locked instruction, and the total
// adds the shares of all threads, those that have ended included.  The total is exact
// when no thread changes the count while it is read.  Tally 0 is the live blocks; the
// others are free for the libraries above, each taking a fixed index below the count.
constexpr int vorn_tally_count = 4;
constexpr int vorn_tally_blocks = 0;
QEM_API void vorn_tally_change(int which, long change);
QEM_API long vorn_tally_total(int which);

// Uninitialised storage for n objects of T. T must be trivially copyable and
// not over-aligned, since no constructors or destructors are run. Throws
// std::bad_array_new_length (a std::bad_alloc) if n * sizeof(T) overflows.
template <class T>
T* vorn_alloc_array(size_t n, const char* file, int line) {
    static_assert(std::is_trivially_copyable_v<T>, "vorn_alloc_array needs trivially copyable T");
    static_assert(alignof(T) <= alignof(std::max_align_t), "over-aligned T is not supported");
    if (n > static_cast<size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(vorn_allocate(n * sizeof(T), file, line));
}

#define QEM_ALLOC_ARRAY(T, n) (::vorn_alloc_array<T>((n), __FILE__, __LINE__))

// Placement form routing a heap_object allocation through the tracked heap:
//     QEM::law* l = QEM_NEW some_law(...);
#define QEM_NEW new (__FILE__, __LINE__)

// Running total of byte counts (used when reporting memory footprints).
class SizeAccumulator {
  public:
    void add(size_t bytes) { total_ += bytes; }
    size_t total() const { return total_; }

  private:
    size_t total_ = 0;
};

// Ordered set of pointers: each distinct pointer is stored once, in the order
// first added. The list does not own the pointees.
class QEM_API VOID_LIST {
  public:
    // Appends p unless already present; returns its index either way.
    int add(void* p);
    // Number of distinct entries.
    int count() const { return static_cast<int>(items_.size()); }
    // Entry at index i, or null when i is out of range.
    void* operator[](int i) const;
    // Index of p, or -1 when absent.
    int lookup(void* p) const;
    // Removes all entries.
    void clear();

  private:
    std::vector<void*> items_;
    // Built only once the list is long enough for a linear scan to hurt.
    std::unordered_map<void*, int> index_;
};

namespace QEM {

// Base for classes whose instances must be counted by the tracked heap.
// Not for over-aligned types: storage is aligned for fundamental types only.
class heap_object {
  public:
    static void* operator new(size_t bytes) { return vorn_allocate(bytes, nullptr, 0); }
    static void* operator new(size_t bytes, const char* file, int line) {
        return vorn_allocate(bytes, file, line);
    }
    static void* operator new[](size_t bytes) { return vorn_allocate(bytes, nullptr, 0); }
    static void* operator new[](size_t bytes, const char* file, int line) {
        return vorn_allocate(bytes, file, line);
    }
    static void operator delete(void* p) noexcept { vorn_discard(p); }
    // Called by the compiler if a constructor throws after QEM_NEW.
    static void operator delete(void* p, const char*, int) noexcept { vorn_discard(p); }
    static void operator delete[](void* p) noexcept { vorn_discard(p); }
    static void operator delete[](void* p, const char*, int) noexcept { vorn_discard(p); }

  protected:
    heap_object() = default;
    ~heap_object() = default;
};

// Sole owner of an array obtained from vorn_allocate (e.g. QEM_ALLOC_ARRAY).
// The elements are never destroyed individually, so T must be trivially
// destructible. Frees with vorn_discard; movable, not copyable.
template <class T>
class scoped_heap_array {
    static_assert(std::is_trivially_destructible_v<T>, "elements are not destroyed");

  public:
    scoped_heap_array() noexcept = default;
    explicit scoped_heap_array(T* p) noexcept : ptr_(p) {}
    scoped_heap_array(scoped_heap_array&& o) noexcept : ptr_(o.release()) {}
    scoped_heap_array& operator=(scoped_heap_array&& o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    scoped_heap_array(const scoped_heap_array&) = delete;
    scoped_heap_array& operator=(const scoped_heap_array&) = delete;
    ~scoped_heap_array() { vorn_discard(ptr_); }

    T* get() const noexcept { return ptr_; }
    // Precondition: get() is non-null and i is within the allocation.
    T& operator[](size_t i) const noexcept { return ptr_[i]; }
    explicit operator bool() const noexcept { return ptr_ != nullptr; }

    // Gives up ownership; the caller must vorn_discard the result.
    T* release() noexcept { return std::exchange(ptr_, nullptr); }
    // Frees the current array and takes ownership of p.
    void reset(T* p = nullptr) noexcept { vorn_discard(std::exchange(ptr_, p)); }

  private:
    T* ptr_ = nullptr;
};

}  // namespace QEM
