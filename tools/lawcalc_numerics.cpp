#include "lawcalc_numerics.h"

#include "lawcalc_accurate.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace lawcalc {

const char* const numerics_usage =
    "\n"
    "Numerics on a scalar law of one variable, each printing the evaluations it used:\n"
    "  --roots A B           every root on [A, B]\n"
    "  --solve G A B         every solution of FORMULA = G on [A, B]\n"
    "  --max A B, --min A B  where the law is largest (smallest) on [A, B]\n"
    "  --integrate A B       the integral from A to B (Romberg)\n"
    "  --nderiv N AT         the N-th derivative at the point AT by finite differences\n"
    "With --plot, roots are marked by circles and extrema by squares.\n";

namespace {

long evaluations() {
    return lawutil_context()->numeric_evaluations;
}

std::string list(const double* v, int n) {
    std::string out;
    char buf[32];
    for (int i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%s%.15g", i ? " " : "", v[i]);
        out += buf;
    }
    return n ? out : "none";
}

/// The number of sign changes of f seen on a uniform grid over [a, b] that look like
/// crossings (the value between the two samples is no larger than theirs, which a pole's
/// is).  Points where f does not evaluate are skipped.
int grid_crossings(const law* f, double a, double b) {
    constexpr int samples = 4096;
    auto value = [&](double x) {
        try {
            return f->eval(x);
        } catch (const vorn_exception&) {
            return static_cast<double>(NAN);
        }
    };
    int crossings = 0;
    double x0 = a, v0 = value(a);
    for (int i = 1; i <= samples; ++i) {
        const double x1 = a + (b - a) * i / samples, v1 = value(x1);
        if (v0 * v1 < 0 &&
            std::fabs(value((x0 + x1) / 2)) <= std::max(std::fabs(v0), std::fabs(v1)))
            ++crossings;
        x0 = x1;
        v0 = v1;
    }
    return crossings;
}

/// One command; throws what the law raises.
void run_one(law* f, const numeric_request& r) {
    const long before = evaluations();
    char head[160];
    std::string line;
    // The accurate methods, the defaults of --roots and --integrate: lawcalc_accurate.cpp.
    if (run_accurate(f, r, line)) {
        std::printf("%s  [%ld evaluations]\n", line.c_str(), evaluations() - before);
        return;
    }
    switch (r.kind) {
        case numeric_request::roots:
        case numeric_request::solve: {
            int n = 0;
            law* g = nullptr;
            double* found = nullptr;
            if (r.kind == numeric_request::solve) {
                g = str_to_law(r.other.c_str());
                if (!g)
                    throw std::runtime_error("cannot read " + r.other + ": " + TEST_get_error());
            }
            try {
                found = g ? Nsolve(f, g, r.a, r.b, &n) : Nroot(f, r.a, r.b, &n);
            } catch (...) {
                law::remove(g);
                throw;
            }
            law::remove(g);
            std::snprintf(head, sizeof head, "%s on [%g, %g]: ", g ? "solutions" : "roots", r.a,
                          r.b);
            line = head + list(found, n);
            vorn_discard(found);
            // The hunt covers a stretch up to each extremum it finds; a law that turns
            // faster than that hides roots from it.  Say so when a plain grid sees more.
            if (!g && std::isfinite(r.b - r.a)) {
                const int seen = grid_crossings(f, std::min(r.a, r.b), std::max(r.a, r.b));
                if (seen > n)
                    std::fprintf(stderr,
                                 "warning: the law changes sign at least %d times on [%g, %g] "
                                 "but the hunt found %d roots: it oscillates faster than the "
                                 "hunt resolves\n",
                                 seen, r.a, r.b, n);
            }
            break;
        }
        case numeric_request::max:
        case numeric_request::min: {
            const bool mx = r.kind == numeric_request::max;
            const double x = mx ? Nmax(f, r.a, r.b) : Nmin(f, r.a, r.b);
            // The search answers a pole the law rises (falls) towards, where it has no value.
            double v = 0.0;
            bool pole = false;
            try {
                v = f->eval(x);
                pole = !std::isfinite(v);
            } catch (const vorn_exception&) {
                pole = true;
            }
            std::snprintf(head, sizeof head, "%s on [%g, %g] at %.15g: %.15g", mx ? "max" : "min",
                          r.a, r.b, x, v);
            if (pole)
                std::snprintf(head, sizeof head, "%s on [%g, %g] at %.15g: unbounded (a pole)",
                              mx ? "max" : "min", r.a, r.b, x);
            break;
        }
        case numeric_request::integrate: {
            double v = 0;
            const int levels = Nintegrate(f, r.a, r.b, &v);
            std::snprintf(head, sizeof head, "integral from %g to %g: %.15g (%s)", r.a, r.b, v,
                          levels ? "converged" : "not converged");
            break;
        }
        case numeric_request::nderiv: {
            std::vector<double> x = r.at;
            x.resize(std::max<size_t>(x.size(), static_cast<size_t>(f->take_dim())), 0.0);
            std::vector<double> d(static_cast<size_t>(std::max(1, f->return_dim())));
            const double error = Ndifferentiate_estimate(f, x.data(), 0, d.data(), r.order);
            std::snprintf(head, sizeof head, "derivative %d at ", r.order);
            line = head + list(r.at.data(), static_cast<int>(r.at.size())) + ": " +
                   list(d.data(), static_cast<int>(d.size()));
            char accuracy[48];
            std::snprintf(accuracy, sizeof accuracy, " (error about %.1g)", error);
            line += accuracy;
            break;
        }
    }
    if (line.empty()) line = head;
    std::printf("%s  [%ld evaluations]\n", line.c_str(), evaluations() - before);
}

}  // namespace

