#include <lawutil/root_cheb.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include <Eigen/Eigenvalues>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/numeric_util.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/heap.h>

using law_internal::plain_counted_law;

namespace {

constexpr int first_degree = 16;
// Past this degree a piece is split: the colleague matrix stays small (its eigenvalues
// cost the cube of the degree) and so does the damage of a badly scaled piece.
constexpr int degree_cap = 128;
constexpr int max_depth = 16;
// A tail that stopped falling and is this small (relative) is rounding noise, not signal.
constexpr double noise_plateau = 1e-8;
// Eigenvalues further than this from the real axis (in piece coordinates) are not roots;
// a double root's pair sits about sqrt(eps) away, a triple root's about eps^(1/3).
constexpr double imaginary_keep = 1e-4;
// Eigenvalues this close (in piece coordinates) are one root seen several times.
constexpr double cluster_gap = 1e-4;
// How far outside [-1, 1] an eigenvalue may fall and still be a root at the end.
constexpr double end_slack = 1e-8;
// A multiple root must leave no more than this (relative to the law's scale) in f.
constexpr double touch_tolerance = 1e3 * 2.220446049250313e-16;
constexpr int max_multiplicity = 4;

struct candidate {
    double x;      // in the law's parameter
    double imag;   // the eigenvalue's imaginary part, piece coordinates
    double width;  // half the width of its piece
    bool outside;  // just beyond its piece: only half of a pair that straddles an end
};

struct root_found {
    double x;
    int multiplicity;
};

// c_k = (2/n) sum'' v_j cos(pi j k / n), ends of both sums halved: the interpolant at the
// n + 1 points cos(pi j / n).
std::vector<double> chebyshev_coefficients(const std::vector<double>& v, int n) {
    std::vector<double> cosines(2 * static_cast<size_t>(n));
    for (int m = 0; m < 2 * n; ++m) cosines[m] = std::cos(std::numbers::pi * m / n);
    std::vector<double> c(n + 1);
    for (int k = 0; k <= n; ++k) {
        double s = 0;
        for (int j = 0; j <= n; ++j) {
            const double w = (j == 0 || j == n) ? 0.5 : 1.0;
            s += w * v[j] * cosines[(static_cast<long>(j) * k) % (2 * n)];
        }
        c[k] = 2.0 * s / n;
    }
    c[0] *= 0.5;
    c[n] *= 0.5;
    return c;
}

double largest(const std::vector<double>& c, int from, int to) {
    double m = 0;
    for (int k = from; k <= to; ++k) m = std::max(m, std::fabs(c[k]));
    return m;
}

struct fit_result {
    std::vector<double> c;  // trimmed coefficients
    double cut = 0;         // the size below which they were dropped
    bool converged = false;
    double vscale = 0;
};

// Doubles the degree (reusing every sample: the points of degree n are among those of
// 2n) until the last quarter of the coefficients is below tol times the scale, or has
// settled at rounding noise.
fit_result fit(plain_counted_law& f, double lo, double hi, double tol, double vscale) {
    const double mid = 0.5 * (lo + hi), half = 0.5 * (hi - lo);
    auto point = [&](int j, int n) { return mid + half * std::cos(std::numbers::pi * j / n); };
    int n = first_degree;
    std::vector<double> v(n + 1);
    for (int j = 0; j <= n; ++j) v[j] = f(point(j, n));
    fit_result out;
    for (;;) {
        for (double x : v) {
            if (!std::isfinite(x)) {  // no root is told where the law is not a number
                out.converged = true;
                return out;
            }
            out.vscale = std::max(out.vscale, std::fabs(x));
        }
        const double scale = std::max(out.vscale, vscale);
        std::vector<double> c = chebyshev_coefficients(v, n);
        const double tail = largest(c, n - n / 4 + 1, n);
        const double before = largest(c, n / 2 + 1, n - n / 4);
        double cut = -1;
        if (tail <= tol * scale)
            cut = tol * scale;
        else if (tail <= noise_plateau * scale && tail >= 0.1 * before)
            cut = 2 * largest(c, n / 2 + 1, n);
        if (cut < 0 && n >= degree_cap) cut = tol * scale;  // give up: the caller splits
        if (cut >= 0) {
            out.converged = n < degree_cap || tail <= tol * scale;
            int d = n;
            while (d > 0 && std::fabs(c[d]) <= cut) --d;
            c.resize(d + 1);
            out.c = std::move(c);
            out.cut = cut;
            return out;
        }
        std::vector<double> w(2 * n + 1);
        for (int j = 0; j <= n; ++j) w[2 * j] = v[j];
        for (int j = 1; j < 2 * n; j += 2) w[j] = f(point(j, 2 * n));
        v = std::move(w);
        n *= 2;
    }
}

// sum c_k T_k(t) by Clenshaw's recurrence.
double clenshaw(const std::vector<double>& c, double t) {
    double b1 = 0, b2 = 0;
    for (size_t k = c.size() - 1; k >= 1; --k) {
        const double b = c[k] + 2 * t * b1 - b2;
        b2 = b1;
        b1 = b;
    }
    return c[0] + t * b1 - b2;
}

// Scales rows and columns by powers of two (which round nothing) until each row and its
// column are of a size: the last row of a colleague matrix can be orders of magnitude
// larger than the rest, and the eigenvalues would lose as many digits.
void balance(Eigen::MatrixXd& A) {
    const int n = static_cast<int>(A.rows());
    for (bool changed = true; changed;) {
        changed = false;
        for (int i = 0; i < n; ++i) {
            double r = 0, c = 0;
            for (int j = 0; j < n; ++j)
                if (j != i) {
                    r += std::fabs(A(i, j));
                    c += std::fabs(A(j, i));
                }
            if (r == 0 || c == 0) continue;
            double f = 1;
            const double s = r + c;
            while (c < r / 2) {
                c *= 2;
                r /= 2;
                f *= 2;
            }
            while (c >= r * 2) {
                c /= 2;
                r *= 2;
                f /= 2;
            }
            if ((c + r) < 0.95 * s) {
                changed = true;
                A.row(i) /= f;
                A.col(i) *= f;
            }
        }
    }
}

// The roots of sum c_k T_k(t) are the eigenvalues of the colleague matrix C, whose
// eigenvector at a root t is (T_0(t), ..., T_{d-1}(t)): t T_0 = T_1,
// t T_k = (T_{k-1} + T_{k+1})/2, and T_d is eliminated with the polynomial itself.
void colleague_roots(const std::vector<double>& c, double lo, double hi,
                     std::vector<candidate>& out) {
    const int d = static_cast<int>(c.size()) - 1;
    const double mid = 0.5 * (lo + hi), half = 0.5 * (hi - lo);
    auto keep = [&](double re, double im) {
        if (std::fabs(im) > imaginary_keep || std::fabs(re) > 1 + cluster_gap) return;
        const bool outside = std::fabs(re) > 1 + end_slack;
        out.push_back({mid + half * (outside ? re : std::clamp(re, -1.0, 1.0)), im, half, outside});
    };
    if (d < 1) return;
    if (d == 1) {
        keep(-c[0] / c[1], 0);
        return;
    }
    // The transpose of C is already upper Hessenberg: the Schur iteration starts at once.
    Eigen::MatrixXd H = Eigen::MatrixXd::Zero(d, d);
    H(1, 0) = 1;
    for (int k = 1; k < d; ++k) {
        H(k - 1, k) = 0.5;
        if (k + 1 < d) H(k + 1, k) = 0.5;
    }
    for (int j = 0; j < d; ++j) H(j, d - 1) -= c[j] / (2 * c[d]);
    balance(H);
    Eigen::RealSchur<Eigen::MatrixXd> schur(d);
    schur.computeFromHessenberg(H, Eigen::MatrixXd::Identity(d, d), false);
    if (schur.info() != Eigen::Success) return;
    // The eigenvalues sit in the 1 x 1 and 2 x 2 blocks on the diagonal of T.
    const Eigen::MatrixXd& T = schur.matrixT();
    for (int i = 0; i < d; ++i) {
        if (i + 1 == d || T(i + 1, i) == 0.0) {
            keep(T(i, i), 0);
            continue;
        }
        const double p = 0.5 * (T(i, i) - T(i + 1, i + 1));
        const double z = p * p + T(i, i + 1) * T(i + 1, i);
        const double mid_value = T(i + 1, i + 1) + p;
        if (z >= 0) {  // two real eigenvalues in one block
            keep(mid_value + std::sqrt(z), 0);
            keep(mid_value - std::sqrt(z), 0);
        } else {
            keep(mid_value, std::sqrt(-z));
            keep(mid_value, -std::sqrt(-z));
        }
        ++i;
    }
}

// Above this degree the eigenvalues lose digits (and cost the cube of the degree): the
// interpolant is restricted to the halves of its piece, which need fewer coefficients.
constexpr int eigen_degree = 50;

void piece_roots(const std::vector<double>& c, double lo, double hi, double cut,
                 std::vector<candidate>& out, int depth = 0) {
    const int d = static_cast<int>(c.size()) - 1;
    if (d <= eigen_degree || depth >= max_depth) {
        colleague_roots(c, lo, hi, out);
        return;
    }
    for (int side = 0; side < 2; ++side) {
        // The half [s0, s1] of [-1, 1]; its Chebyshev points map into it.
        const double s0 = side ? 0.0 : -1.0, s1 = side ? 1.0 : 0.0;
        std::vector<double> v(d + 1);
        for (int j = 0; j <= d; ++j)
            v[j] =
                clenshaw(c, 0.5 * (s0 + s1) + 0.5 * (s1 - s0) * std::cos(std::numbers::pi * j / d));
        std::vector<double> h = chebyshev_coefficients(v, d);
        int k = d;
        while (k > 0 && std::fabs(h[k]) <= cut) --k;
        h.resize(k + 1);
        const double mid = 0.5 * (lo + hi);
        piece_roots(h, side ? mid : lo, side ? hi : mid, cut, out, depth + 1);
    }
}

void hunt(plain_counted_law& f, double lo, double hi, double tol, double vscale, int depth,
          std::vector<candidate>& out, double& scale_seen) {
    fit_result r = fit(f, lo, hi, tol, vscale);
    scale_seen = std::max(scale_seen, r.vscale);
    if (!r.converged && depth < max_depth) {
        // Off the middle, so that a law symmetric about it does not put a root on the cut.
        const double cut = lo + 0.5001 * (hi - lo);
        const double scale = std::max(vscale, r.vscale);
        hunt(f, lo, cut, tol, scale, depth + 1, out, scale_seen);
        hunt(f, cut, hi, tol, scale, depth + 1, out, scale_seen);
        return;
    }
    piece_roots(r.c, lo, hi, r.cut, out);
}

struct root_polisher {
    plain_counted_law& f;
    law_ref derivs[max_multiplicity + 1];  // derivs[k] is the k-th derivative, k >= 1
    double lo, hi;

