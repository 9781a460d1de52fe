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
#include <lawutil/internal/simplify_util.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_util.h>
#include <qem/tolerance.h>
#include <qem/version.h>

using law_internal::checked_pow;
using law_internal::division_zero;
using law_internal::heap_string;
using law_internal::value_buffer;

namespace {

// A sub-law's text as a std::string ("NULL" for a missing part, which the parser reads
// back as a missing part).
std::string sub_text(const law* l, law_symbol_type type, QEM::optional<int&> count,
                     QEM::optional<law_data_node*&> list) {
    if (!l) return "NULL";
    char* s = l->string(type, count, list);
    std::string out(s);
    vorn_discard(s);
    return out;
}

// The second form of a class whose symbol numbers its parts ("#1[#2]", "mod[#2]#1"): #k
// is part k's text, in the order the template names them (so law data are numbered as the
// text reads).  A part standing outside brackets is parenthesised when it binds weaker
// than a function; a part that is not there prints as `missing` for #2 (a default the
// class supplies), else as NULL.
char* numbered_text(const char* sym, law* const* parts, int n, const char* missing,
                    law_symbol_type type, QEM::optional<int&> count,
                    QEM::optional<law_data_node*&> list) {
    const std::string t = sym;
    std::string out;
    for (size_t i = 0; i < t.size(); ++i) {
        if (t[i] != '#' || i + 1 >= t.size() || t[i + 1] < '1' || t[i + 1] > '9') {
            out += t[i];
            continue;
        }
        const int k = t[i + 1] - '1';
        const law* part = k < n ? parts[k] : nullptr;
        const bool bracketed = i > 0 && t[i - 1] == '[' && i + 2 < t.size() && t[i + 2] == ']';
        if (!part && k == 1 && missing)
            out += missing;
        else if (part && !bracketed && part->precedence() < 8)
            out.append(1, '(').append(sub_text(part, type, count, list)).append(1, ')');
        else
            out += sub_text(part, type, count, list);
        ++i;
    }
    return heap_string(out);
}

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

constant_law::constant_law(double value) : value_(value) {}

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

identity_law::identity_law(int index, char letter) : index_(index), letter_(letter) {}

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
    law_ref log_a = make_law<natural_log_law>(left_law_);
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
using law_internal::flatten;
using law_internal::fold_product;
using law_internal::fold_sum;
using law_internal::is_constant;
using law_internal::is_constant_value;
using law_internal::is_integer_constant;
using law_internal::same_product;
using law_internal::split_power;
using law_internal::split_scale;

law* fire(QEM::optional<const char*&>& name, const char* rule, law_ref made) {
    if (name.has_value()) *name = rule;
    return made.release();
}

bool uniform_dims(const std::vector<law*>& parts) {
    for (law* p : parts)
        if (!p || p->return_dim() != parts[0]->return_dim()) return false;
    return true;
}

// The chain without operands i and j, with `replacement` in the place of i.
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

// c1*A + c2*A -> (c1+c2)*A for the first pair of terms with equal products A (factors in
// any order); constants never pair.
law_ref combine_like_terms(const std::vector<law*>& terms,
                           const std::vector<law_internal::scaled>& split) {
    for (size_t i = 0; i < terms.size(); ++i) {
        const law_internal::scaled& a = split[i];
        if (!a.rest) continue;
        for (size_t j = i + 1; j < terms.size(); ++j) {
            const law_internal::scaled& b = split[j];
            if (!b.rest || !same_product(a.rest.get(), b.rest.get())) continue;
            law_ref sum = make_law<times_law>(make_law<constant_law>(a.factor + b.factor).get(),
                                              a.rest.get());
            return fold_sum(replace_pair(terms, i, j, sum.get()));
        }
    }
    return law_ref();
}

// The argument of f(A)^2 for f of class `fn`, else null.
const law* squared_argument(const law* l, int fn) {
    if (!l || !l->isa(exponent_law_id)) return nullptr;
    auto* p = static_cast<const binary_law*>(l);
    if (!is_constant_value(p->fright(), 2.0) || !p->fleft() || !p->fleft()->isa(fn)) return nullptr;
    return static_cast<const unary_law*>(p->fleft())->fsub();
}

// c*cos(A)^2 + c*sin(A)^2 -> c, for the first such pair of terms in either order.
law_ref pythagoras(const std::vector<law*>& terms, const std::vector<law_internal::scaled>& split) {
    for (size_t i = 0; i < terms.size(); ++i) {
        const law* ca = squared_argument(split[i].rest.get(), cos_law_id);
        if (!ca) continue;
        for (size_t j = 0; j < terms.size(); ++j) {
            if (j == i) continue;
            const law* sb = squared_argument(split[j].rest.get(), sin_law_id);
            if (!sb || split[i].factor != split[j].factor || !(*ca == *sb)) continue;
            law_ref c = make_law<constant_law>(split[i].factor);
            return fold_sum(replace_pair(terms, std::min(i, j), std::max(i, j), c.get()));
        }
    }
    return law_ref();
}

std::vector<law*> factors_of(law* l) {
    if (l && l->isa(times_law_id)) return flatten(static_cast<binary_law*>(l));
    return {l};
}

// A*B + A*C -> A*(B+C): the first pair of products of two or more factors that share a
// factor that is not a constant; the common factor is the first of the left product's.
law_ref factor_out(const std::vector<law*>& terms) {
    for (size_t i = 0; i < terms.size(); ++i) {
        std::vector<law*> fi = factors_of(terms[i]);
        if (fi.size() < 2) continue;
        for (size_t j = i + 1; j < terms.size(); ++j) {
            std::vector<law*> fj = factors_of(terms[j]);
            if (fj.size() < 2) continue;
            for (size_t a = 0; a < fi.size(); ++a) {
                if (is_constant(fi[a])) continue;
                for (size_t b = 0; b < fj.size(); ++b) {
                    if (!(*fi[a] == *fj[b])) continue;
                    std::vector<law*> ri = fi, rj = fj;
                    ri.erase(ri.begin() + static_cast<long>(a));
                    rj.erase(rj.begin() + static_cast<long>(b));
                    law_ref sum =
                        make_law<plus_law>(fold_product(ri).get(), fold_product(rj).get());
                    law_ref product = make_law<times_law>(fi[a], sum.get());
                    return fold_sum(replace_pair(terms, i, j, product.get()));
                }
            }
        }
    }
    return law_ref();
}

// A^B * A^C -> A^(B+C) for the first pair of scalar factors with equal bases.
law_ref combine_powers(const std::vector<law*>& factors) {
    for (size_t i = 0; i < factors.size(); ++i) {
        if (is_constant(factors[i]) || factors[i]->return_dim() != 1) continue;
        law_ref bi, ei;
        split_power(factors[i], bi, ei);
        for (size_t j = i + 1; j < factors.size(); ++j) {
            if (is_constant(factors[j])) continue;
            law_ref bj, ej;
            split_power(factors[j], bj, ej);
            if (!(*bi.get() == *bj.get())) continue;
            law_ref sum = make_law<plus_law>(ei.get(), ej.get());
            law_ref power = make_law<exponent_law>(bi.get(), sum.get());
            return fold_product(replace_pair(factors, i, j, power.get()));
        }
    }
    return law_ref();
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

// A vector_law whose components are all present and scalar: the vector rules rewrite only
// these, component by component.
const vector_law* scalar_vector(const law* l) {
    if (!l || !l->isa(vector_law_id)) return nullptr;
    auto* v = static_cast<const vector_law*>(l);
    if (!v->fsubs() || v->fsize() < 1) return nullptr;
    for (int i = 0; i < v->fsize(); ++i)
        if (!v->fsubs()[i] || v->fsubs()[i]->return_dim() != 1) return nullptr;
    return v;
}

// The constant 0, or a vector_law of constant zeros: the zero of the products.
bool is_zero_part(const law* l) {
    if (is_constant_value(l, 0.0)) return true;
    if (!l || !l->isa(vector_law_id)) return false;
    auto* v = static_cast<const vector_law*>(l);
    if (!v->fsubs() || v->fsize() < 1) return false;
    for (int i = 0; i < v->fsize(); ++i)
        if (!is_constant_value(v->fsubs()[i], 0.0)) return false;
    return true;
}

// A vector_law over the laws made by `component(i)` for i < n.
template <class F>
law_ref vector_of(int n, F component) {
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        parts.push_back(component(i));
        raw.push_back(parts.back().get());
    }
    return make_law<vector_law>(raw.data(), n);
}

// vec+vec=vec: the first pair of vector_laws of equal length in a sum adds component by
// component.  Vectors of different lengths are left alone: the shorter one's missing
// components count as 0, which a vector of sums cannot say without new zeros.
law_ref add_vectors(const std::vector<law*>& terms) {
    for (size_t i = 0; i < terms.size(); ++i) {
        const vector_law* a = scalar_vector(terms[i]);
        if (!a) continue;
        for (size_t j = i + 1; j < terms.size(); ++j) {
            const vector_law* b = scalar_vector(terms[j]);
            if (!b || b->fsize() != a->fsize()) continue;
            law_ref sum = vector_of(a->fsize(), [&](int k) {
                return make_law<plus_law>(a->fsubs()[k], b->fsubs()[k]);
            });
            return fold_sum(replace_pair(terms, i, j, sum.get()));
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
    std::vector<law_internal::scaled> split;
    split.reserve(terms.size());
    for (law* t : terms) split.push_back(split_scale(t));
    if (law_ref r = combine_like_terms(terms, split))
        return fire(name, "c1 * A + c2 * A -> (c1+c2)*A", std::move(r));
    if (law_ref r = pythagoras(terms, split)) return fire(name, "cos^2+sin^2=1", std::move(r));
    if (law_ref r = add_vectors(terms)) return fire(name, "vec+vec=vec", std::move(r));
    if (law_ref r = factor_out(terms)) return fire(name, "Factoring", std::move(r));
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
        if (law_ref r = combine_powers(flatten(this)))
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
                    if (minus) return make_law<negate_law>(minus.get());
                    return make_law<constant_law>(0.0);
                }));
}

