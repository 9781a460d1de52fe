#include <lawutil/sw_curve_law.h>

#include <utility>

sw_curve_law_data::sw_curve_law_data(sw_curve curve) : curve_(std::move(curve)) {}

QEM::vector sw_curve_law_data::eval(double t, int deriv, int) const {
    if (deriv < 0 || deriv > 2) sys_error(LAW_DATA_CURVE);
    double out[9];
    curve_.derivs(t, deriv, out);
    return QEM::vector(out[3 * deriv], out[3 * deriv + 1], out[3 * deriv + 2]);
}

law_data* sw_curve_law_data::deep_copy(pointer_map*) const {
    return new sw_curve_law_data(curve_);
}

void sw_curve_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    size.add(sizeof(double) * (static_cast<size_t>(curve_.knot_count()) +
                               4 * static_cast<size_t>(curve_.control_count())));
}

int sw_curve_law_data::operator==(const law_data& other) const {
    const auto* that = dynamic_cast<const sw_curve_law_data*>(&other);
    if (!that) return 0;
    const sw_curve& a = curve_;
    const sw_curve& b = that->curve_;
    if (a.degree() != b.degree() || a.control_count() != b.control_count()) return 0;
    for (int i = 0; i < a.knot_count(); ++i)
        if (a.knot(i) != b.knot(i)) return 0;
    for (int i = 0; i < a.control_count(); ++i)
        if (a.weight(i) != b.weight(i) || !(a.control_point(i) == b.control_point(i))) return 0;
    return 1;
}
