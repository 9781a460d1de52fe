#pragma once
// Law data: reference-counted wrappers for things a law reads that are not laws (a law
// handed where data is expected, and, from the kernel, curves, surfaces, wires,
// transforms).  A law's text names each datum by its keyword and a number, and the
// parser is handed the data array that printing collected.

#include <atomic>

#include <lawutil/law_base.h>

/// Type ids of the data kinds (the value of law_data::type()).
enum law_data_type_id : int {
    law_data_id = 0,
    path_law_data_id = 1,
    base_wire_law_data_id = 2,
    base_curve_law_data_id = 3,
    base_pcurve_law_data_id = 4,
    base_surface_law_data_id = 5,
    law_law_data_id = 6,
    base_transform_law_data_id = 7,
    base_position_array_law_data_id = 8,
    base_pattern_law_data_id = 9,
    base_spline_law_data_id = 10,
};

class LAW_API law_data : public QEM::heap_object {
  public:
    law_data() = default;
    law_data(const law_data&) : QEM::heap_object() {}
    law_data& operator=(const law_data&) = delete;

    /// Takes one use.
    void add() const { use_count_.fetch_add(1, std::memory_order_relaxed); }
    /// Gives back one use; the last one destroys the datum.
    void remove() const;
    int ref_count() const { return use_count_.load(std::memory_order_relaxed); }

    virtual void save() const = 0;
    virtual void print() const = 0;
    virtual void input() = 0;
    /// The datum restored from saved data, or null.
    virtual law_data* restore();
    /// The keyword that names the datum in a law's text.
    virtual const char* symbol(law_symbol_type type) const = 0;
    /// The keyword and, when `count` is given and not negative, the number count + 1;
    /// then the datum is put at the head of `list` (with a use the node owns) and the
    /// count grows by one.  A new heap string the caller frees with vorn_discard.
    virtual char* string(
        law_symbol_type type, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const;
    virtual int date() const;
    virtual int type() const;
    virtual law_data* deep_copy(pointer_map* pm = nullptr) const = 0;
    /// The datum restricted to `domain`; the base returns itself with one more use.
    virtual law_data* set_domain(QEM::interval* domain);
    virtual void full_size(SizeAccumulator& size, int count_self = 1) const;
    /// Never equal in the base class.
    virtual int operator==(const law_data& other) const;
    int operator!=(const law_data& other) const { return !(*this == other); }

  protected:
    /// Raises BAD_LAW_DATA_USE_COUNT when destroyed with owners left.
    virtual ~law_data() noexcept(false);
    void set_use_count(int count) const { use_count_.store(count, std::memory_order_relaxed); }

  private:
    friend class law_data_list;
    mutable std::atomic<int> use_count_{1};
};

/// The data a law's text refers to, collected while printing: new nodes go at the head,
/// so the chain holds the data in the reverse of their numbering.  Each node owns one use
/// of its datum; destroying a node releases it and destroys the rest of the chain.
class LAW_API law_data_node : public QEM::heap_object {
  public:
    law_data_node(law_data* data, law_data_node* next);
    law_data_node(const law_data_node&) = delete;
    law_data_node& operator=(const law_data_node&) = delete;
    ~law_data_node() noexcept(false);

    law_data* data;
    law_data_node* next;

    /// Nodes with a datum (every node when `with_null`), at most 100000.
    int size(bool with_null = false) const;
    /// A new heap array of size(with_null) borrowed pointers in order of numbering (the
    /// datum numbered 1 first); returns the count.  The caller frees it with vorn_discard.
    int get_array(law_data**& array, bool with_null = false) const;
};

// ============================================================== paths

/// Anything with a parameter range: the common interface of curves, parameter curves and
/// wires.  `side` chooses the one-sided value at a discontinuity: negative from below,
/// positive from above, 0 as the datum likes (as in law::evaluate_with_side).
class LAW_API path_law_data : public law_data {
  public:
    path_law_data(double start, double end) : start_(start), end_(end) {}
    double data_start() const { return start_; }
    double data_end() const { return end_; }
    int type() const override { return path_law_data_id; }

