#pragma once
// Laws whose sub-objects are law data rather than laws: unary_data_law holds one datum,
// multiple_data_law an array of them.  The kernel derives its curve, surface and wire laws
// from these; the library itself supplies map_law, which composes laws handed to it as
// law_law_data (the parser wraps every argument of a data law that is not a data
// reference in one, so MAP(X^2,X+1) is read without a data array).
//
// Ownership: the constructors take their own use of each non-null datum; the caller keeps
// (and must give back) its own.  make_one builds a new law of the same class over other
// data with the same rule.

#include <lawutil/law_data.h>
#include <lawutil/main_law.h>

class LAW_API unary_data_law : public law {
    LAW_IDENTITY(unary_data_law, law)
  public:
    explicit unary_data_law(law_data* datum);
    unary_data_law(const unary_data_law& other);
    law_data* fsub() const { return datum_; }
    /// A new law of the same class over `datum` (one use to the caller).
    virtual law* make_one(law_data* datum) const = 0;

    /// "KEYWORD(datum)"; the datum is numbered only when the caller passes a count.
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    /// The held law's domain when the datum is a law_law_data; the whole line otherwise.
    int term_domain(int which, QEM::interval& domain) const override;
    /// The same class over the datum restricted to domains[0] (law_data::set_domain).
    law* set_domain(QEM::interval* domains, int flag = 0) const override;
    /// Adds this law, and searches the law held by a law_law_data datum.
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// The later of the class's and the datum's version stamps.
    int date() const override;

  protected:
    ~unary_data_law() noexcept(false) override;

    law_data* datum_;
};

class LAW_API multiple_data_law : public law {
    LAW_IDENTITY(multiple_data_law, law)
  public:
    /// Copies the array (null `data` leaves it null) and takes a use of each datum.
    multiple_data_law(law_data** data, int size);
    multiple_data_law(const multiple_data_law& other);
    law_data** fsubs() const { return data_; }
    int fsize() const { return data_count_; }
    /// A new law of the same class over the data (one use to the caller).
    virtual law* make_one(law_data** data, int size) const = 0;

    /// "KEYWORD(d1,d2,...)"; the data are numbered only when the caller passes a count.
    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    int same(const law* a, const law* b) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    /// Adds this law, and searches the laws held by law_law_data data.
    void hasa(int type_id, VOID_LIST& found) const override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    /// The latest of the class's and the data's version stamps.
    int date() const override;

  protected:
    ~multiple_data_law() noexcept(false) override;
    /// The law held by datum `i` when it is a law_law_data, else null.
    law* held_law(int i) const;

    law_data** data_;
    int data_count_;
};

/// MAP(f, g1, ..., gn) over law_law_data: f evaluated at (g1(x), ..., gn(x)), that is
/// f o g for one inner law and f o VEC(g1, ..., gn) for several.  It returns what f
/// returns and takes what the inner laws take.  Its derivative is the chain rule's (the
/// derivative of the composition; it is not itself a MAP).  It prints the held laws in
/// place, MAP(X^2,X+1), which reads back without a data array.
/// check: at least two data, each a law_law_data holding a law, and with two or more
/// inner laws each of them scalar (they become a vector's components); a failure reports a toxic
/// law and the law is built all the same (evaluating a MAP without an outer or an inner law raises
/// LAW_EVAL).
class LAW_API map_law final : public multiple_data_law {
    LAW_IDENTITY(map_law, multiple_data_law)
    LAW_KEYWORD(map_law)
  public:
    map_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    static int check(law_data** data, int size);

