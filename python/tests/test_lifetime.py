"""Ownership across many laws, threads, and the plots."""

import gc
import threading

import numpy as np
import pytest

import lawutil
from lawutil import Law


def test_nothing_leaks_across_many_laws():
    def churn(i):
        f = Law(f"SIN({i % 7}*X)^2+X/{i % 5 + 1}")
        g = (f * f + i) / 2
        g(0.25)
        g(np.linspace(0, 1, 4))
        f.derivative()(0.5)
        try:
            Law("1/X")(0.0)
        except lawutil.LawError:
            pass
        if i % 100 == 0:    # the rarer objects: programs, data, curves, numerics, text
            g.compile()(np.ones(3))
            g.roots(0, 1)
            g.simplify_trace()
            lawutil.restore(lawutil.save(Law("CUR(LCURVE1)", data=[
                lawutil.curve(Law("VEC(X,X^2,0)"), 0, 1)])))
            lawutil.law_to_sw_curve(Law("VEC(X,X^2,0)"), 0, 1, 1e-3).knots

    churn(1)          # warm: first-use caches of the library and of NumPy
    gc.collect()
    start = (lawutil.live_laws(), lawutil.live_blocks())
    for i in range(100_000):
        churn(i)
    gc.collect()
    assert (lawutil.live_laws(), lawutil.live_blocks()) == start


def test_one_law_evaluated_from_many_threads():
    f = Law("EXP(-(X^2)/2)*SIN(3*X)+X^2")
    x = np.linspace(-3, 3, 200_001)
    expected = f(x)
    results, errors = [None] * 8, []

    def work(k):
        try:
            for _ in range(5):
                results[k] = f(x)
            f.derivative(order=2)(x)
        except Exception as e:  # pragma: no cover - reported below
            errors.append(e)

    threads = [threading.Thread(target=work, args=(k,)) for k in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors
    for r in results:
        np.testing.assert_array_equal(r, expected)


def test_plots_mark_roots_and_extrema(tmp_path):
    matplotlib = pytest.importorskip("matplotlib")
    matplotlib.use("Agg")
    ax = lawutil.plot(Law("X^3-X"), -2, 2)
    labels = {line.get_label(): line for line in ax.get_lines()}
    np.testing.assert_allclose(labels["roots"].get_xdata(), [-1, 0, 1], atol=1e-12)
    np.testing.assert_allclose(np.abs(labels["extrema"].get_xdata()), [3 ** -0.5] * 2)
    helix = Law("VEC(COS(X),SIN(X),X/10)")
    ax3 = lawutil.plot_frame(helix, lawutil.minrot(helix, [0, 0, 1], 0, 6), 0, 6, 12)
    ax3.figure.savefig(tmp_path / "frame.png")
    assert (tmp_path / "frame.png").stat().st_size > 0
