#pragma once
// Laws of one argument that apply a function to a sub-law.

#include <lawutil/main_law.h>

/// -f: every component of the sub-law's value negated, at the sub-law's own dimension.
class LAW_API negate_law final : public unary_law {
    LAW_IDENTITY(negate_law, unary_law)
    LAW_KEYWORD(negate_law)
  public:
    explicit negate_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

/// ln f; LAW_LN for f <= 0.
class LAW_API natural_log_law final : public unary_law {
    LAW_IDENTITY(natural_log_law, unary_law)
    LAW_KEYWORD(natural_log_law)
  public:
    explicit natural_log_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};
