#include <lawutil/root.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/numeric_util.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include <lawutil/open_set.h>
#include <qem/tolerance.h>
#include <qem/version.h>

using law_internal::between;
using law_internal::counted_law;
using law_internal::joint_evaluator;
using law_internal::require_finite;
using law_internal::require_scalar_law;

void set_root_tol_default() {
    lawutil_thread_ctx* ctx = lawutil_context();
    const lawutil_thread_ctx defaults;
    ctx->root_x_tol = defaults.root_x_tol;
    ctx->root_f_tol = defaults.root_f_tol;
    ctx->root_step_tol = defaults.root_step_tol;
    ctx->root_hole_fraction = defaults.root_hole_fraction;
    ctx->root_ratio_b = defaults.root_ratio_b;
    ctx->root_extremum_ratio = defaults.root_extremum_ratio;
    ctx->root_newton_iters = defaults.root_newton_iters;
    ctx->root_bisect_iters = defaults.root_bisect_iters;
    ctx->root_int_c = defaults.root_int_c;
    ctx->root_int_d = defaults.root_int_d;
    ctx->root_coarse_tol = defaults.root_coarse_tol;
}

namespace {

/// Puts the defaults back when a root search ends, by return or by an error.
struct defaults_on_exit {
    ~defaults_on_exit() { set_root_tol_default(); }
};

/// What a root hunt found: the roots in ascending order, whether it ended normally, and
/// the evaluations it spent.
struct root_result {
    enum status_t { complete, stalled };
    std::vector<double> roots;
    status_t status = complete;
    long evaluations = 0;
};

/// A law g with its first two derivatives, for the second-order Newton iteration.
struct newton_laws {
    const counted_law& g;
    const counted_law& g1;
    const counted_law& g2;
};

/// One second-order Newton step from x: the roots of the Taylor parabola of g at x that
/// may lie ahead, nearer first.  The parabola is A t^2 + B t + C in absolute form; its
/// roots are computed relative to x (the same numbers, without the cancellation of
/// C = F - A x^2 - B x far from the origin).  Returns the number of candidates, 0 to 2.
int quadratic_step(const newton_laws& s, double x, double fx, double cand[2]) {
    const lawutil_thread_ctx* ctx = lawutil_context();
    const bool whole_domain = s.g.index >= 0 && s.g.group->whole_domain();
    if (!whole_domain && !s.g.l->in_domain(&x)) {
        x += QEM::get_resabs();
        fx = s.g(x);
    }
    const double F = fx, D = s.g1(x), S = s.g2(x);
    const double A = S / 2, B = D - S * x;
    const double tol = ctx->root_step_tol;
    if (std::fabs(A) < tol) {
        const double C = F - A * x * x - B * x;
        if (std::fabs(B) >= tol && std::fabs(D) >= tol) {
            cand[0] = x - F / D;
            return 1;
        }
        if (std::fabs(C) >= tol) return 0;
        cand[0] = x;
        return 1;
    }
    const double Q = D * D - 2 * S * F;  // B^2 - 4AC, which does not depend on the origin
    if (Q < 0) {
        cand[0] = x - D / S;  // the vertex
        return 1;
    }
    // Stable roots of A d^2 + D d + F = 0.
    const double q = -0.5 * (D + std::copysign(std::sqrt(Q), D));
    double d1 = q / A, d2 = q != 0 ? F / q : 0.0;
    const double r_lo = x + std::min(d1, d2), r_hi = x + std::max(d1, d2);
    if (S <= 0 && F <= 0) {
        cand[0] = D < 0 ? r_hi : r_lo;
        return 1;
    }
    if (S > 0 && F >= 0) {
        cand[0] = D > 0 ? r_hi : r_lo;
        return 1;
    }
    if (std::fabs(d1) > std::fabs(d2)) std::swap(d1, d2);
    cand[0] = x + d1;
    cand[1] = x + d2;
    return 2;
}

bool outside(double x, double lo, double hi) {
    return !(x >= lo && x <= hi);  // NaN is outside too
}

/// The first step from a start point, kept so that the second iteration of a local solve
/// can start from its other root without stepping again.
struct first_step {
    int count;
    double cand[2];
};

/// Iterates the first candidate of the quadratic step, starting with the step already
/// taken from the start point.  The iteration limit counts as success on purpose: callers
/// needing a true root test |g|.  `second` (when given) receives the second candidate of
/// every step that has one.
bool newton_run(const newton_laws& s, double lo, double hi, first_step step, double* out,
                double* second) {
    const lawutil_thread_ctx* ctx = lawutil_context();
    double x = 0.0;
    for (int it = 0; it < ctx->root_newton_iters; ++it) {
        double cand[2] = {step.cand[0], step.cand[1]};
        int k = step.count;
        if (it > 0) k = quadratic_step(s, x, s.g(x), cand);
        if (k == 0) return false;
        if (second && k == 2) *second = cand[1];
        x = cand[0];
        if (outside(x, lo, hi)) return false;
        if (std::fabs(s.g(x)) < ctx->root_f_tol) break;
    }
    *out = x;
    return true;
}

first_step step_from(const newton_laws& s, double x0) {
    first_step st{0, {0.0, 0.0}};
    st.count = quadratic_step(s, x0, s.g(x0), st.cand);
    return st;
}

/// Roots of g in [lo, hi] from x0: one, or with `slot2` up to two (the second iteration
/// starts from the other root of the first parabola).  Slots not found hold lo - 1; the
/// found ones come first.  Returns how many were found.
int local_solve(const newton_laws& s, double lo, double hi, double x0, double* slot1,
                double* slot2 = nullptr) {
    *slot1 = lo - 1;
    if (slot2) *slot2 = lo - 1;
    const first_step first = step_from(s, x0);
    double seen_second = lo - 1;
    int found = newton_run(s, lo, hi, first, slot1, slot2 ? &seen_second : nullptr) ? 1 : 0;
    if (!slot2 || outside(seen_second, lo, hi)) return found;
    if (first.count != 2 || outside(first.cand[1], lo, hi)) return found;
    double r;
    if (!newton_run(s, lo, hi, step_from(s, first.cand[1]), &r, nullptr)) return found;
    *(found ? slot2 : slot1) = r;
    return found + 1;
}

/// Halves [lo, hi] towards a sign change of g until |g| < root_f_tol or the iteration
/// limit; returns the last midpoint and its value in `*fmid`.
double bisect(const counted_law& g, double lo, double hi, double* fmid) {
    const lawutil_thread_ctx* ctx = lawutil_context();
    double flo = g(lo);
    double mid = 0.5 * (lo + hi);
    for (int i = 0;; ++i) {
        *fmid = g(mid);
        if (std::fabs(*fmid) < ctx->root_f_tol || i >= ctx->root_bisect_iters) return mid;
        if (*fmid * flo > 0) {
            lo = mid;
            flo = *fmid;
        } else {
            hi = mid;
        }
        mid = 0.5 * (lo + hi);
    }
}

// Fractions of the interval at which a constant law is recognised; irregular so that no
// periodic law of a round period looks constant.
constexpr double constant_probe_ref = 0.345756734;
constexpr double constant_probes[] = {0.189674986, 0.2867345889, 0.498608968, 0.5986708968,
                                      0.643590569, 0.7233409543, 0.854789523, 0.9472389094};

bool looks_constant(const counted_law& f, double lo, double w) {
    const double tol = lawutil_context()->root_f_tol;
    const double v = f(lo + constant_probe_ref * w);
    for (double t : constant_probes)
        if (std::fabs(f(lo + t * w) - v) > tol) return false;
    return true;
}

/// Covers the stretch from an end of the interval to the nearest extremum seen from it.
void cover_from_end(const newton_laws& df, Open_set& covered, double lo, double hi, bool from_lo) {
    double e1, e2;
    const double end = from_lo ? lo : hi;
    const int k = local_solve(df, lo, hi, end, &e1, &e2);
    double reach = end;
    if (k == 2 && (from_lo ? e2 > lo : e2 < hi))
        reach = e2;
    else if (k >= 1)
        reach = e1;
    covered.add(end, reach);
}

/// One pass over the first hole of `covered`: a root of f from the hole's middle, the
/// extrema around it to skip stretches that cannot hold another root, and a sign test
/// with bisection once the hole is small.
void examine_hole(const newton_laws& f, const newton_laws& df, Open_set& covered, Open_set& found,
                  double h, double s, double w) {
    const lawutil_thread_ctx* ctx = lawutil_context();
    const double xt = ctx->root_x_tol;
    const double L = h - s / 2, R = h + s / 2;
    const bool small = s < w * ctx->root_hole_fraction;

    double r;
    const bool root_found = local_solve(f, L, R, h, &r) == 1 && r >= L + xt && r <= R - xt;
    if (root_found)
        found.add(r, r);
    else
        covered.add(h, h);

    double e1, e2;
    int k = local_solve(df, L, R, h, &e1, &e2);
    if (k == 2 && std::fabs(e1 - e2) >= xt) {
        const double d = std::fabs(e1 - e2);
        if (std::fabs(e1 - h) / d < ctx->root_extremum_ratio)
            covered.add(e1, h);
        else if (std::fabs(e2 - h) / d < ctx->root_extremum_ratio)
            covered.add(e2, h);
        else
            covered.add(e1, e2);
    } else if (k >= 1) {
        const bool kept = e1 >= L + xt && e1 <= R - xt;
        if (!small && kept && e1 != h) covered.add(h, e1);
    }

    if (!small) {
        covered.add(h, h);
        return;
    }
    if (!root_found && f.g(L) * f.g(R) < 0) {
        double fr;
        const double b = bisect(f.g, L, R, &fr);
        if (std::fabs(fr) < ctx->root_f_tol) {
            // Only the root is covered: the rest of the hole is examined again.
            found.add(b, b);
            covered.add(b - xt, b + xt);
            return;
        }
    }
    covered.add(L, R);
}

/// The hunt: covers [lo, hi] with examined stretches at coarse tolerances, then polishes
/// every root it saw at the default tolerances.  The derivatives join f in `group`.
void hunt(const law* fl, double lo, double hi, root_result& res, joint_evaluator& group) {
    lawutil_thread_ctx* ctx = lawutil_context();
    const double w = hi - lo;
    const counted_law f{fl, &res.evaluations, &group};
    if (looks_constant(f, lo, w)) {
        if (std::fabs(f(lo)) < ctx->root_f_tol) res.roots.push_back(lo);
        return;
    }
    ctx->root_x_tol = ctx->root_coarse_tol;
    ctx->root_f_tol = ctx->root_coarse_tol;

    const law_ref d1 = law_ref::adopt(fl->derivative(0));
    const law_ref d2 = law_ref::adopt(d1->derivative(0));
    const law_ref d3 = law_ref::adopt(d2->derivative(0));
    for (const law_ref* d : {&d1, &d2, &d3}) group.add(d->get());
    long* ev = &res.evaluations;
    const counted_law c1{d1.get(), ev, &group}, c2{d2.get(), ev, &group}, c3{d3.get(), ev, &group};
    const newton_laws fn{f, c1, c2};
    const newton_laws dfn{c1, c2, c3};

    Open_set covered(lo, hi, 0), found(lo, hi, 0);
    for (const bool from_lo : {true, false}) {
        double r;
        if (local_solve(fn, lo, hi, from_lo ? lo : hi, &r) == 1) found.add(r, r);
        cover_from_end(dfn, covered, lo, hi, from_lo);
    }

    double prev = DBL_MAX;
    while (!covered.is_full()) {
        const double h = covered.hole();
        // A hole whose midpoint overflowed can never move: it ends the hunt as one that
        // stopped moving.
        if (std::fabs(prev - h) < QEM::get_resnor() || !std::isfinite(h)) {
            res.status = root_result::stalled;
            break;
        }
        examine_hole(fn, dfn, covered, found, h, covered.hole_size(), w);
        prev = h;
    }

    const QEM::scoped_heap_array<double> mids(found.mid_points());
    const int m = found.parts();
    set_root_tol_default();
    for (int i = 0; i < m; ++i) {
        double r;
        if (local_solve(fn, lo, hi, mids.get()[i], &r) == 1 && std::fabs(f(r)) < ctx->root_f_tol)
            res.roots.push_back(r);
    }
    std::sort(res.roots.begin(), res.roots.end());
}

/// Merges neighbours that straddle no hump of |f|: the better of the two (or their mean)
/// stands for both.
void merge_neighbours(const counted_law& f, std::vector<double>& r) {
    bool merged = true;
    while (merged && r.size() > 1) {
        merged = false;
        for (size_t i = 1; i < r.size(); ++i) {
            const double m = 0.5 * (r[i - 1] + r[i]);
            const double fa = std::fabs(f(r[i - 1])), fm = std::fabs(f(m)), fb = std::fabs(f(r[i]));
            double keep;
            if (fm < fb)
                keep = fa <= fm ? r[i - 1] : m;
            else if (fm < fa)
                keep = r[i];
            else
                continue;
            r[i - 1] = keep;
            r.erase(r.begin() + static_cast<long>(i));
            merged = true;
            break;
        }
    }
}

/// The sign of f just inside a gap end: the value, or the slope where the value is
/// within e of zero (towards the inside of the gap).
int side_sign(double v, double slope, double e, bool left_end) {
    if (v < -e) return -1;
    if (v > e) return 1;
    if (std::fabs(v) < e) {
        const double s = left_end ? slope : -slope;
        if (s < -e) return -1;
        if (s > e) return 1;
    }
    return 0;
}

/// Finds roots the hunt missed between neighbours: a sign change across a gap is
/// bisected and, when it is a true root away from the gap's ends, inserted.
void recover_missed(const law* fl, const counted_law& f, double a, double b,
                    std::vector<double>& r) {
    const double e = QEM::get_resabs();
    const law_ref d = law_ref::adopt(fl->derivative(0));
    const counted_law df{d.get(), f.evaluations, f.group};
    // A law with endless sign changes (SIN(1/X) near 0) must not keep the walk going.
    constexpr int most_insertions = 4096;
    bool restart = true;
    for (int inserted = 0; restart && inserted < most_insertions; ++inserted) {
        restart = false;
        for (size_t gap = 0; gap <= r.size(); ++gap) {
            double x = gap == 0 ? a : r[gap - 1];
            const double y = gap == r.size() ? b : r[gap];
            if (!fl->in_domain(&x)) x += e;
            const int sl = side_sign(f(x), df(x), e, true);
            const int sr = side_sign(f(y), df(y), e, false);
            if (sl * sr != -1 || y - x <= 2 * e) continue;
            double fr;
            const double root = bisect(f, x + e, y - e, &fr);
            const double q = root - x < y - root ? x : y;
            if (std::fabs(fr) < e && std::fabs(f(0.5 * (root + q))) >= e) {
                r.insert(std::lower_bound(r.begin(), r.end(), root), root);
                restart = true;
                break;
            }
        }
    }
}

root_result find_roots(const law* f, double a, double b) {
    root_result res;
    const double lo = std::min(a, b), hi = std::max(a, b);
    // The law and the derivatives the hunt adds, computed together once a long hunt has
    // made compiling them pay.
    joint_evaluator group;
    group.add(f);
    if (std::isfinite(hi - lo)) {
        hunt(f, lo, hi, res, group);
    } else {
        // The width passes the largest double: hunt the two halves, whose widths are
        // finite, and keep a root at the cut once.
        const double mid = lo / 2 + hi / 2;
        hunt(f, lo, mid, res, group);
        root_result upper;
        hunt(f, mid, hi, upper, group);
        res.evaluations += upper.evaluations;
        if (upper.status != root_result::complete) res.status = upper.status;
        for (double r : upper.roots)
            if (res.roots.empty() || r != res.roots.back()) res.roots.push_back(r);
    }
    if (res.roots.empty()) return res;
    const counted_law cf{f, &res.evaluations, &group};
    merge_neighbours(cf, res.roots);
    recover_missed(f, cf, a, b, res.roots);
    return res;
}

double* to_heap(const std::vector<double>& v) {
    if (v.empty()) return nullptr;
    double* out = QEM_ALLOC_ARRAY(double, v.size());
    std::copy(v.begin(), v.end(), out);
    return out;
}

void report_evaluations(long n) {
    lawutil_context()->numeric_evaluations += n;
}

}  // namespace

