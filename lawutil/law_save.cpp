#include <lawutil/law_save.h>

#include <istream>
#include <limits>
#include <locale>
#include <ostream>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include <lawutil/internal/law_chain.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/law_data_geom.h>
#include <lawutil/law_util.h>
#include <lawutil/sw_curve_law.h>
#include <lawutil/sweep_law.h>
#include <qem/options.h>

// ============================================================== pointer maps

pointer_map::~pointer_map() noexcept(false) {
    for (auto& [original, copy] : laws_) law::remove(copy);
    for (auto& [original, copy] : data_) copy->remove();
}

law* pointer_map::find_law(const law* original) const {
    const auto it = laws_.find(original);
    return it == laws_.end() ? nullptr : it->second;
}

law_data* pointer_map::find_data(const law_data* original) const {
    const auto it = data_.find(original);
    return it == data_.end() ? nullptr : it->second;
}

void pointer_map::add_law(const law* original, law* copy) {
    law::add(copy);
    law* old = laws_[original];
    laws_[original] = copy;
    law::remove(old);
}

void pointer_map::add_data(const law_data* original, law_data* copy) {
    copy->add();
    law_data* old = data_[original];
    data_[original] = copy;
    if (old) old->remove();
}

namespace {

pointer_map* default_make() {
    return new pointer_map;
}

law* default_get_law(pointer_map* pm, const law* original) {
    if (law* done = pm->find_law(original)) {
        law::add(done);
        return done;
    }
    law_ref copy = law_ref::adopt(original->deep_copy(pm));
    pm->add_law(original, copy.get());
    return copy.release();
}

law_data* default_get_data(pointer_map* pm, const law_data* original) {
    if (law_data* done = pm->find_data(original)) {
        done->add();
        return done;
    }
    law_data* copy = original->deep_copy(pm);
    if (copy) pm->add_data(original, copy);
    return copy;
}

pointer_map* (*make_func)() = default_make;
law* (*get_law_func)(pointer_map*, const law*) = default_get_law;
law_data* (*get_data_func)(pointer_map*, const law_data*) = default_get_data;

}  // namespace

pointer_map* make_pointer_map() {
    return make_func();
}

law* pm_get_law(pointer_map* pm, const law* original) {
    if (!original) return nullptr;
    // A copy follows the tree by recursion: a law nested deeper than the stack allows (a
    // chain of a million terms) is refused, not copied to a crash.
    law_internal::walk_level level;
    if (level.too_deep()) sys_error(LAW_DEEP_COPY);
    if (!pm) return original->deep_copy(nullptr);
    return get_law_func(pm, original);
}

law_data* pm_get_law_data(pointer_map* pm, const law_data* original) {
    if (!original) return nullptr;
    if (!pm) return original->deep_copy(nullptr);
    return get_data_func(pm, original);
}

void set_make_pointer_map_func(pointer_map* (*make)()) {
    make_func = make ? make : default_make;
}
void set_pm_get_law_func(law* (*get)(pointer_map*, const law*)) {
    get_law_func = get ? get : default_get_law;
}
void set_pm_get_law_data_func(law_data* (*get)(pointer_map*, const law_data*)) {
    get_data_func = get ? get : default_get_data;
}

law* law_deep_copy(const law* l) {
    if (!l) return nullptr;
    pointer_map* pm = make_pointer_map();
    QEM::scope_exit drop([&] { delete pm; });
    return pm_get_law(pm, l);
}

// ============================================================== saving
//
// law   := "law" n record_1 ... record_n text
// record := "same" k            (the datum of record k, 1-based, again)
//         | "LAW" law
//         | "LCURVE" start end law | "LPCURVE" start end law
//         | "LSURFACE" ulo uhi vlo vhi law
//         | "LWIRE" n record_1 ... record_n
//         | "TRANSFORM" a00 ... a22 t0 t1 t2
//         | "GRID" n d_1 ... d_n x y z ...
//         | "SPLINE_LAW" min max
//         | "SWEDGE" degree count knot_1 ... knot_(count+degree+1) (x y z w)_1 ... (x y z w)_count
// text  := length ':' characters
// Numbers are written with 17 significant digits in the C locale, so they read back to
// the same doubles.

