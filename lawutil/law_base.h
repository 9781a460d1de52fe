#pragma once
// The law base class: shared ownership by use counts, the per-law caches (derivatives,
// simplified form, inverse, dimensions) guarded by one re-entrant lock per law, class
// identification by fixed type ids, the virtual interface every law fills in, and the
// typed convenience evaluators built on `evaluate`.

#include <atomic>
#include <cstdint>
#include <mutex>

#include <lawutil/law_errors.h>
#include <lawutil/law_export.h>
#include <lawutil/law_kinds.h>
#include <qem/geometry.h>
#include <qem/heap.h>
#include <qem/optional.h>

class law;
class law_data;
class law_data_node;
class law_polynomial;
class pointer_map;

/// The style of a keyword: 0 is the parser's upper-case form ("SIN"); any other value
/// gives the second form ("sin"), or "no_maple" where a class has none.
enum law_symbol_type { SYMBOL_PARSE = 0, SYMBOL_SECOND = 1 };

/// Identity of a law class, taken from the fixed table: static id(), type(), isa() and
/// class_name().  A class without a row in law_kinds.def does not compile.
#define LAW_IDENTITY(cls, base)                                                   \
  public:                                                                         \
    static int id() {                                                             \
        return cls##_id;                                                          \
    }                                                                             \
    int type() const override {                                                   \
        return cls##_id;                                                          \
    }                                                                             \
    int isa(int t) const override {                                               \
        return t == cls##_id || base::isa(t);                                     \
    }                                                                             \
    const char* class_name() const override {                                     \
        return #cls;                                                              \
    }                                                                             \
    static_assert(law_kind_index(cls##_id) >= 0, "law class missing from table"); \
                                                                                  \
  private:

/// Keyword and precedence of a text-nameable class, from the same table.
#define LAW_KEYWORD(cls)                                                             \
  public:                                                                            \
    const char* symbol(law_symbol_type t) const override {                           \
        constexpr const law_kind_row& row = law_kind_rows[law_kind_index(cls##_id)]; \
        return t == SYMBOL_PARSE ? row.keyword : row.second;                         \
    }                                                                                \
    int precedence() const override {                                                \
        return law_kind_rows[law_kind_index(cls##_id)].precedence;                   \
    }                                                                                \
    static_assert(law_kind_rows[law_kind_index(cls##_id)].kind != law_kind::NONE,    \
                  "class has no keyword");                                           \
                                                                                     \
  private:

class LAW_API law : public QEM::heap_object {
  public:
    law();
    /// A copy is a new object: use count 1 and empty caches.
    law(const law&);
    law& operator=(const law&) = delete;

    // ---- ownership --------------------------------------------------------------
    /// Takes one use of `l` (null is ignored).
    static void add(const law* l);
    /// Gives back one use of `l` (null is ignored); destroys it when none is left.
    /// Raises BAD_LAW_USE_COUNT when the count is driven below zero.
    static void remove(const law* l);
    int ref_count() const { return use_count_.load(std::memory_order_relaxed); }
    /// Number of law objects alive in the process (for leak checks).
    static long live_laws();

    // ---- identity ---------------------------------------------------------------
    static int id() { return law_id; }
    /// True for the class's own id and the ids of its bases.
    virtual int isa(int type_id) const;
    virtual int type() const;
    virtual const char* class_name() const = 0;
    /// Version stamp of the class's definition.
    virtual int date() const;

    // ---- dimensions (asked once, then cached) -------------------------------------
    int return_dim() const;
    int take_dim() const;

    // ---- text ---------------------------------------------------------------------
    /// The class's keyword; raises LAW_SYMBOL when the class has none.
    virtual const char* symbol(law_symbol_type type = SYMBOL_PARSE) const;
    /// Binding strength for parenthesising; higher binds tighter.
    virtual int precedence() const;
    /// The law as text, in a new heap string the caller frees with vorn_discard.
    /// `count` and `list` collect the law data the text refers to.
    virtual char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const;
    /// The text and the law data it refers to, numbered as in the text: `*data` is a heap
    /// array of `*size` pointers, one use each, that the caller releases and frees.
    char* string_and_data(law_data*** data, int* size, law_symbol_type type = SYMBOL_PARSE) const;

    // ---- structure ------------------------------------------------------------------
    /// Structural equality of two laws of this class.
    virtual int same(const law* a, const law* b) const;
    /// Same address, or same class, same shape hash and `same`.
    bool operator==(const law& other) const;
    /// A hash of the law's structure: laws equal under == have equal hashes, so two
    /// laws whose hashes differ are told apart without walking them.  Fixed when the law
    /// is built; 0 for classes that keep none (data laws and most leaves).
    std::uint64_t shape_hash() const { return shape_hash_; }
    bool operator!=(const law& other) const { return !(*this == other); }
    /// A structurally independent copy (one use to the caller).  Raises LAW_DEEP_COPY
    /// for classes that cannot be copied.
    virtual law* deep_copy(pointer_map* pm = nullptr) const;
    /// The law as a polynomial in `var`, or null.
    virtual law_polynomial* polynomial(law* var) const;
    /// Adds this law to `found` when it isa(type_id); laws with sub-laws search them too.
    virtual void hasa(int type_id, VOID_LIST& found) const;
    virtual void full_size(SizeAccumulator& size, int count_self = 1) const;

    // ---- domains and ranges -----------------------------------------------------------
    /// Writes the domain of variable `which`; returns 1.  Default: the whole line.
    virtual int term_domain(int which, QEM::interval& domain) const;
    virtual int in_domain(double* x) const;
    /// Parameter values in [start, end] where the law is singular, with their orders, as
    /// heap arrays owned by the caller; returns their number.
    virtual int singularities(double** where, int** order, double start, double end,
                              double** period = nullptr) const;
    /// A law restricted to the given per-variable domains (one use to the caller).
    /// `flag` is the number of intervals in `domains` (below 1: one, the first variable's).
    /// By default the law is wrapped in a domain_law; when no interval restricts anything
    /// the law itself is returned with a use.
    virtual law* set_domain(QEM::interval* domains, int flag = 0) const;
    /// A law restricted to a range, or null.
    virtual law* set_range(QEM::interval* range, int flag = 0) const;
    /// An interval bounding the values over `domain`; raises LAW_BAD_BOUNDS by default.
    virtual QEM::interval estimate_bounds(const QEM::interval& domain, int& exact) const;
    /// Bounds of a scalar law of one variable over [lo, hi]: estimate_bounds when the
    /// class has it, otherwise the hull of `samples` evaluations (not a guaranteed bound).
    QEM::interval bounds(double lo, double hi, int samples = 65) const;

    // ---- simplification and branches ---------------------------------------------------
    /// One class-specific rewrite step, or null; sets `rule_name` when it fires.
    virtual law* sub_simplify(int level, QEM::optional<const char*&> rule_name) const;
    virtual law* enable_branching() const;
    virtual int branches() const;

    // ---- evaluation --------------------------------------------------------------------
    /// Writes return_dim() values for the point `x` of take_dim() coordinates.
    virtual void evaluate(const double* x, double* answer) const;
    /// As evaluate; `side` tells, per coordinate, from which side a discontinuity is met.
    virtual void evaluate_with_side(const double* x, double* answer, const int* side) const;
    /// As evaluate, with a starting guess for laws that solve iteratively.
    virtual void evaluate_with_guess(const double* x, double* answer, const double* guess) const;
    /// For laws whose output size is not fixed: `answer` is a new heap array of
    /// `answer_size` values that the caller frees with vorn_discard.
    virtual void evaluateVAR(const double* x, double*& answer, int& answer_size) const;
    /// True for a law built with a part missing (text such as "X^,Y" gives one): it
    /// prints, and raises when evaluated or differentiated.
    virtual bool incomplete() const { return false; }
    /// The first output value at `x`: the scalar fast path that operator nodes use.
    virtual double evaluate_scalar(const double* x) const;

    /// The value at the point whose every coordinate is `x` (first component).
    double eval(double x, const int* side = nullptr, const double* guess = nullptr) const;

    // Typed evaluators.  M: array, R: double, P: position, PP: parameter position,
    // NV: nvector, C: complex, V: vector, UV: unit vector, MAT: matrix, T: transform,
    // D..: the `order`-th derivative (with respect to the first variable) is evaluated.
    double evaluateM_R(const double* x, const int* side = nullptr,
                       const double* guess = nullptr) const;
    double evaluateNV_R(const QEM::nvector& x, const int* side = nullptr) const;
    double evaluateC_R(const QEM::complex_number& z) const;
    double evaluateDR_R(double x, int order = 1, const int* side = nullptr) const;
    double evaluateDM_R(const double* x, int order = 1, const int* side = nullptr) const;
    /// Writes return_dim() values of the `order`-th derivative at `x`.
    void evaluateDM(const double* x, double* answer, int order = 1,
                    const int* side = nullptr) const;
    QEM::vector evaluateR_V(double x, const int* side = nullptr,
                            const double* guess = nullptr) const;
    QEM::unit_vector evaluateR_UV(double x, const int* side = nullptr) const;
    QEM::position evaluateR_P(double x, const int* side = nullptr) const;
    QEM::vector evaluateDR_V(double x, int order = 1, const int* side = nullptr) const;
    QEM::vector evaluateM_V(const double* x, const int* side = nullptr,
                            const double* guess = nullptr) const;
    QEM::position evaluateM_P(const double* x, const int* side = nullptr,
                              const double* guess = nullptr) const;
    QEM::par_pos evaluateM_PP(const double* x, const int* side = nullptr) const;
    QEM::matrix evaluateM_MAT(const double* x, const int* side = nullptr) const;
    QEM::transf evaluateM_T(const double* x, const int* side = nullptr) const;
    QEM::position evaluateNV_P(const QEM::nvector& x, const int* side = nullptr) const;
    QEM::vector evaluateNV_V(const QEM::nvector& x, const int* side = nullptr) const;
    QEM::position evaluateP_P(const QEM::position& p, const int* side = nullptr) const;
    QEM::par_pos evaluateP_PP(const QEM::position& p, const int* side = nullptr) const;
    QEM::position evaluatePP_P(const QEM::par_pos& uv, const int* side = nullptr) const;
    QEM::vector evaluatePP_V(const QEM::par_pos& uv, const int* side = nullptr) const;

    /// Number of values a matrix and a transform are returned as (row-major 3x3; the
    /// 3x3 part followed by the translation).
    static constexpr int matrix_size = 9;
    static constexpr int transf_size = 12;

    // ---- derivatives (cached, simplified) ------------------------------------------------
    /// The simplified partial derivative with respect to variable `which`, built once per
    /// law and shared: one use to the caller.  Raises LAW_DERIV when the class has none,
    /// for a law with a missing part, and for a variable below 0 or above 65535.
    law* derivative(int which = 0) const;
    /// The raw derivative tree the class builds, before simplification and uncached (one
    /// use to the caller, or null where the class has none).  For diagnostics and tests.
    law* unsimplified_derivative(int which) const { return deriv(which); }
    /// The `n`-th derivative with respect to the first variable (the law itself for n <= 0).
    law* nth_derivative(int n) const;
    /// The mixed partial: `nu` times with respect to variable 0, then `nv` times to 1.
    law* uv_partials(int nu, int nv) const;
    int cached_derivative(int which) const;
    int has_derivative(int which) const;
    /// Stores `d` as derivative `which` (shared with a use, or a deep copy); returns 1.
    int set_derivative(int which, law* d, int share = 1) const;
    void reset_derivative(int which);

    // ---- compiled forms kept with the law ---------------------------------------------------
    /// Storage a higher layer keeps with the law (the jet programs of law_jet, compile.h):
    /// `make` is called under the law's lock the first time and its result kept; `release`,
    /// registered once by that layer, frees it with the law.  It holds no use of the law.
    void* attached_programs(void* (*make)()) const;
    static void set_attached_release(void (*release)(void*));
    /// The lock that guards the law's caches, for a layer that keeps its own with the law.
    std::recursive_mutex& cache_lock() const { return lock_; }

    // ---- simplified form -----------------------------------------------------------------
    /// The simplified law (cached per level; 666 is an alias of 1); one use to the caller.
    law* simplify(int level = 1, int flag = 0) const;
    int is_simplified(int level) const;
    /// The cached simplified form when one is held at a level >= `level` (one use to the
    /// caller), else null.  Never runs the simplifier.
    law* simplified_form(int level) const;
    void reset_simplify(law* s, int level) const;
    void set_simplify(law* s, int level) const;
    /// Whether a pass of the simplifier's rule list `list` (0 to 2) is known to leave the
    /// law as it is.  The simplifier records it so that a law met again, alone or inside
    /// a larger tree, is not walked again for that list.
    int pass_keeps(int list) const { return (marks_.load(std::memory_order_relaxed) >> list) & 1; }
    void set_pass_keeps(int list) const {
        marks_.fetch_or(static_cast<unsigned char>(1u << list), std::memory_order_relaxed);
    }
    /// What the simplifier's post rules (list 2) made of the law when they changed it
    /// (one use to the caller), else null; recorded by the simplifier, so that a law met
    /// again in another simplification is not rewritten again.
    law* post_form() const;
    void set_post_form(law* post) const;
    /// Whether the equal sub-laws of the law are already one object each (recorded by
    /// the simplifier, which makes them so, see internal/law_share.h).
    bool parts_shared() const {
        return (marks_.load(std::memory_order_relaxed) & parts_shared_mark) != 0;
    }
    void set_parts_shared() const { marks_.fetch_or(parts_shared_mark, std::memory_order_relaxed); }

    // ---- inverse ---------------------------------------------------------------------------
    void set_inverse(law* inv) const;
    /// The cached inverse (computed once with sub_inverse), borrowed: no use is added.
    law* inverse() const;

    // ---- shape tests -----------------------------------------------------------------------
    /// True for a law whose value does not depend on its input.
    int constant() const;
    /// True for a constant law whose value is within `tol` of `value`.
    int zero(double value = 0.0, double tol = 0.0) const;
    /// True for a constant law with an integer value.
    int integer() const;
    /// True when every first partial derivative is constant.
    int linear() const;
    /// True for an identity law (restricted to `domain` when given).
    int identity(QEM::interval* domain = nullptr) const;

    /// Truncates toward zero to a 32-bit int; out-of-range values are reported to the
    /// restore hook (restore_law_problem_found) and truncated all the same, on purpose
    /// without an error, so that damaged saved data still loads.
    static int safe_convert_to_int(double value);

  protected:
    /// The raw, unsimplified partial derivative, or null where the class has none.
    virtual law* deriv(int which) const;
    virtual law* sub_inverse() const;
    virtual int take_size() const;
    virtual int return_size() const;
    virtual ~law() noexcept(false);

    /// Static part checks used when a law is built from parts: 1 when they hold.
    static int check_type(const law* l, int type_id);
    static int check_take_dim(const law* l, int max_dim);
    static int check_return_dim(const law* l, int dim);
    static int check_data_type(const law_data* d, int type_id);

    /// Set by the constructors of the classes whose equality reads their parts (unary,
    /// binary and multiple laws hash their parts).  A class whose `same` ignores some of
    /// its parts must set a hash that ignores them too (0 always will do).
    void set_shape_hash(std::uint64_t hash) { shape_hash_ = hash; }
    /// `hash` extended by one part: its class and its own hash (null counts as a part).
    static std::uint64_t mix_shape_hash(std::uint64_t hash, const law* part);
    static std::uint64_t mix_shape_hash(std::uint64_t hash, std::uint64_t value);

    /// For prototypes held by the registry, whose count must not stay at the value the
    /// constructor gives, and for tests of the use-count checks.
    void set_use_count(int count) const { use_count_.store(count, std::memory_order_relaxed); }

  private:
    friend class law_list;
    static constexpr unsigned char parts_shared_mark = 0x80;
    void set_dlaw_cache(int which) const;
    law* simplify_locked(int level) const;

    mutable std::atomic<int> use_count_{1};
    int reserved_[2] = {0, 0};
    mutable std::recursive_mutex lock_;
    mutable law* simplified_ = nullptr;
    mutable int simplify_level_ = -1;
    mutable law** dlaw_cache_ = nullptr;
    mutable int dlaw_cache_size_ = 0;
    mutable law* inverse_ = nullptr;
    mutable law* post_form_ = nullptr;
    mutable void* attached_ = nullptr;
    mutable std::atomic<int> take_dim_{-1};
    mutable std::atomic<int> return_dim_{-1};
    std::uint64_t shape_hash_ = 0;
    mutable std::atomic<unsigned char> marks_{0};  ///< lists a pass keeps; parts shared
};

/// The copy of `original` made while a structure is deep-copied under `pm` (one use to the
/// caller): deep_copy the first time, the same copy after, so what the original shares
/// the copy shares.  With a null `pm`, a plain deep copy.  See law_save.h.
LAW_API law* pm_get_law(pointer_map* pm, const law* original);

/// A new heap string holding `value` printed with "%.16g" (C locale); caller frees it.
LAW_API char* number_string(double value);

/// Starts the library (nesting count): registers the component and creates the per-thread
/// law context on the first call.  Returns 1.
LAW_API int initialize_law();
/// Undoes initialize_law; returns 0 when the library was not started, else 1.
LAW_API int terminate_law();
/// A type id for a law class defined outside the library (first one is 126).  Main
/// thread only: raises from any other thread.
LAW_API int new_law_id();
