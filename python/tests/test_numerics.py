"""Derivatives, simplification, programs and the numerics against closed forms."""

import math

import numpy as np
import pytest

import lawutil
from lawutil import Law


def central(f, x, h=1e-5):
    return (f(x + h) - f(x - h)) / (2 * h)


def test_derivatives_match_finite_differences(grid, no_leaks):
    for text in ["SIN(X)^2+COS(X)", "EXP(-(X^2)/2)", "X^3-X", "LN(X)/X", "ARCTAN(X)*SQRT(X)"]:
        f = Law(text)
        d = f.derivative()
        np.testing.assert_allclose(d(grid), central(f, grid), rtol=1e-7, atol=1e-8)
        d3 = f.derivative(order=3)
        np.testing.assert_allclose(d3(grid), d.derivative().derivative()(grid), rtol=1e-12)
        assert f.nderiv(0.5) == pytest.approx(d(0.5), rel=1e-8)
    g = Law("X^2*Y+Y^3")
    assert g.derivative(wrt=1)(2.0, 3.0) == 4 + 27
    assert g.nderiv([2.0, 3.0], wrt=1) == pytest.approx(31.0, rel=1e-8)
    assert Law("X^3").derivative(order=0) == Law("X^3")


def test_simplify_polynomial_and_program(grid, no_leaks):
    law, trace = Law("SIN(X)^2+COS(X)^2").simplify_trace()
    assert law == Law("1") and "cos^2+sin^2=1" in trace
    f = Law("SIN(X)^2+COS(X)^2")
    assert f.simplify() == Law("1") and f.simplify(level=2) == Law("1")
    np.testing.assert_array_equal(Law("1+2*X+3*X^2").polynomial(), [1.0, 2.0, 3.0])
    assert Law("SIN(X)").polynomial() is None
    for text in ["X*X+1", "(X+1)/(X-1)", "VEC(COS(X),SIN(X),X/10)", "X+Y*2"]:
        law = Law(text)
        prog = law.compile()
        pts = np.stack([grid, 1 - grid], axis=-1) if law.take_dim == 2 else grid
        np.testing.assert_array_equal(prog(pts), law(pts))
        assert prog.input_count == law.take_dim and prog.output_count == law.return_dim


def test_roots_extrema_and_integrals(no_leaks):
    g = Law("X^3-X")
    np.testing.assert_allclose(g.roots(-2, 2), [-1.0, 0.0, 1.0], atol=1e-12)
    roots, count = Law("SIN(10*X)").roots(0, 10, count=True)
    assert len(roots) == 32 and count > 0
    np.testing.assert_allclose(roots, np.arange(32) * math.pi / 10, atol=1e-10)
    assert Law("X^2").solve(Law("X+2"), -5, 5).tolist() == pytest.approx([-1.0, 2.0])
    assert g.maximum(-1, 0) == pytest.approx(-1 / math.sqrt(3), abs=1e-8)
    assert g.minimum(0, 1) == pytest.approx(1 / math.sqrt(3), abs=1e-8)
    assert Law("X^2+1").roots(-1, 1).size == 0
    for text, a, b, exact in [("X^2", 0, 1, 1 / 3), ("SIN(X)", 0, math.pi, 2.0),
                              ("EXP(X)", 0, 1, math.e - 1), ("1/(1+X^2)", 0, 1, math.pi / 4)]:
        value, count = Law(text).integrate(a, b, count=True)
        assert value == pytest.approx(exact, abs=1e-10) and count > 0
    circle_line = Law("X^2+Y^2-1").roots2d(Law("X-Y"), -2, 2, -2, 2)
    np.testing.assert_allclose(circle_line, [[-0.5 ** 0.5] * 2, [0.5 ** 0.5] * 2], atol=1e-7)
    (u, v), value = Law("(X-1)^2+(Y+0.5)^2+3").minimum2d(-2, 2, -2, 2)
    assert (u, v, value) == pytest.approx((1.0, -0.5, 3.0), abs=1e-6)
    before = lawutil.evaluations()
    Law("X^2").integrate(0, 1)
    assert lawutil.evaluations() > before


def test_frames_and_sweep_curves(no_leaks):
    helix = Law("VEC(COS(X),SIN(X),X/10)")
    frame = lawutil.minrot(helix, [0, 0, 1], 0, 6)
    t = np.linspace(0, 6, 25)
    tangent = helix.derivative()(t)
    assert np.abs(np.sum(frame(t) * tangent, axis=1)).max() < 1e-9   # across the path
    np.testing.assert_allclose(np.linalg.norm(frame(t), axis=1), 1.0, rtol=1e-12)
    turned = lawutil.twist(helix, [0, 0, 1], Law("0*X"))
    np.testing.assert_allclose(turned(1.0), [0, 0, 1], atol=1e-15)
    curve = lawutil.law_to_sw_curve(helix, 0, 6, 1e-5)
    assert curve.reached and curve.deviation <= 1e-5 and curve.evaluations > 0
    n = len(curve.control_points)
    assert curve.control_points.shape == (n, 3) and curve.knots.shape == (n + curve.degree + 1,)
    assert np.all(np.diff(curve.knots) >= 0) and np.all(curve.weights > 0)
    for s in [0.0, 1.7, 6.0]:
        np.testing.assert_allclose(curve(s), helix(s), atol=1e-5)
    with pytest.raises(lawutil.LawError):
        lawutil.law_to_sw_curve(Law("X"), 0, 1)
