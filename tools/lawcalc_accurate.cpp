#include "lawcalc_accurate.h"

#include <cstdio>
#include <cstring>

namespace lawcalc {

const char* const accurate_usage =
    "\n"
    "Methods (the accurate ones are the defaults):\n"
    "  --roots A B --method cheb|hunt\n"
    "      cheb: Chebyshev interpolation, roots from its colleague matrix, Newton-polished;\n"
    "            double roots once, marked (double)\n"
    "      hunt: the library's Newton hunt over an interval cover (Nroot)\n"
    "  --integrate A B --method de|gk|romberg   (A and B may be inf or -inf)\n"
    "      de: double-exponential rule (smooth integrands by Gauss-Kronrod after one probe)\n"
    "      gk: adaptive Gauss-Kronrod 7-15; romberg: the library's Romberg (Nintegrate)\n"
    "  --frame-method reflect|step\n"
    "      MINROT frames by double reflection (reflect) or by the projection step\n";

int take_frame_method(int argc, char** argv) {
    int method = 1;
    int out = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--frame-method") != 0) {
            argv[out++] = argv[i];
            continue;
        }
        if (i + 1 >= argc) usage_error("--frame-method needs reflect or step");
        const char* v = argv[++i];
        if (std::strcmp(v, "reflect") == 0)
            method = 1;
        else if (std::strcmp(v, "step") == 0)
            method = 0;
        else
            usage_error(std::string("--frame-method reflect or step, not ") + v);
    }
    argv[out] = nullptr;
    find_option(min_rot_method_option_name)->set(method);
    return out;
}

std::string method_name(numeric_request::kind_t kind, const char* name) {
    static const char* const roots[] = {"cheb", "hunt", nullptr};
    static const char* const integrals[] = {"de", "gk", "romberg", nullptr};
    const char* const* known = kind == numeric_request::roots       ? roots
                               : kind == numeric_request::integrate ? integrals
                                                                    : nullptr;
    if (!known) usage_error("--method follows --roots or --integrate");
    for (; *known; ++known)
        if (std::strcmp(*known, name) == 0) return name;
    usage_error(std::string("unknown method ") + name);
}

namespace {

const char* multiplicity_note(int m) {
    switch (m) {
        case 1:
            return "";
        case 2:
            return " (double)";
        case 3:
            return " (triple)";
        default:
            return " (multiple)";
    }
}

std::string cheb_roots(law* f, const numeric_request& r) {
    int n = 0, *m = nullptr;
    double* x = law_roots_cheb(f, r.a, r.b, 1e-14, &n, nullptr, &m);
    char buf[64];
    std::snprintf(buf, sizeof buf, "roots on [%g, %g]: ", r.a, r.b);
    std::string line = buf;
    for (int i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%s%.15g%s", i ? " " : "", x[i], multiplicity_note(m[i]));
        line += buf;
    }
    if (n == 0) line += "none";
    vorn_discard(x);
    vorn_discard(m);
    return line;
}

std::string integral(law* f, const numeric_request& r, bool de) {
    const law_integral_result v =
        de ? law_integrate_de(f, r.a, r.b) : law_integrate_gk(f, r.a, r.b);
    char buf[200];
    std::snprintf(buf, sizeof buf, "integral from %g to %g: %.15g (%s) by %s, error %.2g", r.a, r.b,
                  v.value, v.converged ? "converged" : "not converged", de ? "de" : "gk", v.error);
    return buf;
}

}  // namespace

bool run_accurate(law* f, const numeric_request& r, std::string& line) {
    if (r.kind == numeric_request::roots && r.method != "hunt") {
        line = cheb_roots(f, r);
        return true;
    }
    if (r.kind == numeric_request::integrate && r.method != "romberg") {
        line = integral(f, r, r.method != "gk");
        return true;
    }
    return false;
}

}  // namespace lawcalc
