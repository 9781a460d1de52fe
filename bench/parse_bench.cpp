// parse_bench: what reading a formula costs, per character, from short texts to sums of
// ten thousand terms, beside muparser reading the same formulas.
//
// Run it:
//   build/release/bench/parse_bench --benchmark_format=json > parse.json
//
// Benchmark names:
//   parse/<key>/law        str_to_law(text) and law::remove of the result
//   parse/<key>/general    the same by the general parser alone (str_to_law_general),
//                          which reads what the quick reader leaves to it
//   parse/<key>/build      (sums only) the same law built by its constructors and
//                          released: what making the laws costs without reading text,
//                          the floor under parse/<key>/law
//   parse/<key>/muparser   SetExpr(text) and the first Eval (which is when muparser
//                          parses) on one parser made beforehand, its variable defined
// Items are characters of the text, so 1e9 / items_per_second is ns per character; the
// counter "chars" is the text's length.  The law texts and muparser's differ only in
// spelling (SIN and sin, PI and _pi).  Where muparser refuses a text (it has a limit on
// length) the benchmark is left out and the JSON context says "refused" with its message.
//
// Before timing, every text is read both ways and evaluated at X = 0.7; the values must
// agree.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <lawutil/law_unary.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>
#include <qem/heap.h>

#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

struct text_pair {
    std::string key;
    std::string law;  ///< the law language
    std::string mu;   ///< the same formula for muparser
    int terms = 0;    ///< for the sums: the number of terms
};

/// "X*1.5+SIN(X)+X*1.5+..." with `terms` terms, alternating.
text_pair sum_of(int terms) {
    text_pair t{"sum" + std::to_string(terms), {}, {}, terms};
    for (int i = 0; i < terms; ++i) {
        if (i > 0) {
            t.law += '+';
            t.mu += '+';
        }
        t.law += i % 2 == 0 ? "X*1.5" : "SIN(X)";
        t.mu += i % 2 == 0 ? "X*1.5" : "sin(X)";
    }
    return t;
}

std::vector<text_pair> texts() {
    std::vector<text_pair> t = {
        {"pythagoras", "SIN(X)^2+COS(X)^2", "sin(X)^2+cos(X)^2"},
        {"vec", "VEC(COS(X),SIN(X),X/10)", "cos(X),sin(X),X/10"},
        {"sin2_3x", "SIN(X)^2+3*X", "sin(X)^2+3*X"},
        {"x2p1", "X*X+1", "X*X+1"},
        {"gauss", "EXP(-(X^2)/2)/SQRT(2*PI)", "exp(-(X^2)/2)/sqrt(2*_pi)"},
    };
    for (int n : {100, 1000, 10000, 100000}) t.push_back(sum_of(n));
    return t;
}

void set_chars(benchmark::State& state, std::size_t chars) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(chars));
    state.counters["chars"] = static_cast<double>(chars);
}

/// The sum of `terms` terms that sum_of spells, built by the constructors (one use).
law* build_sum(int terms) {
    law* sum = nullptr;
    for (int i = 0; i < terms; ++i) {
        law* x = new identity_law(0, 'X');
        law* term = nullptr;
        if (i % 2 == 0) {
            law* c = new constant_law(1.5);
            term = new times_law(x, c);
            law::remove(c);
        } else {
            term = new sin_law(x);
        }
        law::remove(x);
        if (sum) {
            law* next = new plus_law(sum, term);
            law::remove(sum);
            law::remove(term);
            sum = next;
        } else {
            sum = term;
        }
    }
    return sum;
}

void build_law(benchmark::State& state, int terms, std::size_t chars) {
    for (auto _ : state) {
        law* l = build_sum(terms);
        benchmark::DoNotOptimize(l);
        law::remove(l);
    }
    set_chars(state, chars);
}

void parse_law(benchmark::State& state, const std::string& text) {
    const char* c = text.c_str();
    for (auto _ : state) {
        law* l = str_to_law(c);
        benchmark::DoNotOptimize(l);
        law::remove(l);
    }
    set_chars(state, text.size());
}

