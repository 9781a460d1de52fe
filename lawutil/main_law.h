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
    enum kind_t : unsigned char { general, constant, variable, missing };
    kind_t kind = missing;
    int index = 0;
    double value = 0.0;

    void bind(const law* l);
    [[noreturn]] static void raise_missing();
    double read(const law* l, const double* x) const {
        if (kind == constant) return value;
        if (kind == variable) return x[index];
        if (kind == general) return l->evaluate_scalar(x);
        raise_missing();
    }
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

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;

  protected:
    ~unary_law() noexcept(false) override;
    int take_size() const override;
    int return_size() const override;
    double sub_value(const double* x) const { return sub_op_.read(sub_law_, x); }

    law* sub_law_;
    law_operand sub_op_;
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

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;

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

    law* left_law_;
    law* right_law_;
    law_operand left_op_;
    law_operand right_op_;
    int left_dim_;
    int right_dim_;
    bool scalar_;         ///< both operands scalar: the fast path applies
    bool same_operands_;  ///< one object on both sides: evaluate it once
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
    virtual int commutative() const { return 0; }

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;

  protected:
    ~multiple_law() noexcept(false) override;
    /// The largest take dimension of the parts; 0 without parts.
    int take_size() const override;
    /// The return dimension of the first part; 0 without parts.
    int return_size() const override;

    law** sub_laws_;
    int law_count_;
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
    double evaluate_scalar(const double* x) const override { return x[index_]; }
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;

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

  protected:
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

  protected:
    law* deriv(int which) const override;
};

/// a * b.  A scalar scales every component of a vector; two vectors raise LAW_TIMES when
/// evaluated.
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

  protected:
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

  protected:
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

  protected:
    law* deriv(int which) const override;

  private:
    bool square_;  ///< the exponent is the constant 2
};

/// f o g: the outer law (left) evaluated at the values of the inner law (right).
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

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override;
};

// ============================================================== vectors

/// VEC(f1, ..., fn): component i is the scalar law fi.
class LAW_API vector_law final : public multiple_law {
    LAW_IDENTITY(vector_law, multiple_law)
    LAW_KEYWORD(vector_law)
  public:
    vector_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    /// Every part must return one value; a failure reports a toxic law (not under the
    /// restore waiver) and returns 0, and the law may still be built.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return law_count_; }
};

/// TERM(V, I): component I (1-based, truncated) of the vector law V.  The index is not
/// range-checked at evaluation beyond raising LAW_DIM for one outside 1..n, so that a
/// bad index never reads outside V's values.
class LAW_API term_law final : public multiple_law {
    LAW_IDENTITY(term_law, multiple_law)
    LAW_KEYWORD(term_law)
  public:
    term_law(law** subs, int size);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// Two parts, the index law scalar.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// Builds TERM(v, k) for a constant 1-based index k (one use to the caller).
LAW_API law* make_term_law(law* v, int k);

// ============================================================== products of vectors

/// DOT(L, R): the dot product, one value.  A scalar part times a vector part uses the
/// vector's first component only, like plus_law's scalar rule; two vectors of different
/// lengths count a missing component as 0.  make_one reports a toxic law for a count
/// other than 2 or a missing first or second part, then raises LAW_DOT_NUM for a count
/// other than 2, and builds over the first two parts.
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

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// CROSS(L, R): the cross product of two 3-vectors, three values; a law crossed with
/// itself is (0, 0, 0) without being evaluated.  make_one as for dot_law, with
/// LAW_CROSS_NUM.
class LAW_API cross_law final : public multiple_law {
    LAW_IDENTITY(cross_law, multiple_law)
    LAW_KEYWORD(cross_law)
  public:
    cross_law(law** subs, int size);
    /// CROSS(left, right).
    cross_law(law* left, law* right);
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    /// Exactly two parts, both present; a failure reports a toxic law (not under the
    /// restore waiver) and returns 0.
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
};
