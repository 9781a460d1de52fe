#include <lawutil/sweep_data_law.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <lawutil/internal/data_law_util.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/law_tree.h>
#include <lawutil/internal/path_eval_cache.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_data_geom.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_registry.h>
#include <lawutil/sweep_law.h>
#include <qem/tolerance.h>

using QEM::vector;
using namespace law_tree;
using law_internal::data_uses;

namespace {

const law* held(law_data* d) {
    return d && d->type() == law_law_data_id ? static_cast<const law_law_data*>(d)->data_law()
                                             : nullptr;
}

template <class T>
const T* as(const law_data* d, int type_id) {
    return d && d->type() == type_id ? static_cast<const T*>(d) : nullptr;
}

// A law datum's law has the shape asked (count of values, at most `takes` inputs).
bool law_datum_is(law_data* d, int values, int takes = 65536) {
    const law* l = held(d);
    return l && l->return_dim() == values && l->take_dim() <= takes;
}

// A data law over `d` and law data holding the constants in `orders` (DCUR, DSURF).
template <class T>
law_ref with_orders(law_data* d, std::initializer_list<double> orders) {
    data_uses uses;
    uses.d[0] = d;
    d->add();
    int n = 1;
    for (double o : orders) uses.d[n++] = new law_law_data(K(o).get());
    return make_law<T>(uses.d, n);
}

// unit(v - t (t . v)) for a unit t: v with its part along t removed.
law_ref across(const law_ref& t, const law_ref& v) {
    return node<norm_law>(sub(v, mul(t, dot(t, v))));
}

vector unit(const vector& v) {
    const double n = v.len();
    return n == 0.0 ? vector() : v / n;
}

void write3(const vector& v, double* answer) {
    for (int i = 0; i < 3; ++i) answer[i] = v[i];
}

int waived_or_toxic(bool ok_types, bool ok_shapes) {
    if (ok_types && (law_restore_waived() || ok_shapes)) return 1;
    toxic_law_error();
    return 0;
}

}  // namespace

// ============================================================== MTRAIL

namespace {

// The start of the rail's frame: the principal normal at a, or across a straight start
// the axis least aligned with the tangent with its tangential part removed.
vector rail_start(const path_law_data* c) {
    const double a = c->data_start();
    const vector d1 = law_internal::cached_path_eval(c, a, 1, 1);
    const vector d2 = law_internal::cached_path_eval(c, a, 2, 1);
    if (d1.len() == 0.0) sys_error(LAW_MR);
    const vector bend = d1 * d2;
    if (bend.len() > 1e-13 * d1.len() * d2.len()) return unit(bend * d1);
    const vector t = unit(d1);
    int k = 0;
    for (int i = 1; i < 3; ++i)
        if (std::fabs(t[i]) < std::fabs(t[k])) k = i;
    vector axis;
    axis[k] = 1.0;
    return unit(axis - t * (t % axis));
}

law_ref rail_frame(law_data* datum) {
    const auto* c = as<path_law_data>(datum, base_curve_law_data_id);
    if (!c) return {};
    const vector v0 = rail_start(c);
    law_ref path = make_law<curve_law>(datum);
    law_ref start = vec3(v0.x(), v0.y(), v0.z());
    law* parts[2] = {path.get(), start.get()};
    return make_law<min_rotation_law>(parts, 2, 0);
}

}  // namespace

// The frame is built before the law, so that a curve refused by MINROT leaves nothing.
minrot_rail_law::minrot_rail_law(law_data* datum)
    : minrot_rail_law(rail_frame(datum).release(), datum) {}

minrot_rail_law::minrot_rail_law(law* frame, law_data* datum)
    : unary_data_law(datum), frame_(frame) {}

minrot_rail_law::~minrot_rail_law() noexcept(false) {
    remove(frame_);
}

int minrot_rail_law::check(law_data* datum) {
    return waived_or_toxic(check_data_type(datum, base_curve_law_data_id), true);
}

law* minrot_rail_law::make_one(law_data* datum) const {
    return check(datum) ? new minrot_rail_law(datum) : nullptr;
}

void minrot_rail_law::evaluate(const double* x, double* answer) const {
    if (!frame_) sys_error(LAW_EVAL);
    frame_->evaluate(x, answer);
}

int minrot_rail_law::term_domain(int which, QEM::interval& domain) const {
    return frame_ ? frame_->term_domain(which, domain) : law::term_domain(which, domain);
}

