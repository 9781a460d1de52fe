#include <lawutil/sw_curve_util.h>

#include <algorithm>
#include <cmath>
#include <queue>
#include <vector>

#include <lawutil/internal/law_ref.h>

namespace {

struct node_data {
    double t;
    double p[3];  ///< the law's point
    double d[3];  ///< its tangent
};

// The law and its derivative at nodes; the derivative by central differences when the
// law has none (step scaled to the interval, about the cube root of the rounding error).
class curve_sampler {
  public:
    curve_sampler(const law* f, double a, double b) : f_(f), h_(1e-5 * (b - a)) {
        if (f->has_derivative(0)) df_ = law_ref::adopt(f->derivative(0));
    }
    node_data node(double t) {
        node_data n;
        n.t = t;
        point(t, n.p);
        if (df_) {
            df_->evaluate(&t, n.d);
            ++evaluations;
        } else {
            double lo[3], hi[3];
            point(t - h_, lo);
            point(t + h_, hi);
            for (int c = 0; c < 3; ++c) n.d[c] = (hi[c] - lo[c]) / (2 * h_);
        }
        return n;
    }
    void point(double t, double* out) {
        f_->evaluate(&t, out);
        ++evaluations;
    }
    long evaluations = 0;

  private:
    const law* f_;
    law_ref df_;
    double h_;
};

// The cubic Hermite piece between two nodes at s in [0, 1] (Bernstein form).
void hermite_point(const node_data& n0, const node_data& n1, double s, double* out) {
    const double h = n1.t - n0.t;
    const double r = 1 - s;
    const double b0 = r * r * r, b1 = 3 * r * r * s, b2 = 3 * r * s * s, b3 = s * s * s;
    for (int c = 0; c < 3; ++c)
        out[c] = b0 * n0.p[c] + b1 * (n0.p[c] + h / 3 * n0.d[c]) +
                 b2 * (n1.p[c] - h / 3 * n1.d[c]) + b3 * n1.p[c];
}

// A value that is not a number counts as infinitely far, so that a law that gives NaN
// somewhere is refined there and the fit reports that it did not reach its tolerance.
double distance(const double* a, const double* b) {
    const double d = std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                               (a[2] - b[2]) * (a[2] - b[2]));
    return d == d ? d : HUGE_VAL;
}

constexpr int inner_samples = 7;

struct span {
    node_data n0, n1;
    double error;
    bool operator<(const span& o) const { return error < o.error; }
};

span make_span(const node_data& n0, const node_data& n1, curve_sampler& sampler) {
    span s{n0, n1, 0.0};
    for (int i = 1; i <= inner_samples; ++i) {
        const double u = static_cast<double>(i) / (inner_samples + 1);
        double fit[3], exact[3];
        hermite_point(n0, n1, u, fit);
        sampler.point(n0.t + u * (n1.t - n0.t), exact);
        s.error = std::max(s.error, distance(fit, exact));
    }
    return s;
}

sw_curve assemble(std::vector<span>& spans) {
    std::sort(spans.begin(), spans.end(),
              [](const span& x, const span& y) { return x.n0.t < y.n0.t; });
    std::vector<const node_data*> nodes;
    for (const span& s : spans) nodes.push_back(&s.n0);
    nodes.push_back(&spans.back().n1);
    const int count = 2 * static_cast<int>(spans.size()) + 2;

    std::vector<QEM::position> points(count);
    for (int i = 0; i < count; ++i) {
        int k, side;
        sw_hermite_node(i, count, k, side);
        const node_data& n = *nodes[k];
        const double h = side > 0 ? nodes[k + 1]->t - n.t : side < 0 ? n.t - nodes[k - 1]->t : 0;
        points[i] = QEM::position(n.p[0] + side * h / 3 * n.d[0], n.p[1] + side * h / 3 * n.d[1],
                                  n.p[2] + side * h / 3 * n.d[2]);
    }
    std::vector<double> knots;
    knots.insert(knots.end(), 4, nodes.front()->t);
    for (size_t k = 1; k + 1 < nodes.size(); ++k) knots.insert(knots.end(), 2, nodes[k]->t);
    knots.insert(knots.end(), 4, nodes.back()->t);
    return sw_curve(3, count, points.data(), nullptr, knots.data());
}

void check_curve_law(const law* f) {
    if (!f || f->take_dim() != 1 || f->return_dim() != 3) sys_error(LAW_DIM);
}

}  // namespace

sw_curve law_to_sw_curve(const law* f, double a, double b, double tol, sw_fit_info* info,
                         int max_control_points) {
    check_curve_law(f);
    if (!(a < b) || !std::isfinite(a) || !std::isfinite(b) || !(tol > 0) || !std::isfinite(tol))
        sys_error(LAW_DIM);
    curve_sampler sampler(f, a, b);

    // A few spans to begin with, so that a curve that happens to pass the first samples
    // is still looked at in more than one place.
    constexpr int first_spans = 4;
    const int max_spans = std::max(first_spans, (max_control_points - 2) / 2);
    std::priority_queue<span> worst_first;
    node_data prev = sampler.node(a);
    for (int i = 1; i <= first_spans; ++i) {
        node_data next = sampler.node(i == first_spans ? b : a + (b - a) * i / first_spans);
        worst_first.push(make_span(prev, next, sampler));
        prev = next;
    }
    while (worst_first.top().error > tol && static_cast<int>(worst_first.size()) < max_spans) {
        span s = worst_first.top();
        const double mid = 0.5 * (s.n0.t + s.n1.t);
        if (!(mid > s.n0.t && mid < s.n1.t)) break;  // spans as short as doubles allow
        worst_first.pop();
        node_data m = sampler.node(mid);
        worst_first.push(make_span(s.n0, m, sampler));
        worst_first.push(make_span(m, s.n1, sampler));
    }
    const double deviation = worst_first.top().error;
    std::vector<span> spans;
    spans.reserve(worst_first.size());
    while (!worst_first.empty()) {
        spans.push_back(worst_first.top());
        worst_first.pop();
    }
    if (info) {
        info->reached = deviation <= tol;
        info->deviation = deviation;
        info->evaluations = sampler.evaluations;
    }
    return assemble(spans);
}

double sw_curve_accuracy(const sw_curve& curve, const law* f, int samples_per_span) {
    check_curve_law(f);
    const int inner = std::max(0, samples_per_span);
    double worst = 0.0;
    auto check = [&](double t) {
        double exact[3], fit[3];
        f->evaluate(&t, exact);
        curve.derivs(t, 0, fit);
        worst = std::max(worst, distance(fit, exact));
    };
    const int p = curve.degree();
    check(curve.start_param());
    for (int k = p; k < curve.control_count(); ++k) {
        const double t0 = curve.knot(k), t1 = curve.knot(k + 1);
        if (!(t0 < t1)) continue;
        for (int i = 1; i <= inner; ++i) check(t0 + (t1 - t0) * i / (inner + 1));
        check(t1);
    }
    return worst;
}
