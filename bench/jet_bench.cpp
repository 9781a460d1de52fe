// jet_bench: derivative values by Taylor arithmetic over the compiled law (law_compile_jet)
// beside Boost.Math's forward-mode autodiff (make_fvar), hand-written Taylor code for the
// same function, and the symbolic derivatives compiled with law_compile, on two laws:
//   sin4    SIN(SIN(SIN(SIN(X)))), its eighth derivative (the jet gives all of 0..8)
//   tree30  the 30-node tree of derivative_bench, its derivatives 1 to 5
//
// Run it:
//   cmake --build build/release -j2 --target jet_bench &&
//   build/release/bench/jet_bench --benchmark_format=json > jet.json
//
// Benchmark names, one item per point (1e9 / items_per_second is ns per point):
//   jet/<expr>/jet              law_program::evaluate of the jet program, point by point
//   jet/<expr>/jet_batch        evaluate_batch over 10^4 points
//   jet/<expr>/boost            Boost autodiff, point by point (when built with it)
//   jet/<expr>/hand             hand-written Taylor series code
//   jet/<expr>/symbolic         the symbolic derivative(s), built once, compiled, by point
//   jet/<expr>/symbolic_batch   the same over 10^4 points
//   jet/sin4/first_jet          parse, compile the jet and evaluate one point
//   jet/sin4/first_symbolic     parse, build the eighth derivative and evaluate one point
//
// Before timing every method is checked against the jet at every point.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_BOOST_MATH
#include <boost/math/differentiation/autodiff.hpp>
#endif

namespace {

using bench::point_count;
using program_ptr = std::unique_ptr<law_program, decltype(&law_program_release)>;

constexpr int batch_points = 10000;
constexpr double lo = 0.5, hi = 1.5;

const char* const sin4_text = "SIN(SIN(SIN(SIN(X))))";
const char* const tree30_text = "SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2)";

// ------------------------------------------------------------------ hand-written Taylor code
// Truncated series of N + 1 coefficients, each operation by its recurrence, the sizes known
// to the compiler.

template <int N>
struct series {
    double c[N + 1];
};

template <int N>
series<N> variable(double x) {
    series<N> s{};
    s.c[0] = x;
    if (N > 0) s.c[1] = 1.0;
    return s;
}

template <int N>
series<N> mul(const series<N>& a, const series<N>& b) {
    series<N> r;
    for (int n = 0; n <= N; ++n) {
        double s = 0.0;
        for (int j = 0; j <= n; ++j) s += a.c[j] * b.c[n - j];
        r.c[n] = s;
    }
    return r;
}

template <int N>
series<N> divide(const series<N>& a, const series<N>& b) {
    series<N> r;
    for (int n = 0; n <= N; ++n) {
        double s = a.c[n];
        for (int j = 1; j <= n; ++j) s -= b.c[j] * r.c[n - j];
        r.c[n] = s / b.c[0];
    }
    return r;
}

template <int N>
series<N> affine(const series<N>& a, double k, double add) {
    series<N> r;
    for (int n = 0; n <= N; ++n) r.c[n] = k * a.c[n];
    r.c[0] += add;
    return r;
}

template <int N>
void sin_cos(const series<N>& a, series<N>& s, series<N>& c) {
    s.c[0] = std::sin(a.c[0]);
    c.c[0] = std::cos(a.c[0]);
    for (int n = 1; n <= N; ++n) {
        double ss = 0.0, cc = 0.0;
        for (int j = 1; j <= n; ++j) {
            ss += j * a.c[j] * c.c[n - j];
            cc += j * a.c[j] * s.c[n - j];
        }
        s.c[n] = ss / n;
        c.c[n] = -cc / n;
    }
}

template <int N>
series<N> sin_of(const series<N>& a) {
    series<N> s, c;
    sin_cos(a, s, c);
    return s;
}

template <int N>
series<N> cos_of(const series<N>& a) {
    series<N> s, c;
    sin_cos(a, s, c);
    return c;
}

template <int N>
series<N> exp_of(const series<N>& a) {
    series<N> r;
    r.c[0] = std::exp(a.c[0]);
    for (int n = 1; n <= N; ++n) {
        double s = 0.0;
        for (int j = 1; j <= n; ++j) s += j * a.c[j] * r.c[n - j];
        r.c[n] = s / n;
    }
    return r;
}

template <int N>
series<N> log_of(const series<N>& a) {
    series<N> r;
    r.c[0] = std::log(a.c[0]);
    for (int n = 1; n <= N; ++n) {
        double s = 0.0;
        for (int j = 1; j < n; ++j) s += j * r.c[j] * a.c[n - j];
        r.c[n] = (a.c[n] - s / n) / a.c[0];
    }
    return r;
}

template <int N>
series<N> sqrt_of(const series<N>& a) {
    series<N> r;
    r.c[0] = std::sqrt(a.c[0]);
    for (int n = 1; n <= N; ++n) {
        double s = a.c[n];
        for (int j = 1; j < n; ++j) s -= r.c[j] * r.c[n - j];
        r.c[n] = s / (2.0 * r.c[0]);
    }
    return r;
}

template <int N>
void derivatives_out(const series<N>& s, double* out) {
    double f = 1.0;
    for (int k = 0; k <= N; ++k) {
        if (k) f *= k;
        out[k] = s.c[k] * f;
    }
}

void hand_sin4(double x, double* out) {
    derivatives_out(sin_of(sin_of(sin_of(sin_of(variable<8>(x))))), out);
}

void hand_tree30(double x, double* out) {
    const series<5> X = variable<5>(x);
    const series<5> a = mul(sin_of(affine(X, 2.0, 0.0)), exp_of(affine(X, 0.5, 0.0)));
    const series<5> b = mul(log_of(affine(X, 1.0, 1.0)), cos_of(mul(X, X)));
    const series<5> c = divide(sqrt_of(affine(mul(X, X), 1.0, 1.0)), affine(X, 1.0, 2.0));
    series<5> r;
    for (int n = 0; n <= 5; ++n) r.c[n] = a.c[n] + b.c[n] - c.c[n];
    derivatives_out(r, out);
}

#ifdef LAW_BENCH_HAVE_BOOST_MATH
void boost_sin4(double x0, double* out) {
    using namespace boost::math::differentiation;
    const auto x = make_fvar<double, 8>(x0);
    const auto y = sin(sin(sin(sin(x))));
    for (int k = 0; k <= 8; ++k) out[k] = y.derivative(k);
}

void boost_tree30(double x0, double* out) {
    using namespace boost::math::differentiation;
    const auto x = make_fvar<double, 5>(x0);
    const auto y = sin(2 * x) * exp(x / 2) + log(x + 1) * cos(x * x) - sqrt(x * x + 1) / (x + 2);
    for (int k = 0; k <= 5; ++k) out[k] = y.derivative(k);
}
#endif

// ------------------------------------------------------------------ the rows

struct row {
    const char* key;
    const char* text;
    int order;  // the jet's order
    int first;  // the lowest derivative the symbolic program computes
    void (*hand)(double, double*);
    void (*boost)(double, double*);
};

struct prepared {
    const row* r = nullptr;
    law_ref law;
    std::vector<law_ref> derivatives;  // orders first..order
    program_ptr jet{nullptr, &law_program_release};
    program_ptr symbolic{nullptr, &law_program_release};
    std::vector<double> xs, batch_xs;
};

void set_points(benchmark::State& state, int n) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}

