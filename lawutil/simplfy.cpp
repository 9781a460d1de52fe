#include <lawutil/simplfy.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include <lawutil/internal/law_chain.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/law_share.h>
#include <lawutil/internal/simplify_hook.h>
#include <lawutil/internal/simplify_util.h>
#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include <qem/qem_printf.h>

using namespace law_internal;

// ============================================================== rule lists

namespace {

SRule* rule_heads[3];
// Static construction order across translation units is not ours to choose: the first
// rule built clears the heads, whatever ran before.
int rule_heads_unset = 1;

// Written by every law_simplify call and read by the trace: one process-wide level, as
// concurrent calls with different levels only disturb each other's trace output.
std::atomic<int> debug_level{0};

}  // namespace

SRule::SRule(law* (*f)(law*), int list, const char* n) : fn(f), next(nullptr), name(n) {
    if (rule_heads_unset) {
        rule_heads[0] = rule_heads[1] = rule_heads[2] = nullptr;
        rule_heads_unset = 0;
    }
    next = rule_heads[list];
    rule_heads[list] = this;
}

SRule* SRule::head(int list) {
    return list >= 0 && list < 3 ? rule_heads[list] : nullptr;
}

int simplify_debug_level() {
    return debug_level.load(std::memory_order_relaxed);
}

// ============================================================== trace

namespace {

void print_law(const char* format, const law* l) {
    char* s = l ? l->string() : nullptr;
    qem_printf(format, s ? s : "NULL");
    vorn_discard(s);
}

// "name" padded to 20 columns, then "old -> new" and a blank line.
void trace_rule(const char* name, const law* before, const law* after) {
    if (!name || !*name) return;
    qem_printf("%s ", name);
    const int pad = 20 - static_cast<int>(std::strlen(name));
    for (int i = 0; i < pad; ++i) qem_printf(" ");
    print_law("%s -> ", before);
    print_law("%s ", after);
    qem_printf("\n\n");
}

}  // namespace

// ============================================================== tree helpers

