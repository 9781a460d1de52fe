#include <lawutil/internal/compile_listing.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include <lawutil/compile.h>
#include <lawutil/internal/arith_rules.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include <qem/heap.h>
#include <qem/tolerance.h>
#include <qem/version.h>

// Taylor arithmetic over the compiler's instruction list.  Every value of the list becomes
// a truncated series: a[k] is the k-th Taylor coefficient, f^(k) / k!, at the point, with
// respect to one variable.  Each operation maps the series of its operands to the series
// of its result by its recurrence, so a derivative of order n costs O(n^2) per operation.
//
// Coefficient 0 is computed by exactly the operations the tree uses, so the value keeps
// the tree's bits and its errors.  The higher coefficients follow the law's own derivative
// rule (a few classes have deliberate ones), and where that rule divides, the checks the
// division would make (a denominator below resabs) are made here too.

namespace law_internal {

namespace {

using law_internal::checked_pow;
using law_internal::division_zero;

// Functions of one scalar by their derivative rules.
enum class fkind : unsigned char {
    sqrt,
    ln,
    tan,
    cot,
    sec,
    csc,
    sinh,
    cosh,
    tanh,
    coth,
    sech,
    csch,
    arcsin,
    arccos,
    arccot,
    arcsec,
    arccsc,
    arcsinh,
    arccosh,
    arctanh,
    arccoth,
    arcsech,
    arccsch,
    abs,
    step,      // derivatives 0 between the jumps
    no_deriv,  // the class has no derivative
};

struct fn_row {
    scalar_fn fn;
    fkind kind;
};
const fn_row fn_rows[] = {
    {&sqrt_law::value, fkind::sqrt},       {&natural_log_law::value, fkind::ln},
    {&tan_law::value, fkind::tan},         {&cot_law::value, fkind::cot},
    {&sec_law::value, fkind::sec},         {&csc_law::value, fkind::csc},
    {&sinh_law::value, fkind::sinh},       {&cosh_law::value, fkind::cosh},
    {&tanh_law::value, fkind::tanh},       {&coth_law::value, fkind::coth},
    {&sech_law::value, fkind::sech},       {&csch_law::value, fkind::csch},
    {&arcsin_law::value, fkind::arcsin},   {&arccos_law::value, fkind::arccos},
    {&arccot_law::value, fkind::arccot},   {&arcsec_law::value, fkind::arcsec},
    {&arccsc_law::value, fkind::arccsc},   {&arcsinh_law::value, fkind::arcsinh},
    {&arccosh_law::value, fkind::arccosh}, {&arctanh_law::value, fkind::arctanh},
    {&arccoth_law::value, fkind::arccoth}, {&arcsech_law::value, fkind::arcsech},
    {&arccsch_law::value, fkind::arccsch}, {&abs_law::value, fkind::abs},
    {&floor_law::value, fkind::step},      {&ceil_law::value, fkind::step},
    {&set_law::value, fkind::step},
};

fkind kind_of(scalar_fn fn) {
    for (const fn_row& row : fn_rows)
        if (row.fn == fn) return row.kind;
    return fkind::no_deriv;
}

enum class jop : unsigned char {
    add,
    sub,
    mul,
    div,
    quot,
    neg,
    pow,
    sin,
    cos,
    exp,
    fn,
    tree_scalar,
    tree_full
};

struct jinstr {
    jop code;
    fkind kind = fkind::no_deriv;
    bool flat = false;                    // no operand depends on the variable: value only
    bool const_exponent = false;          // pow: the exponent does not depend on the variable
    bool a_flat = false, b_flat = false;  // an operand that does not: a scaling, not a product
    int d = -1, a = -1, b = -1;           // slots
    int first_dest = 0, ndest = 0;        // tree_full: slots dest_slots[first_dest ..]
    int chain = -1;                       // tree_*: its derivatives
    int deriv_error = -1;  // the code building a derivative it needs raised: value only
    scalar_fn fn = nullptr;
    const law* node = nullptr;
};

// A sub-law's derivatives with respect to the variable, one use each: derivs[k-1] is the
// k-th.  From `zero_from` on they are known to be 0; past what was built, `error` (the code
// building the next one raised) is raised when asked for.
struct tree_chain {
    std::vector<law*> derivs;
    int zero_from = -1;
    int error = -1;
};

constexpr int temp_count = 8;

}  // namespace

class jet_code {
  public:
    int order = 0, which = 0, m = 1;
    int slots = 0, wide = 1;
    std::vector<jinstr> code;
    std::vector<std::pair<int, double>> consts;  // slot, number
    std::vector<std::pair<int, int>> inputs;     // slot, coordinate
    std::vector<int> dest_slots;
    std::vector<tree_chain> chains;
    struct out_ref {
        int slot, k;
    };
    std::vector<out_ref> outs;
    int output_error = -1;  // an output whose derivatives cannot be built raises this
    double fact[law_jet_max_order + 1];
    double inv_fact[law_jet_max_order + 1];

