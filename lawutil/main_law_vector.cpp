#include <lawutil/main_law.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include <lawutil/internal/arith_rules.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/main_law_util.h>
#include <lawutil/internal/simplify_util.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_registry.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/tolerance.h>
#include <qem/version.h>

using law_internal::constant_value;
using law_internal::fire;
using law_internal::fold_sum;
using law_internal::is_constant;
using law_internal::is_constant_value;
using law_internal::is_zero_part;
using law_internal::numbered_text;
using law_internal::scalar_vector;
using law_internal::value_buffer;
using law_internal::vector_of;

// ============================================================== vectors

vector_law::vector_law(law** subs, int size) : multiple_law(subs, size) {}

int vector_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1;
    for (int i = 0; ok && i < size; ++i) ok = check_return_dim(subs[i], 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* vector_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new vector_law(subs, size);
}

void vector_law::evaluate(const double* x, double* answer) const {
    for (int i = 0; i < law_count_; ++i) {
        if (!sub_laws_ || !sub_laws_[i]) law_operand::raise_missing();
        answer[i] = sub_laws_[i]->evaluate_scalar(x);
    }
}

double vector_law::evaluate_scalar(const double* x) const {
    if (law_count_ < 1 || !sub_laws_ || !sub_laws_[0]) law_operand::raise_missing();
    return sub_laws_[0]->evaluate_scalar(x);
}

law* vector_law::deriv(int which) const {
    const int n = law_count_;
    QEM::scoped_heap_array<law*> parts(QEM_ALLOC_ARRAY(law*, static_cast<size_t>(n > 0 ? n : 1)));
    int made = 0;
    QEM::scope_exit release([&] {
        for (int i = 0; i < made; ++i) remove(parts[i]);
    });
    for (; made < n; ++made) {
        if (!sub_laws_ || !sub_laws_[made]) law_operand::raise_missing();
        parts[made] = sub_laws_[made]->derivative(which);
    }
    return new vector_law(parts.get(), n);
}

// vec(0)=0 and vec(c)=c: a vector of one constant component is that constant (the same
// value and dimension).  A zero vector of several components is left alone: a scalar 0
// in its place would change the law's dimension.
law* vector_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (law_count_ != 1 || !sub_laws_ || !is_constant(sub_laws_[0])) return nullptr;
    const char* rule = is_constant_value(sub_laws_[0], 0.0) ? "vec(0)=0" : "vec(c)=c";
    return fire(name, rule, law_ref::retain(sub_laws_[0]));
}

term_law::term_law(law** subs, int size) : multiple_law(subs, size) {}

int term_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    if (!subs || size != 2 || !subs[0] || !check_return_dim(subs[1], 1)) {
        toxic_law_error();
        return 0;
    }
    return 1;
}

law* term_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new term_law(subs, size);
}

void term_law::evaluate(const double* x, double* answer) const {
    if (law_count_ != 2 || !sub_laws_ || !sub_laws_[0] || !sub_laws_[1])
        law_operand::raise_missing();
    const law* v = sub_laws_[0];
    const int n = v->return_dim();
    value_buffer values(n);
    v->evaluate(x, values.data());
    // Indices are 1-based in the language: TERM(V,1) is the first component.
    const int k = safe_convert_to_int(sub_laws_[1]->evaluate_scalar(x) - 1.0);
    if (k < 0 || k >= n) sys_error(LAW_DIM);
    answer[0] = values[k];
}

law* term_law::deriv(int which) const {
    if (law_count_ != 2 || !sub_laws_ || !sub_laws_[0]) law_operand::raise_missing();
    law_ref dv = law_ref::adopt(sub_laws_[0]->derivative(which));
    law* parts[2] = {dv.get(), sub_laws_[1]};
    return new term_law(parts, 2);
}

// term(vec)=sub: TERM(VEC(f1, ..., fn), k) with a constant index is the component that
// evaluation would pick (the same truncation), when that component is scalar.
law* term_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (law_count_ != 2 || !sub_laws_ || !sub_laws_[0] || !is_constant(sub_laws_[1]) ||
        !sub_laws_[0]->isa(vector_law_id))
        return nullptr;
    auto* v = static_cast<const vector_law*>(sub_laws_[0]);
    const double shifted = constant_value(sub_laws_[1]) - 1.0;
    if (!(shifted > -1.0 && shifted < v->fsize()) || !v->fsubs()) return nullptr;
    law* part = v->fsubs()[static_cast<int>(shifted)];
    if (!part || part->return_dim() != 1) return nullptr;
    return fire(name, "term(vec)=sub", law_ref::retain(part));
}

