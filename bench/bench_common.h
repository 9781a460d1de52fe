#pragma once
// Helpers shared by the benchmark executables: the evaluation points and the node count
// of a law tree.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <unordered_map>
#include <vector>

#include <lawutil/lawutil.h>

namespace bench {

constexpr int point_count = 1024;

/// `point_count` points evenly over [lo, hi), the same for every method.
inline std::vector<double> make_points(double lo, double hi) {
    std::vector<double> x(point_count);
    for (int i = 0; i < point_count; ++i) x[i] = lo + (hi - lo) * i / point_count;
    return x;
}

/// Nodes of the tree as written: a sub-tree counts each time it appears, however many
/// parents share the object.  The count of each object is remembered, so that a deep
/// chain of shared sub-trees (a naive derivative of high order) is counted in time
/// proportional to the number of objects, not to the (much larger) tree it stands for.
class node_counter {
  public:
    std::uint64_t operator()(const law* l) {
        if (l == nullptr) return 0;
        auto found = memo_.find(l);
        if (found != memo_.end()) return found->second;
        std::uint64_t n = 1;
        if (l->isa(binary_law::id())) {
            const auto* b = static_cast<const binary_law*>(l);
            n += (*this)(b->fleft()) + (*this)(b->fright());
        } else if (l->isa(unary_law::id())) {
            n += (*this)(static_cast<const unary_law*>(l)->fsub());
        } else if (l->isa(multiple_law::id())) {
            const auto* m = static_cast<const multiple_law*>(l);
            for (int i = 0; i < m->fsize(); ++i) n += (*this)(m->fsubs()[i]);
        }
        memo_.emplace(l, n);
        return n;
    }

    /// Distinct objects seen so far.
    std::size_t objects() const { return memo_.size(); }

  private:
    std::unordered_map<const law*, std::uint64_t> memo_;
};

inline std::uint64_t count_nodes(const law* l) {
    return node_counter()(l);
}

/// While it lives, the numerics evaluate by the tree only (the option "compile_numerics"
/// at 0): the column that shows what the compiled form gains.
class tree_numerics {
  public:
    explicit tree_numerics(bool on = true) : on_(on) {
        if (on_) find_option(compile_numerics_option_name)->push(0);
    }
    ~tree_numerics() {
        if (on_) find_option(compile_numerics_option_name)->pop();
    }
    tree_numerics(const tree_numerics&) = delete;
    tree_numerics& operator=(const tree_numerics&) = delete;

  private:
    bool on_;
};

/// The frame of every benchmark program: starts Google Benchmark and the law library, runs
/// `body` (which builds its laws, checks them, registers and runs its benchmarks, and
/// answers false when a check failed), then checks that every law it built was released.
/// Returns the process status.
template <class Body>
int run_program(const char* name, int argc, char** argv, Body&& body) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    initialize_law();
    int status = 0;
    try {
        const long live_before = law::live_laws();
        if (!body()) status = 1;
        const long live_after = law::live_laws();
        if (live_after != live_before) {
            std::fprintf(stderr, "%ld laws alive before the run, %ld after\n", live_before,
                         live_after);
            status = 1;
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", name, e.what());
        status = 1;
    }
    benchmark::Shutdown();
    terminate_law();
    return status;
}

}  // namespace bench
