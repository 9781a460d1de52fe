#include <lawutil/law_data_geom.h>

#include <algorithm>
#include <cmath>
#include <exception>

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_save.h>
#include <lawutil/law_registry.h>
#include <qem/tolerance.h>

namespace {

bool shaped(const law* f, int max_take, int min_return, int max_return) {
    return f && f->take_dim() <= max_take && f->return_dim() >= min_return &&
           f->return_dim() <= max_return;
}

// A law without a derivative (or one that raises building it) leaves the order empty.
law* derivative_or_null(const law* l, int which) {
    if (!l) return nullptr;
    try {
        return l->derivative(which);
    } catch (const vorn_exception&) {
        return nullptr;
    }
}

QEM::vector as_vector(const double* v, int n) {
    return QEM::vector(v[0], n > 1 ? v[1] : 0.0, n > 2 ? v[2] : 0.0);
}

// The value of derivative `order` of a tabled law at t, or `code` when it has none.
QEM::vector table_eval(const law_derivative_table& table, double t, int order, int side,
                       err_mess_type code) {
    const law* l = table.order(order);
    if (!l) sys_error(order < 0 || order > law_derivative_table::max_order ? code : LAW_DERIV);
    double out[3] = {0.0, 0.0, 0.0};
    if (side)
        l->evaluate_with_side(&t, out, &side);
    else
        l->evaluate(&t, out);
    return as_vector(out, l->return_dim());
}

int table_evaluate(const path_law_data& path, double t, QEM::position& point, QEM::vector** derivs,
                   int nderiv, int side) {
    const QEM::vector p = path.eval(t, 0, side);
    point = QEM::position(p.x(), p.y(), p.z());
    const int n = std::min(nderiv, law_derivative_table::max_order);
    for (int i = 0; i < n; ++i)
        if (derivs && derivs[i]) *derivs[i] = path.eval(t, i + 1, side);
    return std::max(n, 0);
}

int law_singularities(const law* f, double** where, int** order, double lo, double hi) {
    if (where) *where = nullptr;
    if (order) *order = nullptr;
    if (!f) return 0;
    int* kinds = nullptr;
    double* at = nullptr;
    const int n = f->singularities(&at, &kinds, lo, hi);
    for (int i = 0; i < n && kinds; ++i) kinds[i] = 0;
    if (where)
        *where = at;
    else
        vorn_discard(at);
    if (order)
        *order = kinds;
    else
        vorn_discard(kinds);
    return n;
}

bool same_law(const law* a, const law* b) {
    return a == b || (a && b && *a == *b);
}

law_ref copy_of(const law* l, pointer_map* pm) {
    return law_ref::adopt(pm_get_law(pm, l));
}

}  // namespace

// ============================================================== law_derivative_table

law_derivative_table::law_derivative_table(law* l) {
    laws_[0] = l;
    law::add(l);
    for (int i = 1; i <= max_order && laws_[i - 1]; ++i)
        laws_[i] = derivative_or_null(laws_[i - 1], 0);
}

law_derivative_table::~law_derivative_table() noexcept(false) {
    for (law* l : laws_) law::remove(l);
}

// ============================================================== law_curve_law_data

law_curve_law_data::law_curve_law_data() : base_curve_law_data(0.0, 0.0), table_(nullptr) {}

law_curve_law_data::law_curve_law_data(law* f, double start, double end)
    : base_curve_law_data(start, end), table_(shaped(f, 1, 2, 3) ? f : nullptr) {
    if (!table_.base()) {
        set_use_count(0);  // nothing was handed out: destroy quietly
        sys_error(LAW_DIM);
    }
}

QEM::vector law_curve_law_data::eval(double t, int deriv, int side) const {
    return table_eval(table_, t, deriv, side, LAW_DATA_CURVE);
}

int law_curve_law_data::evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                                 int side) const {
    return table_evaluate(*this, t, point, derivs, nderiv, side);
}

int law_curve_law_data::discontinuities(double** where, int** order, double lo, double hi) const {
    return law_singularities(curve(), where, order, lo, hi);
}

law_data* law_curve_law_data::deep_copy(pointer_map* pm) const {
    law_ref f = copy_of(curve(), pm);
    return new law_curve_law_data(f.get(), start_, end_);
}

law_data* law_curve_law_data::set_domain(QEM::interval* domain) {
    if (!domain) return law_data::set_domain(domain);
    const QEM::interval range = QEM::interval(start_, end_) & *domain;
    if (range.empty()) return law_data::set_domain(nullptr);
    return new law_curve_law_data(curve(), range.start_pt(), range.end_pt());
}

void law_curve_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    if (curve()) curve()->full_size(size, 1);
}

int law_curve_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const law_curve_law_data*>(&other);
    return o && o->start_ == start_ && o->end_ == end_ && same_law(o->curve(), curve());
}

// ============================================================== law_pcurve_law_data

law_pcurve_law_data::law_pcurve_law_data() : base_pcurve_law_data(0.0, 0.0), table_(nullptr) {}