char* term_law::string(law_symbol_type type, QEM::optional<int&> count,
                       QEM::optional<law_data_node*&> list) const {
    if (type == SYMBOL_PARSE) return multiple_law::string(type, count, list);
    return numbered_text(symbol(type), sub_laws_, sub_laws_ ? law_count_ : 0, nullptr, type, count,
                         list);
}

law* make_term_law(law* v, int k) {
    law_ref index = make_law<constant_law>(static_cast<double>(k));
    law* parts[2] = {v, index.get()};
    return new term_law(parts, 2);
}

// ============================================================== dot and cross

namespace {

// The two parts of a product, as two names; a missing part cannot be evaluated.
void product_parts(law* const* subs, int count, law*& left, law*& right) {
    if (!subs || count < 2 || !subs[0] || !subs[1]) law_operand::raise_missing();
    left = subs[0];
    right = subs[1];
}

// The product rule for a product P of two laws: P(L', R) + P(L, R').
template <class P>
law* product_rule(law* const* subs, int count, int which) {
    law *l, *r;
    product_parts(subs, count, l, r);
    law_ref dl = law_ref::adopt(l->derivative(which));
    law_ref dr = law_ref::adopt(r->derivative(which));
    law_ref first = make_law<P>(dl.get(), r);
    law_ref second = make_law<P>(l, dr.get());
    return new plus_law(first.get(), second.get());
}

// make_one of a product: the check reports a wrong count or a missing part as toxic first,
// then a wrong count raises `wrong_count` (under the restore waiver too); the law is built
// over the first two parts.
template <class Product>
law* make_product(law** subs, int count, err_mess_type wrong_count) {
    Product::check(subs, count);
    if (count != 2) sys_error(wrong_count);
    law* parts[2] = {subs ? subs[0] : nullptr, subs ? subs[1] : nullptr};
    return new Product(parts, 2);
}

// The first three components of `l` at `x`, a missing one counting as 0.
void first_three(const law* l, const double* x, double* out) {
    const int n = l->return_dim();
    value_buffer values(n);
    l->evaluate(x, values.data());
    for (int i = 0; i < 3; ++i) out[i] = i < n ? values[i] : 0.0;
}

struct two_parts {
    law* part[2];
};

// The part check of the products: exactly two parts, both present.
int two_present_parts(law** subs, int size) {
    if (law_restore_waived()) return 1;
    if (size == 2 && subs && subs[0] && subs[1]) return 1;
    toxic_law_error();
    return 0;
}

}  // namespace

dot_law::dot_law(law** subs, int size) : multiple_law(subs, size) {}

dot_law::dot_law(law* left, law* right) : multiple_law(two_parts{{left, right}}.part, 2) {}

int dot_law::check(law** subs, int size) {
    return two_present_parts(subs, size);
}

law* dot_law::make_one(law** subs, int size) const {
    return make_product<dot_law>(subs, size, LAW_DOT_NUM);
}

