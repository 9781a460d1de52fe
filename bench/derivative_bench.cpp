// derivative_bench: how large the derivatives of a law grow with their order, what they
// cost to build and to evaluate, set beside a naive differentiator (the textbook chain and
// product rules applied node by node, nothing rewritten) and, where it is installed,
// beside GiNaC.
//
// Run it:
//   build/release/bench/derivative_bench --benchmark_format=json > deriv.json
//
// Benchmark names (<expr> is sin2exp or tree30, <n> the order, 1 to 6):
//   deriv_build/<expr>/<n>/law     parse the text (not timed), then derivative(0) n times
//                                  in a chain, each from the last; the fresh law each
//                                  iteration means every cache is cold
//   deriv_build/<expr>/<n>/naive   the same chain with naive_d below
//   deriv_build/<expr>/<n>/ginac   e.diff(x, n) on a freshly built GiNaC expression
//   deriv_eval/<expr>/<n>/law      the n-th derivative law evaluated at 1024 points
//   deriv_eval/<expr>/<n>/naive    the naive n-th derivative evaluated at the same points
//                                  (left out above a million nodes)
//   deriv_deep/sin_nest1000/1/law  the first derivative of SIN nested 1,000 deep
//   deriv_deep/sin4/8/law          the eighth derivative of SIN(SIN(SIN(SIN(X)))), in a
//                                  chain as above; /ginac: the same with e.diff
// Build benchmarks time the chain alone (manual timing: the parse and the release are
// outside the clock) and carry the node count of the n-th derivative as the counter
// "nodes" (a shared sub-tree counts each time it appears).  Eval benchmarks report one
// item per point.
//
// Before timing, the law, naive and GiNaC derivatives of every order are evaluated at
// several points and compared, so the columns measure derivatives of the same function.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>

#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_GINAC
#include <ginac/ginac.h>
#endif

namespace {

constexpr int max_order = 6;
/// A naive derivative larger than this is not evaluated: at 2.7 million nodes (the sixth
/// of tree30) one sweep takes seconds, and the point is made long before.
constexpr std::uint64_t max_naive_eval_nodes = 1000000;

// ------------------------------------------------------------------ the expressions

struct expression {
    const char* key;
    const char* text;  ///< the law language
    int nodes;         ///< nodes of the parsed law, checked at start-up
};

/// Every function here is defined and smooth on [0.5, 1.5]: the logarithm's and the
/// root's arguments stay above 1, the denominator above 2.
const expression expressions[] = {
    {"sin2exp", "SIN(X)^2*EXP(X)", 7},
    {"tree30", "SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2)", 30},
};
constexpr double lo = 0.5, hi = 1.5;

#ifdef LAW_BENCH_HAVE_GINAC
GiNaC::ex ginac_expression(const char* key, const GiNaC::symbol& x) {
    using GiNaC::cos, GiNaC::exp, GiNaC::log, GiNaC::pow, GiNaC::sin, GiNaC::sqrt;
    if (std::strcmp(key, "sin2exp") == 0) return pow(sin(x), 2) * exp(x);
    return sin(2 * x) * exp(x / 2) + log(x + 1) * cos(pow(x, 2)) - sqrt(x * x + 1) / (x + 2);
}

/// Nodes of a GiNaC expression: one for each object and, below it, its operands.
std::uint64_t ginac_nodes(const GiNaC::ex& e) {
    std::uint64_t n = 1;
    for (std::size_t i = 0; i < e.nops(); ++i) n += ginac_nodes(e.op(i));
    return n;
}

double ginac_value(const GiNaC::ex& e, const GiNaC::symbol& x, double at) {
    const GiNaC::ex v = e.subs(x == at).evalf();
    if (!GiNaC::is_a<GiNaC::numeric>(v)) throw std::runtime_error("GiNaC value is not a number");
    return GiNaC::ex_to<GiNaC::numeric>(v).to_double();
}
#endif

// ------------------------------------------------------------------ the naive differentiator
// The derivative as a first course writes it: every rule applied once per node, the
// sub-laws used as they are, no constant folding, no collecting, no rewriting.  Within one
// differentiation a node met several times (the naive trees share their sub-laws) is
// differentiated once, as the library's per-law cache does; without that the naive build
// time would grow with the tree it stands for rather than with the objects it creates.

law_ref num(double v) {
    return make_law<constant_law>(v);
}

class naive_differentiator {
  public:
    law_ref operator()(const law* f) {
        auto found = memo_.find(f);
        if (found != memo_.end()) return law_ref::retain(found->second.get());
        law_ref d = rule(f);
        law* raw = d.get();
        memo_.emplace(f, law_ref::retain(raw));
        return d;
    }

  private:
    static law* keep(const law* l) { return const_cast<law*>(l); }

