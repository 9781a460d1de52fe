#include <lawutil/compile.h>

#include <math.h>  // sincos

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <tuple>
#include <unordered_map>
#include <vector>

#include <lawutil/internal/arith_rules.h>
#include <lawutil/internal/compile_listing.h>
#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include <qem/tolerance.h>
#include <qem/version.h>

// Exact equality with the tree rests on every operation being rounded once, as the tree
// rounds it: this file is built with floating-point contraction off (see CMakeLists.txt),
// so a product feeding a sum stays two roundings in the fused instructions below.

using law_internal::checked_pow;
using law_internal::division_zero;

namespace {

/// division_law's quotient: a/b, LAW_ZERODIVIDE for a denominator below resabs, and 0/0
/// left to the law itself, whose L'Hospital rule needs its derivatives at the point.
double checked_quotient(double a, double b, const law* node, const double* x) {
    if (std::fabs(a) >= division_zero || std::fabs(b) >= division_zero) {
        if (std::fabs(b) < QEM::get_resabs()) sys_error(LAW_ZERODIVIDE);
        return a / b;
    }
    return node->evaluate_scalar(x);
}

using law_internal::op;
using law_internal::scalar_fn;

struct instr {
    op code;
    std::int16_t out = -1;  // one point: also written to output `out` (when >= 0)
    // Slots.  sincos writes the cosine to c; tree_full writes the slots dests[a .. a+b-1].
    int d = -1, a = -1, b = -1, c = -1;
    union {
        scalar_fn fn = nullptr;  // call
        const law* node;         // div (for 0/0), tree_scalar, tree_full
        double k;                // constant
    };
};

// The functions of one scalar whose evaluate_scalar is value(f): the program calls the
// same function on the same operand.
struct unary_row {
    int id;
    scalar_fn fn;
};
#define LAW_UNARY_ROW(cls) \
    { cls::id(), &cls::value }
const unary_row unary_rows[] = {
    LAW_UNARY_ROW(sin_law),         LAW_UNARY_ROW(cos_law),     LAW_UNARY_ROW(tan_law),
    LAW_UNARY_ROW(cot_law),         LAW_UNARY_ROW(sec_law),     LAW_UNARY_ROW(csc_law),
    LAW_UNARY_ROW(sinh_law),        LAW_UNARY_ROW(cosh_law),    LAW_UNARY_ROW(tanh_law),
    LAW_UNARY_ROW(coth_law),        LAW_UNARY_ROW(sech_law),    LAW_UNARY_ROW(csch_law),
    LAW_UNARY_ROW(arcsin_law),      LAW_UNARY_ROW(arccos_law),  LAW_UNARY_ROW(arccot_law),
    LAW_UNARY_ROW(arcsec_law),      LAW_UNARY_ROW(arccsc_law),  LAW_UNARY_ROW(arcsinh_law),
    LAW_UNARY_ROW(arccosh_law),     LAW_UNARY_ROW(arctanh_law), LAW_UNARY_ROW(arccoth_law),
    LAW_UNARY_ROW(arcsech_law),     LAW_UNARY_ROW(arccsch_law), LAW_UNARY_ROW(sqrt_law),
    LAW_UNARY_ROW(natural_log_law), LAW_UNARY_ROW(exp_law),     LAW_UNARY_ROW(abs_law),
    LAW_UNARY_ROW(floor_law),       LAW_UNARY_ROW(ceil_law),    LAW_UNARY_ROW(set_law),
    LAW_UNARY_ROW(int_law),         LAW_UNARY_ROW(even_law),    LAW_UNARY_ROW(odd_law),
    LAW_UNARY_ROW(prime_law),       LAW_UNARY_ROW(rand_law),    LAW_UNARY_ROW(not_law),
};
#undef LAW_UNARY_ROW

scalar_fn unary_function(const law* l) {
    const int type = l->type();
    for (const unary_row& row : unary_rows)
        if (row.id == type) return row.fn;
    return nullptr;
}

std::uint64_t bits(double v) {
    std::uint64_t u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

// Stack budget of one batch call, in doubles; blocks shrink to fit it, and only programs
// too large for blocks of `min_block` points take their scratch from the heap.
constexpr int stack_doubles = 8192;
constexpr int max_block = 256;
constexpr int min_block = 16;

}  // namespace

// ============================================================== the program

class law_program_impl {
  public:
    std::vector<law*> laws;         // one use each
    std::vector<int> first_output;  // per law
    int inputs = 0;                 // coordinates per point
    std::vector<instr> code;        // a block at a time
    std::vector<instr> point_code;  // one point: the constants and coordinates, code, outputs
    std::vector<int> dests;         // slots written by tree_full instructions
    std::vector<double> consts;     // slot s < consts.size() holds consts[s]
    std::vector<std::pair<int, int>> input_slots;  // (coordinate, slot)
    std::vector<int> output_slot;                  // per output value
    std::vector<int> bound_output;  // per slot: the output array it writes in a batch, or -1
    int slots = 0;
    int full_width = 1;                     // the widest tree_full result
    law_internal::jet_code* jet = nullptr;  // a jet program runs this instead (compile_jet.cpp)

    ~law_program_impl() {
        law_internal::jet_release(jet);
        for (law* l : laws) law::remove(l);
    }

    void evaluate(const double* x, double* out) const;
    void evaluate_batch(int npoints, const double* const* inputs, double* const* outputs) const;

  private:
    static constexpr int local_slots = 64;

