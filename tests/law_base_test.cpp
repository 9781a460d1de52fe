#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class LawBase : public leak_checked {};

// A law that exposes the use-count back door and can be deleted directly, to drive the
// use-count checks.
struct probe_law : constant_law {
    using law::set_use_count;
    probe_law() : constant_law(7.0) {}
};

// A law that is its own derivative (like e^x would be if the rules returned it).
struct self_derivative_law : law {
    const char* class_name() const override { return "self_derivative_law"; }
    void evaluate(const double* x, double* answer) const override { answer[0] = x[0]; }

  protected:
    law* deriv(int) const override {
        add(this);
        return const_cast<self_derivative_law*>(this);
    }
};

int problem_calls = 0;
bool answer_a = false;
int waive_b_calls = 0;
void count_problem() {
    ++problem_calls;
}
bool waive_a() {
    return answer_a;
}
bool waive_b() {
    ++waive_b_calls;
    return true;
}

TEST_F(LawBase, UseCountLifecycle) {
    const long before = law::live_laws();
    law* c = new constant_law(2.0);
    law::add(c);
    law::remove(c);
    EXPECT_EQ(law::live_laws(), before + 1);
    law::remove(c);
    EXPECT_EQ(law::live_laws(), before);
    law::add(nullptr);
    law::remove(nullptr);
}

TEST_F(LawBase, UseCountBelowZeroAndBadDestructionRaise) {
    auto* p = new probe_law;
    p->set_use_count(0);
    EXPECT_LAW_ERROR(law::remove(p), BAD_LAW_USE_COUNT);
    EXPECT_EQ(p->ref_count(), -1);
    // Destroyed other than through remove, with owners left: reported, and still freed.
    p->set_use_count(1);
    EXPECT_LAW_ERROR(delete p, BAD_LAW_USE_COUNT);
}

