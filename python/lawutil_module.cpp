// The extension module behind the `lawutil` Python package: the Law class (text,
// operators, equality, evaluation over NumPy arrays, derivatives, simplification,
// compiled programs, polynomial forms) and the counters that prove nothing leaks.

#include "py_law.h"

#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <lawutil/law_unary.h>
#include <lawutil/polylaw.h>
#include <qem/qem_printf.h>

namespace lawpy {

py_law::~py_law() {
    // A destructor called by Python must not throw: a count driven wrong would already
    // have been reported by the library when it happened.
    try {
        law_program_release(program_.load(std::memory_order_acquire));
        law::remove(law_);
    } catch (...) {
    }
}

const law_program* py_law::program() const {
    law_program* p = program_.load(std::memory_order_acquire);
    if (p) return p;
    law* one[1] = {law_};
    law_program* made = law_compile(one, 1);
    // Two threads may compile at once: the first to store wins, the other frees its own.
    if (program_.compare_exchange_strong(p, made, std::memory_order_acq_rel)) return made;
    law_program_release(made);
    return p;
}

py_program::py_program(law* l) {
    law* one[1] = {l};
    program_ = law_compile(one, 1);
}

namespace {

py::object errors_module() {
    return py::module_::import("lawutil._errors");
}

/// Text of a law from law::string, freed at once.
std::string law_text(const law* l) {
    char* s = l->string();
    std::string out(s ? s : "");
    vorn_discard(s);
    return out;
}

std::string joined(const std::vector<py::ssize_t>& shape) {
    std::string s = "(";
    for (size_t i = 0; i < shape.size(); ++i)
        s += std::to_string(shape[i]) + (shape.size() == 1      ? ","
                                         : i + 1 < shape.size() ? ", "
                                                                : "");
    return s + ")";
}

bool is_number(py::handle h) {
    return PyFloat_Check(h.ptr()) || (PyLong_Check(h.ptr()) && !PyBool_Check(h.ptr())) ||
           (py::isinstance<py::array>(h) && py::reinterpret_borrow<py::array>(h).ndim() == 0);
}

/// A NaN among the input values, at point `point`: thrown without the GIL, raised as
/// LawError once it is held again.
struct nan_input {
    py::ssize_t point;
};

// Whether any of `n` values is a NaN.  This check runs over every input value before the
// law sees it, so it is written with vector compares (the compiler does not vectorise an
// unordered compare by itself): four values a step with AVX2 where the processor has it,
// two with the baseline SSE2.
#if defined(__x86_64__)
__attribute__((target("avx2"))) bool any_nan_avx2(const double* v, py::ssize_t n) {
    __m256d a0 = _mm256_setzero_pd(), a1 = a0;
    py::ssize_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256d x0 = _mm256_loadu_pd(v + i), x1 = _mm256_loadu_pd(v + i + 4);
        a0 = _mm256_or_pd(a0, _mm256_cmp_pd(x0, x0, _CMP_UNORD_Q));
        a1 = _mm256_or_pd(a1, _mm256_cmp_pd(x1, x1, _CMP_UNORD_Q));
    }
    bool any = _mm256_movemask_pd(_mm256_or_pd(a0, a1)) != 0;
    for (py::ssize_t j = i; j < n; ++j) any |= std::isnan(v[j]);
    return any;
}

bool any_nan_sse2(const double* v, py::ssize_t n) {
    __m128d a0 = _mm_setzero_pd(), a1 = a0;
    py::ssize_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128d x0 = _mm_loadu_pd(v + i), x1 = _mm_loadu_pd(v + i + 2);
        a0 = _mm_or_pd(a0, _mm_cmpunord_pd(x0, x0));
        a1 = _mm_or_pd(a1, _mm_cmpunord_pd(x1, x1));
    }
    bool any = _mm_movemask_pd(_mm_or_pd(a0, a1)) != 0;
    for (py::ssize_t j = i; j < n; ++j) any |= std::isnan(v[j]);
    return any;
}
#endif

