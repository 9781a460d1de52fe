#include <lawutil/spline_law.h>

#include <string>
#include <utility>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>
#include <lawutil/main_law.h>

namespace {

const sw_curve* held_curve(const law_data* d) {
    const auto* c = dynamic_cast<const sw_curve_law_data*>(d);
    return c ? &c->curve() : nullptr;
}

const base_spline_law_data* held_spline(const law_data* d) {
    return d && d->type() == base_spline_law_data_id ? static_cast<const base_spline_law_data*>(d)
                                                     : nullptr;
}

}  // namespace

spline_law::spline_law(law_data* datum, int order)
    : unary_data_law(datum),
      curve_(held_curve(datum)),
      spline_(held_spline(datum)),
      order_(order < 0 ? 0 : order) {}

int spline_law::check(const law_data* datum) {
    if (law_restore_waived() || held_curve(datum) || held_spline(datum)) return 1;
    toxic_law_error();
    return 0;
}

law* spline_law::make_one(law_data* datum) const {
    return check(datum) ? new spline_law(datum, order_) : nullptr;
}

void spline_law::evaluate(const double* x, double* answer) const {
    if (spline_) return spline_->eval(x[0], answer, order_);
    if (!curve_) sys_error(LAW_EVAL);
    if (order_ == 0) return curve_->derivs(x[0], 0, answer);
    double all[3 * (sw_max_deriv_order + 1)];
    curve_->derivs(x[0], order_, all);
    for (int c = 0; c < 3; ++c) answer[c] = all[3 * order_ + c];
}

law* spline_law::deriv(int which) const {
    if (which == 0)
        return order_ < sw_max_deriv_order ? new spline_law(datum_, order_ + 1) : nullptr;
    // Nothing depends on another variable.
    law_ref zero = make_law<constant_law>(0.0);
    const int n = return_size();
    if (n == 1) return zero.release();
    std::vector<law*> parts(static_cast<size_t>(n), zero.get());
    return new vector_law(parts.data(), n);
}

char* spline_law::string(law_symbol_type type, QEM::optional<int&> count,
                         QEM::optional<law_data_node*&> list) const {
    char* base = unary_data_law::string(type, count, list);
    if (order_ == 0) return base;
    const law_kind_row* d = law_kind_find(derivative_law_id);
    std::string text = std::string(type == SYMBOL_PARSE ? d->keyword : d->second) + "(" + base +
                       ",X," + std::to_string(order_) + ")";
    vorn_discard(base);
    return law_internal::heap_string(text);
}

int spline_law::same(const law* a, const law* b) const {
    return unary_data_law::same(a, b) &&
           static_cast<const spline_law*>(a)->order_ == static_cast<const spline_law*>(b)->order_;
}

law* make_spline_law(sw_curve curve) {
    law_data* datum = new sw_curve_law_data(std::move(curve));
    law* l = nullptr;
    try {
        l = new spline_law(datum);
    } catch (...) {
        datum->remove();
        throw;
    }
    datum->remove();
    return l;
}

LAW_REGISTER_PROTOTYPE(spline_law, nullptr)
