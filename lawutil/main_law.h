#pragma once
// The skeleton of every law tree: the structural bases that hold sub-laws (unary, binary,
// multiple), the leaves (constants and the identity), the arithmetic operators and the
// vector and component laws that compositions of several variables are built from.
//
// Ownership: every constructor takes its own use of each non-null sub-law it is given;
// the caller keeps (and must give back) its own.  make_one builds a new law of the same
// class over other sub-laws with the same rule.

#include <lawutil/law_base.h>

/// How an operator node reads one scalar operand: constants and coordinates are read in
/// place, so the scalar path costs one call per operator node and none per leaf.
struct law_operand {
    /// `chain`: a long left-deep chain of operators, read by a loop (not recursion).
    enum kind_t : unsigned char { general, constant, variable, missing, chain };
    kind_t kind = missing;
    int index = 0;
    double value = 0.0;

    void bind(const law* l);
    [[noreturn]] static void raise_missing();
    double read(const law* l, const double* x) const {
        if (kind == constant) return value;
        if (kind == variable) return x[index];
        if (kind == general) return l->evaluate_scalar(x);
        return read_rare(l, x);
    }
    /// A long chain (by a loop), or raises for a missing operand; kept off the common path.
    [[gnu::cold]] double read_rare(const law* l, const double* x) const;
};

// ============================================================== structural bases

class LAW_API unary_law : public law {
    LAW_IDENTITY(unary_law, law)
  public:
    explicit unary_law(law* sub);
    unary_law(const unary_law& other);
    law* fsub() const { return sub_law_; }
    /// A new law of the same class over `sub` (one use to the caller).
    virtual law* make_one(law* sub) const = 0;
    bool incomplete() const override { return missing_; }

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// The sub-law's domain: an operator is defined no further than its operand.
    int term_domain(int which, QEM::interval& domain) const override;
    int in_domain(double* x) const override;

  protected:
    ~unary_law() noexcept(false) override;
    int take_size() const override;
    int return_size() const override;
    double sub_value(const double* x) const { return sub_op_.read(sub_law_, x); }

    law* sub_law_;
    law_operand sub_op_;
    bool missing_;  ///< a part is missing here or below
};

class LAW_API binary_law : public law {
    LAW_IDENTITY(binary_law, law)
  public:
    binary_law(law* left, law* right);
    binary_law(const binary_law& other);
    law* fleft() const { return left_law_; }
    law* fright() const { return right_law_; }
    virtual int associative() const { return 0; }
    virtual int commutative() const { return 0; }
    /// A new law of the same class over `left` and `right` (one use to the caller).
    virtual law* make_one(law* left, law* right) const = 0;
    bool incomplete() const override { return missing_; }
    /// evaluate_scalar of a scalar operator node, its left-deep chain of scalar operator
    /// nodes walked by a loop: the same operations in the same order, at any length.
    static double chain_value(const binary_law* top, const double* x);

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// The intersection of the operands' domains.
    int term_domain(int which, QEM::interval& domain) const override;
    int in_domain(double* x) const override;

  protected:
    ~binary_law() noexcept(false) override;
    int take_size() const override;
    int return_size() const override;

    double left_value(const double* x) const { return left_op_.read(left_law_, x); }
    double right_value(const double* x) const { return right_op_.read(right_law_, x); }
    /// Both operands at `x` as vectors of the node's return dimension, a missing
    /// component counting as 0; the same object is evaluated once.
    void operand_vectors(const double* x, double* left, double* right) const;
    enum class vector_op { add, subtract, multiply, divide, power };
    /// The operators' cases with a vector operand (never on the scalar path).
    [[gnu::noinline]] void evaluate_vectors(const double* x, double* answer, vector_op op) const;
    /// This node's scalar value given its left operand's value `left` (the right operand
    /// is read here): one step of chain_value.  The default evaluates the node afresh.
    virtual double chain_step(double left, const double* x) const;

    law* left_law_;
    law* right_law_;
    law_operand left_op_;
    law_operand right_op_;
    int left_dim_;
    int right_dim_;
    bool scalar_;         ///< both operands scalar: the fast path applies
    bool same_operands_;  ///< one object on both sides: evaluate it once
    bool missing_;        ///< a part is missing here or below
    int spine_;           ///< scalar operator nodes in the left-deep chain ending here

