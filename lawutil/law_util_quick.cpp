#include <lawutil/internal/quick_reader.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_data.h>
#include <lawutil/law_errors.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>
#include <qem/errors.h>

// The general parser finds, in each part of the text, the operator that binds weakest
// and splits there.  On the texts read here that gives what precedence climbing gives:
// every binary operator associates to the left, a prefix "-" takes only the operand after
// it, and a function takes the parenthesised group after its name.  Anything whose
// reading depends on the finer rules of the split (a prefix operator that binds weaker
// than the operators around it, a missing operand, two operands in a row, an implied
// product, references to data, nesting near the parser's limit) makes the quick reader
// give up before it has built anything.

namespace {

using law_internal::quick_outcome;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// How a prototype reads, as the general parser builds it.
enum class sym_kind : unsigned char { binary, negate, function, list, constant, other };

struct symbol_entry {
    const char* text;
    int length;
    char second;  // the symbol's second character, tested first
    const law* proto;
    sym_kind kind;
    bool prefix;  // may stand where an operand is expected
    bool infix;   // may stand after an operand
    int rank;
};

sym_kind kind_of(const law* p) {
    // The order in which the general parser tests the kinds when it builds a node.
    if (p->isa(binary_law_id)) return sym_kind::binary;
    if (p->isa(unary_law_id)) {
        // A prefix operator of lower rank (NOT) takes the text after it whatever binds
        // there: left to the general parser.
        if (p->precedence() != 8) return sym_kind::other;
        return p->isa(negate_law_id) ? sym_kind::negate : sym_kind::function;
    }
    if (p->isa(multiple_law_id)) return sym_kind::list;
    if (p->isa(unary_data_law_id) || p->isa(multiple_data_law_id)) return sym_kind::other;
    if (p->isa(constant_law_id)) return sym_kind::constant;
    return sym_kind::other;
}

// The registry by first character, longest symbol first and in list order among equal
// lengths: the general parser's tokenizer picks the same symbol.
struct symbol_table {
    std::vector<symbol_entry> by_first[128];
    std::vector<std::string> data_by_first[128];

    symbol_table() {
        for (const law_list* n = law_list::head(); n; n = n->next()) {
            const law* p = n->prototype();
            const char* sym = p->symbol(SYMBOL_PARSE);
            if (!sym || !*sym || static_cast<unsigned char>(*sym) >= 128) continue;
            const bool prefix = p->isa(unary_law_id) || p->isa(unary_data_law_id) ||
                                p->isa(multiple_data_law_id) || p->isa(multiple_law_id) ||
                                p->isa(constant_law_id);
            by_first[static_cast<int>(*sym)].push_back(
                symbol_entry{sym, static_cast<int>(std::strlen(sym)), sym[1], p, kind_of(p), prefix,
                             p->isa(binary_law_id) != 0, p->precedence()});
        }
        for (auto& bucket : by_first)
            std::stable_sort(
                bucket.begin(), bucket.end(),
                [](const symbol_entry& a, const symbol_entry& b) { return a.length > b.length; });
        for (const law_data_list* n = law_data_list::head(); n; n = n->next()) {
            const char* sym = n->prototype()->symbol(SYMBOL_PARSE);
            if (sym && *sym && static_cast<unsigned char>(*sym) < 128)
                data_by_first[static_cast<int>(*sym)].emplace_back(sym);
        }
    }
};

const symbol_table& symbols() {
    static const symbol_table table;  // after every static registration has run
    return table;
}

// One step of the program that builds the law, in the order the general parser builds.
struct step {
    enum kind_t : unsigned char { variable, number, constant, unary, binary, list } kind;
    char letter;
    int count;  // the variable's index, or the number of parts the node takes
    int at;     // offset in the upper-cased text of the symbol
    const law* proto;
    double value;
};

struct token {
    enum type_t { none, variable, number, symbol } type = none;
    int length = 0;
    int index = 0;
    double value = 0.0;
    const symbol_entry* entry = nullptr;
};

// Beyond this many nested operands the general parser's own nesting count could come
// near its limit (each level here is at most about ten of its levels).
constexpr int max_quick_nesting = 48;
// The longest number the language reads.
constexpr int max_number_length = 32;

class quick_reader {
  public:
    quick_reader(const char* s, int n, std::vector<step>& steps)
        : s_(s), end_(s + n), p_(s), steps_(steps) {
        steps_.clear();
        // Enough for most texts at once; a hostile one given up early reserves little.
        steps_.reserve(std::min(static_cast<size_t>(n) / 2 + 1, size_t{1} << 16));
    }