double* Nroot(law* f, double a, double b, int* n) {
    const defaults_on_exit restore;
    if (!n) sys_error(LAW_DIM);
    *n = 0;
    require_scalar_law(f, 1);
    require_finite(a, b);
    root_result res;
    try {
        res = find_roots(f, a, b);
    } catch (...) {
        report_evaluations(res.evaluations);
        throw;
    }
    report_evaluations(res.evaluations);
    *n = static_cast<int>(res.roots.size());
    return to_heap(res.roots);
}

double* Nsolve(law* f, law* g, double a, double b, int* n) {
    require_scalar_law(f, 1);
    require_scalar_law(g, 1);
    const law_ref diff = make_law<minus_law>(f, g);
    return Nroot(diff.get(), std::min(a, b), std::max(a, b), n);
}

namespace {

/// Points where a law of one variable may take an extremum that no root of its derivative
/// shows: the kinks of ABS (roots of its argument), MIN and MAX (where two parts cross),
/// the switch points of steps and of the comparisons that choose a PIECEWISE branch, and
/// the poles of quotients (roots of a denominator), collected through every sub-law.
class kink_finder {
  public:
    kink_finder(double a, double b) : a_(a), b_(b) {}

    void walk(const law* l, int depth = 0) {
        // A composition changes the variable its parts read: their kinks are elsewhere.
        if (!l || depth > max_depth || l->isa(composite_law_id) || l->take_dim() > 1) return;
        if (l->isa(abs_law_id)) {
            add_roots(static_cast<const unary_law*>(l)->fsub(), kinks);
        } else if (l->isa(max_law_id) || l->isa(min_law_id)) {
            add_crossings(static_cast<const multiple_law*>(l));
        } else if (l->isa(step_law_id)) {
            const auto* m = static_cast<const multiple_law*>(l);
            for (int i = 1; i < m->fsize(); i += 2)
                if (m->fsubs()[i] && m->fsubs()[i]->isa(constant_law_id))
                    add(static_cast<const constant_law*>(m->fsubs()[i])->value(), kinks);
        } else if (is_comparison(l)) {
            const auto* c = static_cast<const binary_law*>(l);
            add_difference_roots(c->fleft(), c->fright(), kinks);
        } else if (l->isa(division_law_id)) {
            add_roots(static_cast<const binary_law*>(l)->fright(), poles);
        } else if (l->isa(exponent_law_id) &&
                   negative_constant(static_cast<const binary_law*>(l)->fright())) {
            add_roots(static_cast<const binary_law*>(l)->fleft(), poles);
        }
        if (l->isa(unary_law_id)) {
            walk(static_cast<const unary_law*>(l)->fsub(), depth + 1);
        } else if (l->isa(binary_law_id)) {
            walk(static_cast<const binary_law*>(l)->fleft(), depth + 1);
            walk(static_cast<const binary_law*>(l)->fright(), depth + 1);
        } else if (l->isa(multiple_law_id)) {
            const auto* m = static_cast<const multiple_law*>(l);
            for (int i = 0; i < m->fsize(); ++i) walk(m->fsubs()[i], depth + 1);
        }
    }

