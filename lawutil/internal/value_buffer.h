#pragma once
// Temporary arrays of doubles for vector values: on the stack for up to four values and
// on the tracked heap above that, released on every way out of the scope.

#include <cstring>
#include <string_view>

#include <qem/heap.h>

namespace law_internal {

inline constexpr int stack_values = 4;

class value_buffer {
  public:
    explicit value_buffer(int n) {
        if (n > stack_values) heap_.reset(QEM_ALLOC_ARRAY(double, static_cast<size_t>(n)));
    }
    double* data() { return heap_.get() ? heap_.get() : local_; }
    double& operator[](int i) { return data()[i]; }

  private:
    double local_[stack_values] = {0, 0, 0, 0};
    QEM::scoped_heap_array<double> heap_;
};

/// A copy of `text` in a new heap string that the caller frees with vorn_discard.
inline char* heap_string(std::string_view text) {
    char* out = QEM_ALLOC_ARRAY(char, text.size() + 1);
    std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    return out;
}

}  // namespace law_internal
