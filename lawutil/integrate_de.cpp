#include <lawutil/integrate_de.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include <lawutil/internal/numeric_util.h>
#include <lawutil/law_thread_ctx.h>

using law_internal::plain_counted_law;

namespace {

constexpr double half_pi = std::numbers::pi / 2;
constexpr double eps = std::numeric_limits<double>::epsilon();
constexpr double inf = std::numeric_limits<double>::infinity();

// --------------------------------------------------------------- Gauss-Kronrod 7-15

// Kronrod nodes on [0, 1) (the odd ones are the Gauss nodes) and their weights.
constexpr double kronrod_x[8] = {
    0.991455371120812639206854697526329, 0.949107912342758524526189684047851,
    0.864864423359769072789712788640926, 0.741531185599394439863864773280788,
    0.586087235467691130294144845693013, 0.405845151377397166906606412076961,
    0.207784955007898467600689403773245, 0.0};
constexpr double kronrod_w[8] = {
    0.022935322010529224963732008058970, 0.063092092629978553290700663189204,
    0.104790010322250183839876322541518, 0.140653259715525918745189590510238,
    0.169004726639267902826583426598550, 0.190350578064785409913256402421014,
    0.204432940075298892414161999234649, 0.209482141084727828012999174891714};
constexpr double gauss_w[4] = {
    0.129484966168869693270611432679082, 0.279705391489276667901467771423780,
    0.381830050505118944950369775488975, 0.417959183673469387755102040816327};

// An integrand on a finite parameter interval: f itself, or f after the change of
// variable that brings an infinite end in.
struct mapped {
    plain_counted_law& f;
    double a, b;  // the original ends, possibly infinite
    double operator()(double t) {
        if (finite()) return f(t);
        if (std::isfinite(a)) {  // x = a + t/(1 - t), t in [0, 1)
            const double s = 1 - t;
            return f(a + t / s) / (s * s);
        }
        if (std::isfinite(b)) {  // x = b - t/(1 - t)
            const double s = 1 - t;
            return f(b - t / s) / (s * s);
        }
        const double s = 1 - t * t;  // x = t/(1 - t^2), t in (-1, 1)
        return f(t / s) * (1 + t * t) / (s * s);
    }
    // The parameter interval: [a, b] itself, [0, 1) for a half-line, (-1, 1) for the line.
    bool finite() const { return std::isfinite(a) && std::isfinite(b); }
    double lo() const {
        if (finite()) return a;
        return std::isfinite(a) || std::isfinite(b) ? 0.0 : -1.0;
    }
    double hi() const { return finite() ? b : 1.0; }
};

struct segment {
    double lo, hi, value, error, absolute;
};

// The 15-point Kronrod value with the classical scaled error estimate: the difference to
// the embedded 7-point Gauss value, scaled by how far f strays from its mean, to the power
// 1.5 (smaller than the raw difference once the rule has converged).
segment kronrod15(mapped& g, double lo, double hi) {
    const double c = 0.5 * (lo + hi), h = 0.5 * (hi - lo);
    double fv[15];
    fv[7] = g(c);
    for (int i = 0; i < 7; ++i) {
        fv[i] = g(c - h * kronrod_x[i]);
        fv[14 - i] = g(c + h * kronrod_x[i]);
    }
    double k = kronrod_w[7] * fv[7], gs = gauss_w[3] * fv[7], ab = kronrod_w[7] * std::fabs(fv[7]);
    for (int i = 0; i < 7; ++i) {
        k += kronrod_w[i] * (fv[i] + fv[14 - i]);
        ab += kronrod_w[i] * (std::fabs(fv[i]) + std::fabs(fv[14 - i]));
        if (i % 2 == 1) gs += gauss_w[i / 2] * (fv[i] + fv[14 - i]);
    }
    const double mean = k / 2;
    double asc = kronrod_w[7] * std::fabs(fv[7] - mean);
    for (int i = 0; i < 7; ++i)
        asc += kronrod_w[i] * (std::fabs(fv[i] - mean) + std::fabs(fv[14 - i] - mean));
    double err = std::fabs((k - gs) * h);
    asc *= std::fabs(h);
    if (asc != 0 && err != 0) err = asc * std::min(1.0, std::pow(200 * err / asc, 1.5));
    err = std::max(err, 50 * eps * std::fabs(ab * h));
    return {lo, hi, k * h, err, ab * std::fabs(h)};
}

// A segment this narrow (against the whole) whose law raises is left out: the law cannot
// be evaluated that close to a singular point, and the piece is below any tolerance.
constexpr double droppable_width = 1e-12;

law_integral_result gauss_kronrod(plain_counted_law& f, double a, double b, double tol,
                                  int max_intervals, std::vector<segment> segs = {}) {
    mapped g{f, a, b};
    if (segs.empty()) segs.push_back(kronrod15(g, g.lo(), g.hi()));
    const double whole = g.hi() - g.lo();
    auto rule = [&](double lo, double hi) {
        try {
            return kronrod15(g, lo, hi);
        } catch (const vorn_exception&) {
            if (hi - lo > droppable_width * whole) throw;
            return segment{lo, hi, 0, 0, 0};
        }
    };
    law_integral_result r;
    for (;;) {
        double value = 0, error = 0, absolute = 0;
        size_t worst = 0;
        for (size_t i = 0; i < segs.size(); ++i) {
            value += segs[i].value;
            error += segs[i].error;
            absolute += segs[i].absolute;
            if (segs[i].error > segs[worst].error) worst = i;
        }
        r.value = value;
        r.error = error;
        r.converged = error <= tol * absolute || error == 0;
        if (r.converged || static_cast<int>(segs.size()) >= max_intervals || !std::isfinite(value))
            return r;
        const segment s = segs[worst];
        const double mid = 0.5 * (s.lo + s.hi);
        if (!(mid > s.lo && mid < s.hi)) return r;  // no room left to halve
        segs[worst] = rule(s.lo, mid);
        segs.push_back(rule(mid, s.hi));
    }
}

// --------------------------------------------------------------- double exponential

// The change of variable x(t) of the double-exponential rule, u = pi/2 sinh t, and its
// weight x'(t).  On a finite interval the distance to the nearer end, d (1 - |tanh u|),
// is formed directly from exp(-2|u|) so that points near an end keep their digits.
struct de_map {
    double a, b;
    bool point(double t, double& x, double& w) const {
        const double u = half_pi * std::sinh(t), ch = half_pi * std::cosh(t);
        if (std::isfinite(a) && std::isfinite(b)) {
            const double d = 0.5 * (b - a), e = std::exp(-2 * std::fabs(u));
            const double delta = 2 * e / (1 + e);
            x = t >= 0 ? b - d * delta : a + d * delta;
            w = d * ch * delta * (2 - delta);
            return x > a && x < b;
        }
        if (std::isfinite(a) || std::isfinite(b)) {  // exp-sinh
            const double e = std::exp(u);
            x = std::isfinite(a) ? a + e : b - e;
            w = ch * e;
            return std::isfinite(x) && std::isfinite(w) && x != a && x != b;
        }
        x = std::sinh(u);  // sinh-sinh
        w = ch * std::cosh(u);
        return std::isfinite(x) && std::isfinite(w);
    }
};

constexpr double t_limit = 6.5;  // past it every weight has underflowed or overflowed
constexpr int max_levels = 9;
// A term this small against the sum so far changes nothing.
constexpr double negligible = eps;

law_integral_result double_exponential(plain_counted_law& f, double a, double b, double tol) {
    const de_map map{a, b};
    double sum = 0, abs_sum = 0;
    auto near_end = [&](double x) {
        const double span = std::isfinite(a) && std::isfinite(b) ? b - a : 1.0;
        return (std::isfinite(a) && x - a <= droppable_width * span) ||
               (std::isfinite(b) && b - x <= droppable_width * span);
    };
    // Level 0: step 1 from t = 0 outwards until the terms stop counting; later levels add
    // the midpoints inside the reach found here.
    auto add = [&](double t, bool& done) {
        double x, w;
        if (!map.point(t, x, w)) {
            done = true;
            return 0.0;
        }
        double fx;
        try {
            fx = f(x);
        } catch (const vorn_exception&) {
            // Next to a finite end the law may refuse (a division by a value it counts as
            // zero): the reach ends there, where what is left is below any tolerance.
            if (t == 0 || !near_end(x)) throw;
            done = true;
            return 0.0;
        }
        const double term = w * fx;
        sum += term;
        abs_sum += std::fabs(term);
        return term;
    };
    bool unused = false;
    add(0.0, unused);
    double reach[2] = {0, 0};
    for (int side = 0; side < 2; ++side) {
        const double sign = side ? 1.0 : -1.0;
        int small = 0;
        bool done = false;
        for (int k = 1; k <= t_limit && !done; ++k) {
            const double term = add(sign * k, done);
            if (done) break;
            // Two negligible terms in a row end the reach (one may be a zero of f); the
            // reach takes in the first, as the midpoints before it may not be negligible.
            if (std::fabs(term) <= negligible * abs_sum) {
                if (++small == 1) reach[side] = k;
                if (small >= 2) break;
            } else {
                small = 0;
                reach[side] = k;
            }
        }
    }
    law_integral_result r;
    double h = 1, estimate = sum;
    for (int level = 1; level <= max_levels; ++level) {
        h /= 2;
        for (int side = 0; side < 2; ++side) {
            const double sign = side ? 1.0 : -1.0;
            bool done = false;
            for (double t = h; t <= reach[side] && !done; t += 2 * h) add(sign * t, done);
        }
        const double next = sum * h;
        const double diff = std::fabs(next - estimate);
        estimate = next;
        // The error falls fast with each halving, but not regularly enough (a pole near
        // the interval) to extrapolate from the last differences: the difference itself,
        // which bounds the error of the previous estimate, is the estimate.
        const double err = std::max(diff, 16 * eps * abs_sum * h);  // rounding in the sum
        r.value = estimate;
        r.error = err;
        r.converged = err <= tol * abs_sum * h;
        if (r.converged && level >= 2) break;
    }
    return r;
}

// A first Kronrod estimate within this (relative) marks an integrand as smooth.
constexpr double smooth_probe = 1e-6;
constexpr int max_probe_intervals = 64;

struct count_on_exit {
    plain_counted_law& e;
    law_integral_result& r;
    ~count_on_exit() {
        r.evaluations = e.count;
        lawutil_context()->numeric_evaluations += e.count;
    }
};

// Checks the law and the ends; orders them and reports the sign of the swap.
double prepare(law* f, double& a, double& b) {
    law_internal::require_scalar_law(f, 1);
    if (std::isnan(a) || std::isnan(b)) sys_error(LAW_BAD_BOUNDS);
    if (a <= b) return 1;
    std::swap(a, b);
    return -1;
}

}  // namespace

