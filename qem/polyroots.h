// Real roots of low-degree polynomials.
//
// Each function writes the distinct real roots in ascending order, reporting a
// repeated root once, and returns how many it wrote. When leading
// coefficients are exactly zero the polynomial is solved at its true degree
// (quartic -> cubic -> quadratic -> linear). A polynomial with no roots,
// including a non-zero constant and the all-zero polynomial, gives 0; so does
// any non-finite coefficient.
//
// Roots are resolved only as finely as the coefficients allow: a double root
// is accurate to roughly the square root of machine precision relative to its
// size, and roots closer together than that are reported as one repeated
// root. Two close double roots need a wider gap (about the fourth root of
// machine precision) to be told apart.
#pragma once

#include "qem/qem_export.h"

namespace QEM {

// a x^4 + b x^3 + c x^2 + d x + e = 0
QEM_API int quartic_roots(double a, double b, double c, double d, double e, double roots[4]);
// a x^3 + b x^2 + c x + d = 0
QEM_API int cubic_roots(double a, double b, double c, double d, double roots[3]);
// a x^2 + b x + c = 0
QEM_API int quadratic_roots(double a, double b, double c, double roots[2]);

}  // namespace QEM
