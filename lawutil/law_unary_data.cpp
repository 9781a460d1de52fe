#include <lawutil/law_unary_data.h>

#include <algorithm>
#include <string>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_save.h>
#include <lawutil/law_registry.h>

using law_internal::heap_string;

namespace {

// A datum's text; numbered only when the caller passes a count (and then collected in the
// caller's list).  Without one the keyword stands alone and no use is taken.
std::string datum_text(const law_data* d, law_symbol_type type, QEM::optional<int&> count,
                       QEM::optional<law_data_node*&> list) {
    if (!d) return "NULL";
    char* s = d->string(type, count, list);
    std::string out(s);
    vorn_discard(s);
    return out;
}

bool same_datum(const law_data* a, const law_data* b) {
    if (a == b) return true;
    return a && b && *a == *b;
}

law* held_by(const law_data* d) {
    if (!d || d->type() != law_law_data_id) return nullptr;
    return static_cast<const law_law_data*>(d)->data_law();
}

// Owns one use of a datum for a scope.
struct datum_use {
    law_data* d;
    explicit datum_use(law_data* datum) : d(datum) {}
    datum_use(const datum_use&) = delete;
    datum_use& operator=(const datum_use&) = delete;
    ~datum_use() noexcept(false) {
        if (d) d->remove();
    }
};

}  // namespace

// ============================================================== unary_data_law

unary_data_law::unary_data_law(law_data* datum) : datum_(datum) {
    if (datum_) datum_->add();
}

unary_data_law::unary_data_law(const unary_data_law& other) : law(other), datum_(other.datum_) {
    if (datum_) datum_->add();
}

unary_data_law::~unary_data_law() noexcept(false) {
    if (datum_) datum_->remove();
}

char* unary_data_law::string(law_symbol_type type, QEM::optional<int&> count,
                             QEM::optional<law_data_node*&> list) const {
    return heap_string(std::string(symbol(type)) + "(" + datum_text(datum_, type, count, list) +
                       ")");
}

int unary_data_law::same(const law* a, const law* b) const {
    return same_datum(static_cast<const unary_data_law*>(a)->datum_,
                      static_cast<const unary_data_law*>(b)->datum_);
}

law* unary_data_law::deep_copy(pointer_map* pm) const {
    datum_use copy(pm_get_law_data(pm, datum_));
    return make_one(copy.d);
}

int unary_data_law::term_domain(int which, QEM::interval& domain) const {
    if (const law* held = held_by(datum_)) return held->term_domain(which, domain);
    return law::term_domain(which, domain);
}

law* unary_data_law::set_domain(QEM::interval* domains, int) const {
    datum_use restricted(datum_ ? datum_->set_domain(domains) : nullptr);
    return make_one(restricted.d);
}

void unary_data_law::hasa(int type_id, VOID_LIST& found) const {
    law::hasa(type_id, found);
    if (const law* held = held_by(datum_)) held->hasa(type_id, found);
}

void unary_data_law::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    law::full_size(size, 0);
    if (datum_) datum_->full_size(size, 1);
}

int unary_data_law::date() const {
    return std::max(law::date(), datum_ ? datum_->date() : 0);
}

// ============================================================== multiple_data_law

multiple_data_law::multiple_data_law(law_data** data, int size) : data_(nullptr), data_count_(0) {
    if (!data || size <= 0) return;
    data_ = QEM_ALLOC_ARRAY(law_data*, static_cast<size_t>(size));
    data_count_ = size;
    for (int i = 0; i < size; ++i) {
        data_[i] = data[i];
        if (data_[i]) data_[i]->add();
    }
}

multiple_data_law::multiple_data_law(const multiple_data_law& other)
    : law(other), data_(nullptr), data_count_(other.data_count_) {
    if (!other.data_) return;
    data_ = QEM_ALLOC_ARRAY(law_data*, static_cast<size_t>(data_count_));
    for (int i = 0; i < data_count_; ++i) {
        data_[i] = other.data_[i];
        if (data_[i]) data_[i]->add();
    }
}

multiple_data_law::~multiple_data_law() noexcept(false) {
    for (int i = 0; i < data_count_; ++i)
        if (data_[i]) data_[i]->remove();
    vorn_discard(data_);
}

law* multiple_data_law::held_law(int i) const {
    return i >= 0 && i < data_count_ ? held_by(data_[i]) : nullptr;
}

char* multiple_data_law::string(law_symbol_type type, QEM::optional<int&> count,
                                QEM::optional<law_data_node*&> list) const {
    std::string out = std::string(symbol(type)) + "(";
    for (int i = 0; i < data_count_; ++i) {
        if (i) out += ",";
        out += datum_text(data_[i], type, count, list);
    }
    return heap_string(out + ")");
}

