#include <lawutil/open_set.h>

#include <algorithm>
#include <cfloat>

#include <lawutil/law_thread_ctx.h>
#include <qem/qem_printf.h>

namespace {

double x_tol() {
    return lawutil_context()->root_x_tol;
}

}  // namespace

Open_set::Open_set(double mn, double mx, int per)
    : periodic(per), max(mx), min(mn), first(nullptr) {}

Open_set::Open_set(const Open_set& other)
    : periodic(other.periodic), max(other.max), min(other.min), first(nullptr) {
    copy_from(other);
}

Open_set& Open_set::operator=(const Open_set& other) {
    if (this != &other) {
        clear();
        periodic = other.periodic;
        max = other.max;
        min = other.min;
        copy_from(other);
    }
    return *this;
}

Open_set::~Open_set() {
    clear();
}

void Open_set::clear() {
    while (first) {
        Open_interval* next = first->next;
        delete first;
        first = next;
    }
}

void Open_set::copy_from(const Open_set& other) {
    Open_interval** tail = &first;
    for (const Open_interval* i = other.first; i; i = i->next) {
        *tail = new Open_interval(i->start, i->end);
        tail = &(*tail)->next;
    }
}

// Walk to the first interval that can touch [lo, hi], swallow every interval that does,
// and splice one joined interval in their place.
void Open_set::add(double lo, double hi) {
    if (lo > hi) std::swap(lo, hi);
    const double tol = x_tol();
    Open_interval** link = &first;
    while (*link && (*link)->end + tol < lo) link = &(*link)->next;
    double s = lo, e = hi;
    while (*link && (*link)->start - tol <= hi) {
        Open_interval* joined = *link;
        s = std::min(s, joined->start);
        e = std::max(e, joined->end);
        *link = joined->next;
        delete joined;
    }
    Open_interval* fresh = new Open_interval(s, e);
    fresh->next = *link;
    *link = fresh;
}

void Open_set::remove(double lo, double hi) {
    if (lo > hi) std::swap(lo, hi);
    Open_interval** link = &first;
    while (*link) {
        Open_interval* i = *link;
        if (i->end <= lo || i->start >= hi) {
            link = &i->next;
            continue;
        }
        if (i->start < lo && i->end > hi) {  // the stretch cuts it in two
            Open_interval* upper = new Open_interval(hi, i->end);
            upper->next = i->next;
            i->end = lo;
            i->next = upper;
            return;
        }
        if (i->start < lo) {
            i->end = lo;
            link = &i->next;
        } else if (i->end > hi) {
            i->start = hi;
            link = &i->next;
        } else {
            *link = i->next;
            delete i;
        }
    }
}

Open_interval* Open_set::in(double x) const {
    const double tol = x_tol();
    for (Open_interval* i = first; i; i = i->next)
        if (i->start - tol < x && x < i->end + tol) return i;
    return nullptr;
}

Open_interval* Open_set::after(double x) const {
    for (Open_interval* i = first; i; i = i->next)
        if (i->start >= x) return i;
    return nullptr;
}

Open_interval* Open_set::before(double x) const {
    Open_interval* last = nullptr;
    for (Open_interval* i = first; i && i->end <= x; i = i->next) last = i;
    return last;
}

double Open_set::hole() const {
    if (!first || !first->next) return 0.0;
    return 0.5 * (first->end + first->next->start);
}

double Open_set::hole_size() const {
    if (!first || !first->next) return 0.0;
    return first->next->start - first->end;
}

double Open_set::largest_hole(double& size) const {
    size = 0.0;
    double where = 0.0;
    if (!first) return where;
    Open_interval* last = first;
    for (Open_interval* i = first; i->next; i = i->next) {
        const double gap = i->next->start - i->end;
        if (gap > size) {
            size = gap;
            where = 0.5 * (i->end + i->next->start);
        }
        last = i->next;
    }
    if (periodic) {
        // The gap from the last interval's end up to max, continued from min to the first
        // interval's start.
        const double gap = (max - last->end) + (first->start - min);
        if (gap > size) {
            size = gap;
            where = last->end + 0.5 * gap;
            if (where > max) where -= max - min;
        }
    }
    return where;
}

int Open_set::is_full() const {
    const double tol = x_tol();
    return first && !first->next && first->start <= min + tol && first->end >= max - tol;
}

int Open_set::parts() const {
    int n = 0;
    for (Open_interval* i = first; i; i = i->next) ++n;
    return n;
}

double* Open_set::mid_points() const {
    const int n = parts();
    if (n == 0) return nullptr;
    double* mids = QEM_ALLOC_ARRAY(double, n);
    int k = 0;
    for (Open_interval* i = first; i; i = i->next) mids[k++] = i->mid_point();
    return mids;
}

void Open_set::print() const {
    qem_printf("Max %f Min %f\n", max, min);
    for (Open_interval* i = first; i; i = i->next) qem_printf("%f %f\n", i->start, i->end);
}