    void run_block(double* const* p, int n, const double* const* in, int start, double* xi,
                   double* wide) const;
    void gather(const double* const* in, int point, double* xi) const {
        for (int k = 0; k < inputs; ++k) xi[k] = in[k][point];
    }
};

void law_program_impl::evaluate(const double* x, double* out) const {
    double local[local_slots];
    const int need = slots + full_width;
    double* r =
        need <= local_slots ? local : static_cast<double*>(__builtin_alloca(sizeof(double) * need));
    double* wide = r + slots;
    // Threaded dispatch: each operation jumps straight to the next one's code, so every
    // jump site learns its own successors.  The table follows the order of `op`.
    static constexpr void* next_op[] = {
        &&add,      &&sub,      &&mul,      &&div,         &&neg,       &&pow,
        &&muladd,   &&addmul,   &&mulsub,   &&submul,      &&sin,       &&cos,
        &&sincos,   &&exp,      &&call,     &&tree_scalar, &&tree_full, &&quot,
        &&constant, &&input,    &&output,   &&add_k,       &&sub_k,     &&mul_k,
        &&quot_k,   &&muladd_k, &&addmul_k, &&mulsub_k,    &&submul_k};
    static_assert(std::size(next_op) == static_cast<std::size_t>(op::submul_k) + 1);
    const instr* I = point_code.data();
    const instr* const end = I + point_code.size();
// The value to its slot, and to the output when it is one: no trip through the slot.
#define LAW_PUT(expr)                     \
    {                                     \
        const double v = (expr);          \
        r[I->d] = v;                      \
        if (I->out >= 0) out[I->out] = v; \
    }
#define LAW_NEXT            \
    if (++I == end) return; \
    goto* next_op[static_cast<int>(I->code)]
    if (I == end) return;
    goto* next_op[static_cast<int>(I->code)];
add:
    LAW_PUT(r[I->a] + r[I->b]);
    LAW_NEXT;
sub:
    LAW_PUT(r[I->a] - r[I->b]);
    LAW_NEXT;
mul:
    LAW_PUT(r[I->a] * r[I->b]);
    LAW_NEXT;
div:
    LAW_PUT(checked_quotient(r[I->a], r[I->b], I->node, x));
    LAW_NEXT;
neg:
    LAW_PUT(-r[I->a]);
    LAW_NEXT;
pow:
    LAW_PUT(checked_pow(r[I->a], r[I->b]));
    LAW_NEXT;
muladd : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(t + r[I->c]);
    LAW_NEXT;
}
addmul : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(r[I->c] + t);
    LAW_NEXT;
}
mulsub : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(t - r[I->c]);
    LAW_NEXT;
}
submul : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(r[I->c] - t);
    LAW_NEXT;
}
sin:
    LAW_PUT(std::sin(r[I->a]));
    LAW_NEXT;
cos:
    LAW_PUT(std::cos(r[I->a]));
    LAW_NEXT;
sincos:
    ::sincos(r[I->a], &r[I->d], &r[I->c]);
    LAW_NEXT;
exp:
    LAW_PUT(std::exp(r[I->a]));
    LAW_NEXT;
call:
    LAW_PUT(I->fn(r[I->a]));
    LAW_NEXT;
tree_scalar:
    LAW_PUT(I->node->evaluate_scalar(x));
    LAW_NEXT;
tree_full:
    I->node->evaluate(x, wide);
    for (int j = 0; j < I->b; ++j) r[dests[I->a + j]] = wide[j];
    LAW_NEXT;
quot:
    LAW_PUT(r[I->a] / r[I->b]);
    LAW_NEXT;
constant:
    r[I->d] = I->k;
    LAW_NEXT;
input:
    r[I->d] = x[I->a];
    LAW_NEXT;
output:
    out[I->a] = r[I->d];
    LAW_NEXT;
add_k:
    LAW_PUT(r[I->a] + I->k);
    LAW_NEXT;
sub_k:
    LAW_PUT(r[I->a] - I->k);
    LAW_NEXT;
mul_k:
    LAW_PUT(r[I->a] * I->k);
    LAW_NEXT;
quot_k:
    LAW_PUT(r[I->a] / I->k);
    LAW_NEXT;
muladd_k : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(t + I->k);
    LAW_NEXT;
}
addmul_k : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(I->k + t);
    LAW_NEXT;
}
mulsub_k : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(t - I->k);
    LAW_NEXT;
}
submul_k : {
    const double t = r[I->a] * r[I->b];
    LAW_PUT(I->k - t);
    LAW_NEXT;
}
#undef LAW_NEXT
#undef LAW_PUT
}

// One instruction over the whole block at a time: the simple loops vectorise, and the
// dispatch is paid once per block.  Slots never alias the slot written (see the slot
// allocation), hence the restrict pointers.
#define LAW_BLOCK_LOOP(expr)                                \
    {                                                       \
        double* __restrict d = p[I.d];                      \
        const double* __restrict a = p[I.a];                \
        const double* __restrict b = I.b >= 0 ? p[I.b] : a; \
        const double* __restrict c = I.c >= 0 ? p[I.c] : a; \
        (void)b;                                            \
        (void)c;                                            \
        for (int i = 0; i < n; ++i) d[i] = (expr);          \
        break;                                              \
    }
// The same with `k` for the constant operand `which` (b or c) when it is one, held in a
// register instead of loaded point by point.
#define LAW_BLOCK_LOOP_K(which, expr, expr_k) \
    if (I.which >= 0 && I.which < nconst) {   \
        const double k = consts[I.which];     \
        LAW_BLOCK_LOOP(expr_k)                \
    }                                         \
    LAW_BLOCK_LOOP(expr)

