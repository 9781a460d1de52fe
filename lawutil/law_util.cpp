#include <lawutil/law_util.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/quick_reader.h>
#include <lawutil/law_data.h>
#include <lawutil/law_errors.h>
#include <lawutil/law_unary_data.h>
#include <lawutil/main_law.h>
#include <qem/d3_ostream.h>

law_data* get_law_data(const char* symbol) {
    law_data* found = nullptr;
    for (const law_data_list* n = law_data_list::head(); n; n = n->next())
        if (std::strcmp(n->prototype()->symbol(SYMBOL_PARSE), symbol) == 0) found = n->prototype();
    return found;
}

// ============================================================== text helpers

namespace {

// The language is ASCII; these do not depend on the process's locale.
bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}
char to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool starts_with(const char* p, const char* end, const char* word) {
    const size_t n = std::strlen(word);
    return static_cast<size_t>(end - p) >= n && std::memcmp(p, word, n) == 0;
}

// The normalised text, with the offset in the caller's text of every character.
struct normalised {
    std::string text;
    std::vector<int> source;
};

// Drops white space, upper-cases, and writes the implied products: 2X is 2*X and 3PI is
// 3*PI, but 1E-3 stays a number, 2*E+5 becomes the number 2E+5 (kept on purpose), and
// 2OR1 and 2AND1 keep their operators.  An E with no sign after a digit is a product, so
// 2E5 reads as 2 times the variable E5, also on purpose.
normalised normalise(const char* in) {
    std::string upper;
    std::vector<int> where;
    bool warned = false;
    for (int i = 0;; ++i) {
        const char c = in[i];
        if (static_cast<unsigned char>(c) > 127 && !warned) {
            qem_assert_hook("non-ASCII character in law text", __FILE__, __LINE__);
            warned = true;
        }
        if (c == '\0') break;
        if (is_space(c)) continue;
        upper.push_back(to_upper(c));
        where.push_back(i);
    }
    normalised out;
    const char* s = upper.c_str();
    const char* end = s + upper.size();
    for (size_t i = 0; i < upper.size(); ++i) {
        const char c = s[i];
        const bool after_digit = i > 0 && is_digit(s[i - 1]);
        if (after_digit && c == 'E' && (s[i + 1] == '+' || s[i + 1] == '-')) {
            // scientific notation: copied as it is
        } else if (after_digit && c == '*' && s[i + 1] == 'E' &&
                   (s[i + 2] == '+' || s[i + 2] == '-') && is_digit(s[i + 3])) {
            continue;
        } else if (after_digit && is_upper(c) && c != 'O' && !starts_with(s + i, end, "AND") &&
                   !starts_with(s + i, end, "OR")) {
            out.text.push_back('*');
            out.source.push_back(where[i]);
        }
        out.text.push_back(c);
        out.source.push_back(where[i]);
    }
    return out;
}

// Longest number the language reads; a longer one fails the whole text.
constexpr int max_number_length = 32;

// The value of a number text that does not fit a double: the C library's conversion
// gives infinity for a too large one and zero (or a denormal) for a too small one, and
// so do we.  strtod_l with the C locale reads as the C locale does.
double out_of_range_value(const char* p, int n) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    char copy[max_number_length + 1];
    std::memcpy(copy, p, static_cast<size_t>(n));
    copy[n] = '\0';
    return strtod_l(copy, nullptr, c_locale);
}

// Reads a number at p: digits, '.', and exponents (the character after an E is taken
// whatever it is, as the exponent's sign).  Returns its length, or 0 when there is none;
// sets `too_long` when the number runs past 32 characters.
int read_number(const char* p, const char* end, double& value, bool& too_long) {
    if (p >= end || *p == 'E' || *p == 'e') return 0;
    int n = 0;
    while (p + n < end) {
        const char c = p[n];
        if (is_digit(c) || c == '.') {
            ++n;
        } else if (c == 'E' || c == 'e') {
            n += p + n + 1 < end ? 2 : 1;
        } else {
            break;
        }
        if (n > max_number_length) {
            qem_assert_hook("number longer than 32 characters in law text", __FILE__, __LINE__);
            too_long = true;
            n = max_number_length;
            break;
        }
    }
    if (n == 0) return 0;
    // from_chars reads as the C locale does, whatever locale the host has set; like a
    // scanf conversion it may use only the front of what was taken.
    const auto res = std::from_chars(p, p + n, value, std::chars_format::general);
    if (res.ec == std::errc::result_out_of_range && res.ptr != p) {
        value = out_of_range_value(p, static_cast<int>(res.ptr - p));
    } else if (res.ec != std::errc()) {
        return 0;
    }
    return n;
}