law_pcurve_law_data::law_pcurve_law_data(law* uv, double start, double end)
    : base_pcurve_law_data(start, end), table_(shaped(uv, 1, 2, 2) ? uv : nullptr) {
    if (!table_.base()) {
        set_use_count(0);
        sys_error(LAW_DIM);
    }
}

QEM::vector law_pcurve_law_data::eval(double t, int deriv, int side) const {
    return table_eval(table_, t, deriv, side, LAW_DATA_PCURVE);
}

int law_pcurve_law_data::evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                                  int side) const {
    return table_evaluate(*this, t, point, derivs, nderiv, side);
}

int law_pcurve_law_data::discontinuities(double** where, int** order, double lo, double hi) const {
    return law_singularities(curve(), where, order, lo, hi);
}

law_data* law_pcurve_law_data::deep_copy(pointer_map* pm) const {
    law_ref uv = copy_of(curve(), pm);
    return new law_pcurve_law_data(uv.get(), start_, end_);
}

void law_pcurve_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    if (curve()) curve()->full_size(size, 1);
}

int law_pcurve_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const law_pcurve_law_data*>(&other);
    return o && o->start_ == start_ && o->end_ == end_ && same_law(o->curve(), curve());
}

// ============================================================== law_wire_law_data

law_wire_law_data::law_wire_law_data()
    : base_wire_law_data(0.0, 0.0), pieces_(nullptr), offsets_(nullptr), count_(0) {}

law_wire_law_data::law_wire_law_data(base_curve_law_data* const* pieces, int n)
    : base_wire_law_data(0.0, 0.0), pieces_(nullptr), offsets_(nullptr), count_(0) {
    bool ok = pieces && n > 0;
    for (int i = 0; ok && i < n; ++i)
        ok = pieces[i] && pieces[i]->type() == base_curve_law_data_id &&
             std::isfinite(pieces[i]->data_start()) && std::isfinite(pieces[i]->data_end()) &&
             pieces[i]->data_start() < pieces[i]->data_end();
    if (!ok) {
        set_use_count(0);
        sys_error(LAW_DATA_UNKNOWN);
    }
    pieces_ = QEM_ALLOC_ARRAY(base_curve_law_data*, static_cast<size_t>(n));
    offsets_ = QEM_ALLOC_ARRAY(double, static_cast<size_t>(n + 1));
    count_ = n;
    offsets_[0] = 0.0;
    for (int i = 0; i < n; ++i) {
        pieces_[i] = pieces[i];
        pieces_[i]->add();
        offsets_[i + 1] = offsets_[i] + (pieces[i]->data_end() - pieces[i]->data_start());
    }
    end_ = offsets_[n];
}

law_wire_law_data::~law_wire_law_data() noexcept(false) {
    for (int i = 0; i < count_; ++i) pieces_[i]->remove();
    vorn_discard(pieces_);
    vorn_discard(offsets_);
}

int law_wire_law_data::locate(double t, int side, double& local) const {
    // The last piece whose start lies below t (at a joint: at or below t unless the value
    // from below is asked for).
    int i = 0;
    while (i + 1 < count_ && (side < 0 ? offsets_[i + 1] < t : offsets_[i + 1] <= t)) ++i;
    local = pieces_[i]->data_start() + (t - offsets_[i]);
    return i;
}

QEM::vector law_wire_law_data::eval(double t, int deriv, int side) const {
    if (count_ == 0) sys_error(LAW_EVAL);
    double local = 0.0;
    const int i = locate(t, side, local);
    try {
        return pieces_[i]->eval(local, deriv, side);
    } catch (const vorn_exception& e) {
        if (e.error_number() == static_cast<err_mess_type>(LAW_DATA_CURVE))
            sys_error(LAW_DATA_WIRE);
        throw;
    }
}

int law_wire_law_data::evaluate(double t, QEM::position& point, QEM::vector** derivs, int nderiv,
                                int side) const {
    return table_evaluate(*this, t, point, derivs, nderiv, side);
}

int law_wire_law_data::discontinuities(double** where, int** order, double lo, double hi) const {
    QEM::scoped_heap_array<double> at(QEM_ALLOC_ARRAY(double, static_cast<size_t>(count_ + 1)));
    QEM::scoped_heap_array<int> kind(QEM_ALLOC_ARRAY(int, static_cast<size_t>(count_ + 1)));
    int n = 0;
    const double tol = QEM::get_resabs();
    for (int i = 1; i < count_; ++i) {
        const double t = offsets_[i];
        if (t < lo || t > hi) continue;
        for (int k = 0; k <= 2; ++k) {
            const QEM::vector jump = eval(t, k, -1) - eval(t, k, 1);
            if (jump % jump > tol * tol) {
                at[static_cast<size_t>(n)] = t;
                kind[static_cast<size_t>(n)] = k;
                ++n;
                break;
            }
        }
    }
    if (where) *where = n ? at.release() : nullptr;
    if (order) *order = n ? kind.release() : nullptr;
    return n;
}