law_integral_result law_integrate_de(law* f, double a, double b, double tol) {
    const double sign = prepare(f, a, b);
    plain_counted_law e{f};
    law_integral_result r;
    {
        count_on_exit counting{e, r};
        if (a == b || (a == inf && b == inf) || (a == -inf && b == -inf)) {
            r.converged = true;
        } else {
            bool settled = false;
            if (std::isfinite(a) && std::isfinite(b)) {
                // One Kronrod rule tells a smooth integrand (Gauss-Kronrod finishes it in
                // fewer evaluations) from one with a singular end (the double-exponential
                // rule's case, where bisection would crawl towards the end).
                mapped g{e, a, b};
                const segment s = kronrod15(g, a, b);
                if (s.error <= smooth_probe * s.absolute) {
                    r = gauss_kronrod(e, a, b, tol, max_probe_intervals, {s});
                    settled = r.converged;
                }
            }
            if (!settled) r = double_exponential(e, a, b, tol);
            if (!r.converged && std::isfinite(a) && std::isfinite(b)) {
                // A kink or a jump inside: the double-exponential rule cannot settle, and
                // bisection finds it.
                const law_integral_result g = gauss_kronrod(e, a, b, tol, 1000);
                if (g.converged || g.error < r.error) r = g;
            }
        }
    }
    r.value *= sign;
    return r;
}

law_integral_result law_integrate_gk(law* f, double a, double b, double tol, int max_intervals) {
    const double sign = prepare(f, a, b);
    plain_counted_law e{f};
    law_integral_result r;
    {
        count_on_exit counting{e, r};
        if (a == b || (a == inf && b == inf) || (a == -inf && b == -inf))
            r.converged = true;
        else
            r = gauss_kronrod(e, a, b, tol, std::max(1, max_intervals));
    }
    r.value *= sign;
    return r;
}