  private:
    /// Sets spine_ and reads a long left chain by chain_value.
    void link_chain();
};

class LAW_API multiple_law : public law {
    LAW_IDENTITY(multiple_law, law)
  public:
    /// Copies the array (null `subs` leaves it null) and takes a use of each part.
    multiple_law(law** subs, int size);
    multiple_law(const multiple_law& other);
    law** fsubs() const { return sub_laws_; }
    int fsize() const { return law_count_; }
    /// A new law of the same class over the parts (one use to the caller).
    virtual law* make_one(law** subs, int size) const = 0;
    bool incomplete() const override { return missing_; }
    virtual int commutative() const { return 0; }

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// The intersection of the parts' domains.
    int term_domain(int which, QEM::interval& domain) const override;
    int in_domain(double* x) const override;

  protected:
    ~multiple_law() noexcept(false) override;
    /// The largest take dimension of the parts; 0 without parts.
    int take_size() const override;
    /// The return dimension of the first part; 0 without parts.
    int return_size() const override;

    law** sub_laws_;
    int law_count_;
    bool missing_;  ///< a part is missing here or below
};

// ============================================================== leaves

class LAW_API constant_law : public law {
    LAW_IDENTITY(constant_law, law)
  public:
    explicit constant_law(double value = 0.0);
    double value() const { return value_; }
    /// A new constant of the same class (parser).
    virtual law* make_one(double value) const;

    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double*) const override { return value_; }
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    QEM::interval estimate_bounds(const QEM::interval& domain, int& exact) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 0; }
    int return_size() const override { return 1; }

  private:
    double value_;
};

class LAW_API pi_law : public constant_law {
    LAW_IDENTITY(pi_law, constant_law)
    LAW_KEYWORD(pi_law)
  public:
    pi_law();
    /// PI read from text stays PI (and prints so).
    law* make_one(double value) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
};

class LAW_API e_law : public constant_law {
    LAW_IDENTITY(e_law, constant_law)
    LAW_KEYWORD(e_law)
  public:
    e_law();
    law* make_one(double value) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
};

/// Input coordinate `index` (0-based); `letter` is how it prints: X, Y, Z for a point's
/// coordinates, T for a curve parameter, U and V for a surface's parameters.
class LAW_API identity_law : public law {
    LAW_IDENTITY(identity_law, law)
  public:
    explicit identity_law(int index = 0, char letter = 'X');
    int index() const { return index_; }
    char letter() const { return letter_; }

    void evaluate(const double* x, double* answer) const override;
    /// A negative index (a toxic law such as A0) raises LAW_DIM instead of reading
    /// outside the point.
    double evaluate_scalar(const double* x) const override {
        if (index_ < 0) [[unlikely]]
            sys_error(LAW_DIM);
        return x[index_];
    }
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return index_ + 1; }
    int return_size() const override { return 1; }

  private:
    int index_;
    char letter_;
};

// ============================================================== arithmetic

/// a + b.  A scalar and a vector: the scalar is added to the first component only
/// (deliberately not a broadcast).  Two vectors: componentwise over the longer one.
/// Among its class rules, "vec+vec=vec" adds two vector_laws of equal length component
/// by component (of different lengths they are left alone).
class LAW_API plus_law final : public binary_law {
    LAW_IDENTITY(plus_law, binary_law)
    LAW_KEYWORD(plus_law)
  public:
    plus_law(law* left, law* right);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    int associative() const override { return 1; }
    int commutative() const override { return 1; }

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    double chain_step(double left, const double* x) const override;
    law* deriv(int which) const override;
};

/// a - b, with the same scalar/vector rules as plus_law.
class LAW_API minus_law final : public binary_law {
    LAW_IDENTITY(minus_law, binary_law)
    LAW_KEYWORD(minus_law)
  public:
    minus_law(law* left, law* right);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    double chain_step(double left, const double* x) const override;
    law* deriv(int which) const override;
};

