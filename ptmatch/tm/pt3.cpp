// The 3-D affine point-match transform: three 4-parameter fits, the inverse by Gauss-Jordan
// elimination, the full and the translation-adding compositions, the edits and persistence.
#include <algorithm>
#include <cmath>
#include <typeinfo>

#include "ptmatch/tm.h"

namespace {

const char* const kModule = "ptmatch/tm";

/// The one archive version of a 3-D point-match transform.
constexpr unsigned long kArchiveVersion = 1100;
/// Line reported by UnknownVersion for an archive of another version; fixed, so that the
/// report stays the same when this file changes.
constexpr int kUnknownVersionLine = 601;

/// Elements of the 3 x 4 matrix, stored row by row.
constexpr int kElements = 12;
/// Parameters of each row's fitter: three coefficients and the translation.
constexpr int kRowParams = 4;

const mv_InstantiatorOf<mv3PtMatchTm::BadArgs> kBadArgsInstantiator("mv3PtMatchTm::BadArgs");

/// Sets m to the identity: elements 0, 5 and 10 are 1, all others 0.
void setIdentity(double* m) {
  std::fill(m, m + kElements, 0.0);
  m[0] = 1.0;
  m[5] = 1.0;
  m[10] = 1.0;
}

/// Element (r, c) of the 4 x 4 homogeneous matrix of m, whose last row is (0, 0, 0, 1).
double homogeneous(const double* m, int r, int c) {
  if (r < 3) return m[4 * r + c];
  return c == 3 ? 1.0 : 0.0;
}

/// Maps p with the 3 x 4 matrix m.
mvVector<3> mapAffine(const double* m, const mvVector<3>& p) {
  return mvVector<3>(m[0] * p.x() + m[1] * p.y() + m[2] * p.z() + m[3],
                     m[4] * p.x() + m[5] * p.y() + m[6] * p.z() + m[7],
                     m[8] * p.x() + m[9] * p.y() + m[10] * p.z() + m[11]);
}

/// The inverse of m: Gauss-Jordan on the transpose of its homogeneous matrix, with a
/// right-hand side (1, 0, 0, 1) whose solution is not used. Throws
/// mvMatrixExt::SingularMatrix when m is singular.
void inverseByGaussJordan(const double* m, double* inverse) {
  mvMatrixExt transposed(4, 4);
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) transposed.element(i, j, homogeneous(m, j, i));
  }
  mvMatrixExt rhs(4, 1);
  rhs.element(0, 0, 1.0);
  rhs.element(3, 0, 1.0);
  transposed.gaussj(rhs);
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) inverse[4 * j + i] = transposed.element(i, j);
  }
}

/// Makes forward the transform (a2b) and its inverse the inverse (b2a). The inverse is
/// worked out first, so that a singular forward leaves both as they were.
void assignWithInverse(const double* forward, double* a2b, double* b2a) {
  double inverse[kElements];
  inverseByGaussJordan(forward, inverse);
  std::copy(forward, forward + kElements, a2b);
  std::copy(inverse, inverse + kElements, b2a);
}

/// Copies the solved values of a row's fitter into row r of m (as many as were solved).
void solveRowInto(const mvPsuedoInverse& fitter, double* m, int r) {
  const std::vector<double> solved = fitter.fit();
  const std::size_t count = std::min(solved.size(), static_cast<std::size_t>(kRowParams));
  std::copy(solved.begin(), solved.begin() + static_cast<std::ptrdiff_t>(count), m + 4 * r);
}

}  // namespace

mv3PtMatchTm::BadArgs::BadArgs() : mvErrorOf(L"the two point lists differ in length") {}

const mv3PtMatchTm mv3PtMatchTm::I;

// --- construction ---

mv3PtMatchTm::mv3PtMatchTm() : xFitter_(0), yFitter_(0), zFitter_(0), a2b_(), b2a_() {
  xFitter_.resize(kRowParams);
  yFitter_.resize(kRowParams);
  zFitter_.resize(kRowParams);
  identity();
}

mv3PtMatchTm::mv3PtMatchTm(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b)
    : xFitter_(0), yFitter_(0), zFitter_(0), a2b_(), b2a_() {
  // The fit comes before the sizing: the fitters of 0 parameters take no observations and
  // solve to nothing, so the transform stays the identity that fit(a, b) starts from. Only
  // then are the fitters sized to 4, empty.
  fit(a, b);
  xFitter_.resize(kRowParams);
  yFitter_.resize(kRowParams);
  zFitter_.resize(kRowParams);
}

mv3PtMatchTm::~mv3PtMatchTm() = default;

// --- fitting ---

void mv3PtMatchTm::update(const mvVector<3>& a, const mvVector<3>& b) {
  const std::vector<double> row{a.x(), a.y(), a.z(), 1.0};
  xFitter_.update(row, b.x());
  yFitter_.update(row, b.y());
  zFitter_.update(row, b.z());
}

void mv3PtMatchTm::update(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b) {
  if (a.size() != b.size()) throw BadArgs();
  for (std::size_t i = 0; i < a.size(); ++i) update(a[i], b[i]);
}

void mv3PtMatchTm::fit() {
  // Solved into copies first (x, then y, then z), so that a failing solve or inverse leaves
  // the transform as it was; the sums are kept.
  double forward[kElements];
  std::copy(a2b_, a2b_ + kElements, forward);
  solveRowInto(xFitter_, forward, 0);
  solveRowInto(yFitter_, forward, 1);
  solveRowInto(zFitter_, forward, 2);
  assignWithInverse(forward, a2b_, b2a_);
}

