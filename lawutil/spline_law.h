#pragma once
// spline_law: SPLINE_LAW(d) takes one value t and returns the spline held by the datum d
// at t.  It reads the two spline data of the language:
//   - SWEDGE (sw_curve_law_data, type 3): the three coordinates of the rational B-spline
//     curve; beyond the curve's parameter range it follows the end pieces' polynomials;
//   - SPLINE_LAW (base_spline_law_data, type 10): the return_size() values of the spline
//     the kernel supplies through eval(t, answer, order).
// Any other datum is reported as a toxic law.
//
// Derivatives are exact: the law carries a derivative order k (0 for the spline itself)
// and evaluates the k-th derivative, so deriv(0) is the same datum with order k + 1 (no
// new spline is built, the datum is shared).  Orders above sw_max_deriv_order have no
// derivative (derivative() raises LAW_DERIV).  The derivative with respect to any other
// variable is the zero vector.  A law of order k > 0 prints as D(SPLINE_LAW(SWEDGE),X,k).
//
// Ownership: the constructor takes its own use of the datum; the caller keeps its own.
// Evaluation allocates nothing and takes no lock.

#include <lawutil/law_unary_data.h>
#include <lawutil/sw_curve.h>
#include <lawutil/sw_curve_law.h>

class LAW_API spline_law final : public unary_data_law {
    LAW_IDENTITY(spline_law, unary_data_law)
    LAW_KEYWORD(spline_law)
  public:
    /// The `order`-th derivative of the spline held by `datum`.  Over a datum of another
    /// kind (or none, as the registry's prototype) evaluation raises LAW_EVAL.
    explicit spline_law(law_data* datum, int order = 0);
    /// Same class and order over another datum (one use to the caller), or null after a
    /// toxic law report when check() refuses the datum.
    law* make_one(law_data* datum) const override;
    void evaluate(const double* x, double* answer) const override;
    /// 1 when `datum` is an sw_curve_law_data or a base_spline_law_data; otherwise a toxic
    /// law report and 0.
    static int check(const law_data* datum);

    int order() const { return order_; }
    /// The curve evaluated, or null when the datum holds none.
    const sw_curve* curve() const { return curve_; }
    /// The kernel's spline evaluated, or null when the datum is not one.
    const base_spline_law_data* spline() const { return spline_; }

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    /// Same datum (or equal data) and same order.
    int same(const law* a, const law* b) const override;
    /// Public so the registry can hold a static prototype; release uses with remove().
    ~spline_law() noexcept(false) override = default;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    /// 3 for a curve, the spline's return_size() for a kernel spline.
    int return_size() const override { return spline_ ? spline_->return_size() : 3; }

  private:
    const sw_curve* curve_;               ///< borrowed from the datum, kept alive by this law
    const base_spline_law_data* spline_;  ///< the datum itself when it is a kernel spline
    int order_;
};

/// A new spline_law over a new datum holding `curve` (one use to the caller; the law
/// owns the only use of the datum).
LAW_API law* make_spline_law(sw_curve curve);
