// D3_ostream: a small text builder for diagnostic output (debug dumps,
// error details). Numbers are written the same way whatever the process
// locale, so dumps compare equal across machines.
#pragma once

#include <string>
#include <string_view>

#include "qem/qem_export.h"

namespace QEM {

class QEM_API D3_ostream {
  public:
    // A null pointer appends nothing.
    D3_ostream& operator<<(const char* text);
    D3_ostream& operator<<(std::string_view text);
    D3_ostream& operator<<(char c);
    D3_ostream& operator<<(int value);
    D3_ostream& operator<<(long value);
    D3_ostream& operator<<(long long value);
    D3_ostream& operator<<(unsigned value);
    D3_ostream& operator<<(unsigned long value);
    D3_ostream& operator<<(unsigned long long value);
    // As printf("%.16g") in the C locale: "0.1", "1e+300", "inf", "nan".
    D3_ostream& operator<<(double value);

    // The text so far; the reference is valid until the builder changes.
    const std::string& str() const { return text_; }
    const char* c_str() const { return text_.c_str(); }
    void clear() { text_.clear(); }

  private:
    template <class Integer>
    D3_ostream& append_integer(Integer value);

    std::string text_;
};

}  // namespace QEM
