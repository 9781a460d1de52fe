#pragma once
// Compiled laws: one or more laws (typically a law together with its derivatives) turned
// into a flat program of numeric instructions, for callers that evaluate the same laws
// at many points.
//
// The program reproduces law::evaluate exactly: every value has the same bits as the
// tree gives (NaN included, as NaN), and wherever the tree raises, the program raises
// the same code.  Operators whose behaviour it does not reproduce natively (comparisons,
// selections, steps, law data, compositions, vector arithmetic...) are evaluated by the
// tree itself, sub-tree by sub-tree, inside the program.  Constants are folded where
// folding cannot change a value or an error, sub-expressions shared between the laws are
// computed once, and a product feeding one sum or difference, and the sine and cosine of
// one argument, are computed by one instruction each.
//
// A program is immutable once compiled: any number of threads may evaluate it at once.
// It holds a use of each law it was compiled from.

#include <lawutil/law_base.h>

class law_program;
class law_program_impl;
namespace law_internal {
law_program* wrap_program(law_program_impl* impl);
}

/// Compiles the `n` laws `laws[0..n-1]` into one program (the caller owns it and frees it
/// with law_program_release).  Raises LAW_DIM for n < 1 or a null law.  Compiling never
/// evaluates anything but constant sub-expressions, and raises nothing they raise: such
/// an error is raised by the program when it is evaluated, as the tree would.
LAW_API law_program* law_compile(law* const* laws, int n);

/// The highest derivative order law_compile_jet and law_jet take.
inline constexpr int law_jet_max_order = 64;

/// Compiles the `n` laws into a program of their Taylor jets with respect to variable
/// `which`: for each law in turn, its value (return_dim() numbers), then its first
/// derivative (return_dim() numbers), and so on to the derivative of order `order`, so
/// that output_count() is (order + 1) times the laws' return dimensions added up and
/// first_output(i) is where law i's value starts.  The outputs are derivatives, not Taylor
/// coefficients: the k-th block holds d^k f / dx_which^k, k! times the coefficient.
///
/// One pass over the compiled instructions carries a truncated Taylor series through each
/// operation by its recurrence (products and quotients by series convolution and division,
/// powers by the logarithmic derivative, sine and cosine together, the inverse functions
/// through their derivatives), in time that grows as order^2, however large the symbolic
/// derivative of that order would be.  Each rule follows the law's own derivative: the
/// values agree with the symbolic derivatives' to rounding, and the value itself has the
/// bits law::evaluate gives.  Vector products, constant components and compositions whose
/// outer law compiles whole are carried as their arithmetic; a sub-law the compiler leaves
/// to the tree takes its jet from its own (cached) symbolic derivatives, which compiling
/// builds, for those sub-laws only.  A point where the tree's value or one of the
/// derivatives raises makes the program raise; where the value raises it raises the same
/// code.  A law without a derivative raises LAW_DERIV when evaluated for order >= 1.
/// A constant sub-expression has derivatives 0, even where the tree's chain rule would
/// evaluate a derivative factor at it and raise.
/// Raises LAW_DIM for n < 1, a null law, an order outside [0, law_jet_max_order] or a
/// negative variable.  Freed with law_program_release.
LAW_API law_program* law_compile_jet(law* const* laws, int n, int order, int which);

/// The value and the derivatives of order 1..`order` of `f` with respect to variable
/// `which` at the point `x` (f->take_dim() coordinates), written as law_compile_jet lays
/// them out: (order + 1) * f->return_dim() numbers.  The program is compiled on first use
/// and kept with the law, one per order and variable, under the law's lock.
/// Raises LAW_DIM for a null law or the arguments law_compile_jet refuses.
LAW_API void law_jet(const law* f, const double* x, int order, int which, double* out);

/// The option that lets the numerics (root hunt, Romberg integration, finite differences,
/// min-rotation sampling) evaluate their laws through a compiled program where that pays:
/// 1 (the default) lets them, 0 keeps the tree.  The results are the same either way.
inline constexpr const char* compile_numerics_option_name = "compile_numerics";

/// Frees a program from law_compile and gives back its uses of the laws (null is ignored).
LAW_API void law_program_release(law_program* program);

class LAW_API law_program : public QEM::heap_object {
  public:
    law_program(const law_program&) = delete;
    law_program& operator=(const law_program&) = delete;

    /// Coordinates per point: the largest take_dim() of the compiled laws.
    int input_count() const;
    /// Values per point: the return_dim() of every law, added up.
    int output_count() const;
    /// Number of laws compiled.
    int law_count() const;
    /// Position of law `i`'s first value among the outputs (law 0 starts at 0).
    int first_output(int i) const;
    /// Instructions executed per point (for reports and tests).
    int instruction_count() const;
    /// Those of them that hand a law or a part of one to the tree, having no instruction
    /// of their own for it (law data, selections, compositions...).  A program made only
    /// of these is no faster than the tree.
    int tree_instruction_count() const;

    /// Evaluates every law at the point `x` (input_count() values) and writes
    /// output_count() values to `out`: law 0's values, then law 1's, and so on.  Raises
    /// what evaluating the laws one after the other with law::evaluate raises first.
    /// No heap use, no lock (unless a sub-tree evaluated by the tree takes one).
    void evaluate(const double* x, double* out) const;

    /// Evaluates `npoints` points: coordinate k of point i is inputs[k][i]; output value
    /// j of point i goes to outputs[j][i] (output_count() arrays, none overlapping an
    /// input array).  Points are processed in blocks, one instruction over a whole block
    /// at a time.  When a point raises, raises what evaluate raises at the first such
    /// point; the outputs are then unspecified.  Temporary storage is on the stack up to
    /// a fixed size, on the heap above it (very large programs only).  Raises LAW_DIM
    /// when an input or output array is null.
    void evaluate_batch(int npoints, const double* const* inputs, double* const* outputs) const;

  private:
    friend law_program* law_compile(law* const* laws, int n);
    friend law_program* law_internal::wrap_program(law_program_impl* impl);
    friend void law_program_release(law_program* program);
    explicit law_program(law_program_impl* impl);
    ~law_program();
    law_program_impl* impl_;
};
