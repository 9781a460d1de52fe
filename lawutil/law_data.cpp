#include <lawutil/law_data.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/value_buffer.h>

// ============================================================== law_data

law_data::~law_data() noexcept(false) {
    if (use_count_.load(std::memory_order_relaxed) != 0) {
        if (std::uncaught_exceptions() > 0)
            sys_warning(BAD_LAW_DATA_USE_COUNT);
        else
            sys_error(BAD_LAW_DATA_USE_COUNT);
    }
}

void law_data::remove() const {
    if (use_count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

law_data* law_data::restore() {
    return nullptr;
}
int law_data::date() const {
    return 20200;
}
int law_data::type() const {
    return law_data_id;
}

char* law_data::string(law_symbol_type type, QEM::optional<int&> count,
                       QEM::optional<law_data_node*&> list) const {
    char number[16] = "";
    if (count.has_value() && *count >= 0) {
        std::snprintf(number, sizeof number, "%d", *count + 1);
        if (list.has_value()) {
            add();
            *list = new law_data_node(const_cast<law_data*>(this), *list);
        }
        ++*count;
    }
    const char* sym = symbol(type);
    const size_t n = std::strlen(sym) + std::strlen(number) + 1;
    char* out = QEM_ALLOC_ARRAY(char, n);
    std::snprintf(out, n, "%s%s", sym, number);
    return out;
}

law_data* law_data::set_domain(QEM::interval*) {
    add();
    return this;
}

void law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(law_data));
}

int law_data::operator==(const law_data&) const {
    return 0;
}

// ============================================================== law_data_node

namespace {
// A bound against a corrupted chain.
constexpr int max_nodes = 100000;
}  // namespace

law_data_node::law_data_node(law_data* d, law_data_node* n) : data(d), next(n) {}

law_data_node::~law_data_node() noexcept(false) {
    // Unlink the rest first and delete it iteratively: a long chain must not recurse.
    law_data_node* rest = next;
    next = nullptr;
    if (data) data->remove();
    while (rest) {
        law_data_node* after = rest->next;
        rest->next = nullptr;
        delete rest;
        rest = after;
    }
}

int law_data_node::size(bool with_null) const {
    int n = 0, walked = 0;
    for (const law_data_node* p = this; p && walked < max_nodes; p = p->next, ++walked)
        if (p->data || with_null) ++n;
    return n;
}

int law_data_node::get_array(law_data**& array, bool with_null) const {
    const int n = size(with_null);
    array = QEM_ALLOC_ARRAY(law_data*, static_cast<size_t>(n > 0 ? n : 1));
    int i = n, walked = 0;
    for (const law_data_node* p = this; p && i > 0 && walked < max_nodes; p = p->next, ++walked)
        if (p->data || with_null) array[--i] = p->data;
    return n;
}

// ============================================================== law_law_data

law_law_data::law_law_data(law* held) : law_(held) {
    law::add(law_);
}

law_law_data::~law_law_data() noexcept(false) {
    law::remove(law_);
}

int law_law_data::date() const {
    return law_ ? law_->date() : law_data::date();
}

law_data* law_law_data::deep_copy(pointer_map* pm) const {
    law_ref copy = law_ref::adopt(law_ ? law_->deep_copy(pm) : nullptr);
    return new law_law_data(copy.get());
}

law_data* law_law_data::set_domain(QEM::interval* domain) {
    law_ref restricted = law_ref::adopt(law_ ? law_->set_domain(domain, 0) : nullptr);
    return new law_law_data(restricted.get());
}

void law_law_data::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(law_law_data));
    if (law_) law_->full_size(size, 1);
}

int law_law_data::operator==(const law_data& other) const {
    if (other.type() != law_law_data_id) return 0;
    const law* mine = law_;
    const law* theirs = static_cast<const law_law_data&>(other).law_;
    if (mine == theirs) return 1;
    return mine && theirs && *mine == *theirs;
}

// ============================================================== law's data helpers

int law::check_data_type(const law_data* d, int type_id) {
    return d != nullptr && d->type() == type_id;
}
