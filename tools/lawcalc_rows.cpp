#include "lawcalc_rows.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <qem/options.h>

namespace lawcalc {

namespace {

// Compiling costs about 50 to 100 evaluations of the law by the tree.
constexpr size_t compile_from = 128;
constexpr int block = 256;
// Points of more inputs than this are evaluated by the tree.
constexpr int most_inputs = 8;

struct program_deleter {
    void operator()(law_program* p) const { law_program_release(p); }
};
using program_ptr = std::unique_ptr<law_program, program_deleter>;

program_ptr compile_for_rows(const law* l, size_t points) {
    const QEM::option_header* allowed = find_option(compile_numerics_option_name);
    if (points < compile_from || (allowed && allowed->count() == 0)) return nullptr;
    if (l->take_dim() > most_inputs || l->return_dim() < 1) return nullptr;
    law* raw = const_cast<law*>(l);
    program_ptr p(law_compile(&raw, 1));
    if (p->tree_instruction_count() >= p->instruction_count()) return nullptr;
    return p;
}

void tree_rows(const law* l, const std::vector<double>& xs, size_t from, size_t to,
               const row_fn& row) {
    const int m = std::max(1, l->return_dim());
    std::vector<double> point(static_cast<size_t>(std::max(1, l->take_dim())), 0.0);
    std::vector<double> values(static_cast<size_t>(m));
    for (size_t i = from; i < to; ++i) {
        point[0] = xs[i];
        try {
            l->evaluate(point.data(), values.data());
        } catch (const vorn_exception& e) {
            row(i, nullptr, e.what());
            continue;
        }
        row(i, values.data(), nullptr);
    }
}

}  // namespace

void evaluate_rows(const law* l, const std::vector<double>& xs, const row_fn& row) {
    const program_ptr program = compile_for_rows(l, xs.size());
    if (!program) {
        tree_rows(l, xs, 0, xs.size(), row);
        return;
    }
    const int nin = program->input_count(), m = program->output_count();
    const std::vector<double> zeros(block, 0.0);
    std::vector<double> columns(static_cast<size_t>(m) * block), values(static_cast<size_t>(m));
    std::vector<const double*> inputs(static_cast<size_t>(nin), zeros.data());
    std::vector<double*> outputs(static_cast<size_t>(m));
    for (int j = 0; j < m; ++j) outputs[static_cast<size_t>(j)] = columns.data() + j * block;
    for (size_t start = 0; start < xs.size(); start += block) {
        const size_t n = std::min<size_t>(block, xs.size() - start);
        if (nin > 0) inputs[0] = xs.data() + start;
        try {
            program->evaluate_batch(static_cast<int>(n), inputs.data(), outputs.data());
        } catch (const vorn_exception&) {
            // Some point of the block raises: the tree says which and what, point by point.
            tree_rows(l, xs, start, start + n, row);
            continue;
        }
        for (size_t i = 0; i < n; ++i) {
            bool nan = false;
            for (int j = 0; j < m; ++j) {
                values[static_cast<size_t>(j)] = outputs[static_cast<size_t>(j)][i];
                nan = nan || std::isnan(values[static_cast<size_t>(j)]);
            }
            // A NaN prints with its sign, which only the tree's own NaN is sure to have.
            if (nan)
                tree_rows(l, xs, start + i, start + i + 1, row);
            else
                row(start + i, values.data(), nullptr);
        }
    }
}

}  // namespace lawcalc
