#include <lawutil/law_unary.h>

#include <cmath>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/value_buffer.h>

using law_internal::value_buffer;

// ============================================================== negate

negate_law::negate_law(law* sub) : unary_law(sub) {}

law* negate_law::make_one(law* sub) const {
    return new negate_law(sub);
}

double negate_law::evaluate_scalar(const double* x) const {
    if (sub_law_ && sub_law_->return_dim() != 1) return law::evaluate_scalar(x);
    return -sub_value(x);
}

void negate_law::evaluate(const double* x, double* answer) const {
    if (!sub_law_) law_operand::raise_missing();
    const int n = sub_law_->return_dim();
    if (n == 1) {
        answer[0] = -sub_value(x);
        return;
    }
    sub_law_->evaluate(x, answer);
    for (int i = 0; i < n; ++i) answer[i] = -answer[i];
}

law* negate_law::deriv(int which) const {
    law_ref d = law_ref::adopt(sub_law_->derivative(which));
    return new negate_law(d.get());
}

// ============================================================== natural log

natural_log_law::natural_log_law(law* sub) : unary_law(sub) {}

law* natural_log_law::make_one(law* sub) const {
    return new natural_log_law(sub);
}

double natural_log_law::evaluate_scalar(const double* x) const {
    const double v = sub_value(x);
    if (v <= 0.0) sys_error(LAW_LN);
    return std::log(v);
}

void natural_log_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

law* natural_log_law::deriv(int which) const {
    // (ln f)' = f' / f
    law_ref d = law_ref::adopt(sub_law_->derivative(which));
    return new division_law(d.get(), sub_law_);
}
