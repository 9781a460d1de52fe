// compile_bench: compiled laws (law_compile) one point at a time and in batches, beside
// the tree they come from, the same expression written by hand in C++ and muparser, on
// the same 1024 points.
//
// Run it:
//   cmake --build build/release -j2 --target compile_bench &&
//   build/release/bench/compile_bench --benchmark_format=json > compile.json
//
// Benchmark names, one item per point (1e9 / items_per_second is ns per point):
//   compile/<expr>/tree       law::evaluate of each law, point by point
//   compile/<expr>/compiled   law_program::evaluate, point by point
//   compile/<expr>/batch      law_program::evaluate_batch over all the points
//   compile/<expr>/hand       the hand-written function
//   compile/<expr>/muparser   muparser on the same text (when built with it)
// The row "derivs1to5" is the first to fifth derivatives of the 30-node tree compiled
// into one program (five values per point); it has no hand-written or muparser column.
//
// Before timing, the compiled values are checked to be bit-identical to the tree's at
// every point, and the hand-written ones to agree to rounding.

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

using bench::point_count;

/// One row: the law's text, muparser's spelling (empty: none), the hand-written code
/// writing `dim` values, and where the points lie.
struct row {
    const char* key;
    const char* text;
    const char* mu_text;
    int dim;
    double lo, hi;
    void (*hand)(double x, double* out);
    int derivatives = 0;  // > 0: compile the 1st..nth derivatives of `text` instead
};

constexpr double two_pi = 6.283185307179586;

constexpr row rows[] = {
    {"x2p1", "X*X+1", "X*X+1", 1, 0.1, 2.0, [](double x, double* o) { o[0] = x * x + 1.0; }},
    {"quotient", "(X+1)/(X-1)", "(X+1)/(X-1)", 1, 1.5, 3.5,
     [](double x, double* o) { o[0] = (x + 1.0) / (x - 1.0); }},
    {"pythagoras", "SIN(X)^2+COS(X)^2", "sin(X)^2+cos(X)^2", 1, 0.1, 2.0,
     [](double x, double* o) {
         const double s = std::sin(x), c = std::cos(x);
         o[0] = s * s + c * c;
     }},
    {"poly10", "((((((((((0.5*X+1)*X-2)*X+3)*X+1)*X-1)*X+2)*X-3)*X+1)*X+2)*X-1)",
     "((((((((((0.5*X+1)*X-2)*X+3)*X+1)*X-1)*X+2)*X-3)*X+1)*X+2)*X-1)", 1, -1.0, 1.0,
     [](double x, double* o) {
         o[0] =
             ((((((((((0.5 * x + 1) * x - 2) * x + 3) * x + 1) * x - 1) * x + 2) * x - 3) * x + 1) *
                   x +
               2) *
                  x -
              1);
     }},
    {"gauss", "EXP(-(X^2)/2)/SQRT(2*PI)", "exp(-(X^2)/2)/sqrt(2*_pi)", 1, -3.0, 3.0,
     [](double x, double* o) { o[0] = std::exp(-(x * x) / 2) / std::sqrt(two_pi); }},
    {"tree30", "((X*X+3)/(X+1))^1.5-(2*X+0.5)^3+(-((X-4)/(X^2+2.5)))",
     "((X*X+3)/(X+1))^1.5-(2*X+0.5)^3+(-((X-4)/(X^2+2.5)))", 1, 0.1, 2.0,
     [](double x, double* o) {
         const double q = (x * x + 3.0) / (x + 1.0);
         const double s = 2.0 * x + 0.5;
         o[0] = (std::pow(q, 1.5) - s * s * s) + -((x - 4.0) / (x * x + 2.5));
     }},
    {"vec", "VEC(COS(X),SIN(X),X/10)", "cos(X),sin(X),X/10", 3, 0.0, two_pi,
     [](double x, double* o) {
         o[0] = std::cos(x);
         o[1] = std::sin(x);
         o[2] = x / 10;
     }},
    {"derivs1to5", "((X*X+3)/(X+1))^1.5-(2*X+0.5)^3+(-((X-4)/(X^2+2.5)))", "", 5, 0.1, 2.0, nullptr,
     5},
};

/// A row's laws (one, or the derivatives) and its program, alive for the whole run.
struct prepared {
    const row* r = nullptr;
    std::vector<law_ref> laws;
    law_program* program = nullptr;
    std::vector<double> x;
    ~prepared() { law_program_release(program); }
};

void set_points_processed(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * point_count);
}