// ============================================================== tokens

enum class token_type { none, comma, close, open, variable, number, law_ref, data_ref, prototype };

struct token {
    token_type type = token_type::none;
    int length = 0;
    int index = 0;
    char letter = 0;
    double value = 0.0;
    const law* proto = nullptr;
    bool too_long = false;  // a number in it ran past the longest the language reads
};

// The prototypes by first character, longest symbol first and in list order among equal
// lengths, so that a lookup finds what a walk of the whole list would: the longest
// symbol that fits, the first registered among equals.
struct prototype_index {
    std::vector<const law*> by_first[128];
    std::vector<const law_data*> data_by_first[128];

    prototype_index() {
        for (const law_list* n = law_list::head(); n; n = n->next()) {
            const char* sym = n->prototype()->symbol(SYMBOL_PARSE);
            if (sym && *sym && static_cast<unsigned char>(*sym) < 128)
                by_first[static_cast<int>(*sym)].push_back(n->prototype());
        }
        for (const law_data_list* n = law_data_list::head(); n; n = n->next()) {
            const char* sym = n->prototype()->symbol(SYMBOL_PARSE);
            if (sym && *sym && static_cast<unsigned char>(*sym) < 128)
                data_by_first[static_cast<int>(*sym)].push_back(n->prototype());
        }
        for (auto& bucket : by_first)
            std::stable_sort(bucket.begin(), bucket.end(), [](const law* a, const law* b) {
                return std::strlen(a->symbol(SYMBOL_PARSE)) > std::strlen(b->symbol(SYMBOL_PARSE));
            });
        for (auto& bucket : data_by_first)
            std::stable_sort(bucket.begin(), bucket.end(),
                             [](const law_data* a, const law_data* b) {
                                 return std::strlen(a->symbol(SYMBOL_PARSE)) >
                                        std::strlen(b->symbol(SYMBOL_PARSE));
                             });
    }
};

const prototype_index& prototypes() {
    // Built on first use, after every static registration has run.
    static const prototype_index index;
    return index;
}

bool eligible(const law* proto, bool prefix) {
    if (!prefix) return proto->isa(binary_law_id);
    return proto->isa(unary_law_id) || proto->isa(unary_data_law_id) ||
           proto->isa(multiple_data_law_id) || proto->isa(multiple_law_id) ||
           proto->isa(constant_law_id);
}

// One token at p; `prefix` is true where an operand is expected.
token read_token(const char* p, const char* end, bool prefix) {
    token t;
    if (p >= end) return t;
    const char c = *p;
    if (c == ',' || c == ')' || c == '(') {
        t.type = c == ',' ? token_type::comma : c == ')' ? token_type::close : token_type::open;
        t.length = 1;
        return t;
    }
    if (c == 'X' || c == 'U' || c == 'T' || c == 'Y' || c == 'V' || c == 'Z') {
        t.type = token_type::variable;
        t.index = (c == 'Y' || c == 'V') ? 1 : c == 'Z' ? 2 : 0;
        t.letter = c;
        t.length = 1;
    }
    double v = 0.0;
    if (is_upper(c)) {
        if (const int n = read_number(p + 1, end, v, t.too_long)) {
            t.type = token_type::variable;
            t.index = law::safe_convert_to_int(v) - 1;
            t.letter = c;
            t.length = 1 + n;
        }
    }
    if (const int n = read_number(p, end, v, t.too_long)) {
        t.type = token_type::number;
        t.value = v;
        t.length = n;
    }
    if (starts_with(p, end, "LAW")) {
        t.type = token_type::law_ref;
        const int n = read_number(p + 3, end, v, t.too_long);
        t.index = n ? law::safe_convert_to_int(v) - 1 : 0;
        t.length = 3 + n;
    }
    if (static_cast<unsigned char>(c) >= 128) return t;
    for (const law_data* d : prototypes().data_by_first[static_cast<int>(c)]) {
        const char* sym = d->symbol(SYMBOL_PARSE);
        const int len = static_cast<int>(std::strlen(sym));
        if (len <= t.length || !starts_with(p, end, sym)) continue;
        if (const int n = read_number(p + len, end, v, t.too_long)) {
            // Only the keyword is taken: the number after it is read again on its own.
            t.type = token_type::data_ref;
            t.index = law::safe_convert_to_int(v) - 1;
            t.length = len;
            (void)n;
        }
        break;
    }
    for (const law* proto : prototypes().by_first[static_cast<int>(c)]) {
        const char* sym = proto->symbol(SYMBOL_PARSE);
        const int len = static_cast<int>(std::strlen(sym));
        if (len <= t.length) break;  // the rest of the bucket is no longer
        if (!eligible(proto, prefix) || !starts_with(p, end, sym)) continue;
        t.type = token_type::prototype;
        t.proto = proto;
        t.length = len;
        break;
    }
    return t;
}