    double value(int k, double x) {
        if (k == 0) return f(x);
        for (int i = 1; i <= k; ++i)
            if (!derivs[i])
                derivs[i] = law_ref::adopt((i == 1 ? f.f : derivs[i - 1].get())->derivative(0));
        ++f.count;
        return derivs[k]->eval(x);
    }

    // Newton on the (m-1)-th derivative, where a root of multiplicity m is simple.
    // Sets `stalled` when a step could not be taken (no slope, or a step out of all
    // proportion): then the point is a root only if the law says so itself.
    double newton(double x, int m, double width, int steps, bool& stalled, double& last) {
        stalled = false;
        for (int i = 0; i < steps; ++i) {
            const double g = value(m - 1, x), dg = value(m, x);
            last = g;
            if (dg == 0 || !std::isfinite(g / dg)) {
                stalled = g != 0;
                break;
            }
            double next = x - g / dg;
            if (!(std::fabs(next - x) <= 1e-3 * width)) {
                stalled = true;
                break;
            }
            next = std::clamp(next, lo, hi);
            // Newton converges quadratically: a correction this small leaves nothing for
            // the next step to fix.
            const bool settled = std::fabs(next - x) <= 1e-11 * width;
            x = next;
            if (settled) break;
        }
        return x;
    }
};

std::vector<root_found> polish(plain_counted_law& f, std::vector<candidate>& cands, double lo,
                               double hi, double vscale) {
    std::sort(cands.begin(), cands.end(),
              [](const candidate& p, const candidate& q) { return p.x < q.x; });
    root_polisher p{f, {}, lo, hi};
    std::vector<root_found> found;
    for (size_t i = 0; i < cands.size();) {
        size_t j = i + 1;
        while (j < cands.size() && cands[j].x - cands[j - 1].x <= cluster_gap * cands[i].width) ++j;
        const int m = static_cast<int>(j - i);
        bool told = false;
        if (m >= 2 && m <= max_multiplicity) {
            double x = 0;
            for (size_t k = i; k < j; ++k) x += cands[k].x / m;
            x = std::clamp(x, lo, hi);
            bool stalled;
            double last;
            x = p.newton(x, m, cands[i].width, 6, stalled, last);
            if (std::fabs(f(x)) <= touch_tolerance * vscale) {
                found.push_back({x, m});
                told = true;
            }
        }
        if (!told) {
            // Separate simple roots (or a pair off the real axis, which is no root at all).
            for (size_t k = i; k < j; ++k)
                if ((m == 1 || cands[k].imag == 0) && !cands[k].outside) {
                    // A jump of the law crosses zero without a root: Newton finds no slope
                    // there, and the law is far from zero.
                    bool stalled;
                    double last;
                    const double x = p.newton(cands[k].x, 1, cands[k].width, 4, stalled, last);
                    if (!stalled || std::fabs(last) <= touch_tolerance * vscale)
                        found.push_back({x, 1});
                }
        }
        i = j;
    }
    // A root on a cut between pieces is seen from both sides.
    std::vector<root_found> out;
    for (const root_found& r : found) {
        if (!out.empty() &&
            std::fabs(r.x - out.back().x) <= 1e-12 * std::max(1.0, std::fabs(r.x))) {
            out.back().multiplicity = std::max(out.back().multiplicity, r.multiplicity);
            continue;
        }
        out.push_back(r);
    }
    return out;
}

}  // namespace