// ============================================================== selections and steps

namespace {

// Evaluates `part` into an answer of `n` values.  A part of another size (only in a law
// that its check reported as toxic) goes through a temporary, truncated or padded with 0,
// so that the answer is never overrun.
void evaluate_as(const law* part, const double* x, double* answer, int n) {
    if (!part) law_operand::raise_missing();
    const int m = part->return_dim();
    if (m == n) {
        part->evaluate(x, answer);
        return;
    }
    value_buffer values(m);
    part->evaluate(x, values.data());
    for (int i = 0; i < n; ++i) answer[i] = i < m ? values[i] : 0.0;
}

bool check_return_dim_of(const law* l, int dim) {
    return l && l->return_dim() == dim;
}

law* present_part(law* const* parts, int count, int i) {
    if (!parts || i < 0 || i >= count || !parts[i]) law_operand::raise_missing();
    return parts[i];
}

// The part check shared by several classes: `count` present scalar parts, `low` <= count
// <= `high`.
int scalar_parts(law** subs, int size, int low, int high) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= low && size <= high;
    for (int i = 0; ok && i < size; ++i) ok = check_return_dim_of(subs[i], 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

}  // namespace

step_law::step_law(law** subs, int size) : multiple_law(subs, size) {}

int step_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size % 2 == 1;
    for (int i = 0; ok && i < size; ++i) {
        ok = subs[i] != nullptr;
        if (!ok || i % 2 == 0) continue;
        ok = subs[i]->isa(constant_law_id);
        // Only a decrease fails: equal neighbouring breakpoints are accepted on purpose
        // (the piece between them is never chosen).
        if (ok && i >= 3) ok = !(constant_value(subs[i]) < constant_value(subs[i - 2]));
    }
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* step_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new step_law(subs, size);
}