bool sets_prefix(const token& t) {
    if (t.type == token_type::prototype)
        return t.proto->isa(binary_law_id) || t.proto->isa(negate_law_id);
    return t.type == token_type::comma || t.type == token_type::open;
}

// ============================================================== the parser

// Deeper nesting than this is refused rather than risking the stack.
constexpr int max_nesting = 1000;

struct view {
    const char* p;
    const char* end;
    int size() const { return static_cast<int>(end - p); }
};

// One token of a scan: where it starts, the parenthesis depth at it, its rank as a split
// candidate (-1 for a parenthesis, which never is one) and whether it stood where an
// operand is expected.
struct scanned {
    int at;
    int depth;
    int rank;
    bool prefix;
    bool data_ref;
};

// The split candidate of a run of tokens: of those at the lowest depth and then the
// lowest rank, the last one read after an operand, or else the first.  That is what a
// walk gives in which an equal candidate replaces the best unless it stands where an
// operand is expected (which makes binary operators associate to the left); written as
// a summary of a run, two runs combine, so any run can be answered from a tree.
struct best_of {
    int first = -1;    // index of the first token of the lowest key
    int last_op = -1;  // index of the last of them read after an operand, or -1
    int depth = 0;
    int rank = 0;

    bool empty() const { return first < 0; }
    int winner() const { return last_op >= 0 ? last_op : first; }

    static best_of of(const scanned& t, int index) {
        if (t.rank < 0) return {};
        return {index, t.prefix ? -1 : index, t.depth, t.rank};
    }
    static best_of join(const best_of& a, const best_of& b) {
        if (a.empty()) return b;
        if (b.empty()) return a;
        if (a.depth != b.depth) return a.depth < b.depth ? a : b;
        if (a.rank != b.rank) return a.rank < b.rank ? a : b;
        return {a.first, b.last_op >= 0 ? b.last_op : a.last_op, a.depth, a.rank};
    }
};

// The candidates of every run of the text's tokens, in logarithmic time and linear space.
class best_tree {
  public:
    void build(const std::vector<scanned>& tokens) {
        size_ = 1;
        while (size_ < static_cast<int>(tokens.size())) size_ *= 2;
        node_.assign(2 * static_cast<size_t>(size_), best_of{});
        for (size_t i = 0; i < tokens.size(); ++i)
            node_[size_ + i] = best_of::of(tokens[i], static_cast<int>(i));
        for (int i = size_ - 1; i > 0; --i)
            node_[i] = best_of::join(node_[2 * i], node_[2 * i + 1]);
    }
    // The candidate of tokens first..last, both included.
    best_of query(int first, int last) const {
        best_of left, right;
        for (int l = first + size_, r = last + size_ + 1; l < r; l /= 2, r /= 2) {
            if (l & 1) left = best_of::join(left, node_[static_cast<size_t>(l++)]);
            if (r & 1) right = best_of::join(node_[static_cast<size_t>(--r)], right);
        }
        return best_of::join(left, right);
    }

  private:
    int size_ = 1;
    std::vector<best_of> node_;
};

class parser {
  public:
    parser(const normalised& text, law_data** data, int count);

    // Tokenizes the whole text once; false (with the message posted) when it cannot be read.
    bool scan_text();
    law_ref parse(view v, int nesting);
    int failure_offset() const { return failure_; }

  private:
    void post(const std::string& message, const char* at) {
        TEST_set_error(message.c_str());
        const size_t i = static_cast<size_t>(at - buffer_);
        failure_ = i < text_.source.size() ? text_.source[i]
                                           : (text_.source.empty() ? 0 : text_.source.back() + 1);
    }
    void bad_syntax(const char* at) {
        // The character there, whole: a UTF-8 character is all its bytes, never half.
        const char* end = at < buffer_end_ ? at + 1 : at;
        if (at < buffer_end_ && (static_cast<unsigned char>(*at) & 0xC0) == 0xC0)
            while (end < buffer_end_ && end - at < 4 &&
                   (static_cast<unsigned char>(*end) & 0xC0) == 0x80)
                ++end;
        post("bad syntax at " + (end > at ? std::string(at, end) : std::string(" ")), at);
    }
    int offset(const char* p) const { return static_cast<int>(p - buffer_); }

