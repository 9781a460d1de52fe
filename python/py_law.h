#pragma once
// The pieces the Python module's sources share: the object that holds a law for Python,
// the conversions from Python values to laws, and the raising of the library's errors
// as the package's LawError.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <string>

#include <lawutil/compile.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/lawutil.h>

namespace lawpy {
namespace py = pybind11;

/// A law held by a Python object: one use, given back when the object goes.  The compiled
/// program that array evaluation runs is made once, on the first array call, and shared by
/// every thread that evaluates the law (a program is immutable once made).
class py_law {
  public:
    /// Takes over the caller's use of `adopted` (must not be null).
    explicit py_law(law* adopted) : law_(adopted) {}
    py_law(const py_law&) = delete;
    py_law& operator=(const py_law&) = delete;
    ~py_law();

    law* get() const { return law_; }
    const law_program* program() const;

  private:
    law* law_;
    mutable std::atomic<law_program*> program_{nullptr};
};

/// A program compiled from one law, callable like the law.
class py_program {
  public:
    explicit py_program(law* l);
    py_program(const py_program&) = delete;
    py_program& operator=(const py_program&) = delete;
    ~py_program() {
        try {
            law_program_release(program_);
        } catch (...) {
        }
    }
    const law_program* get() const { return program_; }

  private:
    law_program* program_;
};

/// Law data (a curve, a surface, a transform, a grid of positions) held by a Python
/// object: one use, given back when the object goes.  Handed to Law(text, data=[...]).
class py_data {
  public:
    /// Takes over the caller's use of `adopted` (must not be null).
    explicit py_data(law_data* adopted) : data_(adopted) {}
    py_data(const py_data&) = delete;
    py_data& operator=(const py_data&) = delete;
    ~py_data();
    law_data* get() const { return data_; }

  private:
    law_data* data_;
};

/// Raises LawError with the library's code identifier for `code` and `message`.
[[noreturn]] void raise_law_error(int code, const std::string& message);
/// Raises LawError with the code LAW_DIM: for arrays and points of the wrong shape.
[[noreturn]] void raise_shape_error(const std::string& message);

/// The law `h` stands for, with one use for the caller: a Law, a number (a constant) or a
/// formula.  Raises TypeError for anything else, LawSyntaxError for a bad formula.
law_ref law_of(py::handle h);
/// Reads `text` with the laws in `data` as LAW1, LAW2...; raises LawSyntaxError when the
/// text does not read (or, when `strict`, reads only by a lenient rule).
law_ref parse(const std::string& text, py::handle data, bool strict);

/// Evaluation of `n`-input, `m`-output values through `program` (or, for a scalar
/// point, through `scalar` when given): a float, a 1-D array of m values, or an array of
/// points.  A NaN input raises unless the keyword nan='propagate' is given.
py::object evaluate(const law* scalar, const law_program* program, int n, int m, py::args args,
                    py::kwargs kwargs);

void bind_numerics(py::module_& m);
void bind_data(py::module_& m);
}  // namespace lawpy
