// Tests of the qem base library. Expected values are worked out by hand or
// follow from identities (inverse round trips, polynomials built from their
// roots), never by re-running the code under test.

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qem/qem.h"

using namespace QEM;

namespace {

void expect_near(const vector& actual, const vector& expected, double tol = 1e-12) {
    EXPECT_NEAR(actual.x(), expected.x(), tol);
    EXPECT_NEAR(actual.y(), expected.y(), tol);
    EXPECT_NEAR(actual.z(), expected.z(), tol);
}

void expect_near(const position& actual, const position& expected, double tol = 1e-12) {
    expect_near(actual - position(), expected - position(), tol);
}

// Runs `body` on a new thread and waits for it.
template <class F>
void on_worker(F body) {
    std::thread worker(body);
    worker.join();
}

}  // namespace

// ----------------------------------------------------------------- geometry

TEST(Geometry, VectorAlgebraAndUnitVectors) {
    vector a(1, 2, 3), b(4, 5, 6);
    EXPECT_EQ(a * b, vector(-3, 6, -3));  // (2*6-3*5, 3*4-1*6, 1*5-2*4)
    EXPECT_EQ(a % b, 32.0);               // 4 + 10 + 18
    EXPECT_EQ(vector(3, 4, 12).len(), 13.0);
    // Components this small have a squared length that underflows to zero.
    EXPECT_NEAR(vector(3e-200, 4e-200, 0).len(), 5e-200, 1e-213);
    // Unit vectors; the zero vector has no direction and stays zero, without error.
    expect_near(normalise(vector(3, 4, 0)), vector(0.6, 0.8, 0));
    expect_near(unit_vector(0, 0, 5), vector(0, 0, 1), 0);
    EXPECT_NEAR(normalise(vector(1e-300, 1e-300, 1e-300)).len(), 1.0, 1e-15);
    EXPECT_EQ(normalise(vector()), vector());
    EXPECT_EQ(unit_vector(0, 0, 0), vector());
}

TEST(Geometry, MatrixAlgebra) {
    matrix m(2, 0, 1, 1, 3, 2, 1, 1, 2);
    // 2*(3*2-2*1) - 0 + 1*(1*1-3*1) = 8 - 2
    EXPECT_EQ(m.determinant(), 6.0);
    EXPECT_EQ(m * vector(1, 1, 1), vector(3, 6, 4));  // row sums
    EXPECT_EQ(vector(1, 1, 1) * m, vector(4, 4, 5));  // column sums
    EXPECT_EQ(matrix(vector(1, 2, 0), vector(0, 1, 0), vector(0, 0, 1)) *
                  matrix(1, 0, 0, 3, 1, 0, 0, 0, 1),
              matrix(7, 2, 0, 3, 1, 0, 0, 0, 1));

    matrix product = m * m.inverse();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(product.element(i, j), i == j, 1e-15);

    // Third row = first + second: singular, at any scale.
    matrix singular(2, 0, 1, 1, 3, 2, 3, 3, 3);
    EXPECT_THROW(singular.inverse(), vorn_exception);
    EXPECT_THROW((1e-200 * singular).inverse(), vorn_exception);
    EXPECT_NO_THROW((1e-200 * m).inverse());
}

TEST(Geometry, Transforms) {
    const double half_pi = std::acos(0.0);
    transf turn = rotate_transf(half_pi, vector(0, 0, 2));
    transf shift = translate_transf(vector(1, 0, 0));
    // Right-handed quarter turn about +z: x -> y, y -> -x.
    expect_near(vector(1, 0, 0) * turn, vector(0, 1, 0));
    // Vectors ignore the translation, positions do not.
    EXPECT_EQ(vector(0, 0, 1) * shift, vector(0, 0, 1));
    EXPECT_EQ(position(0, 0, 1) * shift, position(1, 0, 1));
    // Composition applies the left operand first.
    expect_near(position() * (shift * turn), position(0, 1, 0));
    expect_near(position() * (turn * shift), position(1, 0, 0));

    transf t = rotate_transf(0.7, vector(1, -2, 0.5)) * scale_transf(3.5) *
               translate_transf(vector(-4, 5, 9));
    transf back = t.inverse();
    position p(0.3, -7, 2);
    expect_near(p * t * back, p, 1e-13);
    expect_near(p * back * t, p, 1e-13);
    EXPECT_THROW(scale_transf(0).inverse(), vorn_exception);
}