bool read_numeric_option(int argc, char** argv, int& i, std::vector<numeric_request>& out) {
    static const struct {
        const char* name;
        numeric_request::kind_t kind;
        int values;
    } table[] = {{"--roots", numeric_request::roots, 2},
                 {"--solve", numeric_request::solve, 3},
                 {"--max", numeric_request::max, 2},
                 {"--min", numeric_request::min, 2},
                 {"--integrate", numeric_request::integrate, 2},
                 {"--nderiv", numeric_request::nderiv, 2}};
    for (const auto& t : table) {
        if (std::strcmp(argv[i], t.name) != 0) continue;
        if (i + t.values >= argc)
            usage_error(std::string(t.name) + " needs " + std::to_string(t.values) + " value(s)");
        numeric_request r;
        r.kind = t.kind;
        char** v = argv + i + 1;
        if (t.kind == numeric_request::solve) {
            r.other = v[0];
            ++v;
        }
        if (t.kind == numeric_request::nderiv) {
            const double order = number(v[0]);
            if (order < 0 || order != std::floor(order) || order > 20)
                usage_error("--nderiv needs an order from 0 to 20");
            r.order = static_cast<int>(order);
            r.at = point(v[1]);
        } else {
            r.a = number(v[0]);
            r.b = number(v[1]);
        }
        out.push_back(r);
        i += t.values;
        // "--method NAME" right after --roots or --integrate: see lawcalc_accurate.cpp.
        if (i + 2 < argc && std::strcmp(argv[i + 1], "--method") == 0) {
            out.back().method = method_name(t.kind, argv[i + 2]);
            i += 2;
        }
        return true;
    }
    return false;
}

bool run_numerics(const law* l, const std::vector<numeric_request>& requests) {
    bool ok = true;
    for (const numeric_request& r : requests) {
        try {
            run_one(const_cast<law*>(l), r);
        } catch (const vorn_exception& e) {
            std::fprintf(stderr, "error: %s\n", e.what());
            ok = false;
        } catch (const std::runtime_error& e) {
            std::fprintf(stderr, "error: %s\n", e.what());
            ok = false;
        }
    }
    return ok;
}

void write_plot_marks(std::FILE* svg, const law* l, double a, double b,
                      const std::function<double(double)>& px,
                      const std::function<double(double)>& py) {
    if (l->return_dim() != 1 || l->take_dim() > 1) return;
    law* f = const_cast<law*>(l);
    law* d = nullptr;
    double* r = nullptr;
    try {
        int n = 0;
        r = Nroot(f, a, b, &n);
        for (int i = 0; i < n; ++i)
            std::fprintf(svg,
                         "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"4\" fill=\"none\" "
                         "stroke=\"black\"/>\n",
                         px(r[i]), py(f->eval(r[i])));
        vorn_discard(r);
        r = nullptr;
        d = f->derivative(0);
        r = Nroot(d, a, b, &n);
        for (int i = 0; i < n; ++i)
            std::fprintf(svg,
                         "<rect x=\"%.2f\" y=\"%.2f\" width=\"8\" height=\"8\" "
                         "fill=\"none\" stroke=\"black\"/>\n",
                         px(r[i]) - 4, py(f->eval(r[i])) - 4);
    } catch (const vorn_exception&) {
        // No marks where the search cannot run; the curve is drawn all the same.
    }
    vorn_discard(r);
    law::remove(d);
}

}  // namespace lawcalc
