// law_bench: what a law costs to evaluate, set beside the same expression written by hand
// in C++ (the limit: the compiler sees everything and may vectorise) and the same text run
// by muparser (a general interpreter, the yardstick to beat), on the same points.
//
// Run it:
//   cmake --preset release && cmake --build build/release -j2 --target law_bench &&
//   build/release/bench/law_bench --benchmark_format=json > out.json &&
//   python3 bench/ratios.py out.json
// (--benchmark_min_time=0.2 gives a quicker, noisier run.)
//
// Benchmark names:
//   eval/<expr>/law        law->evaluate(&x, &out), the virtual entry point, every point
//   eval/<expr>/hand       the hand-written function over the same points
//   eval/<expr>/muparser   muparser on the same text (only when built with muparser)
//   derivative_cached/<expr>   law->derivative(0) once the derivative is cached
//   build_and_release/<expr>   a fresh tree from constructors, then released
// Every eval benchmark reports items_per_second with one item per point, so
// 1e9 / items_per_second is the cost of one point in ns.  The sizes of the node classes
// are printed to stderr and stored in the JSON context.
//
// Before timing anything, every point of every expression is evaluated all three ways and
// the values compared, so that the three columns really measure the same function.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

constexpr int point_count = 1024;

/// `point_count` points evenly over [lo, hi), the same for every method.
std::vector<double> make_points(double lo, double hi) {
    std::vector<double> x(point_count);
    for (int i = 0; i < point_count; ++i) x[i] = lo + (hi - lo) * i / point_count;
    return x;
}

// ------------------------------------------------------------------ tree building
// Each constructor takes its own use of its sub-laws; the handles passed in give back
// the builder's uses when they go out of scope, so a finished tree holds exactly one use
// per edge and the returned handle holds the only use of the root.

law_ref var_x() {
    return make_law<identity_law>(0, 'X');
}
law_ref num(double v) {
    return make_law<constant_law>(v);
}

template <class Op>
law_ref op(law_ref a, law_ref b) {
    return make_law<Op>(a.get(), b.get());
}

law_ref neg(law_ref a) {
    return make_law<negate_law>(a.get());
}

/// Nodes of the tree as written: every occurrence of a sub-law counts.
int count_nodes(const law* l) {
    if (l == nullptr) return 0;
    if (l->isa(binary_law::id())) {
        const auto* b = static_cast<const binary_law*>(l);
        return 1 + count_nodes(b->fleft()) + count_nodes(b->fright());
    }
    if (l->isa(unary_law::id())) {
        return 1 + count_nodes(static_cast<const unary_law*>(l)->fsub());
    }
    return 1;
}

// ------------------------------------------------------------------ the expressions
// Each expression is one type: the law built from constructors, the hand-written function
// and the text muparser reads, with the interval its points come from.  Keeping the three
// side by side is what makes the comparison fair.

struct square_plus_one {
    static constexpr const char* key = "x2p1";
    static constexpr const char* text = "X*X+1";
    static constexpr double lo = 0.1, hi = 2.0;
    static law_ref build() { return op<plus_law>(op<times_law>(var_x(), var_x()), num(1.0)); }
    static double hand(double x) { return x * x + 1.0; }
};

struct quotient {
    static constexpr const char* key = "quotient";
    static constexpr const char* text = "(X+1)/(X-1)";
    // Away from the pole at 1, so that no point meets the zero-divide handling.
    static constexpr double lo = 1.5, hi = 3.5;
    static law_ref build() {
        return op<division_law>(op<plus_law>(var_x(), num(1.0)), op<minus_law>(var_x(), num(1.0)));
    }
    static double hand(double x) { return (x + 1.0) / (x - 1.0); }
};

/// A mixed tree of 30 nodes.  A tree of binary nodes alone always has an odd count, so one
/// negation makes it even.  Every base of a power is positive and every denominator at
/// least 1.1 on [0.1, 2), so no point goes near an error path.
struct tree30 {
    static constexpr const char* key = "tree30";
    static constexpr const char* text = "((X*X+3)/(X+1))^1.5-(2*X+0.5)^3+(-((X-4)/(X^2+2.5)))";
    static constexpr double lo = 0.1, hi = 2.0;
    static constexpr int nodes = 30;
    static law_ref build() {
        // ((X*X + 3) / (X + 1)) ^ 1.5: 11 nodes
        law_ref a = op<exponent_law>(
            op<division_law>(op<plus_law>(op<times_law>(var_x(), var_x()), num(3.0)),
                             op<plus_law>(var_x(), num(1.0))),
            num(1.5));
        // (2*X + 0.5) ^ 3: 7 nodes
        law_ref b =
            op<exponent_law>(op<plus_law>(op<times_law>(num(2.0), var_x()), num(0.5)), num(3.0));
        // -((X - 4) / (X^2 + 2.5)): 10 nodes
        law_ref c =
            neg(op<division_law>(op<minus_law>(var_x(), num(4.0)),
                                 op<plus_law>(op<exponent_law>(var_x(), num(2.0)), num(2.5))));
        // (a - b) + c: 2 more
        return op<plus_law>(op<minus_law>(std::move(a), std::move(b)), std::move(c));
    }
    static double hand(double x) {
        const double q = (x * x + 3.0) / (x + 1.0);
        const double s = 2.0 * x + 0.5;
        return (std::pow(q, 1.5) - s * s * s) + -((x - 4.0) / (x * x + 2.5));
    }
};

// ------------------------------------------------------------------ benchmark bodies
// All three methods write every value to an array; after each sweep the array escapes and
// memory is clobbered, so nothing can be skipped or hoisted out of the timing loop, while
// the hand-written loop keeps whatever vectorisation the compiler finds for it.