void eval_points(benchmark::State& state, const law_program& p, const std::vector<double>& xs) {
    std::vector<double> out(static_cast<std::size_t>(p.output_count()));
    for (auto _ : state) {
        for (double x : xs) {
            p.evaluate(&x, out.data());
            benchmark::DoNotOptimize(out.data());
        }
        benchmark::ClobberMemory();
    }
    set_points(state, static_cast<int>(xs.size()));
}

void eval_batch(benchmark::State& state, const law_program& p, const std::vector<double>& xs) {
    const int n = static_cast<int>(xs.size());
    std::vector<std::vector<double>> out(static_cast<std::size_t>(p.output_count()),
                                         std::vector<double>(xs.size()));
    std::vector<double*> o;
    for (auto& v : out) o.push_back(v.data());
    const double* in[] = {xs.data()};
    for (auto _ : state) {
        p.evaluate_batch(n, in, o.data());
        benchmark::ClobberMemory();
    }
    set_points(state, n);
}

void eval_function(benchmark::State& state, void (*f)(double, double*), int order,
                   const std::vector<double>& xs) {
    std::vector<double> out(static_cast<std::size_t>(order) + 1);
    for (auto _ : state) {
        for (double x : xs) {
            f(x, out.data());
            benchmark::DoNotOptimize(out.data());
        }
        benchmark::ClobberMemory();
    }
    set_points(state, static_cast<int>(xs.size()));
}

void first_jet(benchmark::State& state, const row& r) {
    double out[64];
    const double x = 0.7;
    for (auto _ : state) {
        law_ref l = law_ref::adopt(str_to_law(r.text));
        law* laws[] = {l.get()};
        program_ptr p(law_compile_jet(laws, 1, r.order, 0), &law_program_release);
        p->evaluate(&x, out);
        benchmark::DoNotOptimize(out[r.order]);
    }
}