    template <class Op>
    static law_ref op(const law_ref& a, const law_ref& b) {
        return make_law<Op>(a.get(), b.get());
    }
    template <class Op>
    static law_ref op(const law* a, const law_ref& b) {
        return make_law<Op>(keep(a), b.get());
    }
    template <class Op>
    static law_ref op(const law_ref& a, const law* b) {
        return make_law<Op>(a.get(), keep(b));
    }
    template <class Op>
    static law_ref op(const law* a, const law* b) {
        return make_law<Op>(keep(a), keep(b));
    }
    template <class Fn>
    static law_ref fn(const law* a) {
        return make_law<Fn>(keep(a));
    }
    static law_ref neg(const law_ref& a) { return make_law<negate_law>(a.get()); }

    law_ref rule(const law* f) {
        if (f->isa(constant_law::id())) return num(0.0);
        if (f->isa(identity_law::id()))
            return num(static_cast<const identity_law*>(f)->index() == 0 ? 1.0 : 0.0);
        if (f->isa(binary_law::id())) {
            const auto* b = static_cast<const binary_law*>(f);
            const law* g = b->fleft();
            const law* h = b->fright();
            if (f->isa(plus_law::id())) return op<plus_law>((*this)(g), (*this)(h));
            if (f->isa(minus_law::id())) return op<minus_law>((*this)(g), (*this)(h));
            if (f->isa(times_law::id()))  // g' h + g h'
                return op<plus_law>(op<times_law>((*this)(g), h), op<times_law>(g, (*this)(h)));
            if (f->isa(division_law::id()))  // (g' h - g h') / (h h)
                return op<division_law>(
                    op<minus_law>(op<times_law>((*this)(g), h), op<times_law>(g, (*this)(h))),
                    op<times_law>(h, h));
            if (f->isa(exponent_law::id()) && h->isa(constant_law::id())) {  // c g^(c-1) g'
                const double c = static_cast<const constant_law*>(h)->value();
                return op<times_law>(op<times_law>(num(c), op<exponent_law>(g, num(c - 1.0))),
                                     (*this)(g));
            }
        } else if (f->isa(unary_law::id())) {
            const law* g = static_cast<const unary_law*>(f)->fsub();
            if (f->isa(negate_law::id())) return neg((*this)(g));
            if (f->isa(sin_law::id())) return op<times_law>(fn<cos_law>(g), (*this)(g));
            if (f->isa(cos_law::id())) return op<times_law>(neg(fn<sin_law>(g)), (*this)(g));
            if (f->isa(exp_law::id())) return op<times_law>(f, (*this)(g));
            if (f->isa(natural_log_law::id())) return op<division_law>((*this)(g), g);
            if (f->isa(sqrt_law::id()))  // g' / (2 sqrt g)
                return op<division_law>((*this)(g), op<times_law>(num(2.0), f));
        }
        throw std::runtime_error(std::string("naive_d has no rule for ") + f->class_name());
    }