// The piece before the first breakpoint greater than x; the last one when there is none.
// At a breakpoint itself the piece after it is chosen: each piece is closed on its left.
void step_law::evaluate(const double* x, double* answer) const {
    const int n = sub_laws_ ? law_count_ : 0;
    int piece = n - 1;
    for (int i = 1; i < n; i += 2) {
        if (present_part(sub_laws_, n, i)->evaluate_scalar(x) > x[0]) {
            piece = i - 1;
            break;
        }
    }
    evaluate_as(present_part(sub_laws_, n, piece), x, answer, return_dim());
}

law* step_law::deriv(int which) const {
    const int n = sub_laws_ ? law_count_ : 0;
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        law* part = present_part(sub_laws_, n, i);
        parts.push_back(i % 2 ? law_ref::retain(part) : law_ref::adopt(part->derivative(which)));
        raw.push_back(parts.back().get());
    }
    return new step_law(raw.data(), n);
}

int step_law::take_size() const {
    return std::max(1, multiple_law::take_size());
}

// ---------------------------------------------------------------- comparisons and logic

#define LAW_COMPARISON_BODY(cls, holds)                          \
    cls::cls(law* left, law* right) : binary_law(left, right) {} \
    law* cls::make_one(law* left, law* right) const {            \
        return new cls(left, right);                             \
    }                                                            \
    double cls::evaluate_scalar(const double* x) const {         \
        const double a = left_value(x);                          \
        const double b = same_operands_ ? a : right_value(x);    \
        return (holds) ? 1.0 : 0.0;                              \
    }                                                            \
    double cls::chain_step(double a, const double* x) const {    \
        const double b = same_operands_ ? a : right_value(x);    \
        return (holds) ? 1.0 : 0.0;                              \
    }                                                            \
    void cls::evaluate(const double* x, double* answer) const {  \
        answer[0] = evaluate_scalar(x);                          \
    }