void law_program_impl::run_block(double* const* p, int n, const double* const* in, int start,
                                 double* xi, double* wide) const {
    const int nconst = static_cast<int>(consts.size());
    for (const instr& I : code) {
        switch (I.code) {
            case op::add:
                LAW_BLOCK_LOOP_K(b, a[i] + b[i], a[i] + k)
            case op::sub:
                LAW_BLOCK_LOOP_K(b, a[i] - b[i], a[i] - k)
            case op::mul:
                LAW_BLOCK_LOOP_K(b, a[i] * b[i], a[i] * k)
            case op::neg:
                LAW_BLOCK_LOOP(-a[i])
            case op::muladd:
                LAW_BLOCK_LOOP_K(c, a[i] * b[i] + c[i], a[i] * b[i] + k)
            case op::addmul:
                LAW_BLOCK_LOOP_K(c, c[i] + a[i] * b[i], k + a[i] * b[i])
            case op::mulsub:
                LAW_BLOCK_LOOP_K(c, a[i] * b[i] - c[i], a[i] * b[i] - k)
            case op::submul:
                LAW_BLOCK_LOOP_K(c, c[i] - a[i] * b[i], k - a[i] * b[i])
            case op::sin:
                LAW_BLOCK_LOOP(std::sin(a[i]))
            case op::cos:
                LAW_BLOCK_LOOP(std::cos(a[i]))
            case op::exp:
                LAW_BLOCK_LOOP(std::exp(a[i]))
            case op::pow:
                LAW_BLOCK_LOOP(checked_pow(a[i], b[i]))
            case op::call:
                LAW_BLOCK_LOOP(I.fn(a[i]))
            case op::div: {
                // The plain quotient wherever the denominator is clearly away from zero;
                // the rare block with a point that is not is done again point by point.
                double* __restrict d = p[I.d];
                const double* __restrict a = p[I.a];
                const double* __restrict b = p[I.b];
                const double limit = std::max(QEM::get_resabs(), division_zero);
                // Counted in a double (exact: at most a block's worth of ones), the form
                // that vectorises.  A NaN denominator counts.
                double near_zero = 0.0;
                for (int i = 0; i < n; ++i) {
                    d[i] = a[i] / b[i];
                    near_zero += std::fabs(b[i]) >= limit ? 0.0 : 1.0;
                }
                if (near_zero != 0.0) {
                    for (int i = 0; i < n; ++i) {
                        gather(in, start + i, xi);
                        d[i] = checked_quotient(a[i], b[i], I.node, xi);
                    }
                }
                break;
            }
            case op::quot:
                LAW_BLOCK_LOOP_K(b, a[i] / b[i], a[i] / k)
            case op::constant:
            case op::input:
            case op::output:
            case op::add_k:
            case op::sub_k:
            case op::mul_k:
            case op::quot_k:
            case op::muladd_k:
            case op::addmul_k:
            case op::mulsub_k:
            case op::submul_k:
                break;  // in place in a batch
            case op::sincos: {
                const double* a = p[I.a];
                double* s = p[I.d];
                double* co = p[I.c];
                for (int i = 0; i < n; ++i) ::sincos(a[i], &s[i], &co[i]);
                break;
            }
            case op::tree_scalar: {
                double* d = p[I.d];
                for (int i = 0; i < n; ++i) {
                    gather(in, start + i, xi);
                    d[i] = I.node->evaluate_scalar(xi);
                }
                break;
            }
            case op::tree_full:
                for (int i = 0; i < n; ++i) {
                    gather(in, start + i, xi);
                    I.node->evaluate(xi, wide);
                    for (int j = 0; j < I.b; ++j) p[dests[I.a + j]][i] = wide[j];
                }
                break;
        }
    }
}
#undef LAW_BLOCK_LOOP_K
#undef LAW_BLOCK_LOOP

void law_program_impl::evaluate_batch(int npoints, const double* const* in,
                                      double* const* outputs) const {
    if (npoints <= 0) return;
    const int nslots = std::max(slots, 1);
    const int fixed = full_width + inputs + static_cast<int>(output_slot.size()) + 1;
    int block = std::clamp((stack_doubles - fixed) / nslots, min_block, max_block);
    block = std::min(block, std::max(npoints, min_block));
    const std::size_t need = static_cast<std::size_t>(nslots) * block + fixed;
    QEM::scoped_heap_array<double> heap;
    double* scratch;
    if (need <= static_cast<std::size_t>(stack_doubles)) {
        scratch = static_cast<double*>(__builtin_alloca(sizeof(double) * need));
    } else {
        heap.reset(QEM_ALLOC_ARRAY(double, need));
        scratch = heap.get();
    }
    double* wide = scratch + static_cast<std::size_t>(nslots) * block;
    double* xi = wide + full_width;
    double* point_out = xi + inputs;
    auto** p = static_cast<double**>(__builtin_alloca(sizeof(double*) * nslots));
    for (int s = 0; s < nslots; ++s) p[s] = scratch + static_cast<std::size_t>(s) * block;
    for (std::size_t s = 0; s < consts.size(); ++s) std::fill(p[s], p[s] + block, consts[s]);

    for (int start = 0; start < npoints; start += block) {
        const int n = std::min(block, npoints - start);
        for (const auto& [coordinate, slot] : input_slots)
            p[slot] = const_cast<double*>(in[coordinate] + start);
        for (int s = 0; s < slots; ++s)
            if (bound_output[s] >= 0) p[s] = outputs[bound_output[s]] + start;
        try {
            run_block(p, n, in, start, xi, wide);
        } catch (...) {
            // Which point raised first is not known when a whole block goes one instruction
            // at a time: the points again one by one raise what the tree raises first.
            for (int i = 0; i < n; ++i) {
                gather(in, start + i, xi);
                evaluate(xi, point_out);
            }
            throw;
        }
        const int nout = static_cast<int>(output_slot.size());
        for (int j = 0; j < nout; ++j) {
            const int s = output_slot[j];
            if (bound_output[s] != j) std::copy(p[s], p[s] + n, outputs[j] + start);
        }
    }
}

// ============================================================== compiling