TEST(Geometry, IntervalBoundsContainmentAndSetOperations) {
    EXPECT_EQ(interval().type(), interval_empty);
    EXPECT_TRUE(interval(interval_finite).empty());  // no bounds given
    EXPECT_EQ(interval(3, 1), interval(1, 3));
    interval up = interval::above(2);  // [2, inf)
    EXPECT_EQ(up.type(), interval_finite_below);
    EXPECT_EQ(up.length(), HUGE_VAL);
    EXPECT_EQ(interval(-HUGE_VAL, 4), interval::below(4));
    EXPECT_TRUE(interval(interval_infinite) >> -1e300);

    interval unit(0, 1);
    EXPECT_TRUE(unit >> (1.0 + 0.5e-6));  // within resabs
    EXPECT_FALSE(unit >> (1.0 + 2e-6));
    EXPECT_FALSE(unit >> -2e-6);
    EXPECT_FALSE(unit.contains(1.0 + 0.5e-6, 0.0));
    EXPECT_FALSE(interval() >> 0.0);
    EXPECT_FALSE(unit >> std::nan(""));
    set_resabs(1e-3);
    EXPECT_TRUE(unit >> 1.0005);
    reset_tolerances();
    EXPECT_EQ(get_resabs(), 1e-6);

    EXPECT_EQ(interval(0, 1) | interval(3, 4), interval(0, 4));
    EXPECT_EQ(interval() | interval(3, 4), interval(3, 4));
    EXPECT_EQ(interval(0, 3) & interval(2, 5), interval(2, 3));
    EXPECT_EQ(interval(0, 1) & interval(1, 2), interval(1, 1));
    EXPECT_TRUE((interval(0, 1) & interval(2, 3)).empty());
    EXPECT_TRUE((interval() & interval(interval_infinite)).empty());
}

TEST(Geometry, IntervalArithmetic) {
    EXPECT_EQ(interval(1, 2) - interval(3, 5), interval(-4, -1));
    EXPECT_EQ(interval::above(1) + interval(0, 1), interval::above(1));
    EXPECT_EQ(interval::below(1) - interval::above(0), interval::below(1));
    EXPECT_TRUE((interval::above(1) - interval::above(0)).infinite());
    EXPECT_EQ(-1.0 * interval::above(2), interval::below(-2));
    EXPECT_EQ(0.0 * interval(interval_infinite), interval(0, 0));
    EXPECT_TRUE((interval() + interval(0, 1)).empty());
}

