#include <lawutil/internal/fast_eval.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <lawutil/main_law.h>
#include <qem/options.h>

namespace law_internal {

namespace {

QEM::option_header compile_numerics(compile_numerics_option_name, 1);

// A program whose laws keep raising at points nobody asked them for (a derivative singular
// where the law is not) costs an exception each time: past this many, the tree is cheaper.
constexpr int most_failures = 8;

// A law of this many nodes or more saves enough per point that its hunt compiles early.
constexpr int large_law_nodes = 16;
constexpr long compile_after_values_large = 64;

/// Nodes of l's tree (a shared sub-tree counted each time), counting stops at `limit`.
int count_nodes(const law* l, int limit) {
    if (!l || limit <= 0) return 0;
    int n = 1;
    if (l->isa(binary_law::id())) {
        const auto* b = static_cast<const binary_law*>(l);
        n += count_nodes(b->fleft(), limit - n);
        n += count_nodes(b->fright(), limit - n);
    } else if (l->isa(unary_law::id())) {
        n += count_nodes(static_cast<const unary_law*>(l)->fsub(), limit - n);
    } else if (l->isa(multiple_law::id())) {
        const auto* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsize() && n < limit; ++i)
            n += count_nodes(m->fsubs()[i], limit - n);
    }
    return n;
}

unsigned long long bits(double v) {
    unsigned long long u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

}  // namespace

bool numerics_may_compile() {
    return compile_numerics.count() != 0;
}

// ============================================================== joint_evaluator

joint_evaluator::~joint_evaluator() {
    law_program_release(program_);
}

int joint_evaluator::add(const law* l) {
    if (tried_ || n_ == max_laws || !l) return -1;
    if (n_ == 0 && count_nodes(l, large_law_nodes) >= large_law_nodes)
        compile_after_ = compile_after_values_large;
    laws_[n_] = law_ref::retain(l);
    return n_++;
}

int joint_evaluator::index_of(const law* l) const {
    for (int i = 0; i < n_; ++i)
        if (laws_[i].get() == l) return i;
    return -1;
}

void joint_evaluator::try_compile() {
    tried_ = true;
    if (n_ == 0 || !numerics_may_compile()) return;
    law* raw[max_laws];
    for (int i = 0; i < n_; ++i) raw[i] = laws_[i].get();
    law_program* p = law_compile(raw, n_);
    // Every law of the group is computed at every point asked: a part left to the tree
    // would be evaluated for laws nobody asked for, which the tree never does.
    if (p->tree_instruction_count() > 0 || p->output_count() != n_ ||
        p->input_count() > max_inputs) {
        law_program_release(p);
        return;
    }
    program_ = p;
}

void joint_evaluator::drop_program() {
    law_program_release(program_);
    program_ = nullptr;
}

double joint_evaluator::value(int i, double x) {
    const law* l = laws_[i].get();
    if (!program_) {
        if (tried_ || ++asked_ < compile_after_) return l->eval(x);
        try_compile();
        if (!program_) return l->eval(x);
    }
    const unsigned long long key = bits(x);
    int slot = -1;
    for (int k = 0; k < memo_size && slot < 0; ++k)
        if (memo_set_[k] && memo_x_[k] == key) slot = k;
    if (slot < 0) {
        double point[max_inputs];
        std::fill(point, point + program_->input_count(), x);
        double out[max_laws];
        try {
            program_->evaluate(point, out);
        } catch (const vorn_exception&) {
            // Some law of the group raises here; the one asked for answers by its tree,
            // which raises only when it is that law.
            if (++failures_ >= most_failures) drop_program();
            return l->eval(x);
        }
        next_ = (next_ + 1) % memo_size;
        slot = next_;
        memo_x_[slot] = key;
        memo_set_[slot] = true;
        for (int j = 0; j < n_; ++j) memo_v_[slot][j] = out[program_->first_output(j)];
    }
    const double v = memo_v_[slot][i];
    // The program's NaN may carry another sign or payload than the tree's, which a printed
    // result would show.
    return std::isnan(v) ? l->eval(x) : v;
}

// ============================================================== line_sampler

line_sampler::line_sampler(const law* const* laws, int n, int coordinates)
    : laws_(laws), n_(n), coordinates_(coordinates) {
    for (int i = 0; i < n; ++i) outputs_ += laws[i]->return_dim();
}

line_sampler::~line_sampler() {
    law_program_release(program_);
}

bool line_sampler::ready_for(long points) {
    if (program_) return true;
    if (tried_ || points < sample_after_points || !numerics_may_compile()) return false;
    tried_ = true;
    if (n_ < 1 || outputs_ > max_outputs) return false;
    law* raw[max_outputs];
    for (int i = 0; i < n_; ++i) raw[i] = const_cast<law*>(laws_[i]);
    law_program* p = law_compile(raw, n_);
    // Nothing to gain when every instruction hands its law to the tree (law data), nor on
    // a law of one operation: the tree evaluates it about as fast as a batch does.
    const bool helps = p->instruction_count() - p->tree_instruction_count() >= 2;
    if (!helps || p->input_count() > std::min(coordinates_, max_coordinates)) {
        law_program_release(p);
        return false;
    }
    program_ = p;
    return true;
}

void line_sampler::sample(const double* base, int which, const double* ts, int count,
                          double* const* out, int* done) const {
    double* shifted[max_outputs];
    for (int start = 0; start < count; start += block) {
        const int m = std::min(block, count - start);
        for (int j = 0; j < outputs_; ++j) shifted[j] = out[j] + start;
        int block_done = 0;
        try {
            sample_block(base, which, ts + start, m, shifted, &block_done);
        } catch (...) {
            *done = start + block_done;
            throw;
        }
    }
    *done = count;
}

void line_sampler::sample_block(const double* base, int which, const double* ts, int count,
                                double* const* out, int* done) const {
    const int nin = program_->input_count();
    double fixed[max_coordinates][block];
    const double* inputs[max_coordinates];
    for (int k = 0; k < nin; ++k) {
        if (k == which) {
            inputs[k] = ts;
        } else {
            std::fill(fixed[k], fixed[k] + count, base[k]);
            inputs[k] = fixed[k];
        }
    }
    double point[max_coordinates];
    double values[max_outputs];
    auto point_at = [&](int i) {
        std::copy(base, base + nin, point);
        if (which < nin) point[which] = ts[i];
    };
    try {
        program_->evaluate_batch(count, inputs, out);
    } catch (const vorn_exception&) {
        // A block raises without telling where: the points one by one find the first that
        // raises, and write the values before it.
        for (int i = 0; i < count; ++i) {
            *done = i;
            point_at(i);
            program_->evaluate(point, values);
            for (int j = 0; j < outputs_; ++j) out[j][i] = values[j];
        }
    }
    *done = count;
    for (int i = 0; i < count; ++i) {
        bool nan = false;
        for (int j = 0; j < outputs_; ++j) nan = nan || std::isnan(out[j][i]);
        if (!nan) continue;
        // The tree's NaN, sign and payload included, as a printed value would show it.
        point_at(i);
        tree_point(point, values);
        for (int j = 0; j < outputs_; ++j) out[j][i] = values[j];
    }
}

void line_sampler::tree_point(const double* point, double* values) const {
    for (int k = 0, at = 0; k < n_; at += laws_[k]->return_dim(), ++k)
        laws_[k]->evaluate(point, values + at);
}

}  // namespace law_internal
