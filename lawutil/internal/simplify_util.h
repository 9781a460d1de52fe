#pragma once
// Tree helpers shared by the general simplifier rules and the class rules of the
// arithmetic laws.  Internal to the library.

#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/main_law.h>

namespace law_internal {

/// True for a constant_law (the simplifier's notion of a constant).
bool is_constant(const law* l);
double constant_value(const law* l);
/// True for a constant within 0 tolerance of `value`.
bool is_constant_value(const law* l, double value);
/// True for a constant holding an integer.
bool is_integer_constant(const law* l);

/// The operands of a chain of the operator of `op` (same class), left to right; borrowed.
std::vector<law*> flatten(const binary_law* op);
/// The operands folded left into a tree of the operator of `op`; one operand is shared.
law_ref fold(const std::vector<law*>& parts, const binary_law* op);
law_ref fold_product(const std::vector<law*>& parts);
law_ref fold_sum(const std::vector<law*>& parts);

/// The base and constant power of a power with a constant exponent, else null.
law* power_base(law* f, double* power);
/// A factor as base and exponent: a power's own parts, anything else to the power 1.
void split_power(law* f, law_ref& base, law_ref& exponent);

/// A term as constant factor times the rest (null rest for a constant term).
struct scaled {
    double factor = 1.0;
    law_ref rest;
};
scaled split_scale(const law* l);

/// Structural equality of two products up to the order of their factors (null == null).
bool same_product(const law* a, const law* b);

}  // namespace law_internal
