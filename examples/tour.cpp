// A short tour of the law library: laws built from constructors, evaluated at points,
// differentiated symbolically, printed as text and shared between threads.

#include <cstdio>
#include <thread>
#include <vector>

#include <lawutil/lawutil.h>

namespace {

void show(const char* what, const law* l) {
    char* s = l->string();
    std::printf("%-28s %s\n", what, s);
    vorn_discard(s);
}

}  // namespace

int main() {
    initialize_law();
    try {
        // Every constructor takes its own use of its parts; the builder gives back its own.
        law* x = new identity_law(0, 'X');
        law* y = new identity_law(1, 'Y');
        law* one = new constant_law(1.0);
        law* xx = new times_law(x, x);
        law* f = new plus_law(xx, one);   // X*X+1
        law* g = new division_law(x, y);  // X/Y

        show("f =", f);
        std::printf("%-28s %g\n", "f(3) =", f->eval(3.0));
        law* df = f->derivative(0);
        show("df/dX =", df);
        std::printf("%-28s %g\n", "df/dX at 3 =", df->eval(3.0));

        show("g =", g);
        const double at[2] = {6.0, 3.0};
        std::printf("%-28s %g\n", "g(6, 3) =", g->evaluateM_R(at));
        law* gx = g->derivative(0);
        law* gy = g->derivative(1);
        show("dg/dX =", gx);
        show("dg/dY =", gy);
        std::printf("%-28s %g, %g\n", "gradient at (6, 3) =", gx->evaluateM_R(at),
                    gy->evaluateM_R(at));

        // Shared between threads: each derivative is built once, whoever asks first.
        std::vector<std::thread> threads;
        std::vector<law*> got(4);
        for (int t = 0; t < 4; ++t) threads.emplace_back([&, t] { got[t] = f->derivative(0); });
        for (auto& th : threads) th.join();
        std::printf("%-28s %s\n", "threads share df/dX:",
                    got[0] == df && got[1] == df && got[2] == df && got[3] == df ? "yes" : "no");
        for (law* d : got) law::remove(d);

        try {
            g->evaluateM_R(std::vector<double>{1.0, 0.0}.data());
        } catch (const vorn_exception& e) {
            std::printf("%-28s %s\n", "g(1, 0) raises:", e.what());
        }

        for (law* l : {gy, gx, df, g, f, xx, one, y, x}) law::remove(l);
    } catch (const vorn_exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        return 1;
    }
    terminate_law();
    return 0;
}