    char* string(
        law_symbol_type type = SYMBOL_PARSE, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const override;
    /// The intersection of the inner laws' domains (the outer law's cannot be expressed
    /// per input variable).
    int term_domain(int which, QEM::interval& domain) const override;

    ~map_law() noexcept(false) override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override;

  private:
    law* composed_;  ///< f o g or f o VEC(g1..gn); null when a law is missing
};

// ============================================================== laws over paths
//
// The laws below read curves, parameter curves, wires, surfaces, patterns and transforms.
// Each is built over data of one type; `make_one` (what the parser calls) runs the class's
// `check` and builds nothing (returns null) when it fails, after a toxic-law report.  A
// law built directly over data of the wrong type raises LAW_EVAL when evaluated.

/// Shared body of CUR, PCUR and WIRE: one input t, the point eval(t, 0, side) of the path
/// (three values; two for a parameter curve).  The domain is the path's parameter range.
/// The derivative in t is the matching derivative law over the same datum and a law
/// datum holding 1 (CUR(E1) differentiates to DCUR(E1,LAW2)); in any other variable 0.
class LAW_API path_point_law : public unary_data_law {
  public:
    path_point_law(law_data* datum, int path_type, int dims);
    path_point_law(const path_point_law& other);
    const path_law_data* path() const { return path_; }
    void evaluate(const double* x, double* answer) const override;
    void evaluate_with_side(const double* x, double* answer, const int* side) const override;
    int term_domain(int which, QEM::interval& domain) const override;
    /// The path's singularities in [start, end] (none without a path); no periods.
    int singularities(double** where, int** order, double start, double end,
                      double** period = nullptr) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return dims_; }
    /// The derivative law of this class over (datum, order law).
    virtual law* make_derivative(law_data** data) const = 0;

    const path_law_data* path_;  ///< the datum when it has the right type, else null
    int dims_;
};

/// Shared body of DCUR, DPCUR and DWIRE over (path, order law): the derivative of order
/// n at t, n being the order law's value at the argument converted to an integer.  Its
/// own derivative in t raises the order by one.
class LAW_API path_deriv_law : public multiple_data_law {
  public:
    path_deriv_law(law_data** data, int size, int path_type, int dims);
    path_deriv_law(const path_deriv_law& other);
    void evaluate(const double* x, double* answer) const override;
    void evaluate_with_side(const double* x, double* answer, const int* side) const override;
    int term_domain(int which, QEM::interval& domain) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return dims_; }
    /// The count test, the type tests, the restore waiver, then the order law's shape.
    static int check_path(law_data** data, int size, int path_type, bool exact);

    const path_law_data* path_;
    const law* order_;
    int dims_;
};

/// CUR(curve): the point of a 3-D curve (type 3).  check: one curve datum.
class LAW_API curve_law final : public path_point_law {
    LAW_IDENTITY(curve_law, unary_data_law)
    LAW_KEYWORD(curve_law)
  public:
    explicit curve_law(law_data* datum);
    law* make_one(law_data* datum) const override;
    static int check(law_data* datum);
    /// The point and derivatives 1..n (derivs[i] receives order i + 1); returns how many
    /// the curve computed.  Raises LAW_EVAL over a datum that is not a curve.
    int evaluate(double t, QEM::position& point, QEM::vector** derivs, int n, int side = 0) const;
    /// The curve's discontinuities in [lo, hi] (heap arrays owned by the caller).
    int discontinuities(double** where, int** order, double lo, double hi) const;
    /// True when the curve is a straight segment (tested at 9 points to the base
    /// library's resolution): then `root` is its start point and `dir` its direction.
    int is_linear(QEM::position& root, QEM::unit_vector& dir) const;
    /// True when the curve lies in a plane (tested at 17 points): `root` is a point of
    /// it and `normal` its normal.  A straight curve is not reported planar.
    int is_planar(QEM::position& root, QEM::unit_vector& normal) const;
    /// `n` points at equal parameter steps over the range (n >= 2), in a heap array the
    /// caller frees with vorn_discard.
    QEM::position* get_points_on_curve(int n) const;

  protected:
    law* make_derivative(law_data** data) const override;
    /// The parameter of the point of the curve nearest the argument, as a law of three
    /// inputs: CURI over the same curve.
    law* sub_inverse() const override;
};

/// PCUR(pcurve): the (u, v) point of a parameter curve (type 4).
class LAW_API pcurve_law final : public path_point_law {
    LAW_IDENTITY(pcurve_law, unary_data_law)
    LAW_KEYWORD(pcurve_law)
  public:
    explicit pcurve_law(law_data* datum);
    law* make_one(law_data* datum) const override;
    static int check(law_data* datum);

  protected:
    law* make_derivative(law_data** data) const override;
};

