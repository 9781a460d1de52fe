#include <lawutil/main_law.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
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

using law_internal::checked_pow;
using law_internal::division_zero;
using law_internal::fire;
using law_internal::heap_string;
using law_internal::is_zero_part;
using law_internal::scalar_vector;
using law_internal::sub_text;
using law_internal::value_buffer;
using law_internal::vector_of;

namespace {

bool same_law(const law* a, const law* b) {
    if (a == b) return true;
    if (!a || !b) return false;
    return *a == *b;
}

law* copy_of(const law* l, pointer_map* pm) {
    return l ? pm_get_law(pm, l) : nullptr;
}

// A node is defined no further than its parts: the intersection of their domains.
int parts_domain(const law* const* parts, int n, int which, QEM::interval& domain) {
    domain = QEM::interval(QEM::interval_infinite);
    for (int i = 0; i < n; ++i) {
        if (!parts[i] || (i > 0 && parts[i] == parts[i - 1])) continue;
        QEM::interval part;
        parts[i]->term_domain(which, part);
        domain &= part;
    }
    return 1;
}

int parts_in_domain(const law* const* parts, int n, double* x) {
    for (int i = 0; i < n; ++i)
        if (parts[i] && !parts[i]->in_domain(x)) return 0;
    return 1;
}

// Nested applications of L'Hospital's rule inside one evaluation.
constexpr int lhospital_max_depth = 3;

}  // namespace

// ============================================================== operand reading

void law_operand::bind(const law* l) {
    if (!l) {
        kind = missing;
    } else if (l->isa(constant_law_id)) {
        kind = constant;
        value = static_cast<const constant_law*>(l)->value();
    } else if (l->isa(identity_law_id) && static_cast<const identity_law*>(l)->index() >= 0) {
        kind = variable;
        index = static_cast<const identity_law*>(l)->index();
    } else {
        kind = general;
    }
}

void law_operand::raise_missing() {
    sys_error(LAW_EVAL);
}

// ============================================================== unary_law

unary_law::unary_law(law* sub) : sub_law_(sub), missing_(!sub || sub->incomplete()) {
    add(sub_law_);
    sub_op_.bind(sub_law_);
    set_shape_hash(mix_shape_hash(1, sub_law_));
}

unary_law::unary_law(const unary_law& other)
    : law(other), sub_law_(other.sub_law_), sub_op_(other.sub_op_), missing_(other.missing_) {
    add(sub_law_);
}

unary_law::~unary_law() noexcept(false) {
    remove(sub_law_);
}

int unary_law::take_size() const {
    return sub_law_ ? sub_law_->take_dim() : 0;
}
int unary_law::return_size() const {
    return sub_law_ ? sub_law_->return_dim() : 1;
}

char* unary_law::string(law_symbol_type type, QEM::optional<int&> count,
                        QEM::optional<law_data_node*&> list) const {
    const std::string sym = symbol(type);
    const std::string arg = sub_text(sub_law_, type, count, list);
    // "-x" reads naturally; "-(a+b)" needs its parentheses.
    if (sym == "-" && !(sub_law_ && sub_law_->isa(binary_law_id))) return heap_string(sym + arg);
    return heap_string(sym + "(" + arg + ")");
}

int unary_law::same(const law* a, const law* b) const {
    return same_law(static_cast<const unary_law*>(a)->sub_law_,
                    static_cast<const unary_law*>(b)->sub_law_);
}

law* unary_law::deep_copy(pointer_map* pm) const {
    law_ref sub = law_ref::adopt(copy_of(sub_law_, pm));
    return make_one(sub.get());
}

void unary_law::hasa(int type_id, VOID_LIST& found) const {
    law::hasa(type_id, found);
    if (sub_law_) sub_law_->hasa(type_id, found);
}

void unary_law::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    law::full_size(size, 0);
    if (sub_law_) sub_law_->full_size(size, 1);
}

int unary_law::term_domain(int which, QEM::interval& domain) const {
    return parts_domain(&sub_law_, 1, which, domain);
}

int unary_law::in_domain(double* x) const {
    return parts_in_domain(&sub_law_, 1, x);
}

// ============================================================== binary_law

binary_law::binary_law(law* left, law* right) : left_law_(left), right_law_(right) {
    add(left_law_);
    add(right_law_);
    left_op_.bind(left_law_);
    right_op_.bind(right_law_);
    left_dim_ = left_law_ ? left_law_->return_dim() : 1;
    right_dim_ = right_law_ ? right_law_->return_dim() : 1;
    scalar_ = left_dim_ == 1 && right_dim_ == 1;
    same_operands_ = left_law_ == right_law_ && left_op_.kind == law_operand::general;
    missing_ = !left_law_ || !right_law_ || left_law_->incomplete() || right_law_->incomplete();
    set_shape_hash(mix_shape_hash(mix_shape_hash(2, left_law_), right_law_));
    link_chain();
}

binary_law::binary_law(const binary_law& other)
    : law(other),
      left_law_(other.left_law_),
      right_law_(other.right_law_),
      left_op_(other.left_op_),
      right_op_(other.right_op_),
      left_dim_(other.left_dim_),
      right_dim_(other.right_dim_),
      scalar_(other.scalar_),
      same_operands_(other.same_operands_),
      missing_(other.missing_),
      spine_(other.spine_) {
    add(left_law_);
    add(right_law_);
}

binary_law::~binary_law() noexcept(false) {
    remove(left_law_);
    remove(right_law_);
}