namespace {

/// Builds the program in two steps: a list of instructions over values, each value
/// defined once (constants, coordinates, results), following the order in which the tree
/// evaluates; then the fused shapes, and slots for the values by their lifetimes.
class program_builder {
  public:
    explicit program_builder(law_program_impl& p, bool jet_mode = false)
        : prog_(p), jet_mode_(jet_mode) {}

    void add_law(const law* l) {
        prog_.first_output.push_back(static_cast<int>(outputs_.size()));
        prog_.inputs = std::max(prog_.inputs, l->take_dim());
        for (int v : full(l)) outputs_.push_back(v);
    }

    /// The instructions as they stand, before fusing: what the jet builder reads.
    void export_listing(law_internal::program_listing& out) const {
        out.inputs = prog_.inputs;
        out.first_output = prog_.first_output;
        out.outputs = outputs_;
        for (const value& v : values_) {
            using listed = law_internal::listed_value;
            out.values.push_back({v.k == kind::constant ? listed::constant
                                  : v.k == kind::input  ? listed::input
                                                        : listed::result,
                                  v.number, v.coordinate});
        }
        for (const pending& P : code_) {
            out.code.push_back({P.code, P.d, P.a, P.b, P.dests, P.fn, P.node});
        }
    }

    void finish() {
        count_uses();
        fuse_products();
        fuse_sincos();
        assign_slots();
    }

  private:
    enum class kind { constant, input, result };
    struct value {
        kind k;
        double number = 0.0;  // constant
        int coordinate = 0;   // input
        int def = -1;         // result: the defining instruction
        int uses = 0;
        int last_use = -1;
        int slot = -1;
        bool output = false;
    };
    struct pending {
        op code;
        int d = -1, d2 = -1, a = -1, b = -1, c = -1;  // values
        std::vector<int> dests{};
        scalar_fn fn = nullptr;
        const law* node = nullptr;
        bool dead = false;
    };

    // ---- values
    int constant(double k) {
        auto [it, fresh] = constants_.try_emplace(bits(k), static_cast<int>(values_.size()));
        if (fresh) values_.push_back({kind::constant, k});
        return it->second;
    }
    int coordinate(int index) {
        if (substituting_) return index < static_cast<int>(subst_.size()) ? subst_[index] : 0;
        auto [it, fresh] = coordinates_.try_emplace(index, static_cast<int>(values_.size()));
        if (fresh) {
            value v{kind::input};
            v.coordinate = index;
            values_.push_back(v);
        }
        return it->second;
    }
    int result(int def) {
        value v{kind::result};
        v.def = def;
        values_.push_back(v);
        return static_cast<int>(values_.size()) - 1;
    }
    bool is_constant(int v) const { return values_[v].k == kind::constant; }

    // ---- instructions
    /// The value of `code` over a and b: folded when the operands are constants and the
    /// tree's value cannot depend on the point or on a setting; shared when computed before.
    int emit(op code, int a, int b = -1, scalar_fn fn = nullptr, const law* node = nullptr) {
        double folded;
        if (is_constant(a) && (b < 0 || is_constant(b)) && fold(code, a, b, fn, folded))
            return constant(folded);
        // Shared by structure.  A division's 0/0 goes to the node met first, whose L'Hospital
        // value is that of any structurally equal one: derivatives are built from structure.
        const auto key =
            std::make_tuple(static_cast<int>(code), a, b, reinterpret_cast<const void*>(fn),
                            static_cast<const void*>(nullptr));
        if (auto found = shared_.find(key); found != shared_.end()) return found->second;
        // A quotient's 0/0 goes to its node at the point, which is not the substituted one.
        foreign_in_substitution_ |= substituting_ && code == op::div;
        pending I{code};
        I.a = a;
        I.b = b;
        I.fn = fn;
        I.node = node;
        I.d = result(static_cast<int>(code_.size()));
        code_.push_back(I);
        shared_.emplace(key, I.d);
        return I.d;
    }

    bool fold(op code, int a, int b, scalar_fn fn, double& out) const {
        const double x = values_[a].number;
        const double y = b >= 0 ? values_[b].number : 0.0;
        switch (code) {
            case op::add:
                out = x + y;
                return true;
            case op::sub:
                out = x - y;
                return true;
            case op::mul:
                out = x * y;
                return true;
            case op::neg:
                out = -x;
                return true;
            case op::div:
            case op::quot:
                // Beyond any sensible resabs the quotient is plain a/b.
                if (!(std::fabs(y) >= 1.0)) return false;
                out = x / y;
                return true;
            case op::pow:
                // A negative base depends on the global version and on resabs.
                if (!(x > 0.0 || (x == 0.0 && y > 0.0))) return false;
                out = std::pow(x, y);
                return true;
            case op::sin:
            case op::cos:
            case op::exp:
            case op::call:
                try {
                    out = code == op::sin   ? std::sin(x)
                          : code == op::cos ? std::cos(x)
                          : code == op::exp ? std::exp(x)
                                            : fn(x);
                } catch (const vorn_exception&) {
                    return false;  // raised by the program, when the tree would raise it
                }
                return true;
            default:
                return false;
        }
    }

    int tree_scalar(const law* l) {
        foreign_in_substitution_ |= substituting_;
        const auto key =
            std::make_tuple(static_cast<int>(op::tree_scalar), -1, -1,
                            static_cast<const void*>(nullptr), static_cast<const void*>(l));
        if (auto found = shared_.find(key); found != shared_.end()) return found->second;
        pending I{op::tree_scalar};
        I.node = l;
        I.d = result(static_cast<int>(code_.size()));
        code_.push_back(I);
        shared_.emplace(key, I.d);
        return I.d;
    }

    std::vector<int> tree_full(const law* l) {
        foreign_in_substitution_ |= substituting_;
        pending I{op::tree_full};
        I.node = l;
        const int m = l->return_dim();
        for (int j = 0; j < m; ++j) I.dests.push_back(result(static_cast<int>(code_.size())));
        code_.push_back(I);
        prog_.full_width = std::max(prog_.full_width, m);
        return code_.back().dests;
    }

