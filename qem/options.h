// Named integer options that switch behaviour at run time.
//
// Each option_header is normally a static object in the library that reads
// it; constructing it registers the name, so a host can find and set the
// option by name. Values are process-wide.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "qem/qem_export.h"

namespace QEM {

class QEM_API option_header {
  public:
    // Registers the option under a copy of `name`. Safe during static
    // initialisation. When two live options share a name, find_option
    // returns the one registered first.
    option_header(const char* name, int default_value);
    // Unregisters the option.
    ~option_header();
    option_header(const option_header&) = delete;
    option_header& operator=(const option_header&) = delete;

    const char* name() const { return name_.c_str(); }
    // Current value. Cheap enough for inner loops.
    int count() const { return value_.load(std::memory_order_relaxed); }
    int default_value() const { return default_; }

    void set(int value);
    // Saves the current value and sets a new one.
    void push(int value);
    // Restores the value saved by the matching push; no-op when none is saved.
    void pop();
    // Back to the default value, discarding all saved values.
    void reset();

  private:
    std::string name_;
    const int default_;
    std::atomic<int> value_;
    std::mutex stack_mutex_;
    std::vector<int> saved_;
};

}  // namespace QEM

// Global. The live option registered under `name`, or null.
QEM_API QEM::option_header* find_option(const char* name);

namespace QEM {
using ::find_option;
}
