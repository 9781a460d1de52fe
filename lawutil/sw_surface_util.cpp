#include <lawutil/sw_surface_util.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <lawutil/internal/law_ref.h>

namespace {

// Point, partials and twist at a grid node.
struct node_data {
    double p[3], pu[3], pv[3], puv[3];
};

// The law and its partials; central differences for a partial the law does not have.
class surface_sampler {
  public:
    surface_sampler(const law* f, double hu, double hv) : f_(f), hu_(hu), hv_(hv) {
        if (f->has_derivative(0)) fu_ = law_ref::adopt(f->derivative(0));
        if (f->has_derivative(1)) fv_ = law_ref::adopt(f->derivative(1));
        if (fu_ && fu_->has_derivative(1)) fuv_ = law_ref::adopt(fu_->derivative(1));
    }
    void point(double u, double v, double* out) { value(f_, u, v, out); }
    node_data node(double u, double v) {
        node_data n;
        point(u, v, n.p);
        partial(fu_.get(), u, v, hu_, 0, n.pu);
        partial(fv_.get(), u, v, 0, hv_, n.pv);
        if (fuv_) {
            value(fuv_.get(), u, v, n.puv);
        } else {
            double a[3], b[3], c[3], d[3];
            point(u + hu_, v + hv_, a);
            point(u + hu_, v - hv_, b);
            point(u - hu_, v + hv_, c);
            point(u - hu_, v - hv_, d);
            for (int k = 0; k < 3; ++k) n.puv[k] = (a[k] - b[k] - c[k] + d[k]) / (4 * hu_ * hv_);
        }
        return n;
    }
    long evaluations = 0;

  private:
    void value(const law* l, double u, double v, double* out) {
        const double x[2] = {u, v};
        l->evaluate(x, out);
        ++evaluations;
    }
    void partial(const law* d, double u, double v, double du, double dv, double* out) {
        if (d) return value(d, u, v, out);
        double hi[3], lo[3];
        point(u + du, v + dv, hi);
        point(u - du, v - dv, lo);
        const double h = 2 * (du + dv);
        for (int k = 0; k < 3; ++k) out[k] = (hi[k] - lo[k]) / h;
    }

    const law* f_;
    law_ref fu_, fv_, fuv_;
    double hu_, hv_;
};

// NaN counts as infinitely far (see the curve fit).
double distance(const double* a, const QEM::position& b) {
    const double d = std::sqrt((a[0] - b.x()) * (a[0] - b.x()) + (a[1] - b.y()) * (a[1] - b.y()) +
                               (a[2] - b.z()) * (a[2] - b.z()));
    return d == d ? d : HUGE_VAL;
}

// The grid of nodes and the bicubic Hermite surface through it.
struct hermite_grid {
    std::vector<double> us, vs;
    std::vector<node_data> nodes;  ///< nodes[i * vs.size() + j]

    const node_data& at(size_t i, size_t j) const { return nodes[i * vs.size() + j]; }

    void fill(surface_sampler& sampler) {
        nodes.resize(us.size() * vs.size());
        for (size_t i = 0; i < us.size(); ++i)
            for (size_t j = 0; j < vs.size(); ++j)
                nodes[i * vs.size() + j] = sampler.node(us[i], vs[j]);
    }

    // Each control point is P + a Pu + b Pv + a b Puv at its node, with a = side_u hu / 3
    // and b = side_v hv / 3: the tensor product of the curve rule.
    sw_surface build() const {
        const int cu = 2 * static_cast<int>(us.size());
        const int cv = 2 * static_cast<int>(vs.size());
        std::vector<QEM::position> points(static_cast<size_t>(cu) * cv);
        for (int I = 0; I < cu; ++I) {
            int ku, su;
            sw_hermite_node(I, cu, ku, su);
            const double a = su *
                             (su > 0   ? us[ku + 1] - us[ku]
                              : su < 0 ? us[ku] - us[ku - 1]
                                       : 0) /
                             3;
            for (int J = 0; J < cv; ++J) {
                int kv, sv;
                sw_hermite_node(J, cv, kv, sv);
                const double b = sv *
                                 (sv > 0   ? vs[kv + 1] - vs[kv]
                                  : sv < 0 ? vs[kv] - vs[kv - 1]
                                           : 0) /
                                 3;
                const node_data& n = at(ku, kv);
                double q[3];
                for (int c = 0; c < 3; ++c)
                    q[c] = n.p[c] + a * n.pu[c] + b * n.pv[c] + a * b * n.puv[c];
                points[static_cast<size_t>(I) * cv + J] = QEM::position(q[0], q[1], q[2]);
            }
        }
        const std::vector<double> ku = knots(us), kv = knots(vs);
        return sw_surface(3, 3, cu, cv, points.data(), nullptr, ku.data(), kv.data());
    }