    // ---- laws
    static bool scalar_operands(const binary_law* b) {
        return b->fleft() && b->fright() && b->fleft()->return_dim() == 1 &&
               b->fright()->return_dim() == 1;
    }

    /// The value law::evaluate_scalar gives, computed as the tree computes it.
    int scalar(const law* l) {
        if (auto found = scalar_memo_.find(l); found != scalar_memo_.end()) return found->second;
        // Compiling follows the tree by recursion; below this depth (a chain of hundreds of
        // thousands of terms) the rest is left to the tree, which walks long chains by a loop.
        if (depth_ >= max_compile_depth) return tree_scalar(l);
        ++depth_;
        struct leave {
            int& depth;
            ~leave() { --depth; }
        } scope{depth_};
        const int v = scalar_uncached(l);
        scalar_memo_.emplace(l, v);
        return v;
    }

    int scalar_uncached(const law* l) {
        if (l->isa(constant_law::id()))
            return constant(static_cast<const constant_law*>(l)->value());
        if (l->isa(identity_law::id())) {
            const int index = static_cast<const identity_law*>(l)->index();
            return index >= 0 ? coordinate(index) : tree_scalar(l);
        }
        const int type = l->type();
        if (l->isa(binary_law::id())) {
            const auto* bin = static_cast<const binary_law*>(l);
            op code;
            if (type == plus_law::id())
                code = op::add;
            else if (type == minus_law::id())
                code = op::sub;
            else if (type == times_law::id())
                code = op::mul;
            else if (type == division_law::id())
                code = op::div;
            else if (type == exponent_law::id())
                code = op::pow;
            else
                return tree_scalar(l);
            if (!scalar_operands(bin)) return tree_scalar(l);
            const int a = scalar(bin->fleft());
            const law* right = bin->fright();
            // x^2 is x*x in the tree too (the correctly rounded square either way).
            if (code == op::pow && right->isa(constant_law::id()) &&
                static_cast<const constant_law*>(right)->value() == 2.0)
                return emit(op::mul, a, a);
            const int b = right == bin->fleft() ? a : scalar(right);
            // A constant denominator of magnitude 1 or more meets none of the quotient's
            // special cases (they start below resabs).
            if (code == op::div && right->isa(constant_law::id()) &&
                std::fabs(static_cast<const constant_law*>(right)->value()) >= 1.0)
                code = op::quot;
            return emit(code, a, b, nullptr, l);
        }
        if (l->isa(unary_law::id())) {
            const law* sub = static_cast<const unary_law*>(l)->fsub();
            if (!sub) return tree_scalar(l);
            if (type == negate_law::id())
                return sub->return_dim() == 1 ? emit(op::neg, scalar(sub)) : tree_scalar(l);
            const scalar_fn fn = unary_function(l);
            if (!fn) return tree_scalar(l);
            const int a = scalar(sub);
            if (type == sin_law::id()) return emit(op::sin, a);
            if (type == cos_law::id()) return emit(op::cos, a);
            if (type == exp_law::id()) return emit(op::exp, a);
            return emit(op::call, a, -1, fn, l);
        }
        if (type == vector_law::id()) {
            const auto* vec = static_cast<const vector_law*>(l);
            if (vec->fsize() >= 1 && vec->fsubs() && vec->fsubs()[0])
                return scalar(vec->fsubs()[0]);
        }
        if (jet_mode_) {
            const int v = vector_product(l);
            if (v >= 0) return v;
            if (type == composite_law::id() && l->return_dim() == 1) return full(l)[0];
        }
        return tree_scalar(l);
    }

    // For jets only, the components and products of vectors as the arithmetic the tree
    // does, in its order, so that their series follow their operands' instead of their
    // symbolic derivatives.  Left to the tree where the order of the tree's own evaluation
    // is not fixed (a vector times a scalar) or an index is not a constant in range.
    static bool two_parts(const law* l) {
        const auto* m = static_cast<const multiple_law*>(l);
        return m->fsize() >= 2 && m->fsubs() && m->fsubs()[0] && m->fsubs()[1];
    }

    int vector_product(const law* l) {
        const int type = l->type();
        if ((type != term_law::id() && type != dot_law::id()) || !two_parts(l)) return -1;
        const law* left = static_cast<const multiple_law*>(l)->fsubs()[0];
        const law* right = static_cast<const multiple_law*>(l)->fsubs()[1];
        const int ln = left->return_dim(), rn = right->return_dim();
        if (type == term_law::id()) {
            if (!right->isa(constant_law::id()) || rn != 1) return -1;
            const double index = static_cast<const constant_law*>(right)->value();
            if (!(index >= 1.0 && index < ln + 1.0)) return -1;
            return full(left)[static_cast<std::size_t>(index - 1.0)];
        }
        if (ln == 1) {
            const int a = scalar(left);
            return emit(op::mul, a, left == right ? a : scalar(right));
        }
        if (rn == 1) return -1;
        const std::vector<int> a = full(left);
        const std::vector<int> b = left == right ? a : full(right);
        int sum = constant(0.0);
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
            sum = emit(op::add, sum, emit(op::mul, a[i], b[i]));
        return sum;
    }

