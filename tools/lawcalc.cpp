// lawcalc: the law library from a shell.  Reads a formula, prints it, evaluates it,
// differentiates and simplifies it, tabulates it or draws it as an SVG picture.

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <lawutil/lawutil.h>
#include <qem/qem_printf.h>

#include "lawcalc_accurate.h"
#include "lawcalc_numerics.h"
#include "lawcalc_rows.h"
#include "lawcalc_sweep.h"

namespace lawcalc {

[[noreturn]] void usage_error(const std::string& why) {
    std::fprintf(stderr, "lawcalc: %s\n(try lawcalc --help)\n", why.c_str());
    std::exit(2);
}

double number(const char* s) {
    char* end = nullptr;
    const double v = std::strtod(s, &end);
    if (!s[0] || *end) usage_error(std::string("not a number: ") + s);
    return v;
}

/// The point "1,2,3" as its coordinates.
std::vector<double> point(const std::string& s) {
    std::vector<double> out;
    size_t start = 0;
    for (;;) {
        const size_t comma = s.find(',', start);
        out.push_back(number(s.substr(start, comma - start).c_str()));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return out;
}

}  // namespace lawcalc

using lawcalc::number;
using lawcalc::point;
using lawcalc::usage_error;

namespace {

const char* const usage_text =
    "usage: lawcalc [FORMULA] [options]\n"
    "       lawcalc --sweep PATH FRAME A B N FILE.svg   (draws a path with a frame law's\n"
    "       vectors at N parameters; lawcalc --sweep alone says more)\n"
    "\n"
    "Reads FORMULA (or, without one or with \"-\", one formula a line from standard\n"
    "input), prints the law and does what the options ask, in this order:\n"
    "\n"
    "  --second              print in the second symbol style (sin, **, [a,b])\n"
    "  --simplify            print the simplified law\n"
    "  --trace[=LEVEL]       with --simplify: print the rules that fire (LEVEL 1..3)\n"
    "  --derivative[=N]      print the N-th derivative (default 1)\n"
    "  --wrt VAR             differentiate with respect to VAR: X, Y, Z, T, U, V or a\n"
    "                        1-based variable number (default the first variable)\n"
    "  --at P                evaluate at the point P, coordinates separated by commas\n"
    "                        (1,2,3); may be repeated; the derivative too, if asked\n"
    "  --table A B N         tabulate at N points from A to B (first variable)\n"
    "  --jet N               with --at and --table: also print the law's value and its\n"
    "                        derivatives 1..N (wrt --wrt) by Taylor arithmetic, as\n"
    "                        \"jet: f; f'; ...\"\n"
    "  --plot A B FILE.svg   draw every output component over [A, B] as an SVG picture\n"
    "  --no-compile          evaluate tables, plots and numerics by the law tree only,\n"
    "                        never by its compiled form (same results; for comparisons)\n"
    "  --strict              refuse a formula that relies on a reading rule that is\n"
    "                        easy to mistake (without it, each is a warning)\n"
    "  --help                print this text\n"
    "  --                    end of the options: what follows are formulas, even when\n"
    "                        they begin with '-'\n"
    "\n"
    "A formula that cannot be read prints the reason with a caret under the place, and\n"
    "lawcalc exits with status 1; an evaluation error is printed and also makes the exit\n"
    "status 1.\n";

struct options {
    std::vector<std::string> formulas;
    bool second = false;
    bool strict = false;
    bool simplify = false;
    int trace = 0;
    int order = 0;
    int wrt = 0;
    std::vector<std::vector<double>> points;
    bool table = false;
    double table_a = 0, table_b = 1;
    int table_n = 0;
    int jet = 0;
    bool plot = false;
    double plot_a = 0, plot_b = 1;
    std::string plot_file;
    std::vector<lawcalc::numeric_request> numerics;
};

// The widest law lawcalc evaluates: a point is padded to the law's number of inputs,
// and the library differentiates with respect to no variable beyond this one either.
constexpr int max_inputs = 65536;
// Higher derivatives than this are refused rather than built for ever.
constexpr int max_order = 64;

double finite_number(const char* s, const std::string& what) {
    const double v = number(s);
    if (!std::isfinite(v)) usage_error(what + " must be a finite number");
    return v;
}

// An integer from lo to hi, or a usage error naming `what`.
int integer(const char* s, int lo, int hi, const std::string& what) {
    const double v = number(s);
    if (!(v >= lo && v <= hi) || v != std::floor(v))
        usage_error(what + " must be an integer from " + std::to_string(lo) + " to " +
                    std::to_string(hi));
    return static_cast<int>(v);
}

int variable(const std::string& s) {
    if (s.size() == 1) {
        switch (s[0] == 'x' || s[0] == 'y' || s[0] == 'z' ? s[0] - 32 : s[0]) {
            case 'X':
            case 'T':
            case 'U':
                return 0;
            case 'Y':
            case 'V':
                return 1;
            case 'Z':
                return 2;
            default:
                break;
        }
    }
    return integer(s.c_str(), 1, max_inputs, "a variable (X, Y, Z, T, U, V or a number)") - 1;
}

options parse_options(int argc, char** argv) {
    options o;
    auto need = [&](int i, int n, const char* what) {
        if (i + n >= argc)
            usage_error(std::string(what) + " needs " + std::to_string(n) + " value(s)");
    };
    bool options_ended = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (options_ended) {
            o.formulas.push_back(a);
        } else if (a == "--") {
            options_ended = true;
        } else if (a == "--help" || a == "-h") {
            std::fputs(usage_text, stdout);
            std::fputs(lawcalc::numerics_usage, stdout);
            std::fputs(lawcalc::accurate_usage, stdout);
            std::exit(0);
        } else if (a == "--no-compile") {
            find_option(compile_numerics_option_name)->set(0);
        } else if (a == "--strict") {
            o.strict = true;
        } else if (a == "--second") {
            o.second = true;
        } else if (a == "--simplify") {
            o.simplify = true;
        } else if (a == "--trace") {
            o.trace = 1;
        } else if (a.rfind("--trace=", 0) == 0) {
            o.trace = integer(a.c_str() + 8, 0, 3, "--trace LEVEL");
        } else if (a == "--derivative") {
            o.order = 1;
        } else if (a.rfind("--derivative=", 0) == 0) {
            o.order = integer(a.c_str() + 13, 1, max_order, "--derivative N");
        } else if (a == "--wrt") {
            need(i, 1, "--wrt");
            o.wrt = variable(argv[++i]);
        } else if (a == "--at") {
            need(i, 1, "--at");
            o.points.push_back(point(argv[++i]));
        } else if (a == "--table") {
            need(i, 3, "--table");
            o.table = true;
            o.table_a = finite_number(argv[i + 1], "--table A");
            o.table_b = finite_number(argv[i + 2], "--table B");
            o.table_n = integer(argv[i + 3], 1, 1000000, "--table N");
            i += 3;
        } else if (a == "--jet") {
            need(i, 1, "--jet");
            o.jet = integer(argv[i + 1], 1, max_order, "--jet N");
            ++i;
        } else if (a == "--plot") {
            need(i, 3, "--plot");
            o.plot = true;
            o.plot_a = finite_number(argv[i + 1], "--plot A");
            o.plot_b = finite_number(argv[i + 2], "--plot B");
            if (!(o.plot_a < o.plot_b)) usage_error("--plot needs A < B");
            o.plot_file = argv[i + 3];
            i += 3;
        } else if (lawcalc::read_numeric_option(argc, argv, i, o.numerics)) {
        } else if (a.size() > 2 && a[0] == '-' && a[1] == '-') {
            usage_error("unknown option " + a);
        } else {
            o.formulas.push_back(a);
        }
    }
    return o;
}

std::string text_of(const law* l, const options& o) {
    char* s = l->string(o.second ? SYMBOL_SECOND : SYMBOL_PARSE);
    std::string out(s);
    vorn_discard(s);
    return out;
}

// v as printf's "%.16g" writes it (to_chars with a precision is specified to), several
// times faster: long tables spend most of their time here.
void append_number(std::string& out, double v) {
    char buf[32];
    const auto end = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 16).ptr;
    out.append(buf, end);
}

