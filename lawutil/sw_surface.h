#pragma once
// sw_surface: a rational tensor-product B-spline surface in 3-space.  Like sw_curve it is
// a value: copies copy the knots and control net (held on the tracked heap).  It has
// degrees pu, pv >= 1, a net of nu x nv control points with positive weights, stored row
// by row (point (i, j) at index i * nv + j, i along u), and nu + pu + 1 knots in u and
// nv + pv + 1 in v with the same rules as a curve's.  Its parameter domain is
// [knots_u[pu], knots_u[nu]] x [knots_v[pv], knots_v[nv]].

#include <lawutil/law_export.h>
#include <lawutil/sw_common.h>
#include <qem/geometry.h>
#include <qem/heap.h>

/// The point and partial derivatives of a surface at (u, v).
struct sw_surface_derivs {
    QEM::position point;
    QEM::vector du, dv, duu, duv, dvv;
};

class LAW_API sw_surface {
  public:
    sw_surface() = default;
    /// A surface of degrees `degree_u`, `degree_v` over the `count_u` x `count_v` net
    /// `points` (row by row), with `weights` in the same order (null: all 1) and the knot
    /// vectors `knots_u`, `knots_v`.  The arrays are copied.  Raises SW_BAD_ORDER,
    /// SW_BAD_WEIGHTS and LAW_DIM as the curve's constructor does.
    sw_surface(int degree_u, int degree_v, int count_u, int count_v, const QEM::position* points,
               const double* weights, const double* knots_u, const double* knots_v);
    sw_surface(const sw_surface& other);
    sw_surface(sw_surface&& other) noexcept = default;
    sw_surface& operator=(const sw_surface& other);
    sw_surface& operator=(sw_surface&& other) noexcept = default;
    ~sw_surface() = default;

    int degree_u() const { return degree_u_; }
    int degree_v() const { return degree_v_; }
    int count_u() const { return count_u_; }
    int count_v() const { return count_v_; }
    int control_count() const { return count_u_ * count_v_; }
    double knot_u(int i) const { return knots_u_[i]; }
    double knot_v(int i) const { return knots_v_[i]; }
    QEM::position control_point(int i, int j) const;
    double weight(int i, int j) const { return cpw_[4 * (i * count_v_ + j) + 3]; }
    bool rational() const { return rational_; }
    double start_u() const { return knots_u_[degree_u_]; }
    double end_u() const { return knots_u_[count_u_]; }
    double start_v() const { return knots_v_[degree_v_]; }
    double end_v() const { return knots_v_[count_v_]; }

    /// The point at (u, v).  Raises SW_SURFACE_EVAL outside the domain (beyond a relative
    /// 1e-12 of its size).
    QEM::position eval_position(double u, double v) const;
    /// The point and every partial derivative up to the second.  Raises SW_SURFACE_EVAL
    /// outside the domain.  No heap use.
    sw_surface_derivs eval(double u, double v) const;

    /// Insert the knot `u` (or `v`) up to `times` times without changing the surface: a new
    /// row (column) of control points each time, stopping when the knot's multiplicity
    /// reaches the degree.  Return the number inserted (0 outside the open domain).
    int insert_knot_u(double u, int times = 1);
    int insert_knot_v(double v, int times = 1);

  private:
    /// Homogeneous derivatives up to total order `order` (0 or 2): hom[4 * (3k + l) + c]
    /// is d^(k+l)/du^k dv^l of component c.
    void homogeneous(double u, double v, int order, double* hom) const;

    int degree_u_ = 0, degree_v_ = 0;
    int count_u_ = 0, count_v_ = 0;
    bool rational_ = false;
    QEM::scoped_heap_array<double> knots_u_, knots_v_;
    QEM::scoped_heap_array<double> cpw_;  ///< (w x, w y, w z, w) per control point
};
