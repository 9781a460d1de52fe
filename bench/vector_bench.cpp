// vector_bench: a law with three outputs, VEC(COS(X),SIN(X),X/10), and its first
// derivative, evaluated over 1024 points into three doubles per point, beside the same
// written by hand in C++ and, where it is installed, muparser.
//
// Run it:
//   build/release/bench/vector_bench --benchmark_format=json > vector.json
//
// Benchmark names (<expr> is vec for the law, vec_d1 for its derivative):
//   vector/<expr>/law             law->evaluate(&x, out + 3 i), every point
//   vector/<expr>/hand            the three components written by hand
//   vector/<expr>/muparser3       three muparser parsers, one per component, each
//                                 evaluated at every point: muparser has no vector type
//   vector/<expr>/muparser_multi  one muparser expression of three comma-separated parts,
//                                 Eval(n) giving the three values at once (its nearest
//                                 thing to a vector result)
// One item per point.  muparser does not differentiate: its derivative texts are written
// by hand (-sin(X), cos(X), 0.1), as the law's derivative simplifies to.
//
// No heap: the tracked heap's live-block count is read before and after a sweep of each
// law and must not move; as a stronger check, every operator new of the process during
// the sweep is counted too (this executable replaces the global operator new with one that
// counts while a flag is set).  Both numbers are printed and stored in the JSON context.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>
#include <qem/heap.h>

#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_MUPARSER
#include <muParser.h>
#endif

// ------------------------------------------------------------------ counting operator new
// Single-threaded use only: the flag is set around one sweep on the main thread.  The
// blocks come from malloc and go back with free.  Not inlined, so that the compiler does
// not set the malloc beside a standard operator delete and warn of a mismatch.

namespace {
bool counting_new = false;
long new_calls = 0;
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t bytes) {
    if (counting_new) ++new_calls;
    if (void* p = std::malloc(bytes == 0 ? 1 : bytes)) return p;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}

[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

constexpr const char* law_text = "VEC(COS(X),SIN(X),X/10)";
constexpr double lo = 0.0, hi = 6.25;  // about one turn
constexpr int dim = 3;

struct component_texts {
    const char* parts[dim];
    const char* joined;
};
constexpr component_texts mu_value = {{"cos(X)", "sin(X)", "X/10"}, "cos(X),sin(X),X/10"};
constexpr component_texts mu_deriv = {{"-sin(X)", "cos(X)", "0.1"}, "-sin(X),cos(X),0.1"};

void hand_value(double x, double* out) {
    out[0] = std::cos(x);
    out[1] = std::sin(x);
    out[2] = x / 10.0;
}

void hand_deriv(double x, double* out) {
    out[0] = -std::sin(x);
    out[1] = std::cos(x);
    out[2] = 0.1;
}

void set_points_processed(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bench::point_count);
}

void sweep(const law* l, const std::vector<double>& x, double* out) {
    for (std::size_t i = 0; i < x.size(); ++i) l->evaluate(&x[i], out + dim * i);
}