    /// The point (deriv 0) or the derivative of order `deriv` at `t`, as a vector.
    virtual QEM::vector eval(double t, int deriv = 0, int side = 0) const = 0;
    /// The curvature vector at `t`: its length is the curvature, it points to the centre
    /// of curvature; zero where the first derivative vanishes.  From eval orders 1 and 2.
    virtual QEM::vector curvature(double t) const;
    /// Parameters in [lo, hi] where the path is singular; none by default (both arrays
    /// set to null).  Arrays are heap arrays the caller frees with vorn_discard.
    virtual int singularities(double** where, int** kind, double lo, double hi) const;
    /// The parameter reached after arc length `length` from parameter `base`.
    virtual double length_param(double base, double length) const;
    /// The arc length from `from` to `to` (negative when `to` < `from`).
    virtual double length(double from, double to) const;
    /// The parameter of the foot of the perpendicular from `p`, searched from `guess`
    /// and kept within the parameter range.
    virtual double point_perp(const QEM::position& p, double guess) const;
    /// The same, starting from the nearest of samples over the parameter range.
    virtual double point_perp(const QEM::position& p) const;
    /// Non-zero for a periodic path; 0 by default.
    virtual int periodic() const;
    /// The point and derivatives 1..nderiv at `t` (derivs[i] receives order i + 1 when not
    /// null); returns the number of derivatives computed.  Raises LAW_EVAL by default.
    virtual int evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                         int side = 0) const;
    /// Parameters in [lo, hi] where a derivative jumps, with the lowest order that jumps;
    /// heap arrays owned by the caller.  Raises LAW_EVAL by default.
    virtual int discontinuities(double** where, int** order, double lo, double hi) const;

  protected:
    double start_;
    double end_;
};

/// A 3-D curve.  The kernel derives its edge wrappers from it.
class LAW_API base_curve_law_data : public path_law_data {
  public:
    base_curve_law_data(double start, double end) : path_law_data(start, end) {}
    int type() const override { return base_curve_law_data_id; }
};

/// A curve in a surface's parameter space: eval gives (u, v, 0).
class LAW_API base_pcurve_law_data : public path_law_data {
  public:
    base_pcurve_law_data(double start, double end) : path_law_data(start, end) {}
    int type() const override { return base_pcurve_law_data_id; }
};

/// A wire: a chain of edges under one parameter.
class LAW_API base_wire_law_data : public path_law_data {
  public:
    base_wire_law_data(double start, double end) : path_law_data(start, end) {}
    int type() const override { return base_wire_law_data_id; }
};

// ============================================================== surfaces, patterns, splines

/// A surface.  The kernel supplies the geometry.
class LAW_API base_surface_law_data : public law_data {
  public:
    base_surface_law_data() = default;
    int type() const override { return base_surface_law_data_id; }
    /// The point (du = dv = 0) or the partial derivative of order du in u and dv in v at
    /// (u, v).  Raises LAW_EVAL by default.
    virtual QEM::vector eval(double u, double v, int du = 0, int dv = 0) const;
    /// The parameter ranges; the whole line by default.
    virtual QEM::interval u_range() const;
    virtual QEM::interval v_range() const;
};

/// A pattern: a numbered family of transforms.  The kernel supplies it.
class LAW_API base_pattern_law_data : public law_data {
  public:
    base_pattern_law_data() = default;
    int type() const override { return base_pattern_law_data_id; }
    /// The number of transforms; 0 by default.
    virtual int size() const;
    /// Transform `index` (0 <= index < size()).  Raises LAW_EVAL by default.
    virtual QEM::transf get_transf(int index) const;
};

