#include <lawutil/integrate.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <lawutil/internal/fast_eval.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/numeric_util.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/tolerance.h>

using law_internal::line_sampler;
using law_internal::require_finite;
using law_internal::value_buffer;

namespace {

// Level i costs 2^(i-2) new samples: beyond this the request is a runaway, not a result.
constexpr int level_ceiling = 26;

/// Samples f at x[which] = t, counting.
struct wrt_sampler {
    const law* f;
    int which;
    double* x;
    long* evaluations;
    line_sampler* lines;  // the compiled form, for long rows of midpoints

    double operator()(double t) const {
        ++*evaluations;
        x[which] = t;
        return f->evaluateM_R(x);
    }

    /// The sum of f at a + (j - 0.5) h for j = 1 .. m, added in that order.
    double midpoint_sum(double a, double h, long m) const {
        double sum = 0.0;
        if (!lines->ready_for(m)) {
            for (long j = 1; j <= m; ++j) sum += (*this)(a + (static_cast<double>(j) - 0.5) * h);
            return sum;
        }
        constexpr int chunk = 1024;
        double ts[chunk], values[chunk];
        double* out[1] = {values};
        for (long first = 1; first <= m; first += chunk) {
            const int n = static_cast<int>(std::min<long>(chunk, m - first + 1));
            for (int i = 0; i < n; ++i) ts[i] = a + (static_cast<double>(first + i) - 0.5) * h;
            int done = 0;
            try {
                lines->sample(x, which, ts, n, out, &done);
            } catch (...) {
                // As the point by point loop leaves it: counted up to the point that raised,
                // x[which] at that point.
                *evaluations += done + 1;
                x[which] = ts[done];
                throw;
            }
            *evaluations += n;
            x[which] = ts[n - 1];
            for (int i = 0; i < n; ++i) sum += values[i];
        }
        return sum;
    }
};

// Romberg: R(i,1) = (R(i-1,1) + h * sum of f at the new midpoints) / 2, then
// R(i,k) = (4^(k-1) R(i,k-1) - R(i-1,k-1)) / (4^(k-1) - 1); the change is
// R(i-1,i-1) - R(i,i) and the level count becomes i + 1.
int romberg(const wrt_sampler& f, double a, double b, double* answer, double tol, int min_level,
            int max_level) {
    max_level = std::min(max_level, level_ceiling);
    min_level = std::min(min_level, level_ceiling);
    int level;
    if (a == b) {
        // Every row is 0: only the level count is left to find.
        *answer = 0.0;
        level = std::max(3, min_level + 1);
        return level >= max_level ? 0 : level;
    }
    std::vector<double> prev(1), cur;
    double h = b - a;
    if (!std::isfinite(h)) {
        // A width past the largest double has no finite trapezoid: not converged.
        *answer = std::numeric_limits<double>::quiet_NaN();
        return 0;
    }
    prev[0] = (f(a) + f(b)) * h / 2;
    long m = 1;
    int i = 2;
    double change;
    do {
        const double sum = f.midpoint_sum(a, h, m);
        cur.assign(static_cast<size_t>(i), 0.0);
        cur[0] = (prev[0] + h * sum) / 2;
        m *= 2;
        double p4 = 1.0;
        for (int k = 1; k < i; ++k) {
            p4 *= 4.0;
            cur[k] = (p4 * cur[k - 1] - prev[k - 1]) / (p4 - 1);
        }
        h /= 2;
        change = prev[i - 2] - cur[i - 1];
        level = i + 1;
        std::swap(prev, cur);
        ++i;
        // An overflowed row never settles: NaN or infinite changes end the refinement
        // as not converged rather than reading as a change below tol.
        if (!std::isfinite(change)) break;
    } while ((std::fabs(change) > tol && level < max_level) || level <= min_level);
    *answer = prev.back();
    if (!std::isfinite(change) || !std::isfinite(*answer)) return 0;
    // Reaching the last permitted level reports 0 even when that level met tol.
    return level >= max_level ? 0 : level;
}

void report_evaluations(long n) {
    lawutil_context()->numeric_evaluations += n;
}

int integrate_wrt(law* f, double a, double b, int which, double* x, double* answer, double tol,
                  int min_level, int max_level) {
    if (!f || f->return_dim() != 1 || which < 0 || !x || !answer) sys_error(LAW_DIM);
    if (which >= std::max(1, f->take_dim())) sys_error(LAW_DIM);
    require_finite(a, b);
    long evals = 0;
    const law* laws[1] = {f};
    line_sampler lines(laws, 1, f->take_dim());
    const wrt_sampler s{f, which, x, &evals, &lines};
    try {
        const int r = romberg(s, a, b, answer, tol, min_level, max_level);
        report_evaluations(evals);
        return r;
    } catch (...) {
        report_evaluations(evals);
        throw;
    }
}

}  // namespace

