#pragma once
// Geometry a user can build without a kernel, each a datum with its own keyword in the law
// text, registered so that a printed law reads back from its data array:
//   LCURVE    a 3-D curve given by a law of one variable       (type 3)
//   LPCURVE   a parameter curve given by a law (u(t), v(t))    (type 4)
//   LWIRE     a wire: curve pieces joined end to end            (type 2)
//   LSURFACE  a surface given by a law of two variables         (type 5)
//   TRANSFORM a rigid transform                                 (type 7)
//   GRID      a grid of positions                               (type 8)
// so that, for example, CUR(LCURVE1) over a helix law evaluates the helix.
//
// Ownership: each datum starts with one use for its creator and takes its own use of the
// laws and data it is built from.

#include <lawutil/law_data.h>

/// A law of one variable and its derivative laws of orders 1..max_order, built once when
/// the datum is made (a law without a derivative leaves the higher orders empty), so that
/// evaluating a derivative costs what evaluating a law costs.
class LAW_API law_derivative_table {
  public:
    static constexpr int max_order = 3;
    /// Takes a use of `l` (which may be null).
    explicit law_derivative_table(law* l);
    law_derivative_table(const law_derivative_table&) = delete;
    law_derivative_table& operator=(const law_derivative_table&) = delete;
    ~law_derivative_table() noexcept(false);
    law* base() const { return laws_[0]; }
    /// The law of derivative `order`, or null where there is none.
    const law* order(int order) const {
        return order >= 0 && order <= max_order ? laws_[order] : nullptr;
    }

  private:
    law* laws_[max_order + 1] = {};
};

/// "LCURVE": the curve t -> f(t) for t in [start, end]; f takes at most one input and
/// returns 3 values (2: the curve lies in z = 0).  Derivatives up to order 3; a higher
/// order raises LAW_DATA_CURVE.
class LAW_API law_curve_law_data final : public base_curve_law_data {
  public:
    /// The registry's prototype: no law.
    law_curve_law_data();
    /// Takes a use of `f`.  Raises LAW_DIM (nothing built) for a null law or one of the
    /// wrong shape.
    law_curve_law_data(law* f, double start, double end);
    law* curve() const { return table_.base(); }

    QEM::vector eval(double t, int deriv = 0, int side = 0) const override;
    int evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                 int side = 0) const override;
    /// The law's singularities in [lo, hi], reported with order 0.
    int discontinuities(double** where, int** order, double lo, double hi) const override;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LCURVE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    /// The same law over the range intersected with `domain` (one use to the caller).
    law_data* set_domain(QEM::interval* domain) override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

  private:
    law_derivative_table table_;
};

/// "LPCURVE": the parameter curve t -> (u(t), v(t)) for t in [start, end], given by a law
/// of at most one input returning 2 values; eval gives (u, v, 0).  Derivatives up to
/// order 3; a higher order raises LAW_DATA_PCURVE.
class LAW_API law_pcurve_law_data final : public base_pcurve_law_data {
  public:
    law_pcurve_law_data();
    /// Takes a use of `uv`.  Raises LAW_DIM (nothing built) for a null law or one of the
    /// wrong shape.
    law_pcurve_law_data(law* uv, double start, double end);
    law* curve() const { return table_.base(); }

    QEM::vector eval(double t, int deriv = 0, int side = 0) const override;
    int evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                 int side = 0) const override;
    int discontinuities(double** where, int** order, double lo, double hi) const override;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LPCURVE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

  private:
    law_derivative_table table_;
};

/// "LWIRE": curve pieces joined end to end under one parameter that starts at 0: piece i
/// covers a stretch as long as its own parameter range, so the wire's parameter t in
/// piece i is piece i's start + (t - the lengths of the pieces before it).  At a joint,
/// side < 0 evaluates the piece before it, otherwise the piece after.  Derivatives as the
/// pieces supply them; a piece that raises LAW_DATA_CURVE is reported as LAW_DATA_WIRE.
class LAW_API law_wire_law_data final : public base_wire_law_data {
  public:
    law_wire_law_data();
    /// Takes a use of each of the `n` pieces.  Raises LAW_DATA_UNKNOWN (nothing built)
    /// when there is none, or a piece is not a curve with a finite, increasing range.
    law_wire_law_data(base_curve_law_data* const* pieces, int n);
    int pieces() const { return count_; }
    const base_curve_law_data* piece(int i) const { return pieces_[i]; }

    QEM::vector eval(double t, int deriv = 0, int side = 0) const override;
    int evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                 int side = 0) const override;
    /// The joints inside [lo, hi] with the lowest derivative order that jumps there (0:
    /// a gap, 1: a corner, 2: a change of curvature, compared to the base library's
    /// resolution); smooth joints are not reported.
    int discontinuities(double** where, int** order, double lo, double hi) const override;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LWIRE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

    /// Public so the registry can hold a static prototype; release uses with remove().
    ~law_wire_law_data() noexcept(false) override;

  private:
    /// The piece holding wire parameter t (from the side asked) and its own parameter.
    int locate(double t, int side, double& local) const;

    base_curve_law_data** pieces_;
    double* offsets_;  ///< wire parameter at the start of each piece, count_ + 1 entries
    int count_;
};

/// "LSURFACE": the surface (u, v) -> f(u, v) over the box u_range x v_range; f takes at
/// most two inputs and returns 3 values.  Partial derivatives up to total order 2; a
/// higher order raises LAW_EVAL.
class LAW_API law_surface_law_data final : public base_surface_law_data {
  public:
    law_surface_law_data();
    /// Takes a use of `f`.  Raises LAW_DIM (nothing built) for a null law or one of the
    /// wrong shape.
    law_surface_law_data(law* f, const QEM::interval& u_range, const QEM::interval& v_range);
    law* surface() const { return partials_[0]; }

    QEM::vector eval(double u, double v, int du = 0, int dv = 0) const override;
    QEM::interval u_range() const override { return u_; }
    QEM::interval v_range() const override { return v_; }

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LSURFACE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

    /// Public so the registry can hold a static prototype; release uses with remove().
    ~law_surface_law_data() noexcept(false) override;

  private:
    static constexpr int max_order = 2;
    static int slot(int du, int dv) { return (du + dv) * (du + dv + 1) / 2 + dv; }
    law* partials_[6] = {};  ///< by slot(du, dv): f, fu, fv, fuu, fuv, fvv
    QEM::interval u_;
    QEM::interval v_;
};

/// "TRANSFORM": a rigid transform (a rotation, possibly a reflection, and a translation).
class LAW_API rigid_transform_law_data final : public base_transform_law_data {
  public:
    /// Copies `t` (null: the identity).
    explicit rigid_transform_law_data(const QEM::transf* t = nullptr);

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "TRANSFORM"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    int operator==(const law_data& other) const override;
};

/// "GRID": a grid of positions (see base_position_array_law_data).
class LAW_API position_grid_law_data final : public base_position_array_law_data {
  public:
    position_grid_law_data() : base_position_array_law_data(nullptr, nullptr, 0) {}
    position_grid_law_data(const QEM::position* points, const int* dims, int n)
        : base_position_array_law_data(points, dims, n) {}

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "GRID"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    int operator==(const law_data& other) const override;
};