TEST_F(LawBase, DerivativeCacheGrowsAndSharesOneObject) {
    law* x = new identity_law(0, 'X');
    law* y = new identity_law(1, 'Y');
    law* xy = new times_law(x, y);
    law* d2 = xy->derivative(2);
    EXPECT_EQ(xy->cached_derivative(2), 1);
    EXPECT_EQ(xy->cached_derivative(3), 0);
    const double at[3] = {2.0, 5.0, 1.0};
    EXPECT_EQ(d2->evaluateM_R(at), 0.0);

    law* a = xy->derivative(0);
    const int uses = a->ref_count();
    law* b = xy->derivative(0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(b->ref_count(), uses + 1);
    EXPECT_EQ(a->evaluateM_R(at), 5.0);  // d(xy)/dx = y
    law* dy = xy->derivative(1);
    EXPECT_EQ(dy->evaluateM_R(at), 2.0);

    xy->reset_derivative(0);
    EXPECT_EQ(xy->cached_derivative(0), 0);
    law* c = xy->derivative(0);  // rebuilt after the reset
    EXPECT_EQ(xy->cached_derivative(0), 1);
    EXPECT_EQ(c->evaluateM_R(at), 5.0);
    for (law* l : {d2, a, b, c, dy, xy, x, y}) law::remove(l);
}

TEST_F(LawBase, SelfDerivativeIsCachedWithoutKeepingItselfAlive) {
    law* s = new self_derivative_law;
    law* d = s->derivative(0);
    EXPECT_EQ(d, s);
    EXPECT_EQ(s->ref_count(), 2);
    law::remove(d);
    law* n = s->nth_derivative(3);
    EXPECT_EQ(n, s);
    law::remove(n);
    EXPECT_EQ(s->ref_count(), 1);
    law::remove(s);  // the fixture proves it is gone
}

TEST_F(LawBase, ClassWithoutDerivativeRaisesLawDeriv) {
    law* s = new probe_law;  // constants have a derivative...
    law* d = s->derivative(0);
    EXPECT_EQ(d->eval(1.0), 0.0);
    law::remove(d);
    law::remove(s);
    struct opaque : law {
        const char* class_name() const override { return "opaque"; }
    };
    law* o = new opaque;
    EXPECT_EQ(o->has_derivative(0), 0);
    EXPECT_LAW_ERROR(o->derivative(0), LAW_DERIV);
    EXPECT_LAW_ERROR(o->derivative(-1), LAW_DERIV);
    EXPECT_LAW_ERROR(o->derivative(2147483647), LAW_DERIV);
    EXPECT_LAW_ERROR(o->eval(1.0), LAW_EVAL);
    EXPECT_LAW_ERROR(o->symbol(), LAW_SYMBOL);
    EXPECT_LAW_ERROR(o->deep_copy(), LAW_DEEP_COPY);
    int exact = 0;
    EXPECT_LAW_ERROR(o->estimate_bounds(QEM::interval(0.0, 1.0), exact), LAW_BAD_BOUNDS);
    law::remove(o);
}

TEST_F(LawBase, NthDerivativeAndMixedPartials) {
    auto cube = op<exponent_law>(X(), K(3));
    law_ref same = law_ref::adopt(cube->nth_derivative(0));
    EXPECT_EQ(same.get(), cube.get());
    EXPECT_NEAR(law_ref::adopt(cube->nth_derivative(2))->eval(2.0), 12.0, 1e-12);  // 6x
    EXPECT_NEAR(cube->evaluateDR_R(2.0, 3), 6.0, 1e-12);
    // d2(x^3 y)/dx dy = 3x^2
    law_ref mixed = law_ref::adopt(op<times_law>(cube, Y())->uv_partials(1, 1));
    const double at[2] = {2.0, 9.0};
    EXPECT_NEAR(mixed->evaluateM_R(at), 12.0, 1e-12);
}

TEST_F(LawBase, SimplifyCacheAndLevels) {
    law* x = new identity_law(0, 'X');
    law* s1 = x->simplify(1, 0);
    EXPECT_EQ(x->is_simplified(1), 1);
    EXPECT_EQ(x->is_simplified(2), 0);
    law* s666 = x->simplify(666, 0);
    EXPECT_EQ(s666, s1);  // 666 is level 1
    law* other = new constant_law(4.0);
    x->set_simplify(other, 0);  // lower level: the cached form stays
    law* again = x->simplify(1, 0);
    EXPECT_EQ(again, s1);
    x->reset_simplify(other, 5);
    law* now = x->simplify(3, 0);
    EXPECT_EQ(now, other);
    for (law* l : {s1, s666, again, now, other, x}) law::remove(l);
}

TEST_F(LawBase, IsaFollowsTheClassHierarchy) {
    auto x = X(), p = op<plus_law>(x, x);
    EXPECT_TRUE(p->isa(plus_law_id) && p->isa(binary_law_id) && p->isa(law_id));
    EXPECT_FALSE(p->isa(times_law_id));
    EXPECT_FALSE(x->isa(binary_law_id));
}

TEST_F(LawBase, NewLawIdStartsAt126OnTheMainThreadOnly) {
    EXPECT_EQ(new_law_id(), 126);
    EXPECT_EQ(new_law_id(), 127);
    bool raised = false;
    std::thread worker([&] {
        try {
            new_law_id();
        } catch (const vorn_exception&) {
            raised = true;
        }
    });
    worker.join();
    EXPECT_TRUE(raised);
}

TEST_F(LawBase, TypedEvaluatorsCheckDimensions) {
    auto x = X(), xx = op<times_law>(x, x);
    auto curve = vec({x, xx, K(3)}), surface = vec({x, Y(), K(3)});
    EXPECT_EQ(curve->evaluateR_V(2.0), QEM::vector(2, 4, 3));
    EXPECT_EQ(curve->evaluateDR_V(2.0), QEM::vector(1, 4, 0));
    const double at[2] = {1.0, 2.0};
    EXPECT_EQ(surface->evaluateM_V(at), QEM::vector(1, 2, 3));
    EXPECT_EQ(surface->evaluatePP_P(QEM::par_pos(5, 6)).y(), 6.0);

    EXPECT_LAW_ERROR(xx->evaluateR_V(1.0), LAW_EVALV);
    EXPECT_LAW_ERROR(surface->evaluateR_V(1.0), LAW_EVALV_ONE);
    EXPECT_LAW_ERROR(xx->evaluateM_P(at), LAW_EVALV);  // the vector code, also for positions
    EXPECT_LAW_ERROR(xx->evaluateM_V(at), LAW_EVALVM);
    EXPECT_LAW_ERROR(xx->evaluateDR_V(1.0), LAW_EVALDV);
    EXPECT_LAW_ERROR(surface->evaluateDR_V(1.0), LAW_EVALDV_ONE);
    EXPECT_LAW_ERROR(curve->evaluateM_MAT(at), LAW_EVALMMAT);
    EXPECT_LAW_ERROR(curve->evaluateM_T(at), LAW_EVALMT);
    EXPECT_LAW_ERROR(curve->evaluateM_R(at), LAW_EVALS);

    double* out = nullptr;
    int n = 0;
    curve->evaluateVAR(at, out, n);
    ASSERT_EQ(n, 3);
    EXPECT_EQ(out[1], 1.0);
    vorn_discard(out);

    // Nine values read as a matrix; twelve as a transform whose last three translate.
    auto m = vec({K(1), K(0), K(0), K(0), K(2), K(0), K(0), K(0), K(1)});
    auto t = vec({K(1), K(0), K(0), K(0), K(1), K(0), K(0), K(0), K(1), X(), K(0), K(0)});
    EXPECT_EQ(m->evaluateM_MAT(at).element(1, 1), 2.0);
    EXPECT_EQ(t->evaluateM_T(at).translation().x(), 1.0);
}

TEST_F(LawBase, SafeConvertToIntTruncatesAndReportsOutOfRange) {
    register_law_restore_problem_callback(count_problem, nullptr, nullptr);
    problem_calls = 0;
    EXPECT_EQ(law::safe_convert_to_int(3.9), 3);
    EXPECT_EQ(law::safe_convert_to_int(-3.9), -3);
    EXPECT_EQ(problem_calls, 0);
    law::safe_convert_to_int(1e10);
    law::safe_convert_to_int(-1e10);
    EXPECT_EQ(problem_calls, 2);
    register_law_restore_problem_callback(nullptr, nullptr, nullptr);
}

TEST_F(LawBase, ErrorCodesAreFixedNumbersOfTheModule) {
    const QEM::message_module& m = get_lawutil_main_law_errmod();
    EXPECT_EQ(m.count(), 94);
    EXPECT_EQ(m.message_code(28), static_cast<err_mess_type>(LAW_ZERODIVIDE));
    EXPECT_STREQ(find_err_ident(LAW_ZERODIVIDE), "LAW_ZERODIVIDE");
    EXPECT_STREQ(find_err_mess(LAW_ZERODIVIDE), "Divide by zero");
}

TEST_F(LawBase, ToxicLawPostsAndRestoreWaiverAsksInOrder) {
    register_law_restore_problem_callback(count_problem, waive_a, waive_b);
    problem_calls = 0;
    toxic_law_error();
    EXPECT_STREQ(TEST_get_error(), "Toxic law detected");
    EXPECT_EQ(problem_calls, 1);
    restore_law_problem_found();
    EXPECT_EQ(problem_calls, 2);

    waive_b_calls = 0;
    answer_a = false;
    EXPECT_FALSE(law_restore_waived());
    EXPECT_EQ(waive_b_calls, 0);  // not asked when the first says no
    answer_a = true;
    EXPECT_TRUE(law_restore_waived());
    EXPECT_EQ(waive_b_calls, 1);

    register_law_restore_problem_callback(nullptr, nullptr, nullptr);
}

TEST_F(LawBase, InitializeAndTerminateNest) {
    // The test main started the library once.
    EXPECT_EQ(initialize_law(), 1);
    EXPECT_TRUE(QEM::qem_component_info::hasComponent("lawutil"));
    EXPECT_EQ(terminate_law(), 1);
    EXPECT_TRUE(QEM::qem_component_info::hasComponent("lawutil"));
}

TEST_F(LawBase, ThreadContextsAreSeparate) {
    lawutil_thread_ctx* mine = lawutil_context();
    EXPECT_EQ(mine, lawutil_context());
    EXPECT_EQ(mine->root_x_tol, 1e-14);
    lawutil_thread_ctx* theirs = nullptr;
    std::thread worker([&] { theirs = lawutil_context(); });
    worker.join();
    EXPECT_NE(mine, theirs);
}

TEST_F(LawBase, EqualityIsStructural) {
    auto a = op<plus_law>(X(), K(1));
    // X and T are the same coordinate.
    EXPECT_TRUE(*a.get() == *op<plus_law>(make_law<identity_law>(0, 'T'), K(1)).get());
    EXPECT_TRUE(*a.get() != *op<plus_law>(Y(), K(1)).get());
    EXPECT_TRUE(*a.get() != *op<minus_law>(X(), K(1)).get());
    law_ref copy = law_ref::adopt(a->deep_copy());
    EXPECT_TRUE(*copy.get() == *a.get());
    EXPECT_NE(static_cast<binary_law*>(copy.get())->fleft(),
              static_cast<binary_law*>(a.get())->fleft());
}

}  // namespace