double* law_roots_cheb(law* f, double a, double b, double tol, int* n, long* evaluations,
                       int** multiplicity) {
    law_internal::require_scalar_law(f, 1);
    law_internal::require_finite(a, b);
    if (a > b) std::swap(a, b);
    tol = std::max(tol, 1e-15);
    plain_counted_law eval{f};
    std::vector<root_found> found;
    struct count_on_exit {
        plain_counted_law& e;
        long* out;
        ~count_on_exit() {
            lawutil_context()->numeric_evaluations += e.count;
            if (out) *out = e.count;
        }
    } counting{eval, evaluations};
    if (a == b) {
        if (eval(a) == 0) found.push_back({a, 1});
    } else {
        std::vector<candidate> cands;
        double vscale = 0;
        hunt(eval, a, b, tol, 0, 0, cands, vscale);
        if (vscale == 0)
            found.push_back({a, 1});  // zero everywhere it was sampled
        else
            found = polish(eval, cands, a, b, vscale);
    }
    *n = static_cast<int>(found.size());
    if (multiplicity) *multiplicity = nullptr;
    if (found.empty()) return nullptr;
    QEM::scoped_heap_array<double> roots(QEM_ALLOC_ARRAY(double, found.size()));
    for (size_t i = 0; i < found.size(); ++i) roots.get()[i] = found[i].x;
    if (multiplicity) {
        *multiplicity = QEM_ALLOC_ARRAY(int, found.size());
        for (size_t i = 0; i < found.size(); ++i) (*multiplicity)[i] = found[i].multiplicity;
    }
    return roots.release();
}