    // A class that refuses its parts raises a coded error; the parser never raises, so
    // that becomes a posted message (the error's text) and no law.
    template <class F>
    law_ref made(const char* at, F&& make) {
        law_take_refusal();  // a reason left by an earlier attempt is not this law's
        try {
            return law_ref::adopt(make());
        } catch (const vorn_exception& e) {
            const char* why = law_take_refusal();
            post(why ? why : e.what(), at);
            return law_ref();
        }
    }

    bool scan(view v, std::vector<scanned>& out);
    bool in_text_tokens(view v, int& first, int& end) const;
    const char* closing(const char* open, const char* end) const;
    law_ref build(view v, const char* at, const token& t, int nesting);
    law_ref unary(view v, const char* at, const token& t, int nesting);
    std::vector<view> arguments(view v, const char* at, const token& t);
    law_ref multiple(view v, const char* at, const token& t, int nesting);
    law_ref unary_data(view v, const char* at, const token& t);
    law_ref multiple_data(view v, const char* at, const token& t, int nesting);
    law_data* datum(int index, const char* at);
    bool hole(const law* part, view where, const char* at);
    __attribute__((noinline)) law_ref no_law(view where, const char* at) {
        hole(nullptr, where, at);
        return law_ref();
    }

    const normalised& text_;
    const char* buffer_;
    const char* buffer_end_;
    law_data** data_;
    int count_;
    int failure_ = -1;
    // The whole text's tokens, read once: a view that starts and ends where they do, in
    // operand position, is made of the same tokens and is answered from them, so nesting
    // costs no new scan of the text inside it.
    std::vector<scanned> tokens_;
    std::vector<int> token_at_;  // the token starting at each offset, or -1
    best_tree best_;
    std::vector<int> opened_;  // '(' minus ')' before each offset
    std::vector<int> match_;   // the offset of the ')' closing each '(', or -1
    // A view read on its own (rare: one whose ends cut the text's tokens); reused, since
    // a view is done with it before anything inside it is parsed.
    std::vector<scanned> local_;
    std::vector<best_of> local_best_;
};

parser::parser(const normalised& text, law_data** data, int count)
    : text_(text),
      buffer_(text.text.c_str()),
      buffer_end_(buffer_ + text.text.size()),
      data_(data),
      count_(count) {
    const size_t n = text.text.size();
    opened_.assign(n + 1, 0);
    match_.assign(n, -1);
    std::vector<int> open;
    for (size_t i = 0; i < n; ++i) {
        const char c = buffer_[i];
        opened_[i + 1] = opened_[i] + (c == '(' ? 1 : c == ')' ? -1 : 0);
        if (c == '(') open.push_back(static_cast<int>(i));
        if (c == ')' && !open.empty()) {
            match_[static_cast<size_t>(open.back())] = static_cast<int>(i);
            open.pop_back();
        }
    }
}

// Walks a view token by token, as the split search reads it: prefix flag true at its
// start, depth 0.  Posts the failure and returns false at a token that cannot be read.
bool parser::scan(view v, std::vector<scanned>& out) {
    out.clear();
    bool prefix = true;
    int depth = 0;
    for (const char* p = v.p; p < v.end;) {
        const token t = read_token(p, v.end, prefix);
        if (t.length == 0) {
            bad_syntax(p);
            return false;
        }
        if (t.too_long) {
            // Read as its first 32 characters it would be a different number.
            QEM::D3_ostream m;
            m << "number too long at " << *p;
            post(m.str(), p);
            return false;
        }
        int rank = -1;
        if (t.type == token_type::open) {
            ++depth;
        } else if (t.type == token_type::close) {
            --depth;
        } else {
            rank = t.type == token_type::prototype ? t.proto->precedence() : 9;
        }
        out.push_back(scanned{offset(p), depth, rank, prefix, t.type == token_type::data_ref});
        // The number after a data keyword is read again as a number standing where an
        // operand is expected, so that a reference alone (SPLINE_LAW1) stays the best
        // candidate and stands for nothing.
        if (t.type != token_type::data_ref) prefix = sets_prefix(t);
        p += t.length;
    }
    return true;
}

bool parser::scan_text() {
    if (!scan(view{buffer_, buffer_end_}, tokens_)) return false;
    token_at_.assign(static_cast<size_t>(buffer_end_ - buffer_) + 1, -1);
    for (size_t i = 0; i < tokens_.size(); ++i)
        token_at_[static_cast<size_t>(tokens_[i].at)] = static_cast<int>(i);
    token_at_.back() = static_cast<int>(tokens_.size());
    best_.build(tokens_);
    return true;
}