/// a * b.  A scalar scales every component of a vector; two vectors raise LAW_TIMES when
/// evaluated.  Among its class rules, "f*vec" distributes a scalar over the components of
/// a vector_law, in either operand order.
class LAW_API times_law final : public binary_law {
    LAW_IDENTITY(times_law, binary_law)
    LAW_KEYWORD(times_law)
  public:
    times_law(law* left, law* right);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    int associative() const override { return 1; }
    int commutative() const override { return 1; }

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    double chain_step(double left, const double* x) const override;
    law* deriv(int which) const override;
};

/// a / b.  Raises LAW_DIVISION when built over a vector denominator.  A scalar 0/0 takes
/// its value by L'Hospital's rule (first derivatives with respect to the first variable);
/// LAW_ZERODIVIDE for a denominator below tolerance otherwise, LAW_LHOSPITAL when the rule
/// cannot resolve it.  A vector numerator never raises: the denominator is clamped to at
/// least 1e-15 in magnitude.
class LAW_API division_law final : public binary_law {
    LAW_IDENTITY(division_law, binary_law)
    LAW_KEYWORD(division_law)
  public:
    division_law(law* left, law* right);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    double chain_step(double left, const double* x) const override;
    law* deriv(int which) const override;

  private:
    double quotient(double a, double b, const double* x) const;
    double lhospital(const double* x) const;
};

/// a ^ b.  LAW_EXPONENT for 0 to a non-positive power and for a negative base with an
/// exponent that is not an integer (within tolerance; exactly, for global versions below
/// 2180000).
class LAW_API exponent_law final : public binary_law {
    LAW_IDENTITY(exponent_law, binary_law)
    LAW_KEYWORD(exponent_law)
  public:
    exponent_law(law* left, law* right);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    double chain_step(double left, const double* x) const override;
    law* deriv(int which) const override;

  private:
    bool square_;  ///< the exponent is the constant 2
};

/// f o g: the outer law (left) evaluated at the values of the inner law (right).  Among
/// its class rules, "vec o f = vec" makes VEC(f1, ..., fn) o g the vector of the fi o g.
class LAW_API composite_law final : public binary_law {
    LAW_IDENTITY(composite_law, binary_law)
    LAW_KEYWORD(composite_law)
  public:
    composite_law(law* outer, law* inner);
    /// f(g1, ..., gn): the inner law is a new vector_law over the `size` laws.
    composite_law(law* outer, law** inners, int size);
    law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// The inner law's domain: the outer law's restricts the inner law's values, which no
    /// interval per input variable can state.
    int term_domain(int which, QEM::interval& domain) const override;
    int in_domain(double* x) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override;
};

// ============================================================== vectors

/// VEC(f1, ..., fn): component i is the scalar law fi, evaluated at the same input; n
/// values, written straight into the answer (no temporary array).  Its derivative is the
/// vector of the parts' derivatives.
/// Class rules: "vec(0)=0" and "vec(c)=c", a vector of one constant component is that
/// constant.  A vector of several zeros stays a vector: the scalar 0 would change the
/// law's dimension, and callers evaluate into arrays of that size.
class LAW_API vector_law final : public multiple_law {
    LAW_IDENTITY(vector_law, multiple_law)
    LAW_KEYWORD(vector_law)
  public:
    vector_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// Every part must return one value.  Passes at once under the restore waiver; a
    /// failure reports a toxic law and returns 0 (make_one builds the law all the same).
    static int check(law** subs, int size);
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return law_count_; }
};