namespace {

void save_law(const law* l, std::ostream& out);

void save_text(const char* s, std::ostream& out) {
    const std::string text(s ? s : "NULL");
    out << text.size() << ':' << text << '\n';
}

// The Euclidean control points and the weights: the constructor rebuilds the same
// homogeneous points from them.
void save_sw_curve(const sw_curve& c, std::ostream& out) {
    out << ' ' << c.degree() << ' ' << c.control_count();
    for (int i = 0; i < c.knot_count(); ++i) out << ' ' << c.knot(i);
    for (int i = 0; i < c.control_count(); ++i) {
        const QEM::position p = c.control_point(i);
        out << ' ' << p.x() << ' ' << p.y() << ' ' << p.z() << ' ' << c.weight(i);
    }
    out << '\n';
}

// Refuses up front what would not restore as it was: the caller gets LAW_DATA_SAVE and a
// message, never a text that fails, or reads as another law, later.
[[noreturn]] void refuse_save(const char* why) {
    TEST_set_error((std::string("law save: ") + why).c_str());
    sys_error(LAW_DATA_SAVE);
}

void write_datum(const law_data* d, std::ostream& out);

// A record's numbers are read back by the stream, which reads no infinity and no NaN.
void save_datum(const law_data* d, std::ostream& out) {
    std::ostringstream record;
    record.imbue(std::locale::classic());
    record.precision(17);
    write_datum(d, record);
    const std::string text = record.str();
    const std::string head = text.substr(0, text.find('\n'));
    if (head.find("nan") != std::string::npos || head.find("inf") != std::string::npos)
        refuse_save("a datum holds a number that is not finite");
    out << text;
}

void write_datum(const law_data* d, std::ostream& out) {
    if (!d) {
        out << "NONE\n";
        return;
    }
    const std::string key = d->symbol(SYMBOL_PARSE);
    out << key;
    if (auto* l = dynamic_cast<const law_law_data*>(d)) {
        out << '\n';
        save_law(l->data_law(), out);
    } else if (auto* c = dynamic_cast<const law_curve_law_data*>(d)) {
        out << ' ' << c->data_start() << ' ' << c->data_end() << '\n';
        save_law(c->curve(), out);
    } else if (auto* p = dynamic_cast<const law_pcurve_law_data*>(d)) {
        out << ' ' << p->data_start() << ' ' << p->data_end() << '\n';
        save_law(p->curve(), out);
    } else if (auto* s = dynamic_cast<const law_surface_law_data*>(d)) {
        out << ' ' << s->u_range().start_pt() << ' ' << s->u_range().end_pt() << ' '
            << s->v_range().start_pt() << ' ' << s->v_range().end_pt() << '\n';
        save_law(s->surface(), out);
    } else if (auto* w = dynamic_cast<const law_wire_law_data*>(d)) {
        out << ' ' << w->pieces() << '\n';
        for (int i = 0; i < w->pieces(); ++i) write_datum(w->piece(i), out);
    } else if (auto* t = dynamic_cast<const rigid_transform_law_data*>(d)) {
        const QEM::transf& m = *t->get_trans();
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) out << ' ' << m.affine().element(r, c);
        for (int c = 0; c < 3; ++c) out << ' ' << m.translation()[c];
        out << '\n';
    } else if (auto* g = dynamic_cast<const position_grid_law_data*>(d)) {
        out << ' ' << g->get_dimension();
        for (int i = 0; i < g->get_dimension(); ++i) out << ' ' << g->get_dims()[i];
        for (int i = 0; i < g->get_data_size(); ++i)
            for (int c = 0; c < 3; ++c) out << ' ' << g->get_data()[i][c];
        out << '\n';
    } else if (auto* e = dynamic_cast<const sw_curve_law_data*>(d)) {
        save_sw_curve(e->curve(), out);
    } else if (d->type() == base_spline_law_data_id && key == "SPLINE_LAW" &&
               typeid(*d) == typeid(base_spline_law_data)) {
        auto* b = static_cast<const base_spline_law_data*>(d);
        out << ' ' << b->param_min() << ' ' << b->param_max() << '\n';
    } else {
        sys_error(LAW_DATA_SAVE);
    }
}

void save_law(const law* l, std::ostream& out) {
    if (!l) {
        out << "law 0\n";
        save_text(nullptr, out);
        return;
    }
    law_data** data = nullptr;
    int n = 0;
    char* text = l->string_and_data(&data, &n);
    QEM::scope_exit release([&] {
        for (int i = 0; i < n; ++i) data[i]->remove();
        vorn_discard(data);
        vorn_discard(text);
    });
    // A MINROT's text names its parts only: its own sample count and its step kind
    // would come back as the options' at restore, a different law.
    VOID_LIST minrots;
    l->hasa(min_rotation_law_id, minrots);
    for (int i = 0; i < minrots.count(); ++i) {
        auto* m = static_cast<const min_rotation_law*>(minrots[i]);
        const QEM::option_header* samples = find_option(min_rot_samples_option_name);
        const QEM::option_header* method = find_option(min_rot_method_option_name);
        if (m->alt_eval() != 0 || (samples && m->sample_count() != samples->count()))
            refuse_save("a MINROT with its own sample count or the refined step");
        if (method && m->min_rot_method() != method->count())
            refuse_save("a MINROT whose frame method differs from the option's");
    }
    // The text must read back, with these data, as this very law; what prints otherwise
    // (a part the reader does not know, a part left missing) is refused here.
    {
        const std::string posted = TEST_get_error();
        law_ref back = law_ref::adopt(str_to_law(text, data, n));
        TEST_set_error(posted.c_str());
        if (!back || !(*back.get() == *l)) refuse_save("the law does not read back from its text");
    }
    out << "law " << n << '\n';
    for (int i = 0; i < n; ++i) {
        int first = i;
        for (int j = 0; j < i; ++j)
            if (data[j] == data[i]) {
                first = j;
                break;
            }
        if (first < i)
            out << "same " << first + 1 << '\n';
        else
            save_datum(data[i], out);
    }
    save_text(text, out);
}

