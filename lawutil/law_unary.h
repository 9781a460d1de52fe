#pragma once
// Laws of one argument f: the elementary functions of a scalar (trigonometric, hyperbolic
// and their inverses, square root, exponential and logarithm, absolute value, rounding),
// the numeric predicates, a deterministic pseudo-random function, logical and arithmetic
// negation, and the vector laws that measure, normalise and frame a vector-valued f.
//
// Every class is a unary_law holding f with one use; the constructor takes its own use and
// make_one(g) builds a new law of the same class on g (one use to the caller).  A scalar
// function reads f as a scalar (its first component) and raises its domain error with
// sys_error; where it clamps instead, the clamped value is stated.  Predicates answer 1.0
// for true and 0.0 for false.  A class without a derivative (the predicates, RAND, NOT)
// raises LAW_DERIV from derivative().
//
// A class's static check(f) is the part check that make_one runs: 1 when f fits; otherwise
// it reports a toxic law (toxic_law_error) and returns 0, and make_one builds the law all
// the same.  Under the restore waiver (law_restore_waived) it passes at once.

#include <lawutil/main_law.h>

/// Declares the final law class `cls` of a function of one scalar: identity and keyword
/// from the class table, the constructor from f, make_one, evaluate and evaluate_scalar
/// (both apply the static `value` to f's scalar value, with no allocation and no lock),
/// then the further members given (LAW_DERIV_MEMBER, LAW_RULE_MEMBER, LAW_CHECK_MEMBER).
#define LAW_UNARY_CLASS(cls, ...)                                      \
    class LAW_API cls final : public unary_law {                       \
        LAW_IDENTITY(cls, unary_law)                                   \
        LAW_KEYWORD(cls)                                               \
      public:                                                          \
        explicit cls(law* sub);                                        \
        law* make_one(law* sub) const override;                        \
        void evaluate(const double* x, double* answer) const override; \
        double evaluate_scalar(const double* x) const override;        \
        static double value(double x);                                 \
        __VA_ARGS__                                                    \
    };

#define LAW_DERIV_MEMBER \
  protected:             \
    law* deriv(int which) const override;
#define LAW_RULE_MEMBER \
  public:               \
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;
#define LAW_CHECK_MEMBER \
  public:                \
    static int check(const law* sub);

/// A differentiable function of one scalar (see LAW_UNARY_CLASS).
#define LAW_UNARY_FUNCTION(cls, ...) LAW_UNARY_CLASS(cls, LAW_DERIV_MEMBER __VA_ARGS__)
/// A function of one scalar without a derivative (see LAW_UNARY_CLASS).
#define LAW_UNARY_PREDICATE(cls) LAW_UNARY_CLASS(cls)

// ============================================================== trigonometric

/// sin f.  Class rule "sin(-CA)=-sin(CA)".
LAW_UNARY_FUNCTION(sin_law, LAW_RULE_MEMBER)
/// cos f.  Class rule "cos(-CA)=cos(CA)".
LAW_UNARY_FUNCTION(cos_law, LAW_RULE_MEMBER)
/// tan f; LAW_TAN within resmch of an odd multiple of pi/2.
LAW_UNARY_FUNCTION(tan_law)
/// cot f = tan(pi/2 - f); LAW_COT within resmch of a multiple of pi.
LAW_UNARY_FUNCTION(cot_law)
/// sec f = 1/cos f; LAW_SEC when |cos f| < resmch.
LAW_UNARY_FUNCTION(sec_law)
/// csc f = 1/sin f; LAW_CSC when |sin f| < resmch.  Its derivative tree is -f * f', on
/// purpose (see the source).
LAW_UNARY_FUNCTION(csc_law)

// ============================================================== hyperbolic

/// sinh f.
LAW_UNARY_FUNCTION(sinh_law)
/// cosh f.
LAW_UNARY_FUNCTION(cosh_law)
/// tanh f.
LAW_UNARY_FUNCTION(tanh_law)
/// coth f = 1/tanh f; LAW_COTH when |tanh f| < resmch.
LAW_UNARY_FUNCTION(coth_law)
/// sech f = 1/cosh f, exactly 0 for |f| > 200.
LAW_UNARY_FUNCTION(sech_law)
/// csch f = 1/sinh f, exactly 0 for |f| > 200; LAW_CSCH when |sinh f| < resmch.
LAW_UNARY_FUNCTION(csch_law)

// ============================================================== inverse trigonometric

/// arcsin f; f beyond +-1 by at most resmch is clamped (pi/2, -pi/2); LAW_ARCSIN further out.
LAW_UNARY_FUNCTION(arcsin_law)
/// arccos f; f beyond +-1 by at most resmch is clamped (0, pi); LAW_ARCCOS further out.
LAW_UNARY_FUNCTION(arccos_law)
/// atan(1/f) + pi for every f != 0 (so in (pi/2, 3pi/2)), and pi/2 at f = 0.
LAW_UNARY_FUNCTION(arccot_law)
/// -arccos(1/f), the negated principal value; LAW_ARCSEC for -1 < f < 1.
LAW_UNARY_FUNCTION(arcsec_law)
/// -pi - arcsin(1/f); LAW_ARCCSC for -1 < f < 1.
LAW_UNARY_FUNCTION(arccsc_law)

// ============================================================== inverse hyperbolic