int Nintegrate(law* f, double a, double b, double* answer, double tol, int min_level,
               int max_level) {
    law_internal::require_scalar_law(f, 1);
    double x[1] = {a};
    return integrate_wrt(f, a, b, 0, x, answer, tol, min_level, max_level);
}

int Nintegrate_wrt(law* f, double a, double b, int which, double* x, double* answer, double tol,
                   int min_level, int max_level) {
    return integrate_wrt(f, a, b, which, x, answer, tol, min_level, max_level);
}

int Nintegrate_wrt_and_split(law* f, double a, double b, int which, double* x, double* answer,
                             int nsplit, double* splits, double tol, int min_level, int max_level) {
    if (nsplit < 0 || (nsplit > 0 && !splits) || !answer) sys_error(LAW_DIM);
    // Nudged inward so that no sample falls on a split point, where the integrand may be
    // singular.
    constexpr double nudge = 1e-14;
    *answer = 0.0;
    int worst = 0;
    for (int i = 0; i <= nsplit; ++i) {
        const double lo = (i == 0 ? a : splits[i - 1]) + nudge;
        const double hi = (i == nsplit ? b : splits[i]) - nudge;
        double piece = 0.0;
        worst =
            std::max(worst, integrate_wrt(f, lo, hi, which, x, &piece, tol, min_level, max_level));
        *answer += piece;
    }
    return worst;
}

// ============================================================== finite differences

namespace {

constexpr double diff_step = 1e-4;
// 14 rows of 3 values cover order 4 on a law with 3 outputs without the heap.
constexpr int diff_fixed_values = 42;

/// Sample rows y(k), each of `width` values, in a fixed buffer or on the heap.
class sample_rows {
  public:
    sample_rows(int rows, int width) : width_(width) {
        if (rows * width > diff_fixed_values)
            heap_.reset(QEM_ALLOC_ARRAY(double, static_cast<size_t>(rows * width)));
    }
    double* row(int k) { return (heap_ ? heap_.get() : fixed_) + k * width_; }

  private:
    int width_;
    double fixed_[diff_fixed_values];
    QEM::scoped_heap_array<double> heap_;
};

/// The point x copied into a buffer that can hold variable `which`.
struct moving_point {
    moving_point(const law* f, const double* x, int which)
        : size(std::max(f->take_dim(), which + 1)), buf(size) {
        for (int i = 0; i < size; ++i) buf[i] = i < f->take_dim() || i == which ? x[i] : 0.0;
    }
    int size;
    value_buffer buf;
};

void check_diff_args(const law* f, const double* x, int which, const double* answer, int order) {
    if (!f || !x || !answer || which < 0) sys_error(LAW_DIM);
    // A variable the law does not take is a wrong index, not a zero derivative.
    if (which >= std::max(1, f->take_dim())) sys_error(LAW_DIM);
    if (order < 0) sys_error(LAW_DERIV);
}

/// Samples f at x0 + offset + k h for k = 0 .. rows - 1 into `y`.
void take_samples(const law* f, moving_point& p, int which, double start, double h, int rows,
                  sample_rows& y) {
    for (int k = 0; k < rows; ++k) {
        p.buf[which] = start + k * h;
        f->evaluate(p.buf.data(), y.row(k));
    }
    report_evaluations(rows);
}

void centred_with_step(law* f, const double* x, int which, double* answer, int order, double h) {
    const int w = f->return_dim(), rows = 3 * order + 1;
    const double x0 = x[which];
    moving_point p(f, x, which);
    sample_rows y(rows, w);
    take_samples(f, p, which, x0 - 3 * order * h / 2, h, rows, y);
    for (int pass = 0, len = rows; pass < order; ++pass, len -= 3)
        for (int k = 0; k + 3 < len; ++k)
            for (int c = 0; c < w; ++c)
                y.row(k)[c] =
                    ((y.row(k + 2)[c] - y.row(k + 1)[c]) - (y.row(k + 3)[c] - y.row(k)[c]) / 27) /
                    (8 * h / 9);
    std::copy(y.row(0), y.row(0) + w, answer);
}

}  // namespace

