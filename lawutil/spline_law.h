#pragma once
// spline_law: a curve law over an sw_curve.  SPLINE_LAW(d) takes one value t and
// returns the three coordinates of the curve held by the datum d (an sw_curve_law_data)
// at t; beyond the curve's parameter range it follows the end pieces' polynomials.
//
// Derivatives are exact: the law carries a derivative order k (0 for the curve itself)
// and evaluates the k-th derivative of the spline, so deriv(0) is the same datum with
// order k + 1 (no new curve is built, the datum is shared).  Orders above
// sw_max_deriv_order have no derivative (derivative() raises LAW_DERIV).  The derivative
// with respect to any other variable is the zero vector.  A law of order k > 0 prints as
// D(SPLINE_LAW(SWEDGE),X,k).
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
    /// The `order`-th derivative of the curve held by `datum`.  check() runs first: a
    /// datum that holds no sw_curve is reported as a toxic law, the law is built all the
    /// same, and evaluating it raises LAW_EVAL.
    explicit spline_law(law_data* datum, int order = 0);
    /// Same class and order over another datum (one use to the caller).
    law* make_one(law_data* datum) const override;
    void evaluate(const double* x, double* answer) const override;
    /// 1 when `datum` is an sw_curve_law_data; otherwise a toxic law report and 0.
    static int check(const law_data* datum);

    int order() const { return order_; }
    /// The curve evaluated, or null when the datum holds none.
    const sw_curve* curve() const { return curve_; }

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    /// Same datum (or equal data) and same order.
    int same(const law* a, const law* b) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }
    ~spline_law() noexcept(false) override = default;

  private:
    const sw_curve* curve_;  ///< borrowed from the datum, which this law keeps alive
    int order_;
};

/// A new spline_law over a new datum holding `curve` (one use to the caller; the law
/// owns the only use of the datum).
LAW_API law* make_spline_law(sw_curve curve);