int binary_law::take_size() const {
    return std::max(left_law_ ? left_law_->take_dim() : 0, right_law_ ? right_law_->take_dim() : 0);
}

int binary_law::return_size() const {
    return std::max(left_dim_, right_dim_);
}

void binary_law::operand_vectors(const double* x, double* left, double* right) const {
    const int n = return_dim();
    for (int i = 0; i < n; ++i) left[i] = right[i] = 0.0;
    if (!left_law_ || !right_law_) law_operand::raise_missing();
    left_law_->evaluate(x, left);
    if (same_operands_)
        for (int i = 0; i < n; ++i) right[i] = left[i];
    else
        right_law_->evaluate(x, right);
}

// The operators' vector cases, out of the scalar path's way.  A scalar and a vector add
// and subtract in the first component only (deliberately not a broadcast); a scalar
// scales every component; a vector numerator is divided by a denominator clamped to at
// least 1e-15 in magnitude (its sign kept, 0 itself becoming +1e-15) without an error;
// vector powers use the first components.
void binary_law::evaluate_vectors(const double* x, double* answer, vector_op op) const {
    if (!left_law_ || !right_law_) law_operand::raise_missing();
    const int n = return_dim();
    if (op == vector_op::multiply || op == vector_op::divide) {
        if (op == vector_op::multiply && left_dim_ != 1 && right_dim_ != 1) sys_error(LAW_TIMES);
        const bool left_scalar = left_dim_ == 1 && op == vector_op::multiply;
        double s = left_scalar ? left_value(x) : right_value(x);
        if (op == vector_op::divide && std::fabs(s) < division_zero)
            s = s < 0 ? -division_zero : division_zero;
        (left_scalar ? right_law_ : left_law_)->evaluate(x, answer);
        const int m = left_scalar ? right_dim_ : left_dim_;
        for (int i = 0; i < m; ++i)
            answer[i] = op == vector_op::divide ? answer[i] / s : answer[i] * s;
        return;
    }
    value_buffer l(n), r(n);
    operand_vectors(x, l.data(), r.data());
    switch (op) {
        case vector_op::add:
            if (left_dim_ == 1 || right_dim_ == 1) {
                for (int i = 0; i < n; ++i) answer[i] = left_dim_ == 1 ? r[i] : l[i];
                answer[0] = l[0] + r[0];
            } else {
                for (int i = 0; i < n; ++i) answer[i] = l[i] + r[i];
            }
            break;
        case vector_op::subtract:
            if (left_dim_ == 1) {
                for (int i = 0; i < n; ++i) answer[i] = -r[i];
            } else if (right_dim_ == 1) {
                for (int i = 0; i < n; ++i) answer[i] = l[i];
            } else {
                for (int i = 0; i < n; ++i) answer[i] = l[i] - r[i];
            }
            answer[0] = l[0] - r[0];
            break;
        default:
            answer[0] = checked_pow(l[0], r[0]);
            for (int i = 1; i < n; ++i) answer[i] = 0.0;
            break;
    }
}

law* binary_law::deep_copy(pointer_map* pm) const {
    law_ref left = law_ref::adopt(copy_of(left_law_, pm));
    law_ref right = law_ref::adopt(copy_of(right_law_, pm));
    return make_one(left.get(), right.get());
}

// ============================================================== multiple_law

multiple_law::multiple_law(law** subs, int size)
    : sub_laws_(nullptr), law_count_(size), missing_(false) {
    if (subs && size > 0) {
        sub_laws_ = QEM_ALLOC_ARRAY(law*, static_cast<size_t>(size));
        for (int i = 0; i < size; ++i) {
            sub_laws_[i] = subs[i];
            add(subs[i]);
            missing_ = missing_ || !subs[i] || subs[i]->incomplete();
        }
    }
    if (!sub_laws_) law_count_ = subs ? 0 : size;
    std::uint64_t hash = mix_shape_hash(3, static_cast<std::uint64_t>(law_count_));
    for (int i = 0; sub_laws_ && i < law_count_; ++i) hash = mix_shape_hash(hash, sub_laws_[i]);
    set_shape_hash(hash);
}

multiple_law::multiple_law(const multiple_law& other)
    : law(other), sub_laws_(nullptr), law_count_(other.law_count_), missing_(other.missing_) {
    if (other.sub_laws_) {
        sub_laws_ = QEM_ALLOC_ARRAY(law*, static_cast<size_t>(law_count_));
        for (int i = 0; i < law_count_; ++i) {
            sub_laws_[i] = other.sub_laws_[i];
            add(sub_laws_[i]);
        }
    }
}

multiple_law::~multiple_law() noexcept(false) {
    if (sub_laws_)
        for (int i = 0; i < law_count_; ++i) remove(sub_laws_[i]);
    vorn_discard(sub_laws_);
}

int multiple_law::take_size() const {
    int n = 0;
    if (sub_laws_)
        for (int i = 0; i < law_count_; ++i)
            if (sub_laws_[i]) n = std::max(n, sub_laws_[i]->take_dim());
    return n;
}

int multiple_law::return_size() const {
    if (!sub_laws_ || law_count_ < 1 || !sub_laws_[0]) return 0;
    return sub_laws_[0]->return_dim();
}

