// The 2-D perspective point-match transform: the linearised projective fit, the inverse and
// the edits by refitting sample points, the affine approximation and persistence.
#include <algorithm>
#include <typeinfo>

#include "ptmatch/tm.h"

namespace {

const char* const kModule = "ptmatch/tm";

/// The one archive version of a perspective transform.
constexpr unsigned long kArchiveVersion = 1100;
/// Line reported by UnknownVersion for an archive of another version; fixed, so that the
/// report stays the same when this file changes.
constexpr int kUnknownVersionLine = 401;

constexpr int kParams = 8;

/// The points whose images are refitted to find the inverse, in this order.
const mvVector<2> kInverseSamples[] = {mvVector<2>(-5.0, -5.0), mvVector<2>(5.0, -5.0),
                                       mvVector<2>(5.0, 5.0), mvVector<2>(-5.0, 5.0),
                                       mvVector<2>(0.0, 0.0)};

/// The points whose images are refitted after an edit, in this order.
const mvVector<2> kEditSamples[] = {mvVector<2>(-1.0, -1.0), mvVector<2>(1.0, -1.0),
                                    mvVector<2>(1.0, 1.0), mvVector<2>(-1.0, 1.0),
                                    mvVector<2>(0.0, 0.0)};

/// The grid coordinates of the affine approximation's samples, for y (outer) and x (inner).
constexpr double kAffineSampleCoords[] = {-5.0, -3.0, -1.0, 1.0, 3.0, 5.0};

const mv_InstantiatorOf<mv2PTm::BadArgs> kBadArgsInstantiator("mv2PTm::BadArgs");

/// Sets h to the identity parameters: h0 = h4 = 1, all others 0.
void setIdentity(double* h) {
  std::fill(h, h + kParams, 0.0);
  h[0] = 1.0;
  h[4] = 1.0;
}

/// Maps p with the parameters h: w = h6 x + h7 y + 1, then both numerators times 1 / w.
/// A point on the vanishing line (w = 0) gives infinite or not-a-number coordinates.
mvVector<2> mapProjective(const double* h, const mvVector<2>& p) {
  const double x = p.x();
  const double y = p.y();
  const double w = h[6] * x + h[7] * y + 1.0;
  const double wInverse = 1.0 / w;
  return mvVector<2>((h[0] * x + h[1] * y + h[2]) * wInverse,
                     (h[3] * x + h[4] * y + h[5]) * wInverse);
}

/// Adds the pair (x, y) -> (u, v) as the two linearised projective equations.
void addPair(mvPsuedoInverse& fitter, const mvVector<2>& a, const mvVector<2>& b) {
  const double x = a.x();
  const double y = a.y();
  const double u = b.x();
  const double v = b.y();
  fitter.update({x, y, 1.0, 0.0, 0.0, 0.0, -x * u, -y * u}, u);
  fitter.update({0.0, 0.0, 0.0, x, y, 1.0, -x * v, -y * v}, v);
}

/// Solves the fitter and copies its eight values into h.
void solveInto(const mvPsuedoInverse& fitter, double* h) {
  const std::vector<double> solved = fitter.fit();
  mvAssert(solved.size() == static_cast<std::size_t>(kParams), kModule, __LINE__);
  std::copy(solved.begin(), solved.begin() + kParams, h);
}

/// The inverse parameters of h: the pairs (h(p), p) of the five inverse samples, fitted by
/// a fresh fitter.
void inverseByRefit(const double* h, double* inverse) {
  mvPsuedoInverse fitter(kParams);
  for (const mvVector<2>& p : kInverseSamples) addPair(fitter, mapProjective(h, p), p);
  solveInto(fitter, inverse);
}

}  // namespace

mv2PTm::BadArgs::BadArgs() : mvErrorOf(L"the two point lists differ in length") {}

const mv2PTm mv2PTm::I;

// --- construction ---

mv2PTm::mv2PTm() : a2b_(), b2a_(), fitter_(kParams) { identity(); }

mv2PTm::mv2PTm(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b)
    : a2b_(), b2a_(), fitter_(kParams) {
  fit(a, b);
}

mv2PTm::mv2PTm(const mv2PtMatchTm& tm) : a2b_(), b2a_(), fitter_(kParams) {
  const mvXform<2>& x = tm.a2bXform();
  a2b_[0] = x.matrix().element(0, 0);
  a2b_[1] = x.matrix().element(0, 1);
  a2b_[2] = x.trans().x();
  a2b_[3] = x.matrix().element(1, 0);
  a2b_[4] = x.matrix().element(1, 1);
  a2b_[5] = x.trans().y();
  a2b_[6] = 0.0;
  a2b_[7] = 0.0;
  sync_();
}

