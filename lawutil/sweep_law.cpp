#include <lawutil/sweep_law.h>

#include <algorithm>
#include <cmath>
#include <string>

#include <lawutil/internal/fast_eval.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/law_tree.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>
#include <lawutil/law_unary.h>
#include <qem/options.h>

using QEM::vector;

namespace {

QEM::option_header min_rot_samples(min_rot_samples_option_name, 1000);
QEM::option_header min_rot_method_option(min_rot_method_option_name, 0);

// cos(1 degree) to ten places: the refined step may move the plain result no further.
constexpr double one_degree_cosine = 0.9998476952;
// Below this the refinement's turn has no component about the chord to speak of.
constexpr double refine_guard = 1e-12;
// A vector this close to the tangent (relative) has no direction left across it.
constexpr double parallel_tolerance = 1e-12;

vector unit(const vector& v) {
    const double n = v.len();
    return n == 0.0 ? vector() : v / n;
}

// The first three values of a law that should return three; a longer answer (a part of
// the wrong size, already reported as toxic) must not overrun the caller's array.
vector read3(const law* l, const double* x) {
    law_internal::value_buffer out(std::max(3, l->return_dim()));
    l->evaluate(x, out.data());
    return vector(out[0], out[1], out[2]);
}

vector read3_at(const law* l, double t) {
    return read3(l, &t);
}

// A constant-like part: its first value at the point whose coordinates are all `at`.
double value_at(const law* l, double at) {
    return l->eval(at);
}

vector read3_at_point(const law* l, double at) {
    const int n = std::max(1, l->take_dim());
    law_internal::value_buffer x(n);
    for (int i = 0; i < n; ++i) x[i] = at;
    return read3(l, x.data());
}

bool any_missing(law** subs, int size) {
    for (int i = 0; i < size; ++i)
        if (!subs[i] || subs[i]->incomplete()) return true;
    return false;
}

// Rodrigues: the rotation about k that carries the unit vector `from` onto `to`, applied to
// v.  With k = from x to (|k| = sin, from . to = cos):
//     R v = v cos + k x v + k (k . v)(1 - cos) / |k|^2.
vector rotate_onto(const vector& from, const vector& to, const vector& v) {
    const vector k = from * to;
    const double c = from % to;
    return v * c + k * v + k * ((k % v) * (1.0 - c) / k.len_sq());
}

// One step along the path: from v at t0 to t1.  The path's points and tangents come from
// `at(law, end)` (end 0 is t0, 1 is t1), read only when the step needs them.
struct stepper {
    const law* path;
    const law* tangent;
    int alt;
    int method = 0;  // 1: double reflection
    // Double reflection from a stored sample after the first: the tangent there is kept
    // of unit length and v is a unit vector across it, so neither needs making so again.
    bool from_unit_sample = false;

    vector operator()(const vector& v, double t0, double t1) const {
        return step(v, [&](const law* l, int end) { return read3_at(l, end ? t1 : t0); });
    }

    template <class At>
    vector step(const vector& v, const At& at) const {
        const vector T1 = at(tangent, 1);
        if (T1.len_sq() == 0.0) return v;  // a stationary point: nothing to turn away from
        if (method == 1) return reflected(v, T1, at);
        // r = (T1 x v) x T1 normalised: v without its part along the new tangent.
        const vector w = (T1 * v) * T1;
        const double wn = w.len();
        if (!(wn > parallel_tolerance * T1.len_sq() * v.len())) sys_error(LAW_MR);
        const vector r = w / wn;
        return alt ? refined(v, r, T1, at) : r;
    }