char* multiple_law::string(law_symbol_type type, QEM::optional<int&> count,
                           QEM::optional<law_data_node*&> list) const {
    const std::string sym = symbol(type);
    std::string args;
    for (int i = 0; sub_laws_ && i < law_count_; ++i) {
        if (i) args += ",";
        args += sub_text(sub_laws_[i], type, count, list);
    }
    const size_t hash = sym.find('#');
    if (type == SYMBOL_PARSE || hash == std::string::npos)
        return heap_string(sym + "(" + args + ")");
    // A second form with "#a" is a template for the whole argument list ("[#a]" prints
    // [a,b,c]); classes with other templates print themselves.
    const size_t all = sym.find("#a");
    if (all == std::string::npos) return heap_string("");
    return heap_string(sym.substr(0, all) + args + sym.substr(all + 2));
}

int multiple_law::same(const law* a, const law* b) const {
    auto* x = static_cast<const multiple_law*>(a);
    auto* y = static_cast<const multiple_law*>(b);
    if (x->law_count_ != y->law_count_) return 0;
    if (!x->sub_laws_ || !y->sub_laws_) return x->sub_laws_ == y->sub_laws_;
    for (int i = 0; i < x->law_count_; ++i)
        if (!same_law(x->sub_laws_[i], y->sub_laws_[i])) return 0;
    return 1;
}

law* multiple_law::deep_copy(pointer_map* pm) const {
    const int n = sub_laws_ ? law_count_ : 0;
    QEM::scoped_heap_array<law*> parts(QEM_ALLOC_ARRAY(law*, static_cast<size_t>(n > 0 ? n : 1)));
    int made = 0;
    // Release every copy made so far, also when a later copy raises.
    QEM::scope_exit release([&] {
        for (int i = 0; i < made; ++i) remove(parts[i]);
    });
    for (; made < n; ++made) parts[made] = copy_of(sub_laws_[made], pm);
    return make_one(sub_laws_ ? parts.get() : nullptr, law_count_);
}

void multiple_law::hasa(int type_id, VOID_LIST& found) const {
    law::hasa(type_id, found);
    for (int i = 0; sub_laws_ && i < law_count_; ++i)
        if (sub_laws_[i]) sub_laws_[i]->hasa(type_id, found);
}

void multiple_law::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    law::full_size(size, 0);
    size.add(sizeof(law*) * static_cast<size_t>(sub_laws_ ? law_count_ : 0));
    for (int i = 0; sub_laws_ && i < law_count_; ++i)
        if (sub_laws_[i]) sub_laws_[i]->full_size(size, 1);
}

int multiple_law::term_domain(int which, QEM::interval& domain) const {
    return parts_domain(sub_laws_, sub_laws_ ? law_count_ : 0, which, domain);
}

int multiple_law::in_domain(double* x) const {
    return parts_in_domain(sub_laws_, sub_laws_ ? law_count_ : 0, x);
}

// ============================================================== constants

constant_law::constant_law(double value) : value_(value) {
    // Equal values hash alike: 0 and -0 compare equal, and so do all NaNs.
    const double key = value == 0.0 ? 0.0 : std::isnan(value) ? std::nan("") : value;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &key, sizeof bits);
    set_shape_hash(mix_shape_hash(4, bits));
}

law* constant_law::make_one(double value) const {
    return new constant_law(value);
}

void constant_law::evaluate(const double*, double* answer) const {
    answer[0] = value_;
}

char* constant_law::string(law_symbol_type, QEM::optional<int&>,
                           QEM::optional<law_data_node*&>) const {
    return number_string(value_);
}

int constant_law::same(const law* a, const law* b) const {
    const double x = static_cast<const constant_law*>(a)->value_;
    const double y = static_cast<const constant_law*>(b)->value_;
    return x == y || (std::isnan(x) && std::isnan(y));
}

law* constant_law::deep_copy(pointer_map*) const {
    return new constant_law(value_);
}

QEM::interval constant_law::estimate_bounds(const QEM::interval&, int& exact) const {
    exact = 1;
    return QEM::interval(value_, value_);
}

law* constant_law::deriv(int) const {
    return new constant_law(0.0);
}

pi_law::pi_law() : constant_law(3.141592653589793) {}

char* pi_law::string(law_symbol_type type, QEM::optional<int&>,
                     QEM::optional<law_data_node*&>) const {
    return heap_string(type == SYMBOL_PARSE ? "PI" : "Pi");
}

law* pi_law::deep_copy(pointer_map*) const {
    return new pi_law();
}

law* pi_law::make_one(double) const {
    return new pi_law();
}

e_law::e_law() : constant_law(2.718281828459045) {}

char* e_law::string(law_symbol_type type, QEM::optional<int&>,
                    QEM::optional<law_data_node*&>) const {
    return heap_string(type == SYMBOL_PARSE ? "E" : "exp(1)");
}

law* e_law::deep_copy(pointer_map*) const {
    return new e_law();
}

law* e_law::make_one(double) const {
    return new e_law();
}

// ============================================================== identity

identity_law::identity_law(int index, char letter) : index_(index), letter_(letter) {
    set_shape_hash(mix_shape_hash(5, static_cast<std::uint64_t>(index)));
}

void identity_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

char* identity_law::string(law_symbol_type, QEM::optional<int&>,
                           QEM::optional<law_data_node*&>) const {
    // X, Y, Z name a point's coordinates, T a curve parameter and U, V a surface's: those
    // letters print alone at their own index; any other pairing prints letter and number.
    const bool alone = (index_ == 0 && (letter_ == 'T' || letter_ == 'U' || letter_ == 'X')) ||
                       (index_ == 1 && (letter_ == 'Y' || letter_ == 'V')) ||
                       (index_ == 2 && letter_ == 'Z');
    char buffer[16];
    if (alone)
        std::snprintf(buffer, sizeof buffer, "%c", letter_);
    else
        std::snprintf(buffer, sizeof buffer, "%c%d", letter_, index_ + 1);
    return heap_string(buffer);
}

