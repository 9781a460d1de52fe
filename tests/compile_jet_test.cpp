// Jets (a law's value and derivatives from one compiled program) against the symbolic
// derivatives, closed forms and the tree's errors.

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "corpus_laws.h"
#include "formula_maker.h"
#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;
using program_ptr = std::unique_ptr<law_program, decltype(&law_program_release)>;

constexpr int no_error = -1;

template <class F>
int code_of(F&& f) {
    try {
        f();
    } catch (const vorn_exception& e) {
        return e.error_number();
    }
    return no_error;
}

// The value and derivatives 1..order of `f` by its symbolic derivatives, or the first code
// raised (building or evaluating).
int by_symbols(const law* f, int order, int which, const double* x, std::vector<double>& out) {
    out.clear();
    return code_of([&] {
        law_ref current = law_ref::retain(f);
        const int m = f->return_dim();
        for (int k = 0; k <= order; ++k) {
            if (k > 0) current = law_ref::adopt(current->derivative(which));
            std::vector<double> v(static_cast<size_t>(m));
            current->evaluate(x, v.data());
            out.insert(out.end(), v.begin(), v.end());
        }
    });
}

int by_jet(const law_program& p, const double* x, std::vector<double>& out) {
    out.assign(static_cast<size_t>(p.output_count()), 0.0);
    return code_of([&] { p.evaluate(x, out.data()); });
}

// The largest difference from `want`, relative to its largest term.
double scaled_error(const std::vector<double>& got, const std::vector<double>& want) {
    double scale = 0.0, worst = 0.0;
    for (double w : want)
        if (std::isfinite(w)) scale = std::max(scale, std::fabs(w));
    for (size_t j = 0; j < got.size(); ++j)
        if (std::isfinite(want[j]) && std::isfinite(got[j]))
            worst = std::max(worst, std::fabs(got[j] - want[j]));
    return scale > 0.0 ? worst / scale : worst;
}

void expect_close(const std::vector<double>& got, const std::vector<double>& want, double tol,
                  const std::string& what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    EXPECT_LE(scaled_error(got, want), tol) << what;
}

class CompileJet : public leak_checked {};

TEST_F(CompileJet, RandomFormulasAgreeWithSymbolicDerivatives) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> any(-2.5, 2.5);
    const double special[] = {0.0, 1.0, -1.0, 0.5, 2.0};
    int compared = 0, raised = 0, jet_only = 0, ill_conditioned = 0;
    for (unsigned seed = 1; seed <= 600; ++seed) {
        const std::string text = formula_maker(seed).make(3);
        law_ref f = law_ref::adopt(str_to_law(text.c_str()));
        ASSERT_TRUE(f) << text;
        const int which = static_cast<int>(seed % 2);
        const int order = 1 + static_cast<int>(seed % 6);
        law* laws[] = {f.get()};
        program_ptr p(law_compile_jet(laws, 1, order, which), law_program_release);
        ASSERT_EQ(p->output_count(), (order + 1) * f->return_dim()) << text;
        for (int i = 0; i < 6; ++i) {
            double x[2];
            for (double& c : x) c = rng() % 3 ? any(rng) : special[rng() % 5];
            std::vector<double> want, got;
            const int want_code = by_symbols(f.get(), order, which, x, want);
            const int got_code = by_jet(*p, x, got);
            const std::string what = text + " order " + std::to_string(order) + " at (" +
                                     std::to_string(x[0]) + "," + std::to_string(x[1]) + ")";
            // Where the value raises, the same code; where a derivative does, a code too.
            std::vector<double> value(static_cast<size_t>(f->return_dim()));
            const int value_code = code_of([&] { f->evaluate(x, value.data()); });
            if (value_code != no_error) {
                ASSERT_EQ(got_code, value_code) << what;
                ++raised;
                continue;
            }
            // The tree's chain rule may evaluate a derivative factor at a constant operand
            // (SQRT(LN(1)) raises there); the jet knows the derivatives of a constant are 0.
            if (want_code != no_error) {
                ++raised;
                continue;
            }
            // A derivative the simplifier cancels (0*Y^1.5 at Y = 0) may still raise in
            // the jet, which carries every operation: a pole's code, and rarely.
            if (got_code == LAW_EXPONENT || got_code == LAW_ZERODIVIDE) {
                ++jet_only;
                continue;
            }
            ASSERT_EQ(got_code, no_error) << what;
            for (size_t j = 0; j < value.size(); ++j)
                ASSERT_TRUE(std::memcmp(&got[j], &value[j], sizeof(double)) == 0 ||
                            (std::isnan(got[j]) && std::isnan(value[j])))
                    << what;
            // A rational the simplifier reduces to a polynomial (K/(2/(Y*Y+Y))) keeps in the
            // jet the cancellation of its series division near the poles: a few digits.
            const double error = scaled_error(got, want);
            ASSERT_LE(error, 1e-8) << what;
            if (error > 1e-12) ++ill_conditioned;
            ++compared;
        }
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(compared, 2000);
    EXPECT_GT(raised, 0);
    EXPECT_LT(jet_only * 50, compared);
    EXPECT_LT(ill_conditioned * 100, compared);
}

