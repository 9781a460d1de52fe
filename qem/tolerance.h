// Process-wide modelling tolerances.
//
//   resabs  smallest distinguishable distance          (default 1e-6)
//   resnor  smallest distinguishable direction change  (default 1e-10)
//   resfit  fitting tolerance for approximations        (default 1e-3)
//   resmch  machine-level numerical noise threshold     (default 1e-11)
//
// Reads are lock-free and cheap enough for inner loops. The setters exist
// mainly for tests and for hosts that model at a different scale; changing a
// tolerance while other threads compute gives those threads either value.
#pragma once

#include <atomic>

#include "qem/qem_export.h"

namespace QEM {

// Compile-time copies of the fixed defaults, for code that must not depend on
// a runtime setting.
inline constexpr double resmch = 1e-11;
inline constexpr double resfit = 1e-3;

namespace detail {
// The current values; read through the getters, which inline to one relaxed load (the
// division of every law reads resabs on its hot path).
QEM_API extern std::atomic<double> resabs_value;
QEM_API extern std::atomic<double> resnor_value;
QEM_API extern std::atomic<double> resfit_value;
QEM_API extern std::atomic<double> resmch_value;
}  // namespace detail

inline double get_resabs() {
    return detail::resabs_value.load(std::memory_order_relaxed);
}
inline double get_resnor() {
    return detail::resnor_value.load(std::memory_order_relaxed);
}
inline double get_resfit() {
    return detail::resfit_value.load(std::memory_order_relaxed);
}
inline double get_resmch() {
    return detail::resmch_value.load(std::memory_order_relaxed);
}

// Each setter replaces the current value; no validation is done.
QEM_API void set_resabs(double value);
QEM_API void set_resnor(double value);
QEM_API void set_resfit(double value);
QEM_API void set_resmch(double value);

// Restores all four tolerances to their defaults.
QEM_API void reset_tolerances();

}  // namespace QEM
