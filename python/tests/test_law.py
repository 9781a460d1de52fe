"""Laws as Python objects: values, shapes, errors, operators and text."""

import copy
import math
import pickle

import numpy as np
import pytest

import lawutil
from lawutil import Law, LawError, LawSyntaxError

ELEMENTARY = [
    ("SIN(X)", np.sin), ("COS(X)", np.cos), ("TAN(X)", np.tan), ("EXP(X)", np.exp),
    ("LN(X)", np.log), ("SQRT(X)", np.sqrt), ("ABS(X-0.5)", lambda x: np.abs(x - 0.5)),
    ("SINH(X)", np.sinh), ("COSH(X)", np.cosh), ("TANH(X)", np.tanh),
    ("ARCSIN(X)", np.arcsin), ("ARCCOS(X)", np.arccos), ("ARCTAN(X)", np.arctan),
    ("X^2.5", lambda x: x ** 2.5), ("EXP(-(X^2)/2)/SQRT(2*PI)",
                                    lambda x: np.exp(-x * x / 2) / np.sqrt(2 * np.pi)),
]


@pytest.mark.parametrize("text,ref", ELEMENTARY)
def test_elementary_values_match_numpy(text, ref, grid, no_leaks):
    f = Law(text)
    np.testing.assert_allclose(f(grid), ref(grid), rtol=1e-14, atol=1e-15)
    assert isinstance(f(0.3), float)
    assert f(0.3) == pytest.approx(float(ref(np.array(0.3))), rel=1e-14)


def test_shapes(no_leaks):
    f, p, h = Law("X*X"), Law("VEC(COS(X),SIN(X),X/10)"), Law("X+2*Y")
    x = np.arange(24.0).reshape(2, 3, 4)
    assert f(x).shape == (2, 3, 4) and np.array_equal(f(x), x * x)
    v = p(np.array([0.0, 1.0]))
    assert v.shape == (2, 3)
    np.testing.assert_allclose(v[1], [math.cos(1), math.sin(1), 0.1])
    assert p(x).shape == (2, 3, 4, 3)
    assert p(0.5).shape == (3,)
    pts = np.array([[1.0, 2.0], [3.0, 4.0], [5.0, 6.0]])
    np.testing.assert_array_equal(h(pts), [5.0, 11.0, 17.0])
    np.testing.assert_array_equal(h(pts[:, 0], 2.0), [5.0, 7.0, 9.0])   # arrays broadcast
    assert h(pts.reshape(3, 1, 2)).shape == (3, 1)
    assert h(1.0, 2.0) == 5.0
    assert Law("2")(np.zeros(4)).tolist() == [2.0] * 4
    assert f(np.array([3], dtype=np.int32)).tolist() == [9.0]   # any dtype is cast
    assert f(x[:, ::2, 1]).shape == (2, 2)                      # strided input
    assert f(np.array([])).shape == (0,) and p(np.zeros((0, 2))).shape == (0, 2, 3)


def test_errors_raise_law_error(no_leaks):
    cases = [
        (lambda: Law("SQRT(X)")(np.array([1.0, -1.0])), "LAW_SQRT"),
        (lambda: Law("1/X")(0.0), "LAW_ZERODIVIDE"),
        (lambda: Law("1/X")(np.array([1.0, 0.0])), "LAW_ZERODIVIDE"),
        (lambda: Law("X+Y")(np.zeros(3)), "LAW_DIM"),
        (lambda: Law("X+Y")(1.0, 2.0, 3.0), "LAW_DIM"),
        (lambda: Law("X")(np.zeros(2), np.zeros(2)), "LAW_DIM"),
        (lambda: Law("X").derivative(order=-1), "LAW_DERIV"),
        (lambda: Law("LN(X)")(np.r_[np.ones(5000), np.nan]), "LAW_BAD_BOUNDS"),
        (lambda: Law("X+Y")(1.0, math.nan), "LAW_BAD_BOUNDS"),
        (lambda: Law("X").compile()(np.array([math.nan])), "LAW_BAD_BOUNDS"),
    ]
    for call, code in cases:
        with pytest.raises(LawError) as info:
            call()
        assert info.value.code == code and info.value.message
    with pytest.raises(LawError, match="point 5000"):
        Law("X")(np.r_[np.ones(5000), np.nan])
    assert np.isnan(Law("SQRT(X)")(np.array([math.nan]), nan="propagate")).all()
    with pytest.raises(TypeError):
        Law("X")(1.0, nans="propagate")
    with pytest.raises(TypeError):
        Law("X") + [1]


