#pragma once
// lawcalc's numeric commands: roots, solutions, extrema, integrals and finite-difference
// derivatives of a law of one variable, each printed with the law evaluations it used,
// and the roots and extrema that --plot marks.

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <lawutil/lawutil.h>

namespace lawcalc {

/// Reports a bad command line on standard error and exits with status 2.
[[noreturn]] void usage_error(const std::string& why);
/// The number the whole of `s` spells, or a usage error.
double number(const char* s);
/// The coordinates of a point written "1,2,3", or a usage error.
std::vector<double> point(const std::string& s);

/// One numeric command as read from the command line.
struct numeric_request {
    enum kind_t { roots, solve, max, min, integrate, nderiv } kind = roots;
    double a = 0, b = 0;
    std::string other;       ///< --solve: the formula G
    int order = 1;           ///< --nderiv: the order
    std::vector<double> at;  ///< --nderiv: the point
    std::string method;      ///< --method after --roots or --integrate; empty: the default
};

/// The lines --help adds for these commands.
extern const char* const numerics_usage;

/// Reads the numeric option at argv[i] with its values into `out` and moves i to its last
/// value; false when argv[i] is not a numeric option.  Exits with status 2 on bad values.
bool read_numeric_option(int argc, char** argv, int& i, std::vector<numeric_request>& out);

/// Runs the commands on the law and prints one line each; false when one failed (the
/// error is printed).
bool run_numerics(const law* l, const std::vector<numeric_request>& requests);

/// Marks on an SVG picture of `l` over [a, b] its roots (circles) and extrema (squares),
/// placed by the picture's mappings `px` and `py`; nothing when the law is not scalar in
/// one variable or the search fails.
void write_plot_marks(std::FILE* svg, const law* l, double a, double b,
                      const std::function<double(double)>& px,
                      const std::function<double(double)>& py);

}  // namespace lawcalc
