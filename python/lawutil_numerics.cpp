// The numerics, frames, sweep curves and save/restore of the Python module.  Every
// numeric call runs with the GIL released and can report the law evaluations it made.

#include "py_law.h"

#include <optional>
#include <sstream>

#include <lawutil/integrate.h>
#include <lawutil/law_save.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/root.h>
#include <lawutil/sw_curve.h>
#include <lawutil/sw_curve_util.h>
#include <lawutil/sweep_law.h>

namespace lawpy {
namespace {

/// A heap array of doubles from the numerics, freed when the copy is made.
py::array_t<double> take_array(double* values, int count, int columns = 1) {
    py::array_t<double> out(std::vector<py::ssize_t>{count, columns});
    if (count > 0) std::memcpy(out.mutable_data(), values, sizeof(double) * count * columns);
    vorn_discard(values);
    if (columns == 1) return out.attr("reshape")(count);
    return out;
}

/// Runs `call` without the GIL; returns its result, or (result, evaluations) when
/// `count` is true.
template <class Call>
py::object counted(bool count, Call&& call) {
    long before = lawutil_context()->numeric_evaluations;
    py::object result;
    {
        py::gil_scoped_release unlocked;
        std::optional<decltype(call())> value;
        value.emplace(call());
        // The value may be a Python object: it is handed over and dropped with the GIL held.
        py::gil_scoped_acquire locked;
        if constexpr (std::is_base_of_v<py::handle, std::decay_t<decltype(*value)>>)
            result = std::move(*value);
        else
            result = py::cast(std::move(*value));
        value.reset();
    }
    if (!count) return result;
    return py::make_tuple(result, lawutil_context()->numeric_evaluations - before);
}

/// A constant vector law VEC(x, y, z) with one use for the caller.
law_ref constant_vector(py::handle v) {
    if (py::isinstance<py_law>(v)) return law_of(v);
    auto xyz = py::array_t<double, py::array::forcecast>::ensure(v);
    if (!xyz || xyz.size() != 3) raise_shape_error("a vector takes 3 values");
    law_ref parts[3] = {law_ref::adopt(new constant_law(xyz.at(0))),
                        law_ref::adopt(new constant_law(xyz.at(1))),
                        law_ref::adopt(new constant_law(xyz.at(2)))};
    law* subs[3] = {parts[0].get(), parts[1].get(), parts[2].get()};
    return law_ref::adopt(new vector_law(subs, 3));
}

struct py_curve {
    sw_curve curve;
    sw_fit_info info;
};

py::array_t<double> control_points(const sw_curve& c) {
    py::array_t<double> out(std::vector<py::ssize_t>{c.control_count(), 3});
    for (int i = 0; i < c.control_count(); ++i) {
        QEM::position p = c.control_point(i);
        out.mutable_at(i, 0) = p.x();
        out.mutable_at(i, 1) = p.y();
        out.mutable_at(i, 2) = p.z();
    }
    return out;
}

}  // namespace

void bind_numerics(py::module_& m) {
    auto law_class = py::reinterpret_borrow<py::class_<py_law>>(m.attr("Law"));
    const auto count_arg = py::arg("count") = false;
    law_class
        .def(
            "roots",
            [](const py_law& s, double a, double b, bool count) {
                return counted(count, [&] {
                    int n = 0;
                    double* r = Nroot(s.get(), a, b, &n);
                    py::gil_scoped_acquire locked;
                    return take_array(r, n);
                });
            },
            py::arg("a"), py::arg("b"), count_arg, "Every root on [a, b], ascending.")
        .def(
            "solve",
            [](const py_law& s, py::handle g, double a, double b, bool count) {
                law_ref other = law_of(g);
                return counted(count, [&] {
                    int n = 0;
                    double* r = Nsolve(s.get(), other.get(), a, b, &n);
                    py::gil_scoped_acquire locked;
                    return take_array(r, n);
                });
            },
            py::arg("g"), py::arg("a"), py::arg("b"), count_arg,
            "Every x in [a, b] with f(x) = g(x).")
        .def(
            "maximum",
            [](const py_law& s, double a, double b, bool count) {
                return counted(count, [&] { return Nmax(s.get(), a, b); });
            },
            py::arg("a"), py::arg("b"), count_arg, "The x in [a, b] where the law is largest.")
        .def(
            "minimum",
            [](const py_law& s, double a, double b, bool count) {
                return counted(count, [&] { return Nmin(s.get(), a, b); });
            },
            py::arg("a"), py::arg("b"), count_arg, "The x in [a, b] where the law is smallest.")
        .def(
            "integrate",
            [](const py_law& s, double a, double b, double tol, bool count) {
                return counted(count, [&] {
                    double answer = 0;
                    Nintegrate(s.get(), a, b, &answer, tol);
                    return answer;
                });
            },
            py::arg("a"), py::arg("b"), py::arg("tol") = 1e-10, count_arg,
            "The integral from a to b (Romberg).")
        .def(
            "nderiv",
            [](const py_law& s, py::handle x, int order, int wrt, bool count) -> py::object {
                const law* l = s.get();
                auto point =
                    py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(x);
                if (!point) throw py::error_already_set();
                const int n = std::max(1, l->take_dim()), mdim = l->return_dim();
                if (point.size() != 1 && point.size() != n)
                    raise_shape_error("a point of " + std::to_string(n) + " values is needed");
                std::vector<double> at(n, point.data()[0]);
                for (int i = 0; i < n && point.size() == n; ++i) at[i] = point.data()[i];
                if (wrt < 0 || wrt >= n) raise_shape_error("no variable " + std::to_string(wrt));
                py::object r = counted(count, [&] {
                    std::vector<double> out(mdim);
                    Ndifferentiate(s.get(), at.data(), wrt, out.data(), order);
                    return out;
                });
                auto as_value = [&](py::object v) -> py::object {
                    if (mdim == 1) return v.cast<py::list>()[0];
                    return py::array_t<double>(v);
                };
                if (count) {
                    py::tuple t = r;
                    return py::make_tuple(as_value(t[0]), t[1]);
                }
                return as_value(r);
            },
            py::arg("x"), py::arg("order") = 1, py::arg("wrt") = 0, count_arg,
            "The order-th derivative at x by finite differences.")
        .def(
            "roots2d",
            [](const py_law& s, py::handle g, double u0, double u1, double v0, double v1, int cells,
               bool count) {
                law_ref other = law_of(g);
                return counted(count, [&] {
                    int n = 0;
                    double* r = Nroot2D(s.get(), other.get(), u0, u1, v0, v1, &n, cells);
                    py::gil_scoped_acquire locked;
                    return take_array(r, n, 2);
                });
            },
            py::arg("g"), py::arg("u0"), py::arg("u1"), py::arg("v0"), py::arg("v1"),
            py::arg("cells") = 16, count_arg, "Common roots of f and g in a box: shape (n, 2).")
        .def(
            "minimum2d",
            [](const py_law& s, double u0, double u1, double v0, double v1, int samples,
               bool count) {
                return counted(count, [&] {
                    double uv[2] = {0, 0};
                    double value = Nmin2D(s.get(), u0, u1, v0, v1, uv, samples);
                    return std::make_tuple(std::make_tuple(uv[0], uv[1]), value);
                });
            },
            py::arg("u0"), py::arg("u1"), py::arg("v0"), py::arg("v1"), py::arg("samples") = 17,
            count_arg, "((u, v), value) at the smallest value in a box.");

    m.def(
        "evaluations", [] { return lawutil_context()->numeric_evaluations; },
        "Law evaluations made by the numerics in the calling thread so far.");

    m.def(
        "minrot",
        [](py::handle path, py::handle v0, double a, double b, int samples) {
            law_ref p = law_of(path), v = constant_vector(v0);
            law_ref s = law_ref::adopt(new constant_law(a)),
                    e = law_ref::adopt(new constant_law(b));
            law* subs[4] = {p.get(), v.get(), s.get(), e.get()};
            return std::make_unique<py_law>(new min_rotation_law(subs, 4, samples));
        },
        py::arg("path"), py::arg("v0"), py::arg("a"), py::arg("b"), py::arg("samples") = 0,
        "The rotation-minimising vector along `path` starting as v0 at a, followed to b.");
    m.def(
        "twist",
        [](py::handle path, py::handle frame, py::handle angle) {
            law_ref p = law_of(path), f = constant_vector(frame), a = law_of(angle);
            law* subs[3] = {p.get(), f.get(), a.get()};
            return std::make_unique<py_law>(new twist_path_law(subs, 3));
        },
        py::arg("path"), py::arg("frame"), py::arg("angle"),
        "The frame vector turned about the path's tangent by `angle`.");

    py::class_<py_curve>(m, "SwCurve", "A rational B-spline fitted to a law.")
        .def_property_readonly(
            "degree", [](const py_curve& c) { return c.curve.degree(); }, "The spline's degree.")
        .def_property_readonly(
            "knots",
            [](const py_curve& c) {
                py::array_t<double> k(c.curve.knot_count());
                for (int i = 0; i < c.curve.knot_count(); ++i) k.mutable_at(i) = c.curve.knot(i);
                return k;
            },
            "The knots: control-point count + degree + 1 values.")
        .def_property_readonly(
            "control_points", [](const py_curve& c) { return control_points(c.curve); },
            "The control points, shape (n, 3).")
        .def_property_readonly(
            "weights",
            [](const py_curve& c) {
                py::array_t<double> w(c.curve.control_count());
                for (int i = 0; i < c.curve.control_count(); ++i)
                    w.mutable_at(i) = c.curve.weight(i);
                return w;
            },
            "The weight of each control point.")
        .def_property_readonly(
            "reached", [](const py_curve& c) { return c.info.reached; },
            "Whether the fit is within the tolerance.")
        .def_property_readonly(
            "deviation", [](const py_curve& c) { return c.info.deviation; },
            "The largest distance to the law found.")
        .def_property_readonly(
            "evaluations", [](const py_curve& c) { return c.info.evaluations; },
            "Law evaluations the fit spent.")
        .def(
            "__call__",
            [](const py_curve& c, double t) {
                QEM::position p = c.curve.eval_position(t);
                py::array_t<double> r(3);
                r.mutable_at(0) = p.x();
                r.mutable_at(1) = p.y();
                r.mutable_at(2) = p.z();
                return r;
            },
            "The point of the spline at t.");
    m.def(
        "law_to_sw_curve",
        [](const py_law& f, double a, double b, double tol) {
            auto c = std::make_unique<py_curve>();
            py::gil_scoped_release unlocked;
            c->curve = law_to_sw_curve(f.get(), a, b, tol, &c->info);
            return c;
        },
        py::arg("law"), py::arg("a"), py::arg("b"), py::arg("tol") = 1e-6,
        "A B-spline within `tol` of a path law (one variable to 3 values) on [a, b].");

    m.def(
        "save",
        [](const py_law& f) {
            std::ostringstream out;
            law_save(f.get(), out);
            return out.str();
        },
        py::arg("law"), "The law with its data as text.");
    m.def(
        "restore",
        [](const std::string& text) {
            std::istringstream in(text);
            TEST_clear_error();
            law* l = law_restore(in);
            if (!l) {
                std::string message = TEST_get_error();
                raise_law_error(LAW_SYNTAX, message.empty() ? "no law could be read" : message);
            }
            return std::make_unique<py_law>(l);
        },
        py::arg("text"), "A law read back from save().");
}

}  // namespace lawpy
