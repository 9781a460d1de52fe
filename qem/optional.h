// A small optional value type, plus a reference form used for optional
// out-parameters:
//
//     void classify(const law* l, QEM::optional<int&> count = QEM::nullopt);
//     ...
//     if (count) *count = n;   // writes the caller's variable
//
// Header-only and free of error reporting: reading an empty optional through
// operator*, operator-> or value() is a precondition violation (undefined
// behaviour). Use has_value() or value_or() when emptiness is possible.
#pragma once

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace QEM {

// Tag type marking "no value".
struct nullopt_t {
    explicit constexpr nullopt_t(int) {}
};
inline constexpr nullopt_t nullopt{0};

// Holds either nothing or one T, stored in place (no allocation).
template <class T>
class optional {
  public:
    optional() noexcept {}
    optional(nullopt_t) noexcept {}
    optional(const T& v) { construct(v); }
    optional(T&& v) { construct(std::move(v)); }
    optional(const optional& o) {
        if (o.engaged_) construct(o.value_);
    }
    optional(optional&& o) noexcept(std::is_nothrow_move_constructible_v<T>) {
        if (o.engaged_) construct(std::move(o.value_));
    }
    ~optional() { reset(); }

    optional& operator=(nullopt_t) noexcept {
        reset();
        return *this;
    }
    optional& operator=(const optional& o) {
        if (this != &o) assign_from(o);
        return *this;
    }
    optional& operator=(optional&& o) noexcept(
        std::is_nothrow_move_constructible_v<T>&& std::is_nothrow_move_assignable_v<T>) {
        if (this != &o) assign_from(std::move(o));
        return *this;
    }
    optional& operator=(const T& v) {
        if (engaged_)
            value_ = v;
        else
            construct(v);
        return *this;
    }
    optional& operator=(T&& v) {
        if (engaged_)
            value_ = std::move(v);
        else
            construct(std::move(v));
        return *this;
    }

    // Replaces any held value with one built from args; returns it.
    template <class... Args>
    T& emplace(Args&&... args) {
        reset();
        construct(std::forward<Args>(args)...);
        return value_;
    }
    // Destroys the held value, if any.
    void reset() noexcept {
        if (engaged_) {
            value_.~T();
            engaged_ = false;
        }
    }

    bool has_value() const noexcept { return engaged_; }
    explicit operator bool() const noexcept { return engaged_; }

    // Precondition for these four: has_value().
    T& operator*() & noexcept { return value_; }
    const T& operator*() const& noexcept { return value_; }
    T* operator->() noexcept { return std::addressof(value_); }
    const T* operator->() const noexcept { return std::addressof(value_); }
    T& value() & noexcept { return value_; }
    const T& value() const& noexcept { return value_; }

    // The held value, or `fallback` when empty.
    T value_or(T fallback) const { return engaged_ ? value_ : fallback; }

  private:
    template <class... Args>
    void construct(Args&&... args) {
        ::new (static_cast<void*>(std::addressof(value_))) T(std::forward<Args>(args)...);
        engaged_ = true;
    }
    template <class O>
    void assign_from(O&& o) {
        if (!o.engaged_)
            reset();
        else if (engaged_)
            value_ = std::forward<O>(o).value_;
        else
            construct(std::forward<O>(o).value_);
    }

    // A union keeps T unconstructed while empty, so T needs no default ctor.
    union {
        T value_;
    };
    bool engaged_ = false;
};

// Optional reference: refers to a caller-owned object or to nothing.
// Copying copies the reference (rebinds), never the referent; assigning
// through *opt writes the referent. Binding to a temporary is rejected.
template <class T>
class optional<T&> {
  public:
    optional() noexcept = default;
    optional(nullopt_t) noexcept {}
    optional(T& ref) noexcept : ptr_(std::addressof(ref)) {}
    optional(std::remove_const_t<T>&&) = delete;

    bool has_value() const noexcept { return ptr_ != nullptr; }
    explicit operator bool() const noexcept { return ptr_ != nullptr; }

    // Precondition for these three: has_value().
    T& operator*() const noexcept { return *ptr_; }
    T* operator->() const noexcept { return ptr_; }
    T& value() const noexcept { return *ptr_; }

    // A copy of the referent, or `fallback` when empty.
    std::remove_const_t<T> value_or(std::remove_const_t<T> fallback) const {
        return ptr_ ? *ptr_ : fallback;
    }
    void reset() noexcept { ptr_ = nullptr; }

  private:
    T* ptr_ = nullptr;
};

}  // namespace QEM
