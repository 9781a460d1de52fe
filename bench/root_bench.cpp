// All roots on an interval and definite integrals: the law library's Nroot and Romberg
// Nintegrate against the yardsticks of the field, on the same laws.
//
//   roots      Nroot against a 201-point grid with Boost's toms748_solve on every sign
//              change, both to 1e-12, on SIN(10*X) over [0,10], the degree-12 Legendre
//              polynomial over [-1,1], X^3-X over [-2,2] and the 30-node law
//              SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2) over [0,5] (no
//              reference roots: "missed" is not counted)
//   roots/cheb law_roots_cheb (Chebyshev interpolation, tail 1e-14) on the same laws
//   integrals  law_integrate_de and law_integrate_gk (tol 1e-10) and
//              Nintegrate (Romberg, tol 1e-10) against Boost's gauss_kronrod (15 points,
//              adaptive) and tanh_sinh on EXP(X), 1/(1+X^2), SQRT(X) and
//              SQRT(X)*(1+X*(2+X*(3+X))) over [0,1]
//   nderiv     Ndifferentiate of SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2) at
//              0.7, orders 4 (13 samples) and 50 (151 samples), by the tree: compiling
//              costs more than the samples save
//   nmin_quick Nmin_quick of the same law over [0,5]: 1000 samples (compiled), then the
//              compass search from the least (by the tree)
//
// Each law-library row also runs as ".../tree", with the option "compile_numerics" at 0: the
// same algorithm evaluating by the tree, for the gain of the compiled form.
//
// Counters: "evals" law evaluations per call (derivatives included), "roots" roots found,
// "missed" reference roots not found within 1e-12, "error" the largest error against the
// closed form.  Boost.Math is optional: without it only the law library's rows run.

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "../tests/data/legendre_roots.h"
#include "bench_common.h"

#ifdef LAW_BENCH_HAVE_BOOST_MATH
#include <boost/math/quadrature/gauss_kronrod.hpp>
#include <boost/math/quadrature/tanh_sinh.hpp>
#include <boost/math/tools/roots.hpp>
#endif

