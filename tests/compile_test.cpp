// Compiled laws against the trees they come from: random formulas and the fuzz corpus,
// each compiled together with its first partial derivatives, at points that meet the
// error paths (0/0, poles, domains) as well as ordinary ones.  Values must agree to the
// bit (NaN with NaN), errors to the code, one point at a time and in batches.

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <qem/version.h>

#include "corpus_laws.h"
#include "formula_maker.h"
#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;
using program_ptr = std::unique_ptr<law_program, decltype(&law_program_release)>;

constexpr int no_error = -1;

struct outcome {
    int code = no_error;
    std::vector<double> values;
};

bool same_bits(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

// The laws evaluated one after another by the tree, or the first code raised.
outcome by_tree(const std::vector<law*>& laws, const double* x) {
    outcome o;
    try {
        for (const law* l : laws) {
            std::vector<double> v(static_cast<size_t>(l->return_dim()));
            l->evaluate(x, v.data());
            o.values.insert(o.values.end(), v.begin(), v.end());
        }
    } catch (const vorn_exception& e) {
        o = {e.error_number(), {}};
    }
    return o;
}

template <class F>
int code_of(F&& f) {
    try {
        f();
    } catch (const vorn_exception& e) {
        return e.error_number();
    }
    return no_error;
}

// Compiles `laws` and compares with the trees at every point (`points[i]` holds at least
// input_count() coordinates), one by one and as one batch.
void expect_same(const std::vector<law*>& laws, const std::vector<std::vector<double>>& points,
                 const std::string& what) {
    program_ptr p(law_compile(laws.data(), static_cast<int>(laws.size())), law_program_release);
    const int nout = p->output_count();
    const int npoints = static_cast<int>(points.size());
    std::vector<outcome> want;
    int batch_code = no_error;
    for (const auto& x : points) {
        want.push_back(by_tree(laws, x.data()));
        if (batch_code == no_error) batch_code = want.back().code;
        std::vector<double> got(static_cast<size_t>(nout));
        const int code = code_of([&] { p->evaluate(x.data(), got.data()); });
        ASSERT_EQ(code, want.back().code) << what;
        for (int j = 0; code == no_error && j < nout; ++j)
            ASSERT_TRUE(same_bits(got[j], want.back().values[j]))
                << what << " value " << j << ": " << got[j] << " vs " << want.back().values[j];
    }
    std::vector<std::vector<double>> in(static_cast<size_t>(p->input_count()));
    for (size_t k = 0; k < in.size(); ++k)
        for (const auto& x : points) in[k].push_back(x[k]);
    std::vector<std::vector<double>> out(static_cast<size_t>(nout),
                                         std::vector<double>(points.size()));
    std::vector<const double*> in_ptr;
    std::vector<double*> out_ptr;
    for (auto& v : in) in_ptr.push_back(v.data());
    for (auto& v : out) out_ptr.push_back(v.data());
    const int code = code_of([&] { p->evaluate_batch(npoints, in_ptr.data(), out_ptr.data()); });
    ASSERT_EQ(code, batch_code) << what << " (batch)";
    for (int i = 0; code == no_error && i < npoints; ++i)
        for (int j = 0; j < nout; ++j)
            ASSERT_TRUE(same_bits(out[j][i], want[i].values[j])) << what << " (batch)";
}

// A law with those of its first partial derivatives that exist (one use each).
std::vector<law_ref> with_derivatives(law_ref l, int variables) {
    std::vector<law_ref> laws;
    for (int v = 0; v < variables; ++v) {
        law* d = nullptr;
        if (code_of([&] { d = l->derivative(v); }) == no_error) laws.push_back(law_ref::adopt(d));
    }
    laws.insert(laws.begin(), std::move(l));
    return laws;
}

std::vector<law*> raw(const std::vector<law_ref>& laws) {
    std::vector<law*> out;
    for (const law_ref& l : laws) out.push_back(l.get());
    return out;
}

// Points whose coordinates are mostly the values where formulas break (0, 1, -1, ...).
std::vector<std::vector<double>> points_for(std::mt19937& rng, int count, int dims) {
    const double special[] = {0.0, 1.0, -1.0, 0.5, 2.0, -0.5, 3.0, 1e-16};
    std::uniform_real_distribution<double> any(-3.0, 3.0);
    std::vector<std::vector<double>> points(static_cast<size_t>(count));
    for (auto& x : points)
        for (int k = 0; k < dims; ++k) x.push_back(rng() % 3 ? special[rng() % 8] : any(rng));
    return points;
}

class Compile : public leak_checked {};

TEST_F(Compile, RandomFormulasAndDerivativesAgreeWithTheTree) {
    std::mt19937 rng(7);
    int compiled = 0;
    for (unsigned seed = 1; seed <= 1200; ++seed) {
        const std::string text = formula_maker(seed).make(4);
        law_ref l = law_ref::adopt(str_to_law(text.c_str()));
        ASSERT_TRUE(l) << text;
        std::vector<law_ref> laws = with_derivatives(std::move(l), 2);
        // Powers of negative numbers follow the global version: both sides of the gate.
        const bool old = seed % 4 == 0;
        if (old) set_global_version(2170000);
        expect_same(raw(laws), points_for(rng, 12, 2), text);
        if (old) set_global_version(latest_global_version());
        ++compiled;
        if (HasFatalFailure()) return;
    }
    EXPECT_EQ(compiled, 1200);
}

TEST_F(Compile, FuzzCorpusAgreesWithTheTree) {
    std::mt19937 rng(11);
    int compiled = 0;
    for (corpus_law& c : corpus_laws(LAW_FUZZ_CORPUS)) {
        std::vector<law_ref> laws = with_derivatives(std::move(c.law), 1);
        expect_same(raw(laws), points_for(rng, 8, 8), c.text);
        ++compiled;
    }
    EXPECT_GT(compiled, 30);
}

TEST_F(Compile, SharedAndConstantPartsCostNothingExtra) {
    law_ref f = law_ref::adopt(str_to_law("EXP(-(X^2)/2)/SQRT(2*PI)+SIN(X)*COS(X)"));
    law_ref g = law_ref::adopt(str_to_law("EXP(-(X^2)/2)/SQRT(2*PI)+SIN(X)*COS(X)"));
    law_ref k = law_ref::adopt(str_to_law("SQRT(2*PI)^3+LN(2)"));
    law* one[] = {f.get()};
    law* two[] = {f.get(), g.get(), k.get()};
    program_ptr p1(law_compile(one, 1), law_program_release);
    program_ptr p2(law_compile(two, 3), law_program_release);
    EXPECT_EQ(p2->instruction_count(), p1->instruction_count());
    EXPECT_EQ(p2->output_count(), 3);
    const double x = 0.3;
    double out[3];
    p2->evaluate(&x, out);
    EXPECT_EQ(out[2], std::pow(std::sqrt(2 * M_PI), 3) + std::log(2.0));
    EXPECT_EQ(out[0], out[1]);
    EXPECT_NEAR(out[0], std::exp(-0.045) / std::sqrt(2 * M_PI) + std::sin(0.3) * std::cos(0.3),
                1e-15);
    // Refusals name the arguments, never a missing evaluate function.
    EXPECT_LAW_ERROR(law_compile(one, 0), LAW_DIM);
    EXPECT_LAW_ERROR(law_compile(nullptr, 1), LAW_DIM);
    double* rows[3] = {out, out, nullptr};
    const double* xs[1] = {&x};
    EXPECT_LAW_ERROR(p2->evaluate_batch(1, nullptr, rows), LAW_DIM);
    EXPECT_LAW_ERROR(p2->evaluate_batch(1, xs, nullptr), LAW_DIM);
    EXPECT_LAW_ERROR(p2->evaluate_batch(1, xs, rows), LAW_DIM);
}

TEST_F(Compile, ThreadsShareOneProgram) {
    law_ref f = law_ref::adopt(str_to_law("VEC(COS(X),SIN(X)*Y,X/(Y+4))"));
    law* laws[] = {f.get()};
    program_ptr p(law_compile(laws, 1), law_program_release);
    auto sweep = [&](std::vector<double>& out) {
        std::vector<double> x(1000), y(1000, 0.25);
        for (int i = 0; i < 1000; ++i) x[i] = i * 0.01;
        out.assign(3000, 0.0);
        const double* in[] = {x.data(), y.data()};
        double* o[] = {out.data(), out.data() + 1000, out.data() + 2000};
        for (int r = 0; r < 50; ++r) p->evaluate_batch(1000, in, o);
    };
    std::vector<double> a, b, c;
    std::thread t1([&] { sweep(a); }), t2([&] { sweep(b); });
    t1.join();
    t2.join();
    sweep(c);
    EXPECT_EQ(a, c);
    EXPECT_EQ(b, c);
}

}  // namespace