void parse_general(benchmark::State& state, const std::string& text) {
    const char* c = text.c_str();
    for (auto _ : state) {
        law* l = str_to_law_general(c, nullptr, 0, nullptr);
        benchmark::DoNotOptimize(l);
        law::remove(l);
    }
    set_chars(state, text.size());
}

#ifdef LAW_BENCH_HAVE_MUPARSER
void parse_muparser(benchmark::State& state, const std::string& text) {
    mu::Parser p;
    double var = 0.7;
    p.DefineVar("X", &var);
    for (auto _ : state) {
        p.SetExpr(text);
        double v = p.Eval();
        benchmark::DoNotOptimize(v);
    }
    set_chars(state, text.size());
}

/// The first value muparser gives for `text` at `x` (as the law's first component), or a
/// message when it refuses it.
bool muparser_value(const std::string& text, double x, double& value, std::string& message) {
    try {
        mu::Parser p;
        p.DefineVar("X", &x);
        p.SetExpr(text);
        int n = 0;
        value = p.Eval(n)[0];  // the first part of a comma-separated text
        return true;
    } catch (const mu::Parser::exception_type& e) {
        message = e.GetMsg();
        return false;
    }
}
#endif

/// Parses both ways, compares the values and registers the benchmarks; false on a
/// disagreement (or a law text that does not parse).
bool prepare(const text_pair& t) {
    constexpr double at = 0.7;
    law* l = str_to_law(t.law.c_str());
    if (l == nullptr) {
        std::fprintf(stderr, "%s: the law text does not parse\n", t.key.c_str());
        return false;
    }
    [[maybe_unused]] const double ours = l->eval(at);  // compared with muparser
    law::remove(l);
    const std::string base = "parse/" + t.key;
    const std::string* law_text = &t.law;
    benchmark::RegisterBenchmark((base + "/law").c_str(),
                                 [law_text](benchmark::State& s) { parse_law(s, *law_text); });
    benchmark::AddCustomContext("chars/" + t.key + "/law", std::to_string(t.law.size()));
    if (t.terms > 0) {
        law* built = build_sum(t.terms);
        law* parsed = str_to_law(t.law.c_str());
        const bool same = *built == *parsed;
        law::remove(built);
        law::remove(parsed);
        if (!same) {
            std::fprintf(stderr, "%s: the built law differs from the parsed one\n", t.key.c_str());
            return false;
        }
        const int terms = t.terms;
        const std::size_t chars = t.law.size();
        benchmark::RegisterBenchmark(
            (base + "/build").c_str(),
            [terms, chars](benchmark::State& s) { build_law(s, terms, chars); });
    }
    benchmark::RegisterBenchmark((base + "/general").c_str(),
                                 [law_text](benchmark::State& s) { parse_general(s, *law_text); });
#ifdef LAW_BENCH_HAVE_MUPARSER
    double theirs = 0.0;
    std::string message;
    if (muparser_value(t.mu, at, theirs, message)) {
        if (!(std::fabs(theirs - ours) <= 1e-12 * std::fmax(1.0, std::fabs(ours)))) {
            std::fprintf(stderr, "%s: law %.17g, muparser %.17g at X = %g\n", t.key.c_str(), ours,
                         theirs, at);
            return false;
        }
        const std::string* mu_text = &t.mu;
        benchmark::RegisterBenchmark((base + "/muparser").c_str(), [mu_text](benchmark::State& s) {
            parse_muparser(s, *mu_text);
        });
    } else {
        std::fprintf(stderr, "%s (%zu characters): muparser refuses it: %s\n", t.key.c_str(),
                     t.mu.size(), message.c_str());
        benchmark::AddCustomContext("refused/" + t.key + "/muparser", "refused: " + message);
    }
    benchmark::AddCustomContext("chars/" + t.key + "/muparser", std::to_string(t.mu.size()));
#endif
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("parse_bench", argc, argv, [&] {
        int status = 0;

        const std::vector<text_pair> all = texts();
        bool ok = true;
        for (const text_pair& t : all) ok = prepare(t) && ok;
        if (ok)
            benchmark::RunSpecifiedBenchmarks();
        else
            status = 1;
        return status == 0;
    });
}
