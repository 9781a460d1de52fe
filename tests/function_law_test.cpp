#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <qem/qem_printf.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class FunctionLaw : public leak_checked {};

QEM::interval domain_of(const law_ref& l, int which) {
    QEM::interval d;
    l->term_domain(which, d);
    return d;
}

const double pi = 3.141592653589793;

TEST_F(FunctionLaw, DomainRestrictsAndReportsItsIntervals) {
    auto x = X(), y = Y();
    auto sq = op<times_law>(x, x);
    auto d = multi<domain_law>({sq, K(1), K(2)});
    EXPECT_EQ(d->eval(1.0), 1.0);                                 // closed
    EXPECT_EQ(d->eval(2.0 + 1e-9), (2.0 + 1e-9) * (2.0 + 1e-9));  // within the resolution
    EXPECT_LAW_ERROR(d->eval(3.0), LAW_BAD_DOMAN);
    EXPECT_EQ(domain_of(d, 0), QEM::interval(1, 2));
    // Bounds in either order; two variables; an unrestricted variable is the whole line.
    EXPECT_EQ(domain_of(multi<domain_law>({x, K(2), K(1)}), 0), QEM::interval(1, 2));
    auto xy = multi<domain_law>({op<times_law>(x, y), K(0), K(1), K(2), K(3)});
    EXPECT_EQ(domain_of(xy, 1), QEM::interval(2, 3));
    EXPECT_LAW_ERROR(values(xy, {0.5, 4.0}), LAW_BAD_DOMAN);
    EXPECT_TRUE(domain_of(d, 1).infinite());
    // A restriction of a restriction is their intersection.
    auto nested = multi<domain_law>({multi<domain_law>({x, K(0), K(3)}), K(1), K(5)});
    EXPECT_EQ(domain_of(nested, 0), QEM::interval(1, 3));
    // Operators are defined no further than their operands.
    EXPECT_EQ(domain_of(op<plus_law>(d, y), 0), QEM::interval(1, 2));
    // A restriction of a constant still reads (and so takes) the variable it restricts.
    auto c = multi<domain_law>({K(4), K(0), K(1)});
    EXPECT_EQ(c->take_dim(), 1);
    EXPECT_FALSE(c->constant());
    EXPECT_LAW_ERROR(c->eval(2.0), LAW_BAD_DOMAN);
}

TEST_F(FunctionLaw, SimplificationKeepsDomains) {
    auto x = X();
    auto ratio = op<division_law>(x, x);
    auto d = multi<domain_law>({ratio, K(1), K(2)});
    {
        // The simplifier alone drops the restriction, by its own rule.
        trace_capture trace;
        law_ref bare = law_ref::adopt(law_simplify(d.get(), 1, 1));
        EXPECT_EQ(text(bare), "1");
        EXPECT_NE(trace.text().find("\ndomain(A)=A "), std::string::npos) << trace.text();
    }
    // law::simplify puts it back around the simplified law.
    law_ref s = law_ref::adopt(d->simplify(1));
    EXPECT_EQ(domain_of(s, 0), QEM::interval(1, 2));
    EXPECT_LAW_ERROR(s->eval(0.0), LAW_BAD_DOMAN);
    EXPECT_EQ(text(s), "DOMAIN(1,1,2)");
    // Also when the restriction sits inside a larger law.
    auto inside = op<plus_law>(multi<domain_law>({op<times_law>(K(2), x), K(0), K(1)}), K(3));
    law_ref si = law_ref::adopt(inside->simplify(1));
    EXPECT_EQ(domain_of(si, 0), QEM::interval(0, 1));
    EXPECT_EQ(si->eval(0.5), 4.0);
    // PDOMAIN is kept by the simplifier itself, and by derivatives.
    auto p = multi<permanent_domain_law>({ratio, K(1), K(2)});
    EXPECT_EQ(text(law_ref::adopt(law_simplify(p.get()))), "PDOMAIN(1,1,2)");
    auto pq = multi<permanent_domain_law>({op<times_law>(x, x), K(0), K(1)});
    law_ref dp = law_ref::adopt(pq->derivative(0));
    EXPECT_TRUE(dp->isa(permanent_domain_law_id));
    EXPECT_EQ(dp->eval(0.5), 1.0);
    EXPECT_LAW_ERROR(dp->eval(2.0), LAW_BAD_DOMAN);
    // DOMAIN's derivative is simplified like any other: the restriction goes.
    auto dq = multi<domain_law>({op<times_law>(x, x), K(0), K(1)});
    law_ref dd = law_ref::adopt(dq->derivative(0));
    EXPECT_EQ(dd->eval(2.0), 4.0);
}

