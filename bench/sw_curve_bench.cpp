// sw_curve_bench: a helix written as a law, VEC(2*COS(X),2*SIN(X),X/10) over two turns,
// against the cubic B-spline that law_to_sw_curve fits to it within 1e-6, and the fit
// itself.
//
// Run it:
//   build/release/bench/sw_curve_bench --benchmark_repetitions=3
//
// Benchmark names (one item per point over 1024 points, except the fit):
//   sw_curve/helix/law          the law's evaluate
//   sw_curve/helix/spline       sw_curve::derivs(t, 0, out), the spline evaluated directly
//   sw_curve/helix/spline_law   the same spline wrapped as a law (SPLINE_LAW)
//   sw_curve/helix/hand         the helix written by hand in C++ (the limit)
//   sw_curve/helix/fit          law_to_sw_curve to 1e-6 (counters: control points,
//                               evaluations of the law and its derivative)

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/lawutil.h>

#include "bench_common.h"

namespace {

constexpr const char* helix_text = "VEC(2*COS(X),2*SIN(X),X/10)";
constexpr double lo = 0.0, hi = 4 * M_PI, tol = 1e-6;

void per_point(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bench::point_count);
}

template <class Eval>
void sweep(benchmark::State& state, const std::vector<double>& x, Eval&& eval) {
    std::vector<double> out(3 * x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) eval(x[i], &out[3 * i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    per_point(state);
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("sw_curve_bench", argc, argv, [] {
        const law_ref helix = law_ref::adopt(str_to_law(helix_text));
        sw_fit_info info;
        const sw_curve curve = law_to_sw_curve(helix.get(), lo, hi, tol, &info);
        const law_ref spline = law_ref::adopt(make_spline_law(curve));
        const std::vector<double> x = bench::make_points(lo, hi);
        const double accuracy = sw_curve_accuracy(curve, helix.get());
        std::printf("helix fit to %g: %d control points, %ld evaluations, deviation %.3g\n", tol,
                    curve.control_count(), info.evaluations, accuracy);
        if (!info.reached || accuracy > tol) return false;

        benchmark::RegisterBenchmark("sw_curve/helix/law", [&](benchmark::State& s) {
            sweep(s, x, [&](double t, double* out) { helix->evaluate(&t, out); });
        });
        benchmark::RegisterBenchmark("sw_curve/helix/spline", [&](benchmark::State& s) {
            sweep(s, x, [&](double t, double* out) { curve.derivs(t, 0, out); });
        });
        benchmark::RegisterBenchmark("sw_curve/helix/spline_law", [&](benchmark::State& s) {
            sweep(s, x, [&](double t, double* out) { spline->evaluate(&t, out); });
        });
        benchmark::RegisterBenchmark("sw_curve/helix/hand", [&](benchmark::State& s) {
            sweep(s, x, [](double t, double* out) {
                out[0] = 2 * std::cos(t);
                out[1] = 2 * std::sin(t);
                out[2] = t / 10;
            });
        });
        benchmark::RegisterBenchmark("sw_curve/helix/fit", [&](benchmark::State& s) {
            sw_fit_info fit;
            int points = 0;
            for (auto _ : s) {
                const sw_curve c = law_to_sw_curve(helix.get(), lo, hi, tol, &fit);
                points = c.control_count();
                benchmark::DoNotOptimize(points);
            }
            s.counters["control_points"] = points;
            s.counters["evaluations"] = static_cast<double>(fit.evaluations);
        })->Unit(benchmark::kMicrosecond);
        benchmark::RunSpecifiedBenchmarks();
        return true;
    });
}