namespace {

constexpr double root_tol = 1e-12;

struct root_case {
    std::string name;
    law* f;
    double a, b;
    std::vector<double> want;
};

/// Reference roots not matched by any found root within root_tol.
int missed(const std::vector<double>& want, const std::vector<double>& got) {
    int n = 0;
    for (double w : want)
        if (std::none_of(got.begin(), got.end(),
                         [&](double g) { return std::fabs(g - w) <= root_tol; }))
            ++n;
    return n;
}

void report(benchmark::State& state, long evals, const std::vector<double>& got,
            const std::vector<double>& want) {
    state.counters["evals"] = static_cast<double>(evals);
    state.counters["roots"] = static_cast<double>(got.size());
    state.counters["missed"] = missed(want, got);
}

void nroot(benchmark::State& state, const root_case* c, bool tree) {
    const bench::tree_numerics mode(tree);
    std::vector<double> got;
    long evals = 0;
    for (auto _ : state) {
        const long before = lawutil_context()->numeric_evaluations;
        int n = 0;
        double* r = Nroot(c->f, c->a, c->b, &n);
        evals = lawutil_context()->numeric_evaluations - before;
        got.assign(r, r + n);
        vorn_discard(r);
    }
    report(state, evals, got, c->want);
}

// Chebyshev interpolation: every root from colleague-matrix eigenvalues, Newton-polished.
void cheb(benchmark::State& state, const root_case* c) {
    std::vector<double> got;
    long evals = 0;
    for (auto _ : state) {
        int n = 0;
        double* r = law_roots_cheb(c->f, c->a, c->b, 1e-14, &n, &evals);
        got.assign(r, r + n);
        vorn_discard(r);
    }
    report(state, evals, got, c->want);
}

#ifdef LAW_BENCH_HAVE_BOOST_MATH
// The grid method: sample 201 points, bracket every sign change and solve it.
void grid_toms748(benchmark::State& state, const root_case* c) {
    std::vector<double> got;
    long evals = 0;
    for (auto _ : state) {
        evals = 0;
        got.clear();
        auto f = [&](double x) {
            ++evals;
            return c->f->eval(x);
        };
        constexpr int points = 201;
        double x0 = c->a, f0 = f(x0);
        if (f0 == 0) got.push_back(x0);
        for (int i = 1; i < points; ++i) {
            const double x1 = c->a + (c->b - c->a) * i / (points - 1), f1 = f(x1);
            if (f1 == 0) {
                got.push_back(x1);
            } else if (f0 * f1 < 0) {
                std::uintmax_t iters = 100;
                const auto tol = [](double l, double h) { return h - l <= root_tol; };
                const auto r = boost::math::tools::toms748_solve(f, x0, x1, f0, f1, tol, iters);
                got.push_back(0.5 * (r.first + r.second));
            }
            x0 = x1;
            f0 = f1;
        }
    }
    report(state, evals, got, c->want);
}
#endif

// A sampled minimum: 1000 samples, then the compass search from the least.
void nmin_quick(benchmark::State& state, const law* f, bool tree) {
    const bench::tree_numerics mode(tree);
    double m = 0;
    for (auto _ : state) {
        m = Nmin_quick(const_cast<law*>(f), 0, 5, 1000, 0.01, 1e-8);
        benchmark::DoNotOptimize(m);
    }
    state.counters["xmin"] = m;
}

void nderiv(benchmark::State& state, const law* f, int order) {
    const double x = 0.7;
    double d = 0;
    for (auto _ : state) {
        Ndifferentiate(const_cast<law*>(f), &x, 0, &d, order);
        benchmark::DoNotOptimize(d);
    }
    state.counters["evals"] = 3 * order + 1;
}

struct integral_case {
    std::string name;
    law* f;
    double exact;
};

void romberg(benchmark::State& state, const integral_case* c, bool tree) {
    const bench::tree_numerics mode(tree);
    double v = 0;
    long evals = 0;
    for (auto _ : state) {
        const long before = lawutil_context()->numeric_evaluations;
        Nintegrate(c->f, 0, 1, &v, 1e-10, 3, 22);
        evals = lawutil_context()->numeric_evaluations - before;
    }
    state.counters["evals"] = static_cast<double>(evals);
    state.counters["error"] = std::fabs(v - c->exact);
}

// The accurate rules at the tolerance Boost's rows are given.
void accurate_rule(benchmark::State& state, const integral_case* c, bool de) {
    law_integral_result r;
    for (auto _ : state)
        r = de ? law_integrate_de(c->f, 0, 1, 1e-10) : law_integrate_gk(c->f, 0, 1, 1e-10);
    state.counters["evals"] = static_cast<double>(r.evaluations);
    state.counters["error"] = std::fabs(r.value - c->exact);
}

#ifdef LAW_BENCH_HAVE_BOOST_MATH
template <class Rule>
void boost_rule(benchmark::State& state, const integral_case* c) {
    double v = 0;
    long evals = 0;
    for (auto _ : state) {
        evals = 0;
        auto f = [&](double x) {
            ++evals;
            return c->f->eval(x);
        };
        v = Rule::run(f);
    }
    state.counters["evals"] = static_cast<double>(evals);
    state.counters["error"] = std::fabs(v - c->exact);
}

struct kronrod_rule {
    template <class F>
    static double run(F& f) {
        double err;
        return boost::math::quadrature::gauss_kronrod<double, 15>::integrate(f, 0.0, 1.0, 15, 1e-10,
                                                                             &err);
    }
};

struct tanh_sinh_rule {
    template <class F>
    static double run(F& f) {
        // Not const: the integrate members of this Boost version are not const-qualified.
        static boost::math::quadrature::tanh_sinh<double> rule;
        return rule.integrate(f, 0.0, 1.0, 1e-10);
    }
};
#endif

law* parse(const char* text) {
    return str_to_law(text);
}

}  // namespace

