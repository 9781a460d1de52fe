// The numerics through the compiled form: the same roots, integrals, frames, evaluation
// counts and errors as by the tree, bit for bit, with the option "compile_numerics" on
// (the default) and off.

#include <cstring>
#include <functional>
#include <numbers>
#include <vector>

#include "law_builders.h"
#include "leak_check.h"

using law_test::K;

namespace {

class FastNumerics : public leak_checked {};

law_ref parse(const char* text) {
    return law_ref::adopt(str_to_law(text));
}

/// What a numeric call gave: its doubles, the evaluations it counted, the code it raised.
struct outcome {
    std::vector<double> values;
    long evaluations = 0;
    int error = 0;
    bool operator==(const outcome& o) const {
        return values.size() == o.values.size() && evaluations == o.evaluations &&
               error == o.error &&
               (values.empty() ||
                std::memcmp(values.data(), o.values.data(), values.size() * sizeof(double)) == 0);
    }
};

/// `call` with the compiled form allowed (`compiled`) or not.
outcome run(bool compiled, const std::function<void(std::vector<double>&)>& call) {
    QEM::option_header* option = find_option(compile_numerics_option_name);
    option->push(compiled ? 1 : 0);
    outcome o;
    const long before = lawutil_context()->numeric_evaluations;
    try {
        call(o.values);
    } catch (const vorn_exception& e) {
        o.error = e.error_number();
    }
    o.evaluations = lawutil_context()->numeric_evaluations - before;
    option->pop();
    return o;
}

void expect_same_both_ways(const std::function<void(std::vector<double>&)>& call) {
    EXPECT_EQ(run(true, call), run(false, call));
}

}  // namespace

// Hunts long enough to compile (hundreds of evaluations), one raising inside the
// interval, one whose derivatives divide by zero where the law does not, and one over a
// domain (left to the tree, whose domain test the Newton steps keep).
TEST_F(FastNumerics, RootsAndExtremaAreTheTreesWithTheSameCountsAndErrors) {
    const struct {
        const char* text;
        double a, b;
    } cases[] = {{"SIN(10*X)", 0, 10},
                 {"EXP(-(X^2)/2)*COS(3*X)-0.1", 0, 10},
                 {"SIN(10*X)*SQRT(ABS(X-5))", 0, 10},
                 {"SIN(10*X)/(X-3.14159265358979)", 0, 10},
                 {"SIN(10*X)*DOMAIN(X,0,10)", 0, 10}};
    for (const auto& c : cases) {
        const law_ref f = parse(c.text);
        expect_same_both_ways([&](std::vector<double>& v) {
            int n = 0;
            double* r = Nroot(f.get(), c.a, c.b, &n);
            v.assign(r, r + n);
            vorn_discard(r);
            v.push_back(Nmax(f.get(), c.a, c.b));
        });
        // Sampled extrema: 400 samples compile, 2 do not; an empty interval samples one
        // point 400 times (one evaluation).
        for (const auto& [samples, b] :
             {std::pair{400, c.b}, std::pair{2, c.b}, std::pair{400, c.a}})
            expect_same_both_ways([&](std::vector<double>& v) {
                v.push_back(Nmin_quick(f.get(), c.a, b, samples, 0.01, 1e-8));
                v.push_back(Nmax_quick(f.get(), b, c.a, samples, 0.01, 1e-8));
            });
    }
    // The roots of SIN(10*X) are k pi / 10: the compiled hunt finds every one.
    const law_ref s = parse("SIN(10*X)");
    const outcome o = run(true, [&](std::vector<double>& v) {
        int n = 0;
        double* r = Nroot(s.get(), 0, 10, &n);
        v.assign(r, r + n);
        vorn_discard(r);
    });
    ASSERT_EQ(o.values.size(), 32u);
    for (size_t k = 0; k < o.values.size(); ++k)
        EXPECT_NEAR(o.values[k], k * std::numbers::pi / 10, 1e-10);
}

// Rows of 512 midpoints and more go through the program: the sum, the count, and a
// raise at the midpoint 1/1024 (found in a row of 512) with the point left in x.
TEST_F(FastNumerics, RombergGivesTheTreesSumsAndRaisesAtTheSamePoint) {
    const law_ref f = parse("SQRT(X)*(1+X*(2+X*(3+X)))");
    const law_ref pole = parse("1/(X-0.0009765625)+X*X");
    for (const law_ref* l : {&f, &pole})
        expect_same_both_ways([&](std::vector<double>& v) {
            double x[1] = {0}, answer = 0;
            v.push_back(Nintegrate_wrt(l->get(), 0, 1, 0, x, &answer, 1e-10, 3, 22));
            v.push_back(answer);
            v.push_back(x[0]);
        });
    const outcome o = run(true, [&](std::vector<double>& out) {
        double answer = 0;
        Nintegrate(f.get(), 0, 1, &answer, 1e-10, 3, 22);
        out.push_back(answer);
    });
    EXPECT_NEAR(o.values[0], 2.0 / 3 + 4.0 / 5 + 6.0 / 7 + 2.0 / 9, 1e-9);
    EXPECT_EQ(run(true,
                  [&](std::vector<double>&) {
                      double x[1] = {0}, answer = 0;
                      Nintegrate_wrt(pole.get(), 0, 1, 0, x, &answer, 1e-10, 3, 22);
                  })
                  .error,
              LAW_ZERODIVIDE);
}

// The sample tables and the values between them, plain and refined; a path whose
// tangent raises at the samples, and one that raises only past the last sample.
TEST_F(FastNumerics, MinRotationSamplesAreTheTreesBitForBit) {
    const struct {
        const char* path;
        double end;
    } cases[] = {
        {"VEC(2*COS(X),2*SIN(X),X)", 6}, {"VEC(X,SQRT(X-3),0)", 6}, {"VEC(X,SQRT(4-X),X*X)", 3.5}};
    for (const auto& c : cases)
        for (const int alt : {0, 1})
            expect_same_both_ways([&](std::vector<double>& v) {
                const law_ref parts[4] = {parse(c.path), parse("VEC(-1,0,0.5)"), K(0), K(c.end)};
                law* raw[4] = {parts[0].get(), parts[1].get(), parts[2].get(), parts[3].get()};
                const law_ref m = make_law<min_rotation_law>(raw, 4, 0);
                static_cast<min_rotation_law*>(m.get())->set_alt_eval(alt);
                for (int i = 0; i <= 40; ++i) {
                    double out[3];
                    const double t = 0.15 * i;
                    m->evaluate(&t, out);
                    v.insert(v.end(), out, out + 3);
                }
            });
}