law* minrot_rail_law::deriv(int which) const {
    return frame_ ? frame_->derivative(which) : nullptr;
}

// ============================================================== formula laws

formula_data_law::formula_data_law(law_data** data, int size, law* formula)
    : multiple_data_law(data, size), formula_(formula) {}

formula_data_law::formula_data_law(const formula_data_law& other)
    : multiple_data_law(other), formula_(other.formula_) {
    add(formula_);
}

formula_data_law::~formula_data_law() noexcept(false) {
    remove(formula_);
}

void formula_data_law::evaluate(const double* x, double* answer) const {
    if (!formula_) sys_error(LAW_EVAL);
    formula_->evaluate(x, answer);
}

int formula_data_law::term_domain(int which, QEM::interval& domain) const {
    return formula_ ? formula_->term_domain(which, domain) : law::term_domain(which, domain);
}

law* formula_data_law::deriv(int which) const {
    return formula_ ? formula_->derivative(which) : nullptr;
}

int formula_data_law::take_size() const {
    return formula_ ? formula_->take_dim() : 1;
}

namespace {

// T = unit(C'), w = unit(V - T (T.V)), out = w cos A + (T x w) sin A.
law_ref curveperp_formula(law_data** data, int size) {
    if (!data || size < 2 || !as<path_law_data>(data[0], base_curve_law_data_id)) return {};
    const law* v = held(data[1]);
    const law* angle = size > 2 ? held(data[2]) : nullptr;
    if (!v || (size > 2 && !angle)) return {};
    law_ref t = node<norm_law>(with_orders<dcurve_law>(data[0], {1.0}));
    law_ref w = across(t, law_ref::retain(v));
    if (!angle) return w;
    law_ref a = law_ref::retain(angle);
    return add(mul(w, node<cos_law>(a)), mul(cross(t, w), node<sin_law>(a)));
}

// N = unit(Su x Sv), read at UV(x) when given; out = unit(V - N (N.V)).
law_ref surfperp_formula(law_data** data, int size) {
    if (!data || size < 2 || !as<base_surface_law_data>(data[0], base_surface_law_data_id))
        return {};
    const law* v = held(data[1]);
    const law* uv = size > 2 ? held(data[2]) : nullptr;
    if (!v || (size > 2 && !uv)) return {};
    law_ref su = with_orders<dsurface_law>(data[0], {1.0, 0.0});
    law_ref sv = with_orders<dsurface_law>(data[0], {0.0, 1.0});
    law_ref n = node<norm_law>(cross(su, sv));
    if (uv) {
        data_uses parts;
        parts.d[0] = new law_law_data(n.get());
        parts.d[1] = new law_law_data(const_cast<law*>(uv));
        n = make_law<map_law>(parts.d, 2);
    }
    return across(n, law_ref::retain(v));
}

}  // namespace

curveperp_law::curveperp_law(law_data** data, int size)
    : formula_data_law(data, size, curveperp_formula(data, size).release()) {}

int curveperp_law::check(law_data** data, int size) {
    const bool types = data && (size == 2 || size == 3) &&
                       check_data_type(data[0], base_curve_law_data_id) &&
                       check_data_type(data[1], law_law_data_id) &&
                       (size == 2 || check_data_type(data[2], law_law_data_id));
    return waived_or_toxic(
        types, types && law_datum_is(data[1], 3) && (size == 2 || law_datum_is(data[2], 1)));
}

law* curveperp_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new curveperp_law(data, size) : nullptr;
}

surfperp_law::surfperp_law(law_data** data, int size)
    : formula_data_law(data, size, surfperp_formula(data, size).release()) {}

int surfperp_law::check(law_data** data, int size) {
    const bool types = data && (size == 2 || size == 3) &&
                       check_data_type(data[0], base_surface_law_data_id) &&
                       check_data_type(data[1], law_law_data_id) &&
                       (size == 2 || check_data_type(data[2], law_law_data_id));
    return waived_or_toxic(
        types, types && law_datum_is(data[1], 3) && (size == 2 || law_datum_is(data[2], 2)));
}

law* surfperp_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new surfperp_law(data, size) : nullptr;
}

// ============================================================== ROTATE

rotate_law::rotate_law(law_data** data, int size)
    : multiple_data_law(data, size),
      inner_(size == 2 && data ? held(data[0]) : nullptr),
      trans_(data && size >= 1 && size <= 2
                 ? as<base_transform_law_data>(data[size - 1], base_transform_law_data_id)
                 : nullptr) {}