    static std::vector<double> knots(const std::vector<double>& t) {
        std::vector<double> k(4, t.front());
        for (size_t i = 1; i + 1 < t.size(); ++i) k.insert(k.end(), 2, t[i]);
        k.insert(k.end(), 4, t.back());
        return k;
    }
};

void check_surface_law(const law* f) {
    if (!f || f->take_dim() != 2 || f->return_dim() != 3) sys_error(LAW_DIM);
}

std::vector<double> even(double lo, double hi, int spans) {
    std::vector<double> t(spans + 1);
    for (int i = 0; i <= spans; ++i) t[i] = i == spans ? hi : lo + (hi - lo) * i / spans;
    return t;
}

// Splits every interval flagged, at its middle.
std::vector<double> split(const std::vector<double>& t, const std::vector<char>& flagged) {
    std::vector<double> out;
    for (size_t i = 0; i + 1 < t.size(); ++i) {
        out.push_back(t[i]);
        const double mid = 0.5 * (t[i] + t[i + 1]);
        if (flagged[i] && mid > t[i] && mid < t[i + 1]) out.push_back(mid);
    }
    out.push_back(t.back());
    return out;
}

}  // namespace

sw_surface law_to_sw_surface(const law* f, double u0, double u1, double v0, double v1, double tol,
                             sw_fit_info* info, int max_control_points) {
    check_surface_law(f);
    if (!(u0 < u1) || !(v0 < v1) || !std::isfinite(u1 - u0) || !std::isfinite(v1 - v0) ||
        !(tol > 0) || !std::isfinite(tol))
        sys_error(LAW_DIM);
    surface_sampler sampler(f, 1e-5 * (u1 - u0), 1e-5 * (v1 - v0));
    hermite_grid grid;
    grid.us = even(u0, u1, 4);
    grid.vs = even(v0, v1, 4);
    grid.fill(sampler);
    sw_surface best = grid.build();
    double deviation = 0.0;
    for (;;) {
        // Deviation per cell, and whether it comes from the u or the v direction: on a cell
        // edge v = const the patch is the cubic Hermite curve in u, so the middles of the
        // two u-edges measure the u-resolution (and the v-edges the v-resolution).
        const size_t nu = grid.us.size() - 1, nv = grid.vs.size() - 1;
        std::vector<char> split_u(nu, 0), split_v(nv, 0);
        deviation = 0.0;
        for (size_t i = 0; i < nu; ++i)
            for (size_t j = 0; j < nv; ++j) {
                const double ua = grid.us[i], ub = grid.us[i + 1];
                const double va = grid.vs[j], vb = grid.vs[j + 1];
                auto error_at = [&](double su, double sv) {
                    const double u = ua + su * (ub - ua), v = va + sv * (vb - va);
                    double exact[3];
                    sampler.point(u, v, exact);
                    return distance(exact, best.eval_position(u, v));
                };
                double cell = 0.0;
                for (int a = 1; a <= 3; ++a)
                    for (int b = 1; b <= 3; ++b) cell = std::max(cell, error_at(a / 4.0, b / 4.0));
                deviation = std::max(deviation, cell);
                if (cell <= tol) continue;
                const double eu = std::max(error_at(0.5, 0.0), error_at(0.5, 1.0));
                const double ev = std::max(error_at(0.0, 0.5), error_at(1.0, 0.5));
                const bool by_u = eu >= 0.25 * cell, by_v = ev >= 0.25 * cell;
                if (by_u || !by_v) split_u[i] = 1;
                if (by_v || !by_u) split_v[j] = 1;
            }
        if (deviation <= tol) break;
        const std::vector<double> us = split(grid.us, split_u), vs = split(grid.vs, split_v);
        if (us.size() == grid.us.size() && vs.size() == grid.vs.size()) break;
        if (static_cast<long>(2 * us.size()) * static_cast<long>(2 * vs.size()) >
            max_control_points)
            break;
        grid.us = us;
        grid.vs = vs;
        grid.fill(sampler);
        best = grid.build();
    }
    if (info) {
        info->reached = deviation <= tol;
        info->deviation = deviation;
        info->evaluations = sampler.evaluations;
    }
    return best;
}

double sw_surface_accuracy(const sw_surface& surface, const law* f, int samples_per_span) {
    check_surface_law(f);
    const int inner = std::max(0, samples_per_span);
    auto params = [inner](int count, int degree, auto knot) {
        std::vector<double> t{knot(degree)};
        for (int k = degree; k < count; ++k) {
            const double a = knot(k), b = knot(k + 1);
            if (!(a < b)) continue;
            for (int i = 1; i <= inner; ++i) t.push_back(a + (b - a) * i / (inner + 1));
            t.push_back(b);
        }
        return t;
    };
    const std::vector<double> us =
        params(surface.count_u(), surface.degree_u(), [&](int i) { return surface.knot_u(i); });
    const std::vector<double> vs =
        params(surface.count_v(), surface.degree_v(), [&](int i) { return surface.knot_v(i); });
    double worst = 0.0;
    for (double u : us)
        for (double v : vs) {
            const double x[2] = {u, v};
            double exact[3];
            f->evaluate(x, exact);
            worst = std::max(worst, distance(exact, surface.eval_position(u, v)));
        }
    return worst;
}