void mv3PtMatchTm::fit(const std::vector<mvVector<3>>& a, const std::vector<mvVector<3>>& b) {
  // Checked first, so that unequal lists change nothing, the transform included.
  if (a.size() != b.size()) throw BadArgs();
  identity();
  update(a, b);
  fit();
}

void mv3PtMatchTm::identity() {
  setIdentity(a2b_);
  setIdentity(b2a_);
  xFitter_.reset();
  yFitter_.reset();
  zFitter_.reset();
}

void mv3PtMatchTm::sync_() {
  double inverse[kElements];
  inverseByGaussJordan(a2b_, inverse);
  std::copy(inverse, inverse + kElements, b2a_);
}

// --- compositions ---

void mv3PtMatchTm::mul_(const double* first, const double* second, double* out) const {
  // The 4 x 4 product first^T * second^T of the transposed homogeneous matrices, transposed
  // back: out = second after first.
  double product[4][4];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      double sum = 0.0;
      for (int k = 0; k < 4; ++k) sum += homogeneous(first, k, i) * homogeneous(second, j, k);
      product[i][j] = sum;
    }
  }
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 4; ++c) out[4 * r + c] = product[c][r];
  }
}

void mv3PtMatchTm::concat_(const double* first, const double* second, double* out) const {
  // Deliberately not a full composition: the linear part is that of mul_, but the
  // translations are simply added; the second linear part does not act on the first
  // translation.
  const double firstTrans[3] = {first[3], first[7], first[11]};
  const double secondTrans[3] = {second[3], second[7], second[11]};
  mul_(first, second, out);
  for (int r = 0; r < 3; ++r) out[4 * r + 3] = firstTrans[r] + secondTrans[r];
}

// --- editing ---

void mv3PtMatchTm::concatLinear_(const double* linear) {
  double edited[kElements];
  concat_(a2b_, linear, edited);
  assignWithInverse(edited, a2b_, b2a_);
}

void mv3PtMatchTm::rotateOnX(mvRadian angle) {
  const double c = std::cos(angle.toDouble());
  const double s = std::sin(angle.toDouble());
  const double rotation[kElements] = {1, 0, 0, 0, 0, c, -s, 0, 0, s, c, 0};
  concatLinear_(rotation);
}

void mv3PtMatchTm::rotateOnY(mvRadian angle) {
  const double c = std::cos(angle.toDouble());
  const double s = std::sin(angle.toDouble());
  const double rotation[kElements] = {c, 0, s, 0, 0, 1, 0, 0, -s, 0, c, 0};
  concatLinear_(rotation);
}

void mv3PtMatchTm::rotateOnZ(mvRadian angle) {
  const double c = std::cos(angle.toDouble());
  const double s = std::sin(angle.toDouble());
  const double rotation[kElements] = {c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0};
  concatLinear_(rotation);
}

void mv3PtMatchTm::scale(const mvVector<3>& s) {
  const double scaling[kElements] = {s.x(), 0, 0, 0, 0, s.y(), 0, 0, 0, 0, s.z(), 0};
  concatLinear_(scaling);
}

void mv3PtMatchTm::scale(double s) { scale(mvVector<3>(s, s, s)); }

void mv3PtMatchTm::translate(const mvVector<3>& v) {
  // The full composition with the translation first: the new a2b(p) is the old a2b(p + v).
  const double shift[kElements] = {1, 0, 0, v.x(), 0, 1, 0, v.y(), 0, 0, 1, v.z()};
  double moved[kElements];
  mul_(shift, a2b_, moved);
  assignWithInverse(moved, a2b_, b2a_);
}

// --- mapping ---

mvVector<3> mv3PtMatchTm::a2b(const mvVector<3>& p) const { return mapAffine(a2b_, p); }

void mv3PtMatchTm::a2b(const mvVector<3>& p, mvVector<3>& out) const { out = mapAffine(a2b_, p); }

mvVector<3> mv3PtMatchTm::b2a(const mvVector<3>& p) const { return mapAffine(b2a_, p); }

void mv3PtMatchTm::b2a(const mvVector<3>& p, mvVector<3>& out) const { out = mapAffine(b2a_, p); }

// --- persistence ---

mvArchive& operator||(mvArchive& ar, mv3PtMatchTm& tm) {
  unsigned long version = kArchiveVersion;
  ar || version;
  if (version != kArchiveVersion) throw mvArchive::UnknownVersion(kModule, kUnknownVersionLine);
  // Through copies, so that a failed load leaves the transform as it was.
  mvPsuedoInverse fitters[3] = {tm.xFitter_, tm.yFitter_, tm.zFitter_};
  for (mvPsuedoInverse& fitter : fitters) ar || fitter;
  double a2b[kElements];
  double b2a[kElements];
  std::copy(tm.a2b_, tm.a2b_ + kElements, a2b);
  std::copy(tm.b2a_, tm.b2a_ + kElements, b2a);
  for (int i = 0; i < kElements; ++i) {
    ar || a2b[i];
    ar || b2a[i];
  }
  if (ar.isLoading()) {
    for (const mvPsuedoInverse& fitter : fitters) {
      if (fitter.numParams() != kRowParams) {
        throw mvArchive::BadData(L"a 3-D transform's fitters must have 4 parameters");
      }
    }
    tm.xFitter_ = fitters[0];
    tm.yFitter_ = fitters[1];
    tm.zFitter_ = fitters[2];
    std::copy(a2b, a2b + kElements, tm.a2b_);
    std::copy(b2a, b2a + kElements, tm.b2a_);
  }
  return ar;
}
