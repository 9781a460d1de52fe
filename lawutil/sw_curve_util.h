#pragma once
// Sweep curves from laws: fitting a B-spline to a curve that a law describes, and
// measuring how far a spline lies from a law.

#include <lawutil/law_base.h>
#include <lawutil/sw_curve.h>

/// Default budget of control points for law_to_sw_curve.
inline constexpr int sw_curve_max_control_points = 20000;

/// A cubic B-spline that approximates the curve `f` (one input, three outputs) on
/// [a, b] to within `tol`.  It interpolates the law's points and tangents (from
/// f->derivative(0), or central differences where the law has no derivative) at nodes
/// that start evenly spaced; while the largest deviation found on a span exceeds `tol`, the
/// worst span is split by a new knot at its middle, where point and tangent are taken from
/// the law.  The knots are double (the curve is C1), the curve is not rational, and its
/// parameter is the law's.  The deviation of each span is sampled at 7 inner points; a value
/// that is not a number counts as infinitely far.
///
/// When the tolerance needs more than `max_control_points` control points, the fit stops
/// at the budget (never below the 10 control points of the first four spans) and returns
/// its best curve with info->reached false.  `info` (may be null) reports the outcome,
/// the deviation found and the evaluations spent.
/// Raises LAW_DIM when `f` is null or does not take one value and return three, and when
/// a >= b or tol <= 0 (or not finite); passes on the errors the law raises when evaluated.
LAW_API sw_curve law_to_sw_curve(const law* f, double a, double b, double tol,
                                 sw_fit_info* info = nullptr,
                                 int max_control_points = sw_curve_max_control_points);

/// The largest distance between `curve` and `f` over the curve's parameter range, sampled
/// at `samples_per_span` evenly spaced inner points of every knot span and at the span
/// ends.  Raises LAW_DIM for a law that does not take one value and return three.
LAW_API double sw_curve_accuracy(const sw_curve& curve, const law* f, int samples_per_span = 8);