void first_symbolic(benchmark::State& state, const row& r) {
    const double x = 0.7;
    for (auto _ : state) {
        law_ref l = law_ref::adopt(str_to_law(r.text));
        law_ref d = law_ref::adopt(l->nth_derivative(r.order));
        benchmark::DoNotOptimize(d->evaluate_scalar(&x));
    }
}

// The jet against the symbolic derivatives and the other methods, at every point.
bool prepare(const row& r, prepared& p) {
    p.r = &r;
    p.law = law_ref::adopt(str_to_law(r.text));
    law* laws[] = {p.law.get()};
    p.jet.reset(law_compile_jet(laws, 1, r.order, 0));
    law_ref current = law_ref::retain(p.law.get());
    std::vector<law*> raw;
    for (int k = 1; k <= r.order; ++k) {
        current = law_ref::adopt(current->derivative(0));
        if (k >= r.first) {
            p.derivatives.push_back(law_ref::retain(current.get()));
            raw.push_back(current.get());
        }
    }
    p.symbolic.reset(law_compile(raw.data(), static_cast<int>(raw.size())));
    p.xs = bench::make_points(lo, hi);
    for (int i = 0; i < batch_points; ++i) p.batch_xs.push_back(lo + (hi - lo) * i / batch_points);
    std::vector<double> jet(static_cast<std::size_t>(r.order) + 1), other(jet.size()),
        sym(raw.size());
    for (double x : p.xs) {
        p.jet->evaluate(&x, jet.data());
        const double scale =
            std::fabs(*std::max_element(jet.begin(), jet.end(), [](double a, double b) {
                return std::fabs(a) < std::fabs(b);
            }));
        auto close = [&](double a, double b) { return std::fabs(a - b) <= 1e-11 * scale; };
        p.symbolic->evaluate(&x, sym.data());
        for (std::size_t k = 0; k < sym.size(); ++k)
            if (!close(sym[k], jet[static_cast<std::size_t>(r.first) + k])) return false;
        for (auto f : {r.hand, r.boost}) {
            if (!f) continue;
            f(x, other.data());
            for (std::size_t k = 0; k < jet.size(); ++k)
                if (!close(other[k], jet[k])) return false;
        }
    }
    return true;
}

void register_row(const prepared& p) {
    const std::string base = std::string("jet/") + p.r->key + "/";
    const prepared* q = &p;
    benchmark::RegisterBenchmark((base + "jet").c_str(),
                                 [q](benchmark::State& s) { eval_points(s, *q->jet, q->xs); });
    benchmark::RegisterBenchmark((base + "jet_batch").c_str(),
                                 [q](benchmark::State& s) { eval_batch(s, *q->jet, q->batch_xs); });
    if (p.r->boost)
        benchmark::RegisterBenchmark((base + "boost").c_str(), [q](benchmark::State& s) {
            eval_function(s, q->r->boost, q->r->order, q->xs);
        });
    benchmark::RegisterBenchmark((base + "hand").c_str(), [q](benchmark::State& s) {
        eval_function(s, q->r->hand, q->r->order, q->xs);
    });
    benchmark::RegisterBenchmark((base + "symbolic").c_str(),
                                 [q](benchmark::State& s) { eval_points(s, *q->symbolic, q->xs); });
    benchmark::RegisterBenchmark((base + "symbolic_batch").c_str(), [q](benchmark::State& s) {
        eval_batch(s, *q->symbolic, q->batch_xs);
    });
}

#ifdef LAW_BENCH_HAVE_BOOST_MATH
constexpr auto boost_sin4_fn = &boost_sin4;
constexpr auto boost_tree30_fn = &boost_tree30;
#else
constexpr void (*boost_sin4_fn)(double, double*) = nullptr;
constexpr void (*boost_tree30_fn)(double, double*) = nullptr;
#endif

const row rows[] = {
    {"sin4", sin4_text, 8, 8, hand_sin4, boost_sin4_fn},
    {"tree30", tree30_text, 5, 1, hand_tree30, boost_tree30_fn},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("jet_bench", argc, argv, [&] {
        std::vector<prepared> all(std::size(rows));
        for (std::size_t i = 0; i < all.size(); ++i)
            if (!prepare(rows[i], all[i])) {
                std::fprintf(stderr, "%s: the methods disagree\n", rows[i].key);
                return false;
            }
        for (const prepared& p : all) register_row(p);
        benchmark::RegisterBenchmark("jet/sin4/first_jet", [](benchmark::State& s) {
            first_jet(s, rows[0]);
        })->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark("jet/sin4/first_symbolic",
                                     [](benchmark::State& s) { first_symbolic(s, rows[0]); })
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1);
        benchmark::RunSpecifiedBenchmarks();
        return true;
    });
}