int identity_law::same(const law* a, const law* b) const {
    return static_cast<const identity_law*>(a)->index_ ==
           static_cast<const identity_law*>(b)->index_;
}

law* identity_law::deep_copy(pointer_map*) const {
    return new identity_law(index_, letter_);
}

law* identity_law::deriv(int which) const {
    return new constant_law(which == index_ ? 1.0 : 0.0);
}

// ============================================================== plus and minus

plus_law::plus_law(law* left, law* right) : binary_law(left, right) {}

law* plus_law::make_one(law* left, law* right) const {
    return new plus_law(left, right);
}

double plus_law::evaluate_scalar(const double* x) const {
    if (!scalar_) return law::evaluate_scalar(x);
    const double a = left_value(x);
    return a + (same_operands_ ? a : right_value(x));
}

void plus_law::evaluate(const double* x, double* answer) const {
    if (scalar_) {
        const double a = left_value(x);
        answer[0] = a + (same_operands_ ? a : right_value(x));
        return;
    }
    evaluate_vectors(x, answer, vector_op::add);
}

law* plus_law::deriv(int which) const {
    law_ref a = law_ref::adopt(left_law_->derivative(which));
    law_ref b = law_ref::adopt(right_law_->derivative(which));
    return new plus_law(a.get(), b.get());
}

minus_law::minus_law(law* left, law* right) : binary_law(left, right) {}

law* minus_law::make_one(law* left, law* right) const {
    return new minus_law(left, right);
}

double minus_law::evaluate_scalar(const double* x) const {
    if (!scalar_) return law::evaluate_scalar(x);
    const double a = left_value(x);
    return a - (same_operands_ ? a : right_value(x));
}

void minus_law::evaluate(const double* x, double* answer) const {
    if (scalar_) {
        const double a = left_value(x);
        answer[0] = a - (same_operands_ ? a : right_value(x));
        return;
    }
    evaluate_vectors(x, answer, vector_op::subtract);
}

law* minus_law::deriv(int which) const {
    law_ref a = law_ref::adopt(left_law_->derivative(which));
    law_ref b = law_ref::adopt(right_law_->derivative(which));
    return new minus_law(a.get(), b.get());
}

// ============================================================== times

times_law::times_law(law* left, law* right) : binary_law(left, right) {}

law* times_law::make_one(law* left, law* right) const {
    return new times_law(left, right);
}

double times_law::evaluate_scalar(const double* x) const {
    if (!scalar_) return law::evaluate_scalar(x);
    const double a = left_value(x);
    return a * (same_operands_ ? a : right_value(x));
}

void times_law::evaluate(const double* x, double* answer) const {
    if (scalar_) {
        const double a = left_value(x);
        answer[0] = a * (same_operands_ ? a : right_value(x));
        return;
    }
    evaluate_vectors(x, answer, vector_op::multiply);
}

law* times_law::deriv(int which) const {
    // (ab)' = a'b + b'a, in exactly this operand order.
    law_ref da = law_ref::adopt(left_law_->derivative(which));
    law_ref db = law_ref::adopt(right_law_->derivative(which));
    law_ref first = make_law<times_law>(da.get(), right_law_);
    law_ref second = make_law<times_law>(db.get(), left_law_);
    return new plus_law(first.get(), second.get());
}

// ============================================================== division

division_law::division_law(law* left, law* right) : binary_law(left, right) {
    if (right_dim_ >= 2) {
        // The base destructor runs on the way out; it must find no owner.
        set_use_count(0);
        sys_error(LAW_DIVISION);
    }
}

law* division_law::make_one(law* left, law* right) const {
    return new division_law(left, right);
}

double division_law::evaluate_scalar(const double* x) const {
    if (!scalar_) return law::evaluate_scalar(x);
    const double a = left_value(x);
    return quotient(a, same_operands_ ? a : right_value(x), x);
}

double division_law::chain_step(double a, const double* x) const {
    return quotient(a, same_operands_ ? a : right_value(x), x);
}

double division_law::quotient(double a, double b, const double* x) const {
    if (std::fabs(a) >= division_zero || std::fabs(b) >= division_zero) {
        if (std::fabs(b) < QEM::get_resabs()) [[unlikely]]
            sys_error(LAW_ZERODIVIDE);
        return a / b;
    }
    return lhospital(x);
}

// 0/0: the quotient of the first derivatives (always with respect to the first variable),
// once; a second 0/0 is not pursued to higher derivatives.
double division_law::lhospital(const double* x) const {
    int& depth = lawutil_context()->lhospital_depth;
    struct depth_scope {
        int& d;
        explicit depth_scope(int& depth) : d(depth) { ++d; }
        ~depth_scope() { --d; }
    } scope(depth);
    if (depth > lhospital_max_depth) sys_error(LAW_LHOSPITAL);
    law_ref dn = law_ref::adopt(left_law_->derivative(0));
    law_ref dd = law_ref::adopt(right_law_->derivative(0));
    const double a = dn->evaluate_scalar(x);
    const double b = dd->evaluate_scalar(x);
    if (std::fabs(a) < division_zero && std::fabs(b) < division_zero) sys_error(LAW_LHOSPITAL);
    return a / b;
}