    std::vector<double> kinks, poles;

  private:
    // Deep trees are searched only near the top: each level may cost a root hunt.
    static constexpr int max_depth = 32;

    static bool is_comparison(const law* l) {
        return l->isa(less_than_law_id) || l->isa(less_than_or_equal_law_id) ||
               l->isa(greater_than_law_id) || l->isa(greater_than_or_equal_law_id);
    }

    static bool negative_constant(const law* l) {
        return l && l->isa(constant_law_id) && static_cast<const constant_law*>(l)->value() < 0;
    }

    void add(double x, std::vector<double>& to) const {
        if (x >= a_ && x <= b_) to.push_back(x);
    }

    /// The roots of g on [a, b]; a part that cannot be searched (no derivative, an
    /// evaluation that raises) adds nothing: its kinks stay unexamined, as before.
    void add_roots(const law* g, std::vector<double>& to) const {
        if (!g || g->return_dim() != 1 || g->take_dim() > 1) return;
        try {
            int n = 0;
            const QEM::scoped_heap_array<double> r(Nroot(const_cast<law*>(g), a_, b_, &n));
            for (int i = 0; i < n; ++i) add(r.get()[i], to);
        } catch (const QEM::vorn_exception&) {
        }
    }

    void add_difference_roots(law* p, law* q, std::vector<double>& to) const {
        if (!p || !q || p->return_dim() != 1 || q->return_dim() != 1) return;
        const law_ref d = make_law<minus_law>(p, q);
        add_roots(d.get(), to);
    }