int main(int argc, char** argv) {
    return bench::run_program("root_bench", argc, argv, [&] {
        double p12[13];
        std::copy(std::begin(legendre12_coefficients), std::end(legendre12_coefficients), p12);
        std::vector<double> sines;
        for (int k = 0; k <= 31; ++k) sines.push_back(k * std::numbers::pi / 10);
        std::vector<root_case> roots = {
            {"sin10x", parse("SIN(10*X)"), 0, 10, sines},
            {"legendre12",
             make_polynomial_law(p12, 12),
             -1,
             1,
             {std::begin(legendre12_roots), std::end(legendre12_roots)}},
            {"x3mx", parse("X^3-X"), -2, 2, {-1, 0, 1}},
            {"tree30", parse("SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2)"), 0, 5, {}}};
        std::vector<integral_case> integrals = {{"exp", parse("EXP(X)"), std::numbers::e - 1},
                                                {"runge", parse("1/(1+X^2)"), std::numbers::pi / 4},
                                                {"sqrt", parse("SQRT(X)"), 2.0 / 3},
                                                {"sqrtpoly", parse("SQRT(X)*(1+X*(2+X*(3+X)))"),
                                                 2.0 / 3 + 4.0 / 5 + 6.0 / 7 + 2.0 / 9}};
        law* tree30 = parse("SIN(2*X)*EXP(X/2)+LN(X+1)*COS(X^2)-SQRT(X*X+1)/(X+2)");

        for (const root_case& c : roots) {
            benchmark::RegisterBenchmark(("roots/" + c.name + "/Nroot").c_str(), nroot, &c, false);
            benchmark::RegisterBenchmark(("roots/" + c.name + "/Nroot/tree").c_str(), nroot, &c,
                                         true);
            benchmark::RegisterBenchmark(("roots/" + c.name + "/cheb").c_str(), cheb, &c);
#ifdef LAW_BENCH_HAVE_BOOST_MATH
            benchmark::RegisterBenchmark(("roots/" + c.name + "/grid_toms748").c_str(),
                                         grid_toms748, &c);
#endif
        }
        for (const integral_case& c : integrals) {
            benchmark::RegisterBenchmark(("integral/" + c.name + "/romberg").c_str(), romberg, &c,
                                         false);
            benchmark::RegisterBenchmark(("integral/" + c.name + "/romberg/tree").c_str(), romberg,
                                         &c, true);
            benchmark::RegisterBenchmark(("integral/" + c.name + "/de").c_str(), accurate_rule, &c,
                                         true);
            benchmark::RegisterBenchmark(("integral/" + c.name + "/gk").c_str(), accurate_rule, &c,
                                         false);
#ifdef LAW_BENCH_HAVE_BOOST_MATH
            benchmark::RegisterBenchmark(("integral/" + c.name + "/gauss_kronrod").c_str(),
                                         boost_rule<kronrod_rule>, &c);
            benchmark::RegisterBenchmark(("integral/" + c.name + "/tanh_sinh").c_str(),
                                         boost_rule<tanh_sinh_rule>, &c);
#endif
        }
        benchmark::RegisterBenchmark("nmin_quick/tree30", nmin_quick, tree30, false);
        benchmark::RegisterBenchmark("nmin_quick/tree30/tree", nmin_quick, tree30, true);
        for (const int order : {4, 50})
            benchmark::RegisterBenchmark(("nderiv/tree30/order" + std::to_string(order)).c_str(),
                                         nderiv, tree30, order);
        benchmark::RunSpecifiedBenchmarks();
        law::remove(tree30);
        for (root_case& c : roots) law::remove(c.f);
        for (integral_case& c : integrals) law::remove(c.f);
        return true;
    });
}