namespace law_internal {

bool is_constant(const law* l) {
    return l && l->isa(constant_law_id);
}

double constant_value(const law* l) {
    return static_cast<const constant_law*>(l)->value();
}

bool is_constant_value(const law* l, double value) {
    return is_constant(l) && constant_value(l) == value;
}

bool is_integer_constant(const law* l) {
    if (!is_constant(l)) return false;
    const double v = constant_value(l);
    return std::isfinite(v) && v == std::floor(v);
}

namespace {
void collect(law* l, int type, std::vector<law*>& out) {
    if (l && l->type() == type) {
        auto* op = static_cast<binary_law*>(l);
        collect(op->fleft(), type, out);
        collect(op->fright(), type, out);
    } else {
        out.push_back(l);
    }
}
}  // namespace

std::vector<law*> flatten(const binary_law* op) {
    std::vector<law*> out;
    out.reserve(16);  // one allocation for the chains rules meet, not one per doubling
    collect(op->fleft(), op->type(), out);
    collect(op->fright(), op->type(), out);
    return out;
}

law_ref fold(const std::vector<law*>& parts, const binary_law* op) {
    if (parts.empty()) return law_ref();
    law_ref acc = law_ref::retain(parts[0]);
    for (size_t i = 1; i < parts.size(); ++i)
        acc = law_ref::adopt(op->make_one(acc.get(), parts[i]));
    return acc;
}

std::vector<law*> replace_pair(const std::vector<law*>& parts, size_t i, size_t j,
                               law* replacement) {
    std::vector<law*> out;
    for (size_t k = 0; k < parts.size(); ++k) {
        if (k == i)
            out.push_back(replacement);
        else if (k != j)
            out.push_back(parts[k]);
    }
    return out;
}

namespace {
// The sub-chain of `chain` (of `total` operands) that holds its first `count` operands,
// when both are left-deep as fold builds them (each right operand a single operand), else
// null.  For `count` 1 it is the first operand itself.
const law* left_deep_prefix(const binary_law* chain, size_t total, size_t count) {
    const int type = chain->type();
    const law* at = chain;
    for (size_t n = total; n > count; --n) {
        if (!at || at->type() != type) return nullptr;
        auto* b = static_cast<const binary_law*>(at);
        if (b->fright() && b->fright()->type() == type) return nullptr;
        at = b->fleft();
    }
    for (const law* p = at; p && p->type() == type;
         p = static_cast<const binary_law*>(p)->fleft()) {
        const law* right = static_cast<const binary_law*>(p)->fright();
        if (right && right->type() == type) return nullptr;
    }
    return at;
}
}  // namespace

law_ref replace_pair_in_chain(const binary_law* chain, const std::vector<law*>& parts, size_t i,
                              size_t j, law* replacement) {
    const std::vector<law*> out = replace_pair(parts, i, j, replacement);
    const law* prefix = i >= 2 ? left_deep_prefix(chain, parts.size(), i) : nullptr;
    if (!prefix) return fold(out, chain);
    law_ref acc = law_ref::retain(prefix);
    for (size_t k = i; k < out.size(); ++k)
        acc = law_ref::adopt(chain->make_one(acc.get(), out[k]));
    return acc;
}

law_ref fold_product(const std::vector<law*>& parts) {
    if (parts.empty()) return make_law<constant_law>(1.0);
    law_ref acc = law_ref::retain(parts[0]);
    for (size_t i = 1; i < parts.size(); ++i) acc = make_law<times_law>(acc.get(), parts[i]);
    return acc;
}

law_ref fold_sum(const std::vector<law*>& parts) {
    if (parts.empty()) return make_law<constant_law>(0.0);
    law_ref acc = law_ref::retain(parts[0]);
    for (size_t i = 1; i < parts.size(); ++i) acc = make_law<plus_law>(acc.get(), parts[i]);
    return acc;
}

law* power_base(law* f, double* power) {
    if (!f || !f->isa(exponent_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(f);
    if (!is_constant(op->fright())) return nullptr;
    *power = constant_value(op->fright());
    return op->fleft();
}

void split_power(law* f, law_ref& base, law_ref& exponent) {
    if (f && f->isa(exponent_law_id)) {
        auto* op = static_cast<binary_law*>(f);
        base = law_ref::retain(op->fleft());
        exponent = law_ref::retain(op->fright());
    } else {
        base = law_ref::retain(f);
        exponent = make_law<constant_law>(1.0);
    }
}

scaled split_scale(const law* l) {
    scaled out;
    if (is_constant(l)) {
        out.factor = constant_value(l);
        return out;
    }
    if (!l->isa(times_law_id)) {
        out.rest = law_ref::retain(l);
        return out;
    }
    std::vector<law*> others;
    for (law* f : flatten(static_cast<const binary_law*>(l))) {
        if (is_constant(f))
            out.factor *= constant_value(f);
        else
            others.push_back(f);
    }
    if (!others.empty()) out.rest = fold_product(others);
    return out;
}

bool same_factors(const std::vector<law*>& a, const std::vector<law*>& b) {
    if (a.size() != b.size()) return false;
    std::vector<bool> used(b.size(), false);
    for (law* x : a) {
        bool found = false;
        for (size_t j = 0; j < b.size() && !found; ++j)
            if (!used[j] && x && b[j] && *x == *b[j]) used[j] = found = true;
        if (!found) return false;
    }
    return true;
}

std::vector<law*> factors_of(const law* l) {
    if (l && l->isa(times_law_id)) return flatten(static_cast<const binary_law*>(l));
    return {const_cast<law*>(l)};
}

bool same_product(const law* a, const law* b) {
    if (!a || !b) return a == b;
    return same_factors(factors_of(a), factors_of(b));
}

}  // namespace law_internal

// ============================================================== public tree helpers

law** get_asso_list(const binary_law* op, int& n) {
    std::vector<law*> operands = flatten(op);
    n = static_cast<int>(operands.size());
    law** out = QEM_ALLOC_ARRAY(law*, operands.size());
    for (size_t i = 0; i < operands.size(); ++i) out[i] = operands[i];
    return out;
}

law* make_list_law(law** list, int n, const binary_law* op) {
    return fold(std::vector<law*>(list, list + n), op).release();
}

double law_multiple(const law* a, const law* b) {
    if (!a || !b) return 0.0;
    if (*a == *b) return 1.0;
    // Two sums are multiples when their terms are, term by term, with one factor.
    if (a->isa(plus_law_id) && b->isa(plus_law_id)) {
        const std::vector<law*> ta = flatten(static_cast<const binary_law*>(a));
        const std::vector<law*> tb = flatten(static_cast<const binary_law*>(b));
        if (ta.size() != tb.size()) return 0.0;
        const double m = law_multiple(ta[0], tb[0]);
        for (size_t i = 1; i < ta.size() && m != 0.0; ++i)
            if (law_multiple(ta[i], tb[i]) != m) return 0.0;
        return m;
    }
    const scaled sa = split_scale(a);
    const scaled sb = split_scale(b);
    if (sa.factor == 0.0 || !same_product(sa.rest.get(), sb.rest.get())) return 0.0;
    return sb.factor / sa.factor;
}

namespace {

// Splits a product into the factors with non-negative powers and, for factors with a
// negative constant power, their bases raised to the opposite power.
void split_fraction(const law* l, std::vector<law_ref>& top, std::vector<law_ref>& bottom) {
    if (l->isa(division_law_id)) {
        auto* d = static_cast<const binary_law*>(l);
        top.push_back(law_ref::retain(d->fleft()));
        bottom.push_back(law_ref::retain(d->fright()));
        return;
    }
    for (law* f : factors_of(l)) {
        double power = 0.0;
        law* base = power_base(f, &power);
        if (base && power < 0.0) {
            if (power == -1.0)
                bottom.push_back(law_ref::retain(base));
            else
                bottom.push_back(
                    make_law<exponent_law>(base, make_law<constant_law>(-power).get()));
        } else {
            top.push_back(law_ref::retain(f));
        }
    }
}

law* product_of(std::vector<law_ref>& parts) {
    if (parts.empty()) return new constant_law(1.0);
    std::vector<law*> raw;
    for (auto& p : parts) raw.push_back(p.get());
    return fold_product(raw).release();
}

}  // namespace

law* numerator(const law* l) {
    std::vector<law_ref> top, bottom;
    split_fraction(l, top, bottom);
    return product_of(top);
}

law* denominator(const law* l) {
    std::vector<law_ref> top, bottom;
    split_fraction(l, top, bottom);
    return product_of(bottom);
}

// ============================================================== general rules

namespace {

law_ref constant_of(const law* l) {
    return make_law<constant_law>(l->eval(1.0));
}

// opC=C: a function of a constant is that constant.
law* rule_unary_constant(law* l) {
    if (!l->isa(unary_law_id) || l->return_dim() != 1) return nullptr;
    const law* sub = static_cast<unary_law*>(l)->fsub();
    if (!is_constant(sub)) return nullptr;
    return constant_of(l).release();
}

// The constant operands of the chain of `op`'s operator, counted up to `enough`.  The
// left spine is walked in a loop (chains grow to the left); a right operand of the same
// operator, rare and short, by recursion.
int constants_in_chain(const binary_law* op, int enough) {
    int found = 0;
    for (const law* at = op; found < enough;) {
        auto* b = static_cast<const binary_law*>(at);
        const law* right = b->fright();
        if (right && right->type() == op->type())
            found += constants_in_chain(static_cast<const binary_law*>(right), enough - found);
        else
            found += is_constant(right);
        const law* left = b->fleft();
        if (!left || left->type() != op->type()) return found + is_constant(left);
        at = left;
    }
    return found;
}

// C op C = C: an operator over constants is a constant; for an associative and
// commutative operator, two or more constant operands anywhere in the chain fold into one,
// placed after the other operands.
law* rule_fold_constants(law* l) {
    if (!l->isa(binary_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (is_constant(op->fleft()) && is_constant(op->fright())) {
        if (l->return_dim() != 1) return nullptr;
        return constant_of(l).release();
    }
    if (!op->associative() || !op->commutative()) return nullptr;
    if (constants_in_chain(op, 2) < 2) return nullptr;  // the usual case: no list built
    std::vector<law*> constants, others;
    for (law* operand : flatten(op)) (is_constant(operand) ? constants : others).push_back(operand);
    if (constants.size() < 2) return nullptr;
    law_ref folded = constant_of(fold(constants, op).get());
    if (others.empty()) return folded.release();
    others.push_back(folded.get());
    return fold(others, op).release();
}

// A op C = C op A: constants move to the left of associative, commutative operators.
law* rule_constant_left(law* l) {
    if (!l->isa(binary_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (!op->associative() || !op->commutative()) return nullptr;
    if (!is_constant(op->fright()) || is_constant(op->fleft())) return nullptr;
    return op->make_one(op->fright(), op->fleft());
}

// The class rules of the law's own class, applied as long as one fires.
law* rule_class_rules(law* l) {
    law_ref current;
    const law* at = l;
    for (;;) {
        const char* name = nullptr;
        law_ref next = law_ref::adopt(at->sub_simplify(0, QEM::optional<const char*&>(name)));
        if (!next) break;
        if (simplify_debug_level()) trace_rule(name, at, next.get());
        current = std::move(next);
        at = current.get();
    }
    return current.release();
}

// mA/A = m: a quotient whose numerator is a constant multiple of its denominator.
law* rule_quotient_multiple(law* l) {
    law_ref top = law_ref::adopt(numerator(l));
    law_ref bottom = law_ref::adopt(denominator(l));
    if (is_constant(top.get()) || is_constant(bottom.get())) return nullptr;
    const double m = law_multiple(bottom.get(), top.get());
    if (m == 0.0) return nullptr;
    return new constant_law(m);
}

// mA^B*A^C=m^B*A^(B+C): two factors of a product whose bases are constant multiples of
// one another (a factor that is not a power is its own base to the power 1; constants
// never pair), with m > 0 or integer powers.  m^B is left out when m is 1.
law* rule_power_multiple(law* l) {
    if (!l->isa(times_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    std::vector<law*> factors = flatten(op);
    for (size_t i = 0; i < factors.size(); ++i) {
        if (is_constant(factors[i])) continue;
        for (size_t j = i + 1; j < factors.size(); ++j) {
            if (is_constant(factors[j])) continue;
            law_ref bi, ei, bj, ej;
            split_power(factors[i], bi, ei);
            split_power(factors[j], bj, ej);
            const double m = law_multiple(bj.get(), bi.get());  // base i = m * base j
            if (m == 0.0 || bi->return_dim() != 1) continue;
            // (mA)^B = m^B A^B needs m > 0 unless the powers are integers.
            if (m < 0.0 && !(is_integer_constant(ei.get()) && is_integer_constant(ej.get())))
                continue;
            std::vector<law_ref> keep;
            std::vector<law*> rebuilt;
            if (m != 1.0)
                keep.push_back(make_law<exponent_law>(make_law<constant_law>(m).get(), ei.get()));
            law_ref sum = make_law<plus_law>(ei.get(), ej.get());
            keep.push_back(make_law<exponent_law>(bj.get(), sum.get()));
            for (size_t k = 0; k < factors.size(); ++k) {
                if (k == i) {
                    for (size_t r = 0; r < keep.size(); ++r) rebuilt.push_back(keep[r].get());
                } else if (k != j) {
                    rebuilt.push_back(factors[k]);
                }
            }
            return fold(rebuilt, op).release();
        }
    }
    return nullptr;
}

// (-A)/B=-(A/B)
law* rule_negated_numerator(law* l) {
    if (!l->isa(division_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (!op->fleft() || !op->fleft()->isa(negate_law_id)) return nullptr;
    law_ref quotient =
        make_law<division_law>(static_cast<unary_law*>(op->fleft())->fsub(), op->fright());
    return new negate_law(quotient.get());
}

// A-(-(B))=A+B
law* rule_minus_negated(law* l) {
    if (!l->isa(minus_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (!op->fright() || !op->fright()->isa(negate_law_id)) return nullptr;
    return new plus_law(op->fleft(), static_cast<unary_law*>(op->fright())->fsub());
}

// A+-(B)=A-B
law* rule_plus_negated(law* l) {
    if (!l->isa(plus_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (!op->fright() || !op->fright()->isa(negate_law_id)) return nullptr;
    return new minus_law(op->fleft(), static_cast<unary_law*>(op->fright())->fsub());
}

// (-c)*A=-(c*A), and (-1)*A=-(A) when c is -1 to within 1e-14.
law* rule_negative_factor(law* l) {
    if (!l->isa(times_law_id)) return nullptr;
    auto* op = static_cast<binary_law*>(l);
    if (!is_constant(op->fleft())) return nullptr;
    const double c = constant_value(op->fleft());
    if (!(c < 0.0)) return nullptr;
    if (std::fabs(c + 1.0) < 1e-14) return new negate_law(op->fright());
    law_ref scaled = make_law<times_law>(make_law<constant_law>(-c).get(), op->fright());
    return new negate_law(scaled.get());
}

// The lists, in construction order; each is walked in the reverse order.
SRule fold_constants(rule_fold_constants, 0, "C op C = C");
SRule unary_constant(rule_unary_constant, 0, "opC=C");
SRule constant_left(rule_constant_left, 0, "A op C = C op A");
SRule class_rules(rule_class_rules, 0, "");

SRule power_multiple(rule_power_multiple, 1, "mA^B*A^C=m^B*A^(B+C)");
SRule quotient_multiple(rule_quotient_multiple, 1, "mA/A = m");

SRule negative_factor(rule_negative_factor, 2, "(-c)*A=-(c*A)");
SRule plus_negated(rule_plus_negated, 2, "A+-(B)=A-B");
SRule minus_negated(rule_minus_negated, 2, "A-(-(B))=A+B");
SRule negated_numerator(rule_negated_numerator, 2, "(-A)/B=-(A/B)");

}  // namespace

// ============================================================== passes

namespace {

// Thrown out of a pass nested too deeply; law_simplify then leaves the law as it is.
struct too_deep_to_simplify {};

// What one pass of one rule list made of a sub-law, remembered for the rest of the
// simplification.  The rules are functions of the law alone, so a sub-law shared by
// several parents (a derivative shares most of its tree with the law it came from) is
// rewritten once per list, not once per path to it.  The entry holds a use of the law
// it is keyed by, so that its address cannot be reused by another law meanwhile.
struct pass_result {
    law_ref input;
    law_ref output;
    int changed = 0;
};

class pass_memo {
  public:
    const pass_result* find(const law* l) const {
        auto it = results_.find(l);
        return it == results_.end() ? nullptr : &it->second;
    }
    void remember(law* in, const law_ref& out, int changed) {
        results_.emplace(in, pass_result{law_ref::retain(in), law_ref::retain(out.get()), changed});
    }

  private:
    std::unordered_map<const law*, pass_result> results_;
};

law_ref simplify_pass(law* in, int* changed, int list, pass_memo& memo);

// Children first: the same class is rebuilt over the rewritten sub-laws when any changed.
law_ref rewrite_children(law_ref l, int list, pass_memo& memo) {
    const int debug = simplify_debug_level();
    auto rebuilt = [&](law* made) {
        law_ref out = law_ref::adopt(made);
        if (debug > 2) print_law("answer %s\n", out.get());
        return out;
    };
    if (l->isa(binary_law_id)) {
        auto* op = static_cast<binary_law*>(l.get());
        int cl = 0, cr = 0;
        law_ref left = op->fleft() ? simplify_pass(op->fleft(), &cl, list, memo) : law_ref();
        law_ref right = op->fright() ? simplify_pass(op->fright(), &cr, list, memo) : law_ref();
        if (cl || cr) return rebuilt(op->make_one(left.get(), right.get()));
    } else if (l->isa(unary_law_id)) {
        auto* op = static_cast<unary_law*>(l.get());
        int c = 0;
        law_ref sub = op->fsub() ? simplify_pass(op->fsub(), &c, list, memo) : law_ref();
        if (c) return rebuilt(op->make_one(sub.get()));
    } else if (l->isa(multiple_law_id)) {
        auto* op = static_cast<multiple_law*>(l.get());
        const int n = op->fsubs() ? op->fsize() : 0;
        std::vector<law_ref> parts(static_cast<size_t>(n));
        std::vector<law*> raw(static_cast<size_t>(n), nullptr);
        int any = 0;
        for (int i = 0; i < n; ++i) {
            int c = 0;
            if (law* part = op->fsubs()[i]) {
                parts[static_cast<size_t>(i)] = simplify_pass(part, &c, list, memo);
                raw[static_cast<size_t>(i)] = parts[static_cast<size_t>(i)].get();
            }
            any |= c;
        }
        if (any) return rebuilt(op->make_one(raw.data(), n));
    }
    return l;
}

// One bottom-up pass of rule list `list` over the tree.
law_ref simplify_pass(law* in, int* changed, int list, pass_memo& memo) {
    *changed = 0;
    // A law simplified before hands back its cached form.  A form that differs from the
    // law itself still counts as a change, so that the main loop goes on to a fixed point.
    if (law* cached = in->simplified_form(list)) {
        *changed = cached != in;
        return law_ref::adopt(cached);
    }
    if (list > 0 && in->pass_keeps(list)) return law_ref::retain(in);
    if (list == 2)
        if (law* post = in->post_form()) {
            *changed = 1;
            return law_ref::adopt(post);
        }
    // A law used once is met once per pass; only shared ones are worth remembering.
    const bool shared = in->ref_count() > 1;
    if (shared)
        if (const pass_result* seen = memo.find(in)) {
            *changed = seen->changed;
            return law_ref::retain(seen->output.get());
        }
    const int debug = simplify_debug_level();
    if (debug > 2) print_law("working on %s\n", in);
    const walk_level level;  // children are rewritten first, one level deeper each
    if (level.too_deep()) throw too_deep_to_simplify{};
    law_ref l = rewrite_children(law_ref::retain(in), list, memo);
    int any = l.get() != in;
    for (SRule* rule = SRule::head(list); rule; rule = rule->next) {
        law_ref next = law_ref::adopt(rule->fn(l.get()));
        if (!next) continue;
        if (debug) trace_rule(rule->name, l.get(), next.get());
        l = std::move(next);
        any = 1;
    }
    // Only the main rules' result is remembered, at level 0, so that later passes over a
    // shared sub-tree skip it.  The extra rules and the post pass leave no record: the
    // extra rules must still see laws the main rules left alone, and a post-pass form
    // (A-B, -(A)) is not canonical, so the main rules must see it again when it comes
    // back inside a larger tree, such as a derivative built from it.
    if (list == 0) in->set_simplify(l.get(), 0);
    if (list > 0 && !any) in->set_pass_keeps(list);
    if (list == 2 && any) in->set_post_form(l.get());
    if (shared) memo.remember(in, l, any);
    *changed = any;
    return l;
}

law* simplify_to_fixed_point(const law* in, int level, int debug) {
    debug_level.store(debug, std::memory_order_relaxed);
    if (debug) print_law("\nSimplify %s\n", in);
    pass_memo memo[3];
    law_ref l = law_ref::retain(in);
    for (;;) {
        int changed0 = 0, changed1 = 0;
        l = simplify_pass(l.get(), &changed0, 0, memo[0]);
        if (debug > 2) print_law("big answer %s\n", l.get());
        if (level >= 2) {
            l = simplify_pass(l.get(), &changed1, 1, memo[1]);
            if (debug > 2) print_law("big answer %s\n", l.get());
        }
        if (!changed0 && !changed1) break;
    }
    if (debug) {
        print_law("\n%s\n", l.get());
        qem_printf("\nPost Simplify\n");
    }
    for (int changed = 1; changed;) {
        l = simplify_pass(l.get(), &changed, 2, memo[2]);
        if (debug > 2) print_law("big answer %s\n", l.get());
    }
    if (debug) qem_printf("\n");
    // Equal sub-laws become one object, so that what is built from the result (its
    // derivatives above all) is built once per distinct sub-law.
    return share_equal_parts(l.get()).release();
}

}  // namespace

// A law nested too deeply for the recursive passes is its own simplest form.
law* law_simplify(const law* in, int level, int debug) {
    if (!in) return nullptr;
    try {
        return simplify_to_fixed_point(in, level, debug);
    } catch (const too_deep_to_simplify&) {
        law::add(in);
        return const_cast<law*>(in);
    }
}

// The law base reaches the simplifier through this hook (it must not depend on the law
// classes the simplifier uses).
namespace {
const bool simplifier_installed = (law_internal::install_simplifier(law_simplify), true);
}  // namespace
