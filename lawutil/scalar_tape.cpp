#include <lawutil/internal/scalar_tape.h>

#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>

namespace law_internal {

namespace {

// A tape's value stack lives on the C++ stack while it runs.
constexpr int max_stack = 64;
constexpr size_t max_ops = 4096;

class compiler {
  public:
    std::vector<tape_op> ops;

    // Emits `l` so that its value ends up on top of the stack; false when it cannot.
    bool emit(const law* l) {
        if (ops.size() >= max_ops || !l || l->return_dim() != 1) return false;
        tape_op op;
        if (place(l, op.left, op.left_index, op.left_value)) {
            op.code = tape_op::leaf;
            return push(op);
        }
        if (l->isa(binary_law_id)) return binary(static_cast<const binary_law*>(l));
        if (l->isa(unary_law_id)) return unary(static_cast<const unary_law*>(l));
        return call(l);
    }

  private:
    int depth_ = 0;

    bool push(const tape_op& op) {
        ops.push_back(op);
        return ++depth_ <= max_stack;
    }

    bool call(const law* l) {
        tape_op op;
        op.code = tape_op::call;
        op.node = l;
        return push(op);
    }

    // A constant or a coordinate is read in place instead of from the stack.
    static bool place(const law* l, tape_op::operand_t& kind, int& index, double& value) {
        if (l->isa(constant_law_id)) {
            kind = tape_op::constant;
            value = static_cast<const constant_law*>(l)->value();
            return true;
        }
        if (l->isa(identity_law_id) && static_cast<const identity_law*>(l)->index() >= 0) {
            kind = tape_op::coordinate;
            index = static_cast<const identity_law*>(l)->index();
            return true;
        }
        return false;
    }

    // An operand: in place, or emitted onto the stack.
    bool operand(const law* l, tape_op::operand_t& kind, int& index, double& value) {
        if (place(l, kind, index, value)) return true;
        kind = tape_op::on_stack;
        return emit(l);
    }

    bool binary(const binary_law* l) {
        tape_op op;
        if (!l->scalar_operands() || !l->fleft() || !l->fright()) return call(l);
        const int type = l->type();
        if (type == plus_law_id)
            op.code = tape_op::add;
        else if (type == minus_law_id)
            op.code = tape_op::subtract;
        else if (type == times_law_id)
            op.code = tape_op::multiply;
        else if (type == division_law_id)
            op.code = tape_op::divide, op.node = l;
        else if (type == exponent_law_id)
            op.code =
                static_cast<const exponent_law*>(l)->squares() ? tape_op::square : tape_op::power;
        else
            return call(l);
        // Left first, then right, as the tree evaluates them.
        if (!operand(l->fleft(), op.left, op.left_index, op.left_value)) return false;
        if (!operand(l->fright(), op.right, op.right_index, op.right_value)) return false;
        depth_ -= (op.left == tape_op::on_stack) + (op.right == tape_op::on_stack);
        return push(op);
    }

    bool unary(const unary_law* l) {
        const law* sub = l->fsub();
        if (!sub || sub->return_dim() != 1) return call(l);
        tape_op op;
        if (l->type() == negate_law_id) {
            op.code = tape_op::negate;
        } else if (auto fn = l->scalar_function()) {
            op.code = tape_op::function;
            op.fn = fn;
        } else {
            return call(l);
        }
        if (!operand(sub, op.left, op.left_index, op.left_value)) return false;
        depth_ -= op.left == tape_op::on_stack;
        return push(op);
    }
};

}  // namespace

scalar_tape* scalar_tape::compile(const law* root) {
    compiler c;
    if (!c.emit(root)) return nullptr;
    auto* tape = new scalar_tape;
    tape->ops_ = std::move(c.ops);
    return tape;
}

double scalar_tape::run(const double* x) const {
    double stack[max_stack];
    int top = 0;
    auto read = [&](tape_op::operand_t kind, int index, double value) {
        return kind == tape_op::on_stack   ? stack[--top]
               : kind == tape_op::constant ? value
                                           : x[index];
    };
    for (const tape_op& op : ops_) {
        if (op.code == tape_op::leaf) {
            stack[top++] = read(op.left, op.left_index, op.left_value);
            continue;
        }
        if (op.code == tape_op::call) {
            stack[top++] = op.node->evaluate_scalar(x);
            continue;
        }
        if (op.code == tape_op::negate || op.code == tape_op::function) {
            const double a = read(op.left, op.left_index, op.left_value);
            stack[top++] = op.code == tape_op::negate ? -a : op.fn(a);
            continue;
        }
        // The right operand is above the left one on the stack.
        const double b = read(op.right, op.right_index, op.right_value);
        const double a = read(op.left, op.left_index, op.left_value);
        double v;
        switch (op.code) {
            case tape_op::add:
                v = a + b;
                break;
            case tape_op::subtract:
                v = a - b;
                break;
            case tape_op::multiply:
                v = a * b;
                break;
            case tape_op::divide:
                v = static_cast<const division_law*>(op.node)->quotient(a, b, x);
                break;
            case tape_op::square:
                v = a * a;
                break;
            default:
                v = checked_pow(a, b);
                break;
        }
        stack[top++] = v;
    }
    return stack[0];
}

}  // namespace law_internal