double dot_law::evaluate_scalar(const double* x) const {
    law *l, *r;
    product_parts(sub_laws_, law_count_, l, r);
    const int ln = l->return_dim();
    const int rn = r->return_dim();
    // A scalar meets the first component of the other part only, deliberately: the same
    // rule as a scalar added to a vector.  evaluate_scalar is that first component.
    if (ln == 1) {
        const double a = l->evaluate_scalar(x);
        return a * (l == r ? a : r->evaluate_scalar(x));
    }
    if (rn == 1) return r->evaluate_scalar(x) * l->evaluate_scalar(x);
    double sum = 0.0;
    if (l == r) {
        value_buffer v(ln);
        l->evaluate(x, v.data());
        for (int i = 0; i < ln; ++i) sum += v[i] * v[i];
        return sum;
    }
    value_buffer a(ln), b(rn);
    l->evaluate(x, a.data());
    r->evaluate(x, b.data());
    // Components beyond the shorter vector meet a 0.
    const int n = std::min(ln, rn);
    for (int i = 0; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

void dot_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// (L.R)' = L'.R + L.R'
law* dot_law::deriv(int which) const {
    return product_rule<dot_law>(sub_laws_, law_count_, which);
}

cross_law::cross_law(law** subs, int size) : multiple_law(subs, size) {}

cross_law::cross_law(law* left, law* right) : multiple_law(two_parts{{left, right}}.part, 2) {}

int cross_law::check(law** subs, int size) {
    return two_present_parts(subs, size);
}

law* cross_law::make_one(law** subs, int size) const {
    return make_product<cross_law>(subs, size, LAW_CROSS_NUM);
}

void cross_law::evaluate(const double* x, double* answer) const {
    law *l, *r;
    product_parts(sub_laws_, law_count_, l, r);
    // a x a = 0 whatever a is, so the part is not evaluated at all.
    if (l == r) {
        answer[0] = answer[1] = answer[2] = 0.0;
        return;
    }
    double a[3], b[3];
    first_three(l, x, a);
    first_three(r, x, b);
    answer[0] = a[1] * b[2] - a[2] * b[1];
    answer[1] = a[2] * b[0] - a[0] * b[2];
    answer[2] = a[0] * b[1] - a[1] * b[0];
}

// (L x R)' = L' x R + L x R'
law* cross_law::deriv(int which) const {
    return product_rule<cross_law>(sub_laws_, law_count_, which);
}

// DOT(0, A) is 0 * A[0] and DOT(0vec, A) a sum of zeros: 0 whatever A is (as "0 * A = 0",
// the rule does not keep a NaN or an error of A).
law* dot_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (law_count_ != 2 || !sub_laws_ || !sub_laws_[0] || !sub_laws_[1]) return nullptr;
    if (is_zero_part(sub_laws_[0]) || is_zero_part(sub_laws_[1]))
        return fire(name, "Dot(0,A)=Dot(A,0)=0", make_law<constant_law>(0.0));
    const vector_law* a = scalar_vector(sub_laws_[0]);
    const vector_law* b = scalar_vector(sub_laws_[1]);
    if (!a || !b) return nullptr;
    // Over the shorter vector: its missing components count as 0.  A vector of one
    // component is a scalar, which meets the other's first component only: the same sum.
    std::vector<law_ref> products;
    std::vector<law*> raw;
    const int n = std::min(a->fsize(), b->fsize());
    for (int i = 0; i < n; ++i) {
        products.push_back(make_law<times_law>(a->fsubs()[i], b->fsubs()[i]));
        raw.push_back(products.back().get());
    }
    return fire(name, "dot(vec,vec)", fold_sum(raw));
}

// The zero of a cross product is the zero 3-vector, so that the law keeps its dimension.
law* cross_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (law_count_ != 2 || !sub_laws_ || !sub_laws_[0] || !sub_laws_[1]) return nullptr;
    if (is_zero_part(sub_laws_[0]) || is_zero_part(sub_laws_[1])) {
        law_ref zero = make_law<constant_law>(0.0);
        return fire(name, "Cross(0,A)=Cross(A,0)=0",
                    vector_of(3, [&](int) { return law_ref::retain(zero.get()); }));
    }
    const vector_law* a = scalar_vector(sub_laws_[0]);
    const vector_law* b = scalar_vector(sub_laws_[1]);
    if (!a || !b) return nullptr;
    // As evaluation does: components beyond the third are ignored, missing ones are 0
    // (their products drop out).
    auto product = [&](int i, int j) {
        law* p = i < a->fsize() ? a->fsubs()[i] : nullptr;
        law* q = j < b->fsize() ? b->fsubs()[j] : nullptr;
        return p && q ? make_law<times_law>(p, q) : law_ref();
    };
    // Component k is a(k+1) b(k+2) - a(k+2) b(k+1), indices mod 3.
    return fire(name, "cross(vec,vec)", vector_of(3, [&](int k) {
                    law_ref plus = product((k + 1) % 3, (k + 2) % 3);
                    law_ref minus = product((k + 2) % 3, (k + 1) % 3);
                    if (plus && minus) return make_law<minus_law>(plus.get(), minus.get());
                    if (plus) return plus;
                    if (minus) return law_internal::unary_of(negate_law_id, minus.get());
                    return make_law<constant_law>(0.0);
                }));
}

// ============================================================== prototypes

LAW_REGISTER_PROTOTYPE(vector_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(term_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(dot_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(cross_law, nullptr, 0)