    void add_crossings(const multiple_law* m) {
        for (int i = 0; i < m->fsize(); ++i)
            for (int j = i + 1; j < m->fsize(); ++j)
                add_difference_roots(m->fsubs()[i], m->fsubs()[j], kinks);
    }

    double a_, b_;
};

/// Whether f grows without bound towards x from inside [a, b]: on one side its values at
/// 10^-2, 10^-3, 10^-4 (relative) from x rise at least tenfold each step, the last one
/// counting as risen when the law refuses to evaluate that near (a division that sees
/// its denominator as zero).
bool unbounded_above_at(const counted_law& f, double x, double a, double b) {
    const double scale = std::max(1.0, std::fabs(x));
    for (const double side : {-1.0, 1.0}) {
        bool rising = true;
        double last = 0.0;
        for (const double step : {1e-2, 1e-3, 1e-4}) {
            const double t = x + side * step * scale;
            double v = 0.0;
            try {
                rising = t >= a && t <= b && (v = f(t)) > 0 && (last == 0.0 || v >= 10 * last);
            } catch (const QEM::vorn_exception&) {
                rising = step == 1e-4;
            }
            if (!rising) break;
            last = v;
        }
        if (rising) return true;
    }
    return false;
}

}  // namespace

double Nmax(law* f, double a, double b) {
    require_scalar_law(f, 1);
    require_finite(a, b);
    if (a > b) std::swap(a, b);
    long evals = 0;
    const counted_law cf{f, &evals};
    // A pole the law rises towards is the unbounded maximum: no finite value beats it.
    // It is looked for first, since the ends and the derivative may not evaluate there.
    kink_finder kinks(a, b);
    kinks.walk(f);
    for (double x : kinks.poles)
        if (unbounded_above_at(cf, x, a, b)) {
            report_evaluations(evals);
            return x;
        }
    const bool resmch_margin = get_global_version() >= 2190000;
    double best = a, best_v = cf(a);
    auto consider = [&](double x) {
        const double v = cf(x);
        if (resmch_margin ? v - QEM::get_resmch() > best_v : v > best_v) {
            best = x;
            best_v = v;
        }
    };
    consider(b);
    {
        const law_ref d = law_ref::adopt(f->derivative(0));
        int n = 0;
        const QEM::scoped_heap_array<double> crit(Nroot(d.get(), a, b, &n));
        for (int i = 0; i < n; ++i) consider(crit.get()[i]);
    }
    double* where = nullptr;
    int* order = nullptr;
    const int ns = f->singularities(&where, &order, -DBL_MAX, DBL_MAX);
    const QEM::scoped_heap_array<double> hold_where(where);
    const QEM::scoped_heap_array<int> hold_order(order);
    for (int i = 0; i < ns; ++i)
        if (where[i] >= a && where[i] <= b) consider(where[i]);
    for (double x : kinks.kinks) consider(x);
    report_evaluations(evals);
    return best;
}