TEST(Geometry, NVectorStorage) {
    const long start = vorn_live_blocks();
    const double values[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    {
        nvector small(4, values);  // fits in place
        EXPECT_EQ(vorn_live_blocks(), start);
        nvector big(10, values);
        EXPECT_EQ(vorn_live_blocks(), start + 1);

        nvector copy = big;  // deep copy
        EXPECT_EQ(vorn_live_blocks(), start + 2);
        copy[0] = -1;
        EXPECT_EQ(big[0], 1.0);

        nvector moved = std::move(copy);  // takes the block over
        EXPECT_EQ(vorn_live_blocks(), start + 2);
        EXPECT_EQ(copy.size(), 0);
        EXPECT_EQ(moved[0], -1.0);

        nvector small_moved = std::move(small);
        EXPECT_EQ(small_moved, nvector(4, values));
        moved = small_moved;  // heap block released
        EXPECT_EQ(vorn_live_blocks(), start + 1);
        EXPECT_EQ(moved, nvector(4, values));

        EXPECT_THROW(big.at(10), vorn_exception);
        EXPECT_THROW(nvector(-1), vorn_exception);
    }
    EXPECT_EQ(vorn_live_blocks(), start);
}

TEST(Geometry, ComplexNumbers) {
    complex_number a(1, 2), b(3, -4);
    EXPECT_EQ(a * b, complex_number(11, 2));  // 3 - 4i + 6i + 8
    EXPECT_EQ(b.abs(), 5.0);
    complex_number q = complex_number(11, 2) / b;
    EXPECT_NEAR(q.real(), 1.0, 1e-15);
    EXPECT_NEAR(q.imag(), 2.0, 1e-15);
    // (1+i)/(1-i) = i; forming |b|^2 = 2e600 on the way would overflow.
    complex_number huge = complex_number(1e300, 1e300) / complex_number(1e300, -1e300);
    EXPECT_NEAR(huge.real(), 0.0, 1e-15);
    EXPECT_NEAR(huge.imag(), 1.0, 1e-15);
}

// --------------------------------------------------------------- polyroots

namespace {

// Ascending coefficients of prod (x - r) over `roots`, times `lead`.
std::vector<double> from_roots(const std::vector<double>& roots, double lead = 1.0) {
    std::vector<double> c{lead};
    for (double r : roots) {
        std::vector<double> next(c.size() + 1, 0.0);
        for (size_t i = 0; i < c.size(); ++i) {
            next[i + 1] += c[i];
            next[i] -= r * c[i];
        }
        c = next;
    }
    return c;
}

std::vector<double> quartic(double a, double b, double c, double d, double e) {
    double r[4];
    int n = quartic_roots(a, b, c, d, e, r);
    return std::vector<double>(r, r + n);
}

std::vector<double> quartic_from(const std::vector<double>& c) {
    return quartic(c[4], c[3], c[2], c[1], c[0]);
}

void expect_roots(const std::vector<double>& actual, const std::vector<double>& expected,
                  double rel_tol) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        EXPECT_NEAR(actual[i], expected[i], rel_tol * std::max(1.0, std::fabs(expected[i])))
            << "root " << i;
}

}  // namespace

TEST(PolyRoots, QuarticSimpleRoots) {
    // (x+3)(x+1)(x-2)(x-5) = x^4 - 3x^3 - 15x^2 + 19x + 30
    expect_roots(quartic(1, -3, -15, 19, 30), {-3, -1, 2, 5}, 1e-14);
    // (x^2+1)(x-1)(x-3) = x^4 - 4x^3 + 4x^2 - 4x + 3
    expect_roots(quartic(1, -4, 4, -4, 3), {1, 3}, 1e-14);
    expect_roots(quartic(1, 0, 0, 0, 1), {}, 0);  // x^4 + 1
    // Widely spread magnitudes.
    expect_roots(quartic_from(from_roots({-1e3, 1e-3, 1, 1e4})), {-1e3, 1e-3, 1, 1e4}, 1e-12);
}

TEST(PolyRoots, QuarticRepeatedRoots) {
    // (x-1)^2 (x+2)(x-3) = x^4 - 3x^3 - 3x^2 + 11x - 6
    expect_roots(quartic(1, -3, -3, 11, -6), {-2, 1, 3}, 1e-12);
    // (x-1)^2 (x-2)^2 = x^4 - 6x^3 + 13x^2 - 12x + 4
    expect_roots(quartic(1, -6, 13, -12, 4), {1, 2}, 1e-12);
    // (x-2)^4 = x^4 - 8x^3 + 24x^2 - 32x + 16
    expect_roots(quartic(1, -8, 24, -32, 16), {2}, 1e-12);
    // x^2 (x^2 + 1): a double root at zero, and complex ones.
    expect_roots(quartic(1, 0, 1, 0, 0), {0}, 0);
    // Non-representable double roots; the coefficients carry rounding error,
    // which a double root can only resolve to about sqrt(machine epsilon).
    expect_roots(quartic_from(from_roots({0.1, 0.1, -0.7, 2.5})), {-0.7, 0.1, 2.5}, 1e-7);
    expect_roots(quartic_from(from_roots({0.3, 0.3, 1.7, 1.7})), {0.3, 1.7}, 1e-7);
    // Two close double roots: p stays within rounding of zero all the way
    // between them, but the bump in the middle is not a root.
    expect_roots(quartic_from(from_roots({8.715, 8.715, 8.718, 8.718})), {8.715, 8.718}, 1e-6);
}