    std::unordered_map<const law*, law_ref> memo_;
};

law_ref naive_d(const law* f) {
    return naive_differentiator()(f);
}

// ------------------------------------------------------------------ derivative chains

law_ref parse(const char* text) {
    law* l = str_to_law(text);
    if (l == nullptr) throw std::runtime_error(std::string("cannot parse ") + text);
    return law_ref::adopt(l);
}

/// chain[0] is f; chain[k] the k-th derivative, built from chain[k-1].
std::vector<law_ref> law_chain(law_ref f, int order) {
    std::vector<law_ref> chain;
    chain.reserve(static_cast<std::size_t>(order) + 1);
    chain.push_back(std::move(f));
    for (int k = 1; k <= order; ++k) chain.push_back(law_ref::adopt(chain.back()->derivative(0)));
    return chain;
}

std::vector<law_ref> naive_chain(law_ref f, int order) {
    std::vector<law_ref> chain;
    chain.reserve(static_cast<std::size_t>(order) + 1);
    chain.push_back(std::move(f));
    for (int k = 1; k <= order; ++k) chain.push_back(naive_d(chain.back().get()));
    return chain;
}

/// Gives back the chain from its last element, so that no release cascades through a
/// derivative cache while a later derivative still holds the objects.
void release(std::vector<law_ref>& chain) {
    while (!chain.empty()) chain.pop_back();
}

// ------------------------------------------------------------------ benchmark bodies

using bench_clock = std::chrono::steady_clock;

template <class Build>
void build_chain(benchmark::State& state, const char* text, int order, std::uint64_t nodes,
                 std::uint64_t dag, Build build) {
    for (auto _ : state) {
        law_ref f = parse(text);
        const auto start = bench_clock::now();
        std::vector<law_ref> chain = build(std::move(f), order);
        benchmark::DoNotOptimize(chain.back().get());
        const auto stop = bench_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
        release(chain);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["dag"] = static_cast<double>(dag);
}

#ifdef LAW_BENCH_HAVE_GINAC
void build_ginac(benchmark::State& state, const char* key, int order, std::uint64_t nodes) {
    const GiNaC::symbol x("x");
    for (auto _ : state) {
        GiNaC::ex e = ginac_expression(key, x);
        const auto start = bench_clock::now();
        GiNaC::ex d = e.diff(x, static_cast<unsigned>(order));
        benchmark::DoNotOptimize(d);
        const auto stop = bench_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["nodes"] = static_cast<double>(nodes);
}
#endif

void eval_law(benchmark::State& state, const law* l, const std::vector<double>& x,
              std::uint64_t nodes) {
    std::vector<double> out(x.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < x.size(); ++i) l->evaluate(&x[i], &out[i]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bench::point_count);
    state.counters["nodes"] = static_cast<double>(nodes);
}

// ------------------------------------------------------------------ deep compositions

std::string sin_nest(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "SIN(";
    return text + "X" + std::string(static_cast<std::size_t>(depth), ')');
}

struct deep_case {
    const char* key;
    int depth;  ///< SIN nested this deep
    int order;
};
const deep_case deep_cases[] = {{"sin_nest1000", 1000, 1}, {"sin4", 4, 8}};

void register_deep() {
    for (const deep_case& c : deep_cases) {
        const std::string text = sin_nest(c.depth);
        const std::string name = std::string("deriv_deep/") + c.key + "/" + std::to_string(c.order);
        const int order = c.order;
        benchmark::RegisterBenchmark(
            (name + "/law").c_str(),
            [text, order](benchmark::State& s) {
                bench::node_counter count;
                law_ref f = parse(text.c_str());
                std::vector<law_ref> last = law_chain(std::move(f), order);
                s.counters["nodes"] = static_cast<double>(count(last.back().get()));
                s.counters["dag"] = static_cast<double>(count.objects());
                release(last);
                build_chain(s, text.c_str(), order, static_cast<std::uint64_t>(s.counters["nodes"]),
                            static_cast<std::uint64_t>(s.counters["dag"]), law_chain);
            })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
#ifdef LAW_BENCH_HAVE_GINAC
        const int depth = c.depth;
        benchmark::RegisterBenchmark(
            (name + "/ginac").c_str(),
            [depth, order](benchmark::State& s) {
                const GiNaC::symbol x("x");
                std::uint64_t nodes = 0;
                for (auto _ : s) {
                    GiNaC::ex e = x;
                    for (int i = 0; i < depth; ++i) e = GiNaC::sin(e);
                    const auto start = bench_clock::now();
                    GiNaC::ex d = e.diff(x, static_cast<unsigned>(order));
                    const auto stop = bench_clock::now();
                    s.SetIterationTime(std::chrono::duration<double>(stop - start).count());
                    if (nodes == 0) nodes = ginac_nodes(d);
                }
                s.counters["nodes"] = static_cast<double>(nodes);
            })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
#endif
    }
}

// ------------------------------------------------------------------ checks and set-up

bool close(double a, double b) {
    return std::fabs(a - b) <= 1e-9 * std::max(1.0, std::fabs(b));
}

/// The derivatives of one expression, kept alive for the whole run.
struct prepared {
    std::vector<law_ref> ours;
    std::vector<law_ref> naive;
    std::uint64_t our_nodes[max_order + 1] = {};
    std::uint64_t our_dag[max_order + 1] = {};  ///< distinct objects: shared ones once
    std::uint64_t naive_nodes[max_order + 1] = {};
    std::uint64_t naive_dag[max_order + 1] = {};
    std::uint64_t ginac_nodes[max_order + 1] = {};
};

bool prepare(const expression& e, prepared& p, const std::vector<double>& points) {
    p.ours = law_chain(parse(e.text), max_order);
    p.naive = naive_chain(parse(e.text), max_order);
    const std::uint64_t parsed = bench::count_nodes(p.ours[0].get());
    if (parsed != static_cast<std::uint64_t>(e.nodes)) {
        std::fprintf(stderr, "%s parses to %llu nodes, not %d\n", e.key,
                     static_cast<unsigned long long>(parsed), e.nodes);
        return false;
    }
#ifdef LAW_BENCH_HAVE_GINAC
    const GiNaC::symbol x("x");
    const GiNaC::ex g = ginac_expression(e.key, x);
#endif
    for (int k = 0; k <= max_order; ++k) {
        bench::node_counter ours, naive;
        p.our_nodes[k] = ours(p.ours[k].get());
        p.our_dag[k] = ours.objects();
        p.naive_nodes[k] = naive(p.naive[k].get());
        p.naive_dag[k] = naive.objects();
#ifdef LAW_BENCH_HAVE_GINAC
        const GiNaC::ex gk = g.diff(x, static_cast<unsigned>(k));
        p.ginac_nodes[k] = ginac_nodes(gk);
#endif
        for (std::size_t i = 0; i < points.size(); i += points.size() / 8) {
            const double at = points[i];
            const double ours = p.ours[k]->eval(at);
            const double naive = p.naive[k]->eval(at);
            bool ok = close(naive, ours);
#ifdef LAW_BENCH_HAVE_GINAC
            const double theirs = ginac_value(gk, x, at);
            ok = ok && close(theirs, ours);
#else
            const double theirs = ours;
#endif
            if (!ok) {
                std::fprintf(stderr,
                             "%s, derivative %d at X = %.17g: law %.17g, naive %.17g, "
                             "GiNaC %.17g\n",
                             e.key, k, at, ours, naive, theirs);
                return false;
            }
        }
    }
    return true;
}

void report_nodes(const expression& e, const prepared& p) {
    std::fprintf(stderr, "%s = %s\n  order  law nodes    law dag  naive nodes  GiNaC nodes\n",
                 e.key, e.text);
    for (int k = 0; k <= max_order; ++k) {
        std::fprintf(stderr, "  %5d %10llu %10llu %12llu %12llu\n", k,
                     static_cast<unsigned long long>(p.our_nodes[k]),
                     static_cast<unsigned long long>(p.our_dag[k]),
                     static_cast<unsigned long long>(p.naive_nodes[k]),
                     static_cast<unsigned long long>(p.ginac_nodes[k]));
    }
    benchmark::AddCustomContext(std::string("text/") + e.key, e.text);
}

void register_all(const expression& e, const prepared& p, const std::vector<double>& points) {
    const std::string key = e.key;
    const char* text = e.text;
    const std::vector<double>* x = &points;
    for (int n = 1; n <= max_order; ++n) {
        const std::string build = "deriv_build/" + key + "/" + std::to_string(n);
        const std::uint64_t ours = p.our_nodes[n], our_dag = p.our_dag[n];
        const std::uint64_t naive = p.naive_nodes[n], naive_dag = p.naive_dag[n];
        benchmark::RegisterBenchmark((build + "/law").c_str(), [text, n, ours,
                                                                our_dag](benchmark::State& s) {
            build_chain(s, text, n, ours, our_dag, law_chain);
        })->UseManualTime();
        benchmark::RegisterBenchmark((build + "/naive").c_str(), [text, n, naive,
                                                                  naive_dag](benchmark::State& s) {
            build_chain(s, text, n, naive, naive_dag, naive_chain);
        })->UseManualTime();
#ifdef LAW_BENCH_HAVE_GINAC
        const char* k = e.key;
        const std::uint64_t theirs = p.ginac_nodes[n];
        benchmark::RegisterBenchmark((build + "/ginac").c_str(), [k, n,
                                                                  theirs](benchmark::State& s) {
            build_ginac(s, k, n, theirs);
        })->UseManualTime();
#endif
        const std::string eval = "deriv_eval/" + key + "/" + std::to_string(n);
        const law* dl = p.ours[static_cast<std::size_t>(n)].get();
        const law* dn = p.naive[static_cast<std::size_t>(n)].get();
        benchmark::RegisterBenchmark((eval + "/law").c_str(), [dl, x, ours](benchmark::State& s) {
            eval_law(s, dl, *x, ours);
        });
        if (naive <= max_naive_eval_nodes) {
            benchmark::RegisterBenchmark(
                (eval + "/naive").c_str(),
                [dn, x, naive](benchmark::State& s) { eval_law(s, dn, *x, naive); });
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("derivative_bench", argc, argv, [&] {
        int status = 0;

        const std::vector<double> points = bench::make_points(lo, hi);
        prepared p[std::size(expressions)];
        bool ok = true;
        for (std::size_t i = 0; ok && i < std::size(expressions); ++i)
            ok = prepare(expressions[i], p[i], points);
        if (ok) {
#ifdef LAW_BENCH_HAVE_GINAC
            benchmark::AddCustomContext("ginac", GINACLIB_VERSION);
#else
                benchmark::AddCustomContext("ginac", "not built in");
#endif
            for (std::size_t i = 0; i < std::size(expressions); ++i) {
                report_nodes(expressions[i], p[i]);
                register_all(expressions[i], p[i], points);
            }
            register_deep();
            benchmark::RunSpecifiedBenchmarks();
        } else {
            status = 1;
        }
        for (prepared& q : p) {
            release(q.naive);
            release(q.ours);
        }
        return status == 0;
    });
}
