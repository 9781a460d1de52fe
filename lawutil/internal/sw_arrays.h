#pragma once
// The arrays behind sweep curves and surfaces: copies on the tracked heap, and control
// points stored in homogeneous form (w x, w y, w z, w), as evaluation wants them.

#include <cstring>

#include <lawutil/law_errors.h>
#include <qem/geometry.h>
#include <qem/heap.h>

namespace law_internal {

/// A heap copy of n doubles.
inline QEM::scoped_heap_array<double> sw_copy_array(const double* from, int n) {
    QEM::scoped_heap_array<double> out(QEM_ALLOC_ARRAY(double, static_cast<size_t>(n)));
    if (n > 0) std::memcpy(out.get(), from, sizeof(double) * static_cast<size_t>(n));
    return out;
}

/// The n control points with their weights (all 1 without `weights`) in homogeneous form;
/// `rational` is set when the weights are not all equal.  SW_BAD_WEIGHTS for a weight that
/// is not positive.
inline QEM::scoped_heap_array<double> sw_homogeneous_points(const QEM::position* points,
                                                            const double* weights, int n,
                                                            bool& rational) {
    if (weights)
        for (int i = 0; i < n; ++i)
            if (!(weights[i] > 0.0)) sys_error(SW_BAD_WEIGHTS);
    QEM::scoped_heap_array<double> cpw(QEM_ALLOC_ARRAY(double, 4 * static_cast<size_t>(n)));
    rational = false;
    for (int i = 0; i < n; ++i) {
        const double w = weights ? weights[i] : 1.0;
        cpw[4 * i] = w * points[i].x();
        cpw[4 * i + 1] = w * points[i].y();
        cpw[4 * i + 2] = w * points[i].z();
        cpw[4 * i + 3] = w;
        if (w != cpw[3]) rational = true;
    }
    return cpw;
}

}  // namespace law_internal