// ============================================================== restoring

// The data read so far, one use each, released when reading ends.
struct read_data {
    std::vector<law_data*> items;
    read_data() = default;
    read_data(const read_data&) = delete;
    read_data& operator=(const read_data&) = delete;
    ~read_data() noexcept(false) {
        for (law_data* d : items)
            if (d) d->remove();
    }
};

// Each LAW record inside a record is read by a nested call: refuse deeper nesting than
// this rather than risk the stack, as the parser does for deep texts.
constexpr int max_restore_nesting = 500;

// Posts why a saved record is refused; null for the caller.  The reader of the law
// tells the restore hook, once per bad record.
std::nullptr_t bad_record(const std::string& why) {
    TEST_set_error(("law restore: " + why).c_str());
    return nullptr;
}

// Thrown when the whole text is refused, nested records included, so that the first
// reason stays the posted one; law_restore catches it.
struct restore_refused {};

// Posts why a saved text is refused, tells the restore hook and abandons the reading.
[[noreturn]] void refuse(const std::string& why) {
    bad_record(why);
    restore_law_problem_found();
    throw restore_refused{};
}

law* restore_law(std::istream& in, int nesting);

bool read_numbers(std::istream& in, double* v, int n) {
    for (int i = 0; i < n; ++i)
        if (!(in >> v[i])) return false;
    return true;
}

// One datum (one use to the caller), or null after a problem report.
law_data* restore_datum(std::istream& in, const std::vector<law_data*>& earlier, int nesting) {
    std::string key;
    if (!(in >> key)) return bad_record("the text ends inside the data records");
    double v[12];
    if (key == "same") {
        int k = 0;
        in >> k;
        if (k < 1 || k > static_cast<int>(earlier.size()) || !earlier[k - 1])
            return bad_record("\"same\" names no earlier record");
        earlier[k - 1]->add();
        return earlier[k - 1];
    }
    if (key == "NONE") return nullptr;
    if (key == "LAW") {
        law_ref l = law_ref::adopt(restore_law(in, nesting + 1));
        if (!l) return nullptr;
        return new law_law_data(l.get());
    }
    if (key == "LCURVE" || key == "LPCURVE") {
        if (!read_numbers(in, v, 2)) return nullptr;
        law_ref l = law_ref::adopt(restore_law(in, nesting + 1));
        if (!l) return nullptr;
        if (key == "LCURVE") return new law_curve_law_data(l.get(), v[0], v[1]);
        return new law_pcurve_law_data(l.get(), v[0], v[1]);
    }
    if (key == "LSURFACE") {
        if (!read_numbers(in, v, 4)) return nullptr;
        law_ref l = law_ref::adopt(restore_law(in, nesting + 1));
        if (!l) return nullptr;
        return new law_surface_law_data(l.get(), QEM::interval(v[0], v[1]),
                                        QEM::interval(v[2], v[3]));
    }
    if (key == "LWIRE") {
        int n = 0;
        if (!(in >> n) || n < 1) return nullptr;
        read_data pieces;
        for (int i = 0; i < n; ++i) {
            pieces.items.push_back(restore_datum(in, {}, nesting + 1));
            law_data* p = pieces.items.back();
            if (!p || p->type() != base_curve_law_data_id) return nullptr;
        }
        std::vector<base_curve_law_data*> curves;
        for (law_data* p : pieces.items) curves.push_back(static_cast<base_curve_law_data*>(p));
        return new law_wire_law_data(curves.data(), n);
    }
    if (key == "TRANSFORM") {
        if (!read_numbers(in, v, 12)) return nullptr;
        const QEM::transf t(QEM::matrix(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]),
                            QEM::vector(v[9], v[10], v[11]));
        return new rigid_transform_law_data(&t);
    }
    if (key == "GRID") {
        int n = 0;
        if (!(in >> n) || n < 0 || n > 16) return nullptr;
        std::vector<int> dims(static_cast<size_t>(n));
        long size = 1;
        for (int& d : dims) {
            if (!(in >> d) || d < 0) return nullptr;
            size *= d;
            if (size > 100000000) return nullptr;
        }
        // Grown as the points are read: a declared size beyond the text costs nothing.
        std::vector<QEM::position> pts;
        for (long i = 0; i < size; ++i) {
            if (!read_numbers(in, v, 3)) return nullptr;
            pts.emplace_back(v[0], v[1], v[2]);
        }
        return new position_grid_law_data(pts.data(), dims.data(), n);
    }
    if (key == "SWEDGE") {
        int degree = 0, count = 0;
        if (!(in >> degree >> count) || count < 1 || count > 10000000 || degree < 1 ||
            degree > sw_max_degree)
            return nullptr;
        // Grown as read: a declared count beyond the text costs nothing.
        std::vector<double> knots, weights;
        std::vector<QEM::position> points;
        for (int i = 0; i < count + degree + 1; ++i) {
            if (!read_numbers(in, v, 1)) return nullptr;
            knots.push_back(v[0]);
        }
        for (int i = 0; i < count; ++i) {
            if (!read_numbers(in, v, 4)) return nullptr;
            points.emplace_back(v[0], v[1], v[2]);
            weights.push_back(v[3]);
        }
        return new sw_curve_law_data(
            sw_curve(degree, count, points.data(), weights.data(), knots.data()));
    }
    if (key == "SPLINE_LAW") {
        if (!read_numbers(in, v, 2)) return nullptr;
        return new base_spline_law_data(v[0], v[1]);
    }
    in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');  // a kind we cannot read
    return bad_record("unknown data record \"" + key.substr(0, 32) + "\"");
}

