#pragma once
// What the law compiler hands to the Taylor (jet) builder: the instruction list over values
// it makes of a set of laws, before fusing and slot assignment, and the hooks by which a
// law_program runs jet code instead of plain code.  Never part of a public header.

#include <algorithm>
#include <vector>

#include <lawutil/law_base.h>

class law_program;
class law_program_impl;

namespace law_internal {

enum class op : unsigned char {
    add,
    sub,
    mul,
    div,
    neg,
    pow,
    muladd,  // a*b + c
    addmul,  // c + a*b
    mulsub,  // a*b - c
    submul,  // c - a*b
    sin,
    cos,
    sincos,  // d = sin a, d2 = cos a
    exp,
    call,         // d = fn(a), a function of one scalar with its own checks
    tree_scalar,  // d = node->evaluate_scalar(x)
    tree_full,    // the dests = node->evaluate(x)
    quot,         // a / b for a constant b at least 1 in magnitude: no check can fire
    // The one-point stream only: its start and end.
    constant,  // d = k
    input,     // d = x[a]
    output,    // out[a] = d
    // The one-point stream: the operation with its constant operand (b, or c for the fused
    // ones) as the immediate k.
    add_k,
    sub_k,
    mul_k,
    quot_k,
    muladd_k,
    addmul_k,
    mulsub_k,
    submul_k,
};

using scalar_fn = double (*)(double);

/// One value of the listing: a constant, a coordinate, or the result of an instruction.
/// Slots for a program's values by their lifetimes: a slot given back is taken again
/// before a new one is made, so the slots a program needs stay as few as its live values.
struct slot_pool {
    int count = 0;  ///< slots made so far
    std::vector<int> free{};

    int fresh() { return count++; }
    int take() {
        if (free.empty()) return count++;
        const int s = free.back();
        free.pop_back();
        return s;
    }
    void give(int s) { free.push_back(s); }
    bool holds(int s) const { return std::find(free.begin(), free.end(), s) != free.end(); }
};

struct listed_value {
    enum kind_t { constant, input, result } kind;
    double number = 0.0;  // constant
    int coordinate = 0;   // input
};

/// One instruction over values (indices into program_listing::values).  Only the plain
/// operations occur: add, sub, mul, div, quot, neg, pow, sin, cos, exp, call, tree_scalar
/// and tree_full.  `node` is the law the instruction stands for where the compiler kept it
/// (div for 0/0, call, the tree instructions).
struct listed_instr {
    op code;
    int d = -1, a = -1, b = -1;
    std::vector<int> dests;  // tree_full
    scalar_fn fn = nullptr;
    const law* node = nullptr;
};

struct program_listing {
    std::vector<listed_value> values;
    std::vector<listed_instr> code;
    std::vector<int> outputs;       // per output value: its value
    std::vector<int> first_output;  // per law
    int inputs = 0;
};

/// Jet code owned by a law_program (see compile_jet.cpp): built from the compiler's
/// instruction list for the laws, in the order the tree evaluates, constants folded and
/// equal sub-expressions shared as in law_compile.
class jet_code;
jet_code* jet_build(const program_listing& listing, int order, int which);
void jet_release(jet_code* code);
void jet_evaluate(const jet_code& code, const double* x, double* out);
void jet_evaluate_batch(const jet_code& code, int inputs, int npoints, const double* const* in,
                        double* const* out);
/// law_compile_jet for one law, holding no use of it: for a program kept with the law.
law_program* compile_jet_unheld(const law* f, int order, int which);
law_program* wrap_program(law_program_impl* impl);
int jet_output_count(const jet_code& code);
int jet_instruction_count(const jet_code& code);
int jet_tree_instruction_count(const jet_code& code);

}  // namespace law_internal
