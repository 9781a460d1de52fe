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