void division_law::evaluate(const double* x, double* answer) const {
    if (scalar_) {
        const double a = left_value(x);
        answer[0] = quotient(a, same_operands_ ? a : right_value(x), x);
        return;
    }
    evaluate_vectors(x, answer, vector_op::divide);
}

law* division_law::deriv(int which) const {
    // (a/b)' = (b a' - a b') / b^2
    law_ref da = law_ref::adopt(left_law_->derivative(which));
    law_ref db = law_ref::adopt(right_law_->derivative(which));
    law_ref bda = make_law<times_law>(right_law_, da.get());
    law_ref adb = make_law<times_law>(left_law_, db.get());
    law_ref top = make_law<minus_law>(bda.get(), adb.get());
    law_ref two = make_law<constant_law>(2.0);
    law_ref bottom = make_law<exponent_law>(right_law_, two.get());
    return new division_law(top.get(), bottom.get());
}

// ============================================================== exponent

exponent_law::exponent_law(law* left, law* right)
    : binary_law(left, right),
      square_(right_op_.kind == law_operand::constant && right_op_.value == 2.0) {}

law* exponent_law::make_one(law* left, law* right) const {
    return new exponent_law(left, right);
}

double exponent_law::evaluate_scalar(const double* x) const {
    if (!scalar_) return law::evaluate_scalar(x);
    const double a = left_value(x);
    // a*a is the correctly rounded square, which pow also returns: no call, same value.
    if (square_) return a * a;
    return checked_pow(a, right_value(x));
}

double exponent_law::chain_step(double a, const double* x) const {
    return square_ ? a * a : checked_pow(a, right_value(x));
}

void exponent_law::evaluate(const double* x, double* answer) const {
    if (scalar_) {
        const double a = left_value(x);
        answer[0] = square_ ? a * a : checked_pow(a, right_value(x));
        return;
    }
    evaluate_vectors(x, answer, vector_op::power);
}

law* exponent_law::deriv(int which) const {
    // (a^b)' = b a^(b-1) a' + a^b ln(a) b'; the second term only when the exponent varies.
    law_ref da = law_ref::adopt(left_law_->derivative(which));
    law_ref db = law_ref::adopt(right_law_->derivative(which));
    law_ref one = make_law<constant_law>(1.0);
    law_ref b_minus_1 = make_law<minus_law>(right_law_, one.get());
    law_ref power = make_law<exponent_law>(left_law_, b_minus_1.get());
    law_ref b_power = make_law<times_law>(right_law_, power.get());
    law_ref first = make_law<times_law>(b_power.get(), da.get());
    if (db->zero()) return first.release();
    law_ref log_a = law_internal::unary_of(natural_log_law_id, left_law_);
    // A new power node, not this one: the derivative lives in this law's cache and must
    // not hold a use of it.
    law_ref again = make_law<exponent_law>(left_law_, right_law_);
    law_ref self_log = make_law<times_law>(again.get(), log_a.get());
    law_ref second = make_law<times_law>(self_log.get(), db.get());
    return new plus_law(first.get(), second.get());
}

// ============================================================== composition

composite_law::composite_law(law* outer, law* inner) : binary_law(outer, inner) {}

composite_law::composite_law(law* outer, law** inners, int size)
    : binary_law(outer, law_ref::adopt(new vector_law(inners, size)).get()) {}

law* composite_law::make_one(law* left, law* right) const {
    return new composite_law(left, right);
}

int composite_law::take_size() const {
    return right_law_ ? right_law_->take_dim() : 0;
}
int composite_law::return_size() const {
    return left_dim_;
}

void composite_law::evaluate(const double* x, double* answer) const {
    if (!left_law_ || !right_law_) law_operand::raise_missing();
    // The outer law reads as many values as it takes: the inner law must give them.
    if (left_law_->take_dim() > right_dim_) sys_error(LAW_DIM);
    if (right_dim_ == 1) {
        const double t = right_value(x);
        left_law_->evaluate(&t, answer);
        return;
    }
    value_buffer inner(right_dim_);
    right_law_->evaluate(x, inner.data());
    left_law_->evaluate(inner.data(), answer);
}

double composite_law::evaluate_scalar(const double* x) const {
    if (left_dim_ != 1 || right_dim_ != 1 || !left_law_ || left_law_->take_dim() > 1)
        return law::evaluate_scalar(x);
    const double t = right_value(x);
    return left_law_->evaluate_scalar(&t);
}

int composite_law::term_domain(int which, QEM::interval& domain) const {
    if (!right_law_) return law::term_domain(which, domain);
    return right_law_->term_domain(which, domain);
}

int composite_law::in_domain(double* x) const {
    return !right_law_ || right_law_->in_domain(x);
}

law* composite_law::deriv(int which) const {
    // Chain rule: d/dx_w f(g(x)) = sum over k of (df/du_k o g) * dg_k/dx_w.
    const int m = right_dim_;
    const bool parts = m > 1 && right_law_->isa(vector_law_id);
    law_ref sum;
    law_ref dg_all;
    if (m > 1 && !parts) dg_all = law_ref::adopt(right_law_->derivative(which));
    for (int k = 0; k < m; ++k) {
        law_ref df = law_ref::adopt(left_law_->derivative(k));
        law_ref outer = make_law<composite_law>(df.get(), right_law_);
        law_ref dg;
        if (m == 1)
            dg = law_ref::adopt(right_law_->derivative(which));
        else if (parts)
            dg =
                law_ref::adopt(static_cast<vector_law*>(right_law_)->fsubs()[k]->derivative(which));
        else
            dg = law_ref::adopt(make_term_law(dg_all.get(), k + 1));
        law_ref term = make_law<times_law>(outer.get(), dg.get());
        sum = sum ? make_law<plus_law>(sum.get(), term.get()) : std::move(term);
    }
    return sum.release();
}

