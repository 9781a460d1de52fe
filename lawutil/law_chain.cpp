// Long left-deep chains of operators: their printing and evaluation by a loop over the
// left spine, and the nesting count of the walks that stay recursive.

#include <lawutil/internal/law_chain.h>
#include <lawutil/internal/main_law_util.h>

#include <pthread.h>

#include <string>
#include <vector>

#include <lawutil/internal/value_buffer.h>
#include <lawutil/main_law.h>

using law_internal::heap_string;
using law_internal::sub_text;

namespace {

// A node that chain_value may step through: a scalar operator whose evaluate_scalar is
// its left operand's value combined with its right one.  f o g is not: its left operand
// is evaluated at another point.
const binary_law* chain_node(const law* l) {
    if (!l || !l->isa(binary_law_id) || l->isa(composite_law_id)) return nullptr;
    return static_cast<const binary_law*>(l);
}

// The left spine from `top` down: top first, then its left operand while that is one.
template <class Accept>
std::vector<const binary_law*> left_spine(const binary_law* top, Accept accept) {
    std::vector<const binary_law*> spine;
    for (const binary_law* node = top; node; node = accept(node->fleft())) spine.push_back(node);
    return spine;
}

thread_local int walk_depth = 0;

}  // namespace

// ============================================================== evaluation

void binary_law::link_chain() {
    const binary_law* left = chain_node(left_law_);
    const bool left_links = left && left->spine_ > 0;
    spine_ = scalar_ ? 1 + (left_links ? left->spine_ : 0) : 0;
    // Only a long chain pays for the loop; a short one recurses as any operand does.
    if (left_links && left->spine_ >= law_internal::chain_threshold) {
        left_op_.kind = law_operand::chain;
        // The take dimension is cached on first use by a recursive walk: asked here, of
        // each node as the next is built, it never walks further than one node down.
        left->take_dim();
    }
}

double law_operand::read_rare(const law* l, const double* x) const {
    if (kind != chain) raise_missing();
    return binary_law::chain_value(static_cast<const binary_law*>(l), x);
}

// The bottom node's left operand first, then every node's right operand from the bottom
// up: the order, and so the rounding, of the recursive evaluation.
double binary_law::chain_value(const binary_law* top, const double* x) {
    const std::vector<const binary_law*> spine = left_spine(top, [](const law* l) {
        const binary_law* node = chain_node(l);
        return node && node->spine_ > 0 ? node : nullptr;
    });
    const binary_law* bottom = spine.back();
    double value = bottom->left_value(x);
    for (auto node = spine.rbegin(); node != spine.rend(); ++node)
        value = (*node)->chain_step(value, x);
    return value;
}

double binary_law::chain_step(double, const double* x) const {
    return evaluate_scalar(x);
}

double plus_law::chain_step(double a, const double* x) const {
    return a + (same_operands_ ? a : right_value(x));
}

double minus_law::chain_step(double a, const double* x) const {
    return a - (same_operands_ ? a : right_value(x));
}

double times_law::chain_step(double a, const double* x) const {
    return a * (same_operands_ ? a : right_value(x));
}

double and_law::chain_step(double a, const double* x) const {
    if (a == 0.0) return 0.0;
    const double b = left_law_ == right_law_ ? a : right_value(x);
    return b != 0.0 ? 1.0 : 0.0;
}

double or_law::chain_step(double a, const double* x) const {
    const double b = same_operands_ ? a : right_value(x);
    return a != 0.0 || b != 0.0 ? 1.0 : 0.0;
}

// ============================================================== structure

// Equal chains: the right operands pairwise, down both left spines at once.
int binary_law::same(const law* a, const law* b) const {
    auto* x = static_cast<const binary_law*>(a);
    auto* y = static_cast<const binary_law*>(b);
    for (;;) {
        const law* xr = x->right_law_;
        const law* yr = y->right_law_;
        if (xr != yr && (!xr || !yr || !(*xr == *yr))) return 0;
        const law* xl = x->left_law_;
        const law* yl = y->left_law_;
        if (xl == yl) return 1;
        if (!xl || !yl || xl->type() != yl->type()) return 0;
        if (!xl->isa(binary_law_id)) return *xl == *yl;
        x = static_cast<const binary_law*>(xl);
        y = static_cast<const binary_law*>(yl);
    }
}

