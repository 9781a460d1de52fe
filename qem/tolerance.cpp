#include "qem/tolerance.h"

#include <atomic>

namespace QEM {

namespace {
constexpr double default_resabs = 1e-6;
constexpr double default_resnor = 1e-10;
}  // namespace

namespace detail {
// Relaxed ordering: a tolerance is an independent scalar, nothing is
// published through it, so readers only need a torn-free value.
std::atomic<double> resabs_value{default_resabs};
std::atomic<double> resnor_value{default_resnor};
std::atomic<double> resfit_value{resfit};
std::atomic<double> resmch_value{resmch};
}  // namespace detail

using detail::resabs_value;
using detail::resfit_value;
using detail::resmch_value;
using detail::resnor_value;

void set_resabs(double value) {
    resabs_value.store(value, std::memory_order_relaxed);
}
void set_resnor(double value) {
    resnor_value.store(value, std::memory_order_relaxed);
}
void set_resfit(double value) {
    resfit_value.store(value, std::memory_order_relaxed);
}
void set_resmch(double value) {
    resmch_value.store(value, std::memory_order_relaxed);
}

void reset_tolerances() {
    set_resabs(default_resabs);
    set_resnor(default_resnor);
    set_resfit(resfit);
    set_resmch(resmch);
}

}  // namespace QEM