    bool read() { return expression(1) && p_ == end_; }

  private:
    bool at_end_of_operand() const { return p_ == end_ || *p_ == ')' || *p_ == ','; }
    bool starts_with(const char* word, int length) const {
        // Symbols are short: a plain loop beats a call.
        if (end_ - p_ < length) return false;
        for (int i = 0; i < length; ++i)
            if (p_[i] != word[i]) return false;
        return true;
    }
    int offset() const { return static_cast<int>(p_ - s_); }
    void emit(step::kind_t kind, const law* proto, int count, int at) {
        steps_.push_back(step{kind, 0, count, at, proto, 0.0});
    }

    bool expression(int min_rank);
    bool operand();
    bool arguments_of(const symbol_entry& e, int at);
    bool read_token(bool prefix, token& t) const;
    const symbol_entry* infix_operator();
    bool read_number(token& t) const;
    bool read_indexed_variable(token& t) const;

    const char* s_;
    const char* end_;
    const char* p_;
    int nesting_ = 0;
    const char* peeked_at_ = nullptr;
    const symbol_entry* peeked_ = nullptr;
    std::vector<step>& steps_;
};

// The symbol after an operand, read once however many levels of expression ask for it.
const symbol_entry* quick_reader::infix_operator() {
    if (peeked_at_ != p_) {
        token t;
        peeked_ = read_token(false, t) && t.type == token::symbol ? t.entry : nullptr;
        peeked_at_ = p_;
    }
    return peeked_;
}

// operand (binary-operator operand)*, every operator of rank min_rank or above, each
// associating to the left.
bool quick_reader::expression(int min_rank) {
    if (!operand()) return false;
    for (;;) {
        if (at_end_of_operand()) return true;
        const symbol_entry* op = infix_operator();
        if (!op) return false;
        const symbol_entry& e = *op;
        if (e.kind != sym_kind::binary || e.rank < 1 || e.rank > 8) return false;
        if (e.rank < min_rank) return true;
        const int at = offset();
        p_ += e.length;
        if (!expression(e.rank + 1)) return false;
        emit(step::binary, e.proto, 2, at);
    }
}

bool quick_reader::operand() {
    if (at_end_of_operand() || ++nesting_ > max_quick_nesting) return false;
    const int at = offset();
    if (*p_ == '(') {
        ++p_;
        if (!expression(1) || p_ == end_ || *p_ != ')') return false;
        ++p_;
        --nesting_;
        return true;
    }
    token t;
    if (!read_token(true, t)) return false;
    p_ += t.length;
    switch (t.type) {
        case token::variable:
            steps_.push_back(step{step::variable, s_[at], t.index, at, nullptr, 0.0});
            break;
        case token::number:
            steps_.push_back(step{step::number, 0, 0, at, nullptr, t.value});
            break;
        case token::symbol: {
            const symbol_entry& e = *t.entry;
            switch (e.kind) {
                case sym_kind::negate:
                    if (!operand()) return false;
                    emit(step::unary, e.proto, 1, at);
                    break;
                case sym_kind::function:
                    // The argument is the group after the name (SINX is left to the
                    // general parser).
                    if (p_ == end_ || *p_ != '(') return false;
                    ++p_;
                    if (!expression(1) || p_ == end_ || *p_ != ')') return false;
                    ++p_;
                    emit(step::unary, e.proto, 1, at);
                    break;
                case sym_kind::list:
                    if (!arguments_of(e, at)) return false;
                    break;
                case sym_kind::constant:
                    emit(step::constant, e.proto, 0, at);
                    break;
                default:
                    return false;
            }
            break;
        }
        default:
            return false;
    }
    --nesting_;
    return true;
}

// "(" expression ("," expression)* ")", none of them empty.
bool quick_reader::arguments_of(const symbol_entry& e, int at) {
    if (p_ == end_ || *p_ != '(') return false;
    ++p_;
    int count = 0;
    for (;;) {
        if (!expression(1) || p_ == end_) return false;
        ++count;
        const char c = *p_++;
        if (c == ')') break;
        if (c != ',') return false;
    }
    emit(step::list, e.proto, count, at);
    return true;
}

// A number as the general parser reads one (digits, '.', and an exponent whose sign is
// taken whatever it is), accepted only when the conversion uses all of it and fits.
bool quick_reader::read_number(token& t) const {
    int n = 0;
    while (p_ + n < end_) {
        const char c = p_[n];
        if (is_digit(c) || c == '.')
            ++n;
        else if (c == 'E')
            n += p_ + n + 1 < end_ ? 2 : 1;
        else
            break;
        if (n > max_number_length) return false;
    }
    const auto r = std::from_chars(p_, p_ + n, t.value, std::chars_format::general);
    if (r.ec != std::errc() || r.ptr != p_ + n) return false;
    t.type = token::number;
    t.length = n;
    return true;
}

// A letter and a whole number (X2, A3): the variable of that index.  Other numbers after
// a letter (X1.5, X0, X1E2) are left to the general parser.
bool quick_reader::read_indexed_variable(token& t) const {
    int n = 1;
    int value = 0;
    while (p_ + n < end_ && is_digit(p_[n])) {
        if (n > 9) return false;
        value = value * 10 + (p_[n] - '0');
        ++n;
    }
    if (p_ + n < end_ && (p_[n] == '.' || p_[n] == 'E')) return false;
    if (value < 1) return false;
    t.type = token::variable;
    t.index = value - 1;
    t.length = n;
    return true;
}

// The token at p_, as the general parser's tokenizer reads it in the same position;
// false for anything this reader leaves to it.
bool quick_reader::read_token(bool prefix, token& t) const {
    const char c = *p_;
    if (static_cast<unsigned char>(c) >= 128) return false;
    const char next = p_ + 1 < end_ ? p_[1] : '\0';
    if (is_upper(c)) {
        if (is_digit(next)) {
            if (!read_indexed_variable(t)) return false;
        } else if (next == '.') {
            return false;
        } else if (c == 'X' || c == 'U' || c == 'T' || c == 'Y' || c == 'V' || c == 'Z') {
            t.type = token::variable;
            t.index = (c == 'Y' || c == 'V') ? 1 : c == 'Z' ? 2 : 0;
            t.length = 1;
        }
        if (c == 'L' && starts_with("LAW", 3)) return false;
    } else if (is_digit(c) || c == '.') {
        if (!read_number(t)) return false;
    }
    const symbol_table& table = symbols();
    for (const std::string& d : table.data_by_first[static_cast<int>(c)])
        if (static_cast<int>(d.size()) > t.length && d[1] == next &&
            starts_with(d.c_str(), static_cast<int>(d.size())))
            return false;
    for (const symbol_entry& e : table.by_first[static_cast<int>(c)]) {
        if (e.length <= t.length) break;
        if (e.second != next && e.length > 1) continue;
        if (!(prefix ? e.prefix : e.infix) || !starts_with(e.text, e.length)) continue;
        // A symbol of both kinds would be built as the other one.
        if (prefix && e.kind == sym_kind::binary) return false;
        t.type = token::symbol;
        t.entry = &e;
        t.length = e.length;
        return true;
    }
    return t.type != token::none;
}

// The text upper-cased and without white space, as the general parser sees it; false
// for a text with anything the general parser rewrites further (non-ASCII bytes, implied
// products, the 2*E+5 rule).  `source` is left empty when the text has no white space.
bool normalise(const char* text, std::string& out, std::vector<int>& source) {
    out.resize(std::strlen(text));
    char* w = out.data();
    bool spaces = false;
    for (const char* q = text; *q; ++q) {
        const char c = *q;
        if (static_cast<unsigned char>(c) >= 128) return false;
        if (is_space(c)) {
            spaces = true;
            continue;
        }
        *w++ = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    out.resize(static_cast<size_t>(w - out.data()));
    if (out.empty()) return false;
    if (spaces)
        for (int i = 0; text[i]; ++i)
            if (!is_space(text[i])) source.push_back(i);
    const char* s = out.c_str();  // terminated, so looking past a character is safe
    for (size_t i = 1; i < out.size(); ++i) {
        if (!is_digit(s[i - 1])) continue;
        if (is_upper(s[i]) && !(s[i] == 'E' && (s[i + 1] == '+' || s[i + 1] == '-'))) return false;
        if (s[i] == '*' && s[i + 1] == 'E' && (s[i + 2] == '+' || s[i + 2] == '-') &&
            is_digit(s[i + 3]))
            return false;
    }
    return true;
}

// A variable, a number or a named constant (evaluated at 0, as the general parser reads
// PI and E).
law* leaf(const step& st) {
    if (st.kind == step::variable) return new identity_law(st.count, st.letter);
    if (st.kind == step::number) return new constant_law(st.value);
    const double zero = 0.0;
    return static_cast<const constant_law*>(st.proto)->make_one(st.proto->evaluate_scalar(&zero));
}

// The leaves met so far in one text: a variable or number written again is the same
// object, as a law is immutable and its parts may be shared.
class leaf_pool {
  public:
    leaf_pool() = default;
    leaf_pool(const leaf_pool&) = delete;
    leaf_pool& operator=(const leaf_pool&) = delete;
    ~leaf_pool() {
        for (int i = 0; i < n_; ++i) law::remove(kept_[i].made);
    }
    law* get(const step& st) {
        if (st.kind == step::constant) return leaf(st);
        for (int i = 0; i < n_; ++i)
            if (same(kept_[i].of, st)) {
                law::add(kept_[i].made);
                return kept_[i].made;
            }
        law* made = leaf(st);
        if (n_ < size) {
            law::add(made);
            kept_[n_++] = {st, made};
        }
        return made;
    }

  private:
    static bool same(const step& a, const step& b) {
        if (a.kind != b.kind) return false;
        if (a.kind == step::variable) return a.count == b.count && a.letter == b.letter;
        return std::memcmp(&a.value, &b.value, sizeof a.value) == 0;
    }
    static constexpr int size = 8;
    struct entry {
        step of;
        law* made;
    };
    entry kept_[size];
    int n_ = 0;
};

// Builds the law the steps describe.  A law that refuses its parts raises a coded error:
// its text is posted and `failed_at` set to the step's place, as the general parser does.
law* build(const std::vector<step>& steps, std::vector<law*>& stack, int& failed_at) {
    stack.clear();
    leaf_pool leaves;
    QEM::scope_exit release([&] {
        for (law* l : stack) law::remove(l);
        stack.clear();
    });
    for (const step& st : steps) {
        if (st.kind == step::variable || st.kind == step::number || st.kind == step::constant) {
            stack.push_back(leaves.get(st));
            continue;
        }
        law* made = nullptr;
        const size_t n = static_cast<size_t>(st.count);
        law_take_refusal();  // a reason left by an earlier attempt is not this law's
        try {
            switch (st.kind) {
                case step::unary:
                    made = static_cast<const unary_law*>(st.proto)->make_one(stack.back());
                    break;
                case step::binary:
                    made = static_cast<const binary_law*>(st.proto)->make_one(
                        stack[stack.size() - 2], stack.back());
                    break;
                case step::list:
                    made = static_cast<const multiple_law*>(st.proto)->make_one(
                        stack.data() + (stack.size() - n), st.count);
                    break;
                default:
                    break;
            }
        } catch (const vorn_exception& e) {
            const char* why = law_take_refusal();
            TEST_set_error(why ? why : e.what());
            failed_at = st.at;
            return nullptr;
        }
        for (size_t i = stack.size() - n; i < stack.size(); ++i) law::remove(stack[i]);
        stack.resize(stack.size() - n);
        stack.push_back(made);
    }
    law* result = stack.back();
    stack.clear();
    return result;
}

// The reader's buffers, kept by each thread from one text to the next so that a parse
// asks the heap for nothing but its laws; a law built while they are in use (one that
// reads text itself) gets buffers of its own.
struct scratch {
    std::string text;
    std::vector<int> source;
    std::vector<step> steps;
    std::vector<law*> stack;
    bool busy = false;

    void release() {
        busy = false;
        source.clear();
        // A very long text's buffers are not kept.
        constexpr size_t kept_bytes = size_t{1} << 20;
        if (text.capacity() > kept_bytes) std::string().swap(text);
        if (source.capacity() * sizeof(int) > kept_bytes) std::vector<int>().swap(source);
        if (steps.capacity() * sizeof(step) > kept_bytes) std::vector<step>().swap(steps);
        if (stack.capacity() * sizeof(law*) > kept_bytes) std::vector<law*>().swap(stack);
    }
};
thread_local scratch kept_scratch;

}  // namespace

namespace law_internal {

quick_outcome quick_read(const char* text, law** result, int* error_offset) {
    *result = nullptr;
    if (!text) return quick_outcome::gave_up;
    scratch local;
    scratch& use = kept_scratch.busy ? local : kept_scratch;
    use.busy = true;
    QEM::scope_exit done([&] { use.release(); });
    const std::string& s = use.text;
    const std::vector<int>& source = use.source;
    if (!normalise(text, use.text, use.source)) return quick_outcome::gave_up;
    quick_reader reader(s.c_str(), static_cast<int>(s.size()), use.steps);
    if (!reader.read()) return quick_outcome::gave_up;
    int failed_at = -1;
    *result = build(use.steps, use.stack, failed_at);
    if (failed_at < 0) return quick_outcome::built;
    if (error_offset)
        *error_offset = source.empty() ? failed_at : source[static_cast<size_t>(failed_at)];
    return quick_outcome::refused;
}

}  // namespace law_internal
