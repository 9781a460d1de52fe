#include "qem/d3_ostream.h"

#include <charconv>
#include <cmath>

namespace QEM {

D3_ostream& D3_ostream::operator<<(const char* text) {
    if (text != nullptr) text_ += text;
    return *this;
}

D3_ostream& D3_ostream::operator<<(std::string_view text) {
    text_ += text;
    return *this;
}

D3_ostream& D3_ostream::operator<<(char c) {
    text_ += c;
    return *this;
}

// std::to_chars never consults the locale, unlike the printf family whose
// decimal point follows LC_NUMERIC.
template <class Integer>
D3_ostream& D3_ostream::append_integer(Integer value) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    text_.append(buffer, result.ptr);
    return *this;
}

D3_ostream& D3_ostream::operator<<(int value) {
    return append_integer(value);
}
D3_ostream& D3_ostream::operator<<(long value) {
    return append_integer(value);
}
D3_ostream& D3_ostream::operator<<(long long value) {
    return append_integer(value);
}
D3_ostream& D3_ostream::operator<<(unsigned value) {
    return append_integer(value);
}
D3_ostream& D3_ostream::operator<<(unsigned long value) {
    return append_integer(value);
}
D3_ostream& D3_ostream::operator<<(unsigned long long value) {
    return append_integer(value);
}

D3_ostream& D3_ostream::operator<<(double value) {
    // to_chars spells NaN "-nan" for negative NaNs; printf's "%g" output
    // differs between C libraries, so settle on one spelling.
    if (std::isnan(value)) return *this << "nan";
    // General format with precision 16 is defined to match "%.16g".
    char buffer[32];
    auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 16);
    text_.append(buffer, result.ptr);
    return *this;
}

}  // namespace QEM
