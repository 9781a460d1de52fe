"""Type stubs of the lawutil package: laws from text, evaluated over NumPy arrays."""

from typing import Any, Iterable, Literal, Optional, Sequence, Tuple, Union, overload

import numpy as np
import numpy.typing as npt

_Number = Union[float, int]
_LawLike = Union["Law", _Number, str]
_Array = npt.NDArray[np.float64]
_Nan = Literal["raise", "propagate"]


class LawError(Exception):
    """An error of the law library: `code` ("LAW_ZERODIVIDE"...), `message`, `number`."""
    code: str
    message: str
    number: int
    def __init__(self, code: str, message: str, number: int = ...) -> None: ...


class LawSyntaxError(LawError):
    """A formula that does not read; `offset` is where in `text` it failed."""
    text: str
    offset: int
    def __init__(self, message: str, text: str = ..., offset: int = ...) -> None: ...


class Law:
    """A law: a function of `take_dim` variables to `return_dim` values."""
    def __init__(self, text: Union[str, _Number],
                 data: Optional[Iterable[Union[_LawLike, "Data"]]] = ...,
                 *, strict: bool = ...) -> None:
        """Reads a formula; LAW1, LAW2... are the laws of `data`.  `strict` refuses texts
        read only by a lenient rule of the language."""
    @property
    def take_dim(self) -> int: ...
    @property
    def return_dim(self) -> int: ...
    @property
    def variables(self) -> Tuple[str, ...]:
        """The letters of the variables the law reads, in input order."""
    # A NaN input raises LawError unless nan="propagate".
    @overload
    def __call__(self, x: _Number, *, nan: _Nan = ...) -> Union[float, _Array]: ...
    @overload
    def __call__(self, *point: _Number, nan: _Nan = ...) -> Union[float, _Array]: ...
    @overload
    def __call__(self, x: npt.ArrayLike, *, nan: _Nan = ...) -> _Array: ...
    @overload
    def __call__(self, *arrays: npt.ArrayLike, nan: _Nan = ...) -> _Array: ...
    def __add__(self, other: _LawLike) -> "Law": ...
    def __radd__(self, other: _LawLike) -> "Law": ...
    def __sub__(self, other: _LawLike) -> "Law": ...
    def __rsub__(self, other: _LawLike) -> "Law": ...
    def __mul__(self, other: _LawLike) -> "Law": ...
    def __rmul__(self, other: _LawLike) -> "Law": ...
    def __truediv__(self, other: _LawLike) -> "Law": ...
    def __rtruediv__(self, other: _LawLike) -> "Law": ...
    def __pow__(self, other: _LawLike) -> "Law": ...
    def __rpow__(self, other: _LawLike) -> "Law": ...
    def __neg__(self) -> "Law": ...
    def __eq__(self, other: object) -> bool: ...
    def __ne__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...
    def derivative(self, wrt: int = ..., order: int = ...) -> "Law":
        """The order-th partial derivative with respect to variable `wrt` (cached)."""
    def simplify(self, level: Optional[int] = ...) -> "Law":
        """The simplified law (level 1 by default)."""
    def simplify_trace(self, level: Optional[int] = ...) -> Tuple["Law", str]:
        """The simplified law and the text of the rules that fired."""
    def compile(self) -> "Program":
        """The law compiled to a flat program, callable like the law."""
    def polynomial(self) -> Optional[_Array]:
        """Coefficients c[k] of X^k when the law is a polynomial in X, else None."""
    # Each numeric method returns (result, evaluations) when count is true.
    def roots(self, a: float, b: float, count: bool = ...) -> Any:
        """Every root on [a, b], ascending (an array)."""
    def solve(self, g: _LawLike, a: float, b: float, count: bool = ...) -> Any:
        """Every x in [a, b] where the law equals g (an array)."""
    def maximum(self, a: float, b: float, count: bool = ...) -> Any:
        """The x in [a, b] where the law is largest."""
    def minimum(self, a: float, b: float, count: bool = ...) -> Any:
        """The x in [a, b] where the law is smallest."""
    def integrate(self, a: float, b: float, tol: float = ..., count: bool = ...) -> Any:
        """The integral from a to b."""
    def nderiv(self, x: Union[_Number, Sequence[float]], order: int = ..., wrt: int = ...,
               count: bool = ...) -> Any:
        """The order-th derivative at x by finite differences."""
    def roots2d(self, g: _LawLike, u0: float, u1: float, v0: float, v1: float,
                cells: int = ..., count: bool = ...) -> Any:
        """Common roots of the law and g in a box, shape (n, 2)."""
    def minimum2d(self, u0: float, u1: float, v0: float, v1: float, samples: int = ...,
                  count: bool = ...) -> Any:
        """((u, v), value) at the smallest value in a box."""


class Program:
    """A law compiled to a flat program; callable like the law."""
    input_count: int
    output_count: int
    instruction_count: int
    tree_instruction_count: int
    def __call__(self, *args: Any, nan: _Nan = ...) -> Union[float, _Array]: ...


class SwCurve:
    """A rational B-spline fitted to a path law by law_to_sw_curve."""
    degree: int
    knots: _Array
    control_points: _Array
    weights: _Array
    reached: bool
    deviation: float
    evaluations: int
    def __call__(self, t: float) -> _Array: ...


class Data:
    """Law data (curve, surface, transform, grid): pass it to Law(text, data=[...])."""
    symbol: str


def curve(law: _LawLike, start: float, end: float) -> Data:
    """The curve t -> law(t) on [start, end] as data (LCURVE)."""
def surface(law: _LawLike, u_range: Tuple[float, float], v_range: Tuple[float, float]) -> Data:
    """The surface (u, v) -> law(u, v) as data (LSURFACE)."""
def transform(matrix: npt.ArrayLike, translation: npt.ArrayLike) -> Data:
    """A rigid transform as data (TRANSFORM): p goes to p @ matrix + translation."""
def grid(positions: npt.ArrayLike) -> Data:
    """A grid of positions, shape (..., 3), as data (GRID)."""
def law_to_sw_curve(law: Law, a: float, b: float, tol: float = ...) -> SwCurve:
    """A B-spline within `tol` of a path law (one variable to 3 values) on [a, b]."""
def minrot(path: _LawLike, v0: Union[Law, Sequence[float]], a: float, b: float,
           samples: int = ...) -> Law:
    """The rotation-minimising vector along `path`, v0 at a, followed to b."""
def twist(path: _LawLike, frame: Union[Law, Sequence[float]], angle: _LawLike) -> Law:
    """The frame vector turned about the path's tangent by `angle`."""
def save(law: Law) -> str:
    """The law with its data as text."""
def restore(text: str) -> Law:
    """A law read back from save()."""
def evaluations() -> int:
    """Law evaluations made by the numerics in the calling thread so far."""
def live_laws() -> int:
    """Number of law objects alive in the process."""
def live_blocks() -> int:
    """Number of the library's heap blocks alive."""
def plot(law: Law, a: float, b: float, ax: Any = ..., n: int = ...) -> Any:
    """Plots a scalar law on [a, b], roots as circles and extrema as squares."""
def plot_frame(path: Law, frame: Law, a: float, b: float, n: int = ..., ax: Any = ...,
               scale: Optional[float] = ...) -> Any:
    """Draws a path in 3-D with its frame vectors at n points."""