    jet_code() = default;
    jet_code(const jet_code&) = delete;
    jet_code& operator=(const jet_code&) = delete;
    ~jet_code() {
        for (tree_chain& c : chains)
            for (law* l : c.derivs) law::remove(l);
    }

    void run(const double* x, double* out) const;

  private:
    void step(const jinstr& I, double* r, double* T, double* wide_buf, const double* x,
              bool values_only = false) const;
    void tree_jet(const jinstr& I, double* d, int top, const double* x) const;
    void division_by_tree(const jinstr& I, double* d, int top, const double* x) const;
    void function(const jinstr& I, const double* a, double* d, int top, double* T) const;
};

namespace {

// ---- series helpers: coefficients 0..top (the caller has room for m)

void conv(const double* a, const double* b, double* c, int top) {
    for (int n = 0; n <= top; ++n) {
        double s = a[0] * b[n];
        for (int j = 1; j <= n; ++j) s += a[j] * b[n - j];
        c[n] = s;
    }
}

/// c = a / b given c[0]: c_n = (a_n - sum b_j c_{n-j}) / b_0.
void divide_rest(const double* a, const double* b, double* c, int top) {
    for (int n = 1; n <= top; ++n) {
        double s = a[n];
        for (int j = 1; j <= n; ++j) s -= b[j] * c[n - j];
        c[n] = s / b[0];
    }
}

/// c = 1 / b given c[0].
void reciprocal_rest(const double* b, double* c, int top) {
    for (int n = 1; n <= top; ++n) {
        double s = 0.0;
        for (int j = 1; j <= n; ++j) s -= b[j] * c[n - j];
        c[n] = s / b[0];
    }
}

/// f' = g a': f_n = (1/n) sum_{j=1..n} j a_j g_{n-j}, given f[0] and g to top-1.
void integrate_rest(const double* a, const double* g, double* f, int top) {
    for (int n = 1; n <= top; ++n) {
        double s = 0.0;
        for (int j = 1; j <= n; ++j) s += j * a[j] * g[n - j];
        f[n] = s / n;
    }
}

/// sin and cos of a given s[0], c[0]; sign -1 for the circular pair, +1 the hyperbolic.
void pair_rest(const double* a, double* s, double* c, int top, double sign) {
    for (int n = 1; n <= top; ++n) {
        double ss = 0.0, cc = 0.0;
        for (int j = 1; j <= n; ++j) {
            ss += j * a[j] * c[n - j];
            cc += j * a[j] * s[n - j];
        }
        s[n] = ss / n;
        c[n] = sign * cc / n;
    }
}

void raise_small_denominator(double b0) {
    if (std::fabs(b0) < QEM::get_resabs()) sys_error(LAW_ZERODIVIDE);
}

/// 1 / b as the derivative rules' quotients compute it, with the quotient's check.
void checked_reciprocal(const double* b, double* c, int top) {
    raise_small_denominator(b[0]);
    c[0] = 1.0 / b[0];
    reciprocal_rest(b, c, top);
}

/// a^p beyond the value c[0], for an exponent that does not depend on the variable: the
/// derivative p a^(p-1) a' by the logarithmic derivative (a c' = p a' c), or where a is 0,
/// the power of the series for an integral p and 0 for a p above the order; below it
/// the derivative's power of 0 raises, as in the tree.  `T` has room for three series.
void power_rest(const double* a, double* c, int top, double p, int m, double* T) {
    if (top < 1) return;
    if (a[0] < 0.0 && get_global_version() >= exponent_version) p = std::floor(p + 0.5);
    if (a[0] != 0.0) {
        for (int n = 1; n <= top; ++n) {
            double s = 0.0;
            for (int j = 1; j <= n; ++j) s += ((p + 1.0) * j - n) * a[j] * c[n - j];
            c[n] = s / (n * a[0]);
        }
        return;
    }
    if (p == std::floor(p) && p > 0.0) {
        double* acc = T;
        double* base = T + m;
        double* tmp = T + 2 * m;
        std::fill(acc, acc + top + 1, 0.0);
        acc[0] = 1.0;
        std::copy(a, a + top + 1, base);
        for (double e = p; e > 0.0;) {
            const double half = std::floor(e / 2.0);
            if (e - 2.0 * half == 1.0) {
                conv(acc, base, tmp, top);
                std::copy(tmp, tmp + top + 1, acc);
            }
            e = half;
            if (e > 0.0) {
                conv(base, base, tmp, top);
                std::copy(tmp, tmp + top + 1, base);
            }
        }
        std::copy(acc + 1, acc + top + 1, c + 1);
        return;
    }
    if (p - top <= 0.0) sys_error(LAW_EXPONENT);
    std::fill(c + 1, c + top + 1, 0.0);
}

/// a^p with the value as exponent_law computes it.
void power_series(const double* a, double* c, int top, double p, int m, double* T) {
    c[0] = checked_pow(a[0], p);
    power_rest(a, c, top, p, m, T);
}

/// sqrt(a) as sqrt_law; beyond the value, as the power a^0.5 the simplifier makes of it
/// (rounding noise below 0 has no derivative: the tree's power raises there).
void sqrt_series(const double* a, double* c, int top, int m, double* T) {
    c[0] = sqrt_law::value(a[0]);
    if (top >= 1 && a[0] < 0.0) sys_error(LAW_EXPONENT);
    power_rest(a, c, top, 0.5, m, T);
}

/// ln(a) as natural_log_law; its derivative a' / a checks its quotient.
void ln_series(const double* a, double* c, int top) {
    c[0] = natural_log_law::value(a[0]);
    if (top < 1) return;
    raise_small_denominator(a[0]);
    for (int n = 1; n <= top; ++n) {
        double s = 0.0;
        for (int j = 1; j < n; ++j) s += j * c[j] * a[n - j];
        c[n] = (a[n] - s / n) / a[0];
    }
}

/// exp(t) given c[0]: c_n = (1/n) sum j t_j c_{n-j}.
void exp_rest(const double* t, double* c, int top) {
    integrate_rest(t, c, c, top);
}

/// k + s * (a * a), to top.
void square_plus(const double* a, double* c, int top, double k, double s) {
    conv(a, a, c, top);
    for (int n = 0; n <= top; ++n) c[n] *= s;
    c[0] += k;
}

void negate(double* c, int top) {
    for (int n = 0; n <= top; ++n) c[n] = -c[n];
}

}  // namespace

// ---- one instruction

void jet_code::division_by_tree(const jinstr& I, double* d, int top, const double* x) const {
    // 0/0: the quotient's own L'Hospital value, and its symbolic derivatives for the rest.
    d[0] = I.node->evaluate_scalar(x);
    law_ref current = law_ref::retain(I.node);
    for (int k = 1; k <= top; ++k) {
        current = law_ref::adopt(current->derivative(which));
        d[k] = current->evaluate_scalar(x) * inv_fact[k];
    }
}

void jet_code::tree_jet(const jinstr& I, double* d, int top, const double* x) const {
    const tree_chain& c = chains[static_cast<std::size_t>(I.chain)];
    d[0] = I.node->evaluate_scalar(x);
    for (int k = 1; k <= top; ++k) {
        if (c.zero_from >= 0 && k >= c.zero_from) {
            d[k] = 0.0;
        } else if (k > static_cast<int>(c.derivs.size())) {
            sys_error(c.error);
        } else {
            d[k] = c.derivs[static_cast<std::size_t>(k - 1)]->evaluate_scalar(x) * inv_fact[k];
        }
    }
}

void jet_code::function(const jinstr& I, const double* a, double* d, int top, double* T) const {
    double* T0 = T;
    double* T1 = T + m;
    double* T2 = T + 2 * m;
    double* T3 = T + 3 * m;
    const double a0 = a[0];
    d[0] = I.fn(a0);
    if (top < 1) return;
    const int g = top - 1;  // the derivative factor is needed to one order less
    switch (I.kind) {
        case fkind::sqrt:
            sqrt_series(a, d, top, m, T + 4 * m);
            return;
        case fkind::ln:
            ln_series(a, d, top);
            return;
        case fkind::tan:
            // (tan f)' = sec(f)^2 f'
            T0[0] = std::sin(a0);
            T1[0] = std::cos(a0);
            pair_rest(a, T0, T1, g, -1.0);
            T2[0] = sec_law::value(a0);
            reciprocal_rest(T1, T2, g);
            conv(T2, T2, T3, g);
            integrate_rest(a, T3, d, top);
            return;
        case fkind::cot:
            // (cot f)' = -csc(f)^2 f', csc by its own derivative rule
            conv(a, a, T0, g);
            T1[0] = csc_law::value(a0);
            for (int n = 1; n <= g; ++n) T1[n] = -0.5 * T0[n];
            conv(T1, T1, T2, g);
            negate(T2, g);
            integrate_rest(a, T2, d, top);
            return;
        case fkind::sec:
            T0[0] = std::sin(a0);
            T1[0] = std::cos(a0);
            pair_rest(a, T0, T1, top, -1.0);
            reciprocal_rest(T1, d, top);
            return;
        case fkind::csc:
            // The class's derivative is -f f': the series of -f^2 / 2 beyond the value.
            conv(a, a, T0, top);
            for (int n = 1; n <= top; ++n) d[n] = -0.5 * T0[n];
            return;
        case fkind::sinh:
        case fkind::cosh:
        case fkind::tanh:
        case fkind::coth:
        case fkind::sech:
        case fkind::csch: {
            if ((I.kind == fkind::sech || I.kind == fkind::csch) && std::fabs(a0) > 200.0) {
                // Taken as exactly 0 out there, and so are the derivatives.
                std::fill(d + 1, d + top + 1, 0.0);
                return;
            }
            T0[0] = std::sinh(a0);
            T1[0] = std::cosh(a0);
            pair_rest(a, T0, T1, top, 1.0);
            if (I.kind == fkind::sinh) std::copy(T0 + 1, T0 + top + 1, d + 1);
            if (I.kind == fkind::cosh) std::copy(T1 + 1, T1 + top + 1, d + 1);
            if (I.kind == fkind::tanh) divide_rest(T0, T1, d, top);
            if (I.kind == fkind::coth) divide_rest(T1, T0, d, top);
            if (I.kind == fkind::sech) reciprocal_rest(T1, d, top);
            if (I.kind == fkind::csch) reciprocal_rest(T0, d, top);
            return;
        }
        case fkind::arcsin:
        case fkind::arccos:
        case fkind::arcsinh:
        case fkind::arccosh:
            // (1 - f f)^-0.5 (negated for arccos), (1 + f f)^-0.5, (f f - 1)^-0.5: the
            // powers the simplifier makes of 1 / sqrt(...)
            if (I.kind == fkind::arcsinh)
                square_plus(a, T0, g, 1.0, 1.0);
            else if (I.kind == fkind::arccosh)
                square_plus(a, T0, g, -1.0, 1.0);
            else
                square_plus(a, T0, g, 1.0, -1.0);
            power_series(T0, T1, g, -0.5, m, T + 4 * m);
            if (I.kind == fkind::arccos) negate(T1, g);
            integrate_rest(a, T1, d, top);
            return;
        case fkind::arccot:
            square_plus(a, T0, g, 1.0, 1.0);
            checked_reciprocal(T0, T1, g);
            negate(T1, g);
            integrate_rest(a, T1, d, top);
            return;
        case fkind::arcsec:
        case fkind::arccsc:
        case fkind::arcsech:
        case fkind::arccsch: {
            // (f f - 1)^-0.5 / f (negated for arccsc), -(1 - f f)^-0.5 / f for arcsech,
            // -(1 + f f)^-0.5 / |f| for arccsch, |f| by the side of the point as abs takes it
            if (I.kind == fkind::arcsech)
                square_plus(a, T0, g, 1.0, -1.0);
            else if (I.kind == fkind::arccsch)
                square_plus(a, T0, g, 1.0, 1.0);
            else
                square_plus(a, T0, g, -1.0, 1.0);
            power_series(T0, T1, g, -0.5, m, T + 4 * m);
            const double side = I.kind == fkind::arccsch && a0 < 0.0 ? -1.0 : 1.0;
            for (int n = 0; n <= g; ++n) T2[n] = side * a[n];
            raise_small_denominator(T2[0]);
            T3[0] = T1[0] / T2[0];
            divide_rest(T1, T2, T3, g);
            if (I.kind != fkind::arcsec) negate(T3, g);
            integrate_rest(a, T3, d, top);
            return;
        }
        case fkind::arctanh:
        case fkind::arccoth:
            square_plus(a, T0, g, 1.0, -1.0);
            checked_reciprocal(T0, T1, g);
            integrate_rest(a, T1, d, top);
            return;
        case fkind::abs: {
            // set(f) f' - (1 - set(f)) f': the side where f > 0 counts up, 0 counts down.
            const double side = a0 > 0.0 ? 1.0 : -1.0;
            for (int n = 1; n <= top; ++n) d[n] = side * a[n] + 0.0;  // no -0 on the down side
            return;
        }
        case fkind::step:
            std::fill(d + 1, d + top + 1, 0.0);
            return;
        case fkind::no_deriv:
            sys_error(LAW_DERIV);
    }
}

void jet_code::step(const jinstr& I, double* r, double* T, double* wide_buf, const double* x,
                    bool values_only) const {
    const int top = I.flat || values_only || I.deriv_error >= 0 ? 0 : order;
    double* d = r + static_cast<std::size_t>(I.d) * m;
    const double* a = I.a >= 0 ? r + static_cast<std::size_t>(I.a) * m : nullptr;
    const double* b = I.b >= 0 ? r + static_cast<std::size_t>(I.b) * m : nullptr;
    switch (I.code) {
        case jop::add:
            for (int n = 0; n <= top; ++n) d[n] = a[n] + b[n];
            break;
        case jop::sub:
            for (int n = 0; n <= top; ++n) d[n] = a[n] - b[n];
            break;
        case jop::neg:
            for (int n = 0; n <= top; ++n) d[n] = -a[n];
            break;
        case jop::mul:
            if (I.b_flat)
                for (int n = 0; n <= top; ++n) d[n] = a[n] * b[0];
            else if (I.a_flat)
                for (int n = 0; n <= top; ++n) d[n] = a[0] * b[n];
            else
                conv(a, b, d, top);
            break;
        case jop::div:
            if (std::fabs(a[0]) >= division_zero || std::fabs(b[0]) >= division_zero) {
                raise_small_denominator(b[0]);
                d[0] = a[0] / b[0];
                if (I.b_flat)
                    for (int n = 1; n <= top; ++n) d[n] = a[n] / b[0];
                else
                    divide_rest(a, b, d, top);
            } else {
                division_by_tree(I, d, top, x);
            }
            break;
        case jop::quot:  // a constant denominator
            for (int n = 0; n <= top; ++n) d[n] = a[n] / b[0];
            break;
        case jop::pow: {
            d[0] = checked_pow(a[0], b[0]);
            if (top < 1) break;
            if (!I.const_exponent) {
                // a^b = exp(b ln a): (a^b)' = b a^(b-1) a' + a^b ln(a) b'
                ln_series(a, T, top);
                conv(b, T, T + m, top);
                exp_rest(T + m, d, top);
                break;
            }
            power_rest(a, d, top, b[0], m, T);
            break;
        }
        case jop::sin:
        case jop::cos: {
            double* other = T + 3 * m;
            double* s = I.code == jop::sin ? d : other;
            double* c = I.code == jop::sin ? other : d;
            s[0] = std::sin(a[0]);
            c[0] = std::cos(a[0]);
            pair_rest(a, s, c, top, -1.0);
            break;
        }
        case jop::exp:
            d[0] = std::exp(a[0]);
            exp_rest(a, d, top);
            break;
        case jop::fn:
            function(I, a, d, top, T);
            break;
        case jop::tree_scalar:
            tree_jet(I, d, top, x);
            break;
        case jop::tree_full: {
            const tree_chain& c = chains[static_cast<std::size_t>(I.chain)];
            for (int k = 0; k <= top; ++k) {
                std::fill(wide_buf, wide_buf + wide, 0.0);
                if (k == 0) {
                    I.node->evaluate(x, wide_buf);
                } else if (c.zero_from >= 0 && k >= c.zero_from) {
                } else if (k > static_cast<int>(c.derivs.size())) {
                    sys_error(c.error);
                } else {
                    c.derivs[static_cast<std::size_t>(k - 1)]->evaluate(x, wide_buf);
                }
                for (int j = 0; j < I.ndest; ++j)
                    r[static_cast<std::size_t>(dest_slots[I.first_dest + j]) * m + k] =
                        wide_buf[j] * inv_fact[k];
            }
            for (int j = 0; j < I.ndest; ++j) {
                double* v = r + static_cast<std::size_t>(dest_slots[I.first_dest + j]) * m;
                std::fill(v + top + 1, v + m, 0.0);
            }
            return;
        }
    }
    std::fill(d + top + 1, d + m, 0.0);
}

void jet_code::run(const double* x, double* out) const {
    // Stack scratch for all but very large programs.
    const std::size_t need = static_cast<std::size_t>(slots + temp_count) * m + wide;
    constexpr std::size_t stack_limit = 8192;
    QEM::scoped_heap_array<double> heap;
    double* r;
    if (need <= stack_limit) {
        r = static_cast<double*>(__builtin_alloca(sizeof(double) * need));
    } else {
        heap.reset(QEM_ALLOC_ARRAY(double, need));
        r = heap.get();
    }
    double* T = r + static_cast<std::size_t>(slots) * m;
    double* wide_buf = T + static_cast<std::size_t>(temp_count) * m;
    for (const auto& [slot, k] : consts) {
        double* v = r + static_cast<std::size_t>(slot) * m;
        v[0] = k;
        std::fill(v + 1, v + m, 0.0);
    }
    for (const auto& [slot, coordinate] : inputs) {
        double* v = r + static_cast<std::size_t>(slot) * m;
        v[0] = x[coordinate];
        std::fill(v + 1, v + m, 0.0);
        if (m > 1 && coordinate == which) v[1] = 1.0;
    }
    try {
        for (const jinstr& I : code) step(I, r, T, wide_buf, x);
    } catch (...) {
        // A derivative may raise before a later value would: the values alone, in the
        // tree's order, raise what the tree raises first.
        for (const jinstr& I : code) step(I, r, T, wide_buf, x, true);
        throw;
    }
    if (output_error >= 0) sys_error(output_error);
    for (std::size_t i = 0; i < outs.size(); ++i)
        out[i] = r[static_cast<std::size_t>(outs[i].slot) * m + outs[i].k] * fact[outs[i].k];
}

// ---- building

namespace {

class jet_builder {
  public:
    jet_builder(const program_listing& l, jet_code& j) : list_(l), jet_(j) {}

