#include "lawcalc_sweep.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <lawutil/lawutil.h>

namespace {

const char* const sweep_usage =
    "usage: lawcalc --sweep PATH FRAME A B N FILE.svg\n"
    "  draws PATH (a law of X returning a point) over [A, B] and the vector law FRAME as\n"
    "  arrows at N parameters, with tangent x FRAME beside it.  Example:\n"
    "  lawcalc --sweep \"VEC(COS(X),SIN(X),X/4)\" \\\n"
    "     \"MINROT(VEC(COS(X),SIN(X),X/4),VEC(-1,0,0),0,12.5)\" 0 12.5 40 helix.svg\n";

struct point {
    double x, y, z;
};

point cross(point a, point b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

point unit(point a) {
    const double n = std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z);
    return n > 0 ? point{a.x / n, a.y / n, a.z / n} : point{0, 0, 0};
}

// An oblique view: x to the right and down a little, y to the right and up, z straight up.
struct view {
    double sx, sy;
};

view project(point p) {
    return {0.866 * (p.x - p.y), -(p.z + 0.5 * (p.x + p.y))};
}

// One law read from text; null (and a printed reason) when it cannot be read.
law* read_law(const char* text, const char* what) {
    int offset = 0;
    law* l = str_to_law(text, nullptr, 0, &offset);
    if (!l) std::fprintf(stderr, "lawcalc: %s: %s at offset %d\n", what, TEST_get_error(), offset);
    return l;
}

// The three values of `l` at the parameter t (a law that takes no input, such as the
// tangent of a straight line, is read all the same).
point vector_at(const law* l, double t) {
    double x[1] = {t}, v[3];
    l->evaluate(x, v);
    return {v[0], v[1], v[2]};
}

bool three_values(const law* l, const char* what) {
    if (l->return_dim() == 3 && l->take_dim() <= 1) return true;
    std::fprintf(stderr, "lawcalc: %s must take one parameter and return 3 values\n", what);
    return false;
}

struct picture {
    std::vector<point> path;
    struct arrow {
        point at, frame, side;
    };
    std::vector<arrow> arrows;
};

picture sample(const law* path, const law* frame, double a, double b, int n) {
    picture pic;
    law* tangent = path->derivative(0);
    try {
        const int steps = 400;
        for (int i = 0; i <= steps; ++i)
            pic.path.push_back(vector_at(path, a + (b - a) * i / steps));
        for (int i = 0; i < n; ++i) {
            const double t = n == 1 ? a : a + (b - a) * i / (n - 1);
            const point f = vector_at(frame, t);
            pic.arrows.push_back({vector_at(path, t), f, cross(unit(vector_at(tangent, t)), f)});
        }
    } catch (...) {
        law::remove(tangent);
        throw;
    }
    law::remove(tangent);
    return pic;
}

bool write(const picture& pic, const std::string& title, const std::string& file) {
    // Arrows one tenth of the path's extent; the picture fitted to both.
    double lo_x = HUGE_VAL, hi_x = -HUGE_VAL, lo_y = HUGE_VAL, hi_y = -HUGE_VAL;
    auto grow = [&](view v) {
        lo_x = std::min(lo_x, v.sx), hi_x = std::max(hi_x, v.sx);
        lo_y = std::min(lo_y, v.sy), hi_y = std::max(hi_y, v.sy);
    };
    for (point p : pic.path) grow(project(p));
    const double arrow = 0.1 * std::max({hi_x - lo_x, hi_y - lo_y, 1e-9});
    auto tip = [&](point at, point d) {
        const point u = unit(d);
        return point{at.x + arrow * u.x, at.y + arrow * u.y, at.z + arrow * u.z};
    };
    for (const auto& a : pic.arrows)
        grow(project(tip(a.at, a.frame))), grow(project(tip(a.at, a.side)));
    const int w = 640, h = 640, margin = 40;
    const double scale = std::min((w - 2 * margin) / std::max(hi_x - lo_x, 1e-9),
                                  (h - 2 * margin) / std::max(hi_y - lo_y, 1e-9));
    auto px = [&](point p) {
        const view v = project(p);
        return view{margin + (v.sx - lo_x) * scale, margin + (v.sy - lo_y) * scale};
    };
    FILE* f = std::fopen(file.c_str(), "w");
    if (!f) return false;
    std::fprintf(f,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                 "font-family=\"sans-serif\" font-size=\"12\">\n<rect width=\"100%%\" "
                 "height=\"100%%\" fill=\"white\"/>\n",
                 w, h);
    std::string escaped;
    for (char c : title)
        escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
    std::fprintf(f, "<text x=\"%d\" y=\"20\">%s</text>\n", margin, escaped.c_str());
    std::fprintf(f, "<path fill=\"none\" stroke=\"#1f77b4\" stroke-width=\"1.5\" d=\"");
    for (size_t i = 0; i < pic.path.size(); ++i) {
        const view v = px(pic.path[i]);
        std::fprintf(f, "%s%.2f %.2f ", i ? "L" : "M", v.sx, v.sy);
    }
    std::fprintf(f, "\"/>\n");
    for (const auto& a : pic.arrows) {
        const view from = px(a.at), to = px(tip(a.at, a.frame)), side = px(tip(a.at, a.side));
        std::fprintf(f,
                     "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"#d62728\"/>\n"
                     "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"#2ca02c\"/>\n",
                     from.sx, from.sy, to.sx, to.sy, from.sx, from.sy, side.sx, side.sy);
    }
    std::fprintf(f, "</svg>\n");
    return std::fclose(f) == 0;
}

bool number(const char* s, double& out) {
    char* end = nullptr;
    out = std::strtod(s, &end);
    return s[0] && !*end && std::isfinite(out);
}

}  // namespace

int lawcalc_sweep(int argc, char** argv) {
    double a = 0, b = 0, count = 0;
    if (argc != 6 || !number(argv[2], a) || !number(argv[3], b) || !number(argv[4], count) ||
        count < 1 || count > 100000 || count != std::floor(count)) {
        std::fputs(sweep_usage, stderr);
        return 2;
    }
    initialize_law();
    int status = 1;
    law* path = read_law(argv[0], "PATH");
    law* frame = path ? read_law(argv[1], "FRAME") : nullptr;
    if (path && frame && three_values(path, "PATH") && three_values(frame, "FRAME")) {
        try {
            const picture pic = sample(path, frame, a, b, static_cast<int>(count));
            if (write(pic, std::string(argv[0]) + "   frame " + argv[1], argv[5])) {
                std::printf("sweep: %s\n", argv[5]);
                status = 0;
            } else {
                std::fprintf(stderr, "lawcalc: cannot write %s\n", argv[5]);
            }
        } catch (const vorn_exception& e) {
            std::fprintf(stderr, "lawcalc: %s\n", e.what());
        }
    }
    law::remove(frame);
    law::remove(path);
    terminate_law();
    return status;
}
