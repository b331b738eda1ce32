// Point-match transforms between two spaces "a" and "b", fitted by least squares to
// corresponding points and kept in both directions: the 2-D affine mv2PtMatchTm, the 2-D
// perspective mv2PTm and the 3-D affine mv3PtMatchTm.
#pragma once

#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/fitter.h"
#include "mvbase/geometry.h"
#include "ptmatch/export.h"
#include "ptmatch/pinv.h"

/// A 2-D affine transform from plane a to plane b, fitted to point pairs and editable.
/// Invariant: after every public operation b2a is the inverse of a2b.
/// The parameters in set_ order are a00, a01, tx, a10, a11, ty:
/// b.x = a00 a.x + a01 a.y + tx, b.y = a10 a.x + a11 a.y + ty.
class PTMATCH_API mv2PtMatchTm {
 public:
  /// The two point lists differ in length.
  class PTMATCH_API BadArgs : public mvErrorOf<BadArgs, mvExceptionWithString> {
   public:
    BadArgs();
  };

  /// The identity, with no pairs.
  mv2PtMatchTm();
  /// Fitted to the pairs (a[i], b[i]) with the given degrees of freedom (see fit(long)).
  mv2PtMatchTm(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b, long dof);
  /// The given transform as a2b, with no pairs. A singular a2b throws mvMathError.
  mv2PtMatchTm(const mvXform<2>& a2b);  // NOLINT: converts implicitly, as a value should
  /// Copies both transforms and the pairs.
  mv2PtMatchTm(const mv2PtMatchTm&) = default;
  /// Copies both transforms and the pairs.
  mv2PtMatchTm& operator=(const mv2PtMatchTm&) = default;

  /// Adds the pair a -> b.
  void update(const mvVector<2>& a, const mvVector<2>& b);
  /// Adds the pairs (a[i], b[i]) in index order; throws BadArgs, adding nothing, when the
  /// lists differ in length.
  void update(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b);
  /// Fits a2b to the pairs. dof 3 rigid, 4 similarity, 5 two axis scales, 6 affine, each
  /// tried once; below 3 the first of 6, 5, 4, 3 that succeeds (the error of 3 passes on).
  /// A failed fit leaves the transform unchanged.
  void fit(long dof);
  /// identity(), update(a, b), fit(dof).
  void fit(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b, long dof);
  /// Forgets the pairs; the transform is kept.
  void reset();
  /// Both transforms become the identity and the pairs are forgotten.
  void identity();

  /// Rotates in plane a, before the transform; forgets the pairs.
  void rotate(mvRadian angle);
  /// Translates in plane a: the new a2b(p) is the old a2b(p + v); keeps the pairs.
  void translate(const mvVector<2>& v);
  /// Scales plane a by s.x and s.y, before the transform; forgets the pairs.
  void scale(const mvVector<2>& s);
  /// scale(mvVector<2>(s, s)).
  void scale(double s);
  /// Applies other first, then this transform; forgets the pairs.
  void concat(const mv2PtMatchTm& other);
  /// Applies this transform first, then other; forgets the pairs.
  void append(const mv2PtMatchTm& other);

  /// Maps a point from a to b.
  mvVector<2> a2b(const mvVector<2>& p) const;
  /// Maps a point from a to b into out.
  void a2b(const mvVector<2>& p, mvVector<2>& out) const;
  /// Maps a point from b to a.
  mvVector<2> b2a(const mvVector<2>& p) const;
  /// Maps a point from b to a into out.
  void b2a(const mvVector<2>& p, mvVector<2>& out) const;
  /// Maps a direction from a to b: the angle of the image of the unit vector at angle.
  mvRadian a2b(mvRadian angle) const;
  /// Maps a direction from b to a.
  mvRadian b2a(mvRadian angle) const;

  /// The transform from a to b.
  const mvXform<2>& a2bXform() const { return a2b_; }
  /// The transform from b to a.
  const mvXform<2>& b2aXform() const { return b2a_; }

  /// True when the a2b transforms are equal (pairs and b2a are not compared).
  bool operator==(const mv2PtMatchTm& other) const;
  /// True when a2b equals the given transform.
  bool operator==(const mvXform<2>& other) const;