    // A composition f(g) for jets: f compiled over g's values as its coordinates, when
    // every part of f is then computed by instructions (none reads the point itself).
    // Otherwise everything made for it is undone and the tree takes it.
    bool composition(const law* l, std::vector<int>& out) {
        const auto* c = static_cast<const binary_law*>(l);
        const law* outer = c->fleft();
        const law* inner = c->fright();
        if (!outer || !inner || substituting_) return false;
        const int m = inner->return_dim();
        if (m < 1 || outer->take_dim() > m) return false;  // the tree raises LAW_DIM
        const auto saved = std::make_tuple(values_, code_, constants_, coordinates_, shared_,
                                           scalar_memo_, full_memo_, prog_.full_width);
        std::vector<int> args = m == 1 ? std::vector<int>{scalar(inner)} : full(inner);
        auto scalars = std::move(scalar_memo_);
        auto fulls = std::move(full_memo_);
        scalar_memo_.clear();
        full_memo_.clear();
        subst_ = std::move(args);
        substituting_ = true;
        foreign_in_substitution_ = false;
        out = full(outer);
        substituting_ = false;
        scalar_memo_ = std::move(scalars);
        full_memo_ = std::move(fulls);
        if (!foreign_in_substitution_) return true;
        std::tie(values_, code_, constants_, coordinates_, shared_, scalar_memo_, full_memo_,
                 prog_.full_width) = saved;
        return false;
    }

    std::vector<int> cross_product(const law* l) {
        const law* left = static_cast<const multiple_law*>(l)->fsubs()[0];
        const law* right = static_cast<const multiple_law*>(l)->fsubs()[1];
        const int zero = constant(0.0);
        if (left == right) return {zero, zero, zero};
        std::vector<int> a = full(left), b = full(right);
        a.resize(3, zero);
        b.resize(3, zero);
        auto minor = [&](int i, int j) {
            return emit(op::sub, emit(op::mul, a[i], b[j]), emit(op::mul, a[j], b[i]));
        };
        return {minor(1, 2), minor(2, 0), minor(0, 1)};
    }

    /// The values law::evaluate writes, computed as the tree computes them.
    std::vector<int> full(const law* l) {
        if (auto found = full_memo_.find(l); found != full_memo_.end()) return found->second;
        std::vector<int> v = full_uncached(l);
        full_memo_.emplace(l, v);
        return v;
    }

    std::vector<int> full_uncached(const law* l) {
        if (l->type() == vector_law::id()) {
            const auto* vec = static_cast<const vector_law*>(l);
            const int n = vec->fsize();
            bool present = vec->fsubs() != nullptr;
            for (int i = 0; present && i < n; ++i) present = vec->fsubs()[i] != nullptr;
            if (!present) return tree_full(l);
            std::vector<int> v;
            for (int i = 0; i < n; ++i) v.push_back(scalar(vec->fsubs()[i]));
            return v;
        }
        if (jet_mode_ && l->type() == cross_law::id() && two_parts(l)) return cross_product(l);
        if (jet_mode_ && l->type() == composite_law::id()) {
            std::vector<int> v;
            if (composition(l, v)) return v;
        }
        // For these one-value laws evaluate and evaluate_scalar compute the same thing.
        const bool product =
            jet_mode_ && (l->type() == dot_law::id() || l->type() == term_law::id());
        if (l->return_dim() == 1 && (native_scalar(l) || product)) return {scalar(l)};
        return tree_full(l);
    }

    static bool native_scalar(const law* l) {
        if (l->isa(constant_law::id()) || l->isa(identity_law::id())) return true;
        const int type = l->type();
        if (l->isa(binary_law::id()))
            return type == plus_law::id() || type == minus_law::id() || type == times_law::id() ||
                   type == division_law::id() || type == exponent_law::id();
        return l->isa(unary_law::id()) && (type == negate_law::id() || unary_function(l));
    }

    // ---- passes
    template <class F>
    static void for_operands(const pending& I, F&& f) {
        if (I.a >= 0) f(I.a);
        if (I.b >= 0 && I.b != I.a) f(I.b);
        if (I.c >= 0 && I.c != I.a && I.c != I.b) f(I.c);
    }
    template <class F>
    static void for_dests(const pending& I, F&& f) {
        if (I.d >= 0) f(I.d);
        if (I.d2 >= 0) f(I.d2);
        for (int v : I.dests) f(v);
    }

    void count_uses() {
        for (const pending& I : code_) {
            if (I.a >= 0) ++values_[I.a].uses;
            if (I.b >= 0) ++values_[I.b].uses;
        }
        for (int v : outputs_) {
            ++values_[v].uses;
            values_[v].output = true;
        }
    }

    /// The single-use product of `v`, or null.
    pending* product_of(int v) {
        const value& val = values_[v];
        if (val.k != kind::result || val.uses != 1 || val.output) return nullptr;
        pending& def = code_[val.def];
        return def.code == op::mul && !def.dead ? &def : nullptr;
    }

    // a*b+c, c+a*b, a*b-c and c-a*b in one instruction each, the operands in the tree's
    // order, each operation still rounded on its own.
    void fuse_products() {
        for (pending& I : code_) {
            if (I.dead || (I.code != op::add && I.code != op::sub)) continue;
            const bool add = I.code == op::add;
            const int left = I.a, right = I.b;
            pending* m = product_of(left);
            if (m) {
                I.code = add ? op::muladd : op::mulsub;
                I.c = right;
            } else if ((m = product_of(right))) {
                I.code = add ? op::addmul : op::submul;
                I.c = left;
            } else {
                continue;
            }
            I.a = m->a;
            I.b = m->b;
            m->dead = true;
        }
    }

    // sin and cos of one value by one call: glibc's sincos gives the bits sin and cos give.
    // The pair is computed where the first of the two was; neither raises, so no error
    // moves.
    void fuse_sincos() {
        std::unordered_map<int, int> sine, cosine;  // operand value -> instruction
        for (int i = 0; i < static_cast<int>(code_.size()); ++i) {
            const pending& I = code_[i];
            if (I.code == op::sin) sine.try_emplace(I.a, i);
            if (I.code == op::cos) cosine.try_emplace(I.a, i);
        }
        for (const auto& [operand, si] : sine) {
            const auto found = cosine.find(operand);
            if (found == cosine.end()) continue;
            const int ci = found->second;
            const int first = std::min(si, ci), second = std::max(si, ci);
            const int sin_value = code_[si].d, cos_value = code_[ci].d;
            pending& F = code_[first];
            F.code = op::sincos;
            F.d = sin_value;
            F.d2 = cos_value;
            code_[second].dead = true;
            values_[sin_value].def = values_[cos_value].def = first;
        }
    }

