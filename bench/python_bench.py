#!/usr/bin/env python3
"""The Python module over 10^6 points against NumPy written by hand and numexpr (one
thread), with the C++ batch figure of compile_bench beside it, and the cost of a scalar
call f(0.3).

Run it with Debian's interpreter after a release build:
    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py
BUILD names the build directory (default build/release) whose bench/compile_bench gives
the C++ column (over 1024 points that stay in cache; omitted when it is not built).
Times are the best of several runs; the table gives ns per point and ratios (above 1:
lawutil is faster).  "no-NaN" is lawutil with nan="propagate", without the check that
refuses NaN inputs.
"""

import json
import math
import os
import subprocess
import sys
import timeit

import numpy as np

import lawutil

try:
    import numexpr
    numexpr.set_num_threads(1)
except ImportError:  # the column is left empty
    numexpr = None

N = 1_000_000
TREE30 = "((X*X+3)/(X+1))^1.5-(2*X+0.5)^3+(-((X-4)/(X^2+2.5)))"
POLY10 = "((((((((((0.5*X+1)*X-2)*X+3)*X+1)*X-1)*X+2)*X-3)*X+1)*X+2)*X-1)"


def tree30(x):
    q = (x * x + 3) / (x + 1)
    s = 2 * x + 0.5
    return (q ** 1.5 - s * s * s) + -((x - 4) / (x * x + 2.5))


def poly10(x):
    r = 0.5 * x + 1
    for c in (-2, 3, 1, -1, 2, -3, 1, 2, -1):
        r = r * x + c
    return r


# key (as compile_bench names it), law text, range, NumPy by hand, numexpr text(s)
ROWS = [
    ("x2p1", "X*X+1", (0.1, 2.0), lambda x: x * x + 1, ["x*x+1"]),
    ("quotient", "(X+1)/(X-1)", (1.5, 3.5), lambda x: (x + 1) / (x - 1), ["(x+1)/(x-1)"]),
    ("pythagoras", "SIN(X)^2+COS(X)^2", (0.1, 2.0), lambda x: np.sin(x) ** 2 + np.cos(x) ** 2,
     ["sin(x)**2+cos(x)**2"]),
    ("poly10", POLY10, (-1.0, 1.0), poly10, [POLY10.replace("X", "x")]),
    ("gauss", "EXP(-(X^2)/2)/SQRT(2*PI)", (-3.0, 3.0),
     lambda x: np.exp(-(x * x) / 2) / math.sqrt(2 * math.pi),
     [f"exp(-(x**2)/2)/sqrt(2*{math.pi!r})"]),
    ("tree30", TREE30, (0.1, 2.0), tree30, [TREE30.replace("X", "x").replace("^", "**")]),
    ("vec", "VEC(COS(X),SIN(X),X/10)", (0.0, 2 * math.pi),
     lambda x: np.stack([np.cos(x), np.sin(x), x / 10], axis=-1),
     ["cos(x)", "sin(x)", "x/10"]),
]


def best(fn, repeat=7):
    fn()  # warm: the law compiles on its first array call
    return min(timeit.repeat(fn, number=1, repeat=repeat)) / N * 1e9


def cpp_batch():
    exe = os.path.join(os.environ.get("BUILD", "build/release"), "bench", "compile_bench")
    if not os.path.exists(exe):
        return {}
    out = subprocess.run([exe, "--benchmark_filter=/batch$", "--benchmark_format=json",
                          "--benchmark_repetitions=5"],
                         capture_output=True, text=True, check=True).stdout
    found = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type") == "aggregate":
            continue
        key, ns = b["name"].split("/")[1], 1e9 / b["items_per_second"]
        found[key] = min(ns, found.get(key, ns))   # the best repetition, as for the rest
    return found


def main():
    cpp = cpp_batch()
    print(f"{'row':<11}{'lawutil':>9}{'no-NaN':>8}{'numpy':>9}{'numexpr':>9}{'C++':>8}"
          f"{'numpy/lw':>10}{'numexpr/lw':>12}{'lw/C++':>8}   (ns per point, 1e6 points)")
    for key, text, (lo, hi), by_hand, ne_texts in ROWS:
        x = np.linspace(lo, hi, N)
        f = lawutil.Law(text)
        np.testing.assert_allclose(f(x), by_hand(x), rtol=1e-12, atol=1e-12)
        t_law = best(lambda: f(x))
        t_prop = best(lambda: f(x, nan="propagate"))   # without the NaN check
        t_np = best(lambda: by_hand(x))
        t_ne = float("nan")
        if numexpr:
            if len(ne_texts) == 1:
                t_ne = best(lambda: numexpr.evaluate(ne_texts[0], local_dict={"x": x}))
            else:
                t_ne = best(lambda: np.stack([numexpr.evaluate(t, local_dict={"x": x})
                                              for t in ne_texts], axis=-1))
        t_cpp = cpp.get(key, float("nan"))
        print(f"{key:<11}{t_law:9.2f}{t_prop:8.2f}{t_np:9.2f}{t_ne:9.2f}{t_cpp:8.2f}"
              f"{t_np / t_law:10.2f}{t_ne / t_law:12.2f}{t_law / t_cpp:8.2f}")
    f = lawutil.Law("X*X+1")
    n = 200_000
    scalar = min(timeit.repeat(lambda: f(0.3), number=n, repeat=5)) / n * 1e9
    print(f"scalar call f(0.3) on X*X+1: {scalar:.0f} ns")
    return 0


if __name__ == "__main__":
    sys.exit(main())