// Whether the view reads as the text's tokens first..end-1: it starts at one of them
// read in operand position and ends where one starts.  A data keyword must not be last:
// whether it is a reference depends on the number after it.
bool parser::in_text_tokens(view v, int& first, int& end) const {
    if (token_at_.empty()) return false;
    first = token_at_[static_cast<size_t>(offset(v.p))];
    end = token_at_[static_cast<size_t>(offset(v.end))];
    return first >= 0 && end > first && tokens_[static_cast<size_t>(first)].prefix &&
           !tokens_[static_cast<size_t>(end - 1)].data_ref;
}

// The ')' closing the '(' at `open`, or `end` when it does not close before `end`.
const char* parser::closing(const char* open, const char* end) const {
    const int m = match_[static_cast<size_t>(offset(open))];
    return m >= 0 && buffer_ + m < end ? buffer_ + m : end;
}

law_ref parser::parse(view v, int nesting) {
    if (v.size() == 4 && buffer_end_ - v.p == 4 && std::memcmp(v.p, "NULL", 4) == 0)
        return law_ref();
    if (v.size() <= 0) return make_law<constant_law>(0.0);
    if (nesting > max_nesting) {
        QEM::D3_ostream m;
        m << "law nested too deeply at " << *v.p;
        post(m.str(), v.p);
        return law_ref();
    }
    // The view's tokens with the operator or function that binds weakest in any run of
    // them from the start: the left operand of a binary operator is the text before it,
    // read with the same tokens, so a chain such as A+B+...+Z is taken apart from one
    // reading instead of one per operator.
    int first = 0, end = 0;
    const bool shared = in_text_tokens(v, first, end);
    if (!shared) {
        if (!scan(v, local_)) return law_ref();
        local_best_.resize(local_.size());
        best_of so_far;
        for (size_t i = 0; i < local_.size(); ++i)
            local_best_[i] = so_far =
                best_of::join(so_far, best_of::of(local_[i], static_cast<int>(i)));
        first = 0;
        end = static_cast<int>(local_.size());
    }
    const std::vector<scanned>& tokens = shared ? tokens_ : local_;
    auto best_through = [&](int last) {
        return shared ? best_.query(first, last) : local_best_[static_cast<size_t>(last)];
    };
    // The last token that starts before `p`.
    auto last_before = [&](const char* p) {
        const auto it = std::lower_bound(tokens.begin() + first, tokens.begin() + end, offset(p),
                                         [](const scanned& t, int at) { return t.at < at; });
        return static_cast<int>(it - tokens.begin()) - 1;
    };

    // Walk down the chain of left operands, keeping each operator and its right operand;
    // then read what is left of the chain.  Nothing inside is parsed before the walk is
    // done with the tokens.
    struct pending {
        const binary_law* op;
        const char* at;
        view right;
    };
    std::vector<pending> chain;
    view current = v;
    int last = end - 1;  // the last token inside `current`
    enum class rest_kind { zero, reread, build } rest = rest_kind::zero;
    const char* rest_at = nullptr;
    token rest_token;
    for (;;) {
        if (current.size() <= 0) break;
        const best_of b = last >= first ? best_through(last) : best_of{};
        const scanned* c = b.empty() ? nullptr : &tokens[static_cast<size_t>(b.winner())];
        if (c && buffer_ + c->at < current.p) {
            // The text lost a first character that held the best candidate: read it anew.
            rest = rest_kind::reread;
            break;
        }
        // Parentheses only: the token at the start, which stands for nothing.
        const char* at = c ? buffer_ + c->at : current.p;
        const token t = read_token(at, current.end, c ? c->prefix : true);
        if (t.type != token_type::prototype || !t.proto->isa(binary_law_id)) {
            rest = rest_kind::build;
            rest_at = at;
            rest_token = t;
            break;
        }
        view left{current.p, at};
        view right{at + t.length, current.end};
        // An operand with unbalanced parentheses loses one character at its outer end:
        // that is how (X+1) sheds its parentheses, without any other handling of them.
        auto balance = [&](const char* a, const char* b) {
            return opened_[static_cast<size_t>(offset(b))] -
                   opened_[static_cast<size_t>(offset(a))];
        };
        if (balance(left.p, left.end) != 0) ++left.p;
        if (balance(at + 1, current.end) != 0 && right.end > right.p) --right.end;
        chain.push_back(pending{static_cast<const binary_law*>(t.proto), at, right});
        current = left;
        last = last_before(at);
    }
    law_ref result;
    switch (rest) {
        case rest_kind::zero:
            result = make_law<constant_law>(0.0);
            break;
        case rest_kind::reread:
            result = parse(current, nesting + 1);
            break;
        case rest_kind::build:
            result = build(current, rest_at, rest_token, nesting);
            break;
    }
    if (failure_ >= 0) return law_ref();
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        law_ref r = parse(it->right, nesting + 1);
        if (failure_ >= 0) return law_ref();
        if (!result || !r) return no_law(result ? it->right : view{v.p, it->at}, it->at);
        result = made(it->at, [&] { return it->op->make_one(result.get(), r.get()); });
        if (failure_ >= 0) return law_ref();
    }
    return result;
}

