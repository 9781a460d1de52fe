#include <atomic>
#include <thread>
#include <vector>

#include <lawutil/internal/law_ref.h>

#include "law_builders.h"
#include "leak_check.h"

namespace {

using namespace law_test;

class Concurrency : public leak_checked {};

constexpr int thread_count = 8;

// Releases all threads at once so that they really ask at the same moment.
class start_line {
  public:
    void arrive_and_wait() {
        ready_.fetch_add(1);
        while (ready_.load() < thread_count) std::this_thread::yield();
    }

  private:
    std::atomic<int> ready_{0};
};

// (x^3 + 2x) / (x^2 + 1)
law_ref shared_law() {
    auto x = X();
    return op<division_law>(op<plus_law>(op<exponent_law>(x, K(3)), op<times_law>(K(2), x)),
                            op<plus_law>(op<times_law>(x, x), K(1)));
}

TEST_F(Concurrency, DerivativesAreBuiltOnceAndShared) {
    law_ref f = shared_law();
    start_line start;
    std::vector<law*> first(thread_count), second(thread_count);
    std::vector<double> value(thread_count);
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            first[t] = f->derivative(0);
            second[t] = first[t]->derivative(0);
            value[t] = second[t]->eval(0.5);
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 1; t < thread_count; ++t) {
        EXPECT_EQ(first[t], first[0]);
        EXPECT_EQ(second[t], second[0]);
        EXPECT_EQ(value[t], value[0]);
    }
    // The cache's use plus one for each caller.
    EXPECT_EQ(first[0]->ref_count(), thread_count + 1);
    for (int t = 0; t < thread_count; ++t) {
        law::remove(second[t]);
        law::remove(first[t]);
    }
}

TEST_F(Concurrency, SharedUseCountsAndEvaluationNeedNoLock) {
    law_ref f = shared_law();
    start_line start;
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    const double expected = f->eval(0.25);
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int i = 0; i < 2000; ++i) {
                law::add(f.get());
                if (f->eval(0.25) != expected) mismatches.fetch_add(1);
                law::remove(f.get());
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(f->ref_count(), 1);
}

// Root hunts and integrals of one shared law, each compiling its own program from the
// shared tree and its cached derivatives: every thread gets the answer of one alone.
TEST_F(Concurrency, CompiledNumericsOfASharedLaw) {
    const law_ref f = law_ref::adopt(str_to_law("SIN(10*X)*EXP(-X/4)"));
    auto answer = [&] {
        int n = 0;
        double* r = Nroot(f.get(), 0, 10, &n);
        std::vector<double> out(r, r + n);
        vorn_discard(r);
        out.push_back(0);
        Nintegrate(f.get(), 0, 10, &out.back(), 1e-12, 12, 14);  // rows of 1024 and more
        return out;
    };
    const std::vector<double> alone = answer();
    ASSERT_GT(alone.size(), 30u);
    start_line start;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            if (answer() != alone) mismatches.fetch_add(1);
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST_F(Concurrency, LHospitalDepthIsPerThread) {
    auto x = X();
    auto q = op<division_law>(x, x);
    start_line start;
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int i = 0; i < 500; ++i)
                if (q->eval(0.0) != 1.0) wrong.fetch_add(1);
            if (lawutil_context()->lhospital_depth != 0) wrong.fetch_add(1);
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Threads make, read and drop curves of their own: a dropped curve's address is soon
// reused, and what a thread remembered of the old curve must never answer for the new.
TEST_F(Concurrency, PathMemoryForgetsDroppedCurves) {
    start_line start;
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int i = 0; i < 200; ++i) {
                law_data* own = new law_curve_law_data(vec({K(i), K(t), X()}).get(), 0, 1);
                law_ref cur = make_law<curve_law>(own);
                if (cur->evaluateR_V(0.5).x() != i) wrong.fetch_add(1);
                own->remove();
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
