// sweep_bench: the rotation-minimising frame of the helix (2 cos t, 2 sin t, t), t in
// [0, 2 pi], from 1000 stored samples, evaluated at 1024 points, three ways:
//   sweep/minrot/law            MINROT, plain step
//   sweep/minrot_refined/law    MINROT after set_alt_eval(1)
//   sweep/minrot_reflect/law    MINROT after set_min_rot_method(1): double reflection
//   sweep/double_reflection/hand  the double-reflection frame (Wang, Juttler, Zheng and
//                               Liu, 2008) written by hand: 1000 stored samples, each value
//                               one double reflection from the sample below
// the two laws again as ".../law/tree", built with the option "compile_numerics" at 0 (a
// step evaluates the tangent, and the path, by the tree rather than by a program compiled
// when the law was built), and the sampling that builds the table (one item per sample):
//   sweep/minrot/build          a MINROT built from its parts, plain step
//   sweep/minrot_refined/build  set_alt_eval(1): the table again with the refined step
//   sweep/minrot_reflect/build  set_min_rot_method(1): the table by double reflection
// each also as ".../tree" with the option "compile_numerics" at 0 (the tangents and
// points at the samples by the tree rather than by one compiled program).
// One item per point.  The largest distance from the analytic frame (the Frenet normal
// turned by -tau s) over the points is printed and stored in the JSON context.
//
// Run it:
//   build/release/bench/sweep_bench --benchmark_format=json > sweep.json

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bench_common.h"

namespace {

constexpr int samples = 1000;
constexpr double two_pi = 6.283185307179586;
constexpr double a = 2.0, b = 1.0;

struct v3 {
    double x, y, z;
};
v3 operator+(v3 p, v3 q) {
    return {p.x + q.x, p.y + q.y, p.z + q.z};
}
v3 operator-(v3 p, v3 q) {
    return {p.x - q.x, p.y - q.y, p.z - q.z};
}
v3 operator*(double s, v3 p) {
    return {s * p.x, s * p.y, s * p.z};
}
double dot(v3 p, v3 q) {
    return p.x * q.x + p.y * q.y + p.z * q.z;
}

v3 helix(double t) {
    return {a * std::cos(t), a * std::sin(t), b * t};
}
v3 unit_tangent(double t) {
    const double l = std::sqrt(a * a + b * b);
    return {-a / l * std::sin(t), a / l * std::cos(t), b / l};
}

// The frame that starts at the Frenet normal turns from it by -tau s = -b t / L.
v3 analytic(double t) {
    const double l = std::sqrt(a * a + b * b), th = -b * t / l;
    const v3 n{-std::cos(t), -std::sin(t), 0}, bn{b / l * std::sin(t), -b / l * std::cos(t), a / l};
    return std::cos(th) * n + std::sin(th) * bn;
}

// One double reflection carrying r (across the tangent t0 at x0) to the point x1 with
// tangent t1: reflect in the plane bisecting x0 x1, then in the one that maps the
// reflected tangent onto t1.
v3 double_reflection(v3 x0, v3 t0, v3 r, v3 x1, v3 t1) {
    const v3 v1 = x1 - x0;
    const double c1 = dot(v1, v1);
    if (c1 == 0) return r;
    const v3 rl = r - (2 / c1 * dot(v1, r)) * v1;
    const v3 tl = t0 - (2 / c1 * dot(v1, t0)) * v1;
    const v3 v2 = t1 - tl;
    const double c2 = dot(v2, v2);
    return c2 == 0 ? rl : rl - (2 / c2 * dot(v2, rl)) * v2;
}

class double_reflection_frame {
  public:
    double_reflection_frame() : r_(samples) {
        r_[0] = analytic(0);
        for (int i = 1; i < samples; ++i)
            r_[i] = double_reflection(helix(t(i - 1)), unit_tangent(t(i - 1)), r_[i - 1],
                                      helix(t(i)), unit_tangent(t(i)));
    }
    v3 operator()(double x) const {
        const double q = x / (two_pi / (samples - 1));
        const int k = q <= 0 ? 0 : q >= samples - 1 ? samples - 1 : static_cast<int>(q);
        return double_reflection(helix(t(k)), unit_tangent(t(k)), r_[k], helix(x), unit_tangent(x));
    }