TEST_F(FunctionLaw, SetDomainAgreesWithTermDomain) {
    auto x = X(), y = Y();
    QEM::interval narrow[2] = {QEM::interval(0, 1.5), QEM::interval(-1, 1)};
    for (bool permanent : {false, true}) {
        law_ref d = permanent ? multi<permanent_domain_law>({x, K(1), K(2)})
                              : multi<domain_law>({x, K(1), K(2)});
        law_ref r = law_ref::adopt(d->set_domain(narrow, 1));
        EXPECT_EQ(domain_of(r, 0), QEM::interval(1, 1.5));
        EXPECT_LAW_ERROR(r->eval(1.75), LAW_BAD_DOMAN);
        // Disjoint intervals leave nothing.
        QEM::interval far(5, 6);
        law_ref none = law_ref::adopt(d->set_domain(&far, 1));
        EXPECT_TRUE(domain_of(none, 0).empty());
    }
    // Any other law is wrapped in DOMAIN; whole lines restrict nothing.
    auto f = op<plus_law>(x, y);
    law_ref r = law_ref::adopt(f->set_domain(narrow, 2));
    EXPECT_EQ(domain_of(r, 0), QEM::interval(0, 1.5));
    EXPECT_EQ(domain_of(r, 1), QEM::interval(-1, 1));
    QEM::interval lines[2] = {QEM::interval(0, 1), QEM::interval(QEM::interval_infinite)};
    law_ref one = law_ref::adopt(f->set_domain(lines, 2));
    EXPECT_EQ(text(one), "DOMAIN(X+Y,0,1)");
    QEM::interval all(QEM::interval_infinite);
    law_ref same = law_ref::adopt(f->set_domain(&all, 1));
    EXPECT_EQ(same.get(), f.get());
    // A half line keeps its open side.
    QEM::interval half = QEM::interval::above(2);
    law_ref h = law_ref::adopt(f->set_domain(&half, 1));
    EXPECT_EQ(domain_of(h, 0), half);
    EXPECT_EQ(values(h, {1e300, 0}), (std::vector<double>{1e300}));
}

TEST_F(FunctionLaw, DerivativeLawEvaluatesDerivatives) {
    auto x = X(), y = Y();
    auto cube = op<exponent_law>(x, K(3));
    EXPECT_EQ(multi<derivative_law>({cube})->eval(2.0), 12.0);
    auto x2y = op<times_law>(op<times_law>(x, x), y);
    EXPECT_EQ(values(multi<derivative_law>({x2y, y}), {3, 5}), (std::vector<double>{9}));
    EXPECT_EQ(values(multi<derivative_law>({x2y, x}), {3, 5}), (std::vector<double>{30}));
    auto x4 = op<exponent_law>(x, K(4));
    EXPECT_EQ(multi<derivative_law>({x4, x, K(2)})->eval(1.0), 12.0);
    EXPECT_EQ(multi<derivative_law>({x4, x, K(0)})->eval(2.0), 16.0);
    EXPECT_LAW_ERROR(multi<derivative_law>({x4, x, K(65)})->eval(2.0), LAW_DERIV);
    // A vector law's derivative keeps its dimension.
    auto v = multi<derivative_law>({vec({x, op<times_law>(x, x), K(1)})});
    EXPECT_EQ(values(v, {2}), (std::vector<double>{1, 4, 0}));
    // The derivative of D is the next derivative.
    law_ref dd = law_ref::adopt(multi<derivative_law>({cube})->derivative(0));
    EXPECT_EQ(dd->eval(2.0), 12.0);
    // A law without a derivative raises when evaluated.
    law_ref step = made("D", {op<less_than_law>(x, K(1)).get()});
    EXPECT_LAW_ERROR(step->eval(0.0), LAW_DERIV);
}

TEST_F(FunctionLaw, ModuloHasTheSignOfTheDivisor) {
    auto x = X();
    auto mod = [&](double a, double b) { return multi<mod_law>({K(a), K(b)})->eval(0); };
    EXPECT_EQ(mod(7, 3), 1.0);
    EXPECT_EQ(mod(-1, 3), 2.0);
    EXPECT_EQ(mod(1, -3), -2.0);
    EXPECT_EQ(mod(7.5, 2), 1.5);
    EXPECT_LAW_ERROR(multi<mod_law>({x, K(0)})->eval(1.0), LAW_ZERODIVIDE);
    // d/dx MOD(x^2, 3) = 2x between the jumps.
    auto m = multi<mod_law>({op<times_law>(x, x), K(3)});
    expect_derivative_matches(m, {2.0}, 0, 1e-8);
    auto y = Y();
    auto m2 = multi<mod_law>({op<times_law>(x, y), op<plus_law>(y, K(1))});
    expect_derivative_matches(m2, {2.0, 1.3}, 1, 1e-8);
    EXPECT_EQ(text(multi<mod_law>({x, K(3)}), SYMBOL_SECOND), "mod[3]X");
}

