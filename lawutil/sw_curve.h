#pragma once
// sw_curve: a rational B-spline curve in 3-space, the form in which a sweep holds a path
// that a law describes.  It is a value: copying copies its knots and control points
// (held on the tracked heap), moving hands them over, and the destructor frees them.
// A curve has a degree p >= 1, n >= p + 1 control points with positive weights and
// n + p + 1 non-decreasing knots; its parameter range is [knots[p], knots[n]].  Interior
// knots may repeat at most p times, so the curve is continuous.  Parameters outside the
// range are evaluated on the end spans' polynomials (a smooth extension, not a clamp).

#include <lawutil/law_export.h>
#include <lawutil/sw_common.h>
#include <qem/geometry.h>
#include <qem/heap.h>

class LAW_API sw_curve {
  public:
    /// An empty curve (no control points); only assignment and destruction are useful.
    sw_curve() = default;
    /// A curve of `degree` over `count` control points `points` with `weights` (null: all
    /// 1, a polynomial curve) and `count + degree + 1` `knots`.  The arrays are copied.
    /// Raises SW_BAD_ORDER for a degree below 1 (or above sw_max_degree), SW_BAD_WEIGHTS for
    /// a weight that is not strictly positive, and LAW_DIM for too few control points,
    /// decreasing knots, an empty range or an interior knot repeated more than degree times.
    sw_curve(int degree, int count, const QEM::position* points, const double* weights,
             const double* knots);
    sw_curve(const sw_curve& other);
    sw_curve(sw_curve&& other) noexcept = default;
    sw_curve& operator=(const sw_curve& other);
    sw_curve& operator=(sw_curve&& other) noexcept = default;
    ~sw_curve() = default;

    int degree() const { return degree_; }
    int control_count() const { return count_; }
    int knot_count() const { return count_ + degree_ + 1; }
    double knot(int i) const { return knots_[i]; }
    /// The Euclidean control point i (the homogeneous one divided by its weight).
    QEM::position control_point(int i) const;
    double weight(int i) const { return cpw_[4 * i + 3]; }
    /// True when some weight differs from the others (a rational curve).
    bool rational() const { return rational_; }
    double start_param() const { return knots_[degree_]; }
    double end_param() const { return knots_[count_]; }
    /// Number of distinct interior knots plus one: the number of polynomial pieces.
    int span_count() const;

    /// The point at `t`, with the first and second derivatives when asked for (null: not
    /// wanted).
    void eval(double t, QEM::position& point, QEM::vector* first = nullptr,
              QEM::vector* second = nullptr) const;
    QEM::position eval_position(double t) const;
    /// The point and its derivatives up to `order` (<= sw_max_deriv_order; LAW_DIM
    /// otherwise): out[3k .. 3k+2] is the k-th derivative, so `out` holds 3(order + 1)
    /// values.  No heap use.
    void derivs(double t, int order, double* out) const;

    /// Inserts the knot `t` up to `times` times without changing the curve (Boehm's
    /// algorithm on the homogeneous points), stopping when its multiplicity reaches the
    /// degree.  Returns the number of knots inserted (0 for a `t` outside the open
    /// parameter range).
    int insert_knot(double t, int times = 1);

  private:
    int degree_ = 0;
    int count_ = 0;
    bool rational_ = false;
    QEM::scoped_heap_array<double> knots_;
    QEM::scoped_heap_array<double> cpw_;  ///< (w x, w y, w z, w) per control point
    /// Per span k (index k - degree), the Taylor coefficients of the homogeneous curve at
    /// knots[k]: 4 (degree + 1) values, coefficient j of component x at 4 j + x.
    QEM::scoped_heap_array<double> pieces_;
    void build_pieces();
};
