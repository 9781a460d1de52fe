#pragma once
// Deformations: laws that carry the value of a law (a point, a parameter pair) to a new
// place: frame changes and scalings (SCALETRANS, VECTRANS, POSTRANS, SURFVEC), whose other
// parts are laws read at the same input, and warps of space onto curved shapes (BEND,
// UNBEND, CYCLIDE, CYCLIDE_PERP, DCYCLIDE, CONIC_LINE, CONIC_TROUGH_LINE), whose other
// parts are constants, evaluated once when the law is built (at the point 0).
//
// Each is defined by an equivalent tree of simpler laws, built once with the law: it
// evaluates that tree, and its derivatives are the tree's (symbolic, chain rule through f).
// Ownership as for every multiple law: the constructors take their own use of each part.
// Below, f is the first part and p = f(x) its value; a hat marks a normalised vector.

#include <lawutil/main_law.h>

/// The common frame of the deformation laws: a multiple law whose value is the value of
/// the tree `expansion()` (null for the parser's prototype and for a law with a part
/// missing, which prints and raises LAW_EVAL when evaluated).
class LAW_API formula_law : public multiple_law {
  public:
    void evaluate(const double* x, double* answer) const override;
    /// The equivalent tree (borrowed), or null.
    const law* expansion() const { return expansion_; }

  protected:
    /// Takes over the caller's use of `expansion`.
    formula_law(law* expansion, law** subs, int size);
    ~formula_law() noexcept(false) override;
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override;

  private:
    law* expansion_;
};

#define LAW_FORMULA_CLASS(cls)                              \
    class LAW_API cls final : public formula_law {          \
        LAW_IDENTITY(cls, formula_law)                      \
        LAW_KEYWORD(cls)                                    \
      public:                                               \
        cls(law** subs, int size);                          \
        law* make_one(law** subs, int size) const override; \
    };

/// SCALETRANS(f, s) and SCALETRANS(f, s, c): scaling about the centre c (the origin when
/// omitted), p -> c + s (p - c); s of one value scales uniformly, s of three values scales
/// each axis by its own factor.  Raises LAW_SCALE_NUM for a count other than 2 or 3.
LAW_FORMULA_CLASS(scaletrans_law)

/// VECTRANS(f, x, y): the vector p expressed in the frame of the axes x and y,
///     p -> p1 x^ + p2 y^ + p3 z^,   z^ = (x X y)^,  y^ = z^ X x^,
/// (y need only be independent of x: it is made orthogonal to it).  Where x and y are
/// parallel z^ and y^ are the zero vector and only p1 x^ is left, without an error.
/// Raises LAW_VEC_NUM for a count other than 3.
LAW_FORMULA_CLASS(vectrans_law)

/// POSTRANS(f, o, x, y): the point p placed in the frame with origin o and the axes of
/// VECTRANS: p -> o + p1 x^ + p2 y^ + p3 z^.  Raises LAW_POS_NUM for a count other than 4.
LAW_FORMULA_CLASS(postrans_law)

/// SURFVEC(S, w): the tangent vector of the surface S(u, v) (its first two inputs) in the
/// parameter direction w = (w1, w2): w1 dS/du + w2 dS/dv.  Raises LAW_DIM for a count
/// other than 2.
LAW_FORMULA_CLASS(surfvec_law)

/// BEND(f, r, a, d, R): bends space about the axis a so that the plane through the root r
/// spanned by a and d wraps onto the cylinder of radius R whose axis, parallel to a, passes
/// through r + R n^.  With a^, d^ (d made orthogonal to a), n^ = a^ X d^ and q = p - r:
///     u = q.d^, w = q.n^, h = q.a^, theta = u / R,
///     p -> r + R n^ + (R - w)(sin(theta) d^ - cos(theta) n^) + h a^.
/// Lengths along d in the plane are kept (the plane is bent, not stretched); near r the
/// map is the identity to first order.  A negative R bends towards -n^.  Raises
/// LAW_BEND_PARALLEL when a and d are parallel (or one is zero), LAW_ZERODIVIDE for R = 0,
/// LAW_DIM for a count other than 5.
LAW_FORMULA_CLASS(bend_law)

/// UNBEND(f, r, a, d, R): the inverse of BEND with the same parts.  With the axis centre
/// m = r + R n^, q = p - m, s = sign(R) and rho = |(q.d^, q.n^)|:
///     theta = atan2(s q.d^, -s q.n^), w = R - s rho,
///     p -> r + R theta d^ + w n^ + (q.a^) a^,
/// for points within half a turn of the root (|theta| < pi).  Errors as for BEND.
LAW_FORMULA_CLASS(unbend_law)

/// CYCLIDE(f, a, c, mu): the parameter pair (u, v) = (p1, p2) carried onto the Dupin
/// cyclide of the constants a > |c| and mu, with b^2 = a^2 - c^2 and
/// D = a - c cos u cos v:
///     x = (mu (c - a cos u cos v) + b^2 cos u) / D,
///     y = b sin u (a - mu cos v) / D,
///     z = b sin v (c cos u - mu) / D.
/// c = 0 gives the torus of radii a and mu.  Raises LAW_BAD_RANGE when a <= |c| and
/// LAW_DIM for a count other than 4.
LAW_FORMULA_CLASS(cyclide_law)

/// CYCLIDE_PERP(f, a, c, mu): the unit normal of the same cyclide at (u, v),
/// (dP/du X dP/dv)^, the zero vector where the cyclide is singular.  Errors as for CYCLIDE.
LAW_FORMULA_CLASS(cyclide_perp_law)

/// DCYCLIDE(f, a, c, mu): the first partial derivatives of the same cyclide at (u, v),
/// six values: dP/du, then dP/dv.  Errors as for CYCLIDE.
LAW_FORMULA_CLASS(dcyclide_law)

/// CONIC_LINE(f, p0, p1, p2, rho): the parameter t = p1 carried onto the conic arc from
/// p0 (t = 0) to p2 (t = 1) inside the triangle with apex p1, of shape rho in (0, 1)
/// (below 1/2 an ellipse, 1/2 a parabola, above a hyperbola), with w = rho / (1 - rho):
///     t -> ((1-t)^2 p0 + 2 w t (1-t) p1 + t^2 p2) / ((1-t)^2 + 2 w t (1-t) + t^2).
/// Raises LAW_BAD_RANGE for rho outside (0, 1) and LAW_DIM for a count other than 5.
LAW_FORMULA_CLASS(conic_line_law)

/// CONIC_TROUGH_LINE(f, p0, p1, p2, rho, e): the trough over that conic along the
/// direction e: (t, s) = (p1, p2) -> C(t) + s e.  Errors as for CONIC_LINE, LAW_DIM for a
/// count other than 6.
LAW_FORMULA_CLASS(conic_trough_line_law)

#undef LAW_FORMULA_CLASS