// The equality tests are exact, with no tolerance, on purpose: a tolerance belongs to the
// law that wants one (ABS(A-B)<1E-6 says it).
LAW_COMPARISON_BODY(less_than_law, a < b)
LAW_COMPARISON_BODY(less_than_or_equal_law, a <= b)
LAW_COMPARISON_BODY(greater_than_law, a > b)
LAW_COMPARISON_BODY(greater_than_or_equal_law, a >= b)
LAW_COMPARISON_BODY(equal_law, a == b)
LAW_COMPARISON_BODY(not_equal_law, a != b)

#undef LAW_COMPARISON_BODY

and_law::and_law(law* left, law* right) : binary_law(left, right) {}

law* and_law::make_one(law* left, law* right) const {
    return new and_law(left, right);
}

// Short-circuit: a false left operand decides without the right one, which is therefore
// never evaluated (nor can it raise).
double and_law::evaluate_scalar(const double* x) const {
    const double a = left_value(x);
    if (a == 0.0) return 0.0;
    const double b = left_law_ == right_law_ ? a : right_value(x);
    return b != 0.0 ? 1.0 : 0.0;
}

void and_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

or_law::or_law(law* left, law* right) : binary_law(left, right) {}

law* or_law::make_one(law* left, law* right) const {
    return new or_law(left, right);
}

// Both operands are always evaluated, deliberately unlike AND: an error in either one is
// raised whatever the other's value.
double or_law::evaluate_scalar(const double* x) const {
    const double a = left_value(x);
    const double b = same_operands_ ? a : right_value(x);
    return a != 0.0 || b != 0.0 ? 1.0 : 0.0;
}

void or_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

true_law::true_law() : constant_law(1.0) {}

law* true_law::make_one(double) const {
    return new true_law();
}

char* true_law::string(law_symbol_type type, QEM::optional<int&>,
                       QEM::optional<law_data_node*&>) const {
    return heap_string(symbol(type));
}

law* true_law::deep_copy(pointer_map*) const {
    return new true_law();
}

false_law::false_law() : constant_law(0.0) {}

law* false_law::make_one(double) const {
    return new false_law();
}

char* false_law::string(law_symbol_type type, QEM::optional<int&>,
                        QEM::optional<law_data_node*&>) const {
    return heap_string(symbol(type));
}

law* false_law::deep_copy(pointer_map*) const {
    return new false_law();
}

// ---------------------------------------------------------------- piecewise

piecewise_law::piecewise_law(law** subs, int size) : multiple_law(subs, size) {}

int piecewise_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 2 && subs[size - 1];
    const int r = ok ? subs[size - 1]->return_dim() : 0;
    for (int i = 0; ok && i < size - 1; ++i) ok = check_return_dim_of(subs[i], i % 2 ? r : 1);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* piecewise_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new piecewise_law(subs, size);
}

int piecewise_law::return_size() const {
    if (!sub_laws_ || law_count_ < 1 || !sub_laws_[law_count_ - 1]) return 0;
    return sub_laws_[law_count_ - 1]->return_dim();
}

// The law after the first condition that holds; NaN is not 0, so it holds.
void piecewise_law::evaluate(const double* x, double* answer) const {
    const int n = sub_laws_ ? law_count_ : 0;
    int chosen = n - 1;
    for (int i = 0; i < n - 1; i += 2) {
        if (present_part(sub_laws_, n, i)->evaluate_scalar(x) != 0.0) {
            chosen = i + 1;
            break;
        }
    }
    evaluate_as(present_part(sub_laws_, n, chosen), x, answer, return_dim());
}