law_data* parser::datum(int index, const char* at) {
    // A saved text whose record was lost or never written names a datum that is not there.
    if (index < 0 || index >= count_ || !data_ || !data_[index]) {
        QEM::D3_ostream m;
        m << "data " << (index + 1) << " was not given";
        post(m.str(), at);
        return nullptr;
    }
    return data_[index];
}

// A node is never built over a part that stands for nothing: that law would print and
// simplify, and fail only when evaluated.  Says why the part is empty and returns true.
// Kept out of line: inlined, its locals would grow every frame of a deep nesting.
__attribute__((noinline)) bool parser::hole(const law* part, view where, const char* at) {
    if (part || failure_ >= 0) return failure_ >= 0;
    const char* p = where.p;
    while (p < where.end && *p == '(') ++p;
    const token t = read_token(p, where.end, true);
    if (t.type == token_type::data_ref) {
        QEM::D3_ostream m;
        const bool given = t.index >= 0 && t.index < count_ && data_ && data_[t.index];
        m << "data " << (t.index + 1) << (given ? " is not a law" : " was not given");
        post(m.str(), p);
    } else if (opened_.back() > 0) {
        // An unclosed '(' whose group holds the operand: the ')' is missing at the end.
        post("missing ')'", buffer_end_);
    } else {
        QEM::D3_ostream m;
        m << "missing operand at " << *at;
        post(m.str(), at);
    }
    return true;
}

law_ref parser::build(view v, const char* at, const token& t, int nesting) {
    switch (t.type) {
        case token_type::variable:
            if (t.index < 0) toxic_law_error();
            return make_law<identity_law>(t.index, t.letter);
        case token_type::number:
            return make_law<constant_law>(t.value);
        case token_type::law_ref: {
            const int n = t.index + 1;
            if (count_ < n || n < 1) {
                QEM::D3_ostream m;
                m << "law " << n << " was not given";
                post(m.str(), at);
                return law_ref();
            }
            law_data* d = data_ ? data_[n - 1] : nullptr;
            if (!d || d->type() != law_law_data_id) {
                qem_assert_hook("law reference to data that holds no law", __FILE__, __LINE__);
                return law_ref();
            }
            return law_ref::retain(static_cast<law_law_data*>(d)->data_law());
        }
        case token_type::prototype:
            break;
        default:
            return law_ref();  // a data reference, a comma or a parenthesis stands for nothing
    }
    const law* proto = t.proto;
    if (proto->isa(unary_law_id)) return unary(v, at, t, nesting);
    if (proto->isa(multiple_law_id)) return multiple(v, at, t, nesting);
    if (proto->isa(unary_data_law_id)) return unary_data(v, at, t);
    if (proto->isa(multiple_data_law_id)) return multiple_data(v, at, t, nesting);
    if (proto->isa(constant_law_id)) {
        const double zero = 0.0;
        return law_ref::adopt(
            static_cast<const constant_law*>(proto)->make_one(proto->evaluate_scalar(&zero)));
    }
    return law_ref();
}

// The argument follows the symbol (one '(' skipped) up to the ')' that closes it or the
// end of the text, so SINX reads as SIN(X) and a bare "-" takes the rest.
law_ref parser::unary(view v, const char* at, const token& t, int nesting) {
    const char* p = at + t.length;
    const char* end = v.end;
    if (p < end && *p == '(') {
        end = closing(p, v.end);
        ++p;
    }
    law_ref arg = parse(view{p, end}, nesting + 1);
    if (failure_ >= 0) return law_ref();
    if (!arg) return no_law(view{p, end}, at);
    return made(at, [&] { return static_cast<const unary_law*>(t.proto)->make_one(arg.get()); });
}

// The argument list: one character after the symbol (skipped, meant to be '(') up to the
// matching ')', split at the commas outside parentheses.
std::vector<view> parser::arguments(view v, const char* at, const token& t) {
    const char* p = std::min(at + t.length + 1, v.end);
    std::vector<view> args;
    const char* start = p;
    const char* q = p;
    for (; q < v.end; ++q) {
        // A group in parentheses holds no comma of this list: step over it whole.
        if (*q == '(') {
            q = closing(q, v.end);
            if (q == v.end) break;
            continue;
        }
        if (*q == ')') break;
        if (*q == ',') {
            args.push_back(view{start, q});
            start = q + 1;
        }
    }
    args.push_back(view{start, q});
    return args;
}