    // Double reflection (Wang, Juttler, Zheng and Liu): reflect v and the tangent t0 in the
    // plane normal to the chord c = P1 - P0, then reflect in the plane normal to
    // t1 - t0', which carries the reflected tangent onto t1:
    //     v' = v - 2 (c . v)/(c . c) c,   t0' likewise,   r = v' - 2 (e . v')/(e . e) e,
    // with e = t1 - t0'.  Over many steps its error is of the fourth order in the step,
    // where the projection's is of the first.  From any other vector than a stored sample
    // the result is then made orthogonal to t1 and of unit length, as the plain step's is.
    template <class At>
    vector reflected(const vector& v, const vector& T1, const At& at) const {
        const vector c = at(path, 1) - at(path, 0);
        const double cc = c % c, s1 = std::sqrt(T1 % T1);
        // One division for both 1/|T1| and 1/(c . c): the step is on the hot path.
        const double q = 1.0 / (cc > 0.0 ? s1 * cc : s1);
        const vector t1 = T1 * (cc > 0.0 ? q * cc : q);
        vector r = v, t0 = at(tangent, 0);
        const double t0n = t0 % t0;
        if (!from_unit_sample && t0n > 0.0) t0 = t0 * (1.0 / std::sqrt(t0n));
        if (cc > 0.0) {
            const double k = 2.0 * q * s1;
            r = r - c * (k * (c % r));
            t0 = t0 - c * (k * (c % t0));
        }
        const vector e = t1 - t0;
        const double ee = e % e;
        if (ee > 0.0) r = r - e * (2.0 * (e % r) / ee);
        // Both reflections keep lengths and angles: r is already a unit vector across t1.
        if (from_unit_sample) return r;
        const vector w = r - t1 * (t1 % r);
        const double wn2 = w % w;
        if (!(wn2 > parallel_tolerance * parallel_tolerance * (v % v))) sys_error(LAW_MR);
        return w * (1.0 / std::sqrt(wn2));
    }

    // In the frame a = d x b, d the unit chord, b = v x d normalised: the rotation that
    // carries T0 onto T1 there, applied to v, turned back to world axes.
    template <class At>
    vector refined(const vector& v, const vector& r, const vector& T1, const At& at) const {
        const vector d = unit(at(path, 1) - at(path, 0));
        const vector b = unit(v * d);
        if (d.len_sq() == 0.0 || b.len_sq() == 0.0) return r;  // no local frame
        const vector a = d * b;
        const vector T0 = at(tangent, 0);
        const vector T0l = unit(vector(T0 % a, T0 % d, T0 % b));
        const vector T1l = unit(vector(T1 % a, T1 % d, T1 % b));
        if (!(std::fabs(T1l.z() * T0l.x() - T1l.x() * T0l.z()) > refine_guard)) return r;
        const vector ql = rotate_onto(T0l, T1l, vector(v % a, v % d, v % b));
        const vector q = unit(a * ql.x() + d * ql.y() + b * ql.z());
        return q % r >= one_degree_cosine ? q : r;
    }
};

// The path's point and tangent stored at a sample (three doubles each), for a step that
// starts there.
vector node_value(const double* node, bool tangent) {
    const double* p = node + (tangent ? 3 : 0);
    return vector(p[0], p[1], p[2]);
}

// One step by the tree from v at t0 to t1; the path's values at t0 come from `node` when
// the law keeps them.
vector step_tree(const stepper& st, const vector& v, double t0, double t1, const double* node) {
    if (!node) return st(v, t0, t1);
    return st.step(v, [&](const law* l, int end) {
        return end ? read3_at(l, t1) : node_value(node, l == st.tangent);
    });
}

// t_i = s + i/(N - 1) (e - s), written the same way wherever a sample parameter is needed
// so that construction and evaluation agree to the last bit.
double sample_parameter(int i, int n, double s, double e) {
    return n == 1 ? s : s + static_cast<double>(i) / (n - 1) * (e - s);
}

// The stored sample at or below x: the integer part of (x - s)/h, clamped to 0 ... N - 1.
int sample_below(double x, int n, double s, double e) {
    if (n == 1) return 0;
    const double q = (x - s) / ((e - s) / (n - 1));
    if (!(q > 0.0)) return 0;
    if (q >= n - 1) return n - 1;
    return static_cast<int>(q);
}

}  // namespace

// ============================================================== MINROT

// What a MINROT is made of, prepared before the object exists so that an error raised on
// the way (a count, a path that cannot be evaluated) leaves nothing half-built.
struct min_rotation_law::build {
    law_ref parts[4];
    law* raw[4] = {nullptr, nullptr, nullptr, nullptr};
    int count = 0;
    law_ref tangent;
    QEM::scoped_heap_array<double> samples;
    QEM::scoped_heap_array<double> nodes;  // double reflection: P and P' at each sample
    int n = 0;
    int alt = 0;     // the step the samples were made by
    int method = 0;  // 1: double reflection