// The conditions are shared; the laws (odd positions) and the default are differentiated.
law* piecewise_law::deriv(int which) const {
    const int n = sub_laws_ ? law_count_ : 0;
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (int i = 0; i < n; ++i) {
        law* part = present_part(sub_laws_, n, i);
        const bool condition = i % 2 == 0 && i != n - 1;
        parts.push_back(condition ? law_ref::retain(part)
                                  : law_ref::adopt(part->derivative(which)));
        raw.push_back(parts.back().get());
    }
    return new piecewise_law(raw.data(), n);
}

// ---------------------------------------------------------------- extrema

namespace {

// The value of the first part that `better` than every other: a later part replaces the
// answer only when strictly better, so the first of equal parts wins.
template <class Better>
double extremum(law* const* parts, int n, const double* x, Better better) {
    double best = present_part(parts, n, 0)->evaluate_scalar(x);
    for (int i = 1; i < n; ++i) {
        const double v = present_part(parts, n, i)->evaluate_scalar(x);
        if (better(v, best)) best = v;
    }
    return best;
}

// The derivative of the part that is the answer, with the evaluation's tie rule: part k is
// the answer when no earlier part was and it is at least (Compare) every later part, so
// the piecewise law's first holding condition picks the first extremal part.
template <class Compare>
law* extremum_derivative(law* const* parts, int n, int which) {
    if (n == 1) return present_part(parts, n, 0)->derivative(which);
    std::vector<law_ref> held;
    std::vector<law*> raw;
    for (int k = 0; k < n; ++k) {
        law* pk = present_part(parts, n, k);
        if (k < n - 1) {
            law_ref condition;
            for (int j = k + 1; j < n; ++j) {
                law_ref c = make_law<Compare>(pk, present_part(parts, n, j));
                condition = condition ? make_law<and_law>(condition.get(), c.get()) : std::move(c);
            }
            held.push_back(std::move(condition));
            raw.push_back(held.back().get());
        }
        held.push_back(law_ref::adopt(pk->derivative(which)));
        raw.push_back(held.back().get());
    }
    return new piecewise_law(raw.data(), static_cast<int>(raw.size()));
}

}  // namespace

max_law::max_law(law** subs, int size) : multiple_law(subs, size) {}

int max_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, INT32_MAX);
}

law* max_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new max_law(subs, size);
}

double max_law::evaluate_scalar(const double* x) const {
    return extremum(sub_laws_, sub_laws_ ? law_count_ : 0, x,
                    [](double v, double best) { return v > best; });
}

void max_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

law* max_law::deriv(int which) const {
    return extremum_derivative<greater_than_or_equal_law>(sub_laws_, sub_laws_ ? law_count_ : 0,
                                                          which);
}

min_law::min_law(law** subs, int size) : multiple_law(subs, size) {}

int min_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, INT32_MAX);
}

law* min_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new min_law(subs, size);
}

double min_law::evaluate_scalar(const double* x) const {
    return extremum(sub_laws_, sub_laws_ ? law_count_ : 0, x,
                    [](double v, double best) { return v < best; });
}

void min_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

law* min_law::deriv(int which) const {
    return extremum_derivative<less_than_or_equal_law>(sub_laws_, sub_laws_ ? law_count_ : 0,
                                                       which);
}

// ============================================================== domains

domain_law::domain_law(law** subs, int size) : multiple_law(subs, size) {}

int domain_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size % 2 == 1 && subs[0];
    for (int i = 1; ok && i < size; ++i)
        ok = check_return_dim_of(subs[i], 1) && subs[i]->take_dim() == 0;
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* domain_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new domain_law(subs, size);
}

law* domain_law::rebuild(law** subs, int size) const {
    return new domain_law(subs, size);
}

QEM::interval domain_law::own_domain(int which) const {
    if (which < 0 || which >= restricted()) return QEM::interval(QEM::interval_infinite);
    const law* lo = sub_laws_[1 + 2 * which];
    const law* hi = sub_laws_[2 + 2 * which];
    if (!lo || !hi) return QEM::interval(QEM::interval_infinite);
    // The bounds take no input: their value anywhere is their value.
    return QEM::interval(lo->eval(0.0), hi->eval(0.0));
}

// Inside (to within the base library's resolution) the value is f's; outside it is an
// error, not an extrapolation.
void domain_law::evaluate(const double* x, double* answer) const {
    const law* f = present_part(sub_laws_, law_count_, 0);
    for (int i = 0; i < restricted(); ++i)
        if (!own_domain(i).contains(x[i])) sys_error(LAW_BAD_DOMAN);
    f->evaluate(x, answer);
}

