#include <lawutil/sw_curve_law.h>

#include <cmath>
#include <limits>
#include <utility>

#include <lawutil/law_registry.h>
#include <lawutil/sw_common.h>

namespace {

// The range of a curve, or the empty range of the registry's empty prototype.
double first_param(const sw_curve& c) {
    return c.control_count() > 0 ? c.start_param() : 0.0;
}
double last_param(const sw_curve& c) {
    return c.control_count() > 0 ? c.end_param() : 0.0;
}

}  // namespace

sw_curve_law_data::sw_curve_law_data() : base_curve_law_data(0.0, 0.0) {}

// The base is built before curve_, while `curve` still holds the range.
sw_curve_law_data::sw_curve_law_data(sw_curve curve)
    : base_curve_law_data(first_param(curve), last_param(curve)), curve_(std::move(curve)) {}

double sw_curve_law_data::sided(double t, int side) const {
    // The evaluator takes the span on the right at a knot; a value from below is the left
    // span's polynomial one step under the knot.
    if (side >= 0 || t <= start_ || t >= end_) return t;
    for (int i = curve_.degree() + 1; i < curve_.control_count(); ++i)
        if (curve_.knot(i) == t) return std::nextafter(t, -std::numeric_limits<double>::infinity());
    return t;
}

QEM::vector sw_curve_law_data::eval(double t, int deriv, int side) const {
    if (deriv < 0 || deriv > 2) sys_error(LAW_DATA_CURVE);
    if (curve_.control_count() == 0) sys_error(LAW_EVAL);
    double out[9];
    curve_.derivs(sided(t, side), deriv, out);
    return QEM::vector(out[3 * deriv], out[3 * deriv + 1], out[3 * deriv + 2]);
}

int sw_curve_law_data::evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                                int side) const {
    if (curve_.control_count() == 0) sys_error(LAW_EVAL);
    const int n = nderiv < 0 ? 0 : nderiv > 2 ? 2 : nderiv;
    double out[9];
    curve_.derivs(sided(t, side), n, out);
    point = QEM::position(out[0], out[1], out[2]);
    for (int k = 1; k <= n; ++k)
        if (derivs && derivs[k - 1])
            *derivs[k - 1] = QEM::vector(out[3 * k], out[3 * k + 1], out[3 * k + 2]);
    return n;
}

// An interior knot of multiplicity m leaves a degree-p curve C^(p-m): derivative
// p - m + 1 is the first that may jump.
int sw_curve_law_data::discontinuities(double** where, int** order, double lo, double hi) const {
    if (where) *where = nullptr;
    if (order) *order = nullptr;
    const int p = curve_.degree(), last = curve_.control_count();
    int found = 0;
    QEM::scoped_heap_array<double> at;
    QEM::scoped_heap_array<int> jump;
    for (int pass = 0; pass < 2; ++pass) {
        if (pass == 1) {
            if (found == 0) return 0;
            at.reset(QEM_ALLOC_ARRAY(double, static_cast<size_t>(found)));
            jump.reset(QEM_ALLOC_ARRAY(int, static_cast<size_t>(found)));
            found = 0;
        }
        for (int i = p + 1; i < last;) {
            const double k = curve_.knot(i);
            int m = 1;
            while (i + m < last && curve_.knot(i + m) == k) ++m;
            if (k >= lo && k <= hi) {
                if (pass == 1) {
                    at[static_cast<size_t>(found)] = k;
                    jump[static_cast<size_t>(found)] = p - m + 1;
                }
                ++found;
            }
            i += m;
        }
    }
    if (where) *where = at.release();
    if (order) *order = jump.release();
    return found;
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

LAW_REGISTER_DATA_PROTOTYPE(sw_curve_law_data)