// In the recursive order: the spine's nodes from the top, then the bottom operand, then
// the right operands from the bottom up.
void binary_law::hasa(int type_id, VOID_LIST& found) const {
    const std::vector<const binary_law*> spine = left_spine(this, [](const law* l) {
        return l && l->isa(binary_law_id) ? static_cast<const binary_law*>(l) : nullptr;
    });
    for (const binary_law* node : spine) node->law::hasa(type_id, found);
    if (const law* bottom = spine.back()->left_law_) bottom->hasa(type_id, found);
    for (auto node = spine.rbegin(); node != spine.rend(); ++node)
        if ((*node)->right_law_) (*node)->right_law_->hasa(type_id, found);
}

void binary_law::full_size(SizeAccumulator& size, int count_self) const {
    const law* node = this;
    while (node && node->isa(binary_law_id)) {
        auto* op = static_cast<const binary_law*>(node);
        if (count_self) size.add(sizeof(binary_law));
        op->law::full_size(size, 0);
        if (op->right_law_ && op->right_law_ != op->left_law_) op->right_law_->full_size(size, 1);
        node = op->left_law_;
        count_self = 1;
    }
    if (node) node->full_size(size, 1);
}

// ============================================================== domains

// The intersection of the operands' domains, down the left spine by a loop (f o g has
// its own domain and ends the walk).
int binary_law::term_domain(int which, QEM::interval& domain) const {
    domain = QEM::interval(QEM::interval_infinite);
    const law* node = this;
    for (const binary_law* op; (op = chain_node(node)) != nullptr; node = op->left_law_) {
        if (!op->right_law_ || op->right_law_ == op->left_law_) continue;
        QEM::interval part;
        op->right_law_->term_domain(which, part);
        domain &= part;
    }
    if (node) {
        QEM::interval part;
        node->term_domain(which, part);
        domain &= part;
    }
    return 1;
}

int binary_law::in_domain(double* x) const {
    const law* node = this;
    for (const binary_law* op; (op = chain_node(node)) != nullptr; node = op->left_law_)
        if (op->right_law_ && !op->right_law_->in_domain(x)) return 0;
    return !node || node->in_domain(x);
}

// ============================================================== printing

// Built in one string, left to right: a chain prints in time linear in its text.
// Node k of the spine reads  open_k text(k-1) close_k symbol_k right_k,  so all the
// opening parentheses of the left operands come first.
char* binary_law::string(law_symbol_type type, QEM::optional<int&> count,
                         QEM::optional<law_data_node*&> list) const {
    // An operand is parenthesised when it binds no tighter than its operator, except a
    // nested use of the same associative operator.
    auto needs_parens = [](const binary_law* op, const law* operand) {
        if (!operand) return false;
        if (operand->isa(binary_law_id) && operand->type() == op->type() &&
            static_cast<const binary_law*>(operand)->associative())
            return false;
        return operand->precedence() <= op->precedence();
    };
    const std::vector<const binary_law*> spine = left_spine(this, [](const law* l) {
        return l && l->isa(binary_law_id) ? static_cast<const binary_law*>(l) : nullptr;
    });
    std::string out;
    for (const binary_law* node : spine)
        if (needs_parens(node, node->left_law_)) out += '(';
    out += sub_text(spine.back()->left_law_, type, count, list);
    for (auto it = spine.rbegin(); it != spine.rend(); ++it) {
        const binary_law* node = *it;
        if (needs_parens(node, node->left_law_)) out += ')';
        out += node->symbol(type);
        const bool wrap = needs_parens(node, node->right_law_);
        if (wrap) out += '(';
        out += sub_text(node->right_law_, type, count, list);
        if (wrap) out += ')';
    }
    return heap_string(out);
}

// ============================================================== recursive walks

law_internal::walk_level::walk_level() {
    ++walk_depth;
}

law_internal::walk_level::~walk_level() {
    --walk_depth;
}

// The lowest address of the calling thread's stack, or null when unknown.
static char* stack_floor() {
    thread_local char* floor = [] {
        void* addr = nullptr;
        size_t size = 0;
        pthread_attr_t attr;
        if (pthread_getattr_np(pthread_self(), &attr) == 0) {
            pthread_attr_getstack(&attr, &addr, &size);
            pthread_attr_destroy(&attr);
        }
        return static_cast<char*>(addr);
    }();
    return floor;
}

// The count bounds the work; the stack left guards builds whose frames are larger
// (sanitizers) and threads with smaller stacks.
bool law_internal::walk_level::too_deep() const {
    const char* here = static_cast<const char*>(__builtin_frame_address(0));
    const char* floor = stack_floor();
    return walk_depth > max_walk_depth || (floor && here - floor < stack_reserve);
}
