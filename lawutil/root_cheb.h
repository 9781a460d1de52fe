#pragma once
// All roots of a law of one variable by Chebyshev interpolation: the law is sampled at
// Chebyshev points of doubling degree until its coefficients' tail is negligible, the
// interval is split where the degree would pass a cap, and the roots of each piece are the
// real eigenvalues of its colleague matrix, polished by Newton steps on the law itself.
//
// An accurate companion of Nroot for smooth laws: a few evaluations a root, and every
// simple root to the last digits.  Roots where the law only touches zero (double and
// higher) are reported once with their multiplicity.

#include <lawutil/law_base.h>
#include <lawutil/law_export.h>

/// All roots of the scalar law f of one variable on [a, b] (either order), ascending: a
/// heap array of `*n` doubles (null when there is none) that the caller frees with
/// vorn_discard.  `tol` is the size, relative to the law's largest sampled value, below
/// which the Chebyshev coefficients' tail counts as zero (values below 1e-15 count as
/// 1e-15).  When `multiplicity` is given it receives a heap array of `*n` ints (null when
/// there is no root): 1 for a simple root, m where m roots of the interpolant gather at
/// one point and the law's first m - 1 derivatives vanish there too.  `evaluations`, when
/// given, receives the evaluations of f and its derivatives; they are also added to the
/// thread's numeric_evaluations.  A law that is zero on all of [a, b] yields the single
/// root min(a, b).  A piece on which the law yields a value that is not finite (without
/// raising) is taken to hold no root.  Raises LAW_DIM for a law that is not scalar in one variable
/// and LAW_BAD_BOUNDS for a bound that is not finite; errors of the law's evaluation pass to the
/// caller with every temporary released.
LAW_API double* law_roots_cheb(law* f, double a, double b, double tol, int* n,
                               long* evaluations = nullptr, int** multiplicity = nullptr);