int rotate_law::check(law_data** data, int size) {
    const bool types = data && (size == 1 || size == 2) &&
                       check_data_type(data[size - 1], base_transform_law_data_id) &&
                       (size == 1 || check_data_type(data[0], law_law_data_id));
    const law* f = types && size == 2 ? held(data[0]) : nullptr;
    return waived_or_toxic(types, size == 1 || (f && f->return_dim() < 4));
}

law* rotate_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new rotate_law(data, size) : nullptr;
}

void rotate_law::evaluate(const double* x, double* answer) const {
    if (!trans_ || (data_count_ == 2 && !inner_)) sys_error(LAW_EVAL);
    if (!inner_) return write3(trans_->rotate(vector(x[0], x[1], x[2])), answer);
    const int n = inner_->return_dim();
    law_internal::value_buffer f(std::max(3, n));
    inner_->evaluate(x, f.data());
    for (int i = n; i < 3; ++i) f[i] = 0.0;
    write3(trans_->rotate(vector(f[0], f[1], f[2])), answer);
}

int rotate_law::take_size() const {
    return inner_ ? inner_->take_dim() : 3;
}

// Turning is linear: the derivative turns the derivative, and turns the axes.
law* rotate_law::deriv(int which) const {
    if (!trans_) return nullptr;
    if (!inner_) {
        vector axis;
        if (which >= 0 && which < 3) axis[which] = 1.0;
        const vector turned = trans_->rotate(axis);
        return vec3(turned.x(), turned.y(), turned.z()).release();
    }
    law_ref d = law_ref::adopt(inner_->derivative(which));
    data_uses two;
    two.d[0] = new law_law_data(d.get());
    two.d[1] = data_[1];
    data_[1]->add();
    return new rotate_law(two.d, 2);
}

// ============================================================== LENGTH_PARAM

length_param_law::length_param_law(law_data** data, int size)
    : multiple_data_law(data, size),
      curve_(size == 3 && data ? as<path_law_data>(data[0], base_curve_law_data_id) : nullptr),
      base_(size == 3 ? held_law(1) : nullptr),
      length_(size == 3 ? held_law(2) : nullptr) {}

int length_param_law::check(law_data** data, int size) {
    const bool types = data && size == 3 && check_data_type(data[0], base_curve_law_data_id) &&
                       check_data_type(data[1], law_law_data_id) &&
                       check_data_type(data[2], law_law_data_id);
    return waived_or_toxic(types,
                           types && law_datum_is(data[1], 1, 1) && law_datum_is(data[2], 1, 1));
}

law* length_param_law::make_one(law_data** data, int size) const {
    return check(data, size) ? new length_param_law(data, size) : nullptr;
}

void length_param_law::evaluate(const double* x, double* answer) const {
    if (!curve_ || !base_ || !length_) sys_error(LAW_EVAL);
    const double t = curve_->length_param(base_->evaluate_scalar(x), length_->evaluate_scalar(x));
    write3(law_internal::cached_path_eval(curve_, t, 0, 0), answer);
}

// ============================================================== MULTI_CUR

namespace {

// The pieces' domains, raising LAW_MULTI_CURVE_DOM before anything is built when one is
// not finite or a piece does not start where the one before ends.
law** joined_pieces(law** subs, int size) {
    if (!subs) return subs;
    if (size < 1) sys_error(LAW_MULTI_CURVE_DOM);
    double end = 0.0;
    for (int i = 0; i < size; ++i) {
        QEM::interval dom;
        if (!subs[i] || !subs[i]->term_domain(0, dom) || !dom.finite())
            sys_error(LAW_MULTI_CURVE_DOM);
        if (i > 0 && std::fabs(dom.start_pt() - end) > QEM::get_resabs())
            sys_error(LAW_MULTI_CURVE_DOM);
        end = dom.end_pt();
    }
    return subs;
}

double* piece_breaks(law** subs, int size) {
    if (!subs) return nullptr;
    double* breaks = QEM_ALLOC_ARRAY(double, static_cast<size_t>(size + 1));
    for (int i = 0; i < size; ++i) {
        QEM::interval dom;
        subs[i]->term_domain(0, dom);
        breaks[i] = dom.start_pt();
        breaks[i + 1] = dom.end_pt();
    }
    return breaks;
}

}  // namespace