  private:
    static double t(int i) { return static_cast<double>(i) / (samples - 1) * two_pi; }
    std::vector<v3> r_;
};

template <class F>
double worst_error(const std::vector<double>& xs, F&& frame) {
    double worst = 0;
    for (double x : xs) {
        const v3 d = frame(x) - analytic(x);
        worst = std::max(worst, std::sqrt(dot(d, d)));
    }
    return worst;
}

v3 law_value(const law* l, double x) {
    double out[3];
    l->evaluate(&x, out);
    return {out[0], out[1], out[2]};
}

void run_law(benchmark::State& state, const law* l, const std::vector<double>* xs) {
    double out[3];
    for (auto _ : state) {
        for (double x : *xs) {
            l->evaluate(&x, out);
            benchmark::DoNotOptimize(out);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bench::point_count);
}

void run_hand(benchmark::State& state, const double_reflection_frame* f,
              const std::vector<double>* xs) {
    for (auto _ : state) {
        for (double x : *xs) {
            v3 r = (*f)(x);
            benchmark::DoNotOptimize(r);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bench::point_count);
}

/// The table of samples built again and again: a fresh MINROT over `parts`, or, with
/// `refine`, set_alt_eval(1) on `refined` (set_min_rot_method(1) when `reflect`).
void run_build(benchmark::State& state, law* const* parts, law* refined, bool tree, bool reflect) {
    const bench::tree_numerics mode(tree);
    for (auto _ : state) {
        if (refined && reflect) {
            static_cast<min_rotation_law*>(refined)->set_min_rot_method(1);
        } else if (refined) {
            static_cast<min_rotation_law*>(refined)->set_alt_eval(1);
        } else {
            law* m = new min_rotation_law(const_cast<law**>(parts), 4, samples);
            law::remove(m);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * samples);
}

std::string scientific(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", v);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("sweep_bench", argc, argv, [&] {
        const std::vector<double> xs = bench::make_points(0.0, two_pi);
        law* plain = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
        law* refined = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
        if (!plain || !refined) return false;
        static_cast<min_rotation_law*>(refined)->set_alt_eval(1);
        law* reflect = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
        static_cast<min_rotation_law*>(reflect)->set_min_rot_method(1);
        law* plain_tree = nullptr;
        law* refined_tree = nullptr;
        law* reflect_tree = nullptr;
        {
            const bench::tree_numerics mode;
            plain_tree = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
            refined_tree = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
            static_cast<min_rotation_law*>(refined_tree)->set_alt_eval(1);
            reflect_tree = str_to_law("MINROT(VEC(2*COS(X),2*SIN(X),X),VEC(-1,0,0),0,2*PI)");
            static_cast<min_rotation_law*>(reflect_tree)->set_min_rot_method(1);
        }
        const double_reflection_frame hand;
        const double e_plain = worst_error(xs, [&](double x) { return law_value(plain, x); });
        const double e_refined = worst_error(xs, [&](double x) { return law_value(refined, x); });
        const double e_hand = worst_error(xs, hand);
        const double e_reflect = worst_error(xs, [&](double x) { return law_value(reflect, x); });
        std::printf(
            "largest distance from the analytic frame (%d samples): plain %.3g, "
            "refined %.3g, double reflection %.3g (law %.3g)\n",
            samples, e_plain, e_refined, e_hand, e_reflect);
        benchmark::AddCustomContext("sweep/minrot_reflect/error", scientific(e_reflect));
        benchmark::AddCustomContext("sweep/minrot/error", scientific(e_plain));
        benchmark::AddCustomContext("sweep/minrot_refined/error", scientific(e_refined));
        benchmark::AddCustomContext("sweep/double_reflection/error", scientific(e_hand));
        benchmark::RegisterBenchmark("sweep/minrot/law", run_law, plain, &xs);
        benchmark::RegisterBenchmark("sweep/minrot_refined/law", run_law, refined, &xs);
        benchmark::RegisterBenchmark("sweep/minrot/law/tree", run_law, plain_tree, &xs);
        benchmark::RegisterBenchmark("sweep/minrot_refined/law/tree", run_law, refined_tree, &xs);
        benchmark::RegisterBenchmark("sweep/minrot_reflect/law", run_law, reflect, &xs);
        benchmark::RegisterBenchmark("sweep/minrot_reflect/law/tree", run_law, reflect_tree, &xs);
        benchmark::RegisterBenchmark("sweep/double_reflection/hand", run_hand, &hand, &xs);
        law* parts[4] = {str_to_law("VEC(2*COS(X),2*SIN(X),X)"), str_to_law("VEC(-1,0,0)"),
                         str_to_law("0"), str_to_law("2*PI")};
        for (const bool tree : {false, true}) {
            const std::string suffix = tree ? "/tree" : "";
            benchmark::RegisterBenchmark(("sweep/minrot/build" + suffix).c_str(), run_build, parts,
                                         nullptr, tree, false);
            benchmark::RegisterBenchmark(("sweep/minrot_refined/build" + suffix).c_str(), run_build,
                                         parts, refined, tree, false);
            benchmark::RegisterBenchmark(("sweep/minrot_reflect/build" + suffix).c_str(), run_build,
                                         parts, reflect, tree, true);
        }
        benchmark::RunSpecifiedBenchmarks();
        for (law* p : parts) law::remove(p);
        law::remove(refined);
        law::remove(plain);
        law::remove(refined_tree);
        law::remove(reflect);
        law::remove(reflect_tree);
        law::remove(plain_tree);
        return true;
    });
}