TEST_F(FunctionLaw, LogarithmToABase) {
    auto x = X();
    EXPECT_EQ(multi<log_law>({K(1000)})->eval(0), 3.0);
    EXPECT_NEAR(multi<log_law>({x, K(3)})->eval(81.0), 4.0, 1e-15);
    EXPECT_NEAR(multi<log_law>({x, K(0.5)})->eval(8.0), -3.0, 1e-15);
    EXPECT_LAW_ERROR(multi<log_law>({x})->eval(-1.0), LAW_LOG);
    EXPECT_LAW_ERROR(multi<log_law>({K(2), x})->eval(1.0), LAW_BASE_P);
    // (log2 x)' = 1 / (x ln 2)
    law_ref d = law_ref::adopt(multi<log_law>({x, K(2)})->derivative(0));
    EXPECT_NEAR(d->eval(4.0), 1.0 / (4.0 * std::log(2.0)), 1e-15);
    expect_derivative_matches(multi<log_law>({op<times_law>(x, x)}), {1.7}, 0, 1e-8);
    EXPECT_EQ(text(multi<log_law>({x, K(2)}), SYMBOL_SECOND), "log[2]X");
}

TEST_F(FunctionLaw, ArctangentOfOneAndTwoArguments) {
    auto x = X(), y = Y();
    EXPECT_NEAR(multi<arctan_law>({K(1), K(-1)})->eval(0), 3 * pi / 4, 1e-15);
    EXPECT_NEAR(multi<arctan_law>({K(-1), K(-1)})->eval(0), -3 * pi / 4, 1e-15);
    EXPECT_NEAR(multi<arctan_law>({K(-1), K(0)})->eval(0), -pi / 2, 1e-16);
    auto one = multi<arctan_law>({op<times_law>(x, x)});
    expect_derivative_matches(one, {0.8}, 0, 1e-8);
    auto two = multi<arctan_law>({y, x});
    expect_derivative_matches(two, {-1.2, 0.7}, 0, 1e-8);
    expect_derivative_matches(two, {-1.2, 0.7}, 1, 1e-8);
    EXPECT_EQ(text(two, SYMBOL_SECOND), "arctan(Y,X)");
}

// A datum that is not a law.
struct plain_data : law_data {
    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "PLAIN"; }
    law_data* deep_copy(pointer_map*) const override { return new plain_data; }
};

// The smallest law over one datum.
struct datum_law : unary_data_law {
    explicit datum_law(law_data* d) : unary_data_law(d) {}
    const char* class_name() const override { return "datum_law"; }
    const char* symbol(law_symbol_type) const override { return "DATUM"; }
    law* make_one(law_data* d) const override { return new datum_law(d); }
    void evaluate(const double* x, double* answer) const override { answer[0] = x[0]; }
};

// law_law_data over each law, one use each in the returned handles.
struct data_array {
    explicit data_array(std::initializer_list<part> laws) {
        for (const part& p : laws) items.push_back(new law_law_data(p.p));
    }
    ~data_array() noexcept(false) {
        for (law_data* d : items) d->remove();
    }
    std::vector<law_data*> items;
};