double Nmin(law* f, double a, double b) {
    require_scalar_law(f, 1);
    const law_ref neg = make_law<negate_law>(f);
    return Nmax(neg.get(), a, b);
}

namespace {

/// Keeps the thread's root_x_tol for the length of a call.
struct x_tol_scope {
    explicit x_tol_scope(double t) : saved(lawutil_context()->root_x_tol) {
        lawutil_context()->root_x_tol = t;
    }
    ~x_tol_scope() { lawutil_context()->root_x_tol = saved; }
    double saved;
};

/// The sample nearest the least of f's values at `samples` evenly spaced points of [a, b]
/// (the first of equals), and the evaluations that took.
struct least_sample {
    double x;
    long evaluations;
};

double sample_point(double a, double b, int i, int samples) {
    return i == 0 ? a : a + (b - a) * i / (samples - 1);
}

/// The samples by one compiled program, when there are enough of them to pay; false when
/// the tree must take them.  The values, errors and evaluation count are the tree's: a
/// point equal to the one before is not evaluated again.
bool least_sample_compiled(const law* f, double a, double b, int samples, least_sample* least) {
    law_internal::line_sampler lines(&f, 1, 1);
    if (!lines.ready_for(samples)) return false;
    const size_t n = static_cast<size_t>(samples);
    QEM::scoped_heap_array<double> table(QEM_ALLOC_ARRAY(double, 2 * n));
    double* xs = table.get();
    double* values = xs + n;
    for (int i = 0; i < samples; ++i) xs[i] = sample_point(a, b, i, samples);
    int done = 0;
    lines.sample(&a, 0, xs, samples, &values, &done);
    least->x = a;
    least->evaluations = 1;
    double least_v = values[0];
    for (int i = 1; i < samples; ++i) {
        if (xs[i] != xs[i - 1]) ++least->evaluations;
        if (values[i] < least_v) {
            least->x = xs[i];
            least_v = values[i];
        }
    }
    return true;
}

least_sample least_sample_by_tree(const law* f, double a, double b, int samples) {
    long evals = 0;
    const counted_law cf{f, &evals};
    double best = a, best_v = cf(a);
    for (int i = 1; i < samples; ++i) {
        const double x = sample_point(a, b, i, samples);
        const double v = cf(x);
        if (v < best_v) {
            best = x;
            best_v = v;
        }
    }
    return {best, evals};
}

}  // namespace