TEST_F(CompileJet, ClosedFormsToOrderTwenty) {
    constexpr int order = 20;
    struct closed_form {
        const char* text;
        double x;
        double (*nth)(int n, double x);
    };
    const closed_form forms[] = {
        {"EXP(1.5*X)", 0.4, [](int n, double x) { return std::pow(1.5, n) * std::exp(1.5 * x); }},
        {"SIN(X)", 0.7, [](int n, double x) { return std::sin(x + n * M_PI / 2); }},
        {"1/(1-X)", 0.3,
         [](int n, double x) { return std::tgamma(n + 1.0) / std::pow(1 - x, n + 1); }},
        {"X^7", 1.3,
         [](int n, double x) {
             return n > 7 ? 0.0 : std::tgamma(8.0) / std::tgamma(8.0 - n) * std::pow(x, 7 - n);
         }},
        {"X^7", 0.0, [](int n, double) { return n == 7 ? 5040.0 : 0.0; }},
        {"X^2.5", 2.0,
         [](int n, double x) {
             double c = 1.0;
             for (int k = 0; k < n; ++k) c *= 2.5 - k;
             return c * std::pow(x, 2.5 - n);
         }},
    };
    for (const closed_form& form : forms) {
        law_ref f = law_ref::adopt(str_to_law(form.text));
        law* laws[] = {f.get()};
        program_ptr p(law_compile_jet(laws, 1, order, 0), law_program_release);
        std::vector<double> got, want;
        ASSERT_EQ(by_jet(*p, &form.x, got), no_error) << form.text;
        for (int n = 0; n <= order; ++n) want.push_back(form.nth(n, form.x));
        expect_close(got, want, 1e-12, form.text);
    }
}

TEST_F(CompileJet, DomainEdgesRaiseAsTheTree) {
    struct edge {
        const char* text;
        double x;
        int order;
    };
    const edge edges[] = {
        {"LN(X)", 0.0, 1},     {"LN(X)", -1.0, 2},      {"1/X", 0.0, 1},
        {"SQRT(X)", -1.0, 1},  {"SQRT(X)", 0.0, 1},     {"ARCSIN(X)", 1.0, 1},
        {"ARCSIN(X)", 2.0, 1}, {"TAN(X)", M_PI / 2, 1}, {"X^0.5", 0.0, 1},
        {"X^(0-1)", 0.0, 1},   {"ARCCOSH(X)", 1.0, 1},  {"ARCTANH(X)", 1.0, 1},
        {"RAND(X)", 0.5, 1},   {"X^X", -1.0, 1},        {"(X-1)/(X-1)", 1.0, 3},
    };
    for (const edge& e : edges) {
        law_ref f = law_ref::adopt(str_to_law(e.text));
        law* laws[] = {f.get()};
        program_ptr p(law_compile_jet(laws, 1, e.order, 0), law_program_release);
        std::vector<double> got, want;
        const int want_code = by_symbols(f.get(), e.order, 0, &e.x, want);
        const int got_code = by_jet(*p, &e.x, got);
        EXPECT_EQ(got_code, want_code) << e.text << " at " << e.x;
        if (want_code == no_error && got_code == no_error) expect_close(got, want, 1e-12, e.text);
    }
}

TEST_F(CompileJet, LayoutBatchesAndVectorLaws) {
    law_ref f = law_ref::adopt(str_to_law("VEC(COS(X),SIN(X)*Y,X/(Y+4))"));
    law_ref g = law_ref::adopt(str_to_law("X*Y^3"));
    law* laws[] = {f.get(), g.get()};
    program_ptr p(law_compile_jet(laws, 2, 3, 1), law_program_release);
    ASSERT_EQ(p->output_count(), 4 * 3 + 4);
    EXPECT_EQ(p->first_output(1), 12);
    const double x[] = {0.5, 2.0};
    std::vector<double> got, want_f, want_g;
    ASSERT_EQ(by_jet(*p, x, got), no_error);
    ASSERT_EQ(by_symbols(f.get(), 3, 1, x, want_f), no_error);
    ASSERT_EQ(by_symbols(g.get(), 3, 1, x, want_g), no_error);
    want_f.insert(want_f.end(), want_g.begin(), want_g.end());
    expect_close(got, want_f, 1e-14, "two laws");
    // A batch gives what the points give one by one.
    std::vector<double> xs = {0.5, -1.0, 3.0}, ys = {2.0, 0.25, -3.0};
    const double* in[] = {xs.data(), ys.data()};
    std::vector<std::vector<double>> out(16, std::vector<double>(3));
    std::vector<double*> o;
    for (auto& v : out) o.push_back(v.data());
    p->evaluate_batch(3, in, o.data());
    for (int i = 0; i < 3; ++i) {
        const double xi[] = {xs[i], ys[i]};
        ASSERT_EQ(by_jet(*p, xi, got), no_error);
        for (int j = 0; j < 16; ++j) EXPECT_EQ(out[j][i], got[j]);
    }
    EXPECT_LAW_ERROR(law_compile_jet(laws, 2, -1, 0), LAW_DIM);
    EXPECT_LAW_ERROR(law_compile_jet(laws, 2, 3, -1), LAW_DIM);
}