law* domain_law::sub_simplify(int, QEM::optional<const char*&> name) const {
    if (!sub_laws_ || law_count_ < 1 || !sub_laws_[0]) return nullptr;
    return fire(name, "domain(A)=A", law_ref::retain(sub_laws_[0]));
}

int domain_law::term_domain(int which, QEM::interval& domain) const {
    domain = own_domain(which);
    if (sub_laws_ && law_count_ >= 1 && sub_laws_[0]) {
        QEM::interval inner;
        sub_laws_[0]->term_domain(which, inner);
        domain &= inner;
    }
    return 1;
}

int domain_law::in_domain(double* x) const {
    for (int i = 0; i < restricted(); ++i)
        if (!own_domain(i).contains(x[i])) return 0;
    return !sub_laws_ || law_count_ < 1 || !sub_laws_[0] || sub_laws_[0]->in_domain(x);
}

namespace {

// The parts of a restriction of `f`: f, then each interval's ends as constants (held in
// `made`).  An empty interval gets NaN ends, between which no point lies.
std::vector<law*> restriction_parts(law* f, const QEM::interval* domains, int n,
                                    std::vector<law_ref>& made) {
    std::vector<law*> raw{f};
    for (int i = 0; i < n; ++i) {
        const QEM::interval& d = domains[i];
        const double nan = std::nan("");
        made.push_back(make_law<constant_law>(d.empty() ? nan : d.start_pt()));
        raw.push_back(made.back().get());
        made.push_back(make_law<constant_law>(d.empty() ? nan : d.end_pt()));
        raw.push_back(made.back().get());
    }
    return raw;
}

}  // namespace

// `flag` is the number of intervals given (below 1: one); each meets this law's own.
law* domain_law::set_domain(QEM::interval* domains, int flag) const {
    const int given = domains ? std::max(flag, 1) : 0;
    const int n = std::max(given, restricted());
    std::vector<QEM::interval> meet(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        meet[static_cast<size_t>(i)] = own_domain(i);
        if (i < given) meet[static_cast<size_t>(i)] &= domains[i];
    }
    std::vector<law_ref> made;
    std::vector<law*> raw =
        restriction_parts(present_part(sub_laws_, law_count_, 0), meet.data(), n, made);
    return rebuild(raw.data(), static_cast<int>(raw.size()));
}

// Restricting a law that keeps no domains of its own wraps it in DOMAIN.  `flag` is the
// number of intervals in `domains` (below 1: one, for the first variable); trailing whole
// lines restrict nothing and are left out, and a law restricted nowhere is returned as
// it is (with a use for the caller).
law* law::set_domain(QEM::interval* domains, int flag) const {
    int n = domains ? std::max(flag, 1) : 0;
    while (n > 0 && domains[n - 1].infinite()) --n;
    if (n == 0) {
        add(this);
        return const_cast<law*>(this);
    }
    std::vector<law_ref> made;
    std::vector<law*> raw = restriction_parts(const_cast<law*>(this), domains, n, made);
    return new domain_law(raw.data(), static_cast<int>(raw.size()));
}

law* domain_law::deriv(int which) const {
    law_ref df = law_ref::adopt(present_part(sub_laws_, law_count_, 0)->derivative(which));
    std::vector<law*> raw(sub_laws_, sub_laws_ + law_count_);
    raw[0] = df.get();
    return rebuild(raw.data(), law_count_);
}

int domain_law::take_size() const {
    return std::max(multiple_law::take_size(), restricted());
}

permanent_domain_law::permanent_domain_law(law** subs, int size) : domain_law(subs, size) {}

law* permanent_domain_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new permanent_domain_law(subs, size);
}

law* permanent_domain_law::rebuild(law** subs, int size) const {
    return new permanent_domain_law(subs, size);
}

law* permanent_domain_law::sub_simplify(int, QEM::optional<const char*&>) const {
    return nullptr;
}

// ============================================================== further functions