// ============================================================== class rules
//
// Each rule returns a new law equal to the one it rewrites wherever that one is defined,
// and either shrinks the tree or moves it toward the canonical sum-of-products form
// (subtraction as addition of -1 times, division as the power -1).  Rules that combine
// operands work on the whole chain of one associative operator, so that A + B + A
// combines as well as A + A.  Chains whose operands differ in dimension are left alone:
// a scalar and a vector add in the first component only, which no reordering keeps.

namespace {

using law_internal::constant_value;
using law_internal::first_matching_pair;
using law_internal::flatten;
using law_internal::fold_product;
using law_internal::fold_sum;
using law_internal::is_constant;
using law_internal::is_constant_value;
using law_internal::is_integer_constant;
using law_internal::law_key;
using law_internal::split_power;

bool uniform_dims(const std::vector<law*>& parts) {
    for (law* p : parts)
        if (!p || p->return_dim() != parts[0]->return_dim()) return false;
    return true;
}

// A term of a sum as its constant factor times its other factors (borrowed, in order),
// with an order-free hash of those factors.
struct term_parts {
    double factor = 1.0;
    std::vector<law*> others;
    std::uint64_t key = 0;
};

term_parts split_term(law* t) {
    term_parts out;
    for (law* f : law_internal::factors_of(t)) {
        if (is_constant(f)) {
            out.factor *= constant_value(f);
        } else {
            out.others.push_back(f);
            out.key += law_key(f);  // a sum: the factors' order must not matter
        }
    }
    return out;
}

// c1*A + c2*A -> (c1+c2)*A for the first pair of terms with equal products A (factors in
// any order); constants never pair.
law_ref combine_like_terms(const binary_law* chain, const std::vector<law*>& terms,
                           const std::vector<term_parts>& split) {
    const auto pair = first_matching_pair(
        terms.size(), [&](size_t k) { return split[k].key; },
        [&](size_t i, size_t j) {
            return !split[i].others.empty() &&
                   law_internal::same_factors(split[i].others, split[j].others);
        });
    if (!pair) return law_ref();
    const auto [i, j] = *pair;
    law_ref rest = fold_product(split[i].others);
    law_ref sum = make_law<times_law>(
        make_law<constant_law>(split[i].factor + split[j].factor).get(), rest.get());
    return law_internal::replace_pair_in_chain(chain, terms, i, j, sum.get());
}

// The argument of f(A)^2 for f of class `fn`, else null.
const law* squared_argument(const term_parts& t, int fn) {
    const law* l = t.others.size() == 1 ? t.others[0] : nullptr;
    if (!l || !l->isa(exponent_law_id)) return nullptr;
    auto* p = static_cast<const binary_law*>(l);
    if (!is_constant_value(p->fright(), 2.0) || !p->fleft() || !p->fleft()->isa(fn)) return nullptr;
    return static_cast<const unary_law*>(p->fleft())->fsub();
}

// c*cos(A)^2 + c*sin(A)^2 -> c, for the first such pair of terms in either order.
law_ref pythagoras(const binary_law* chain, const std::vector<law*>& terms,
                   const std::vector<term_parts>& split) {
    for (size_t i = 0; i < terms.size(); ++i) {
        const law* ca = squared_argument(split[i], cos_law_id);
        if (!ca) continue;
        for (size_t j = 0; j < terms.size(); ++j) {
            if (j == i) continue;
            const law* sb = squared_argument(split[j], sin_law_id);
            if (!sb || split[i].factor != split[j].factor || !(*ca == *sb)) continue;
            law_ref c = make_law<constant_law>(split[i].factor);
            return law_internal::replace_pair_in_chain(chain, terms, std::min(i, j), std::max(i, j),
                                                       c.get());
        }
    }
    return law_ref();
}

// The first term after `i` that is a product sharing a non-constant factor with the
// product fi: a term j qualifies when some factor of fi equals some factor of term j.
std::optional<size_t> first_sharing_term(const std::vector<std::vector<law*>>& factors, size_t i) {
    for (size_t j = i + 1; j < factors.size(); ++j) {
        if (factors[j].size() < 2) continue;
        for (law* a : factors[i])
            if (!is_constant(a))
                for (law* b : factors[j])
                    if (*a == *b) return j;
    }
    return std::nullopt;
}

// As first_sharing_term for every i, through an index of the factors by key, so that a
// long sum with nothing to factor costs about its length, not its square.
std::optional<std::pair<size_t, size_t>> first_sharing_pair(
    const std::vector<std::vector<law*>>& factors) {
    std::vector<std::pair<std::uint64_t, size_t>> index;  // (factor key, term)
    for (size_t t = 0; t < factors.size(); ++t)
        if (factors[t].size() >= 2)
            for (law* f : factors[t])
                if (!is_constant(f)) index.push_back({law_key(f), t});
    std::sort(index.begin(), index.end());
    index.erase(std::unique(index.begin(), index.end()), index.end());
    for (size_t i = 0; i < factors.size(); ++i) {
        if (factors[i].size() < 2) continue;
        size_t best = factors.size();
        for (law* a : factors[i]) {
            if (is_constant(a)) continue;
            const std::pair<std::uint64_t, size_t> from{law_key(a), i + 1};
            for (auto it = std::lower_bound(index.begin(), index.end(), from);
                 it != index.end() && it->first == from.first && it->second < best; ++it)
                for (law* b : factors[it->second])
                    if (*a == *b) {
                        best = it->second;
                        break;
                    }
        }
        if (best < factors.size()) return std::pair{i, best};
    }
    return std::nullopt;
}

// A*B + A*C -> A*(B+C): the first pair of products of two or more factors that share a
// factor that is not a constant; the common factor is the first of the left product's.
law_ref factor_out(const binary_law* chain, const std::vector<law*>& terms) {
    std::vector<std::vector<law*>> factors;
    factors.reserve(terms.size());
    for (law* t : terms) factors.push_back(law_internal::factors_of(t));
    std::optional<std::pair<size_t, size_t>> pair;
    if (terms.size() > 12) {
        pair = first_sharing_pair(factors);
    } else {
        for (size_t i = 0; i < terms.size() && !pair; ++i)
            if (factors[i].size() >= 2)
                if (auto j = first_sharing_term(factors, i)) pair = std::pair{i, *j};
    }
    if (!pair) return law_ref();
    const auto [i, j] = *pair;
    const std::vector<law*>& fi = factors[i];
    const std::vector<law*>& fj = factors[j];
    for (size_t a = 0; a < fi.size(); ++a) {
        if (is_constant(fi[a])) continue;
        for (size_t b = 0; b < fj.size(); ++b) {
            if (!(*fi[a] == *fj[b])) continue;
            std::vector<law*> ri = fi, rj = fj;
            ri.erase(ri.begin() + static_cast<long>(a));
            rj.erase(rj.begin() + static_cast<long>(b));
            law_ref sum = make_law<plus_law>(fold_product(ri).get(), fold_product(rj).get());
            law_ref product = make_law<times_law>(fi[a], sum.get());
            return law_internal::replace_pair_in_chain(chain, terms, i, j, product.get());
        }
    }
    return law_ref();
}

// A power's base; any other factor is its own base (to the power 1).
law* base_of(law* f) {
    return f && f->isa(exponent_law_id) ? static_cast<binary_law*>(f)->fleft() : f;
}

// A^B * A^C -> A^(B+C) for the first pair of scalar factors with equal bases.
law_ref combine_powers(const binary_law* chain, const std::vector<law*>& factors) {
    const auto pair = first_matching_pair(
        factors.size(), [&](size_t k) { return law_key(base_of(factors[k])); },
        [&](size_t i, size_t j) {
            if (is_constant(factors[i]) || is_constant(factors[j])) return false;
            if (!factors[i] || factors[i]->return_dim() != 1) return false;
            const law* bi = base_of(factors[i]);
            const law* bj = base_of(factors[j]);
            return bi && bj && *bi == *bj;
        });
    if (!pair) return law_ref();
    const auto [i, j] = *pair;
    law_ref bi, ei, bj, ej;
    split_power(factors[i], bi, ei);
    split_power(factors[j], bj, ej);
    law_ref sum = make_law<plus_law>(ei.get(), ej.get());
    law_ref power = make_law<exponent_law>(bi.get(), sum.get());
    return law_internal::replace_pair_in_chain(chain, factors, i, j, power.get());
}

// Laws f with f(f(x)) = f(x), as compositions print them: the identity and the rounding
// and sign-step functions of the first variable.
bool idempotent(const law* l) {
    if (l->isa(identity_law_id)) return static_cast<const identity_law*>(l)->index() == 0;
    const bool rounding =
        l->isa(floor_law_id) || l->isa(ceil_law_id) || l->isa(abs_law_id) || l->isa(set_law_id);
    if (!rounding) return false;
    const law* sub = static_cast<const unary_law*>(l)->fsub();
    return sub && sub->isa(identity_law_id) && static_cast<const identity_law*>(sub)->index() == 0;
}

// vec+vec=vec: the first pair of vector_laws of equal length in a sum adds component by
// component.  Vectors of different lengths are left alone: the shorter one's missing
// components count as 0, which a vector of sums cannot say without new zeros.
law_ref add_vectors(const binary_law* chain, const std::vector<law*>& terms) {
    for (size_t i = 0; i < terms.size(); ++i) {
        const vector_law* a = scalar_vector(terms[i]);
        if (!a) continue;
        for (size_t j = i + 1; j < terms.size(); ++j) {
            const vector_law* b = scalar_vector(terms[j]);
            if (!b || b->fsize() != a->fsize()) continue;
            law_ref sum = vector_of(a->fsize(), [&](int k) {
                return make_law<plus_law>(a->fsubs()[k], b->fsubs()[k]);
            });
            return law_internal::replace_pair_in_chain(chain, terms, i, j, sum.get());
        }
    }
    return law_ref();
}

// f*vec: a scalar times a vector_law scales every component, in either operand order (the
// product keeps its operands' order inside each component).
law_ref scale_vector(law* left, law* right) {
    if (left->return_dim() == 1)
        if (const vector_law* v = scalar_vector(right))
            return vector_of(v->fsize(),
                             [&](int k) { return make_law<times_law>(left, v->fsubs()[k]); });
    if (right->return_dim() == 1)
        if (const vector_law* v = scalar_vector(left))
            return vector_of(v->fsize(),
                             [&](int k) { return make_law<times_law>(v->fsubs()[k], right); });
    return law_ref();
}

}  // namespace