law_ref parser::multiple(view v, const char* at, const token& t, int nesting) {
    std::vector<law_ref> parts;
    std::vector<law*> raw;
    for (const view& a : arguments(v, at, t)) {
        parts.push_back(parse(a, nesting + 1));
        if (failure_ >= 0 || hole(parts.back().get(), a, at)) return law_ref();
        raw.push_back(parts.back().get());
    }
    return made(at, [&] {
        return static_cast<const multiple_law*>(t.proto)->make_one(raw.data(),
                                                                   static_cast<int>(raw.size()));
    });
}

// CUR(X), CUR(E1) and CUR(LAW1) all name data[0]: the index of the token after the
// symbol's first character selects the datum.
__attribute__((noinline)) law_ref parser::unary_data(view v, const char* at, const token& t) {
    const token arg = read_token(std::min(at + t.length + 1, v.end), v.end, false);
    law_data* d = datum(arg.index, std::min(at + t.length + 1, v.end));
    if (!d) return law_ref();
    return made(at, [&] { return static_cast<const unary_data_law*>(t.proto)->make_one(d); });
}

__attribute__((noinline)) law_ref parser::multiple_data(view v, const char* at, const token& t,
                                                        int nesting) {
    std::vector<law_data*> items;
    QEM::scope_exit release([&] {
        for (law_data* d : items)
            if (d) d->remove();
    });
    for (const view& a : arguments(v, at, t)) {
        const token arg = read_token(a.p, a.end, false);
        if (arg.type == token_type::data_ref) {
            law_data* d = datum(arg.index, a.p);
            if (!d) return law_ref();
            d->add();
            items.push_back(d);
            continue;
        }
        law_ref l = parse(a, nesting + 1);
        if (failure_ >= 0) return law_ref();
        if (!l) {
            TEST_set_error("Toxic law detected");
            qem_assert_hook("law data argument is not a law", __FILE__, __LINE__);
        }
        items.push_back(new law_law_data(l.get()));
    }
    const std::string posted = TEST_get_error();
    law_ref built = made(at, [&] {
        return static_cast<const multiple_data_law*>(t.proto)->make_one(
            items.data(), static_cast<int>(items.size()));
    });
    if (!built && failure_ < 0) {
        // The class turned down its parts without a coded error: say which one did.
        // A class that reported its parts as toxic has said why; keep that message.
        const std::string said = TEST_get_error();
        QEM::D3_ostream m;
        m << "wrong parts for " << t.proto->symbol(SYMBOL_PARSE);
        post(said != posted && !said.empty() ? said : m.str(), at);
    }
    return built;
}

}  // namespace

law* str_to_law_general(const char* text, law_data** data, int count, int* error_offset) {
    if (error_offset) *error_offset = -1;
    if (!text) return nullptr;
    const normalised n = normalise(text);
    parser p(n, data, count);
    const char* buffer = n.text.c_str();
    law_ref result;
    // The whole text "NULL" and the empty text read as no law and as 0 without a scan.
    if (n.text.empty() || n.text == "NULL" || p.scan_text())
        result = p.parse(view{buffer, buffer + n.text.size()}, 0);
    if (p.failure_offset() >= 0) {
        if (error_offset) *error_offset = p.failure_offset();
        return nullptr;
    }
    return result.release();
}

bool str_to_law_quick(const char* text, law** result, int* error_offset) {
    if (error_offset) *error_offset = -1;
    return law_internal::quick_read(text, result, error_offset) !=
           law_internal::quick_outcome::gave_up;
}

law* str_to_law(const char* text, law_data** data, int count, int* error_offset) {
    law* result = nullptr;
    if (str_to_law_quick(text, &result, error_offset)) return result;
    return str_to_law_general(text, data, count, error_offset);
}

law* str_to_law(const char* text, law_data** data, int count) {
    return str_to_law(text, data, count, nullptr);
}

// ============================================================== the checker

