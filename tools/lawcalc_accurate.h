#pragma once
// lawcalc's accurate methods, its defaults: roots by Chebyshev interpolation, integrals by
// the double-exponential rule (or Gauss-Kronrod), MINROT frames by double reflection.
// "--method hunt" and "--method romberg" after --roots and --integrate, and
// "--frame-method step", name the library's original routines instead.

#include <string>

#include "lawcalc_numerics.h"

namespace lawcalc {

/// The lines --help adds for these choices.
extern const char* const accurate_usage;

/// Removes every "--frame-method reflect|step" from argv (moving the rest down) and sets
/// the MINROT step for every law read afterwards: double reflection unless "step" was
/// given.  Returns the new argc; a usage error for another value.
int take_frame_method(int argc, char** argv);

/// The method `name` for a request of kind `kind` ("cheb" or "hunt" for --roots; "de",
/// "gk" or "romberg" for --integrate), or a usage error.
std::string method_name(numeric_request::kind_t kind, const char* name);

/// Runs --roots or --integrate by an accurate method and writes its line (without the
/// evaluation count) to `line`; false, with nothing done, for any other request and for
/// the original methods.  Throws what the law raises.
bool run_accurate(law* f, const numeric_request& r, std::string& line);

}  // namespace lawcalc