int multiple_data_law::same(const law* a, const law* b) const {
    auto* x = static_cast<const multiple_data_law*>(a);
    auto* y = static_cast<const multiple_data_law*>(b);
    if (x->data_count_ != y->data_count_) return 0;
    for (int i = 0; i < x->data_count_; ++i)
        if (!same_datum(x->data_[i], y->data_[i])) return 0;
    return 1;
}

law* multiple_data_law::deep_copy(pointer_map* pm) const {
    const int n = data_count_;
    QEM::scoped_heap_array<law_data*> copies(
        QEM_ALLOC_ARRAY(law_data*, static_cast<size_t>(n > 0 ? n : 1)));
    int made = 0;
    // Release every copy made so far, also when a later copy raises.
    QEM::scope_exit release([&] {
        for (int i = 0; i < made; ++i)
            if (copies[i]) copies[i]->remove();
    });
    for (; made < n; ++made) copies[made] = pm_get_law_data(pm, data_[made]);
    return make_one(data_ ? copies.get() : nullptr, n);
}

void multiple_data_law::hasa(int type_id, VOID_LIST& found) const {
    law::hasa(type_id, found);
    for (int i = 0; i < data_count_; ++i)
        if (const law* held = held_law(i)) held->hasa(type_id, found);
}

void multiple_data_law::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(*this));
    law::full_size(size, 0);
    size.add(sizeof(law_data*) * static_cast<size_t>(data_count_));
    for (int i = 0; i < data_count_; ++i)
        if (data_[i]) data_[i]->full_size(size, 1);
}

int multiple_data_law::date() const {
    int d = law::date();
    for (int i = 0; i < data_count_; ++i)
        if (data_[i]) d = std::max(d, data_[i]->date());
    return d;
}

// ============================================================== map_law

namespace {

// f o g for one inner law, f o VEC(g1, ..., gn) for several; null when a law is missing.
law* compose(law_data** data, int size) {
    if (!data || size < 2) return nullptr;
    law* outer = held_by(data[0]);
    if (!outer) return nullptr;
    for (int i = 1; i < size; ++i)
        if (!held_by(data[i])) return nullptr;
    if (size == 2) return new composite_law(outer, held_by(data[1]));
    std::vector<law*> inner;
    for (int i = 1; i < size; ++i) inner.push_back(held_by(data[i]));
    return new composite_law(outer, inner.data(), static_cast<int>(inner.size()));
}

}  // namespace

map_law::map_law(law_data** data, int size)
    : multiple_data_law(data, size), composed_(compose(data_, data_count_)) {}

map_law::~map_law() noexcept(false) {
    law::remove(composed_);
}

int map_law::check(law_data** data, int size) {
    if (law_restore_waived()) return 1;
    bool ok = data && size >= 2;
    for (int i = 0; ok && i < size; ++i) {
        ok = check_data_type(data[i], law_law_data_id) && held_by(data[i]);
        if (ok && size > 2 && i > 0) ok = check_return_dim(held_by(data[i]), 1);
    }
    if (!ok) {
        toxic_law_error();
        return 0;
    }
    return 1;
}

law* map_law::make_one(law_data** data, int size) const {
    check(data, size);
    return new map_law(data, size);
}

void map_law::evaluate(const double* x, double* answer) const {
    if (!composed_) law_operand::raise_missing();
    composed_->evaluate(x, answer);
}

char* map_law::string(law_symbol_type type, QEM::optional<int&> count,
                      QEM::optional<law_data_node*&> list) const {
    // The held laws print in place: the parser reads each argument of a data law that is
    // not a data reference as a law and wraps it again, so the text needs no data array.
    std::string out = std::string(symbol(type)) + "(";
    for (int i = 0; i < data_count_; ++i) {
        if (i) out += ",";
        if (const law* held = held_law(i)) {
            char* s = held->string(type, count, list);
            out += s;
            vorn_discard(s);
        } else {
            out += datum_text(data_[i], type, count, list);
        }
    }
    return heap_string(out + ")");
}

int map_law::term_domain(int which, QEM::interval& domain) const {
    domain = QEM::interval(QEM::interval_infinite);
    for (int i = 1; i < data_count_; ++i) {
        const law* inner = held_law(i);
        if (!inner) continue;
        QEM::interval part;
        inner->term_domain(which, part);
        domain &= part;
    }
    return 1;
}

law* map_law::deriv(int which) const {
    if (!composed_) law_operand::raise_missing();
    return composed_->unsimplified_derivative(which);
}

int map_law::take_size() const {
    return composed_ ? composed_->take_dim() : 0;
}

int map_law::return_size() const {
    const law* outer = held_law(0);
    return outer ? outer->return_dim() : 1;
}

LAW_REGISTER_PROTOTYPE(map_law, nullptr, 0)
