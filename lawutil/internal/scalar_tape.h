#pragma once
// A scalar law tree flattened into a list of operations over a small value stack, for
// laws that are evaluated many times.  Each operation reads its operands from the stack
// or in place (a constant, a coordinate), so X*X+1 runs as two operations instead of two
// calls through the tree.  The operations call the same arithmetic as the tree (the
// division's tolerance and L'Hospital's rule, the power's checks, each function's own
// value with its domain checks), so a law's values and errors do not depend on whether a
// tape runs.  Internal to the library.

#include <cstdint>
#include <vector>

class law;

namespace law_internal {

struct tape_op {
    enum code_t : std::uint8_t {
        leaf,
        call,
        add,
        subtract,
        multiply,
        divide,
        power,
        square,
        negate,
        function
    };
    enum operand_t : std::uint8_t { on_stack, constant, coordinate };

    code_t code = leaf;
    operand_t left = on_stack;
    operand_t right = on_stack;
    int left_index = 0;
    int right_index = 0;
    double left_value = 0.0;
    double right_value = 0.0;
    const law* node = nullptr;       ///< the division (for its rules) or the law to call
    double (*fn)(double) = nullptr;  ///< the function of a function node
};

class scalar_tape {
  public:
    /// The tape of a scalar law, or null when the law does not flatten (it is not scalar,
    /// or its tree is deeper or larger than a tape holds).
    static scalar_tape* compile(const law* root);
    /// The law's value at `x`; raises what the tree would raise.
    double run(const double* x) const;

  private:
    std::vector<tape_op> ops_;
};

/// a^b with the power law's checks (0 to a non-positive power, a negative base with a
/// non-integral power) and its version rule.
double checked_pow(double a, double b);

}  // namespace law_internal
