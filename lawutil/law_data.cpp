#include <lawutil/law_data.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/path_eval_cache.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>

// ============================================================== law_data

law_data::~law_data() noexcept(false) {
    law_internal::forget_path_evaluations();
    if (use_count_.load(std::memory_order_relaxed) != 0) {
        if (std::uncaught_exceptions() > 0)
            sys_warning(BAD_LAW_DATA_USE_COUNT);
        else
            sys_error(BAD_LAW_DATA_USE_COUNT);
    }
}

void law_data::remove() const {
    if (use_count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

law_data* law_data::restore() {
    return nullptr;
}
int law_data::date() const {
    return 20200;
}
int law_data::type() const {
    return law_data_id;
}

char* law_data::string(law_symbol_type type, QEM::optional<int&> count,
                       QEM::optional<law_data_node*&> list) const {
    char number[16] = "";
    if (count.has_value() && *count >= 0) {
        std::snprintf(number, sizeof number, "%d", *count + 1);
        if (list.has_value()) {
            add();
            *list = new law_data_node(const_cast<law_data*>(this), *list);
        }
        ++*count;
    }
    const char* sym = symbol(type);
    const size_t n = std::strlen(sym) + std::strlen(number) + 1;
    char* out = QEM_ALLOC_ARRAY(char, n);
    std::snprintf(out, n, "%s%s", sym, number);
    return out;
}

law_data* law_data::set_domain(QEM::interval*) {
    add();
    return this;
}

void law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(law_data));
}

int law_data::operator==(const law_data&) const {
    return 0;
}

// ============================================================== law_data_node

namespace {
// A bound against a corrupted chain.
constexpr int max_nodes = 100000;
}  // namespace

law_data_node::law_data_node(law_data* d, law_data_node* n) : data(d), next(n) {}

law_data_node::~law_data_node() noexcept(false) {
    // Unlink the rest first and delete it iteratively: a long chain must not recurse.
    law_data_node* rest = next;
    next = nullptr;
    if (data) data->remove();
    while (rest) {
        law_data_node* after = rest->next;
        rest->next = nullptr;
        delete rest;
        rest = after;
    }
}

int law_data_node::size(bool with_null) const {
    int n = 0, walked = 0;
    for (const law_data_node* p = this; p && walked < max_nodes; p = p->next, ++walked)
        if (p->data || with_null) ++n;
    return n;
}

int law_data_node::get_array(law_data**& array, bool with_null) const {
    const int n = size(with_null);
    array = QEM_ALLOC_ARRAY(law_data*, static_cast<size_t>(n > 0 ? n : 1));
    int i = n, walked = 0;
    for (const law_data_node* p = this; p && i > 0 && walked < max_nodes; p = p->next, ++walked)
        if (p->data || with_null) array[--i] = p->data;
    return n;
}

// ============================================================== path_law_data

namespace {

// Five-point Gauss-Legendre nodes and weights on [-1, 1].
constexpr double gl_node[5] = {0.0, 0.5384693101056831, -0.5384693101056831, 0.9061798459386640,
                               -0.9061798459386640};
constexpr double gl_weight[5] = {0.5688888888888889, 0.4786286704993665, 0.4786286704993665,
                                 0.2369268850561891, 0.2369268850561891};

double speed(const path_law_data& p, double t) {
    const QEM::vector d = p.eval(t, 1, 0);
    return std::sqrt(d % d);
}

double gauss_length(const path_law_data& p, double a, double b) {
    const double mid = 0.5 * (a + b), half = 0.5 * (b - a);
    double sum = 0.0;
    for (int i = 0; i < 5; ++i) sum += gl_weight[i] * speed(p, mid + half * gl_node[i]);
    return sum * half;
}

// Halves a panel until the halves agree with the whole: the speed of a smooth curve is
// smooth, so a five-point rule converges fast away from kinks and cusps.
double adaptive_length(const path_law_data& p, double a, double b, double whole, double tol,
                       int depth) {
    const double mid = 0.5 * (a + b);
    const double left = gauss_length(p, a, mid), right = gauss_length(p, mid, b);
    if (depth <= 0 || std::fabs(left + right - whole) <= tol) return left + right;
    return adaptive_length(p, a, mid, left, 0.5 * tol, depth - 1) +
           adaptive_length(p, mid, b, right, 0.5 * tol, depth - 1);
}

double clamp_to(double t, double lo, double hi) {
    if (lo <= hi) return std::min(std::max(t, lo), hi);
    return t;  // an unset range restricts nothing
}

}  // namespace