    void build() {
        const int nvalues = static_cast<int>(list_.values.size());
        const int ncode = static_cast<int>(list_.code.size());
        varies_.assign(static_cast<std::size_t>(nvalues), false);
        error_.assign(static_cast<std::size_t>(nvalues), -1);
        slot_.assign(static_cast<std::size_t>(nvalues), -1);
        std::vector<int> last_use(static_cast<std::size_t>(nvalues), -1);
        std::vector<bool> output(static_cast<std::size_t>(nvalues), false);
        for (int i = 0; i < ncode; ++i) {
            const listed_instr& L = list_.code[static_cast<std::size_t>(i)];
            if (L.a >= 0) last_use[static_cast<std::size_t>(L.a)] = i;
            if (L.b >= 0) last_use[static_cast<std::size_t>(L.b)] = i;
        }
        for (int v : list_.outputs) output[static_cast<std::size_t>(v)] = true;
        auto referenced = [&](int v) {
            return last_use[static_cast<std::size_t>(v)] >= 0 ||
                   output[static_cast<std::size_t>(v)];
        };
        slot_pool slots;
        for (int v = 0; v < nvalues; ++v) {
            const listed_value& w = list_.values[static_cast<std::size_t>(v)];
            if (w.kind == listed_value::result || !referenced(v)) continue;
            const int slot = slots.fresh();
            slot_[static_cast<std::size_t>(v)] = slot;
            if (w.kind == listed_value::constant) {
                jet_.consts.emplace_back(slot, w.number);
            } else {
                jet_.inputs.emplace_back(slot, w.coordinate);
                varies_[static_cast<std::size_t>(v)] = w.coordinate == jet_.which;
            }
        }
        for (int i = 0; i < ncode; ++i) {
            const listed_instr& L = list_.code[static_cast<std::size_t>(i)];
            std::vector<int> dests = L.dests;
            if (L.d >= 0) dests.push_back(L.d);
            for (int v : dests) slot_[static_cast<std::size_t>(v)] = slots.take();
            jet_.code.push_back(lower(L));
            for (int v : {L.a, L.b}) {
                if (v < 0) continue;
                const listed_value& w = list_.values[static_cast<std::size_t>(v)];
                if (w.kind == listed_value::result && last_use[static_cast<std::size_t>(v)] == i &&
                    !output[static_cast<std::size_t>(v)] &&
                    !slots.holds(slot_[static_cast<std::size_t>(v)]))
                    slots.give(slot_[static_cast<std::size_t>(v)]);
            }
            for (int v : dests)
                if (!referenced(v)) slots.give(slot_[static_cast<std::size_t>(v)]);
        }
        jet_.slots = slots.count;
    }