/// WIRE(wire): the point of a wire (type 2).
class LAW_API wire_law final : public path_point_law {
    LAW_IDENTITY(wire_law, unary_data_law)
    LAW_KEYWORD(wire_law)
  public:
    explicit wire_law(law_data* datum);
    law* make_one(law_data* datum) const override;
    static int check(law_data* datum);

  protected:
    law* make_derivative(law_data** data) const override;
};

/// DCUR(curve, order): exactly two data, a curve (type 3) and an order law (type 6).
class LAW_API dcurve_law final : public path_deriv_law {
    LAW_IDENTITY(dcurve_law, multiple_data_law)
    LAW_KEYWORD(dcurve_law)
  public:
    dcurve_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
};

/// DPCUR(pcurve, order, ...): at least two data, a parameter curve (type 4) and an order
/// law (type 6); further data are accepted and ignored.
class LAW_API dpcurve_law final : public path_deriv_law {
    LAW_IDENTITY(dpcurve_law, multiple_data_law)
    LAW_KEYWORD(dpcurve_law)
  public:
    dpcurve_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
};

/// DWIRE(wire, order): exactly two data, a wire (type 2) and an order law (type 6).
class LAW_API dwire_law final : public path_deriv_law {
    LAW_IDENTITY(dwire_law, multiple_data_law)
    LAW_KEYWORD(dwire_law)
  public:
    dwire_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
};

/// CURC(curve): the curvature vector of a curve at t (three values; its length is the
/// curvature, it points to the centre of curvature).  No derivative.
class LAW_API curvature_law final : public unary_data_law {
    LAW_IDENTITY(curvature_law, unary_data_law)
    LAW_KEYWORD(curvature_law)
  public:
    explicit curvature_law(law_data* datum);
    law* make_one(law_data* datum) const override;
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;

  protected:
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }
};

/// CURI(curve): for a point p (three inputs), the parameter of the point of the curve
/// nearest p (the foot of the perpendicular, within the curve's range).  A guess given
/// to evaluate_with_guess starts the search there.  No derivative.
class LAW_API intersect_lawi final : public unary_data_law {
    LAW_IDENTITY(intersect_lawi, unary_data_law)
    LAW_KEYWORD(intersect_lawi)
  public:
    explicit intersect_lawi(law_data* datum);
    law* make_one(law_data* datum) const override;
    void evaluate(const double* x, double* answer) const override;
    void evaluate_with_guess(const double* x, double* answer, const double* guess) const override;

  protected:
    int take_size() const override { return 3; }
    int return_size() const override { return 1; }
};

/// CURD(curve): for a point p (three inputs), its distance from the curve (from the
/// nearest point, as CURI finds it).  No derivative.
class LAW_API distance_lawi final : public unary_data_law {
    LAW_IDENTITY(distance_lawi, unary_data_law)
    LAW_KEYWORD(distance_lawi)
  public:
    explicit distance_lawi(law_data* datum);
    law* make_one(law_data* datum) const override;
    void evaluate(const double* x, double* answer) const override;
    void evaluate_with_guess(const double* x, double* answer, const double* guess) const override;

  protected:
    int take_size() const override { return 3; }
    int return_size() const override { return 1; }
};

// ============================================================== laws over surfaces

/// SURF(surface): the point of a surface (type 5) at (u, v); the domain is the surface's
/// parameter box.  Its derivatives are DSURF over the same surface with orders (1, 0) and
/// (0, 1).  BS(surface) is the same law under its own keyword: the point of the surface's
/// spline approximation, which is the surface itself for surfaces defined exactly.
class LAW_API surface_point_law : public unary_data_law {
  public:
    explicit surface_point_law(law_data* datum);
    surface_point_law(const surface_point_law& other);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;
    static int check(law_data* datum);

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 2; }
    int return_size() const override { return 3; }

    const base_surface_law_data* surface_;
};

class LAW_API surface_law final : public surface_point_law {
    LAW_IDENTITY(surface_law, unary_data_law)
    LAW_KEYWORD(surface_law)
  public:
    explicit surface_law(law_data* datum) : surface_point_law(datum) {}
    law* make_one(law_data* datum) const override;
};

