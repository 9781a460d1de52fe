// Law data for the Python module: curves, surfaces, rigid transforms and grids of
// positions that a formula reads as LCURVE, LSURFACE, TRANSFORM and GRID.

#include "py_law.h"

#include <lawutil/law_data_geom.h>

namespace lawpy {

py_data::~py_data() {
    try {
        data_->remove();
    } catch (...) {
    }
}

namespace {

QEM::interval range_of(py::handle h) {
    auto r = h.cast<std::pair<double, double>>();
    return QEM::interval(r.first, r.second);
}

std::unique_ptr<py_data> make_grid(py::handle positions) {
    auto p = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(positions);
    if (!p) throw py::error_already_set();
    if (p.ndim() < 2 || p.ndim() > 4 || p.shape(p.ndim() - 1) != 3)
        raise_shape_error(
            "a grid takes positions of shape (d0, 3), (d0, d1, 3) or (d0, d1, d2, 3)");
    // The grid's first dimension runs fastest: reverse the array's axes.
    std::vector<int> dims;
    for (int k = static_cast<int>(p.ndim()) - 2; k >= 0; --k)
        dims.push_back(static_cast<int>(p.shape(k)));
    const py::ssize_t count = p.size() / 3;
    std::vector<QEM::position> points;
    points.reserve(count);
    for (py::ssize_t i = 0; i < count; ++i)
        points.emplace_back(p.data()[3 * i], p.data()[3 * i + 1], p.data()[3 * i + 2]);
    return std::make_unique<py_data>(
        new position_grid_law_data(points.data(), dims.data(), static_cast<int>(dims.size())));
}

}  // namespace

void bind_data(py::module_& m) {
    py::class_<py_data>(m, "Data", "Law data: pass it to Law(text, data=[...]).")
        .def_property_readonly(
            "symbol", [](const py_data& d) { return std::string(d.get()->symbol(SYMBOL_PARSE)); },
            "The keyword that names the datum in a formula (LCURVE, LSURFACE...).");
    m.def(
        "curve",
        [](py::handle f, double start, double end) {
            law_ref l = law_of(f);
            return std::make_unique<py_data>(new law_curve_law_data(l.get(), start, end));
        },
        py::arg("law"), py::arg("start"), py::arg("end"),
        "The curve t -> law(t) on [start, end] as data (LCURVE).");
    m.def(
        "surface",
        [](py::handle f, py::handle u_range, py::handle v_range) {
            law_ref l = law_of(f);
            return std::make_unique<py_data>(
                new law_surface_law_data(l.get(), range_of(u_range), range_of(v_range)));
        },
        py::arg("law"), py::arg("u_range"), py::arg("v_range"),
        "The surface (u, v) -> law(u, v) over u_range x v_range as data (LSURFACE).");
    m.def(
        "transform",
        [](py::handle matrix, py::handle translation) {
            auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(matrix);
            auto t =
                py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(translation);
            if (!a || !t || a.size() != 9 || t.size() != 3)
                raise_shape_error("a transform takes a 3x3 matrix and 3 translation values");
            const double* e = a.data();
            QEM::transf x(QEM::matrix(e[0], e[1], e[2], e[3], e[4], e[5], e[6], e[7], e[8]),
                          QEM::vector(t.data()[0], t.data()[1], t.data()[2]));
            return std::make_unique<py_data>(new rigid_transform_law_data(&x));
        },
        py::arg("matrix"), py::arg("translation"),
        "A rigid transform as data (TRANSFORM): a point p goes to p @ matrix + translation.");
    m.def("grid", &make_grid, py::arg("positions"),
          "A grid of positions, shape (..., 3), as data (GRID).");
}

}  // namespace lawpy