    void lay_out_outputs() {
        for (int v : list_.outputs)
            if (jet_.output_error < 0 && jet_.order > 0) jet_.output_error = error(v);
        const int nlaws = static_cast<int>(list_.first_output.size());
        const int total = static_cast<int>(list_.outputs.size());
        for (int i = 0; i < nlaws; ++i) {
            const int first = list_.first_output[static_cast<std::size_t>(i)];
            const int end =
                i + 1 < nlaws ? list_.first_output[static_cast<std::size_t>(i) + 1] : total;
            for (int k = 0; k <= jet_.order; ++k)
                for (int j = first; j < end; ++j)
                    jet_.outs.push_back({slot_[static_cast<std::size_t>(
                                             list_.outputs[static_cast<std::size_t>(j)])],
                                         k});
        }
    }

  private:
    bool varies(int v) const { return v >= 0 && varies_[static_cast<std::size_t>(v)]; }
    int error(int v) const { return v >= 0 ? error_[static_cast<std::size_t>(v)] : -1; }

    jinstr lower(const listed_instr& L) {
        jinstr I{jop::add};
        auto slot = [&](int v) { return v >= 0 ? slot_[static_cast<std::size_t>(v)] : -1; };
        I.d = slot(L.d);
        I.a = slot(L.a);
        I.b = slot(L.b);
        I.fn = L.fn;
        I.node = L.node;
        bool result_varies = varies(L.a) || varies(L.b);
        I.a_flat = L.a >= 0 && !varies(L.a);
        I.b_flat = L.b >= 0 && !varies(L.b);
        int result_error = error(L.a) >= 0 ? error(L.a) : error(L.b);
        switch (L.code) {
            case op::add:
                I.code = jop::add;
                break;
            case op::sub:
                I.code = jop::sub;
                break;
            case op::mul:
                I.code = jop::mul;
                break;
            case op::div:
                I.code = jop::div;
                break;
            case op::quot:
                I.code = jop::quot;
                break;
            case op::neg:
                I.code = jop::neg;
                break;
            case op::pow:
                I.code = jop::pow;
                I.const_exponent = !varies(L.b);
                break;
            case op::sin:
                I.code = jop::sin;
                break;
            case op::cos:
                I.code = jop::cos;
                break;
            case op::exp:
                I.code = jop::exp;
                break;
            case op::call:
                I.code = jop::fn;
                I.kind = kind_of(L.fn);
                // Steps differentiate to 0 without their operand's derivative; a class
                // without a derivative has none whatever its operand.
                if (I.kind == fkind::step) result_error = -1;
                if (I.kind == fkind::no_deriv && jet_.order > 0) result_error = LAW_DERIV;
                break;
            case op::tree_scalar:
            case op::tree_full:
                I.code = L.code == op::tree_scalar ? jop::tree_scalar : jop::tree_full;
                I.chain = chain_of(L.node, result_varies, result_error);
                if (L.code == op::tree_full) {
                    I.first_dest = static_cast<int>(jet_.dest_slots.size());
                    I.ndest = static_cast<int>(L.dests.size());
                    for (int v : L.dests) jet_.dest_slots.push_back(slot(v));
                    jet_.wide = std::max(jet_.wide, I.ndest);
                }
                break;
            default:
                LAW_ASSERT(false);
        }
        I.flat = !result_varies;
        I.deriv_error = result_error;
        std::vector<int> dests = L.dests;
        if (L.d >= 0) dests.push_back(L.d);
        for (int v : dests) {
            varies_[static_cast<std::size_t>(v)] = result_varies;
            error_[static_cast<std::size_t>(v)] = result_error;
        }
        return I;
    }

