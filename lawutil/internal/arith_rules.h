#pragma once
// The arithmetic rules that division_law and exponent_law apply at a point, shared with
// the law compiler so that a compiled law refuses and rounds exactly as the tree does.

#include <cmath>

#include <lawutil/law_errors.h>
#include <qem/errors.h>
#include <qem/tolerance.h>
#include <qem/version.h>

namespace law_internal {

/// Numbers below this magnitude count as zero in a division.
constexpr double division_zero = 1e-15;
/// From this version on a negative base takes an exponent within resabs of an integer.
constexpr int exponent_version = 2180000;

/// a^b; 0 to a non-positive power and a negative base with a non-integral power raise
/// LAW_EXPONENT.  Older versions demanded an exact integer exponent; models made by them
/// rebuild the same.
inline double checked_pow(double a, double b) {
    if (a == 0.0 && b <= 0.0) sys_error(LAW_EXPONENT);
    if (a < 0.0) {
        if (get_global_version() < exponent_version) {
            if (b != std::floor(b)) sys_error(LAW_EXPONENT);
            return std::pow(a, b);
        }
        const double rounded = std::floor(b + 0.5);
        if (std::fabs(b - rounded) > QEM::get_resabs()) sys_error(LAW_EXPONENT);
        return std::pow(a, rounded);
    }
    return std::pow(a, b);
}

}  // namespace law_internal
