// Helpers shared by the point-to-point search tests: models, poses, run parameters and a
// counter of interruption checks.
#pragma once

#include <cmath>
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace search_test {

using Points = std::vector<mvVector<2>>;

/// Similarity pose: rotate by degrees and scale about the origin, then translate.
inline mvXform<2> similarity(double tx, double ty, double degrees, double scale = 1.0) {
  const mvRadian a = mvDegree(degrees);
  return mvXform<2>(mvVector<2>(tx, ty), a, a, scale, scale);
}

inline Points transformed(const mvXform<2>& pose, const Points& points) {
  Points out;
  for (const mvVector<2>& p : points) out.push_back(pose * p);
  return out;
}

inline mvAngleRange degreeRange(double from, double to) {
  return mvAngleRange(mvDegree(from), mvDegree(to), false);
}

/// Relative rotation of a pose in degrees.
inline double degreesOf(const mvXform<2>& pose) { return mvDegree(pose.rotation()).toDouble(); }

/// Largest distance between the images of the points under two poses.
inline double largestDisplacement(const mvXform<2>& a, const mvXform<2>& b, const Points& points) {
  double worst = 0.0;
  for (const mvVector<2>& p : points) worst = std::fmax(worst, (a * p - b * p).len());
  return worst;
}

inline mvPointMatcher trainedMatcher(const Points& model) {
  mvPointMatcher m;
  m.train(model, mvPointMatcherDefs::eAutoDetect);
  return m;
}

inline mvPointMatcher trainedMatcher(const Points& model, const std::vector<long>& weights) {
  mvPointMatcher m;
  m.train(model, weights, mvPointMatcherDefs::eAutoDetect);
  return m;
}

/// Coverage 0.5, identity start pose, free translation, the given rotation and scale
/// ranges (degrees; relative scale), automatic grid size and capture range.
inline mvPointMatcherRunParams runParams(const mvAngleRange& rotation, const mvRange& scale,
                                         long maxNumResults = 1) {
  mvPointMatcherRunParams p;
  p.rotationUncertainty(rotation);
  p.scaleUncertainty(scale);
  p.maxNumResults(maxNumResults);
  return p;
}

/// Sets an explicit grid size (the capture range stays automatic, so it follows).
inline void useGridSize(mvPointMatcherRunParams& p, double gridSize) {
  p.autoGridSize(false);
  p.gridSize(gridSize);
}

/// Results that cover the whole model (score x 1 / total may differ from 1 in the last bit).
inline std::vector<mvPointMatcherResult> fullMatches(const mvPointMatcherResultSet& set) {
  std::vector<mvPointMatcherResult> full;
  for (const mvPointMatcherResult& r : set.results()) {
    if (std::fabs(r.coverage() - 1.0) < 1e-12) full.push_back(r);
  }
  return full;
}

/// Counts mvAttention::check() calls while alive, and can request an interruption at the
/// n-th call. A search checks once per lattice step and once per fine hypothesis.
class CheckCounter {
 public:
  explicit CheckCounter(long interruptAt = -1) {
    count_() = 0;
    interruptAt_() = interruptAt;
    previous_ = mvAttention::setPoll(&poll);
  }
  ~CheckCounter() {
    mvAttention::setPoll(previous_);
    mvAttention::clear();
  }
  CheckCounter(const CheckCounter&) = delete;
  CheckCounter& operator=(const CheckCounter&) = delete;

  long count() const { return count_(); }

 private:
  static long& count_() {
    static long n = 0;
    return n;
  }
  static long& interruptAt_() {
    static long n = -1;
    return n;
  }
  static bool poll() { return ++count_() == interruptAt_(); }

  mvAttention::Poll previous_;
};

/// Values of a lattice walked by accumulation, as the search walks its lattices.
inline long latticeCount(double lo, double hi, double step) {
  long n = 0;
  for (double v = lo; v <= hi; v += step) ++n;
  return n;
}

}  // namespace search_test