    build(law** subs, int size, int samples_wanted, int alt_step, int method_wanted)
        : alt(alt_step), method(method_wanted == 1 ? 1 : 0) {
        if (!subs || size <= 0) return;  // the parser's prototype
        if (size != 2 && size != 4) sys_error(LAW_MR_NUM);
        count = size;
        for (int i = 0; i < size; ++i) parts[i] = law_ref::retain(subs[i]);
        fill_raw();
        if (any_missing(subs, size)) return;  // prints; raises when evaluated
        if (size == 2) {
            QEM::interval domain;
            parts[0]->term_domain(0, domain);
            if (!domain.finite()) sys_error(LAW_MR_NUM);
            parts[2] = make_law<constant_law>(domain.start_pt());
            parts[3] = make_law<constant_law>(domain.end_pt());
            count = 4;
            fill_raw();
        }
        tangent = law_ref::adopt(parts[0]->derivative(0));
        n = samples_wanted >= 1 ? samples_wanted : min_rot_samples.count();
        samples.reset(QEM_ALLOC_ARRAY(double, 3 * static_cast<size_t>(n)));
        propagate(raw, tangent.get(), alt, method, n, samples.get());
        if (method == 1) nodes.reset(make_nodes(raw, tangent.get(), n));
    }

    // Double reflection reads the path's point and tangent at both ends of a step: those
    // at the samples are kept (the tangent made of unit length), so that an evaluation
    // reads the path only at x, as the plain step does.
    static double* make_nodes(law* const* parts, const law* tangent, int n) {
        QEM::scoped_heap_array<double> out(QEM_ALLOC_ARRAY(double, 6 * static_cast<size_t>(n)));
        const double s = value_at(parts[2], 1.0), e = value_at(parts[3], 1.0);
        for (int i = 0; i < n; ++i) {
            const double t = sample_parameter(i, n, s, e);
            const vector p = read3_at(parts[0], t), d = unit(read3_at(tangent, t));
            for (int c = 0; c < 3; ++c) {
                out.get()[6 * i + c] = p[c];
                out.get()[6 * i + 3 + c] = d[c];
            }
        }
        return out.release();
    }

    void fill_raw() {
        for (int i = 0; i < count; ++i) raw[i] = parts[i].get();
    }

    // samples[0] = V; samples[i] = step(samples[i - 1], t(i - 1), t(i)).
    static void propagate(law* const* parts, const law* tangent, int alt, int method, int n,
                          double* out) {
        vector v = read3_at_point(parts[1], 0.0);
        const double s = value_at(parts[2], 1.0);
        const double e = value_at(parts[3], 1.0);
        if (!std::isfinite(s) || !std::isfinite(e) || (n > 1 && s == e)) sys_error(LAW_MR);
        const stepper step{parts[0], tangent, alt, method};
        if (propagate_compiled(step, v, n, s, e, out)) return;
        for (int i = 0; i < n; ++i) {
            if (i > 0) v = step(v, sample_parameter(i - 1, n, s, e), sample_parameter(i, n, s, e));
            for (int c = 0; c < 3; ++c) out[3 * i + c] = v[c];
        }
    }

    // The same steps from the path's points and tangents at every sample parameter,
    // computed beforehand by one compiled program over all of them.  False (nothing
    // written) when compiling does not pay or a parameter raises: the steps then evaluate
    // the laws themselves, which raise where they would.
    static bool propagate_compiled(const stepper& step, vector v, int n, double s, double e,
                                   double* out) {
        // The plain step reads only the tangent.
        const law* laws[2] = {step.tangent, step.path};
        const int nlaws = step.alt || step.method ? 2 : 1;
        for (int k = 0; k < nlaws; ++k)
            if (laws[k]->return_dim() != 3) return false;
        law_internal::line_sampler lines(laws, nlaws, 1);
        if (n < 2 || !lines.ready_for(n)) return false;
        QEM::scoped_heap_array<double> table(QEM_ALLOC_ARRAY(double, 7 * static_cast<size_t>(n)));
        double* ts = table.get();
        double* cols[6];
        for (int j = 0; j < 3 * nlaws; ++j) cols[j] = ts + n * (j + 1);
        for (int i = 0; i < n; ++i) ts[i] = sample_parameter(i, n, s, e);
        const double base = 0.0;
        int done = 0;
        try {
            lines.sample(&base, 0, ts, n, cols, &done);
        } catch (const vorn_exception&) {
            return false;
        }
        int at_i = 0;
        auto at = [&](const law* l, int end) {
            const int k = at_i - 1 + end;
            const double* const* c = cols + (l == step.tangent ? 0 : 3);
            return vector(c[0][k], c[1][k], c[2][k]);
        };
        for (int i = 0; i < n; ++i) {
            at_i = i;
            if (i > 0) v = step.step(v, at);
            for (int c = 0; c < 3; ++c) out[3 * i + c] = v[c];
        }
        return true;
    }
};