  /// The identity.
  static const mv2PtMatchTm I;

  /// Persists: version 1100, a2b, b2a (the pairs are not persisted, nor touched on load).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv2PtMatchTm& tm);

 protected:
  /// Sets a2b from its six parameters; b2a is left for sync_.
  void set_(double a00, double a01, double tx, double a10, double a11, double ty);
  /// Recomputes b2a as the inverse of a2b (mvMathError when a2b is singular).
  void sync_();
  /// The composition applying first, then second.
  static mvXform<2> concat_(const mvXform<2>& first, const mvXform<2>& second);

 private:
  /// Replaces the whole object by mv2PtMatchTm(a2b): the edits that forget the pairs.
  void replaceBy_(const mvXform<2>& a2b);

  mvLSPointToPointFitter pairs_;  ///< the pairs added since the last identity or reset
  mvXform<2> a2b_;                ///< from plane a to plane b
  mvXform<2> b2a_;                ///< the inverse of a2b_
};

/// Persists a 2-D point-match transform.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mv2PtMatchTm& tm);

/// A 2-D perspective transform from plane a to plane b with eight parameters h0 ... h7:
/// w = h6 x + h7 y + 1, b = ((h0 x + h1 y + h2) / w, (h3 x + h4 y + h5) / w).
/// The inverse and every edit are found by mapping a few sample points and refitting.
class PTMATCH_API mv2PTm {
 public:
  /// The two point lists differ in length.
  class PTMATCH_API BadArgs : public mvErrorOf<BadArgs, mvExceptionWithString> {
   public:
    BadArgs();
  };

  /// The identity, with empty sums.
  mv2PTm();
  /// Fitted to the pairs (a[i], b[i]).
  mv2PTm(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b);
  /// The affine transform of tm, with empty sums.
  explicit mv2PTm(const mv2PtMatchTm& tm);
  /// Copies both parameter sets and the sums.
  mv2PTm(const mv2PTm&) = default;
  /// Copies both parameter sets and the sums.
  mv2PTm& operator=(const mv2PTm&) = default;
  ~mv2PTm();

  /// Adds the pair a -> b (two linearised observations).
  void update(const mvVector<2>& a, const mvVector<2>& b);
  /// Adds the pairs (a[i], b[i]) in index order; throws BadArgs, adding nothing, when the
  /// lists differ in length.
  void update(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b);
  /// Solves a2b from the accumulated sums (which are kept), then refits b2a.
  void fit();
  /// identity(), update(a, b), fit().
  void fit(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b);
  /// Both directions become the identity and the sums are emptied.
  void identity();

  /// Rotates plane a before the transform (by refitting); the sums are kept.
  void rotate(mvRadian angle);
  /// Translates plane a before the transform (by refitting); the sums are kept.
  void translate(const mvVector<2>& v);
  /// Scales plane a before the transform (by refitting); the sums are kept.
  void scale(const mvVector<2>& s);

  /// Maps a point from a to b (no test for the vanishing line).
  mvVector<2> a2b(const mvVector<2>& p) const;
  /// Maps a point from a to b into out.
  void a2b(const mvVector<2>& p, mvVector<2>& out) const;
  /// Maps a point from b to a.
  mvVector<2> b2a(const mvVector<2>& p) const;
  /// Maps a point from b to a into out.
  void b2a(const mvVector<2>& p, mvVector<2>& out) const;

  /// The best affine approximation of a2b, fitted to 36 sample points.
  mvXform<2> a2bXform() const;
  /// The same approximation as a point-match transform, with its 36 pairs.
  mv2PtMatchTm a2bTm() const;

  /// The identity.
  static const mv2PTm I;

  /// Persists: version 1100, a2b[i] and b2a[i] interleaved for i = 0 ... 7, the fitter.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv2PTm& tm);

 protected:
  /// Refits b2a from the images of five sample points.
  void sync_();

 private:
  static constexpr int kParams = 8;
  /// Replaces a2b by the refit of a2b after the edit held by edit (applied first).
  void applyEdit_(const mv2PtMatchTm& edit);

  double a2b_[kParams];     ///< forward parameters h0 ... h7
  double b2a_[kParams];     ///< inverse parameters, same layout
  mvPsuedoInverse fitter_;  ///< normal equations of the pairs since the last identity
};

