#!/usr/bin/env python3
"""A tour of the Python module: laws from text, arrays, derivatives, numerics, a frame
and a plot (written as a PNG when matplotlib is installed).

    PYTHONPATH=build/release/python /usr/bin/python3 examples/tour.py [out.png]
"""

import sys

import numpy as np

import lawutil
from lawutil import Law

f = Law("SIN(X)^2+COS(X)^2")
x = np.linspace(0, 1, 1_000_000)
print(f"{f} over 1e6 points: min {f(x).min()}, max {f(x).max()}; simplified: {f.simplify()!r}")

g = Law("X^3-X")
print(f"roots of {g} on [-2, 2]: {g.roots(-2, 2)}")
print(f"d/dX: {g.derivative()}, d3/dX3: {g.derivative(order=3)}")
value, evaluations = Law("SIN(X)").integrate(0, 3.141592653589793, count=True)
print(f"integral of SIN(X) on [0, PI]: {value:.12f} in {evaluations} evaluations")

h = 2 * Law("X") ** 2 - 1           # operators build laws; numbers on either side
print(f"{h!r} at 0.5: {h(0.5)}")

helix = Law("VEC(COS(X),SIN(X),X/10)")
print(f"{helix} at [0, 1]:\n{helix(np.array([0.0, 1.0]))}")
frame = lawutil.minrot(helix, [0, 0, 1], 0, 6.2832)
curve = lawutil.law_to_sw_curve(helix, 0, 6.2832, 1e-5)
print(f"the helix as a degree-{curve.degree} spline of {len(curve.control_points)} control "
      f"points, within {curve.deviation:.1e}")

try:
    Law("SIN(X")
except lawutil.LawSyntaxError as e:
    print(f"LawSyntaxError at offset {e.offset}:\n{e}")

try:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
except ImportError:
    print("matplotlib is not installed: no plot")
    sys.exit(0)
fig = plt.figure(figsize=(10, 4))
lawutil.plot(g, -2, 2, ax=fig.add_subplot(1, 2, 1))
lawutil.plot_frame(helix, frame, 0, 6.2832, 16, ax=fig.add_subplot(1, 2, 2, projection="3d"))
out = sys.argv[1] if len(sys.argv) > 1 else "tour.png"
fig.savefig(out)
print(f"plot written to {out}")