double Nmin_quick(law* f, double a, double b, int samples, double step, double tol) {
    require_scalar_law(f, 1);
    require_finite(a, b);
    if (a > b) std::swap(a, b);
    samples = std::max(samples, 2);
    least_sample least;
    if (!least_sample_compiled(f, a, b, samples, &least))
        least = least_sample_by_tree(f, a, b, samples);
    report_evaluations(least.evaluations);
    double best = least.x;
    const law_ref inside = between(0, 'X', a, b);
    const x_tol_scope scope(tol);
    QEM::nvector start(1, &best), steps(1, &step);
    const QEM::nvector m = NminND(f, inside.get(), start, steps, nullptr, nullptr, -DBL_MAX);
    return m[0];
}

double Nmax_quick(law* f, double a, double b, int samples, double step, double tol) {
    require_scalar_law(f, 1);
    const law_ref neg = make_law<negate_law>(f);
    return Nmin_quick(neg.get(), a, b, samples, step, tol);
}

// Compass search.  Shrinking halves the steps and growing multiplies them by 1.5: the
// unequal factors keep a search that alternates between the two from revisiting the
// same step lengths.
namespace {

constexpr double shrink_factor = 0.5;
constexpr double grow_factor = 1.5;

struct compass {
    const law* f;
    const law* constraint;
    long evals = 0;