law* restore_law(std::istream& in, int nesting) {
    if (nesting > max_restore_nesting)
        refuse("records nested deeper than " + std::to_string(max_restore_nesting));
    std::string word;
    long n = -1;
    if (!(in >> word) || word != "law") refuse("expected \"law\" and a record count");
    if (!(in >> n) || n < 0 || n > std::numeric_limits<int>::max()) refuse("bad record count");
    // The records are read one by one and kept as they come: memory follows the text
    // actually read, never the count it declares.
    read_data data;
    for (long i = 0; i < n; ++i) {
        law_data* d = nullptr;
        try {
            d = restore_datum(in, data.items, nesting);
        } catch (const vorn_exception&) {
            d = nullptr;  // geometry that refuses its saved parts: reported below
            bad_record("a data record that does not make valid data");
        }
        if (!d && std::string(TEST_get_error()).empty())
            bad_record("data record " + std::to_string(i + 1) + " does not read");
        if (!d) restore_law_problem_found();
        if (!d && !in) refuse("the text ends inside the data records");
        data.items.push_back(d);
    }
    long length = -1;
    char colon = 0;
    if (!(in >> length >> colon) || colon != ':' || length < 1 || length > (1l << 30))
        refuse("bad length of the law's text");
    std::string text;
    // Grown as read, so that a declared length beyond the text costs nothing.
    char buffer[4096];
    for (long left = length; left > 0;) {
        const std::streamsize part = static_cast<std::streamsize>(std::min<long>(left, 4096));
        if (!in.read(buffer, part)) refuse("the law's text is shorter than its length");
        text.append(buffer, static_cast<size_t>(part));
        left -= part;
    }
    // What follows the text on its line must be nothing: a length shorter than the text
    // would otherwise read a part of it as the whole.
    int next = in.peek();
    while (next == ' ' || next == '\t' || next == '\r') {
        in.get();
        next = in.peek();
    }
    if (next != '\n' && next != std::char_traits<char>::eof())
        refuse("the law's text is longer than its length");
    if (text.find('\0') != std::string::npos) refuse("the law's text holds a NUL byte");
    law* l = str_to_law(text.c_str(), data.items.data(), static_cast<int>(n));
    if (!l && std::string(TEST_get_error()).empty()) refuse("the law's text does not read");
    return l;
}

}  // namespace

void law_save(const law* l, std::ostream& out) {
    const std::locale old = out.imbue(std::locale::classic());
    const std::streamsize precision = out.precision(17);
    QEM::scope_exit restore_format([&] {
        out.imbue(old);
        out.precision(precision);
    });
    save_law(l, out);
}

law* law_restore(std::istream& in) {
    const std::locale old = in.imbue(std::locale::classic());
    QEM::scope_exit restore_format([&] { in.imbue(old); });
    TEST_clear_error();
    try {
        return restore_law(in, 0);
    } catch (const restore_refused&) {
        return nullptr;
    }
}