TEST(PolyRoots, LowerDegrees) {
    // Leading zeros drop the degree.
    expect_roots(quartic(0, 1, -6, 11, -6), {1, 2, 3}, 1e-14);  // (x-1)(x-2)(x-3)
    expect_roots(quartic(0, 0, 1, -3, 2), {1, 2}, 1e-14);
    expect_roots(quartic(0, 0, 0, 2, -4), {2}, 0);
    expect_roots(quartic(0, 0, 0, 0, 0), {}, 0);
    expect_roots(quartic(1, 2, 3, std::nan(""), 4), {}, 0);

    double r[3];
    ASSERT_EQ(cubic_roots(1, -3, 3, -1, r), 1);  // (x-1)^3
    EXPECT_NEAR(r[0], 1.0, 1e-12);
    ASSERT_EQ(cubic_roots(1, -4, 5, -2, r), 2);  // (x-1)^2 (x-2)
    EXPECT_NEAR(r[0], 1.0, 1e-12);
    EXPECT_NEAR(r[1], 2.0, 1e-12);

    EXPECT_EQ(quadratic_roots(1, 0, 1, r), 0);
    // Roots 1e-8 and 1e8: the naive formula loses the small one entirely.
    ASSERT_EQ(quadratic_roots(1, -(1e8 + 1e-8), 1, r), 2);
    EXPECT_NEAR(r[0], 1e-8, 1e-22);
    EXPECT_NEAR(r[1], 1e8, 1e-6);
}

// -------------------------------------------------------------------- heap

namespace {

struct counted : heap_object {
    explicit counted(int v) : value(v) {}
    int value;
};

struct throws_on_build : heap_object {
    throws_on_build() { throw std::runtime_error("no"); }
};

}  // namespace

TEST(Heap, LiveBlocksReturnToStart) {
    const long start = vorn_live_blocks();
    void* p = vorn_allocate(0, __FILE__, __LINE__);
    void* q = vorn_allocate(64, __FILE__, __LINE__);
    EXPECT_NE(p, q);
    EXPECT_EQ(vorn_live_blocks(), start + 2);
    vorn_discard(p);
    vorn_discard(q);
    vorn_discard(nullptr);
    EXPECT_EQ(vorn_live_blocks(), start);

    counted* c = QEM_NEW counted(7);
    counted* d = new counted(8);
    EXPECT_EQ(vorn_live_blocks(), start + 2);
    delete c;
    delete d;
    EXPECT_THROW(QEM_NEW throws_on_build(), std::runtime_error);
    EXPECT_EQ(vorn_live_blocks(), start);

    EXPECT_THROW(QEM_ALLOC_ARRAY(double, static_cast<size_t>(-1) / 4), std::bad_alloc);
    EXPECT_EQ(vorn_live_blocks(), start);
}

// Each thread counts its own blocks and tallies: the counts of a thread that has ended,
// and of blocks made on one thread and discarded on another, stay in the totals.
TEST(Heap, BlocksAndTalliesAcrossThreads) {
    const long start = vorn_live_blocks();
    const long tally_start = vorn_tally_total(3);
    std::vector<void*> blocks;
    std::thread([&] {
        for (size_t n = 0; n < 100; ++n) blocks.push_back(vorn_allocate(n, __FILE__, __LINE__));
        vorn_tally_change(3, 5);
    }).join();
    EXPECT_EQ(vorn_live_blocks(), start + 100);
    EXPECT_EQ(vorn_tally_total(3), tally_start + 5);
    for (void* p : blocks) vorn_discard(p);
    vorn_tally_change(3, -5);
    EXPECT_EQ(vorn_live_blocks(), start);
    EXPECT_EQ(vorn_tally_total(3), tally_start);
}

