#include "qem/polyroots.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

// Method: the real roots of p are separated by the real roots of p' (its
// critical points), and p is monotone between neighbouring critical points.
// So each such interval holds at most one root, found by a bracketed
// Newton/bisection search, and a critical point where p vanishes is a repeated
// root. Solving p' the same way recurses down to a linear equation.
//
// Compared with closed-form (Cardano/Ferrari) solutions this needs no case
// analysis for repeated roots, and a bracketed search cannot lose a root or
// return a NaN when the discriminants are close to zero.

namespace QEM {

namespace {

constexpr int max_degree = 4;

// Evaluation is within a few ulps of the sum of |c_i x^i|; a critical value
// below this multiple of that sum is indistinguishable from zero.
constexpr double zero_value_factor = 32.0 * DBL_EPSILON;

// Bounds the searches; each step at least halves the bracket unless Newton is
// converging faster, so this is only reached on pathological input.
constexpr int max_search_steps = 500;

// Coefficients are stored lowest degree first: c[0] + c[1] x + ... + c[n] x^n.

double evaluate(const double* c, int n, double x) {
    double v = c[n];
    for (int i = n - 1; i >= 0; --i) v = v * x + c[i];
    return v;
}

void evaluate_with_slope(const double* c, int n, double x, double& value, double& slope) {
    value = c[n];
    slope = 0.0;
    for (int i = n - 1; i >= 0; --i) {
        slope = slope * x + value;
        value = value * x + c[i];
    }
}

// Sum of |c_i x^i|: the scale of the rounding error in evaluate().
double term_magnitude(const double* c, int n, double x) {
    double ax = std::fabs(x);
    double v = std::fabs(c[n]);
    for (int i = n - 1; i >= 0; --i) v = v * ax + std::fabs(c[i]);
    return v;
}

// Fujiwara's bound on the modulus of every root, doubled so that it is
// strictly outside them. Ratios are formed in log space because the raw
// coefficient ratios can overflow when the leading coefficient is tiny.
double root_bound(const double* c, int n) {
    double log_lead = std::log(std::fabs(c[n]));
    double bound = 0.0;
    for (int i = 0; i < n; ++i) {
        if (c[i] == 0.0) continue;
        double log_ratio = std::log(std::fabs(c[i])) - log_lead;
        if (i == 0) log_ratio -= std::log(2.0);
        bound = std::max(bound, std::exp(log_ratio / (n - i)));
    }
    return bound > 0.0 ? 4.0 * bound : 1.0;
}

// The root of p in [a, b], given that p is monotone there and p(a), p(b) are
// non-zero with opposite signs. Newton steps are taken while they stay in
// the bracket and shrink it quickly; otherwise the bracket is bisected.
double bracketed_root(const double* c, int n, double a, double b, bool negative_at_a) {
    double neg = negative_at_a ? a : b;
    double pos = negative_at_a ? b : a;
    double x = 0.5 * a + 0.5 * b;
    double step = std::fabs(b - a);
    double previous_step = step;
    for (int i = 0; i < max_search_steps; ++i) {
        double f, df;
        evaluate_with_slope(c, n, x, f, df);
        if (f == 0.0) return x;
        (f < 0.0 ? neg : pos) = x;
        double next = df != 0.0 ? x - f / df : x;
        bool newton_ok = df != 0.0 && (next - neg) * (next - pos) < 0.0 &&
                         std::fabs(2.0 * f) <= std::fabs(previous_step * df);
        previous_step = step;
        if (!newton_ok) next = neg + 0.5 * (pos - neg);
        step = next - x;
        if (next == x) return x;
        x = next;
    }
    return x;
}

// A couple of plain Newton steps, each kept only if it reduces |p|.
double polish(const double* c, int n, double x) {
    for (int i = 0; i < 2; ++i) {
        double f, df;
        evaluate_with_slope(c, n, x, f, df);
        if (f == 0.0 || df == 0.0) break;
        double next = x - f / df;
        if (!(std::fabs(evaluate(c, n, next)) < std::fabs(f))) break;
        x = next;
    }
    return x;
}

// Sign of p beyond all its roots, towards -inf (at_minus) or +inf.
double tail_sign(const double* c, int n, bool at_minus) {
    double s = c[n] > 0.0 ? 1.0 : -1.0;
    return (at_minus && n % 2 == 1) ? -s : s;
}

double second_derivative(const double* c, int n, double x) {
    double v = 0.0;
    for (int i = n; i >= 2; --i) v = v * x + i * (i - 1) * c[i];
    return v;
}

// Decides which critical points at[1..k-2] are reported as repeated roots:
// those where p is zero within rounding, bar one exception. value[0] and
// value[k-1] are the signs beyond all roots, never zero.
//
// When two repeated roots lie close together, the extremum between them can
// also be within rounding of zero, e.g. the maximum between the two minima of
// (x-a)^2 (x-b)^2. It is not a root: p only comes near zero there, from the
// side away from its neighbours' values. It is recognised as a zero-valued
// extremum flanked by zero-valued points, with the nearest non-zero values on
// both sides having the sign it curves away from. The flanking points, where
// p really touches zero, are still reported.
void mark_repeated_roots(const double* c, int n, const double* at, const double* value, int k,
                         bool* keep) {
    for (int i = 0; i < k; ++i) {
        keep[i] = i > 0 && i < k - 1 && value[i] == 0.0;
        if (!keep[i] || value[i - 1] != 0.0 || value[i + 1] != 0.0) continue;
        int left = i - 1;
        while (value[left] == 0.0) --left;
        int right = i + 1;
        while (value[right] == 0.0) ++right;
        bool outside_positive = value[left] > 0.0;
        if (outside_positive != (value[right] > 0.0)) continue;
        double curvature = second_derivative(c, n, at[i]);
        if (curvature != 0.0 && (curvature > 0.0) != outside_positive) keep[i] = false;
    }
}

int real_roots(const double* coeffs, int degree, double* roots) {
    int n = degree;
    while (n > 0 && coeffs[n] == 0.0) --n;
    if (n == 0) return 0;
    // Adding +0.0 turns a -0.0 quotient into 0.0.
    if (n == 1) {
        roots[0] = -coeffs[0] / coeffs[1] + 0.0;
        return 1;
    }

    double slope_coeffs[max_degree] = {};
    for (int i = 1; i <= n; ++i) slope_coeffs[i - 1] = i * coeffs[i];
    double critical[max_degree] = {};
    int m = real_roots(slope_coeffs, n - 1, critical);

    // Breakpoints: -R, the critical points, +R, with p's value at each. The
    // ends carry only the sign p takes beyond every root.
    double bound = root_bound(coeffs, n);
    double at[max_degree + 2];
    double value[max_degree + 2];
    int k = 0;
    at[k] = -bound;
    value[k++] = tail_sign(coeffs, n, true);
    for (int i = 0; i < m; ++i) {
        double x = std::clamp(critical[i], -bound, bound);
        double f = evaluate(coeffs, n, x);
        if (std::fabs(f) <= zero_value_factor * term_magnitude(coeffs, n, x)) f = 0.0;
        at[k] = x;
        value[k++] = f;
    }
    at[k] = bound;
    value[k++] = tail_sign(coeffs, n, false);

    bool keep[max_degree + 2];
    mark_repeated_roots(coeffs, n, at, value, k, keep);

    int count = 0;
    for (int i = 0; i < k; ++i) {
        if (i > 0 && value[i - 1] != 0.0 && value[i] != 0.0 &&
            (value[i - 1] < 0.0) != (value[i] < 0.0)) {
            double x = bracketed_root(coeffs, n, at[i - 1], at[i], value[i - 1] < 0.0);
            roots[count++] = polish(coeffs, n, x) + 0.0;
        }
        // A critical point where p vanishes is a repeated root. It is already
        // as accurate as p' allows; Newton on p would stall there.
        if (keep[i]) roots[count++] = at[i] + 0.0;
    }
    // Clamping can only merge points at the ends; drop any exact duplicates.
    return static_cast<int>(std::unique(roots, roots + count) - roots);
}

bool all_finite(const double* c, int n) {
    return std::all_of(c, c + n + 1, [](double v) { return std::isfinite(v); });
}

int solve(const double* coeffs, int degree, double* roots) {
    return all_finite(coeffs, degree) ? real_roots(coeffs, degree, roots) : 0;
}

}  // namespace

int quartic_roots(double a, double b, double c, double d, double e, double roots[4]) {
    const double coeffs[] = {e, d, c, b, a};
    return solve(coeffs, 4, roots);
}

int cubic_roots(double a, double b, double c, double d, double roots[3]) {
    const double coeffs[] = {d, c, b, a};
    return solve(coeffs, 3, roots);
}

int quadratic_roots(double a, double b, double c, double roots[2]) {
    const double coeffs[] = {c, b, a};
    return solve(coeffs, 2, roots);
}

}  // namespace QEM