void set_points_processed(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * point_count);
}

void eval_law(benchmark::State& state, const law* l, const std::vector<double>& x) {
    std::vector<double> out(x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) l->evaluate(&x[i], &out[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

template <class E>
void eval_hand(benchmark::State& state, const std::vector<double>& x) {
    std::vector<double> out(x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) out[i] = E::hand(x[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}

#ifdef LAW_BENCH_HAVE_MUPARSER
void eval_muparser(benchmark::State& state, const char* text, const std::vector<double>& x) {
    mu::Parser parser;
    double var = 0.0;
    parser.DefineVar("X", &var);
    parser.SetExpr(text);
    parser.Eval();  // the first call parses; only the bytecode runs in the loop
    std::vector<double> out(x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) {
            var = x[i];
            out[i] = parser.Eval();
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_points_processed(state);
}
#endif

/// The cached path: a lock, a look-up and a use count up and down again.
void derivative_cached(benchmark::State& state, const law* l) {
    law::remove(l->derivative(0));  // build and cache it outside the timing
    for (auto _ : state) {
        law* d = l->derivative(0);
        benchmark::DoNotOptimize(d);
        law::remove(d);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

template <class E>
void build_and_release(benchmark::State& state) {
    int nodes = 0;
    for (auto _ : state) {
        law_ref l = E::build();
        benchmark::DoNotOptimize(l.get());
    }
    {
        law_ref l = E::build();
        nodes = count_nodes(l.get());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["nodes"] = nodes;
}

// ------------------------------------------------------------------ checks and set-up

/// The three methods agree at every point (up to rounding: the hand-written code is free
/// to write s*s*s where the law calls pow).
template <class E>
bool agree(const law* l, const std::vector<double>& x) {
#ifdef LAW_BENCH_HAVE_MUPARSER
    mu::Parser parser;
    double var = 0.0;
    parser.DefineVar("X", &var);
    parser.SetExpr(E::text);
#endif
    for (double xi : x) {
        const double want = E::hand(xi);
        const double tol = 1e-12 * std::max(1.0, std::fabs(want));
        double got = 0.0;
        l->evaluate(&xi, &got);
        if (!(std::fabs(got - want) <= tol)) {
            std::fprintf(stderr, "%s: law gives %.17g at X = %.17g, hand-written %.17g\n", E::key,
                         got, xi, want);
            return false;
        }
#ifdef LAW_BENCH_HAVE_MUPARSER
        var = xi;
        const double mu_value = parser.Eval();
        if (!(std::fabs(mu_value - want) <= tol)) {
            std::fprintf(stderr, "%s: muparser gives %.17g at X = %.17g, hand-written %.17g\n",
                         E::key, mu_value, xi, want);
            return false;
        }
#endif
    }
    return true;
}

/// One expression's law and points, kept alive for the whole run.
struct prepared {
    law_ref root;
    std::vector<double> points;
};

template <class E>
bool prepare(prepared& p) {
    p.root = E::build();
    p.points = make_points(E::lo, E::hi);
    if (!agree<E>(p.root.get(), p.points)) return false;

    const std::string base = std::string("eval/") + E::key;
    const law* l = p.root.get();
    const std::vector<double>* x = &p.points;
    benchmark::RegisterBenchmark((base + "/law").c_str(),
                                 [l, x](benchmark::State& s) { eval_law(s, l, *x); });
    benchmark::RegisterBenchmark((base + "/hand").c_str(),
                                 [x](benchmark::State& s) { eval_hand<E>(s, *x); });
#ifdef LAW_BENCH_HAVE_MUPARSER
    benchmark::RegisterBenchmark((base + "/muparser").c_str(),
                                 [x](benchmark::State& s) { eval_muparser(s, E::text, *x); });
#endif
    return true;
}

void report_sizes() {
    struct size_row {
        const char* name;
        std::size_t bytes;
    };
    const size_row rows[] = {
        {"sizeof(law)", sizeof(law)},
        {"sizeof(plus_law)", sizeof(plus_law)},
        {"sizeof(constant_law)", sizeof(constant_law)},
        {"sizeof(identity_law)", sizeof(identity_law)},
        {"sizeof(sin_law)", sizeof(sin_law)},
    };
    for (const size_row& r : rows) {
        std::fprintf(stderr, "%-22s %zu bytes\n", r.name, r.bytes);
        benchmark::AddCustomContext(r.name, std::to_string(r.bytes));
    }
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("law_bench", argc, argv, [&] {
        int status = 0;

        prepared p1, p2, p3;
        bool ok = prepare<square_plus_one>(p1) && prepare<quotient>(p2) && prepare<tree30>(p3);
        const int nodes = count_nodes(p3.root.get());
        if (nodes != tree30::nodes) {
            std::fprintf(stderr, "tree30 has %d nodes, not %d\n", nodes, tree30::nodes);
            ok = false;
        }
        if (ok) {
            const law* l1 = p1.root.get();
            const law* l3 = p3.root.get();
            benchmark::RegisterBenchmark("derivative_cached/x2p1",
                                         [l1](benchmark::State& s) { derivative_cached(s, l1); });
            benchmark::RegisterBenchmark("derivative_cached/tree30",
                                         [l3](benchmark::State& s) { derivative_cached(s, l3); });
            benchmark::RegisterBenchmark("build_and_release/x2p1",
                                         build_and_release<square_plus_one>);
            benchmark::RegisterBenchmark("build_and_release/tree30", build_and_release<tree30>);
            report_sizes();
            benchmark::RunSpecifiedBenchmarks();
        } else {
            status = 1;
        }
        return status == 0;
    });
}