    double value(const std::vector<double>& p) {
        ++evals;
        if (constraint && constraint->evaluateM_R(p.data()) <= 0) return DBL_MAX;
        ++evals;
        return f->evaluateM_R(p.data());
    }
};

double norm(const std::vector<double>& v) {
    double s = 0;
    for (double c : v) s += c * c;
    return std::sqrt(s);
}

}  // namespace

QEM::nvector NminND(law* f, law* constraint, QEM::nvector& start, QEM::nvector& steps,
                    double* value, QEM::nvector* final_steps, double target, law* last) {
    const int n = start.size();
    if (!f || f->return_dim() != 1 || f->take_dim() > n || steps.size() != n || n < 1)
        sys_error(LAW_DIM);
    if (constraint && constraint->take_dim() > n) sys_error(LAW_DIM);
    if (last && last->take_dim() > n) sys_error(LAW_DIM);
    const lawutil_thread_ctx* ctx = lawutil_context();
    compass c{f, constraint};
    std::vector<double> x(start.data(), start.data() + n), h(steps.data(), steps.data() + n);
    for (double& s : h) s = std::fabs(s);
    std::vector<double> dir(n, 0.0), p(n);
    double fx = c.value(x);
    const double step_floor = std::max(1e-14, ctx->root_x_tol);
    int streak = 0, last_probe = -1, last_change = 0, switches = 0;
    while (c.evals <= ctx->root_int_d && norm(h) >= step_floor) {
        const double judged = last ? last->evaluateM_R(x.data()) : fx;
        if (judged < target) break;
        int best_probe = -1;
        double best_v = fx;
        std::vector<double> best_p;
        for (int i = 0; i < 2 * n; ++i) {
            p = x;
            p[i / 2] += (i % 2 ? -h[i / 2] : h[i / 2]);
            const double v = c.value(p);
            if (v < best_v) {
                best_v = v;
                best_probe = i;
                best_p = p;
            }
        }
        if (norm(dir) > QEM::get_resnor()) {
            for (int i = 0; i < n; ++i) p[i] = x[i] + dir[i];
            const double v = c.value(p);
            if (v < best_v) {
                best_v = v;
                best_probe = 2 * n;
                best_p = p;
            }
        }
        if (best_probe >= 0) {
            for (int i = 0; i < n; ++i) dir[i] += best_p[i] - x[i];
            x = best_p;
            fx = best_v;
            ++streak;
            if (streak >= 3 || best_probe == last_probe) {
                for (double& s : h) s *= grow_factor;
                streak = 0;
                if (last_change < 0) ++switches;
                last_change = 1;
            }
            last_probe = best_probe;
        } else {
            for (double& s : h) s *= shrink_factor;
            std::fill(dir.begin(), dir.end(), 0.0);
            streak = 0;
            last_probe = -1;
            if (last_change > 0) ++switches;
            last_change = -1;
        }
        if (switches > 10 * n && switches > c.evals * n / 10) break;
    }
    lawutil_context()->numeric_evaluations += c.evals;
    if (value) *value = fx;
    if (final_steps) *final_steps = QEM::nvector(n, h.data());
    return QEM::nvector(n, x.data());
}