law* plus_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_) return nullptr;
    if (is_constant_value(left_law_, 0.0))
        return fire(name, "0 + A = A", law_ref::retain(right_law_));
    if (is_constant_value(right_law_, 0.0))
        return fire(name, "A + 0 = A", law_ref::retain(left_law_));
    const std::vector<law*> terms = flatten(this);
    if (!uniform_dims(terms)) return nullptr;
    // Each term as constant times the rest, once for both rules below.
    std::vector<term_parts> split;
    split.reserve(terms.size());
    for (law* t : terms) split.push_back(split_term(t));
    if (law_ref r = combine_like_terms(this, terms, split))
        return fire(name, "c1 * A + c2 * A -> (c1+c2)*A", std::move(r));
    if (law_ref r = pythagoras(this, terms, split))
        return fire(name, "cos^2+sin^2=1", std::move(r));
    if (law_ref r = add_vectors(this, terms)) return fire(name, "vec+vec=vec", std::move(r));
    if (law_ref r = factor_out(this, terms)) return fire(name, "Factoring", std::move(r));
    return nullptr;
}

law* minus_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_) return nullptr;
    law_ref scaled = make_law<times_law>(make_law<constant_law>(-1.0).get(), right_law_);
    return fire(name, "B - A = B + (-1) * A", make_law<plus_law>(left_law_, scaled.get()));
}

