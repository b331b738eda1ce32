// The 2-D affine point-match transform: fitting with the degrees-of-freedom fallback,
// editing, mapping and persistence.
#include <climits>
#include <cmath>
#include <typeinfo>

#include "ptmatch/tm.h"

namespace {

const char* const kModule = "ptmatch/tm";

/// The one archive version of a 2-D point-match transform.
constexpr unsigned long kArchiveVersion = 1100;
/// Line reported by UnknownVersion for an archive of another version; fixed, so that the
/// report stays the same when this file changes.
constexpr int kUnknownVersionLine = 201;

const mv_InstantiatorOf<mv2PtMatchTm::BadArgs> kBadArgsInstantiator("mv2PtMatchTm::BadArgs");

/// The fitter's dof argument; counts beyond int stay beyond every family it knows.
int fitterDof(long dof) { return dof > INT_MAX ? INT_MAX : static_cast<int>(dof); }

/// The fit of the richest family the pairs determine, for a caller that leaves the choice
/// open: 6, then 5, then 4 parameters, whose failures are swallowed, and finally 3, whose
/// failure passes on unchanged.
mvXform<2> fitFirstFamily(const mvLSPointToPointFitter& pairs) {
  for (int dof : {6, 5, 4}) {
    try {
      return pairs.fit(dof);
    } catch (const mvLSPointToPointFitter::Errors&) {
      // this family is not determined by the pairs; try the next smaller one
    }
  }
  return pairs.fit(3);
}

}  // namespace

mv2PtMatchTm::BadArgs::BadArgs() : mvErrorOf(L"the two point lists differ in length") {}

const mv2PtMatchTm mv2PtMatchTm::I;

// --- construction ---

mv2PtMatchTm::mv2PtMatchTm() { identity(); }

mv2PtMatchTm::mv2PtMatchTm(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b,
                           long dof) {
  fit(a, b, dof);
}

mv2PtMatchTm::mv2PtMatchTm(const mvXform<2>& a2b) : a2b_(a2b) { sync_(); }

// --- fitting ---

void mv2PtMatchTm::update(const mvVector<2>& a, const mvVector<2>& b) {
  // b first: the fitter returns the transform carrying each pair's second point onto its
  // first, here a onto b.
  pairs_.update(b, a);
}

void mv2PtMatchTm::update(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b) {
  if (a.size() != b.size()) throw BadArgs();
  for (std::size_t i = 0; i < a.size(); ++i) update(a[i], b[i]);
}

void mv2PtMatchTm::fit(long dof) {
  const mvXform<2> fitted = dof >= 3 ? pairs_.fit(fitterDof(dof)) : fitFirstFamily(pairs_);
  // The inverse is found before anything changes, so a failing inverse leaves the object
  // as it was (b2a_ = a2b_.inverse(), as in sync_).
  const mvXform<2> inverse = fitted.inverse();
  a2b_ = fitted;
  b2a_ = inverse;
}

void mv2PtMatchTm::fit(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b,
                       long dof) {
  // Checked first, so that unequal lists change nothing, the transform included.
  if (a.size() != b.size()) throw BadArgs();
  identity();
  update(a, b);
  fit(dof);
}

void mv2PtMatchTm::reset() { pairs_.reset(); }

void mv2PtMatchTm::identity() {
  // The default transform is the identity (not mvXform<2>::I, so that this library's own
  // static identity does not depend on the order in which statics start).
  a2b_ = mvXform<2>();
  b2a_ = mvXform<2>();
  pairs_.reset();
}

// --- editing ---

void mv2PtMatchTm::replaceBy_(const mvXform<2>& a2b) { *this = mv2PtMatchTm(a2b); }

void mv2PtMatchTm::rotate(mvRadian angle) {
  const mvXform<2> rotation(mvVector<2>(0.0, 0.0), angle, angle, 1.0, 1.0);
  replaceBy_(concat_(rotation, a2b_));
}

void mv2PtMatchTm::translate(const mvVector<2>& v) {
  // In place, keeping the pairs: the new translation is the old transform's image of v.
  mvXform<2> moved = a2b_;
  moved.trans(a2b_ * v);
  const mvXform<2> inverse = moved.inverse();
  a2b_ = moved;
  b2a_ = inverse;
}

