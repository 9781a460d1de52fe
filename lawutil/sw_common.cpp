#include <lawutil/sw_common.h>

#include <algorithm>

int sw_find_span(const double* knots, int count, int degree, double t) {
    // Last index k in [degree, count - 1] with knots[k] <= t; below the range the first span.
    const double* first = knots + degree;
    const double* last = knots + count;
    int k = static_cast<int>(std::upper_bound(first, last, t) - knots) - 1;
    k = std::clamp(k, degree, count - 1);
    // At or beyond the end the search lands on the last knot; step back to a non-empty span.
    while (k > degree && knots[k] >= knots[k + 1]) --k;
    return k;
}

// Basis functions and derivatives by the triangular recurrence of Cox and de Boor: the
// table ndu holds the functions of every degree up to `degree` (upper triangle) and the
// knot differences (lower triangle); the k-th derivative is a weighted difference of the
// degree - k functions, the weights a(k, j) built row by row.
void sw_basis_derivs(const double* knots, int degree, int span, double t, int order, double* ders) {
    const int p = degree;
    const int w = p + 1;
    double ndu[(sw_max_degree + 1) * (sw_max_degree + 1)];
    double left[sw_max_degree + 1], right[sw_max_degree + 1];
    double a[2][sw_max_degree + 1];

    ndu[0] = 1.0;
    for (int j = 1; j <= p; ++j) {
        left[j] = t - knots[span + 1 - j];
        right[j] = knots[span + j] - t;
        double saved = 0.0;
        for (int r = 0; r < j; ++r) {
            ndu[j * w + r] = right[r + 1] + left[j - r];  // knot difference, lower triangle
            const double temp = ndu[r * w + j - 1] / ndu[j * w + r];
            ndu[r * w + j] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        ndu[j * w + j] = saved;
    }
    for (int j = 0; j <= p; ++j) ders[j] = ndu[j * w + p];

    const int top = std::min(order, p);
    for (int r = 0; r <= p; ++r) {
        int s1 = 0, s2 = 1;
        a[0][0] = 1.0;
        for (int k = 1; k <= top; ++k) {
            double d = 0.0;
            const int rk = r - k, pk = p - k;
            if (r >= k) {
                a[s2][0] = a[s1][0] / ndu[(pk + 1) * w + rk];
                d = a[s2][0] * ndu[rk * w + pk];
            }
            const int j1 = rk >= -1 ? 1 : -rk;
            const int j2 = (r - 1 <= pk) ? k - 1 : p - r;
            for (int j = j1; j <= j2; ++j) {
                a[s2][j] = (a[s1][j] - a[s1][j - 1]) / ndu[(pk + 1) * w + rk + j];
                d += a[s2][j] * ndu[(rk + j) * w + pk];
            }
            if (r <= pk) {
                a[s2][k] = -a[s1][k - 1] / ndu[(pk + 1) * w + r];
                d += a[s2][k] * ndu[r * w + pk];
            }
            ders[k * w + r] = d;
            std::swap(s1, s2);
        }
    }
    // Multiply by p! / (p - k)!.
    double factor = p;
    for (int k = 1; k <= top; ++k) {
        for (int j = 0; j <= p; ++j) ders[k * w + j] *= factor;
        factor *= p - k;
    }
    for (int k = top + 1; k <= order; ++k)
        for (int j = 0; j <= p; ++j) ders[k * w + j] = 0.0;
}

double sw_binomial(int n, int k) {
    if (k < 0 || k > n) return 0.0;
    double b = 1.0;
    for (int i = 1; i <= k; ++i) b = b * (n - k + i) / i;
    return b;
}

bool sw_valid_knots(const double* knots, int count, int degree) {
    const int m = count + degree + 1;
    for (int i = 1; i < m; ++i)
        if (!(knots[i] >= knots[i - 1])) return false;
    if (!(knots[degree] < knots[count])) return false;
    int run = 1;
    for (int i = degree + 2; i < count; ++i) {
        run = knots[i] == knots[i - 1] ? run + 1 : 1;
        if (run > degree) return false;
    }
    return true;
}

// A cubic Hermite piece on [t_k, t_k+1] has the Bezier points P_k, P_k + h P'_k / 3,
// P_k+1 - h P'_k+1 / 3, P_k+1.  With the same tangent used on both sides of a node the
// pieces join with C1 continuity, so the node's triple knot reduces to a double one and
// the node itself drops out of the control points.
void sw_hermite_node(int index, int count, int& node, int& side) {
    if (index == 0) {
        node = 0, side = 0;
    } else if (index == count - 1) {
        node = (count - 2) / 2, side = 0;
    } else if (index % 2 == 1) {
        node = index / 2, side = 1;
    } else {
        node = index / 2, side = -1;
    }
}
