// The two-variable searches declared in root.h: common roots of two laws in a box by
// Newton's method from a grid of starts, and the minimum of a law in a box by a sampled
// start refined by the compass search.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/numeric_util.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/main_law.h>
#include <lawutil/root.h>

using law_internal::between;

namespace {

void require_box_law(const law* f) {
    if (!f || f->return_dim() != 1 || f->take_dim() > 2) sys_error(LAW_DIM);
}

void require_box(double u0, double u1, double v0, double v1) {
    for (double b : {u0, u1, v0, v1})
        if (!std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
}

double at(const law* f, double u, double v, long* evals) {
    ++*evals;
    const double p[2] = {u, v};
    return f->evaluateM_R(p);
}

struct newton2d {
    const law *f, *g, *fu, *fv, *gu, *gv;
    long evals = 0;

    // Newton on (f, g) = 0 with the Jacobian of the partial derivatives; stops when the
    // step is negligible or the iteration leaves the box's neighbourhood.
    bool solve(double& u, double& v, double u0, double u1, double v0, double v1) {
        const double slack = 0.5 * std::max(u1 - u0, v1 - v0);
        for (int it = 0; it < 40; ++it) {
            const double F = at(f, u, v, &evals), G = at(g, u, v, &evals);
            const double a = at(fu, u, v, &evals), b = at(fv, u, v, &evals);
            const double c = at(gu, u, v, &evals), d = at(gv, u, v, &evals);
            const double det = a * d - b * c;
            if (det == 0 || !std::isfinite(det)) return false;
            const double du = (d * F - b * G) / det, dv = (a * G - c * F) / det;
            u -= du;
            v -= dv;
            if (u < u0 - slack || u > u1 + slack || v < v0 - slack || v > v1 + slack) return false;
            if (std::fabs(du) + std::fabs(dv) <=
                4 * DBL_EPSILON * (1 + std::fabs(u) + std::fabs(v)))
                return true;
        }
        return true;  // judged by the residual below
    }
};

}  // namespace

double* Nroot2D(law* f, law* g, double u0, double u1, double v0, double v1, int* n, int cells) {
    if (!n) sys_error(LAW_DIM);
    *n = 0;
    require_box_law(f);
    require_box_law(g);
    require_box(u0, u1, v0, v1);
    if (u0 > u1) std::swap(u0, u1);
    if (v0 > v1) std::swap(v0, v1);
    cells = std::max(cells, 1);
    const law_ref fu = law_ref::adopt(f->derivative(0)), fv = law_ref::adopt(f->derivative(1));
    const law_ref gu = law_ref::adopt(g->derivative(0)), gv = law_ref::adopt(g->derivative(1));
    newton2d s{f, g, fu.get(), fv.get(), gu.get(), gv.get()};
    const double tol = lawutil_context()->root_f_tol;
    const double du = (u1 - u0) / cells, dv = (v1 - v0) / cells;
    // Two roots nearer than this are one.
    const double same = 1e-8 * (1 + std::hypot(u1 - u0, v1 - v0));
    std::vector<std::pair<double, double>> found;
    try {
        for (int i = 0; i < cells; ++i)
            for (int j = 0; j < cells; ++j) {
                double u = u0 + (i + 0.5) * du, v = v0 + (j + 0.5) * dv;
                if (!s.solve(u, v, u0, u1, v0, v1)) continue;
                if (u < u0 || u > u1 || v < v0 || v > v1) continue;
                if (std::fabs(at(f, u, v, &s.evals)) >= tol ||
                    std::fabs(at(g, u, v, &s.evals)) >= tol)
                    continue;
                const bool seen = std::any_of(found.begin(), found.end(), [&](const auto& r) {
                    return std::hypot(r.first - u, r.second - v) < same;
                });
                if (!seen) found.emplace_back(u, v);
            }
    } catch (...) {
        lawutil_context()->numeric_evaluations += s.evals;
        throw;
    }
    lawutil_context()->numeric_evaluations += s.evals;
    std::sort(found.begin(), found.end());
    *n = static_cast<int>(found.size());
    if (found.empty()) return nullptr;
    double* out = QEM_ALLOC_ARRAY(double, 2 * found.size());
    for (size_t k = 0; k < found.size(); ++k) {
        out[2 * k] = found[k].first;
        out[2 * k + 1] = found[k].second;
    }
    return out;
}

double Nmin2D(law* f, double u0, double u1, double v0, double v1, double* uv, int samples) {
    require_box_law(f);
    require_box(u0, u1, v0, v1);
    if (!uv) sys_error(LAW_DIM);
    if (u0 > u1) std::swap(u0, u1);
    if (v0 > v1) std::swap(v0, v1);
    samples = std::max(samples, 2);
    long evals = 0;
    double best[2] = {u0, v0}, best_v = DBL_MAX;
    for (int i = 0; i < samples; ++i)
        for (int j = 0; j < samples; ++j) {
            const double u = u0 + (u1 - u0) * i / (samples - 1);
            const double v = v0 + (v1 - v0) * j / (samples - 1);
            const double val = at(f, u, v, &evals);
            if (val < best_v) {
                best_v = val;
                best[0] = u;
                best[1] = v;
            }
        }
    lawutil_context()->numeric_evaluations += evals;
    const law_ref in_u = between(0, 'X', u0, u1), in_v = between(1, 'Y', v0, v1);
    const law_ref inside = make_law<and_law>(in_u.get(), in_v.get());
    const double step[2] = {(u1 - u0) / (samples - 1), (v1 - v0) / (samples - 1)};
    QEM::nvector start(2, best), steps(2, step);
    double value = best_v;
    const QEM::nvector m = NminND(f, inside.get(), start, steps, &value, nullptr, -DBL_MAX);
    uv[0] = m[0];
    uv[1] = m[1];
    return value;
}