multiple_curve_law::multiple_curve_law(law** subs, int size)
    : multiple_law(joined_pieces(subs, size), size), breaks_(piece_breaks(subs, size)) {}

multiple_curve_law::~multiple_curve_law() noexcept(false) {
    vorn_discard(breaks_);
}

int multiple_curve_law::check(law** subs, int size) {
    if (law_restore_waived() || !subs) return 1;
    for (int i = 0; i < size; ++i)
        if (!subs[i] || subs[i]->return_dim() != subs[0]->return_dim()) {
            toxic_law_error();
            return 0;
        }
    return 1;
}

law* multiple_curve_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new multiple_curve_law(subs, size);
}

int multiple_curve_law::segment(double x) const {
    // The last piece whose start is at or below x: the later piece at a joint.
    const double* hit = std::upper_bound(breaks_ + 1, breaks_ + law_count_, x);
    return static_cast<int>(hit - (breaks_ + 1));
}

void multiple_curve_law::evaluate(const double* x, double* answer) const {
    if (!breaks_) sys_error(LAW_EVAL);
    const law* piece = sub_laws_[segment(x[0])];
    const int n = piece->take_dim();
    if (n <= 1) return piece->evaluate(x, answer);
    // A piece restricted with DOMAIN may take more inputs than it reads; it reads x only.
    law_internal::value_buffer at(n);
    for (int i = 0; i < n; ++i) at[i] = i == 0 ? x[0] : 0.0;
    piece->evaluate(at.data(), answer);
}

int multiple_curve_law::term_domain(int which, QEM::interval& domain) const {
    if (!breaks_ || which != 0) return law::term_domain(which, domain);
    domain = QEM::interval(breaks_[0], breaks_[law_count_]);
    return 1;
}

law* multiple_curve_law::deriv(int which) const {
    if (!breaks_) return nullptr;
    if (which != 0) return new constant_law(0.0);
    // Each piece's derivative keeps the piece's stretch (PDOMAIN survives simplifying).
    std::vector<law_ref> pieces;
    std::vector<law*> parts;
    for (int i = 0; i < law_count_; ++i) {
        law_ref d = law_ref::adopt(sub_laws_[i]->derivative(0));
        pieces.push_back(
            many<permanent_domain_law>({d.get(), K(breaks_[i]).get(), K(breaks_[i + 1]).get()}));
        parts.push_back(pieces.back().get());
    }
    return new multiple_curve_law(parts.data(), law_count_);
}

// ============================================================== MULTI_CURVEPERP

namespace {

law_ref curveperp_over(law** subs, int size) {
    if (!subs || size != 2 || !subs[0] || !subs[1] || !subs[0]->isa(multiple_curve_law_id))
        return {};
    law_ref t = node<norm_law>(d(subs[0], 0));
    return across(t, law_ref::retain(subs[1]));
}

}  // namespace

multiple_curveperp_law::multiple_curveperp_law(law** subs, int size)
    : multiple_law(subs, size), formula_(curveperp_over(subs, size).release()) {}

multiple_curveperp_law::~multiple_curveperp_law() noexcept(false) {
    remove(formula_);
}

int multiple_curveperp_law::check(law** subs, int size) {
    if (law_restore_waived() || !subs) return 1;
    if (size == 2 && subs[0] && subs[1] && subs[0]->isa(multiple_curve_law_id) &&
        check_return_dim(subs[1], 3))
        return 1;
    toxic_law_error();
    return 0;
}

law* multiple_curveperp_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new multiple_curveperp_law(subs, size);
}

const multiple_curve_law* multiple_curveperp_law::get_mc_law() const {
    return law_count_ >= 1 && sub_laws_[0] && sub_laws_[0]->isa(multiple_curve_law_id)
               ? static_cast<const multiple_curve_law*>(sub_laws_[0])
               : nullptr;
}

void multiple_curveperp_law::evaluate(const double* x, double* answer) const {
    if (!formula_) sys_error(LAW_EVAL);
    formula_->evaluate(x, answer);
}

law* multiple_curveperp_law::deriv(int which) const {
    return formula_ ? formula_->derivative(which) : nullptr;
}

LAW_REGISTER_PROTOTYPE(minrot_rail_law, nullptr)
LAW_REGISTER_PROTOTYPE(curveperp_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(surfperp_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(rotate_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(length_param_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(multiple_curve_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(multiple_curveperp_law, nullptr, 0)