int sort_singularities(double** where, int** type, int n, double lo, double hi) {
    if (n <= 0) return 0;
    const double e = QEM::get_resabs();
    std::vector<std::pair<double, int>> pairs(n);
    for (int i = 0; i < n; ++i) pairs[i] = {(*where)[i], type && *type ? (*type)[i] : 0};
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const auto& p, const auto& q) { return p.first < q.first; });
    std::vector<std::pair<double, int>> kept;
    for (int i = 0; i < n; ++i) {
        const double w = pairs[i].first;
        // The predecessor counts whether or not it was itself dropped.
        const bool too_close = i > 0 && w - pairs[i - 1].first < e;
        if (w + e < lo || w - e > hi || too_close) continue;
        kept.push_back(pairs[i]);
    }
    const int m = static_cast<int>(kept.size());
    if (m == n) {
        for (int i = 0; i < n; ++i) {
            (*where)[i] = pairs[i].first;
            if (type && *type) (*type)[i] = pairs[i].second;
        }
        return n;
    }
    vorn_discard(*where);
    *where = nullptr;
    if (type) {
        vorn_discard(*type);
        *type = nullptr;
    }
    if (m == 0) return 0;
    *where = QEM_ALLOC_ARRAY(double, m);
    if (type) *type = QEM_ALLOC_ARRAY(int, m);
    for (int i = 0; i < m; ++i) {
        (*where)[i] = kept[i].first;
        if (type) (*type)[i] = kept[i].second;
    }
    return m;
}