namespace {

// The variable of D(f, v, n): an identity law's index, or a 1-based constant truncated as
// TERM's index is; the first variable when v is not given.  -1 for anything else.
int derivative_variable(law* const* parts, int n) {
    if (n < 2) return 0;
    const law* v = parts[1];
    if (!v) return -1;
    if (v->isa(identity_law_id)) return static_cast<const identity_law*>(v)->index();
    if (!v->constant()) return -1;
    return law::safe_convert_to_int(v->eval(0.0) - 1.0);
}

// The order of D(f, v, n): a constant truncated toward zero; 1 when n is not given.
int derivative_order(law* const* parts, int n) {
    if (n < 3) return 1;
    const law* k = parts[2];
    if (!k || !k->constant()) return -1;
    return law::safe_convert_to_int(k->eval(0.0));
}

bool integer_constant(const law* l, double least) {
    if (!l || !l->constant() || l->return_dim() != 1) return false;
    const double v = l->eval(0.0);
    return v >= least && v == std::floor(v) && v <= INT32_MAX;
}

}  // namespace

derivative_law::derivative_law(law** subs, int size) : multiple_law(subs, size) {}

derivative_law::~derivative_law() noexcept(false) {
    remove(derived_);
}

int derivative_law::check(law** subs, int size) {
    if (law_restore_waived()) return 1;
    bool ok = subs && size >= 1 && size <= 3 && subs[0];
    if (ok && size >= 2)
        ok = subs[1] && (subs[1]->isa(identity_law_id) || integer_constant(subs[1], 1.0));
    if (ok && size == 3) ok = integer_constant(subs[2], 0.0);
    if (ok) return 1;
    toxic_law_error();
    return 0;
}

law* derivative_law::make_one(law** subs, int size) const {
    check(subs, size);
    if (size < 1 || size > 3) sys_error(LAW_DL_NUM);
    return new derivative_law(subs, size);
}

// Built on first use and kept: law::derivative caches each step in the law before it, so
// this holds one use of the last.  A build that raises leaves nothing behind and is tried
// again by the next evaluation.
namespace {
constexpr int max_derivative_order = 64;
}  // namespace

const law* derivative_law::derived() const {
    std::call_once(built_once_, [this] {
        if (law_count_ < 1 || law_count_ > 3) sys_error(LAW_DL_NUM);
        law_ref d = law_ref::retain(present_part(sub_laws_, law_count_, 0));
        const int variable = derivative_variable(sub_laws_, law_count_);
        const int order = derivative_order(sub_laws_, law_count_);
        // Each order is a new tree; an order beyond any real use is refused rather than
        // built for hours.  A variable below 0 raises LAW_DERIV from law::derivative.
        if (order > max_derivative_order) sys_error(LAW_DERIV);
        for (int i = 0; i < order; ++i) d = law_ref::adopt(d->derivative(variable));
        derived_ = d.release();
    });
    return derived_;
}

void derivative_law::evaluate(const double* x, double* answer) const {
    evaluate_as(derived(), x, answer, return_dim());
}

law* derivative_law::deriv(int which) const {
    return derived()->derivative(which);
}

// ---------------------------------------------------------------- MOD

mod_law::mod_law(law** subs, int size) : multiple_law(subs, size) {}

int mod_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 2, 2);
}

law* mod_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new mod_law(subs, size);
}

// a - b floor(a/b), computed as fmod's exact remainder moved to b's sign.
double mod_law::evaluate_scalar(const double* x) const {
    const double a = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    const double b = present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x);
    if (b == 0.0) sys_error(LAW_ZERODIVIDE);
    double r = std::fmod(a, b);
    if (r != 0.0 && (r < 0.0) != (b < 0.0)) r += b;
    return r;
}

void mod_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// (a - b floor(a/b))' = a' - b' floor(a/b): floor is constant between its jumps.
law* mod_law::deriv(int which) const {
    law* a = present_part(sub_laws_, law_count_, 0);
    law* b = present_part(sub_laws_, law_count_, 1);
    law_ref da = law_ref::adopt(a->derivative(which));
    law_ref db = law_ref::adopt(b->derivative(which));
    law_ref whole = make_law<floor_law>(make_law<division_law>(a, b).get());
    law_ref scaled = make_law<times_law>(db.get(), whole.get());
    return new minus_law(da.get(), scaled.get());
}

char* mod_law::string(law_symbol_type type, QEM::optional<int&> count,
                      QEM::optional<law_data_node*&> list) const {
    if (type == SYMBOL_PARSE) return multiple_law::string(type, count, list);
    return numbered_text(symbol(type), sub_laws_, sub_laws_ ? law_count_ : 0, nullptr, type, count,
                         list);
}

// ---------------------------------------------------------------- LOG