/// arcsinh f = ln(sqrt(f^2 + 1) + f).
LAW_UNARY_FUNCTION(arcsinh_law)
/// arccosh f = ln(sqrt(f^2 - 1) + f), the radicand taken as at least 0; LAW_ARCCOSH for
/// f <= 1 - resmch.
LAW_UNARY_FUNCTION(arccosh_law)
/// arctanh f = ln((1 + f)/(1 - f))/2; LAW_ARCTANH for |f| > 1 - resmch.
LAW_UNARY_FUNCTION(arctanh_law)
/// arccoth f = ln((f + 1)/(f - 1))/2; LAW_ARCCOTH for -1 <= f <= 1.
LAW_UNARY_FUNCTION(arccoth_law)
/// ln(sqrt(1 - f^2) + 1) / f (the logarithm divided by f, on purpose); LAW_ARCSECH unless
/// 0 < f <= 1.
LAW_UNARY_FUNCTION(arcsech_law)
/// arccsch f = ln((1 + sqrt(f^2 + 1))/f) for f > 0, ln((1 - sqrt(f^2 + 1))/f) otherwise;
/// LAW_ARCCSCH for |f| < 1e-10.
LAW_UNARY_FUNCTION(arccsch_law)

// ============================================================== roots, powers, rounding

/// sqrt f; 0 for -resmch < f < 0; LAW_SQRT for f <= -resmch.  Class rule "sqrt(x)=x^.5".
LAW_UNARY_FUNCTION(sqrt_law, LAW_RULE_MEMBER)
/// ln f; LAW_LN for f <= 0.
LAW_UNARY_FUNCTION(natural_log_law)
/// e^f.
LAW_UNARY_FUNCTION(exp_law)
/// |f|.  check: f must return one value.
LAW_UNARY_FUNCTION(abs_law, LAW_CHECK_MEMBER)
/// The largest integer <= f.
LAW_UNARY_FUNCTION(floor_law)
/// The smallest integer >= f.
LAW_UNARY_FUNCTION(ceil_law)
/// The step 1 for f > 0, else 0.
LAW_UNARY_FUNCTION(set_law)

// ============================================================== predicates

/// 1 when f is an integer that fits an int, else 0.
LAW_UNARY_PREDICATE(int_law)
/// 1 when f is an even integer (as for INT?), else 0.
LAW_UNARY_PREDICATE(even_law)
/// 1 when f is an odd integer (as for INT?), else 0.
LAW_UNARY_PREDICATE(odd_law)
/// 1 when f is an odd integer n >= 1 without a divisor in 3..sqrt(n): so 1 and 3 count as
/// prime and 2 does not, on purpose.
LAW_UNARY_PREDICATE(prime_law)
/// w = cos f; 100w - floor(100w), in [0, 1).  A function of f: equal inputs, equal values.
LAW_UNARY_PREDICATE(rand_law)
/// 1 when f = 0, else 0.
LAW_UNARY_PREDICATE(not_law)

#undef LAW_UNARY_PREDICATE
#undef LAW_UNARY_FUNCTION
#undef LAW_CHECK_MEMBER
#undef LAW_RULE_MEMBER
#undef LAW_DERIV_MEMBER
#undef LAW_UNARY_CLASS

// ============================================================== negation

/// -f: every component of f's value negated, at f's own dimension.  Class rule
/// "-(A)=(-1)*A".
class LAW_API negate_law final : public unary_law {
    LAW_IDENTITY(negate_law, unary_law)
    LAW_KEYWORD(negate_law)
  public:
    explicit negate_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;
    law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const override;

    /// The law as a polynomial in `var` (see law_polynomial), or null.
    law_polynomial* polynomial(law* var) const override;

  protected:
    law* deriv(int which) const override;
};

// ============================================================== vector laws

/// SIZE(f): the Euclidean length of f's value (|f| for a scalar f); returns one value.
/// Derivative: dot(f, f') / size(f), undefined where f is the zero vector.
class LAW_API size_law final : public unary_law {
    LAW_IDENTITY(size_law, unary_law)
    LAW_KEYWORD(size_law)
  public:
    explicit size_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    double evaluate_scalar(const double* x) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

/// NORM(f): f divided by its length, at f's own dimension (the sign of a scalar f).  The
/// zero vector maps to the zero vector, without an error.
/// Derivative: (f' - norm(f) * dot(norm(f), f')) / size(f).
class LAW_API norm_law final : public unary_law {
    LAW_IDENTITY(norm_law, unary_law)
    LAW_KEYWORD(norm_law)
  public:
    explicit norm_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;

  protected:
    law* deriv(int which) const override;
};

/// FRENET(f) for a curve f(t) in 3-space (t the first input): the unit principal normal,
/// (f' x f'') x f' normalised, with ' the derivative with respect to t.  Where f' and f''
/// are parallel (a straight piece, or a stationary point), also to within rounding
/// (|f' x f''| <= 1e-13 |f'| |f''|), it is the zero vector: never a NaN.  The
/// derivative is that of NORM(CROSS(CROSS(f', f''), f')).  Returns 3 values.
/// check: f must return 3 values.
class LAW_API frenet_law final : public unary_law {
    LAW_IDENTITY(frenet_law, unary_law)
    LAW_KEYWORD(frenet_law)
  public:
    explicit frenet_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    static int check(const law* sub);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
};

/// SURFNORM(f) for a surface f(u, v) in 3-space (u, v the first two inputs): the unit
/// normal df/du x df/dv normalised; the zero vector where the surface is degenerate.  The
/// derivative is that of NORM(CROSS(df/du, df/dv)).  Returns 3 values.
/// check: f must be present, take at most 2 inputs and return 3 values.
class LAW_API surfnorm_law final : public unary_law {
    LAW_IDENTITY(surfnorm_law, unary_law)
    LAW_KEYWORD(surfnorm_law)
  public:
    explicit surfnorm_law(law* sub);
    law* make_one(law* sub) const override;
    void evaluate(const double* x, double* answer) const override;
    static int check(const law* sub);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
};