law_data* law_wire_law_data::deep_copy(pointer_map* pm) const {
    QEM::scoped_heap_array<base_curve_law_data*> copies(
        QEM_ALLOC_ARRAY(base_curve_law_data*, static_cast<size_t>(count_ > 0 ? count_ : 1)));
    int made = 0;
    QEM::scope_exit release([&] {
        for (int i = 0; i < made; ++i) copies[static_cast<size_t>(i)]->remove();
    });
    for (; made < count_; ++made)
        copies[static_cast<size_t>(made)] =
            static_cast<base_curve_law_data*>(pm_get_law_data(pm, pieces_[made]));
    if (count_ == 0) return new law_wire_law_data;
    return new law_wire_law_data(copies.get(), count_);
}

void law_wire_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    size.add((sizeof(base_curve_law_data*) + sizeof(double)) * static_cast<size_t>(count_) +
             sizeof(double));
    for (int i = 0; i < count_; ++i) pieces_[i]->full_size(size, 1);
}

int law_wire_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const law_wire_law_data*>(&other);
    if (!o || o->count_ != count_) return 0;
    for (int i = 0; i < count_; ++i)
        if (pieces_[i] != o->pieces_[i] && !(*pieces_[i] == *o->pieces_[i])) return 0;
    return 1;
}

// ============================================================== law_surface_law_data

law_surface_law_data::law_surface_law_data()
    : u_(QEM::interval_infinite), v_(QEM::interval_infinite) {}

law_surface_law_data::law_surface_law_data(law* f, const QEM::interval& u_range,
                                           const QEM::interval& v_range)
    : u_(u_range), v_(v_range) {
    if (!shaped(f, 2, 3, 3)) {
        set_use_count(0);
        sys_error(LAW_DIM);
    }
    partials_[0] = f;
    law::add(f);
    // f_u and f_v from f; f_uu and f_uv from f_u, f_vv from f_v.
    partials_[slot(1, 0)] = derivative_or_null(f, 0);
    partials_[slot(0, 1)] = derivative_or_null(f, 1);
    partials_[slot(2, 0)] = derivative_or_null(partials_[slot(1, 0)], 0);
    partials_[slot(1, 1)] = derivative_or_null(partials_[slot(1, 0)], 1);
    partials_[slot(0, 2)] = derivative_or_null(partials_[slot(0, 1)], 1);
}

law_surface_law_data::~law_surface_law_data() noexcept(false) {
    for (law* l : partials_) law::remove(l);
}

QEM::vector law_surface_law_data::eval(double u, double v, int du, int dv) const {
    if (du < 0 || dv < 0 || du + dv > max_order) sys_error(LAW_EVAL);
    const law* l = partials_[slot(du, dv)];
    if (!l) sys_error(du + dv ? LAW_DERIV : LAW_EVAL);
    const double x[2] = {u, v};
    double out[3] = {0.0, 0.0, 0.0};
    l->evaluate(x, out);
    return as_vector(out, l->return_dim());
}

law_data* law_surface_law_data::deep_copy(pointer_map* pm) const {
    if (!surface()) return new law_surface_law_data;
    law_ref f = copy_of(surface(), pm);
    return new law_surface_law_data(f.get(), u_, v_);
}

void law_surface_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    if (surface()) surface()->full_size(size, 1);
}

int law_surface_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const law_surface_law_data*>(&other);
    return o && o->u_ == u_ && o->v_ == v_ && same_law(o->surface(), surface());
}

// ============================================================== transforms and grids

rigid_transform_law_data::rigid_transform_law_data(const QEM::transf* t)
    : base_transform_law_data(t) {}

law_data* rigid_transform_law_data::deep_copy(pointer_map*) const {
    return new rigid_transform_law_data(get_trans());
}

int rigid_transform_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const rigid_transform_law_data*>(&other);
    return o && o->get_trans()->affine() == get_trans()->affine() &&
           o->get_trans()->translation() == get_trans()->translation();
}

law_data* position_grid_law_data::deep_copy(pointer_map*) const {
    return new position_grid_law_data(get_data(), get_dims(), get_dimension());
}

int position_grid_law_data::operator==(const law_data& other) const {
    if (other.type() != type()) return 0;
    auto* o = dynamic_cast<const position_grid_law_data*>(&other);
    if (!o || o->get_dimension() != get_dimension()) return 0;
    if (!std::equal(get_dims(), get_dims() + get_dimension(), o->get_dims())) return 0;
    return std::equal(get_data(), get_data() + get_data_size(), o->get_data());
}

LAW_REGISTER_DATA_PROTOTYPE(law_curve_law_data)
LAW_REGISTER_DATA_PROTOTYPE(law_pcurve_law_data)
LAW_REGISTER_DATA_PROTOTYPE(law_wire_law_data)
LAW_REGISTER_DATA_PROTOTYPE(law_surface_law_data)
LAW_REGISTER_DATA_PROTOTYPE(rigid_transform_law_data)
LAW_REGISTER_DATA_PROTOTYPE(position_grid_law_data)