/// TERM(V, I): component I of the vector law V, one value.  The index law is evaluated
/// at the same input and truncated toward zero after subtracting 1 (indices are 1-based in
/// the language: TERM(V,1) is the first component); an index outside 1..n raises LAW_DIM
/// rather than reading outside V's values.  The derivative is TERM(V', I), the index law
/// shared and not differentiated.  Prints as V[I] in the second form.
/// Class rule "term(vec)=sub": TERM(VEC(f1, ..., fn), k) with a constant k in 1..n is fk.
class LAW_API term_law final : public multiple_law {
    LAW_IDENTITY(term_law, multiple_law)
    LAW_KEYWORD(term_law)
  public:
    term_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// Two parts, both present, the index law scalar.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// Builds TERM(v, k) for a constant 1-based index k (one use to the caller).
LAW_API law* make_term_law(law* v, int k);

// ============================================================== products of vectors

/// DOT(L, R): the dot product, one value.  A scalar part times a vector part uses the
/// vector's first component only, deliberately, like plus_law's scalar rule; two vectors
/// of different lengths count a missing component as 0; a law dotted with itself is
/// evaluated once.  The derivative is DOT(L', R) + DOT(L, R').  make_one runs check, then
/// raises LAW_DOT_NUM for a count other than 2, and builds over the first two parts.
/// Class rules: "Dot(0,A)=Dot(A,0)=0" (a part that is the constant 0 or a vector_law of
/// constant zeros) and "dot(vec,vec)", DOT(VEC(a1..an), VEC(b1..bm)) = a1*b1 + ... over
/// the shorter vector.
class LAW_API dot_law final : public multiple_law {
    LAW_IDENTITY(dot_law, multiple_law)
    LAW_KEYWORD(dot_law)
  public:
    dot_law(law** subs, int size);
    /// DOT(left, right).
    dot_law(law* left, law* right);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    int commutative() const override { return 1; }
    /// Exactly two parts, both present.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// CROSS(L, R): the cross product of two 3-vectors, three values (a shorter part counts
/// its missing components as 0, further components are ignored); a law crossed with
/// itself is (0, 0, 0) without being evaluated.  The derivative is CROSS(L', R) +
/// CROSS(L, R').  make_one as for dot_law, with LAW_CROSS_NUM.
/// Class rules: "Cross(0,A)=Cross(A,0)=0" (zero as for DOT; the result is VEC(0,0,0), so
/// the law keeps its three values) and "cross(vec,vec)", the product of two vector_laws
/// written out component by component.
class LAW_API cross_law final : public multiple_law {
    LAW_IDENTITY(cross_law, multiple_law)
    LAW_KEYWORD(cross_law)
  public:
    cross_law(law** subs, int size);
    /// CROSS(left, right).
    cross_law(law* left, law* right);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// Exactly two parts, both present.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
};

// ============================================================== steps

/// STEP(P0, C1, P1, C3, ..., Pn): the law P(i-1) before the first breakpoint C(i) that
/// is greater than the first input coordinate x, the last part when there is none.  Each
/// piece is closed on its left: at x equal to a breakpoint the law after it is used.
/// Returns what its first part returns.  The derivative is the step law of the pieces'
/// derivatives over the same breakpoints (the jumps contribute nothing).  It reads x
/// itself, so it takes at least one input even when every piece is a constant.
class LAW_API step_law final : public multiple_law {
    LAW_IDENTITY(step_law, multiple_law)
    LAW_KEYWORD(step_law)
  public:
    step_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// An array of an odd number of present parts, constant_laws at the odd positions,
    /// the breakpoints non-decreasing (equal neighbours are accepted on purpose).  Waiver
    /// and failure as for VEC.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
};

// ============================================================== comparisons and logic
//
// Truth is a double: 1 for true, 0 for false; any non-zero value (NaN too) is true on
// input.  The operands are read as scalars (their first components) and the laws return
// one value.  None of them has a derivative: derivative() raises LAW_DERIV.

/// Declares a comparison or connective `cls` over two scalar laws.
#define LAW_LOGIC_CLASS(cls)                                            \
    class LAW_API cls final : public binary_law {                       \
        LAW_IDENTITY(cls, binary_law)                                   \
        LAW_KEYWORD(cls)                                                \
      public:                                                           \
        cls(law* left, law* right);                                     \
        law* make_one(law* left, law* right) const override;            \
        void evaluate(const double* x, double* answer) const override;  \
        double evaluate_scalar(const double* x) const override;         \
                                                                        \
      protected:                                                        \
        int return_size() const override { return 1; }                  \
        double chain_step(double left, const double* x) const override; \
    };

/// a < b.
LAW_LOGIC_CLASS(less_than_law)
/// a <= b.
LAW_LOGIC_CLASS(less_than_or_equal_law)
/// a > b.
LAW_LOGIC_CLASS(greater_than_law)
/// a >= b.
LAW_LOGIC_CLASS(greater_than_or_equal_law)
/// a == b, exactly: no tolerance, on purpose.
LAW_LOGIC_CLASS(equal_law)
/// a != b, exactly.
LAW_LOGIC_CLASS(not_equal_law)
/// a AND b: short-circuit; when a is 0, b is not evaluated.  Over one object on both
/// sides, a's value is reused.
LAW_LOGIC_CLASS(and_law)
/// a OR b: both are always evaluated (one object on both sides, once), deliberately
/// unlike AND.
LAW_LOGIC_CLASS(or_law)

#undef LAW_LOGIC_CLASS

/// TRUE: the constant 1.
class LAW_API true_law : public constant_law {
    LAW_IDENTITY(true_law, constant_law)
    LAW_KEYWORD(true_law)
  public:
    true_law();
    law* make_one(double value) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
};

/// FALSE: the constant 0.
class LAW_API false_law : public constant_law {
    LAW_IDENTITY(false_law, constant_law)
    LAW_KEYWORD(false_law)
  public:
    false_law();
    law* make_one(double value) const override;
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
};

// ============================================================== selections

/// PIECEWISE(C0, L0, C1, L1, ..., D): the law after the first condition that holds (is
/// non-zero; NaN counts as holding), the default D when none does.  With an even number
/// of parts the last condition's law is also the default, so that condition has no
/// effect.  Returns what the default returns.  The derivative is the piecewise law of the
/// laws' derivatives over the same conditions (shared, not differentiated).
class LAW_API piecewise_law final : public multiple_law {
    LAW_IDENTITY(piecewise_law, multiple_law)
    LAW_KEYWORD(piecewise_law)
  public:
    piecewise_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// At least two parts and a present last part; every other part returns one value
    /// at an even position (a condition) and the default's number of values at an odd
    /// one (a law).  Waiver and failure as for VEC.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    /// The default's return dimension: every law it may select returns as many values.
    int return_size() const override;
};

/// MAX(p0, ..., pn): the greatest value of the scalar parts; a later part replaces the
/// answer only when strictly greater, so the first of equal parts wins (and a NaN part
/// never does).  The derivative is the derivative of the part that is the answer, with
/// the same tie rule: PIECEWISE(AND(p0>=p1, ..., p0>=pn), p0', AND(p1>=p2, ...), p1', ...,
/// pn') -- a part is the answer when it is at least every later part and no earlier part
/// was.  At a tie the one-sided derivatives differ; the first part's is taken.
class LAW_API max_law final : public multiple_law {
    LAW_IDENTITY(max_law, multiple_law)
    LAW_KEYWORD(max_law)
  public:
    max_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    int commutative() const override { return 1; }
    /// A parts array whose parts all return one value.  Waiver and failure as for VEC.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// MIN(p0, ..., pn): the least value, as MAX with the comparisons reversed (the first of
/// equal parts wins; the derivative selects with <=).
class LAW_API min_law final : public multiple_law {
    LAW_IDENTITY(min_law, multiple_law)
    LAW_KEYWORD(min_law)
  public:
    min_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    int commutative() const override { return 1; }
    /// As max_law::check.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// ============================================================== domains

/// DOMAIN(f, a1, b1, a2, b2, ...): f restricted to [a1, b1] x [a2, b2] x ... in its first
/// input variables (a bound pair may come in either order; an infinite bound leaves that
/// side open).  term_domain(i) is the i-th interval, intersected with f's own domain;
/// in_domain tests every interval (to within the base library's resolution, as
/// QEM::interval::contains does) and f's own domain.  Evaluation outside raises
/// LAW_BAD_DOMAN; inside it is f's value.  The derivative is the same restriction of f'.
/// It takes at least as many inputs as it restricts and returns what f returns.
/// Class rule "domain(A)=A": the simplifier drops the restriction; law::simplify puts
/// the domains back around the simplified law (through set_domain), while
/// law::derivative, which simplifies without that step, returns f' unrestricted.
class LAW_API domain_law : public multiple_law {
    LAW_IDENTITY(domain_law, multiple_law)
    LAW_KEYWORD(domain_law)
  public:
    domain_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// A parts array of odd size, f present, every bound present, constant (it takes no
    /// input) and scalar.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