TEST_F(CompileJet, VectorProductsAndComponentsCarryTheirSeries) {
    const struct {
        const char* text;
        int tree_instructions;
    } cases[] = {
        {"DOT(VEC(COS(X),SIN(X),X),VEC(X^2,EXP(X),1/(X+2)))", 0},
        {"CROSS(VEC(COS(X),SIN(X),X),VEC(X,X*X))", 0},
        {"DOT(VEC(X,SIN(X)),VEC(X,SIN(X)))+TERM(CROSS(VEC(1,X,0),VEC(X,2,X^3)),3)", 0},
        {"DOT(SIN(X),VEC(X,1))*TERM(VEC(EXP(X),LN(X)),2)", 0},
        {"TERM(VEC(X,X^2),X)+DOT(VEC(X,X),X)", 2},  // a varying index; a vector times a scalar
        {"(SIN(X)*X^3)O(EXP(X)/3)", 0},
        {"VEC(X*Y,X-Y)O(VEC(COS(X),X^2))", 0},
        {"((X/(X-1))O(X^2))+X", 1},  // a quotient, whose 0/0 reads the point itself
    };
    const double x = 0.8;
    for (const auto& c : cases) {
        law_ref f = law_ref::adopt(str_to_law(c.text));
        ASSERT_TRUE(f) << c.text;
        law* laws[] = {f.get()};
        program_ptr p(law_compile_jet(laws, 1, 5, 0), law_program_release);
        EXPECT_EQ(p->tree_instruction_count(), c.tree_instructions) << c.text;
        std::vector<double> got, want;
        ASSERT_EQ(by_symbols(f.get(), 5, 0, &x, want), no_error) << c.text;
        ASSERT_EQ(by_jet(*p, &x, got), no_error) << c.text;
        EXPECT_EQ(got[0], want[0]) << c.text;
        expect_close(got, want, 1e-12, c.text);
    }
}

TEST_F(CompileJet, FuzzCorpusAgreesWithSymbolicDerivatives) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> any(-2.0, 2.0);
    int compared = 0;
    for (const corpus_law& c : corpus_laws(LAW_FUZZ_CORPUS)) {
        const law_ref& f = c.law;
        law* laws[] = {f.get()};
        program_ptr p(law_compile_jet(laws, 1, 3, 0), law_program_release);
        for (int i = 0; i < 4; ++i) {
            double x[8];
            for (double& c : x) c = any(rng);
            std::vector<double> got, want;
            const int want_code = by_symbols(f.get(), 3, 0, x, want);
            const int got_code = by_jet(*p, x, got);
            if (want_code != no_error || got_code != no_error) continue;
            EXPECT_LE(scaled_error(got, want), 1e-12) << c.text;
            ++compared;
        }
    }
    EXPECT_GT(compared, 30);
}

TEST_F(CompileJet, LawJetKeepsItsProgramsWithTheLaw) {
    law_ref f = law_ref::adopt(str_to_law("SIN(X)*Y^2"));
    law* laws[] = {f.get()};
    const double x[] = {0.3, 1.5};
    for (int which : {0, 1, 0}) {
        program_ptr p(law_compile_jet(laws, 1, 4, which), law_program_release);
        std::vector<double> want, got(5);
        ASSERT_EQ(by_jet(*p, x, want), no_error);
        // From several threads at once, the first call compiling.
        std::vector<std::vector<double>> each(3, std::vector<double>(5));
        std::vector<std::thread> threads;
        for (auto& out : each)
            threads.emplace_back([&] { law_jet(f.get(), x, 4, which, out.data()); });
        for (auto& t : threads) t.join();
        for (const auto& out : each) EXPECT_EQ(out, want);
    }
    const double pole = 0.0;
    law_ref g = law_ref::adopt(str_to_law("1/X"));
    double out[3];
    EXPECT_LAW_ERROR(law_jet(g.get(), &pole, 2, 0, out), LAW_ZERODIVIDE);
    EXPECT_LAW_ERROR(law_jet(g.get(), &pole, law_jet_max_order + 1, 0, out), LAW_DIM);
}

}  // namespace