void eval_law(benchmark::State& state, const law* l, const std::vector<double>& x) {
    std::vector<double> out(dim * x.size());
    for (auto _ : state) {
        sweep(l, x, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

template <void (*Hand)(double, double*)>
void eval_hand(benchmark::State& state, const std::vector<double>& x) {
    std::vector<double> out(dim * x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) Hand(x[i], &out[dim * i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

#ifdef LAW_BENCH_HAVE_MUPARSER
void eval_muparser3(benchmark::State& state, const component_texts& t,
                    const std::vector<double>& x) {
    double var = 0.0;
    mu::Parser p[dim];
    for (int c = 0; c < dim; ++c) {
        p[c].DefineVar("X", &var);
        p[c].SetExpr(t.parts[c]);
        p[c].Eval();  // the first call parses
    }
    std::vector<double> out(dim * x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) {
            var = x[i];
            for (int c = 0; c < dim; ++c) out[dim * i + c] = p[c].Eval();
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

void eval_muparser_multi(benchmark::State& state, const component_texts& t,
                         const std::vector<double>& x) {
    double var = 0.0;
    mu::Parser p;
    p.DefineVar("X", &var);
    p.SetExpr(t.joined);
    int n = 0;
    p.Eval(n);
    if (n != dim) throw std::runtime_error("muparser gives no three values");
    std::vector<double> out(dim * x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) {
            var = x[i];
            const double* v = p.Eval(n);
            for (int c = 0; c < dim; ++c) out[dim * i + c] = v[c];
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}
#endif

// ------------------------------------------------------------------ checks

/// The law, the hand-written code and muparser agree at every point.
bool agree(const char* key, const law* l, void (*hand)(double, double*),
           [[maybe_unused]] const component_texts& t, const std::vector<double>& x) {
#ifdef LAW_BENCH_HAVE_MUPARSER
    double var = 0.0;
    mu::Parser p;
    p.DefineVar("X", &var);
    p.SetExpr(t.joined);
#endif
    for (double xi : x) {
        double want[dim], got[dim];
        hand(xi, want);
        l->evaluate(&xi, got);
#ifdef LAW_BENCH_HAVE_MUPARSER
        var = xi;
        int n = 0;
        const double* mu_value = p.Eval(n);
#endif
        for (int c = 0; c < dim; ++c) {
            bool ok = std::fabs(got[c] - want[c]) <= 1e-14;
#ifdef LAW_BENCH_HAVE_MUPARSER
            ok = ok && n == dim && std::fabs(mu_value[c] - want[c]) <= 1e-14;
#endif
            if (!ok) {
                std::fprintf(stderr, "%s: component %d at X = %.17g: law %.17g, hand %.17g\n", key,
                             c, xi, got[c], want[c]);
                return false;
            }
        }
    }
    return true;
}

/// One sweep of `l` with the tracked heap's live blocks read around it and every operator
/// new counted; both must stay at zero change.
bool heap_check(const char* key, const law* l, const std::vector<double>& x) {
    std::vector<double> out(dim * x.size());
    sweep(l, x, out.data());  // anything done once on first use happens here
    const long before = vorn_live_blocks();
    new_calls = 0;
    counting_new = true;
    sweep(l, x, out.data());
    counting_new = false;
    const long after = vorn_live_blocks();
    std::fprintf(stderr,
                 "%s: vorn_live_blocks() %ld before a sweep of %d points, %ld after; "
                 "operator new calls during the sweep: %ld\n",
                 key, before, bench::point_count, after, new_calls);
    const std::string k = std::string("heap/") + key;
    benchmark::AddCustomContext(k + "/live_blocks_before", std::to_string(before));
    benchmark::AddCustomContext(k + "/live_blocks_after", std::to_string(after));
    benchmark::AddCustomContext(k + "/operator_new_calls", std::to_string(new_calls));
    return before == after && new_calls == 0;
}

void register_group(const std::string& key, const law* l, void (*hand)(double, double*),
                    [[maybe_unused]] const component_texts& t, const std::vector<double>* x) {
    const std::string base = "vector/" + key;
    benchmark::RegisterBenchmark((base + "/law").c_str(),
                                 [l, x](benchmark::State& s) { eval_law(s, l, *x); });
    if (hand == hand_value) {
        benchmark::RegisterBenchmark((base + "/hand").c_str(),
                                     [x](benchmark::State& s) { eval_hand<hand_value>(s, *x); });
    } else {
        benchmark::RegisterBenchmark((base + "/hand").c_str(),
                                     [x](benchmark::State& s) { eval_hand<hand_deriv>(s, *x); });
    }
#ifdef LAW_BENCH_HAVE_MUPARSER
    const component_texts* tt = &t;
    benchmark::RegisterBenchmark((base + "/muparser3").c_str(),
                                 [tt, x](benchmark::State& s) { eval_muparser3(s, *tt, *x); });
    benchmark::RegisterBenchmark((base + "/muparser_multi").c_str(),
                                 [tt, x](benchmark::State& s) { eval_muparser_multi(s, *tt, *x); });
#endif
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("vector_bench", argc, argv, [&] {
        int status = 0;

        law_ref v = law_ref::adopt(str_to_law(law_text));
        if (!v) throw std::runtime_error(std::string("cannot parse ") + law_text);
        law_ref d = law_ref::adopt(v->derivative(0));
        const std::vector<double> points = bench::make_points(lo, hi);
        char* d_text = d->string();
        std::fprintf(stderr, "law: %s\nits derivative: %s\n", law_text, d_text);
        benchmark::AddCustomContext("vector/vec", law_text);
        benchmark::AddCustomContext("vector/vec_d1", d_text);
        vorn_discard(d_text);
        bool ok = agree("vec", v.get(), hand_value, mu_value, points) &&
                  agree("vec_d1", d.get(), hand_deriv, mu_deriv, points);
        ok = heap_check("vec", v.get(), points) && ok;
        ok = heap_check("vec_d1", d.get(), points) && ok;
        if (ok) {
            register_group("vec", v.get(), hand_value, mu_value, &points);
            register_group("vec_d1", d.get(), hand_deriv, mu_deriv, &points);
            benchmark::RunSpecifiedBenchmarks();
        } else {
            status = 1;
        }
        return status == 0;
    });
}