QEM::vector path_law_data::curvature(double t) const {
    const QEM::vector d1 = eval(t, 1, 0), d2 = eval(t, 2, 0);
    const double s2 = d1 % d1;
    if (s2 <= 0.0) return QEM::vector(0, 0, 0);
    // k = (d1 x d2) x d1 / |d1|^4: the part of d2 across the tangent, over the speed squared.
    return ((d1 * d2) * d1) / (s2 * s2);
}

int path_law_data::singularities(double** where, int** kind, double, double) const {
    if (where) *where = nullptr;
    if (kind) *kind = nullptr;
    return 0;
}

double path_law_data::length(double from, double to) const {
    if (from == to) return 0.0;
    const double whole = gauss_length(*this, from, to);
    return adaptive_length(*this, from, to, whole, 1e-12 * (1.0 + std::fabs(whole)), 30);
}

double path_law_data::length_param(double base, double len) const {
    // Newton on length(base, t) - len, whose derivative is the speed.
    const double s0 = speed(*this, base);
    double t = base + (s0 > 0.0 ? len / s0 : 0.0);
    for (int i = 0; i < 50; ++i) {
        const double f = length(base, t) - len;
        const double s = speed(*this, t);
        if (s <= 0.0) break;
        const double step = f / s;
        t -= step;
        if (std::fabs(step) <= 1e-14 * (1.0 + std::fabs(t))) break;
    }
    return t;
}

double path_law_data::point_perp(const QEM::position& p, double guess) const {
    // Newton on g(t) = (c(t) - p) . c'(t), g' = c' . c' + (c - p) . c''.
    double t = clamp_to(guess, start_, end_);
    for (int i = 0; i < 50; ++i) {
        const QEM::vector off = eval(t, 0, 0) - QEM::vector(p.x(), p.y(), p.z());
        const QEM::vector d1 = eval(t, 1, 0), d2 = eval(t, 2, 0);
        const double g = off % d1, dg = d1 % d1 + off % d2;
        if (dg == 0.0) break;
        const double next = clamp_to(t - g / dg, start_, end_);
        const double step = next - t;
        t = next;
        if (std::fabs(step) <= 1e-14 * (1.0 + std::fabs(t))) break;
    }
    return t;
}

double path_law_data::point_perp(const QEM::position& p) const {
    const bool bounded = std::isfinite(start_) && std::isfinite(end_) && start_ < end_;
    if (!bounded) return point_perp(p, std::isfinite(start_) ? start_ : 0.0);
    constexpr int samples = 32;
    const QEM::vector target(p.x(), p.y(), p.z());
    double best_t = start_, best_d = HUGE_VAL;
    for (int i = 0; i <= samples; ++i) {
        const double t = start_ + (end_ - start_) * i / samples;
        const QEM::vector off = eval(t, 0, 0) - target;
        if (off % off < best_d) {
            best_d = off % off;
            best_t = t;
        }
    }
    return point_perp(p, best_t);
}

int path_law_data::periodic() const {
    return 0;
}

int path_law_data::evaluate(double, QEM::position&, QEM::vector**, int, int) const {
    sys_error(LAW_EVAL);
}

int path_law_data::discontinuities(double**, int**, double, double) const {
    sys_error(LAW_EVAL);
}

// ============================================================== surfaces, patterns, splines

QEM::vector base_surface_law_data::eval(double, double, int, int) const {
    sys_error(LAW_EVAL);
}
QEM::interval base_surface_law_data::u_range() const {
    return QEM::interval(QEM::interval_infinite);
}
QEM::interval base_surface_law_data::v_range() const {
    return QEM::interval(QEM::interval_infinite);
}

int base_pattern_law_data::size() const {
    return 0;
}
QEM::transf base_pattern_law_data::get_transf(int) const {
    sys_error(LAW_EVAL);
}

int base_spline_law_data::return_size() const {
    return 1;
}
void base_spline_law_data::eval(double, double*, int) const {
    sys_error(LAW_EVAL);
}
int base_spline_law_data::singularities(double** where, int** kind, double, double) const {
    if (where) *where = nullptr;
    if (kind) *kind = nullptr;
    return 0;
}
law_data* base_spline_law_data::deep_copy(pointer_map*) const {
    return new base_spline_law_data(min_, max_);
}

// ============================================================== transforms and grids

base_transform_law_data::base_transform_law_data(const QEM::transf* t)
    : trans_(t ? *t : QEM::transf()) {
    try {
        inverse_ = trans_.inverse();
    } catch (...) {
        set_use_count(0);  // nothing was handed out: destroy quietly
        throw;
    }
}