bool any_nan(const double* v, py::ssize_t n) {
#if defined(__x86_64__)
    static const bool avx2 = __builtin_cpu_supports("avx2");
    return avx2 ? any_nan_avx2(v, n) : any_nan_sse2(v, n);
#else
    bool any = false;
    for (py::ssize_t i = 0; i < n; ++i) any |= std::isnan(v[i]);
    return any;
#endif
}

/// The index of the first NaN among `n` values, or -1.
py::ssize_t first_nan(const double* v, py::ssize_t n) {
    if (!any_nan(v, n)) return -1;
    for (py::ssize_t i = 0; i < n; ++i)
        if (std::isnan(v[i])) return i;
    return -1;
}

/// Evaluates `npoints` points: input k of point i at in[k][i], output j at out[j][i].
/// Called with the GIL released.  NaN inputs, when refused, are looked for first, in one
/// vectorised pass: evaluating in slices checked one by one costs more, each batch call
/// having a set-up of its own.
void run_batch(const law_program* program, py::ssize_t npoints, std::vector<const double*> in,
               std::vector<double*> out, bool refuse_nan) {
    for (size_t k = 0; refuse_nan && k < in.size(); ++k)
        if (py::ssize_t at = first_nan(in[k], npoints); at >= 0) throw nan_input{at};
    constexpr py::ssize_t slice = py::ssize_t(1) << 24;
    for (py::ssize_t done = 0; done < npoints; done += slice) {
        const int count = static_cast<int>(std::min(slice, npoints - done));
        program->evaluate_batch(count, in.data(), out.data());
        for (auto& p : in) p += count;
        for (auto& p : out) p += count;
    }
}

py::object evaluate_point(const law* scalar, const law_program* program, int m,
                          const std::vector<double>& x, bool refuse_nan) {
    if (refuse_nan)
        for (double v : x)
            if (std::isnan(v)) raise_law_error(LAW_BAD_BOUNDS, "NaN among the input values");
    double small[4];
    std::vector<double> big;
    double* out = small;
    if (m > 4) {
        big.resize(m);
        out = big.data();
    }
    if (scalar)
        scalar->evaluate(x.data(), out);
    else
        program->evaluate(x.data(), out);
    if (m == 1) return py::float_(out[0]);
    py::array_t<double> r(m);
    std::memcpy(r.mutable_data(), out, sizeof(double) * m);
    return r;
}

py::object evaluate_array(const law_program* program, int n, int m, py::handle arg,
                          bool refuse_nan) {
    auto x = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(arg);
    if (!x) throw py::error_already_set();
    std::vector<py::ssize_t> shape(x.shape(), x.shape() + x.ndim());
    std::vector<py::ssize_t> points = shape;
    if (n > 1) {
        if (shape.empty() || shape.back() != n)
            raise_shape_error("a law of " + std::to_string(n) +
                              " variables takes points of shape (..., " + std::to_string(n) +
                              "), not " + joined(shape));
        points.pop_back();
    }
    py::ssize_t count = 1;
    for (py::ssize_t d : points) count *= d;

    // Outputs as m rows of `count` values, handed back as the trailing axis of a view.
    py::array_t<double> rows(std::vector<py::ssize_t>{m, count});
    std::vector<double*> out(m);
    for (int j = 0; j < m; ++j) out[j] = rows.mutable_data() + j * count;
    std::vector<double> columns;
    std::vector<const double*> in(std::max(n, 1));
    const double* data = x.data();
    if (n <= 1) {
        in[0] = data;
    } else {
        columns.resize(static_cast<size_t>(n) * count);
        for (int k = 0; k < n; ++k) in[k] = columns.data() + k * count;
    }
    try {
        py::gil_scoped_release unlocked;
        for (int k = 0; n > 1 && k < n; ++k)
            for (py::ssize_t i = 0; i < count; ++i) columns[k * count + i] = data[i * n + k];
        run_batch(program, count, in, out, refuse_nan);
    } catch (const nan_input& bad) {
        raise_law_error(LAW_BAD_BOUNDS, "NaN in the input at point " + std::to_string(bad.point));
    }
    if (m == 1) return rows.attr("reshape")(py::tuple(py::cast(points)));
    points.push_back(m);
    return rows.attr("T").attr("reshape")(py::tuple(py::cast(points)));
}