TEST(Heap, ScopedArraysAndGuards) {
    const long start = vorn_live_blocks();
    {
        scoped_heap_array<int> a(QEM_ALLOC_ARRAY(int, 3));
        scoped_heap_array<int> b(std::move(a));
        EXPECT_EQ(a.get(), nullptr);
        b.reset(QEM_ALLOC_ARRAY(int, 5));  // frees the first array
        EXPECT_EQ(vorn_live_blocks(), start + 1);
        int* raw = b.release();
        EXPECT_EQ(vorn_live_blocks(), start + 1);
        vorn_discard(raw);
    }
    EXPECT_EQ(vorn_live_blocks(), start);

    // An exception leaving the scope runs the guard, which frees the block.
    bool undone = false;
    try {
        double* work = QEM_ALLOC_ARRAY(double, 8);
        error_guard guard([&] {
            vorn_discard(work);
            undone = true;
        });
        sys_error(QEM_ASSERTION);
    } catch (const vorn_exception&) {
    }
    EXPECT_TRUE(undone);
    EXPECT_EQ(vorn_live_blocks(), start);

    // Normal exit and dismissal do not run it; scope_exit always runs.
    int guards = 0, exits = 0;
    {
        error_guard quiet([&] { ++guards; });
        scope_exit always([&] { ++exits; });
    }
    try {
        error_guard dismissed([&] { ++guards; });
        dismissed.dismiss();
        scope_exit always([&] { ++exits; });
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(guards, 0);
    EXPECT_EQ(exits, 2);

    // A guard made while another exception unwinds only fires for a new one.
    struct inner_guard {
        int* fired;
        ~inner_guard() {
            error_guard g([this] { ++*fired; });
        }
    };
    try {
        inner_guard ig{&guards};
        throw 2;
    } catch (int) {
    }
    EXPECT_EQ(guards, 0);
}

TEST(Heap, VoidListKeepsItsIndicesPastTheHashedSize) {
    int items[40];
    VOID_LIST list;
    EXPECT_EQ(list.add(&items[1]), 0);
    EXPECT_EQ(list.add(&items[1]), 0);  // no duplicates
    EXPECT_EQ(list[1], nullptr);
    list.clear();
    // Past the size where the list switches to hashed lookups.
    for (int i = 0; i < 40; ++i) EXPECT_EQ(list.add(&items[i]), i);
    for (int i = 39; i >= 0; --i) EXPECT_EQ(list.lookup(&items[i]), i);
    EXPECT_EQ(list.count(), 40);
    list.clear();
    EXPECT_EQ(list.lookup(&items[0]), -1);
    EXPECT_EQ(list.add(&items[3]), 0);
}

// ------------------------------------------------------------------ errors

namespace {

const message_entry first_table[] = {
    {"FIRST_A", "First module, message A"},
    {"FIRST_B", "First module, message B"},
    {nullptr, nullptr},
};
const message_entry second_table[] = {
    {"SECOND_A", "Second module, message A"},
    {nullptr, nullptr},
};

}  // namespace

TEST(Errors, MessageModulesNumberAndFind) {
    EXPECT_STREQ(find_err_ident(QEM_NOT_MAIN_THREAD), "QEM_NOT_MAIN_THREAD");
    EXPECT_EQ(find_err_mess(0), nullptr);
    err_mess_type stale;
    {
        message_module first("first", first_table);
        message_module second("second", second_table);
        EXPECT_EQ(first.base() % 1000, 0);
        EXPECT_EQ(second.base() % 1000, 0);
        EXPECT_NE(first.base(), second.base());

        EXPECT_STREQ(find_err_ident(first.message_code(1)), "FIRST_B");
        EXPECT_STREQ(find_err_mess(second.message_code(0)), "Second module, message A");
        EXPECT_EQ(find_err_mess(first.message_code(2)), nullptr);  // past the table
        stale = first.message_code(0);
    }
    EXPECT_EQ(find_err_mess(stale), nullptr);
    message_module again("first", first_table);
    EXPECT_NE(again.message_code(0), stale);  // blocks are not reused
}

TEST(Errors, SysErrorCarriesCodeAndText) {
    try {
        sys_error(7);
    } catch (const vorn_exception& e) {
        EXPECT_EQ(e.error_number(), 7);
        EXPECT_STREQ(e.what(), "unknown error 7");
    }
    // The text survives its module going away while the exception lives.
    vorn_exception kept(0);
    {
        message_module module("short-lived", second_table);
        kept = vorn_exception(module.message_code(0));
    }
    EXPECT_STREQ(kept.what(), "Second module, message A");
}

TEST(Errors, WarningsAndPostedTextArePerThread) {
    sys_clear_warnings();
    sys_warning(QEM_BAD_INDEX);
    sys_warning(QEM_ASSERTION);
    TEST_set_error("main detail");
    int worker_warnings = -1;
    std::string worker_text = "unset";
    on_worker([&] {
        sys_warning(QEM_BAD_SIZE);
        worker_warnings = sys_warning_count();
        worker_text = TEST_get_error();
        TEST_set_error("worker detail");
    });
    EXPECT_EQ(worker_warnings, 1);
    EXPECT_EQ(worker_text, "");
    EXPECT_EQ(sys_warning_count(), 2);
    EXPECT_EQ(sys_last_warning(), QEM_ASSERTION);
    EXPECT_STREQ(TEST_get_error(), "main detail");
    sys_clear_warnings();
    TEST_set_error(nullptr);
    EXPECT_EQ(sys_warning_count(), 0);
    EXPECT_STREQ(TEST_get_error(), "");
}

namespace {

int handled_line = 0;
void recording_handler(const char*, const char*, int line) {
    handled_line = line;
}

}  // namespace

TEST(Errors, AssertHookCountsAndPosts) {
    TEST_clear_error();
    const long start = qem_assert_count();
    int two = 2;
    QEM_ASSERT(two == 2);
    EXPECT_EQ(qem_assert_count(), start);
    EXPECT_STREQ(TEST_get_error(), "");
    QEM_ASSERT(two == 3);
    EXPECT_EQ(qem_assert_count(), start + 1);
    EXPECT_NE(std::strstr(TEST_get_error(), "two == 3"), nullptr);

    TEST_clear_error();
    qem_set_assert_handler(&recording_handler);
    const int line = __LINE__ + 1;
    QEM_ASSERT(two < 0);
    qem_set_assert_handler(nullptr);
    EXPECT_EQ(handled_line, line);
    EXPECT_EQ(qem_assert_count(), start + 2);  // counted whatever the handler
    EXPECT_STREQ(TEST_get_error(), "");
}

// -------------------------------------------------------- text and output

TEST(D3Ostream, FormatsIndependentlyOfLocale) {
    auto render = [] {
        D3_ostream out;
        out << "v=" << 0.1 << ' ' << 1.0 / 3.0 << ' ' << -2.5 << ' ' << 1e300 << ' ' << 42 << ' '
            << -7L << ' ' << 3u << ' ' << 2.0 << ' ' << HUGE_VAL << ' ' << std::nan("")
            << std::string_view(" end");
        return out.str();
    };
    const std::string expected = "v=0.1 0.3333333333333333 -2.5 1e+300 42 -7 3 2 inf nan end";
    EXPECT_EQ(render(), expected);

    // A locale whose decimal separator is a comma must not change the text.
    std::string previous = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr) {
        char probe[16];
        std::snprintf(probe, sizeof probe, "%.1f", 0.5);
        EXPECT_STREQ(probe, "0,5");  // the locale really is in effect
        EXPECT_EQ(render(), expected);
        std::setlocale(LC_ALL, previous.c_str());
    }
}