base_position_array_law_data::base_position_array_law_data(const QEM::position* points,
                                                           const int* dims, int n)
    : points_(nullptr), dims_(nullptr), ndims_(n > 0 && dims ? n : 0) {
    dims_ = QEM_ALLOC_ARRAY(int, static_cast<size_t>(ndims_ > 0 ? ndims_ : 1));
    for (int i = 0; i < ndims_; ++i) dims_[i] = dims[i];
    const int count = get_data_size();
    points_ = QEM_ALLOC_ARRAY(QEM::position, static_cast<size_t>(count > 0 ? count : 1));
    for (int i = 0; i < count; ++i) points_[i] = points ? points[i] : QEM::position();
}

base_position_array_law_data::~base_position_array_law_data() noexcept(false) {
    vorn_discard(points_);
    vorn_discard(dims_);
}

int base_position_array_law_data::get_data_size() const {
    int size = 1;
    for (int i = 0; i < ndims_; ++i) size *= dims_[i];
    return size;
}

void base_position_array_law_data::index_to_xyz(int i, int& x, int& y, int& z) const {
    x = y = z = 0;
    if (ndims_ != 3) return;
    const int plane = dims_[0] * dims_[1];
    if (plane <= 0 || dims_[0] <= 0) return;
    z = i / plane;
    const int r = i % plane;
    y = r / dims_[0];
    x = r % dims_[0];
}

void base_position_array_law_data::reset_point(int i) {
    if (ndims_ != 3 || i < 0 || i >= get_data_size()) return;
    int xyz[3];
    index_to_xyz(i, xyz[0], xyz[1], xyz[2]);
    // A flat direction sits at 1 rather than 0, so a one-point grid is the cube's far corner.
    for (int k = 0; k < 3; ++k)
        points_[i][k] = dims_[k] == 1 ? 1.0 : static_cast<double>(xyz[k]) / (dims_[k] - 1);
}

void base_position_array_law_data::calc_movement_ratios(int* moved, int n, double radius,
                                                        double* ratios) {
    const int count = get_data_size();
    for (int k = 0; k < count; ++k) {
        double nearest = HUGE_VAL;
        for (int m = 0; m < n; ++m) nearest = std::min(nearest, Distance(k, moved[m]));
        if (nearest == 0.0) {
            ratios[k] = 1.0;
        } else if (radius > 0.0 && nearest < radius) {
            // Smooth fall-off: value 1 and slope 0 at the moved point, 0 with slope 0 at
            // the radius, so a dragged grid has no crease.
            const double q = 1.0 - (nearest / radius) * (nearest / radius);
            ratios[k] = q * q;
        } else {
            ratios[k] = 0.0;
        }
    }
    for (int m = 0; m < n; ++m) ratios[moved[m]] = 1.0;
}

void base_position_array_law_data::update_point(int* moved, int n, const QEM::vector& move,
                                                double radius) {
    const int count = get_data_size();
    QEM::scoped_heap_array<double> ratios(QEM_ALLOC_ARRAY(double, static_cast<size_t>(count)));
    calc_movement_ratios(moved, n, radius, ratios.get());
    for (int k = 0; k < count; ++k) points_[k] += move * ratios[static_cast<size_t>(k)];
}

double base_position_array_law_data::Distance(int i, int j) {
    const QEM::vector d = points_[i] - points_[j];
    return std::sqrt(d % d);
}

void base_position_array_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    size.add(sizeof(int) * static_cast<size_t>(ndims_) +
             sizeof(QEM::position) * static_cast<size_t>(get_data_size()));
}

// ============================================================== law_law_data

law_law_data::law_law_data(law* held) : law_(held) {
    law::add(law_);
}

law_law_data::~law_law_data() noexcept(false) {
    law::remove(law_);
}

int law_law_data::date() const {
    return law_ ? law_->date() : law_data::date();
}

law_data* law_law_data::deep_copy(pointer_map* pm) const {
    law_ref copy = law_ref::adopt(pm_get_law(pm, law_));
    return new law_law_data(copy.get());
}

law_data* law_law_data::set_domain(QEM::interval* domain) {
    law_ref restricted = law_ref::adopt(law_ ? law_->set_domain(domain, 0) : nullptr);
    return new law_law_data(restricted.get());
}

void law_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(law_law_data));
    if (law_) law_->full_size(size, 1);
}

int law_law_data::operator==(const law_data& other) const {
    if (other.type() != law_law_data_id) return 0;
    const law* mine = law_;
    const law* theirs = static_cast<const law_law_data&>(other).law_;
    if (mine == theirs) return 1;
    return mine && theirs && *mine == *theirs;
}

// ============================================================== law's data helpers

int law::check_data_type(const law_data* d, int type_id) {
    return d != nullptr && d->type() == type_id;
}

LAW_REGISTER_DATA_PROTOTYPE(base_spline_law_data)