std::string simplify_trace_text;

void collect_trace(const char* text, void*) {
    simplify_trace_text += text;
}

/// The dense coefficients (index = power) of the law as a polynomial in X, or None.
py::object polynomial_of(const law* l) {
    // A law with a part missing has no polynomial form (and the search would meet the
    // missing part).
    if (l->incomplete()) return py::none();
    law_ref x = law_ref::adopt(new identity_law(0, 'X'));
    law_polynomial* p = l->polynomial(x.get());
    if (!p) return py::none();
    py::object result = py::none();
    if (p->degree() >= 0 && (p->in() == nullptr || *p->in() == *x.get())) {
        py::array_t<double> c(p->degree() + 1);
        for (int i = 0; i <= p->degree(); ++i) c.mutable_data()[i] = p->coefficent(i);
        result = std::move(c);
    }
    delete p;
    return result;
}

std::unique_ptr<py_law> binary(py::handle a, py::handle b, int op) {
    law_ref l = law_of(a), r = law_of(b);
    law* made = nullptr;
    switch (op) {
        case '+':
            made = new plus_law(l.get(), r.get());
            break;
        case '-':
            made = new minus_law(l.get(), r.get());
            break;
        case '*':
            made = new times_law(l.get(), r.get());
            break;
        case '/':
            made = new division_law(l.get(), r.get());
            break;
        default:
            made = new exponent_law(l.get(), r.get());
            break;
    }
    return std::make_unique<py_law>(made);
}

py::tuple variables_of(const law* l) {
    VOID_LIST found;
    l->hasa(identity_law::id(), found);
    std::vector<std::pair<int, char>> vars;
    for (int i = 0; i < found.count(); ++i) {
        auto* id = static_cast<const identity_law*>(found[i]);
        std::pair<int, char> v{id->index(), id->letter()};
        bool seen = false;
        for (auto& w : vars) seen = seen || w.first == v.first;
        if (!seen) vars.push_back(v);
    }
    std::sort(vars.begin(), vars.end());
    py::tuple t(vars.size());
    for (size_t i = 0; i < vars.size(); ++i) t[i] = py::str(std::string(1, vars[i].second));
    return t;
}

[[noreturn]] void raise_syntax_error(const std::string& message, const std::string& text,
                                     int offset) {
    py::object cls = errors_module().attr("LawSyntaxError");
    py::object e = cls(message, text, offset);
    PyErr_SetObject(cls.ptr(), e.ptr());
    throw py::error_already_set();
}

/// The language reads some texts by rules that are kept on purpose but are rarely what a
/// writer meant ("SIN(X" reads as SIN(X)); Python callers get an error for them instead,
/// unless they ask for the library's reading.
void refuse_doubtful_text(const std::string& text) {
    law_text_warning* warnings = nullptr;
    const int n = check_law_text(text.c_str(), &warnings);
    // The check reads the text without its data, so a text that names data may "read as
    // no law" there; it did read here, and only the other warnings count.
    const law_text_warning* first = nullptr;
    for (int i = 0; i < n && !first; ++i)
        if (!std::strstr(warnings[i].reason, "no law")) first = &warnings[i];
    const law_text_warning found = first ? *first : law_text_warning{-1, nullptr};
    vorn_discard(warnings);
    if (!found.reason) return;
    if (std::strcmp(found.reason, "'(' never closed") == 0)
        raise_syntax_error("missing ')'", text, static_cast<int>(text.size()));
    raise_syntax_error(found.reason, text, found.offset);
}

}  // namespace

[[noreturn]] void raise_law_error(int code, const std::string& message) {
    const char* ident = code ? find_err_ident(code) : nullptr;
    py::object cls = errors_module().attr("LawError");
    py::object e = cls(ident ? ident : "LAW_ERROR", message, code);
    PyErr_SetObject(cls.ptr(), e.ptr());
    throw py::error_already_set();
}

