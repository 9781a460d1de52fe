#pragma once
// Building blocks shared by the sweep curves and surfaces: knot spans, B-spline basis
// functions with their derivatives, and the quotient rule that turns the derivatives of a
// homogeneous (weighted) point into those of the rational point.  Everything works on
// caller-owned arrays and never allocates, so evaluation stays off the heap.

#include <lawutil/law_export.h>

/// Highest degree a sweep curve or surface may have: fixes the size of the stack arrays
/// that evaluation uses.
inline constexpr int sw_max_degree = 15;
/// Highest derivative order a curve evaluates (`sw_curve::derivs`, `spline_law`).
inline constexpr int sw_max_deriv_order = 31;

/// The result of fitting a spline to a law (`law_to_sw_curve`, `law_to_sw_surface`).
struct sw_fit_info {
    /// True when the spline is within the requested tolerance at every sample taken.
    bool reached = false;
    /// Largest distance between spline and law found at the samples taken.
    double deviation = 0.0;
    /// Number of evaluations of the law (and of its derivatives) spent.
    long evaluations = 0;
};

/// The knot span holding `t`: the index k, degree <= k < count, with
/// knots[k] <= t < knots[k+1], clamped to the first and last non-empty span so that
/// parameters at or beyond the ends use the end spans.  `knots` has count + degree + 1
/// values, non-decreasing, with knots[degree] < knots[count].
LAW_API int sw_find_span(const double* knots, int count, int degree, double t);

/// The basis functions of span `span` and their derivatives up to `order` at `t`:
/// ders[k * (degree + 1) + j] is the k-th derivative of N(span - degree + j).  Orders above
/// the degree are written as zero.  `ders` holds (order + 1) * (degree + 1) values;
/// degree <= sw_max_degree.
LAW_API void sw_basis_derivs(const double* knots, int degree, int span, double t, int order,
                             double* ders);

/// Binomial coefficient n over k, for small n.
LAW_API double sw_binomial(int n, int k);

/// True for `count + degree + 1` non-decreasing knots with knots[degree] < knots[count] and
/// no interior knot repeated more than `degree` times.
LAW_API bool sw_valid_knots(const double* knots, int count, int degree);

/// For a cubic spline with double interior knots built from Hermite data at nodes
/// t_0 < ... < t_s (2s + 2 control points): the node that control point `index` belongs to
/// and its side, -1 (before the node), 0 (the end points) or +1 (after it).  The control
/// point is P(node) + side * h / 3 * P'(node), h the length of the span on that side.
LAW_API void sw_hermite_node(int index, int count, int& node, int& side);