/// A spline over a parameter range, keyword "SPLINE_LAW".  The base evaluates nothing: a
/// concrete spline supplies eval.
class LAW_API base_spline_law_data : public law_data {
  public:
    base_spline_law_data() : min_(0.0), max_(0.0) {}
    base_spline_law_data(double min, double max) : min_(min), max_(max) {}
    double param_min() const { return min_; }
    double param_max() const { return max_; }
    /// The number of values eval writes; 1 by default.
    virtual int return_size() const;
    /// Writes return_size() values of the derivative of order `deriv` (0: the value) at
    /// `t`.  Raises LAW_EVAL by default.
    virtual void eval(double t, double* answer, int deriv = 0) const;
    /// None by default (both arrays set to null).
    virtual int singularities(double** where, int** kind, double lo, double hi) const;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "SPLINE_LAW"; }
    int type() const override { return base_spline_law_data_id; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;

  private:
    double min_;
    double max_;
};

// ============================================================== transforms and grids

/// A transform with its inverse, both owned by the datum.
class LAW_API base_transform_law_data : public law_data {
  public:
    /// Copies `t` (null: the identity).  Raises QEM_SINGULAR_MATRIX for a singular one.
    explicit base_transform_law_data(const QEM::transf* t);
    int type() const override { return base_transform_law_data_id; }
    const QEM::transf* get_trans() const { return &trans_; }
    QEM::position transform(const QEM::position& p) const { return p * trans_; }
    QEM::position transform_inverse(const QEM::position& p) const { return p * inverse_; }
    /// Directions: the translation does not apply.
    QEM::vector rotate(const QEM::vector& v) const { return v * trans_; }
    QEM::vector rotate_inverse(const QEM::vector& v) const { return v * inverse_; }

  private:
    QEM::transf trans_;
    QEM::transf inverse_;
};

/// A grid of positions with dimensions d0, d1, ...; point i of a three-dimensional grid
/// sits at x = i mod d0, y = (i / d0) mod d1, z = i / (d0 d1).
class LAW_API base_position_array_law_data : public law_data {
  public:
    /// Copies get_data_size() points and `n` dimensions.
    base_position_array_law_data(const QEM::position* points, const int* dims, int n);
    int type() const override { return base_position_array_law_data_id; }
    QEM::position* get_data() const { return points_; }
    const int* get_dims() const { return dims_; }
    int get_dimension() const { return ndims_; }
    /// The product of the dimensions; 1 with none.
    int get_data_size() const;
    /// Grid coordinates of point `i` (all 0 unless the grid has three dimensions).
    void index_to_xyz(int i, int& x, int& y, int& z) const;
    /// Puts point `i` of a three-dimensional grid at its place in the unit cube,
    /// (x / (d0 - 1), y / (d1 - 1), z / (d2 - 1)); a coordinate whose dimension is 1 is
    /// set to 1.  Does nothing for other grids.
    void reset_point(int i);
    /// Moves every point by `move` times its ratio from calc_movement_ratios.
    void update_point(int* moved, int n, const QEM::vector& move, double radius);
    /// ratios[k] for every point: 1 for the `n` moved points, (1 - (d/radius)^2)^2 for a
    /// point at distance d < radius from the nearest moved point, 0 beyond.
    void calc_movement_ratios(int* moved, int n, double radius, double* ratios);
    /// The distance between points i and j.
    double Distance(int i, int j);
    void full_size(SizeAccumulator& size, int count_self = 1) const override;

  protected:
    ~base_position_array_law_data() noexcept(false) override;

  private:
    QEM::position* points_;
    int* dims_;
    int ndims_;
};

/// A law handed where data is expected: the keyword "LAW", as in LAW1.
class LAW_API law_law_data final : public law_data {
  public:
    /// Takes a use of `held` (which may be null).
    explicit law_law_data(law* held);
    law* data_law() const { return law_; }

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LAW"; }
    int date() const override;
    int type() const override { return law_law_data_id; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    /// A new datum over the held law restricted to `domain` (one use to the caller).
    law_data* set_domain(QEM::interval* domain) override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

  protected:
    ~law_law_data() noexcept(false) override;

  private:
    law* law_;
};