    /// The sub-law's derivatives up to the order; whether it depends on the variable.
    int chain_of(const law* node, bool& result_varies, int& result_error) {
        tree_chain c;
        law* current = const_cast<law*>(node);
        for (int k = 1; k <= jet_.order; ++k) {
            law* next = nullptr;
            try {
                next = current->derivative(jet_.which);
            } catch (const vorn_exception& e) {
                c.error = e.error_number();
                break;
            }
            c.derivs.push_back(next);
            jet_.wide = std::max(jet_.wide, next->return_dim());
            if (next->zero()) {
                c.zero_from = k;
                break;
            }
            current = next;
        }
        result_varies = c.zero_from != 1;
        result_error =
            c.zero_from < 0 && static_cast<int>(c.derivs.size()) < jet_.order ? c.error : -1;
        jet_.chains.push_back(std::move(c));
        return static_cast<int>(jet_.chains.size()) - 1;
    }

    const program_listing& list_;
    jet_code& jet_;
    std::vector<bool> varies_;
    std::vector<int> error_;  // per value: what building its derivatives raises, or -1
    std::vector<int> slot_;
};

}  // namespace

jet_code* jet_build(const program_listing& listing, int order, int which) {
    std::unique_ptr<jet_code> jet(new jet_code);
    jet->order = order;
    jet->which = which;
    jet->m = order + 1;
    jet->fact[0] = jet->inv_fact[0] = 1.0;
    for (int k = 1; k <= law_jet_max_order; ++k) {
        jet->fact[k] = jet->fact[k - 1] * k;
        jet->inv_fact[k] = 1.0 / jet->fact[k];
    }
    jet_builder builder(listing, *jet);
    builder.build();
    builder.lay_out_outputs();
    return jet.release();
}

void jet_release(jet_code* code) {
    delete code;
}

void jet_evaluate(const jet_code& code, const double* x, double* out) {
    code.run(x, out);
}

void jet_evaluate_batch(const jet_code& code, int inputs, int npoints, const double* const* in,
                        double* const* out) {
    const int nout = static_cast<int>(code.outs.size());
    double* xi = static_cast<double*>(__builtin_alloca(sizeof(double) * (inputs + 1)));
    double* o = static_cast<double*>(__builtin_alloca(sizeof(double) * (nout + 1)));
    for (int i = 0; i < npoints; ++i) {
        for (int k = 0; k < inputs; ++k) xi[k] = in[k][i];
        code.run(xi, o);
        for (int j = 0; j < nout; ++j) out[j][i] = o[j];
    }
}

int jet_output_count(const jet_code& code) {
    return static_cast<int>(code.outs.size());
}

int jet_instruction_count(const jet_code& code) {
    return static_cast<int>(code.code.size());
}

int jet_tree_instruction_count(const jet_code& code) {
    return static_cast<int>(std::count_if(code.code.begin(), code.code.end(), [](const jinstr& I) {
        return I.code == jop::tree_scalar || I.code == jop::tree_full;
    }));
}

}  // namespace law_internal