// Centred: 3 order + 1 samples around x0; each pass replaces the row by
// D(k) = ((y(k+2) - y(k+1)) - (y(k+3) - y(k))/27) / (8h/9), the fourth-order staggered
// derivative at the centre of y(k+1) and y(k+2), shortening it by 3 and keeping it
// centred on x0.
void Ndifferentiate(law* f, const double* x, int which, double* answer, int order) {
    check_diff_args(f, x, which, answer, order);
    centred_with_step(f, x, which, answer, order, diff_step);
}

// One-sided: samples at x0 + k h and D(k) = (11 y(k) - 18 y(k+1) + 9 y(k+2) - 2 y(k+3)) /
// (-6 h), the third-order forward difference at y(k).  When the samples would leave the
// law's domain on the asked side, they are taken on the other side instead.
void Ndifferentiate_sided(law* f, const double* x, int which, int side, double* answer, int order) {
    check_diff_args(f, x, which, answer, order);
    const int w = f->return_dim(), rows = 3 * order + 1;
    double h = side == 1 ? -diff_step : diff_step;
    const double x0 = x[which];
    QEM::interval dom;
    f->term_domain(which, dom);
    const double tip = x0 + 3 * order * h, tol = QEM::get_resnor();
    if (!dom.contains(tip, tol) && dom.contains(x0 - 3 * order * h, tol)) h = -h;
    moving_point p(f, x, which);
    sample_rows y(rows, w);
    try {
        take_samples(f, p, which, x0, h, rows, y);
    } catch (const QEM::vorn_exception&) {
        // Most laws do not state their domain: a side on which the law refuses to
        // evaluate (x0 at the edge of SQRT's) is a side outside it.  When the other side
        // refuses too, its error is the caller's.
        if (order == 0) throw;
        h = -h;
        take_samples(f, p, which, x0, h, rows, y);
    }
    for (int pass = 0, len = rows; pass < order; ++pass, len -= 3)
        for (int k = 0; k + 3 < len; ++k)
            for (int c = 0; c < w; ++c)
                y.row(k)[c] = (11 * y.row(k)[c] - 18 * y.row(k + 1)[c] + 9 * y.row(k + 2)[c] -
                               2 * y.row(k + 3)[c]) /
                              (-6 * h);
    std::copy(y.row(0), y.row(0) + w, answer);
}

// A step for the order: the stencil's truncation error falls as h^4 and its rounding
// error grows as eps / h^order, so the two balance near eps^(1/(order + 4)), taken
// relative to the size of the point.

double Ndifferentiate_estimate(law* f, const double* x, int which, double* answer, int order) {
    check_diff_args(f, x, which, answer, order);
    if (order > ndifferentiate_max_order) sys_error(LAW_DERIV);
    const int w = f->return_dim();
    const double scale = std::max(1.0, std::fabs(x[which]));
    // Up to order 3 the fixed step is already near the balance.
    const double h = order <= 3 ? diff_step : scale * std::pow(DBL_EPSILON, 1.0 / (order + 4));
    value_buffer coarse(w);
    centred_with_step(f, x, which, answer, order, h);
    if (order == 0) return 0.0;
    centred_with_step(f, x, which, coarse.data(), order, 1.5 * h);
    // The truncation error is fourth order (about 5 times larger at 1.5 h) but the
    // rounding errors of the two runs need not cancel: twice the difference is taken, a
    // bound rather than a sharp estimate.
    double error = 0.0;
    for (int c = 0; c < w; ++c) {
        const double e = 2 * std::fabs(answer[c] - coarse.data()[c]);
        error = std::max(error, std::isfinite(e) ? e : HUGE_VAL);
        if (!std::isfinite(answer[c])) error = HUGE_VAL;
    }
    return error;
}

