#pragma once
// The numerics' evaluators: a law (or a law with its derivatives) evaluated by the tree
// until the call has asked for enough values that compiling pays, then by one compiled
// program.  The program's values are the tree's bit for bit and its errors the tree's,
// so the numerics give the same results either way; only the time changes.  Internal to
// the library; one evaluator per call, never shared between threads (the program is).

#include <lawutil/compile.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/law_base.h>

namespace law_internal {

/// Values asked for before a call compiles.  Compiling a law with its derivatives costs
/// about 30 evaluations of all of them by the tree (measured from X^3-X to a 30-node
/// law); a root hunt then recovers the cost after 350 (X^3-X), 210 (SIN(10*X)) or 140
/// (the 30-node law) more values, as a program saves 35% to 60% of each.  Waiting for
/// about that many before compiling bounds the loss of a call that stops just after, and
/// a short call never pays.  Laws of 16 nodes or more compile after 64.
constexpr long compile_after_values = 256;

/// Points asked for at once before a line of samples compiles.  Compiling one law costs
/// 50 to 100 evaluations of its tree, and a batch saves half or more of each evaluation
/// on laws of several operations.
constexpr long sample_after_points = 128;

/// True while the option "compile_numerics" lets the numerics compile (the default).
bool numerics_may_compile();

/// A few scalar laws of one variable that a search asks for at the same points (a law and
/// its derivatives): once compiled, one program call gives all of them at a point, with
/// the sub-trees they share computed once, and the last few points are remembered.
class joint_evaluator {
  public:
    static constexpr int max_laws = 4;
    static constexpr int max_inputs = 4;

    joint_evaluator() = default;
    joint_evaluator(const joint_evaluator&) = delete;
    joint_evaluator& operator=(const joint_evaluator&) = delete;
    ~joint_evaluator();

    /// Takes a use of `l` and returns its index, or -1 once the group is full or compiled
    /// (such a law is evaluated by its tree).
    int add(const law* l);
    /// The index of `l` in the group, or -1.
    int index_of(const law* l) const;
    /// law i at the point whose every coordinate is x: l->eval(x), with its errors.
    double value(int i, double x);
    /// True once the group is compiled: then every law of it is built only of operations
    /// the program computes itself (arithmetic, elementary functions), none of which
    /// restricts the domain, so in_domain is 1 everywhere and need not be asked.
    bool whole_domain() const { return program_ != nullptr; }

  private:
    void try_compile();
    void drop_program();

    law_ref laws_[max_laws];
    int n_ = 0;
    long compile_after_ = compile_after_values;
    long asked_ = 0;
    bool tried_ = false;
    int failures_ = 0;
    law_program* program_ = nullptr;
    // Remembered points: their bits and every law's value there.
    static constexpr int memo_size = 4;
    unsigned long long memo_x_[memo_size] = {};
    double memo_v_[memo_size][max_laws] = {};
    bool memo_set_[memo_size] = {};
    int next_ = 0;
};

/// Laws evaluated together at many points that differ in one coordinate: compiled once
/// the call asks for enough points at once, evaluated in blocks through the program.
class line_sampler {
  public:
    /// `laws[0..n-1]`, evaluated at points of `coordinates` values (at least the laws'
    /// take_dim()).
    line_sampler(const law* const* laws, int n, int coordinates);
    line_sampler(const line_sampler&) = delete;
    line_sampler& operator=(const line_sampler&) = delete;
    ~line_sampler();

    /// Compiles on the first call asking for at least sample_after_points points; true
    /// when a program serves them (false: the caller evaluates by the tree).
    bool ready_for(long points);
    /// Values written per point: every law's return_dim(), added up.
    int outputs() const { return outputs_; }

    /// For i in [0, count): the point `base` with coordinate `which` set to ts[i]; output
    /// value j of it to out[j][i].  Only after ready_for gave true.  When a point raises,
    /// `*done` is its index, the points before it are written, and the error (the tree's)
    /// passes to the caller; otherwise `*done` is count.
    void sample(const double* base, int which, const double* ts, int count, double* const* out,
                int* done) const;

  private:
    void sample_block(const double* base, int which, const double* ts, int count,
                      double* const* out, int* done) const;
    void tree_point(const double* point, double* values) const;

    static constexpr int block = 256;
    static constexpr int max_coordinates = 8;
    static constexpr int max_outputs = 16;
    const law* const* laws_;
    int n_;
    int coordinates_;
    int outputs_ = 0;
    bool tried_ = false;
    law_program* program_ = nullptr;
};

}  // namespace law_internal