std::string format_values(const double* v, size_t n) {
    std::string out;
    if (n > 1) out += "(";
    for (size_t i = 0; i < n; ++i) {
        if (i) out += ", ";
        append_number(out, v[i]);
    }
    if (n > 1) out += ")";
    return out;
}

std::string format_values(const std::vector<double>& v) {
    return format_values(v.data(), v.size());
}

// The values of `l` at `x`, padded with zeros to the law's input size.
std::vector<double> values_at(const law* l, std::vector<double> x) {
    if (static_cast<int>(x.size()) < l->take_dim())
        x.resize(static_cast<size_t>(l->take_dim()), 0.0);
    if (x.empty()) x.push_back(0.0);
    std::vector<double> out(static_cast<size_t>(std::max(1, l->return_dim())));
    l->evaluate(x.data(), out.data());
    return out;
}

// "f; f'; ...; f^(N)" at `x` (padded as values_at pads), by the law's jet.
std::string jet_text(const law* l, std::vector<double> x, const options& o) {
    if (static_cast<int>(x.size()) < l->take_dim())
        x.resize(static_cast<size_t>(l->take_dim()), 0.0);
    if (x.empty()) x.push_back(0.0);
    const auto m = static_cast<size_t>(std::max(1, l->return_dim()));
    std::vector<double> out(m * static_cast<size_t>(o.jet + 1));
    law_jet(l, x.data(), o.jet, o.wrt, out.data());
    std::string text;
    for (int k = 0; k <= o.jet; ++k) {
        if (k) text += "; ";
        text += format_values(out.data() + m * static_cast<size_t>(k), m);
    }
    return text;
}

