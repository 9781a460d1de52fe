#pragma once
// Sorted, disjoint covers of an interval of the real line: the bookkeeping of the root
// search, which marks the stretches it has examined and the points where it found roots.
// Nearness is judged with the calling thread's root_x_tol.

#include <lawutil/law_export.h>
#include <qem/heap.h>

/// One closed stretch [start, end] of a cover; `next` (owned by the set) is the next one up.
class LAW_API Open_interval : public QEM::heap_object {
  public:
    Open_interval(double s, double e) : start(s), end(e), next(nullptr) {}
    double mid_point() const { return 0.5 * (start + end); }

    double start;
    double end;
    Open_interval* next;
};

/// A cover of [min, max]: disjoint intervals in ascending order.  Intervals that overlap
/// or lie within root_x_tol of each other are joined as they are added.
class LAW_API Open_set : public QEM::heap_object {
  public:
    /// An empty cover of [mn, mx]; `per` nonzero when the domain wraps around.
    Open_set(double mn, double mx, int per);
    Open_set(const Open_set& other);
    Open_set& operator=(const Open_set& other);
    ~Open_set();

    /// Covers [lo, hi] (the bounds in either order; lo == hi covers one point).
    void add(double lo, double hi);
    /// Uncovers the open stretch (lo, hi): intervals that reach into it are cut back.
    void remove(double lo, double hi);
    /// The interval holding x, that is start - root_x_tol < x < end + root_x_tol, or null.
    Open_interval* in(double x) const;
    /// The first interval whose start is at least x, or null.
    Open_interval* after(double x) const;
    /// The last interval whose end is at most x, or null.
    Open_interval* before(double x) const;
    /// Midpoint and width of the gap between the first two intervals; 0 with fewer.
    double hole() const;
    double hole_size() const;
    /// Midpoint of the widest gap, its width written to `size` (0 and 0 without a gap).
    /// A periodic set also weighs the gap that wraps from the last interval past max to
    /// the first; its midpoint is mapped back into [min, max].
    double largest_hole(double& size) const;
    /// One interval reaching min and max within root_x_tol.
    int is_full() const;
    int parts() const;
    /// The intervals' midpoints in order: a heap array of parts() doubles (null when
    /// empty) that the caller frees with vorn_discard.
    double* mid_points() const;
    /// Writes "Max %f Min %f" and one "start end" line per interval through qem_printf.
    void print() const;

    Open_interval* first_interval() const { return first; }

    int periodic;
    double max;
    double min;

  private:
    void clear();
    void copy_from(const Open_set& other);

    Open_interval* first;
};