TEST_F(FunctionLaw, MapComposesLawsHandedAsData) {
    auto x = X(), y = Y();
    data_array fg({op<times_law>(x, x), op<plus_law>(x, K(1))});
    law_ref m = law_ref::adopt(
        static_cast<const multiple_data_law*>(registered("MAP", multiple_data_law_id))
            ->make_one(fg.items.data(), 2));
    EXPECT_EQ(m->eval(2.0), 9.0);  // (2 + 1)^2
    EXPECT_EQ(fg.items[0]->ref_count(), 2);
    expect_derivative_matches(m, {0.7}, 0, 1e-8);
    // Several inner laws are the outer law's variables: x*y at (x^2, x+1).
    data_array many({op<times_law>(x, y), op<times_law>(x, x), op<plus_law>(x, K(1))});
    auto m3 = make_law<map_law>(many.items.data(), 3);
    EXPECT_EQ(m3->eval(3.0), 36.0);
    expect_derivative_matches(m3, {1.3}, 0, 1e-8);
    // A vector outer law: MAP returns what it returns.
    data_array vf({vec({x, op<times_law>(x, x)}), op<minus_law>(x, K(1))});
    auto mv = make_law<map_law>(vf.items.data(), 2);
    EXPECT_EQ(values(mv, {3}), (std::vector<double>{2, 4}));
    // Domains are the inner laws'.
    data_array restricted({x, multi<domain_law>({x, K(0), K(1)})});
    EXPECT_EQ(domain_of(make_law<map_law>(restricted.items.data(), 2), 0), QEM::interval(0, 1));
    // Checks: one datum; a datum that is not a law.  Built all the same; evaluating a MAP
    // without its laws raises.
    TEST_clear_error();
    law_ref alone = law_ref::adopt(
        m->isa(map_law_id) ? static_cast<map_law*>(m.get())->make_one(fg.items.data(), 1)
                           : nullptr);
    EXPECT_TRUE(reported_toxic());
    EXPECT_LAW_ERROR(alone->eval(1.0), LAW_EVAL);
    auto* plain = new plain_data;
    law_data* mixed[2] = {fg.items[0], plain};
    law_ref odd = law_ref::adopt(static_cast<map_law*>(m.get())->make_one(mixed, 2));
    EXPECT_TRUE(reported_toxic());
    EXPECT_EQ(text(odd), "MAP(X*X,PLAIN)");
    plain->remove();
    // Every law gives its uses of the data back.
    for (law_ref* l : {&m, &alone, &odd}) *l = law_ref();
    EXPECT_EQ(fg.items[0]->ref_count(), 1);
}

// A law over an array of data, printed by the base class.
struct data_pair : multiple_data_law {
    data_pair(law_data** d, int n) : multiple_data_law(d, n) {}
    const char* class_name() const override { return "data_pair"; }
    const char* symbol(law_symbol_type) const override { return "PAIR"; }
    law* make_one(law_data** d, int n) const override { return new data_pair(d, n); }
};

TEST_F(FunctionLaw, DataLawsPrintAndCollectTheirData) {
    auto x = X();
    auto* held = new law_law_data(op<plus_law>(x, K(1)).get());
    law_ref u = make_law<datum_law>(held);
    EXPECT_EQ(held->ref_count(), 2);
    // Printed without a count: the keyword alone, and no use taken.
    EXPECT_EQ(text(u), "DATUM(LAW)");
    EXPECT_EQ(held->ref_count(), 2);
    // A law datum's domain is its law's; restricting the law restricts the datum.
    QEM::interval unit(0, 1);
    law_ref r = law_ref::adopt(u->set_domain(&unit, 1));
    EXPECT_EQ(domain_of(r, 0), unit);
    EXPECT_NE(static_cast<unary_data_law*>(r.get())->fsub(), held);
    EXPECT_TRUE(domain_of(u, 0).infinite());
    // Equal data, equal laws; a deep copy is equal and shares nothing.
    auto* again = new law_law_data(op<plus_law>(x, K(1)).get());
    law_ref v = make_law<datum_law>(again);
    again->remove();
    EXPECT_TRUE(*u.get() == *v.get());
    law_ref copy = law_ref::adopt(u->deep_copy());
    EXPECT_TRUE(*copy.get() == *u.get());
    // The laws held by law data are searched.
    VOID_LIST found;
    u->hasa(identity_law_id, found);
    EXPECT_EQ(found.count(), 1);
    EXPECT_EQ(found[0], x.get());
    // An array of data prints in order and is collected in order.
    auto* plain = new plain_data;
    law_data* pair[2] = {held, plain};
    law_ref p = make_law<data_pair>(pair, 2);
    plain->remove();
    held->remove();
    EXPECT_EQ(text(p), "PAIR(LAW,PLAIN)");
    // Printed with a count: numbered as the text reads, each datum collected in that order
    // with a use for the caller.
    law_data** data = nullptr;
    int n = 0;
    char* s = p->string_and_data(&data, &n);
    EXPECT_STREQ(s, "PAIR(LAW1,PLAIN2)");
    ASSERT_EQ(n, 2);
    EXPECT_EQ(data[0], held);
    EXPECT_EQ(data[1], plain);
    EXPECT_EQ(held->ref_count(), 3);  // u, p and the caller
    for (int i = 0; i < n; ++i) data[i]->remove();
    vorn_discard(data);
    vorn_discard(s);
    law_ref p2 = law_ref::adopt(p->deep_copy());
    EXPECT_EQ(text(p2), "PAIR(LAW,PLAIN)");
}

}  // namespace