namespace {

constexpr double common_base = 10.0;

// A base has logarithms when it is positive and not 1.
void check_base(double b) {
    if (!(b > 0.0) || b == 1.0) sys_error(LAW_BASE_P);
}

}  // namespace

log_law::log_law(law** subs, int size) : multiple_law(subs, size) {}

int log_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, 2);
}

law* log_law::make_one(law** subs, int size) const {
    check(subs, size);
    if (size == 2 && subs && subs[1]) {
        if (!subs[1]->constant()) sys_error(LAW_BASE_C);
        check_base(subs[1]->eval(0.0));
    }
    return new log_law(subs, size);
}

// The bases 10 and 2 use their own functions, exact at the powers of the base.
double log_law::evaluate_scalar(const double* x) const {
    const double v = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    const double b =
        law_count_ >= 2 ? present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x) : common_base;
    check_base(b);
    if (!(v > 0.0)) sys_error(LAW_LOG);
    if (b == 10.0) return std::log10(v);
    if (b == 2.0) return std::log2(v);
    return std::log(v) / std::log(b);
}

void log_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// The derivative of LN(x) / LN(b), base included.
law* log_law::deriv(int which) const {
    law* v = present_part(sub_laws_, law_count_, 0);
    law_ref b = law_count_ >= 2 ? law_ref::retain(present_part(sub_laws_, law_count_, 1))
                                : make_law<constant_law>(common_base);
    law_ref quotient = make_law<division_law>(make_law<natural_log_law>(v).get(),
                                              make_law<natural_log_law>(b.get()).get());
    return quotient->unsimplified_derivative(which);
}

char* log_law::string(law_symbol_type type, QEM::optional<int&> count,
                      QEM::optional<law_data_node*&> list) const {
    if (type == SYMBOL_PARSE) return multiple_law::string(type, count, list);
    return numbered_text(symbol(type), sub_laws_, sub_laws_ ? law_count_ : 0, "10", type, count,
                         list);
}

// ---------------------------------------------------------------- ARCTAN

arctan_law::arctan_law(law** subs, int size) : multiple_law(subs, size) {}

int arctan_law::check(law** subs, int size) {
    return scalar_parts(subs, size, 1, 2);
}

law* arctan_law::make_one(law** subs, int size) const {
    check(subs, size);
    return new arctan_law(subs, size);
}

double arctan_law::evaluate_scalar(const double* x) const {
    const double y = present_part(sub_laws_, law_count_, 0)->evaluate_scalar(x);
    if (law_count_ < 2) return std::atan(y);
    return std::atan2(y, present_part(sub_laws_, law_count_, 1)->evaluate_scalar(x));
}

void arctan_law::evaluate(const double* x, double* answer) const {
    answer[0] = evaluate_scalar(x);
}

// atan(y)' = y' / (1 + y^2);  atan2(y, x)' = (x y' - y x') / (x^2 + y^2).
law* arctan_law::deriv(int which) const {
    law* y = present_part(sub_laws_, law_count_, 0);
    law_ref dy = law_ref::adopt(y->derivative(which));
    law_ref two = make_law<constant_law>(2.0);
    law_ref y2 = make_law<exponent_law>(y, two.get());
    if (law_count_ < 2) {
        law_ref bottom = make_law<plus_law>(make_law<constant_law>(1.0).get(), y2.get());
        return new division_law(dy.get(), bottom.get());
    }
    law* x = present_part(sub_laws_, law_count_, 1);
    law_ref dx = law_ref::adopt(x->derivative(which));
    law_ref top = make_law<minus_law>(make_law<times_law>(x, dy.get()).get(),
                                      make_law<times_law>(y, dx.get()).get());
    law_ref bottom = make_law<plus_law>(make_law<exponent_law>(x, two.get()).get(), y2.get());
    return new division_law(top.get(), bottom.get());
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
LAW_REGISTER_PROTOTYPE(and_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(or_law, nullptr, nullptr)
LAW_REGISTER_PROTOTYPE(vector_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(term_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(dot_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(cross_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(step_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(piecewise_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(max_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(min_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(domain_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(permanent_domain_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(derivative_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(mod_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(log_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(arctan_law, nullptr, 0)
LAW_REGISTER_PROTOTYPE(pi_law)
LAW_REGISTER_PROTOTYPE(e_law)
LAW_REGISTER_PROTOTYPE(true_law)
LAW_REGISTER_PROTOTYPE(false_law)
