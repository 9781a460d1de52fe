#pragma once
// sw_curve_law_data: an sw_curve handed to laws as a curve datum (keyword "SWEDGE", data
// type 3), so that CUR, DCUR, CURC, CURD, CURI and SPLINE_LAW read a spline the way they
// read an edge of the kernel.  Registered as a data prototype: a text that names SWEDGE1
// reads back from the data array its printing collected.

#include <lawutil/law_data.h>
#include <lawutil/sw_curve.h>

class LAW_API sw_curve_law_data final : public base_curve_law_data {
  public:
    /// An empty datum (no curve; the registry's prototype).  Evaluating it raises LAW_EVAL.
    sw_curve_law_data();
    /// Holds its own copy of `curve` (or takes it over when moved in); the parameter range
    /// is the curve's.  One use to the creator, as for every datum.
    explicit sw_curve_law_data(sw_curve curve);

    const sw_curve& curve() const { return curve_; }
    /// Derivative `deriv` of the curve at `t`: 0 the point (as a vector from the origin),
    /// 1 the first and 2 the second derivative.  Any other value raises LAW_DATA_CURVE.
    /// At a knot where a derivative jumps, `side` < 0 gives the value from below, otherwise
    /// the value from above.
    QEM::vector eval(double t, int deriv = 0, int side = 0) const override;
    /// The point and derivatives 1..min(nderiv, 2) at `t` (derivs[i] receives order i + 1
    /// when not null); returns the number of derivatives computed.
    int evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                 int side = 0) const override;
    /// The interior knots in [lo, hi] where a derivative jumps, with the lowest order that
    /// jumps (degree + 1 - multiplicity); heap arrays owned by the caller (null when none).
    int discontinuities(double** where, int** order, double lo, double hi) const override;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "SWEDGE"; }
    int date() const override { return 60100; }
    /// A new datum over a copy of the curve (one use to the caller).
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// Equal when the other datum also wraps an sw_curve with the same degree, knots,
    /// control points and weights.
    int operator==(const law_data& other) const override;

    /// Public so the registry can hold a static prototype; release uses with remove().
    ~sw_curve_law_data() noexcept(false) override = default;

  private:
    /// The parameter just below or above `t` when `t` is an interior knot and `side` asks
    /// for the one-sided value from below; `t` otherwise.
    double sided(double t, int side) const;

    sw_curve curve_;
};