namespace {

bool is_function(const token& t) {
    return t.type == token_type::prototype && !t.proto->isa(binary_law_id) &&
           !t.proto->isa(constant_law_id);
}
bool is_operator(const token& t) {
    return t.type == token_type::prototype && t.proto->isa(binary_law_id);
}
bool ends_operand(const token& t) {
    return t.type == token_type::variable || t.type == token_type::number ||
           t.type == token_type::law_ref || t.type == token_type::close ||
           (t.type == token_type::prototype && t.proto->isa(constant_law_id));
}
bool starts_operand(const token& t) {
    return t.type == token_type::variable || t.type == token_type::number ||
           t.type == token_type::law_ref || t.type == token_type::open;
}
// What the next token leaves unread before it: nothing, or the end of a group or list.
bool ends_nothing(const token& next) {
    return next.type == token_type::none || next.type == token_type::close ||
           next.type == token_type::comma;
}

// Walks the normalised text's tokens as the split search reads them and notes each
// place that relies on a rule the writer probably did not mean.
std::vector<std::pair<int, const char*>> find_surprises(const normalised& n) {
    std::vector<std::pair<int, const char*>> found;  // offsets in the normalised text
    const char* begin = n.text.c_str();
    const char* end = begin + n.text.size();
    std::vector<std::pair<int, bool>> groups;  // each open '(' and whether it holds arguments
    token previous;
    bool prefix = true;
    for (const char* p = begin;; p += previous.length) {
        const int at = static_cast<int>(p - begin);
        const token t = p < end ? read_token(p, end, prefix) : token{};
        if (p < end && t.length == 0) break;  // the parser reports this place itself
        if (ends_operand(previous) && starts_operand(t))
            found.emplace_back(at,
                               t.type == token_type::open
                                   ? "'(' after an operand is not a product: one side is ignored"
                                   : "two operands with no operator between: one is ignored");
        if (is_operator(previous) && ends_nothing(t))
            found.emplace_back(at - previous.length, "operator with nothing after it: read as 0");
        if (is_function(previous) && (ends_nothing(t) || is_operator(t)))
            found.emplace_back(at, "missing argument: read as 0");
        const bool in_list = !groups.empty() && groups.back().second;
        if ((previous.type == token_type::comma && in_list && ends_nothing(t)) ||
            (previous.type == token_type::open && in_list && ends_nothing(t)))
            found.emplace_back(at, "empty argument: read as 0");
        if (t.type == token_type::number) {
            double v = 0;
            const auto r = std::from_chars(p, p + t.length, v, std::chars_format::general);
            if (r.ptr != p + t.length && r.ptr != p)
                found.emplace_back(static_cast<int>(r.ptr - begin),
                                   "the number ends here: the rest is ignored");
        }
        if (t.type == token_type::variable && t.length > 1 &&
            std::find_if(p + 1, p + t.length, [](char c) { return !is_digit(c); }) != p + t.length)
            found.emplace_back(at + 1, "a variable's number is not whole: read as its whole part");
        if (t.type == token_type::comma && !in_list)
            found.emplace_back(at, "',' outside an argument list: the text reads as no law");
        if (t.type == token_type::open) groups.emplace_back(at, is_function(previous));
        if (t.type == token_type::close) {
            if (groups.empty())
                found.emplace_back(at, "')' with no '(' before it");
            else
                groups.pop_back();
        }
        if (t.type == token_type::none) break;
        if (t.type != token_type::data_ref) prefix = sets_prefix(t);
        previous = t;
    }
    for (const auto& g : groups) found.emplace_back(g.first, "'(' never closed");
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    return found;
}

}  // namespace

int check_law_text(const char* text, law_text_warning** warnings) {
    if (warnings) *warnings = nullptr;
    if (!text) return 0;
    try {
        // Reading non-ASCII text posts an assertion; the caller's message is put back.
        const std::string posted = TEST_get_error();
        const normalised n = normalise(text);
        std::vector<std::pair<int, const char*>> found = find_surprises(n);
        // The parse itself tells whether the text stands for no law without saying so.
        int failed = -1;
        law* l =
            n.text.empty() || n.text == "NULL" ? nullptr : str_to_law(text, nullptr, 0, &failed);
        const bool no_law = !l && failed < 0 && !n.text.empty() && n.text != "NULL";
        law::remove(l);
        TEST_set_error(posted.c_str());
        if (no_law) found.emplace(found.begin(), 0, "the text reads as no law");
        if (found.empty() || !warnings) return static_cast<int>(found.size());
        law_text_warning* out = QEM_ALLOC_ARRAY(law_text_warning, found.size());
        for (size_t i = 0; i < found.size(); ++i) {
            const size_t at = static_cast<size_t>(found[i].first);
            out[i].offset =
                at < n.source.size() ? n.source[at] : static_cast<int>(std::strlen(text));
            out[i].reason = found[i].second;
        }
        *warnings = out;
        return static_cast<int>(found.size());
    } catch (const vorn_exception&) {
        return 0;  // a law that cannot be released; the parse reports it
    }
}