def test_syntax_errors_carry_offset_and_caret(no_leaks):
    cases = [("SIN(X", "missing ')'", 5), ("SIN(X+*", "bad syntax at *", 6),
             ("2(X+1)", None, 1), ("X Y", None, 2)]
    for text, message, offset in cases:
        with pytest.raises(LawSyntaxError) as info:
            Law(text)
        e = info.value
        assert e.offset == offset and e.code == "LAW_SYNTAX" and isinstance(e, LawError)
        assert message is None or e.message == message
        assert str(e).splitlines()[-1] == "  " + " " * offset + "^"
    assert str(Law("SIN(X", strict=False)) == "SIN(X)"    # the language's own reading
    with pytest.raises(LawSyntaxError):                      # never a law with a hole
        Law("X*(X", strict=False)


def test_operators_text_and_equality(no_leaks):
    x = Law("X")
    cases = [(x + 1, 3.0), (1 + x, 3.0), (x - 5, -3.0), (5 - x, 3.0), (x * 3, 6.0),
             (3 * x, 6.0), (x / 4, 0.5), (4 / x, 2.0), (x ** 3, 8.0), (3 ** x, 9.0),
             (-x, -2.0), (x * x + Law("SIN(X)"), 4 + math.sin(2.0))]
    for law, value in cases:
        assert law(2.0) == pytest.approx(value, rel=1e-15)
        assert Law(str(law)) == law                          # text reads back equal
        assert repr(law) == f"Law('{law}')"
    assert Law("X*X+1") == Law("X*X+1") and Law("X*X+1") != Law("X*X+2")
    assert hash(Law("SIN(X)^2")) == hash(Law("SIN(X)^2"))
    assert len({Law("X+1"), Law("X+1"), Law("X+2")}) == 2
    assert Law("2") == 2 and hash(Law("2")) == hash(2) and (Law("X") == "X") is False


def test_dimensions_and_variables(no_leaks):
    for text, take, ret, names in [("X", 1, 1, ("X",)), ("X+Z", 3, 1, ("X", "Z")),
                                   ("VEC(X,Y,1)", 2, 3, ("X", "Y")), ("7", 0, 1, ())]:
        f = Law(text)
        assert (f.take_dim, f.return_dim, f.variables) == (take, ret, names)


def test_data_laws_save_and_restore(no_leaks):
    f = Law("LAW1+LAW2*X", data=[Law("X^2"), "COS(X)"])
    assert f(0.5) == pytest.approx(0.25 + 0.5 * math.cos(0.5))
    for law in [f, Law("VEC(COS(X),SIN(X),X/10)"), Law("X^3-X")]:
        back = lawutil.restore(lawutil.save(law))
        np.testing.assert_array_equal(back(np.linspace(0, 1, 5)), law(np.linspace(0, 1, 5)))
    pickled = pickle.loads(pickle.dumps(f))
    assert pickled(0.5) == f(0.5) and copy.deepcopy(f)(0.5) == f(0.5)
    with pytest.raises(LawError):
        lawutil.restore("not a saved law")


def test_geometry_data(no_leaks):
    parabola = lawutil.curve(Law("VEC(X,X^2,0)"), 0, 1)
    cur = Law("CUR(LCURVE1)", data=[parabola])
    np.testing.assert_array_equal(cur(np.array([0.5])), [[0.5, 0.25, 0.0]])
    np.testing.assert_array_equal(cur.derivative()(0.5), [1.0, 1.0, 0.0])
    back = lawutil.restore(lawutil.save(cur + Law("VEC(1,2,3)")))
    np.testing.assert_array_equal(back(0.5), [1.5, 2.25, 3.0])
    quarter = lawutil.transform([[0, -1, 0], [1, 0, 0], [0, 0, 1]], [1, 2, 3])
    saddle = lawutil.surface(Law("VEC(X,Y,X*Y)"), (0, 1), (-1, 1))
    g = Law("SURF(LSURFACE1)+TRANS(LAW2,TRANSFORM3)", data=[saddle, "VEC(X,1,0)", quarter])
    np.testing.assert_allclose(g(0.5, 0.25), [0.5 + 1 + 1, 0.25 - 0.5 + 2, 0.125 + 3])
    assert (parabola.symbol, saddle.symbol, lawutil.grid(np.zeros((2, 2, 3))).symbol) == \
        ("LCURVE", "LSURFACE", "GRID")
    for bad in [lambda: lawutil.curve(Law("X"), 0, 1), lambda: lawutil.grid(np.zeros(3)),
                lambda: lawutil.transform(np.eye(2), [0, 0])]:
        with pytest.raises(LawError):
            bad()
    with pytest.raises(TypeError):
        Law("LAW1+LAW2", data=[Law("X"), [1]])     # what was taken is given back