min_rotation_law::min_rotation_law(law** subs, int size, int samples)
    : min_rotation_law(build(subs, size, samples, 0, min_rot_method_option.count()), false) {}

min_rotation_law::min_rotation_law(build&& b, bool rate_from_steps)
    : multiple_law(b.count ? b.raw : nullptr, b.count),
      alt_eval_(b.alt),
      method_(b.method),
      sample_count_(b.n),
      samples_(b.samples.release()),
      nodes_(b.nodes.release()),
      rate_from_steps_(rate_from_steps) {
    tangent_ = b.tangent.release();
    compile_steps();
}

min_rotation_law::~min_rotation_law() noexcept(false) {
    law_program_release(steps_);
    remove(tangent_);
    vorn_discard(samples_);
    vorn_discard(nodes_);
}

int min_rotation_law::check(law** subs, int size) {
    if (law_restore_waived() || !subs || (size != 2 && size != 4)) return 1;  // counts raise
    bool ok = subs[0] && subs[1] && check_return_dim(subs[0], 3) && check_return_dim(subs[1], 3);
    if (ok && size == 4)
        ok = subs[2] && subs[3] && check_return_dim(subs[2], 1) && check_return_dim(subs[3], 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* min_rotation_law::make_one(law** subs, int size) const {
    check(subs, size);
    law_ref made = make_law<min_rotation_law>(subs, size, sample_count_);
    auto* m = static_cast<min_rotation_law*>(made.get());
    // A rebuild (the simplifier's, a copy's) keeps the sample count, the step and the way
    // the derivative is answered.
    m->rate_from_steps_ = rate_from_steps_;
    if (samples_ && method_ != m->method_) m->set_min_rot_method(method_);
    if (alt_eval_) m->set_alt_eval(alt_eval_);
    return made.release();
}

double min_rotation_law::start() const {
    return value_at(sub_laws_[2], 1.0);
}

double min_rotation_law::end() const {
    return value_at(sub_laws_[3], 1.0);
}

void min_rotation_law::set_alt_eval(int alt) {
    alt_eval_ = alt;
    if (!samples_) return;
    QEM::scoped_heap_array<double> fresh(
        QEM_ALLOC_ARRAY(double, 3 * static_cast<size_t>(sample_count_)));
    build::propagate(sub_laws_, tangent_, alt, method_, sample_count_, fresh.get());
    vorn_discard(samples_);
    samples_ = fresh.release();
    compile_steps();
}

// Everything is made before anything is replaced, so that a path that raises on the way
// leaves the law as it was.
void min_rotation_law::set_min_rot_method(int method) {
    method = method == 1 ? 1 : 0;
    if (!samples_) {
        method_ = method;
        return;
    }
    QEM::scoped_heap_array<double> nodes(
        method == 1 ? build::make_nodes(sub_laws_, tangent_, sample_count_) : nullptr);
    QEM::scoped_heap_array<double> fresh(
        QEM_ALLOC_ARRAY(double, 3 * static_cast<size_t>(sample_count_)));
    build::propagate(sub_laws_, tangent_, alt_eval_, method, sample_count_, fresh.get());
    method_ = method;
    vorn_discard(samples_);
    samples_ = fresh.release();
    vorn_discard(nodes_);
    nodes_ = nodes.release();
    compile_steps();
}

// A law sampled as often as the numerics compile for (the samples themselves were then
// taken by a program) is meant to be evaluated often too.
void min_rotation_law::compile_steps() {
    law_program_release(steps_);
    steps_ = nullptr;
    if (!samples_ || sample_count_ < law_internal::sample_after_points ||
        !law_internal::numerics_may_compile())
        return;
    law* laws[2] = {tangent_, sub_laws_[0]};
    const int n = alt_eval_ || method_ ? 2 : 1;
    for (int k = 0; k < n; ++k)
        if (laws[k]->return_dim() != 3) return;
    law_program* p = law_compile(laws, n);
    if (p->instruction_count() - p->tree_instruction_count() < 2) {
        law_program_release(p);  // law data and the like: no faster than the tree
        return;
    }
    steps_ = p;
}

// The step with P' (and P) from the program, each end evaluated once.  False when the
// program raises: it evaluates P with P' where the step may not need it, so the tree must
// say whether, and what, the step itself raises.
bool min_rotation_law::step_compiled(const vector& v, double t0, double t1, const double* node,
                                     bool unit_start, vector* r) const {
    double values[2][6];
    bool known[2] = {false, false};
    auto at = [&](const law* l, int end) {
        if (!end && node) return node_value(node, l == tangent_);
        if (!known[end]) {
            const double t = end ? t1 : t0;
            steps_->evaluate(&t, values[end]);
            known[end] = true;
        }
        const double* p = values[end] + (l == tangent_ ? 0 : 3);
        return vector(p[0], p[1], p[2]);
    };
    try {
        *r = stepper{sub_laws_[0], tangent_, alt_eval_, method_, unit_start}.step(v, at);
    } catch (const vorn_exception&) {
        return false;
    }
    return true;
}

// One step from the stored sample at or below x (start and end read again, as the path's
// parameters may be laws of their own).
void min_rotation_law::evaluate(const double* x, double* answer) const {
    if (!samples_) law_operand::raise_missing();
    const double t = x[0];
    if (!std::isfinite(t)) sys_error(LAW_MR);
    const double s = start(), e = end();
    const int k = sample_below(t, sample_count_, s, e);
    const double* sk = samples_ + 3 * k;
    const vector v(sk[0], sk[1], sk[2]);
    const double tk = sample_parameter(k, sample_count_, s, e);
    const double* node = nodes_ ? nodes_ + 6 * k : nullptr;
    vector r;
    if (!steps_ || !step_compiled(v, tk, t, node, node && k > 0, &r))
        r = step_tree(stepper{sub_laws_[0], tangent_, alt_eval_, method_, node && k > 0}, v, tk, t,
                      node);
    for (int c = 0; c < 3; ++c) answer[c] = r[c];
}

// ------------------------------------------------------------- the rate

// d/dx of the plain step from the sample v below x: with u = T/|T|, T = P'(x),
//     w = v - u (u . v),  r = w/|w|,
//     u' = (T' - u (u . T'))/|T|,  w' = -u' (u . v) - u (u' . v),  r' = (w' - r (r . w'))/|w|.
// At a stationary point the step keeps v, whose rate is 0.  The law lives in the cache of
// the MINROT it differentiates, so it holds what it needs of it (P', P'', the end laws,
// a copy of the samples, the text), never a use of the MINROT itself: that would be a
// cycle no one releases.
class min_rotation_rate_law final : public law {
  public:
    min_rotation_rate_law(const min_rotation_law& m, law* second)
        : tangent_(law_ref::retain(m.tangent_)),
          second_(law_ref::retain(second)),
          start_(law_ref::retain(m.sub_laws_[2])),
          end_(law_ref::retain(m.sub_laws_[3])),
          samples_(QEM_ALLOC_ARRAY(double, 3 * static_cast<size_t>(m.sample_count_))),
          n_(m.sample_count_),
          reflect_(m.method_ == 1) {
        std::copy(m.samples_, m.samples_ + 3 * n_, samples_.get());
        for (law_symbol_type t : {SYMBOL_PARSE, SYMBOL_SECOND}) {
            char* inner = m.string(t);
            text_[t == SYMBOL_PARSE ? 0 : 1] = std::string("D(") + inner + ")";
            vorn_discard(inner);
        }
    }
    const char* class_name() const override { return "min_rotation_rate_law"; }

    void evaluate(const double* x, double* answer) const override {
        const double t = x[0];
        if (!std::isfinite(t)) sys_error(LAW_MR);
        const int k = sample_below(t, n_, value_at(start_.get(), 1.0), value_at(end_.get(), 1.0));
        const double* sk = samples_.get() + 3 * k;
        const vector v(sk[0], sk[1], sk[2]);
        const vector T = read3(tangent_.get(), x);
        const vector dT = read3(second_.get(), x);
        vector rate;
        const double tn = T.len();
        if (tn > 0.0) {
            const vector u = T / tn;
            const vector w = v - u * (u % v);
            const double wn = w.len();
            if (!(wn > parallel_tolerance * v.len())) sys_error(LAW_MR);
            const vector r = w / wn;
            const vector du = (dT - u * (u % dT)) / tn;
            const vector dw = -(du * (u % v)) - u * (du % v);
            // Double reflection turns the vector onto the new tangent instead of projecting
            // it: its rate is that of the rotation-minimising frame, r' = -(r . u') u (to
            // the order of the step, r being the projection).
            rate = reflect_ ? -(u * (r % du)) : (dw - r * (r % dw)) / wn;
        }
        for (int c = 0; c < 3; ++c) answer[c] = rate[c];
    }

    // Printed as the derivative it is; read back, it evaluates the same.
    char* string(law_symbol_type type, QEM::optional<int&>,
                 QEM::optional<law_data_node*&>) const override {
        return law_internal::heap_string(text_[type == SYMBOL_PARSE ? 0 : 1]);
    }

  protected:
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }

  private:
    law_ref tangent_, second_, start_, end_;
    QEM::scoped_heap_array<double> samples_;
    int n_;
    bool reflect_;
    std::string text_[2];
};

// The derivative the caller sees is D(MINROT(...)) over a new MINROT (its sample count from
// the option); that one answers its own derivative with the rate of its steps, which ends
// the chain D -> MINROT -> D -> ... after one turn.
law* min_rotation_law::deriv(int which) const {
    if (which != 0) return law_tree::vec3(0, 0, 0).release();
    if (!samples_) law_operand::raise_missing();
    if (rate_from_steps_) {
        law_ref second = law_ref::adopt(tangent_->derivative(0));
        return new min_rotation_rate_law(*this, second.get());
    }
    law_ref fresh = law_ref::adopt(
        new min_rotation_law(build(sub_laws_, law_count_, 0, alt_eval_, method_), true));
    law* parts[1] = {fresh.get()};
    return new derivative_law(parts, 1);
}

// ============================================================== TWIST

namespace {

// P' for the evaluation, built before the law so that a path without a derivative leaves
// nothing behind; null for the prototype and for a law with a part missing.
law_ref twist_tangent(law** subs, int size) {
    if (!subs || size <= 0) return {};
    if (size != 3) sys_error(LAW_TWIST_NUM);
    if (any_missing(subs, size)) return {};
    return law_ref::adopt(subs[0]->derivative(0));
}

}  // namespace

twist_path_law::twist_path_law(law** subs, int size)
    : twist_path_law(twist_tangent(subs, size).release(), subs, size) {}

twist_path_law::twist_path_law(law* tangent, law** subs, int size)
    : multiple_law(subs, size), tangent_(tangent) {}

twist_path_law::~twist_path_law() noexcept(false) {
    remove(tangent_);
}

int twist_path_law::check(law** subs, int size) {
    if (law_restore_waived() || !subs || size != 3) return 1;  // the count raises
    if (subs[0] && subs[1] && subs[2] && check_return_dim(subs[0], 3) &&
        check_return_dim(subs[1], 3) && check_return_dim(subs[2], 1))
        return 1;
    toxic_law_error();
    return 0;
}

law* twist_path_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new twist_path_law(subs, size);
}

