// Least-squares fit of a 2-D transform carrying each pair's second point onto its first.
// Every family is fitted on coordinates centred on the two centroids: the best
// translation is then first centroid - M * second centroid for whatever linear part M.
#include "mvbase/fitter.h"

#include <cmath>

#include "mvbase/archive.h"

namespace {

constexpr const char* kModule = "mvbase/fitter";
constexpr double kPi = mvDegree::kPi;

// Second points count as collinear when the determinant of their scatter matrix is below
// this fraction of the product of its diagonal (1 - r^2 of their correlation).
constexpr double kCollinearTolerance = 1e-12;

[[noreturn]] void fail(const wchar_t* why) { throw mvLSPointToPointFitter::Errors(why); }

bool allCoincide(const std::vector<mvVector<2>>& points) {
  for (const mvVector<2>& p : points) {
    if (p != points.front()) return false;
  }
  return true;
}

// Mean computed as the first point plus the mean of the differences, so that coincident
// points give that point exactly.
mvVector<2> centroid(const std::vector<mvVector<2>>& points) {
  mvVector<2> sum;
  for (const mvVector<2>& p : points) sum += p - points.front();
  return points.front() + sum / static_cast<double>(points.size());
}

// Second moments of the centred pairs: p is a centred second point, q a centred first.
struct Moments {
  double sxx = 0, sxy = 0, syy = 0;   // sums of px px, px py, py py
  double a = 0, b = 0, c = 0, d = 0;  // sums of px qx, px qy, py qx, py qy
};

Moments momentsOf(const std::vector<mvVector<2>>& first, const std::vector<mvVector<2>>& second,
                  const mvVector<2>& firstMean, const mvVector<2>& secondMean) {
  Moments m;
  for (std::size_t i = 0; i < first.size(); ++i) {
    const mvVector<2> p = second[i] - secondMean;
    const mvVector<2> q = first[i] - firstMean;
    m.sxx += p.x() * p.x();
    m.sxy += p.x() * p.y();
    m.syy += p.y() * p.y();
    m.a += p.x() * q.x();
    m.b += p.x() * q.y();
    m.c += p.y() * q.x();
    m.d += p.y() * q.y();
  }
  return m;
}

bool collinear(const Moments& m) {
  const double det = m.sxx * m.syy - m.sxy * m.sxy;
  return det <= kCollinearTolerance * m.sxx * m.syy;
}

// Rotation maximising the correlation: atan2 of the summed cross and dot products.
mvMatrix<2> fitRigid(const Moments& m) {
  const double angle = std::atan2(m.b - m.c, m.a + m.d);
  return mvMatrix<2>(std::cos(angle), -std::sin(angle), std::sin(angle), std::cos(angle));
}

// Scaled rotation [[s, -t], [t, s]] solving the normal equations directly.
mvMatrix<2> fitSimilarity(const Moments& m) {
  const double norm = m.sxx + m.syy;
  const double s = (m.a + m.d) / norm;
  const double t = (m.b - m.c) / norm;
  return mvMatrix<2>(s, -t, t, s);
}

// Rotation by theta of diag(sx, sy). For a fixed theta the best scales are
// sx = (a cos + b sin) / sxx and sy = (d cos - c sin) / syy, and the residual left is the
// total minus (a cos + b sin)^2 / sxx + (d cos - c sin)^2 / syy, a quadratic form in
// (cos, sin); its major axis is the best theta.
mvMatrix<2> fitAxisScales(const Moments& m) {
  const double q00 = m.a * m.a / m.sxx + m.d * m.d / m.syy;
  const double q01 = m.a * m.b / m.sxx - m.c * m.d / m.syy;
  const double q11 = m.b * m.b / m.sxx + m.c * m.c / m.syy;
  double theta = 0.5 * std::atan2(2.0 * q01, q00 - q11);
  double sx = (m.a * std::cos(theta) + m.b * std::sin(theta)) / m.sxx;
  double sy = (m.d * std::cos(theta) - m.c * std::sin(theta)) / m.syy;
  // theta + pi with both scales negated is the same transform; prefer a positive x scale.
  if (sx < 0.0 || (sx == 0.0 && sy < 0.0)) {
    theta += kPi;
    sx = -sx;
    sy = -sy;
  }
  return mvXform<2>(mvVector<2>(), mvRadian(theta), mvRadian(theta), sx, sy).matrix();
}

// General linear part: (sum q p^T) times the inverse of the scatter matrix (sum p p^T).
mvMatrix<2> fitAffine(const Moments& m) {
  const double det = m.sxx * m.syy - m.sxy * m.sxy;
  return mvMatrix<2>((m.a * m.syy - m.c * m.sxy) / det, (m.c * m.sxx - m.a * m.sxy) / det,
                     (m.b * m.syy - m.d * m.sxy) / det, (m.d * m.sxx - m.b * m.sxy) / det);
}

}  // namespace

// --- Errors ---

mvLSPointToPointFitter::Errors::Errors()
    : mvErrorOf(L"The point pairs do not determine a transform of the asked family.") {}

mvLSPointToPointFitter::Errors::Errors(const std::wstring& message) : mvErrorOf(message) {}

namespace {
const mv_InstantiatorOf<mvLSPointToPointFitter::Errors> registerFitterErrors(
    "mvLSPointToPointFitter::Errors");
}  // namespace

// --- the fitter ---

mvLSPointToPointFitter::mvLSPointToPointFitter(const std::vector<mvVector<2>>& first,
                                               const std::vector<mvVector<2>>& second) {
  mvAssert(first.size() == second.size(), kModule, __LINE__);
  first_ = first;
  second_ = second;
}

void mvLSPointToPointFitter::reset() {
  first_.clear();
  second_.clear();
}

void mvLSPointToPointFitter::update(const mvVector<2>& first, const mvVector<2>& second) {
  first_.push_back(first);
  second_.push_back(second);
}

mvXform<2> mvLSPointToPointFitter::fit(int dof) const {
  if (dof < 3 || dof > 6) fail(L"The fitter knows only 3, 4, 5 and 6 degrees of freedom.");
  const std::size_t fewest = dof <= 4 ? 2 : 3;
  if (first_.size() < fewest) fail(L"Too few point pairs for the asked family.");
  if (allCoincide(second_)) fail(L"The points being mapped all coincide.");
  if (dof == 3 && allCoincide(first_)) fail(L"The target points all coincide.");

  const mvVector<2> firstMean = centroid(first_);
  const mvVector<2> secondMean = centroid(second_);
  const Moments m = momentsOf(first_, second_, firstMean, secondMean);

  mvMatrix<2> linear;
  switch (dof) {
    case 3:
      linear = fitRigid(m);
      break;
    case 4:
      linear = fitSimilarity(m);
      break;
    default:
      if (collinear(m)) fail(L"The points being mapped are collinear.");
      linear = dof == 5 ? fitAxisScales(m) : fitAffine(m);
      break;
  }
  return mvXform<2>(linear, firstMean - linear * secondMean);
}