    int term_domain(int which, QEM::interval& domain) const override;
    int in_domain(double* x) const override;
    /// The same class over f, each interval intersected with the given one.
    law* set_domain(QEM::interval* domains, int flag = 0) const override;
    /// The number of input variables restricted (the bound pairs).
    int restricted() const { return law_count_ > 1 ? (law_count_ - 1) / 2 : 0; }
    /// The interval of variable `which` (< restricted()) named by its bounds alone.
    QEM::interval own_domain(int which) const;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    /// A law of this class over the parts, without the check (derivatives, restrictions).
    virtual law* rebuild(law** subs, int size) const;
};

/// PDOMAIN(f, a1, b1, ...): DOMAIN that the simplifier keeps ("domain(A)=A" removes
/// DOMAIN, never PDOMAIN), so the restriction survives derivatives too.
class LAW_API permanent_domain_law final : public domain_law {
    LAW_IDENTITY(permanent_domain_law, domain_law)
    LAW_KEYWORD(permanent_domain_law)
  public:
    permanent_domain_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    /// None: the restriction is permanent.
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

  protected:
    law* rebuild(law** subs, int size) const override;
};

// ============================================================== further functions

/// D(f), D(f, v), D(f, v, n): the n-th partial derivative of f with respect to the
/// variable v, evaluated.  v is an identity law (X, Y, Z, X4, ...) or a constant 1-based
/// index (D(f, 2) is d/dY); it defaults to the first variable, and n to 1 (0 gives f).
/// The derivative law is built with law::derivative on first evaluation and kept; the
/// derivative of D is that law's derivative.  make_one runs check, then raises
/// LAW_DL_NUM for a count other than 1, 2 or 3; evaluating a D built with another count
/// raises LAW_DL_NUM too.  Orders above 64 raise LAW_DERIV when evaluated.
class LAW_API derivative_law final : public multiple_law {
    LAW_IDENTITY(derivative_law, multiple_law)
    LAW_KEYWORD(derivative_law)
  public:
    derivative_law(law** subs, int size);
    ~derivative_law() noexcept(false) override;
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// 1 to 3 present parts; v an identity law or a positive integer constant; n a
    /// non-negative integer constant.  Waiver and failure as for VEC.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;