mv2PTm::~mv2PTm() = default;

// --- fitting ---

void mv2PTm::update(const mvVector<2>& a, const mvVector<2>& b) { addPair(fitter_, a, b); }

void mv2PTm::update(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b) {
  if (a.size() != b.size()) throw BadArgs();
  for (std::size_t i = 0; i < a.size(); ++i) update(a[i], b[i]);
}

void mv2PTm::fit() {
  // Solved into copies first, so that a failing solve leaves the transform as it was; the
  // fitter's sums are kept for more pairs.
  double forward[kParams];
  double inverse[kParams];
  solveInto(fitter_, forward);
  inverseByRefit(forward, inverse);
  std::copy(forward, forward + kParams, a2b_);
  std::copy(inverse, inverse + kParams, b2a_);
}

void mv2PTm::fit(const std::vector<mvVector<2>>& a, const std::vector<mvVector<2>>& b) {
  // Checked first, so that unequal lists change nothing, the transform included.
  if (a.size() != b.size()) throw BadArgs();
  identity();
  update(a, b);
  fit();
}

void mv2PTm::identity() {
  setIdentity(a2b_);
  setIdentity(b2a_);
  fitter_.reset();
}

void mv2PTm::sync_() {
  double inverse[kParams];
  inverseByRefit(a2b_, inverse);
  std::copy(inverse, inverse + kParams, b2a_);
}

// --- editing ---

void mv2PTm::applyEdit_(const mv2PtMatchTm& edit) {
  // The edit acts in plane a, before this transform: the samples p go to a2b(edit(p)).
  std::vector<mvVector<2>> from;
  std::vector<mvVector<2>> to;
  for (const mvVector<2>& p : kEditSamples) {
    from.push_back(p);
    to.push_back(a2b(edit.a2b(p)));
  }
  // The temporary's inverse is the refit that sync_ would make of the same parameters.
  const mv2PTm refit(from, to);
  std::copy(refit.a2b_, refit.a2b_ + kParams, a2b_);
  std::copy(refit.b2a_, refit.b2a_ + kParams, b2a_);
}

void mv2PTm::rotate(mvRadian angle) {
  mv2PtMatchTm edit;
  edit.rotate(angle);
  applyEdit_(edit);
}

void mv2PTm::translate(const mvVector<2>& v) {
  mv2PtMatchTm edit;
  edit.translate(v);
  applyEdit_(edit);
}

void mv2PTm::scale(const mvVector<2>& s) {
  mv2PtMatchTm edit;
  edit.scale(s);
  applyEdit_(edit);
}

// --- mapping ---

mvVector<2> mv2PTm::a2b(const mvVector<2>& p) const { return mapProjective(a2b_, p); }

void mv2PTm::a2b(const mvVector<2>& p, mvVector<2>& out) const { out = mapProjective(a2b_, p); }

mvVector<2> mv2PTm::b2a(const mvVector<2>& p) const { return mapProjective(b2a_, p); }

void mv2PTm::b2a(const mvVector<2>& p, mvVector<2>& out) const { out = mapProjective(b2a_, p); }

mv2PtMatchTm mv2PTm::a2bTm() const {
  mv2PtMatchTm approximation;
  for (double y : kAffineSampleCoords) {
    for (double x : kAffineSampleCoords) {
      const mvVector<2> p(x, y);
      approximation.update(p, a2b(p));
    }
  }
  approximation.fit(-1);  // the richest family the samples determine
  return approximation;
}

mvXform<2> mv2PTm::a2bXform() const { return a2bTm().a2bXform(); }

// --- persistence ---

mvArchive& operator||(mvArchive& ar, mv2PTm& tm) {
  unsigned long version = kArchiveVersion;
  ar || version;
  if (version != kArchiveVersion) throw mvArchive::UnknownVersion(kModule, kUnknownVersionLine);
  // Through copies, so that a failed load leaves the transform as it was.
  double a2b[kParams];
  double b2a[kParams];
  std::copy(tm.a2b_, tm.a2b_ + kParams, a2b);
  std::copy(tm.b2a_, tm.b2a_ + kParams, b2a);
  for (int i = 0; i < kParams; ++i) {
    ar || a2b[i];
    ar || b2a[i];
  }
  mvPsuedoInverse fitter = tm.fitter_;
  ar || fitter;
  if (ar.isLoading()) {
    if (fitter.numParams() != kParams) {
      throw mvArchive::BadData(L"a perspective transform's fitter must have 8 parameters");
    }
    std::copy(a2b, a2b + kParams, tm.a2b_);
    std::copy(b2a, b2a + kParams, tm.b2a_);
    tm.fitter_ = fitter;
  }
  return ar;
}