namespace {

void collect(const char* text, void* user) {
    *static_cast<std::string*>(user) += text;
}

}  // namespace

TEST(Printf, SinkRedirection) {
    std::string captured;
    qem_set_printf_sink(&collect, &captured);
    EXPECT_EQ(qem_printf("%d-%s", 12, "ab"), 5);
    std::string longer(3000, 'x');
    EXPECT_EQ(qem_printf("[%s]", longer.c_str()), 3002);
    on_worker([] { qem_printf("%c", '!'); });
    qem_set_printf_sink(nullptr, nullptr);
    EXPECT_EQ(captured, "12-ab[" + longer + "]!");
}

// ------------------------------------------------- options, version, threads

TEST(Options, PushPopResetFind) {
    {
        option_header opt("qem_test_option", 3);
        EXPECT_EQ(find_option("qem_test_option"), &opt);
        opt.pop();  // nothing saved: no change
        EXPECT_EQ(opt.count(), 3);
        opt.set(11);
        opt.push(12);
        EXPECT_EQ(opt.count(), 12);
        opt.reset();
        opt.pop();  // reset discarded the saved 11
        EXPECT_EQ(opt.count(), 3);
    }
    EXPECT_EQ(find_option("qem_test_option"), nullptr);
}

TEST(Threads, IndicesAndMainThread) {
    EXPECT_EQ(tls_get_context()->index(), 0);
    EXPECT_NO_THROW(mt_thread_not_permitted());

    int first = -1, second = -1, nested = -1;
    bool worker_is_main = true;
    err_mess_type raised = 0;
    on_worker([&] {
        first = tls_get_context()->index();
        worker_is_main = is_main_thread();
        try {
            mt_thread_not_permitted();
        } catch (const vorn_exception& e) {
            raised = e.error_number();
        }
        // While this thread holds its index, another thread needs a new one.
        on_worker([&] { nested = tls_get_context()->index(); });
    });
    on_worker([&] { second = tls_get_context()->index(); });
    EXPECT_GT(first, 0);
    EXPECT_FALSE(worker_is_main);
    EXPECT_EQ(raised, QEM_NOT_MAIN_THREAD);
    EXPECT_NE(nested, first);
    EXPECT_EQ(second, first);  // the exited thread's index was reused

    // A host-installed context replaces the thread's own until removed.
    thread_context host;
    set_thread_context(&host);
    EXPECT_EQ(tls_get_context(), &host);
    set_thread_context(nullptr);
    EXPECT_EQ(tls_get_context()->index(), 0);
}

TEST(Threads, ComponentRegistry) {
    const int start = qem_component_info::componentCount();
    qem_component_info::addComponent("qem_test_part");
    qem_component_info::addComponent("qem_test_part");
    qem_component_info::removeComponent("qem_test_part");
    EXPECT_TRUE(qem_component_info::hasComponent("qem_test_part"));  // still counted once
    qem_component_info::removeComponent("qem_test_part");
    EXPECT_FALSE(qem_component_info::hasComponent("qem_test_part"));
    EXPECT_EQ(qem_component_info::componentCount(), start);

    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t)
        workers.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                qem_component_info::addComponent("qem_test_shared");
                qem_component_info::removeComponent("qem_test_shared");
            }
        });
    for (auto& w : workers) w.join();
    EXPECT_FALSE(qem_component_info::hasComponent("qem_test_shared"));
}

// ---------------------------------------------------------------- optional

TEST(Optional, ReferencesCopyTheReference) {
    int count = -1;
    optional<int&> ref = count;
    optional<int&> same = ref;  // copies the reference, not the value
    *same = 10;
    EXPECT_EQ(count, 10);
    EXPECT_EQ(*ref, 10);
}
