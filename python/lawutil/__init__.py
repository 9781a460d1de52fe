"""Laws from text, evaluated over NumPy arrays.

>>> import numpy as np, lawutil
>>> f = lawutil.Law("SIN(X)^2+COS(X)^2")
>>> f(np.linspace(0, 1, 5))          # compiled, batched, the GIL released
array([1., 1., 1., 1., 1.])
>>> f.simplify()
Law('1')
"""

from ._errors import LawError, LawSyntaxError
from ._lawutil import (Data, Law, Program, SwCurve, curve, evaluations, grid, law_to_sw_curve,
                       live_blocks, live_laws, minrot, restore, save, surface, transform, twist)
from ._plot import plot, plot_frame


def _restored(text):
    return restore(text)


def _law_reduce(law):
    # Pickled (and copied) as its saved text, data included; by a Python function, which
    # pickle can name.
    return _restored, (save(law),)


Law.__reduce__ = _law_reduce

__all__ = ["Law", "Program", "SwCurve", "Data", "LawError", "LawSyntaxError", "evaluations",
           "curve", "surface", "transform", "grid",
           "law_to_sw_curve", "live_blocks", "live_laws", "minrot", "twist", "restore",
           "save", "plot", "plot_frame"]