// One picture: every output component a polyline over [a, b], with axes and labels.
bool write_svg(const law* l, const std::string& label, double a, double b, const std::string& file,
               bool* drawn) {
    const int samples = 400, w = 640, h = 400, margin = 50;
    const int m = std::max(1, l->return_dim());
    std::vector<std::vector<double>> ys(static_cast<size_t>(m));
    std::vector<double> xs;
    double lo = HUGE_VAL, hi = -HUGE_VAL;
    for (int i = 0; i <= samples; ++i) xs.push_back(a + (b - a) * i / samples);
    lawcalc::evaluate_rows(l, xs, [&](size_t, const double* v, const char*) {
        for (int k = 0; k < m; ++k) {
            const double y = v ? v[k] : NAN;  // a gap where the law has no value
            ys[static_cast<size_t>(k)].push_back(y);
            if (std::isfinite(y)) {
                lo = std::min(lo, y);
                hi = std::max(hi, y);
            }
        }
    });
    *drawn = lo <= hi;  // some sample had a finite value
    if (!(lo <= hi)) lo = -1, hi = 1;
    if (hi - lo < 1e-12) lo -= 1, hi += 1;
    auto px = [&](double x) { return margin + (x - a) / (b - a) * (w - 2 * margin); };
    auto py = [&](double y) { return h - margin - (y - lo) / (hi - lo) * (h - 2 * margin); };
    FILE* f = std::fopen(file.c_str(), "w");
    if (!f) return false;
    std::fprintf(f,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                 "font-family=\"sans-serif\" font-size=\"12\">\n",
                 w, h);
    std::fprintf(f, "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n");
    const double y0 = lo <= 0 && 0 <= hi ? py(0) : h - margin;
    const double x0 = a <= 0 && 0 <= b ? px(0) : margin;
    std::fprintf(f, "<line x1=\"%d\" y1=\"%.1f\" x2=\"%d\" y2=\"%.1f\" stroke=\"black\"/>\n",
                 margin, y0, w - margin, y0);
    std::fprintf(f, "<line x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\" stroke=\"black\"/>\n", x0,
                 margin, x0, h - margin);
    std::fprintf(f, "<text x=\"%d\" y=\"%d\">%g</text>\n", margin, h - margin + 16, a);
    std::fprintf(f, "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%g</text>\n", w - margin,
                 h - margin + 16, b);
    std::fprintf(f, "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%.4g</text>\n", margin - 4,
                 margin + 4, hi);
    std::fprintf(f, "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%.4g</text>\n", margin - 4,
                 h - margin, lo);
    std::string escaped;
    for (char c : label)
        escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
    std::fprintf(f, "<text x=\"%d\" y=\"%d\">%s</text>\n", margin, margin - 20, escaped.c_str());
    const char* colours[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#8c564b"};
    for (int k = 0; k < m; ++k) {
        std::fprintf(f, "<path fill=\"none\" stroke=\"%s\" stroke-width=\"1.5\" d=\"",
                     colours[k % 6]);
        bool pen = false;
        for (size_t i = 0; i < xs.size(); ++i) {
            const double y = ys[static_cast<size_t>(k)][i];
            if (!std::isfinite(y)) {
                pen = false;
                continue;
            }
            std::fprintf(f, "%s%.2f %.2f ", pen ? "L" : "M", px(xs[i]), py(y));
            pen = true;
        }
        std::fprintf(f, "\"/>\n");
        if (m > 1)
            std::fprintf(f, "<text x=\"%d\" y=\"%d\" fill=\"%s\">component %d</text>\n",
                         w - margin - 90, margin - 20 + 14 * k, colours[k % 6], k + 1);
    }
    lawcalc::write_plot_marks(f, l, a, b, px, py);
    std::fprintf(f, "</svg>\n");
    return std::fclose(f) == 0;
}

// Columns from the start of `text` to byte `offset`: UTF-8 continuation bytes take none.
size_t columns(const std::string& text, size_t offset) {
    size_t n = 0;
    for (size_t i = 0; i < offset && i < text.size(); ++i)
        n += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    return n;
}

// Prints `message` about the place `offset` of `formula`, with a caret under it.
void report(const char* kind, const char* message, const std::string& formula, int offset) {
    std::fprintf(stderr, "%s: %s\n  %s\n  %s^\n", kind, message, formula.c_str(),
                 std::string(columns(formula, static_cast<size_t>(offset)), ' ').c_str());
}

// Warns of each place where the formula relies on a rule that is easy to mistake (X Y
// reads as Y); with --strict they are errors.  False when the formula is refused.
bool check(const std::string& formula, const options& o) {
    law_text_warning* warnings = nullptr;
    const int n = check_law_text(formula.c_str(), &warnings);
    for (int i = 0; i < n; ++i)
        report(o.strict ? "error" : "warning", warnings[i].reason, formula, warnings[i].offset);
    vorn_discard(warnings);
    return !(o.strict && n > 0);
}

// Everything asked of one formula; false when something failed.
bool run(const std::string& formula, const options& o) {
    int offset = -1;
    TEST_clear_error();
    law* l = str_to_law(formula.c_str(), nullptr, 0, &offset);
    if (!l) {
        if (offset < 0) {
            if (!check(formula, o)) return false;
            std::printf("law: NULL\n");
            return true;
        }
        report("error", TEST_get_error(), formula, offset);
        return false;
    }
    if (!check(formula, o)) {
        law::remove(l);
        return false;
    }
    const bool evaluates = !o.points.empty() || o.table || o.plot;
    if (evaluates && l->take_dim() > max_inputs) {
        std::fprintf(stderr, "error: the law takes %d variables; lawcalc evaluates at most %d\n",
                     l->take_dim(), max_inputs);
        law::remove(l);
        return false;
    }
    bool ok = true;
    law* derived = nullptr;
    law* simple = nullptr;
    try {
        std::printf("law: %s\n", text_of(l, o).c_str());
        if (o.simplify) {
            simple = law_simplify(l, 1, o.trace);
            std::printf("simplified: %s\n", text_of(simple, o).c_str());
        }
        if (o.order > 0) {
            derived = simple ? simple : l;
            law::add(derived);
            for (int i = 0; i < o.order; ++i) {
                law* next = derived->derivative(o.wrt);
                law::remove(derived);
                derived = next;
            }
            std::printf("derivative %d wrt variable %d: %s\n", o.order, o.wrt + 1,
                        text_of(derived, o).c_str());
        }
    } catch (const vorn_exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        // No derivative: what was held may be the law itself or a lower derivative.
        law::remove(derived);
        derived = nullptr;
        ok = false;
    }
    for (const auto& p : o.points) {
        try {
            std::printf("at %s: %s", format_values(p).c_str(),
                        format_values(values_at(l, p)).c_str());
            if (derived)
                std::printf("  derivative: %s", format_values(values_at(derived, p)).c_str());
            if (o.jet > 0) std::printf("  jet: %s", jet_text(l, p, o).c_str());
            std::printf("\n");
        } catch (const vorn_exception& e) {
            std::printf("\n");
            std::fprintf(stderr, "error at %s: %s\n", format_values(p).c_str(), e.what());
            ok = false;
        }
    }
    if (o.table) {
        std::vector<double> xs;
        for (int i = 0; i < o.table_n; ++i)
            xs.push_back(o.table_n == 1
                             ? o.table_a
                             : o.table_a + (o.table_b - o.table_a) * i / (o.table_n - 1));
        const auto m = static_cast<size_t>(std::max(1, l->return_dim()));
        std::string line;
        lawcalc::evaluate_rows(l, xs, [&](size_t i, const double* v, const char* error) {
            // "%-24.16g %s\n"
            line.clear();
            append_number(line, xs[i]);
            if (line.size() < 24) line.resize(24, ' ');
            line += ' ';
            if (error) {
                line += "error: ";
                line += error;
                ok = false;
            } else {
                line += format_values(v, m);
                if (o.jet > 0) {
                    try {
                        line += "  jet: " + jet_text(l, {xs[i]}, o);
                    } catch (const vorn_exception& e) {
                        line += "  jet error: ";
                        line += e.what();
                        ok = false;
                    }
                }
            }
            line += '\n';
            std::fwrite(line.data(), 1, line.size(), stdout);
        });
    }
    ok = lawcalc::run_numerics(l, o.numerics) && ok;
    if (o.plot) {
        bool drawn = false;
        if (write_svg(l, text_of(l, o), o.plot_a, o.plot_b, o.plot_file, &drawn)) {
            std::printf("plot: %s\n", o.plot_file.c_str());
            // A picture without a curve is an evaluation error, not a plot.
            if (!drawn) {
                std::fprintf(stderr, "error: the law has no value anywhere on [%g, %g]\n", o.plot_a,
                             o.plot_b);
                ok = false;
            }
        } else {
            std::fprintf(stderr, "error: cannot write %s\n", o.plot_file.c_str());
            ok = false;
        }
    }
    law::remove(derived);
    law::remove(simple);
    law::remove(l);
    return ok;
}

// Traces go where the rest of the output goes.
void print_trace(const char* text, void*) {
    std::fputs(text, stdout);
}

}  // namespace

int main(int argc, char** argv) {
    argc = lawcalc::take_frame_method(argc, argv);  // MINROT's step, for --sweep too
    if (argc > 1 && std::strcmp(argv[1], "--sweep") == 0) return lawcalc_sweep(argc - 2, argv + 2);
    const options o = parse_options(argc, argv);
    initialize_law();
    qem_set_printf_sink(print_trace, nullptr);
    bool ok = true;
    if (o.formulas.empty() || (o.formulas.size() == 1 && o.formulas[0] == "-")) {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
            ok = run(line, o) && ok;
            std::fflush(stdout);
        }
    } else {
        for (const std::string& f : o.formulas) ok = run(f, o) && ok;
    }
    terminate_law();
    return ok ? 0 : 1;
}
