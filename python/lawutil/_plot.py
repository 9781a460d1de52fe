"""Plots of laws with matplotlib (optional: imported only when a plot is asked for)."""

import numpy as np


def _axes(ax, projection=None):
    if ax is not None:
        return ax
    import matplotlib.pyplot as plt
    fig = plt.figure()
    return fig.add_subplot(projection=projection) if projection else fig.add_subplot()


def plot(law, a, b, ax=None, n=400):
    """Plots a scalar law of one variable on [a, b] and marks its roots (circles) and
    its extrema, the roots of its derivative (squares).  Returns the axes."""
    ax = _axes(ax)
    x = np.linspace(a, b, n)
    ax.plot(x, law(x), label=str(law))
    roots = law.roots(a, b)
    ax.plot(roots, np.zeros_like(roots), "o", fillstyle="none", label="roots")
    extrema = law.derivative().roots(a, b)
    ax.plot(extrema, law(extrema), "s", fillstyle="none", label="extrema")
    ax.axhline(0.0, linewidth=0.5, color="grey")
    ax.legend()
    return ax


def plot_frame(path, frame, a, b, n=20, ax=None, scale=None):
    """Draws the path (a law of one variable to 3 values) on [a, b] in 3-D with the frame
    vectors (a law of the same variable to 3 values) at n points.  Returns the axes."""
    ax = _axes(ax, projection="3d")
    t = np.linspace(a, b, max(n, 2) * 10)
    p = path(t)
    ax.plot(p[:, 0], p[:, 1], p[:, 2])
    ts = np.linspace(a, b, n)
    at, v = path(ts), frame(ts)
    if scale is None:
        scale = 0.1 * float(np.ptp(p, axis=0).max() or 1.0)
    ax.quiver(at[:, 0], at[:, 1], at[:, 2], v[:, 0], v[:, 1], v[:, 2], length=scale,
              normalize=True, color="tab:red")
    return ax
