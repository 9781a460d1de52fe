// data_law_bench: what reading a curve through law data costs.  The helix
// (cos t, sin t, t/10) on [0, 2 pi] is evaluated at 1024 points as
//   curve/<order>/hand   hand-written C++ (the limit)
//   curve/<order>/law    the law VEC(COS(X),SIN(X),X/10) itself (its derivative for order 1)
//   curve/<order>/cur    CUR(LCURVE1) over a law_curve_law_data holding that law (DCUR for
//                        order 1): the data law's overhead is the ratio cur / law
//   curve/<order>/swedge CUR(SWEDGE1) over the cubic B-spline that law_to_sw_curve fits to
//                        the helix within 1e-6 (DCUR for order 1): the ratio swedge / law
//                        is what reading the fitted curve costs against the law itself
// Every method is checked against the hand-written values before timing (the fitted
// curve to its fit: 1e-6 for points, 1e-3 for derivatives).  The time of the fit itself
// is in sw_curve_bench.
//
// Run it:
//   build/release/bench/data_law_bench --benchmark_format=json > data.json

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/lawutil.h>

#include "bench_common.h"

namespace {

constexpr double two_pi = 6.283185307179586;

void hand(double t, int order, double* out) {
    if (order == 0) {
        out[0] = std::cos(t), out[1] = std::sin(t), out[2] = t / 10;
    } else {
        out[0] = -std::sin(t), out[1] = std::cos(t), out[2] = 0.1;
    }
}

void eval_hand(benchmark::State& state, int order, const std::vector<double>& x) {
    double out[3];
    for (auto _ : state) {
        for (double t : x) {
            hand(t, order, out);
            benchmark::DoNotOptimize(out);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(x.size()));
}

void eval_law(benchmark::State& state, const law* l, const std::vector<double>& x) {
    double out[3];
    for (auto _ : state) {
        for (double t : x) {
            l->evaluate(&t, out);
            benchmark::DoNotOptimize(out);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(x.size()));
}

bool agree(const char* name, int order, const law* l, const std::vector<double>& x,
           double tol = 1e-12) {
    for (double t : x) {
        double want[3], got[3];
        hand(t, order, want);
        l->evaluate(&t, got);
        for (int i = 0; i < 3; ++i)
            if (std::fabs(got[i] - want[i]) > tol) {
                std::fprintf(stderr, "%s differs at %g\n", name, t);
                return false;
            }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("data_law_bench", argc, argv, [&] {
        law_ref helix = law_ref::adopt(str_to_law("VEC(COS(X),SIN(X),X/10)"));
        if (!helix) throw std::runtime_error("cannot parse the helix");
        law_data* curve = new law_curve_law_data(helix.get(), 0.0, two_pi);
        law_ref cur = make_law<curve_law>(curve);
        curve->remove();
        sw_fit_info fit;
        law_data* edge =
            new sw_curve_law_data(law_to_sw_curve(helix.get(), 0.0, two_pi, 1e-6, &fit));
        law_ref swedge = make_law<curve_law>(edge);
        edge->remove();
        std::printf("helix fit to 1e-6: %d control points\n",
                    static_cast<const sw_curve_law_data*>(edge)->curve().control_count());
        law_ref laws[2][3] = {
            {law_ref::retain(helix.get()), law_ref::retain(cur.get()),
             law_ref::retain(swedge.get())},
            {law_ref::adopt(helix->derivative(0)), law_ref::adopt(cur->derivative(0)),
             law_ref::adopt(swedge->derivative(0))}};
        const std::vector<double> points = bench::make_points(0.0, two_pi);
        bool ok = fit.reached;
        for (int order = 0; order < 2; ++order)
            ok = agree("law", order, laws[order][0].get(), points) &&
                 agree("cur", order, laws[order][1].get(), points) &&
                 agree("swedge", order, laws[order][2].get(), points, order ? 1e-3 : 1e-6) && ok;
        if (!ok) return false;
        const std::vector<double>* x = &points;
        for (int order = 0; order < 2; ++order) {
            const std::string base = "curve/" + std::to_string(order);
            const law* l = laws[order][0].get();
            const law* c = laws[order][1].get();
            const law* e = laws[order][2].get();
            benchmark::RegisterBenchmark((base + "/hand").c_str(), [order, x](benchmark::State& s) {
                eval_hand(s, order, *x);
            });
            benchmark::RegisterBenchmark((base + "/law").c_str(),
                                         [l, x](benchmark::State& s) { eval_law(s, l, *x); });
            benchmark::RegisterBenchmark((base + "/cur").c_str(),
                                         [c, x](benchmark::State& s) { eval_law(s, c, *x); });
            benchmark::RegisterBenchmark((base + "/swedge").c_str(),
                                         [e, x](benchmark::State& s) { eval_law(s, e, *x); });
        }
        benchmark::RunSpecifiedBenchmarks();
        return true;
    });
}