void eval_tree(benchmark::State& state, const prepared& p) {
    std::vector<double> out(static_cast<std::size_t>(p.r->dim) * point_count);
    for (auto _ : state) {
        double* o = out.data();
        for (int i = 0; i < point_count; ++i)
            for (const law_ref& l : p.laws) {
                l->evaluate(&p.x[i], o);
                o += l->return_dim();
            }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

void eval_compiled(benchmark::State& state, const prepared& p) {
    const int dim = p.r->dim;
    std::vector<double> out(static_cast<std::size_t>(dim) * point_count);
    for (auto _ : state) {
        for (int i = 0; i < point_count; ++i) p.program->evaluate(&p.x[i], &out[i * dim]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

void eval_batch(benchmark::State& state, const prepared& p) {
    const int dim = p.r->dim;
    std::vector<double> out(static_cast<std::size_t>(dim) * point_count);
    std::vector<double*> outputs;
    for (int j = 0; j < dim; ++j) outputs.push_back(&out[j * point_count]);
    const double* inputs[] = {p.x.data()};
    for (auto _ : state) {
        p.program->evaluate_batch(point_count, inputs, outputs.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

/// Row `R`'s hand-written code, called directly so that the compiler may inline and
/// vectorise it, as it would in the user's own loop.
template <std::size_t R>
void eval_hand(benchmark::State& state, const prepared& p) {
    constexpr int dim = rows[R].dim;
    std::vector<double> out(static_cast<std::size_t>(dim) * point_count);
    for (auto _ : state) {
        for (int i = 0; i < point_count; ++i) rows[R].hand(p.x[i], &out[i * dim]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

template <std::size_t... R>
constexpr auto hand_table(std::index_sequence<R...>) {
    return std::array<void (*)(benchmark::State&, const prepared&), sizeof...(R)>{
        (rows[R].derivatives == 0 ? &eval_hand<R> : nullptr)...};
}
constexpr auto hand_bodies = hand_table(std::make_index_sequence<std::size(rows)>());

#ifdef LAW_BENCH_HAVE_MUPARSER
void eval_muparser(benchmark::State& state, const prepared& p) {
    const int dim = p.r->dim;
    double var = 0.0;
    mu::Parser parser;
    parser.DefineVar("X", &var);
    parser.SetExpr(p.r->mu_text);
    int n = 0;
    parser.Eval(n);  // the first call parses; only the bytecode runs in the loop
    std::vector<double> out(static_cast<std::size_t>(dim) * point_count);
    for (auto _ : state) {
        for (int i = 0; i < point_count; ++i) {
            var = p.x[i];
            const double* v = parser.Eval(n);
            for (int c = 0; c < dim; ++c) out[i * dim + c] = v[c];
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}
#endif

bool same_bits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// Builds the row's laws and program and checks them; false (with a message) on a mismatch.
bool prepare(const row& r, prepared& p) {
    p.r = &r;
    p.x = bench::make_points(r.lo, r.hi);
    law_ref l = law_ref::adopt(str_to_law(r.text));
    if (!l) return false;
    if (r.derivatives == 0) {
        p.laws.push_back(std::move(l));
    } else {
        for (int n = 1; n <= r.derivatives; ++n)
            p.laws.push_back(law_ref::adopt(l->nth_derivative(n)));
    }
    std::vector<law*> raw;
    for (const law_ref& k : p.laws) raw.push_back(k.get());
    p.program = law_compile(raw.data(), static_cast<int>(raw.size()));
    if (p.program->output_count() != r.dim) return false;
    std::vector<double> got(r.dim), want(r.dim), hand(r.dim);
    for (double xi : p.x) {
        p.program->evaluate(&xi, got.data());
        double* w = want.data();
        for (const law_ref& k : p.laws) {
            k->evaluate(&xi, w);
            w += k->return_dim();
        }
        if (r.hand) r.hand(xi, hand.data());
        for (int j = 0; j < r.dim; ++j) {
            if (!same_bits(got[j], want[j]) ||
                (r.hand && !(std::fabs(hand[j] - want[j]) <= 1e-12 * (1 + std::fabs(want[j]))))) {
                std::fprintf(stderr, "%s: at X = %.17g compiled %.17g, tree %.17g, hand %.17g\n",
                             r.key, xi, got[j], want[j], r.hand ? hand[j] : 0.0);
                return false;
            }
        }
    }
    std::fprintf(stderr, "%-10s %d instructions\n", r.key, p.program->instruction_count());
    benchmark::AddCustomContext(std::string("instructions/") + r.key,
                                std::to_string(p.program->instruction_count()));
    return true;
}

void register_row(const prepared& p, std::size_t index) {
    const std::string base = std::string("compile/") + p.r->key;
    const prepared* q = &p;
    auto add = [&](const char* what, void (*fn)(benchmark::State&, const prepared&)) {
        benchmark::RegisterBenchmark((base + "/" + what).c_str(),
                                     [q, fn](benchmark::State& s) { fn(s, *q); });
    };
    add("tree", eval_tree);
    add("compiled", eval_compiled);
    add("batch", eval_batch);
    if (hand_bodies[index]) add("hand", hand_bodies[index]);
#ifdef LAW_BENCH_HAVE_MUPARSER
    if (*p.r->mu_text) add("muparser", eval_muparser);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("compile_bench", argc, argv, [&] {
        std::vector<prepared> all(std::size(rows));
        for (std::size_t i = 0; i < all.size(); ++i)
            if (!prepare(rows[i], all[i])) {
                std::fprintf(stderr, "%s: compiled and tree disagree\n", rows[i].key);
                return false;
            }
        for (std::size_t i = 0; i < all.size(); ++i) register_row(all[i], i);
        benchmark::RunSpecifiedBenchmarks();
        return true;
    });
}