// Rodrigues about t = P'/|P'|: F cos A + (t x F) sin A + t (t . F)(1 - cos A).
void twist_path_law::evaluate(const double* x, double* answer) const {
    if (!tangent_) law_operand::raise_missing();
    const vector t = unit(read3(tangent_, x));
    const vector f = read3(sub_laws_[1], x);
    const double a = sub_laws_[2]->evaluate_scalar(x);
    const double c = std::cos(a), s = std::sin(a);
    const vector out = f * c + (t * f) * s + t * ((t % f) * (1.0 - c));
    for (int i = 0; i < 3; ++i) answer[i] = out[i];
}

law* twist_path_law::deriv(int which) const {
    using namespace law_tree;
    if (!tangent_) law_operand::raise_missing();
    law_ref t = node<norm_law>(tangent_);
    law_ref f = law_ref::retain(sub_laws_[1]);
    law_ref c = node<cos_law>(sub_laws_[2]);
    law_ref s = node<sin_law>(sub_laws_[2]);
    law_ref along = mul(t, mul(dot(t, f), sub(K(1), c)));
    law_ref out = law_tree::add(law_tree::add(mul(f, c), mul(cross(t, f), s)), along);
    return out->unsimplified_derivative(which);
}

// ============================================================== prototypes

LAW_REGISTER_PROTOTYPE(min_rotation_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(twist_path_law, nullptr, 0)
