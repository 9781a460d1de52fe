#pragma once
// sw_curve_law_data: an sw_curve handed to laws as law data (keyword "SWEDGE", data type
// 3, the type of 3-D curves), so that a curve law can read a spline the way it reads an
// edge of the kernel.

#include <lawutil/law_data.h>
#include <lawutil/sw_curve.h>

class LAW_API sw_curve_law_data final : public law_data {
  public:
    /// Holds its own copy of `curve` (or takes it over when moved in).  One use to the
    /// creator, as for every datum.
    explicit sw_curve_law_data(sw_curve curve);

    const sw_curve& curve() const { return curve_; }
    double data_start() const { return curve_.start_param(); }
    double data_end() const { return curve_.end_param(); }
    /// Derivative `deriv` of the curve at `t`: 0 the point (as a vector from the origin),
    /// 1 the first and 2 the second derivative.  Any other value raises LAW_DATA_CURVE.
    /// `side` is not needed: the curve is C1 and its pieces join where they meet.
    QEM::vector eval(double t, int deriv = 0, int side = 0) const;

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "SWEDGE"; }
    int date() const override { return 60100; }
    int type() const override { return base_curve_law_data_id; }
    /// A new datum over a copy of the curve (one use to the caller).
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// Equal when the other datum also wraps an sw_curve with the same degree, knots,
    /// control points and weights.
    int operator==(const law_data& other) const override;

  protected:
    ~sw_curve_law_data() noexcept(false) override = default;

  private:
    sw_curve curve_;
};