[[noreturn]] void raise_shape_error(const std::string& message) {
    raise_law_error(LAW_DIM, message);
}

law_ref parse(const std::string& text, py::handle data, bool strict) {
    std::vector<law_data*> held;
    auto release_data = [&] {
        for (law_data* d : held) d->remove();
    };
    if (data && !data.is_none()) {
        try {
            for (py::handle item : data) {
                if (py::isinstance<py_data>(item)) {
                    law_data* d = item.cast<const py_data&>().get();
                    d->add();
                    held.push_back(d);
                    continue;
                }
                law_ref l = law_of(item);
                held.push_back(new law_law_data(l.get()));
            }
        } catch (...) {
            release_data();
            throw;
        }
    }
    TEST_clear_error();
    int offset = -1;
    law* l = nullptr;
    try {
        l = str_to_law(text.c_str(), held.data(), static_cast<int>(held.size()), &offset);
    } catch (...) {
        release_data();
        throw;
    }
    release_data();
    if (!l) {
        std::string message = TEST_get_error();
        if (message.empty()) message = "the text is no law";
        raise_syntax_error(message, text, offset);
    }
    law_ref result = law_ref::adopt(l);
    if (strict) refuse_doubtful_text(text);
    return result;
}

law_ref law_of(py::handle h) {
    if (py::isinstance<py_law>(h)) return law_ref::retain(h.cast<const py_law&>().get());
    if (is_number(h)) return law_ref::adopt(new constant_law(h.cast<double>()));
    if (py::isinstance<py::str>(h)) return parse(h.cast<std::string>(), py::none(), true);
    throw py::type_error("expected a Law, a number or a formula");
}

py::object evaluate(const law* scalar, const law_program* program, int n, int m, py::args args,
                    py::kwargs kwargs) {
    bool refuse_nan = true;
    for (auto [key, value] : kwargs) {
        const std::string name = key.cast<std::string>(), how = py::str(value);
        if (name != "nan" || (how != "raise" && how != "propagate"))
            throw py::type_error("the only keyword is nan='raise' or nan='propagate'");
        refuse_nan = how == "raise";
    }
    const size_t nargs = args.size();
    bool scalars = nargs > 0;
    for (py::handle a : args) scalars = scalars && is_number(a);
    if (scalars) {
        if (nargs != 1 && static_cast<int>(nargs) != n)
            raise_shape_error("a law of " + std::to_string(n) + " variables takes " +
                              std::to_string(n) + " values, not " + std::to_string(nargs));
        std::vector<double> x(std::max<size_t>(std::max(n, 1), nargs));
        for (size_t i = 0; i < x.size(); ++i) x[i] = args[nargs == 1 ? 0 : i].cast<double>();
        return evaluate_point(scalar, program, m, x, refuse_nan);
    }
    if (nargs == 1) return evaluate_array(program, n, m, args[0], refuse_nan);
    if (static_cast<int>(nargs) != n)
        raise_shape_error("a law of " + std::to_string(n) +
                          " variables takes one array of points " + "(shape (..., " +
                          std::to_string(n) + ")) or " + std::to_string(n) + " arrays, not " +
                          std::to_string(nargs));
    // One array per variable: broadcast together and stacked as points.
    py::module_ np = py::module_::import("numpy");
    py::object points = np.attr("stack")(np.attr("broadcast_arrays")(*args), py::arg("axis") = -1);
    return evaluate_array(program, n, m, points, refuse_nan);
}

}  // namespace lawpy

using namespace lawpy;