    // Constants first, then coordinates, then the results, each result's slot given back
    // after its last use.  A result's slot is taken before its operands' are given back,
    // so that no instruction writes a slot it reads.
    void assign_slots() {
        const int ncode = static_cast<int>(code_.size());
        for (int i = 0; i < ncode; ++i)
            if (!code_[i].dead) for_operands(code_[i], [&](int v) { values_[v].last_use = i; });
        auto referenced = [&](const value& v) { return v.last_use >= 0 || v.output; };
        law_internal::slot_pool slots;
        for (value& v : values_) {
            if (v.k != kind::constant || !referenced(v)) continue;
            v.slot = slots.fresh();
            prog_.consts.push_back(v.number);
        }
        for (value& v : values_) {
            if (v.k != kind::input || !referenced(v)) continue;
            v.slot = slots.fresh();
            prog_.input_slots.emplace_back(v.coordinate, v.slot);
        }
        lowered_.assign(code_.size(), -1);
        for (int i = 0; i < ncode; ++i) {
            const pending& P = code_[i];
            if (P.dead) continue;
            for_dests(P, [&](int v) { values_[v].slot = slots.take(); });
            for_operands(P, [&](int v) {
                const value& w = values_[v];
                if (w.k == kind::result && w.last_use == i && !w.output) slots.give(w.slot);
            });
            for_dests(P, [&](int v) {
                if (!referenced(values_[v])) slots.give(values_[v].slot);
            });
            lowered_[i] = static_cast<int>(prog_.code.size());
            prog_.code.push_back(lower(P));
        }
        prog_.slots = slots.count;
        prog_.bound_output.assign(static_cast<std::size_t>(slots.count), -1);
        for (int j = 0; j < static_cast<int>(outputs_.size()); ++j) {
            const value& v = values_[outputs_[j]];
            prog_.output_slot.push_back(v.slot);
            if (v.k == kind::result && prog_.bound_output[v.slot] < 0)
                prog_.bound_output[v.slot] = j;
        }
        build_point_code();
    }

    // One stream for one point: the constants and coordinates into their slots, the code,
    // the outputs out.
    void build_point_code() {
        std::vector<instr>& pc = prog_.point_code;
        std::vector<instr> body = with_immediates(prog_.code);
        // Only the constants still read from their slots are loaded.
        const int nconst = static_cast<int>(prog_.consts.size());
        std::vector<bool> read(static_cast<std::size_t>(nconst), false);
        auto mark = [&](int s) {
            if (s >= 0 && s < nconst) read[static_cast<std::size_t>(s)] = true;
        };
        for (const instr& I : body) {
            if (I.code == op::tree_full) continue;  // its a and b are not slots
            mark(I.a);
            mark(I.b);
            if (I.code != op::sincos) mark(I.c);
        }
        for (int s : prog_.output_slot) mark(s);
        for (int s = 0; s < nconst; ++s) {
            if (!read[static_cast<std::size_t>(s)]) continue;
            instr I;
            I.code = op::constant;
            I.d = s;
            I.k = prog_.consts[static_cast<std::size_t>(s)];
            pc.push_back(I);
        }
        for (const auto& [coordinate, slot] : prog_.input_slots) {
            instr I;
            I.code = op::input;
            I.d = slot;
            I.a = coordinate;
            pc.push_back(I);
        }
        const std::size_t first = pc.size();
        pc.insert(pc.end(), body.begin(), body.end());
        for (std::size_t j = 0; j < prog_.output_slot.size(); ++j) {
            // Written by the instruction that computes it where it can be.
            const value& v = values_[outputs_[j]];
            if (v.k == kind::result && j <= INT16_MAX) {
                instr& W = pc[first + static_cast<std::size_t>(lowered_[v.def])];
                if (W.code != op::sincos && W.code != op::tree_full && W.out < 0) {
                    W.out = static_cast<std::int16_t>(j);
                    continue;
                }
            }
            instr I;
            I.code = op::output;
            I.d = prog_.output_slot[j];
            I.a = static_cast<int>(j);
            pc.push_back(I);
        }
    }

    // A constant operand carried in the instruction: one load less, and no slot to fill.
    std::vector<instr> with_immediates(std::vector<instr> body) const {
        const int nconst = static_cast<int>(prog_.consts.size());
        auto constant_slot = [&](int s) { return s >= 0 && s < nconst; };
        for (instr& I : body) {
            static constexpr std::pair<op, op> second[] = {{op::add, op::add_k},
                                                           {op::sub, op::sub_k},
                                                           {op::mul, op::mul_k},
                                                           {op::quot, op::quot_k}};
            static constexpr std::pair<op, op> third[] = {{op::muladd, op::muladd_k},
                                                          {op::addmul, op::addmul_k},
                                                          {op::mulsub, op::mulsub_k},
                                                          {op::submul, op::submul_k}};
            for (const auto& [plain, immediate] : second)
                if (I.code == plain && constant_slot(I.b)) {
                    I.code = immediate;
                    I.k = prog_.consts[static_cast<std::size_t>(I.b)];
                    I.b = -1;
                }
            for (const auto& [plain, immediate] : third)
                if (I.code == plain && constant_slot(I.c)) {
                    I.code = immediate;
                    I.k = prog_.consts[static_cast<std::size_t>(I.c)];
                    I.c = -1;
                }
        }
        return body;
    }