/// Persists a 2-D perspective transform.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mv2PTm& tm);

/// A 3-D affine transform from space a to space b: a 3 x 4 matrix stored row by row, row r
/// (m_r0, m_r1, m_r2, t_r), so that b_r = m_r0 a.x + m_r1 a.y + m_r2 a.z + t_r.
/// Rotations and scaling act on the linear part from the b side and leave the translation
/// unchanged; translate acts in space a.
class PTMATCH_API mv3PtMatchTm {
 public:
  /// The two point lists differ in length.
  class PTMATCH_API BadArgs : public mvErrorOf<BadArgs, mvExceptionWithString> {
   public:
    BadArgs();
  };

  /// The identity, with three empty fitters of 4 parameters.
  mv3PtMatchTm();
  /// Fits while the three fitters still have 0 parameters, then sizes them to 4 (empty).
  /// The fit of empty fitters solves nothing: the transform is then the identity. A caller
  /// that needs a fitted transform default-constructs one and calls fit(a, b).
  mv3PtMatchTm(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b);
  /// Copies both transforms and the three fitters.
  mv3PtMatchTm(const mv3PtMatchTm&) = default;
  /// Copies both transforms and the three fitters.
  mv3PtMatchTm& operator=(const mv3PtMatchTm&) = default;
  ~mv3PtMatchTm();

  /// Adds the pair a -> b.
  void update(const mvVector<3>& a, const mvVector<3>& b);
  /// Adds the pairs (a[i], b[i]) in index order; throws BadArgs, adding nothing, when the
  /// lists differ in length.
  void update(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b);
  /// Solves the x, y and z rows from the sums (which are kept), then inverts.
  void fit();
  /// identity(), update(a, b), fit().
  void fit(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b);
  /// Both directions become the identity and the fitters are emptied.
  void identity();

  /// Rotates the linear part about the x axis (b side); the translation is kept.
  void rotateOnX(mvRadian angle);
  /// Rotates the linear part about the y axis (b side); the translation is kept.
  void rotateOnY(mvRadian angle);
  /// Rotates the linear part about the z axis (b side); the translation is kept.
  void rotateOnZ(mvRadian angle);
  /// Translates space a: the new a2b(p) is the old a2b(p + v).
  void translate(const mvVector<3>& v);
  /// Scales the linear part by s.x, s.y, s.z (b side); the translation is kept.
  void scale(const mvVector<3>& s);
  /// scale(mvVector<3>(s, s, s)).
  void scale(double s);

  /// Maps a point from a to b.
  mvVector<3> a2b(const mvVector<3>& p) const;
  /// Maps a point from a to b into out.
  void a2b(const mvVector<3>& p, mvVector<3>& out) const;
  /// Maps a point from b to a.
  mvVector<3> b2a(const mvVector<3>& p) const;
  /// Maps a point from b to a into out.
  void b2a(const mvVector<3>& p, mvVector<3>& out) const;

  /// The identity.
  static const mv3PtMatchTm I;

  /// Persists: version 1100, the x, y and z fitters, then a2b[i] and b2a[i] interleaved
  /// for i = 0 ... 11.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv3PtMatchTm& tm);

 protected:
  /// Recomputes b2a by Gauss-Jordan inversion (mvMatrixExt::SingularMatrix when singular).
  void sync_();

 private:
  static constexpr int kParams = 12;
  /// The full composition: out = second after first. out may be an input.
  void mul_(const double* first, const double* second, double* out) const;
  /// Linear parts composed as in mul_, translations simply added. out may be an input.
  void concat_(const double* first, const double* second, double* out) const;
  /// a2b = concat_(a2b, linear) followed by sync_().
  void concatLinear_(const double* linear);

  mvPsuedoInverse xFitter_;  ///< fits row 0 (b.x)
  mvPsuedoInverse yFitter_;  ///< fits row 1 (b.y)
  mvPsuedoInverse zFitter_;  ///< fits row 2 (b.z)
  double a2b_[kParams];      ///< from a to b, row by row
  double b2a_[kParams];      ///< from b to a, same layout
};

/// Persists a 3-D point-match transform.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mv3PtMatchTm& tm);