  private:
    /// The derivative law (borrowed), built once; raises what building it raises.
    const law* derived() const;
    mutable std::once_flag built_once_;
    mutable law* derived_ = nullptr;
};

/// MOD(a, b) = a - b floor(a / b): the remainder with the sign of b (MOD(-1, 3) is 2).
/// LAW_ZERODIVIDE for b = 0.  The derivative is a' - b' floor(a / b) (floor is constant
/// between its jumps).  Prints as mod[b]a in the second form.
class LAW_API mod_law final : public multiple_law {
    LAW_IDENTITY(mod_law, multiple_law)
    LAW_KEYWORD(mod_law)
  public:
    mod_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// Two present scalar parts.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// LOG(x, b) = ln x / ln b, the logarithm to the base b; LOG(x) is the common logarithm
/// (base 10).  LAW_LOG for x <= 0; LAW_BASE_P for a base <= 0 or equal to 1 (which has no
/// logarithms).  make_one runs check, then raises LAW_BASE_C for a base that is not
/// constant (it takes an input) and LAW_BASE_P for a bad constant base.  The derivative
/// is that of LN(x) / LN(b).  Prints as log[b]x in the second form.
class LAW_API log_law final : public multiple_law {
    LAW_IDENTITY(log_law, multiple_law)
    LAW_KEYWORD(log_law)
  public:
    log_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// One or two present scalar parts.  Waiver and failure as for VEC.
    static int check(law** subs, int size);
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// ARCTAN(y) = atan y, in (-pi/2, pi/2); ARCTAN(y, x) = atan2(y, x), the angle of the
/// point (x, y), in [-pi, pi] (0 at the origin).  Derivatives y' / (1 + y^2) and
/// (x y' - y x') / (x^2 + y^2).
class LAW_API arctan_law final : public multiple_law {
    LAW_IDENTITY(arctan_law, multiple_law)
    LAW_KEYWORD(arctan_law)
  public:
    arctan_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// One or two present scalar parts.  Waiver and failure as for VEC.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};