// ============================================================== law_jet

namespace {

// The jet programs kept with one law, by order and variable.
struct jet_shelf {
    struct entry {
        int order, which;
        law_program* program;
    };
    std::vector<entry> programs;
    ~jet_shelf() {
        for (entry& e : programs) law_program_release(e.program);
    }
};

void* make_shelf() {
    return new jet_shelf;
}

void release_shelf(void* shelf) {
    delete static_cast<jet_shelf*>(shelf);
}

const struct shelf_registration {
    shelf_registration() { law::set_attached_release(&release_shelf); }
} registered_shelf;

}  // namespace

void law_jet(const law* f, const double* x, int order, int which, double* out) {
    if (!f || order < 0 || order > law_jet_max_order || which < 0) sys_error(LAW_DIM);
    auto* shelf = static_cast<jet_shelf*>(f->attached_programs(&make_shelf));
    const law_program* program = nullptr;
    {
        std::lock_guard<std::recursive_mutex> hold(f->cache_lock());
        for (const jet_shelf::entry& e : shelf->programs)
            if (e.order == order && e.which == which) program = e.program;
        if (!program) {
            law_program* made = law_internal::compile_jet_unheld(f, order, which);
            shelf->programs.push_back({order, which, made});
            program = made;
        }
    }
    // Immutable once made: evaluated outside the lock.
    program->evaluate(x, out);
}