class LAW_API bs3_surface_law final : public surface_point_law {
    LAW_IDENTITY(bs3_surface_law, unary_data_law)
    LAW_KEYWORD(bs3_surface_law)
  public:
    explicit bs3_surface_law(law_data* datum) : surface_point_law(datum) {}
    law* make_one(law_data* datum) const override;
};

/// DSURF(surface, order u, order v): exactly three data, a surface (type 5) and two order
/// laws (type 6); the partial derivative of those orders at (u, v).
class LAW_API dsurface_law final : public multiple_data_law {
    LAW_IDENTITY(dsurface_law, multiple_data_law)
    LAW_KEYWORD(dsurface_law)
  public:
    dsurface_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 2; }
    int return_size() const override { return 3; }

  private:
    const base_surface_law_data* surface_;
    const law* order_u_;
    const law* order_v_;
};

/// The curvatures of a surface at (u, v), from its first and second partial derivatives,
/// with the normal Su x Sv: GAUSCUR the product of the principal curvatures, MEANCUR
/// their mean, MAXCUR and MINCUR the larger and the smaller.  A surface bending away from
/// its normal is positive (a sphere of radius r with outward normals: 1/r).  At a point
/// where Su x Sv vanishes they raise LAW_ZERODIVIDE.  No derivatives.
class LAW_API surface_curvature_law : public unary_data_law {
  public:
    enum class which { gaussian, mean, max, min };
    surface_curvature_law(law_data* datum, which kind);
    surface_curvature_law(const surface_curvature_law& other);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;

  protected:
    int take_size() const override { return 2; }
    int return_size() const override { return 1; }

    const base_surface_law_data* surface_;
    which kind_;
};

#define LAW_SURFACE_CURVATURE(cls, kind)                                      \
    class LAW_API cls final : public surface_curvature_law {                  \
        LAW_IDENTITY(cls, unary_data_law)                                     \
        LAW_KEYWORD(cls)                                                      \
      public:                                                                 \
        explicit cls(law_data* datum) : surface_curvature_law(datum, kind) {} \
        law* make_one(law_data* datum) const override;                        \
    };
LAW_SURFACE_CURVATURE(gaussian_curvature_law, which::gaussian)
LAW_SURFACE_CURVATURE(mean_curvature_law, which::mean)
LAW_SURFACE_CURVATURE(max_curvature_law, which::max)
LAW_SURFACE_CURVATURE(min_curvature_law, which::min)
#undef LAW_SURFACE_CURVATURE

// ============================================================== patterns and transforms

/// PATTRANS(pattern): for an index i (one input, rounded toward zero), transform i of the
/// pattern (type 9) as law::transf_size values: the 3x3 part row by row, then the
/// translation.  An index outside the pattern raises LAW_EVAL.  No derivative.
class LAW_API patterntrans_law final : public unary_data_law {
    LAW_IDENTITY(patterntrans_law, unary_data_law)
    LAW_KEYWORD(patterntrans_law)
  public:
    explicit patterntrans_law(law_data* datum);
    law* make_one(law_data* datum) const override;
    static int check(law_data* datum);
    void evaluate(const double* x, double* answer) const override;

  protected:
    int take_size() const override { return 1; }
    int return_size() const override { return law::transf_size; }

  private:
    const base_pattern_law_data* pattern_;
};

/// TRANS(f, transform): the positions f returns, moved by the transform: exactly two data,
/// a law datum (type 6) holding a law of three values and a transform (type 7).  It takes
/// what f takes.  Its derivative is TRANS(f', the transform's linear part): directions
/// turn with the transform and ignore its translation.
class LAW_API transform_law final : public multiple_data_law {
    LAW_IDENTITY(transform_law, multiple_data_law)
    LAW_KEYWORD(transform_law)
  public:
    transform_law(law_data** data, int size);
    law* make_one(law_data** data, int size) const override;
    static int check(law_data** data, int size);
    void evaluate(const double* x, double* answer) const override;
    int term_domain(int which, QEM::interval& domain) const override;

  protected:
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override { return 3; }

  private:
    const law* inner_;
    const base_transform_law_data* trans_;
};