PYBIND11_MODULE(_lawutil, m) {
    m.doc() = "Laws: functions written as text, evaluated over NumPy arrays.";
    initialize_law();

    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const vorn_exception& e) {
            try {
                raise_law_error(e.error_number(), e.what());
            } catch (py::error_already_set& set) {
                set.restore();
            }
        }
    });

    py::class_<py_law>(m, "Law", "A law: a function of n variables to m values.")
        .def(py::init([](py::handle text, py::handle data, bool strict) {
                 if (py::isinstance<py::str>(text))
                     return std::make_unique<py_law>(
                         parse(text.cast<std::string>(), data, strict).release());
                 return std::make_unique<py_law>(law_of(text).release());
             }),
             py::arg("text"), py::arg("data") = py::none(), py::kw_only(), py::arg("strict") = true,
             "Reads a formula; LAW1, LAW2... in it are the laws of `data`.  With strict (the\n"
             "default), texts the language reads by a lenient rule (an unclosed '(', two\n"
             "operands without an operator...) raise LawSyntaxError instead.")
        .def("__str__", [](const py_law& s) { return law_text(s.get()); })
        .def("__repr__", [](const py_law& s) { return "Law('" + law_text(s.get()) + "')"; })
        .def("__eq__",
             [](const py_law& s, py::handle o) -> py::object {
                 if (!py::isinstance<py_law>(o) && !is_number(o))
                     return py::reinterpret_borrow<py::object>(Py_NotImplemented);
                 law_ref other = law_of(o);
                 return py::bool_(*s.get() == *other.get());
             })
        .def("__ne__",
             [](const py_law& s, py::handle o) -> py::object {
                 if (!py::isinstance<py_law>(o) && !is_number(o))
                     return py::reinterpret_borrow<py::object>(Py_NotImplemented);
                 law_ref other = law_of(o);
                 return py::bool_(!(*s.get() == *other.get()));
             })
        .def("__hash__",
             [](const py_law& s) {
                 // Equal laws are of one class with one shape hash; a constant hashes as
                 // its number, which it also equals.
                 const law* l = s.get();
                 if (l->isa(constant_law::id()))
                     return py::hash(py::float_(static_cast<const constant_law*>(l)->value()));
                 return py::hash(py::make_tuple(l->type(), l->shape_hash()));
             })
        .def(
            "__add__", [](py::handle a, py::handle b) { return binary(a, b, '+'); },
            py::is_operator())
        .def(
            "__radd__", [](py::handle a, py::handle b) { return binary(b, a, '+'); },
            py::is_operator())
        .def(
            "__sub__", [](py::handle a, py::handle b) { return binary(a, b, '-'); },
            py::is_operator())
        .def(
            "__rsub__", [](py::handle a, py::handle b) { return binary(b, a, '-'); },
            py::is_operator())
        .def(
            "__mul__", [](py::handle a, py::handle b) { return binary(a, b, '*'); },
            py::is_operator())
        .def(
            "__rmul__", [](py::handle a, py::handle b) { return binary(b, a, '*'); },
            py::is_operator())
        .def(
            "__truediv__", [](py::handle a, py::handle b) { return binary(a, b, '/'); },
            py::is_operator())
        .def(
            "__rtruediv__", [](py::handle a, py::handle b) { return binary(b, a, '/'); },
            py::is_operator())
        .def(
            "__pow__", [](py::handle a, py::handle b) { return binary(a, b, '^'); },
            py::is_operator())
        .def(
            "__rpow__", [](py::handle a, py::handle b) { return binary(b, a, '^'); },
            py::is_operator())
        .def("__neg__",
             [](const py_law& s) { return std::make_unique<py_law>(new negate_law(s.get())); })
        .def_property_readonly(
            "take_dim", [](const py_law& s) { return s.get()->take_dim(); },
            "Number of variables the law takes.")
        .def_property_readonly(
            "return_dim", [](const py_law& s) { return s.get()->return_dim(); },
            "Number of values the law returns.")
        .def_property_readonly(
            "variables", [](const py_law& s) { return variables_of(s.get()); },
            "The letters of the variables the law reads, in input order.")
        .def(
            "__call__",
            [](const py_law& s, py::args args, py::kwargs kwargs) {
                const law* l = s.get();
                const int n = l->take_dim(), m = l->return_dim();
                // A point goes through the tree; arrays through the compiled program.
                bool point = args.size() > 0;
                for (py::handle a : args) point = point && is_number(a);
                return evaluate(l, point ? nullptr : s.program(), n, m, args, kwargs);
            },
            "f(x) for a number, f(x, y, ...) for a point, f(array) for many points.  A NaN\n"
            "input raises LawError (LAW_BAD_BOUNDS); with nan='propagate' it goes through\n"
            "the law's operations as they take it.")
        .def(
            "derivative",
            [](const py_law& s, int wrt, int order) {
                if (order < 0)
                    raise_law_error(LAW_DERIV, "a derivative order must not be negative");
                // Building derivatives is the library's work alone: other Python threads
                // run meanwhile.
                py::gil_scoped_release unlocked;
                law_ref d = law_ref::retain(s.get());
                for (int i = 0; i < order; ++i) d = law_ref::adopt(d->derivative(wrt));
                return std::make_unique<py_law>(d.release());
            },
            py::arg("wrt") = 0, py::arg("order") = 1,
            "The order-th partial derivative with respect to variable `wrt` (cached by the law).")
        .def(
            "simplify",
            [](const py_law& s, py::object level) {
                const int lv = level.is_none() ? 1 : level.cast<int>();
                // A law with a part missing is left as it is: the rules expect every part.
                if (s.get()->incomplete())
                    return std::make_unique<py_law>(law_ref::retain(s.get()).release());
                py::gil_scoped_release unlocked;
                return std::make_unique<py_law>(s.get()->simplify(lv));
            },
            py::arg("level") = py::none(),
            "The simplified law (level 1 by default, 2 for the extra rules).")
        .def(
            "simplify_trace",
            [](const py_law& s, py::object level) {
                const int lv = level.is_none() ? 1 : level.cast<int>();
                if (s.get()->incomplete())
                    return py::make_tuple(
                        std::make_unique<py_law>(law_ref::retain(s.get()).release()), "");
                // The trace sink is process-wide: one traced simplification at a time.
                static std::mutex one_at_a_time;
                std::lock_guard<std::mutex> hold(one_at_a_time);
                simplify_trace_text.clear();
                qem_set_printf_sink(collect_trace, nullptr);
                law* r = nullptr;
                try {
                    r = law_simplify(s.get(), lv, 1);
                } catch (...) {
                    qem_set_printf_sink(nullptr, nullptr);
                    throw;
                }
                qem_set_printf_sink(nullptr, nullptr);
                return py::make_tuple(std::make_unique<py_law>(r), simplify_trace_text);
            },
            py::arg("level") = py::none(), "(simplified law, the text of the rules that fired).")
        .def(
            "compile", [](const py_law& s) { return std::make_unique<py_program>(s.get()); },
            "A compiled program of the law, callable like it.")
        .def(
            "polynomial", [](const py_law& s) { return polynomial_of(s.get()); },
            "Coefficients c[k] of X^k when the law is a polynomial in X, else None.");

    py::class_<py_program>(m, "Program", "A law compiled to a flat program; callable like the law.")
        .def(
            "__call__",
            [](const py_program& p, py::args args, py::kwargs kwargs) {
                return evaluate(nullptr, p.get(), p.get()->input_count(), p.get()->output_count(),
                                args, kwargs);
            },
            "p(x), p(x, y, ...) or p(array): as the law it was compiled from.")
        .def_property_readonly(
            "input_count", [](const py_program& p) { return p.get()->input_count(); },
            "Coordinates per point.")
        .def_property_readonly(
            "output_count", [](const py_program& p) { return p.get()->output_count(); },
            "Values per point.")
        .def_property_readonly(
            "instruction_count", [](const py_program& p) { return p.get()->instruction_count(); },
            "Instructions run per point.")
        .def_property_readonly(
            "tree_instruction_count",
            [](const py_program& p) { return p.get()->tree_instruction_count(); },
            "Of those, the ones that hand a part of the law to the tree.");

    m.def("live_laws", &law::live_laws, "Number of law objects alive in the process.");
    m.def("live_blocks", &vorn_live_blocks, "Number of the library's heap blocks alive.");
    bind_numerics(m);
    bind_data(m);
}
