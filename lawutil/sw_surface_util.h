#pragma once
// Sweep surfaces from laws: fitting a tensor-product B-spline to a surface that a law
// describes, and measuring how far a spline surface lies from a law.

#include <lawutil/law_base.h>
#include <lawutil/sw_surface.h>

/// Default budget of control points for law_to_sw_surface.
inline constexpr int sw_surface_max_control_points = 250000;

/// A bicubic B-spline that approximates the surface `f` (two inputs u, v; three outputs)
/// on [u0, u1] x [v0, v1] to within `tol`.  It interpolates the law's point, first
/// partials and twist (from the law's derivatives, or central differences where it has
/// none) at the nodes of a grid that starts 4 x 4 spans; every grid interval of a cell
/// whose sampled deviation (3 x 3 inner points) exceeds `tol` is split at its middle, in
/// the direction the deviation comes from, until every cell passes.  Knots are double (the
/// surface is C1), weights 1, and the parameters are the law's.
///
/// When the tolerance needs more than `max_control_points` control points, the fit stops
/// before the budget is passed and returns its best surface with info->reached false.
/// `info` (may be null) reports the outcome, the deviation and the evaluations spent.
/// Raises LAW_DIM when `f` is null or does not take two values and return three, for an
/// empty rectangle and for tol <= 0; passes on the errors the law raises.
LAW_API sw_surface law_to_sw_surface(const law* f, double u0, double u1, double v0, double v1,
                                     double tol, sw_fit_info* info = nullptr,
                                     int max_control_points = sw_surface_max_control_points);

/// The largest distance between `surface` and `f` over the surface's domain, sampled at
/// `samples_per_span` evenly spaced inner values and the ends of every knot span in each
/// direction (a grid).  Raises LAW_DIM for a law that does not take two values and return
/// three.
LAW_API double sw_surface_accuracy(const sw_surface& surface, const law* f,
                                   int samples_per_span = 4);