void mv2PtMatchTm::scale(const mvVector<2>& s) {
  const mvXform<2> scaling(mvVector<2>(0.0, 0.0), mvRadian(0.0), mvRadian(0.0), s.x(), s.y());
  replaceBy_(concat_(scaling, a2b_));
}

void mv2PtMatchTm::scale(double s) { scale(mvVector<2>(s, s)); }

void mv2PtMatchTm::concat(const mv2PtMatchTm& other) { replaceBy_(concat_(other.a2b_, a2b_)); }

void mv2PtMatchTm::append(const mv2PtMatchTm& other) { replaceBy_(concat_(a2b_, other.a2b_)); }

void mv2PtMatchTm::set_(double a00, double a01, double tx, double a10, double a11, double ty) {
  a2b_ = mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty));
}

void mv2PtMatchTm::sync_() { b2a_ = a2b_.inverse(); }

mvXform<2> mv2PtMatchTm::concat_(const mvXform<2>& first, const mvXform<2>& second) {
  const mvMatrix<2>& a = first.matrix();
  const mvMatrix<2>& b = second.matrix();
  const mvVector<2>& ta = first.trans();
  const mvVector<2>& tb = second.trans();
  const double r00 = b.element(0, 0) * a.element(0, 0) + b.element(0, 1) * a.element(1, 0);
  const double r01 = b.element(0, 0) * a.element(0, 1) + b.element(0, 1) * a.element(1, 1);
  const double r10 = b.element(1, 0) * a.element(0, 0) + b.element(1, 1) * a.element(1, 0);
  const double r11 = b.element(1, 0) * a.element(0, 1) + b.element(1, 1) * a.element(1, 1);
  const double tx = b.element(0, 0) * ta.x() + b.element(0, 1) * ta.y() + tb.x();
  const double ty = b.element(1, 0) * ta.x() + b.element(1, 1) * ta.y() + tb.y();
  return mvXform<2>(mvMatrix<2>(r00, r01, r10, r11), mvVector<2>(tx, ty));
}

// --- mapping ---

mvVector<2> mv2PtMatchTm::a2b(const mvVector<2>& p) const { return a2b_ * p; }

void mv2PtMatchTm::a2b(const mvVector<2>& p, mvVector<2>& out) const { out = a2b_ * p; }

mvVector<2> mv2PtMatchTm::b2a(const mvVector<2>& p) const { return b2a_ * p; }

void mv2PtMatchTm::b2a(const mvVector<2>& p, mvVector<2>& out) const { out = b2a_ * p; }

namespace {

/// The direction of the image of the unit vector at angle: the images of (0, 0) and
/// (cos angle, sin angle), subtracted.
mvRadian mapDirection(const mvXform<2>& xform, mvRadian angle) {
  const mvVector<2> origin = xform * mvVector<2>(0.0, 0.0);
  const mvVector<2> tip =
      xform * mvVector<2>(std::cos(angle.toDouble()), std::sin(angle.toDouble()));
  const mvVector<2> d = tip - origin;
  return mvRadian(std::atan2(d.y(), d.x()));
}

}  // namespace

mvRadian mv2PtMatchTm::a2b(mvRadian angle) const { return mapDirection(a2b_, angle); }

mvRadian mv2PtMatchTm::b2a(mvRadian angle) const { return mapDirection(b2a_, angle); }

bool mv2PtMatchTm::operator==(const mv2PtMatchTm& other) const { return a2b_ == other.a2b_; }

bool mv2PtMatchTm::operator==(const mvXform<2>& other) const { return a2b_ == other; }

// --- persistence ---

mvArchive& operator||(mvArchive& ar, mv2PtMatchTm& tm) {
  unsigned long version = kArchiveVersion;
  ar || version;
  if (version != kArchiveVersion) throw mvArchive::UnknownVersion(kModule, kUnknownVersionLine);
  // Through copies, so that a failed load leaves the transform as it was; the pairs are not
  // persisted and loading keeps them.
  mvXform<2> a2b = tm.a2b_;
  mvXform<2> b2a = tm.b2a_;
  ar || a2b;
  ar || b2a;
  tm.a2b_ = a2b;
  tm.b2a_ = b2a;
  return ar;
}