// ============================================================== integrate_law

namespace {

// Checked before the base takes its uses, so that a refused law leaves nothing behind.
std::array<law*, 3> checked_parts(law* f, law* lower, law* upper, int which) {
    if (!f || !lower || !upper || which < 0 || f->return_dim() != 1 || lower->return_dim() != 1 ||
        upper->return_dim() != 1)
        sys_error(LAW_DIM);
    return {f, lower, upper};
}

}  // namespace

integrate_law::integrate_law(law* integrand, law* lower, law* upper, int which, double tol,
                             int min_level, int max_level)
    : multiple_law(checked_parts(integrand, lower, upper, which).data(), 3),
      which_(which),
      tol_(tol),
      min_level_(min_level),
      max_level_(max_level) {}

law* integrate_law::make_one(law** subs, int size) const {
    if (size != 3) sys_error(LAW_DIM);
    return new integrate_law(subs[0], subs[1], subs[2], which_, tol_, min_level_, max_level_);
}

int integrate_law::take_size() const {
    return std::max(
        {sub_laws_[0]->take_dim(), which_ + 1, sub_laws_[1]->take_dim(), sub_laws_[2]->take_dim()});
}

// The point is copied so that the integration variable can run without touching the
// caller's array.  Non-convergence leaves the best estimate, as Nintegrate does.
void integrate_law::evaluate(const double* x, double* answer) const {
    const double a = sub_laws_[1]->evaluateM_R(x), b = sub_laws_[2]->evaluateM_R(x);
    const int n = take_dim();
    value_buffer p(n);
    std::copy(x, x + n, p.data());
    Nintegrate_wrt(sub_laws_[0], a, b, which_, p.data(), answer, tol_, min_level_, max_level_);
}

// d/dx of the integral of f from lower(x) to upper(x), f of one variable:
// f(upper) upper' - f(lower) lower'.
law* integrate_law::deriv(int which) const {
    law* f = sub_laws_[0];
    if (f->take_dim() > 1 || which_ != 0) return nullptr;
    const law_ref du = law_ref::adopt(sub_laws_[2]->derivative(which));
    const law_ref dl = law_ref::adopt(sub_laws_[1]->derivative(which));
    const law_ref at_u = make_law<composite_law>(f, sub_laws_[2]);
    const law_ref at_l = make_law<composite_law>(f, sub_laws_[1]);
    const law_ref gain = make_law<times_law>(at_u.get(), du.get());
    const law_ref loss = make_law<times_law>(at_l.get(), dl.get());
    return new minus_law(gain.get(), loss.get());
}

char* integrate_law::string(law_symbol_type type, QEM::optional<int&> count,
                            QEM::optional<law_data_node*&> list) const {
    std::string out = "INTEGRATE(";
    for (int i = 0; i < 3; ++i) {
        char* s = sub_laws_[i]->string(type, count, list);
        out += s;
        vorn_discard(s);
        out += i < 2 ? "," : ")";
    }
    return law_internal::heap_string(out);
}

int integrate_law::same(const law* a, const law* b) const {
    auto* x = static_cast<const integrate_law*>(a);
    auto* y = static_cast<const integrate_law*>(b);
    return x->which_ == y->which_ && x->tol_ == y->tol_ && x->min_level_ == y->min_level_ &&
           x->max_level_ == y->max_level_ && multiple_law::same(a, b);
}

law* law_integrate(law* f, double start, double tol, int min_level, int max_level) {
    law_internal::require_scalar_law(f, 1);
    const law_ref lower = make_law<constant_law>(start);
    const law_ref upper = make_law<identity_law>(0, 'X');
    return new integrate_law(f, lower.get(), upper.get(), 0, tol, min_level, max_level);
}