law* times_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_) return nullptr;
    // 0*A is the scalar 0 only when A is a scalar.
    if (is_constant_value(left_law_, 0.0) && right_dim_ == 1)
        return fire(name, "0 * A = 0", make_law<constant_law>(0.0));
    if (is_constant_value(left_law_, 1.0))
        return fire(name, "1 * A = A", law_ref::retain(right_law_));
    if (is_constant_value(right_law_, 1.0))
        return fire(name, "A * 1 = A", law_ref::retain(left_law_));
    if (scalar_)
        if (law_ref r = combine_powers(this, flatten(this)))
            return fire(name, "A^B * A^C -> A^(B+C)", std::move(r));
    if (left_law_->isa(negate_law_id) && right_law_->isa(negate_law_id))
        return fire(name, "-A*-B=A*B",
                    make_law<times_law>(static_cast<unary_law*>(left_law_)->fsub(),
                                        static_cast<unary_law*>(right_law_)->fsub()));
    if (law_ref r = scale_vector(left_law_, right_law_)) return fire(name, "f*vec", std::move(r));
    return nullptr;
}

law* division_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_) return nullptr;
    law_ref inverse = make_law<exponent_law>(right_law_, make_law<constant_law>(-1.0).get());
    return fire(name, "A/B=A*B^(-1)", make_law<times_law>(left_law_, inverse.get()));
}

law* exponent_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_ || !scalar_) return nullptr;
    if (is_constant_value(right_law_, 1.0))
        return fire(name, "A ^ 1 = A", law_ref::retain(left_law_));
    // Only integer powers distribute and nest: (x^2)^0.5 is |x|, not x.
    if (left_law_->isa(times_law_id) && is_integer_constant(right_law_)) {
        auto* product = static_cast<binary_law*>(left_law_);
        law_ref a = make_law<exponent_law>(product->fleft(), right_law_);
        law_ref b = make_law<exponent_law>(product->fright(), right_law_);
        return fire(name, "(A*B)^n=A^n*B^n", make_law<times_law>(a.get(), b.get()));
    }
    if (left_law_->isa(exponent_law_id) && is_integer_constant(right_law_)) {
        auto* inner = static_cast<binary_law*>(left_law_);
        law_ref power = make_law<times_law>(inner->fright(), right_law_);
        return fire(name, "(A^B)^C=A^(B*C)", make_law<exponent_law>(inner->fleft(), power.get()));
    }
    if (is_constant_value(right_law_, 0.0)) return fire(name, "A^0=1", make_law<constant_law>(1.0));
    return nullptr;
}

law* composite_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!left_law_ || !right_law_) return nullptr;
    if (is_constant(left_law_)) return fire(name, "CoA=C", law_ref::retain(left_law_));
    const bool inner_is_x =
        right_law_->isa(identity_law_id) && static_cast<identity_law*>(right_law_)->index() == 0;
    if (inner_is_x && left_law_->take_dim() <= 1)
        return fire(name, "AoX=A", law_ref::retain(left_law_));
    if (*left_law_ == *right_law_ && idempotent(left_law_))
        return fire(name, "LoL=L", law_ref::retain(left_law_));
    // VEC(f1, ..., fn) o g = VEC(f1 o g, ..., fn o g): the vector moves outward.
    if (const vector_law* v = scalar_vector(left_law_))
        return fire(name, "vec o f = vec", vector_of(v->fsize(), [&](int k) {
                        return make_law<composite_law>(v->fsubs()[k], right_law_);
                    }));
    return nullptr;
}

// ============================================================== prototypes

// One registration per class of this file that can be written as text.
LAW_REGISTER_PROTOTYPE(plus_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(minus_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(times_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(division_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(exponent_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(composite_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(less_than_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(less_than_or_equal_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(greater_than_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(greater_than_or_equal_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(equal_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(not_equal_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(pi_law)
LAW_REGISTER_PROTOTYPE(e_law)
