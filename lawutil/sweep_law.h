#pragma once
// Frames for sweeping: laws that say, at every parameter of a path, which way a profile
// carried along the path faces.  MINROT propagates a vector along the path turning it as
// little as possible; TWIST turns a given frame vector about the path's tangent.
//
// Ownership as for every multiple law: the constructors take their own use of each part.

#include <lawutil/main_law.h>

class law_program;

/// The name of the option that gives the number of stored samples of a MINROT built
/// without an explicit count (default 1000).
inline constexpr const char* min_rot_samples_option_name = "min_rot_samples";
/// The name of the option that picks the step of a MINROT built from then on: 0 (the
/// default) the projection step below, 1 double reflection.
inline constexpr const char* min_rot_method_option_name = "min_rot_method";

/// MINROT(P, V) or MINROT(P, V, S, E): the rotation-minimising vector along the path P (one
/// parameter to a 3-D position), starting as V (evaluated once at 0) at the parameter S and
/// followed to E (both evaluated once at 1.0).  With two parts S and E are the ends of P's
/// domain, which must then be a finite interval (restrict P with DOMAIN).
///
/// At construction the vector is propagated over N samples t_i = S + i (E - S)/(N - 1),
/// one step from each sample to the next; a value at x is one step from the nearest
/// sample at or below x (clamped to the first and last).  A step from v at t0 to t1 is
///     r = ((T1 x v) x T1) / |(T1 x v) x T1|,   T1 = P'(t1),
/// v with its part along the new tangent removed; so with the refined step off the value
/// is always orthogonal to P'(x).  With set_alt_eval(1) each step may use instead the
/// rotation that carries P'(t0) onto P'(t1), applied to v, when that differs from r by
/// less than one degree (and the rotation is not about the chord itself).
///
/// Degenerate paths: where P' is the zero vector (a stationary point, a cusp) the step
/// keeps v as it is.  Raises LAW_MR_NUM for a part count other than 2 or 4, and for 2 parts
/// when P's domain is not a finite interval; LAW_MR when S or E is not finite or S = E
/// while there are several samples, when the vector becomes parallel to the tangent (it
/// has nothing left across it), and when evaluated at a parameter that is not finite.
/// Wrong part dimensions (P or V not 3 values, S or E not 1) report a toxic law.
class LAW_API min_rotation_law final : public multiple_law {
    LAW_IDENTITY(min_rotation_law, multiple_law)
    LAW_KEYWORD(min_rotation_law)
  public:
    /// `samples` below 1: the "min_rot_samples" option decides.  Null parts build the
    /// parser's prototype, without samples.
    min_rotation_law(law** subs, int size, int samples = 0);
    ~min_rotation_law() noexcept(false) override;
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    static int check(law** subs, int size);

    /// Selects the refined step (non-zero) or the plain one and propagates the samples
    /// again with it, so that every sample is made by the same kind of step.  Not to be
    /// called while other threads evaluate the law.
    void set_alt_eval(int alt);
    int alt_eval() const { return alt_eval_; }
    /// Selects double reflection (1) or the projection step (0) and propagates the samples
    /// again with it.  Double reflection (Wang, Juttler, Zheng and Liu, 2008) reflects v
    /// in the plane normal to the chord and again in the plane normal to the difference of
    /// the tangents; its error is of the fourth order in the step (a helix sampled 1000
    /// times stays within 1e-12 rad of its exact rotation-minimising frame, where the
    /// projection step drifts by milliradians).  The refined step applies only to the
    /// projection step.  It reads the path itself at x as well as its tangent, so a path
    /// restricted by DOMAIN raises beyond its ends.  A rebuild keeps the method.  Not to
    /// be called while other threads evaluate the law.
    void set_min_rot_method(int method);
    int min_rot_method() const { return method_; }
    int sample_count() const { return sample_count_; }

  protected:
    /// d/dx: D(MINROT(...)) over a new MINROT of the same parts (its sample count from the
    /// option); the rate of that one is the exact derivative of its plain step from the
    /// stored sample.  Zero for any other variable.
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
    int take_size() const override { return 1; }

  private:
    struct build;
    min_rotation_law(build&& b, bool rate_from_steps);
    friend class min_rotation_rate_law;

    double start() const;
    double end() const;
    void compile_steps();
    bool step_compiled(const QEM::vector& v, double t0, double t1, const double* node,
                       bool unit_start, QEM::vector* r) const;

    law* tangent_ = nullptr;  ///< P', held for the steps
    /// The laws a step evaluates (P', and P for the refined step) as one program, for a
    /// law sampled often enough that compiling pays; null otherwise.
    law_program* steps_ = nullptr;
    int alt_eval_ = 0;
    int method_ = 0;  ///< 1: double reflection
    int sample_count_ = 0;
    double* samples_ = nullptr;  ///< 3 doubles a sample
    double* nodes_ = nullptr;    ///< double reflection: P and P' at each sample, 6 doubles
    bool rate_from_steps_ = false;
};

/// TWIST(P, F, A): the frame vector F turned about the unit tangent of the path P by the
/// angle A (radians, right-handed about the direction of travel), all three read at the
/// same input:
///     out = F cos A + (t x F) sin A + t (t . F)(1 - cos A),   t = P' / |P'|.
/// F across the tangent stays across it.  Where P' is the zero vector t is the zero vector
/// and out = F cos A + 0: the turn has no axis.  Raises LAW_TWIST_NUM for a count other
/// than 3; a P or F not of 3 values or an A not of 1 reports a toxic law.  The derivative
/// is that of the same formula written as a tree.
class LAW_API twist_path_law final : public multiple_law {
    LAW_IDENTITY(twist_path_law, multiple_law)
    LAW_KEYWORD(twist_path_law)
  public:
    twist_path_law(law** subs, int size);
    ~twist_path_law() noexcept(false) override;
    law* make_one(law** subs, int size) const override;
    void evaluate(const double* x, double* answer) const override;
    static int check(law** subs, int size);

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }

  private:
    /// Takes over the caller's use of `tangent`.
    twist_path_law(law* tangent, law** subs, int size);
    law* tangent_ = nullptr;  ///< P', held for evaluation
};