    instr lower(const pending& P) {
        auto slot = [&](int v) { return v >= 0 ? values_[v].slot : -1; };
        instr I;
        I.code = P.code;
        I.d = slot(P.d);
        I.a = slot(P.a);
        I.b = slot(P.b);
        I.c = P.code == op::sincos ? slot(P.d2) : slot(P.c);
        if (P.code == op::call)
            I.fn = P.fn;
        else
            I.node = P.node;
        if (P.code == op::tree_full) {
            I.a = static_cast<int>(prog_.dests.size());
            I.b = static_cast<int>(P.dests.size());
            for (int v : P.dests) prog_.dests.push_back(values_[v].slot);
        }
        return I;
    }

    law_program_impl& prog_;
    bool jet_mode_ = false;
    std::vector<int> subst_;  // a composition's outer law: coordinate i is value subst_[i]
    bool substituting_ = false;
    bool foreign_in_substitution_ = false;
    std::vector<value> values_;
    std::vector<pending> code_;
    std::vector<int> outputs_;
    std::vector<int> lowered_;  // per instruction: its index in the program, or -1
    std::unordered_map<std::uint64_t, int> constants_;
    std::unordered_map<int, int> coordinates_;
    std::map<std::tuple<int, int, int, const void*, const void*>, int> shared_;
    static constexpr int max_compile_depth = 2000;
    int depth_ = 0;
    std::unordered_map<const law*, int> scalar_memo_;
    std::unordered_map<const law*, std::vector<int>> full_memo_;
};

}  // namespace

// ============================================================== public interface

law_program::law_program(law_program_impl* impl) : impl_(impl) {}

law_program::~law_program() {
    delete impl_;
}

int law_program::input_count() const {
    return impl_->inputs;
}
int law_program::output_count() const {
    if (impl_->jet) return law_internal::jet_output_count(*impl_->jet);
    return static_cast<int>(impl_->output_slot.size());
}
int law_program::law_count() const {
    return static_cast<int>(impl_->laws.size());
}
int law_program::first_output(int i) const {
    return impl_->first_output[static_cast<std::size_t>(i)];
}
int law_program::instruction_count() const {
    if (impl_->jet) return law_internal::jet_instruction_count(*impl_->jet);
    return static_cast<int>(impl_->code.size());
}
int law_program::tree_instruction_count() const {
    if (impl_->jet) return law_internal::jet_tree_instruction_count(*impl_->jet);
    return static_cast<int>(std::count_if(
        impl_->code.begin(), impl_->code.end(),
        [](const instr& I) { return I.code == op::tree_scalar || I.code == op::tree_full; }));
}

void law_program::evaluate(const double* x, double* out) const {
    if (impl_->jet) return law_internal::jet_evaluate(*impl_->jet, x, out);
    impl_->evaluate(x, out);
}

void law_program::evaluate_batch(int npoints, const double* const* inputs,
                                 double* const* outputs) const {
    // Every array the program reads or writes must be there before the first point.
    if (npoints > 0) {
        if ((impl_->inputs > 0 && !inputs) || !outputs) sys_error(LAW_DIM);
        for (int k = 0; k < impl_->inputs; ++k)
            if (!inputs[k]) sys_error(LAW_DIM);
        for (int j = 0; j < output_count(); ++j)
            if (!outputs[j]) sys_error(LAW_DIM);
    }
    if (impl_->jet)
        return law_internal::jet_evaluate_batch(*impl_->jet, impl_->inputs, npoints, inputs,
                                                outputs);
    impl_->evaluate_batch(npoints, inputs, outputs);
}

law_program* law_compile(law* const* laws, int n) {
    // No laws or a null one: the arguments have the wrong dimensions, as for the numerics.
    if (n < 1 || !laws) sys_error(LAW_DIM);
    for (int i = 0; i < n; ++i)
        if (!laws[i]) sys_error(LAW_DIM);
    std::unique_ptr<law_program_impl> impl(new law_program_impl);
    for (int i = 0; i < n; ++i) {
        law::add(laws[i]);
        impl->laws.push_back(laws[i]);
    }
    program_builder builder(*impl);
    for (int i = 0; i < n; ++i) builder.add_law(laws[i]);
    builder.finish();
    return new law_program(impl.release());
}

void law_program_release(law_program* program) {
    delete program;
}

namespace {

// `hold_uses` false for a program kept with its own law, which must not count itself.
law_program* compile_jet(law* const* laws, int n, int order, int which, bool hold_uses) {
    if (n < 1 || !laws || order < 0 || order > law_jet_max_order || which < 0) sys_error(LAW_DIM);
    for (int i = 0; i < n; ++i)
        if (!laws[i]) sys_error(LAW_DIM);
    std::unique_ptr<law_program_impl> impl(new law_program_impl);
    for (int i = 0; hold_uses && i < n; ++i) {
        law::add(laws[i]);
        impl->laws.push_back(laws[i]);
    }
    law_internal::program_listing listing;
    program_builder builder(*impl, true);
    for (int i = 0; i < n; ++i) builder.add_law(laws[i]);
    builder.export_listing(listing);
    impl->jet = law_internal::jet_build(listing, order, which);
    for (int& first : impl->first_output) first *= order + 1;
    return law_internal::wrap_program(impl.release());
}

}  // namespace

law_program* law_internal::wrap_program(law_program_impl* impl) {
    return new law_program(impl);
}

law_program* law_compile_jet(law* const* laws, int n, int order, int which) {
    return compile_jet(laws, n, order, which, true);
}

law_program* law_internal::compile_jet_unheld(const law* f, int order, int which) {
    law* laws[] = {const_cast<law*>(f)};
    return compile_jet(laws, 1, order, which, false);
}
