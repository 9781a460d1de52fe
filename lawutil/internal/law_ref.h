#pragma once
// Internal RAII handles: a counted reference to a law and a scoped use of a borrowed one,
// so that an error raised deep inside a derivative builder or a numeric search releases
// every partial tree on its way out.  Never part of a public header.

#include <utility>

#include <lawutil/law_base.h>

class law_ref {
  public:
    law_ref() = default;
    /// Takes over a pointer that already carries the caller's use.
    static law_ref adopt(law* l) { return law_ref(l); }
    /// Takes a new use of a borrowed pointer.
    static law_ref retain(const law* l) {
        law::add(l);
        return law_ref(const_cast<law*>(l));
    }
    law_ref(law_ref&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
    law_ref& operator=(law_ref&& other) noexcept(false) {
        if (this != &other) {
            law* old = std::exchange(ptr_, std::exchange(other.ptr_, nullptr));
            law::remove(old);
        }
        return *this;
    }
    law_ref(const law_ref&) = delete;
    law_ref& operator=(const law_ref&) = delete;
    ~law_ref() noexcept(false) { law::remove(ptr_); }

    law* get() const { return ptr_; }
    law* operator->() const { return ptr_; }
    explicit operator bool() const { return ptr_ != nullptr; }
    /// Hands the use to the caller.
    law* release() { return std::exchange(ptr_, nullptr); }

  private:
    explicit law_ref(law* l) : ptr_(l) {}
    law* ptr_ = nullptr;
};

/// Builds a new node and hands it over as a counted handle: `make<times_law>(a, b)`.
template <class T, class... Args>
law_ref make_law(Args&&... args) {
    return law_ref::adopt(new T(std::forward<Args>(args)...));
}

/// Internal consistency checks: our own bugs, never the caller's input.
#define LAW_ASSERT(cond) QEM_ASSERT(cond)
