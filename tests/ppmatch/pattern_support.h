// Helpers shared by the tests of pattern-trained matchers: dot-pattern images, scenes of
// data points made from a pattern under a known pose, the archived pattern state, and
// comparisons of results.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "mvbase/archive.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"

namespace pattern_test {

using Points = std::vector<mvVector<2>>;
using Cells = std::vector<mvPair<long>>;

/// Similarity pose: rotate by degrees and scale about the origin, then translate.
inline mvXform<2> similarity(double tx, double ty, double degrees, double scale = 1.0) {
  const mvRadian a = mvDegree(degrees);
  return mvXform<2>(mvVector<2>(tx, ty), a, a, scale, scale);
}

/// A client-from-image transform that spaces the pixels pitch apart.
inline mvXform<2> pitchOf(double pitch) { return similarity(0.0, 0.0, 0.0, pitch); }

inline mvAngleRange degreeRange(double from, double to) {
  return mvAngleRange(mvDegree(from), mvDegree(to), false);
}

inline mvVector<2> at(const mvPair<long>& cell) { return mvVector<2>(cell); }

/// An image of width x height pels, 1 at each cell (relative to the image's own origin),
/// with the given client-from-image transform and offset.
inline mvPelBuffer<unsigned char> dotImage(long width, long height, const Cells& cells,
                                           const mvXform<2>& clientFromImage = mvXform<2>::I,
                                           const mvPair<long>& offset = mvPair<long>(0, 0)) {
  mvPelBuffer<unsigned char> image(width, height);
  image.offset(offset);
  image.clientFromImageXform(clientFromImage);
  for (const mvPair<long>& c : cells) image.put(c + offset, 1);
  return image;
}

/// Every pixel of a width x height block, in scan order.
inline Cells blockCells(long width, long height) {
  Cells cells;
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) cells.emplace_back(x, y);
  }
  return cells;
}

/// The pixels of a width x height checkerboard whose upper-left pixel is set.
inline Cells checkerCells(long width, long height) {
  Cells cells;
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      if ((x + y) % 2 == 0) cells.emplace_back(x, y);
    }
  }
  return cells;
}

/// The model points a pattern's cells become in client coordinates.
inline Points clientPoints(const Cells& cells, const mvXform<2>& clientFromImage) {
  Points points;
  for (const mvPair<long>& c : cells) points.push_back(clientFromImage * at(c));
  return points;
}

/// Largest distance between the images of the points under two poses.
inline double largestDisplacement(const mvXform<2>& a, const mvXform<2>& b, const Points& points) {
  double worst = 0.0;
  for (const mvVector<2>& p : points) worst = std::fmax(worst, (a * p - b * p).len());
  return worst;
}

/// True when the transform's linear part is a rotation times a scale.
inline bool isSimilarity(const mvXform<2>& x, double tolerance) {
  const mvMatrix<2>& m = x.matrix();
  return std::fabs(m.element(0, 0) - m.element(1, 1)) <= tolerance &&
         std::fabs(m.element(0, 1) + m.element(1, 0)) <= tolerance;
}

inline bool sameXform(const mvXform<2>& a, const mvXform<2>& b, double tolerance) {
  for (long r = 0; r < 2; ++r) {
    for (long c = 0; c < 2; ++c) {
      if (std::fabs(a.matrix().element(r, c) - b.matrix().element(r, c)) > tolerance) return false;
    }
  }
  return (a.trans() - b.trans()).len() <= tolerance;
}

/// How to make data points from a pattern.
struct SceneRecipe {
  Cells cells;                              ///< the pattern's cells (image origin)
  mvXform<2> clientFromImage;               ///< the training image's transform
  mvXform<2> pose;                          ///< client to data
  std::set<std::pair<long, long>> missing;  ///< cells that get no data point
  double noise = 0.0;                       ///< standard deviation per axis (data units)
  long clutter = 0;                         ///< extra points
  double clutterClearance = 0.0;            ///< least client distance from any cell
  double clutterMargin = 0.0;               ///< client margin around the cells' box
  unsigned seed = 1;
};

/// Data points and the truth: the data index of each cell that got a point.
struct Scene {
  Points data;
  std::map<std::pair<long, long>, long> truth;

  /// The data index expected at a cell (image origin), or -1.
  long expectedAt(const mvPair<long>& cell) const {
    const auto it = truth.find({cell.x(), cell.y()});
    return it == truth.end() ? -1 : it->second;
  }
};

/// The pattern's cells under the pose with noise, less the missing ones, and clutter
/// points kept at least clutterClearance (client units) from every cell, in shuffled order.
inline Scene makeScene(const SceneRecipe& recipe) {
  std::mt19937 rng(recipe.seed);
  std::normal_distribution<double> noise(0.0, recipe.noise > 0.0 ? recipe.noise : 1.0);
  const auto jitter = [&]() {
    if (recipe.noise <= 0.0) return mvVector<2>(0.0, 0.0);
    const double dx = noise(rng);
    return mvVector<2>(dx, noise(rng));
  };

  // Each entry: the point and the cell it belongs to ((-1, -1) for clutter).
  std::vector<std::pair<mvVector<2>, mvPair<long>>> entries;
  const Points client = clientPoints(recipe.cells, recipe.clientFromImage);
  for (std::size_t i = 0; i < recipe.cells.size(); ++i) {
    const mvPair<long>& c = recipe.cells[i];
    if (recipe.missing.count({c.x(), c.y()}) != 0) continue;
    entries.push_back({recipe.pose * client[i] + jitter(), c});
  }

  double minX = client.front().x(), maxX = minX, minY = client.front().y(), maxY = minY;
  for (const mvVector<2>& p : client) {
    minX = std::fmin(minX, p.x());
    maxX = std::fmax(maxX, p.x());
    minY = std::fmin(minY, p.y());
    maxY = std::fmax(maxY, p.y());
  }
  std::uniform_real_distribution<double> ux(minX - recipe.clutterMargin,
                                            maxX + recipe.clutterMargin);
  std::uniform_real_distribution<double> uy(minY - recipe.clutterMargin,
                                            maxY + recipe.clutterMargin);
  long placed = 0;
  while (placed < recipe.clutter) {
    // Drawn in two statements: the order of evaluation of function arguments differs
    // between compilers, and the scene must not.
    const double x = ux(rng);
    const mvVector<2> p(x, uy(rng));
    bool clear = true;
    for (const mvVector<2>& q : client) clear = clear && (p - q).len() >= recipe.clutterClearance;
    if (!clear) continue;
    entries.push_back({recipe.pose * p, mvPair<long>(-1, -1)});
    ++placed;
  }

  std::shuffle(entries.begin(), entries.end(), rng);
  Scene scene;
  for (std::size_t k = 0; k < entries.size(); ++k) {
    scene.data.push_back(entries[k].first);
    const mvPair<long>& c = entries[k].second;
    if (c.x() >= 0) scene.truth[{c.x(), c.y()}] = static_cast<long>(k);
  }
  return scene;
}

/// Checks every label of a result against the truth: each pel of its label image, at
/// pattern-frame position p, must hold the data index of the cell p - imageOffset.
inline void expectLabelsMatchTruth(const mvPointMatcherResult& result, const Scene& scene,
                                   const mvPair<long>& imageOffset = mvPair<long>(0, 0)) {
  const mvPelBuffer_const<long>& labels = result.gridToDataImage();
  ASSERT_TRUE(labels.isBound());
  long labelled = 0;
  for (long y = 0; y < labels.height(); ++y) {
    for (long x = 0; x < labels.width(); ++x) {
      const mvPair<long> p = mvPair<long>(x, y) + labels.offset();
      const long expected = scene.expectedAt(p - imageOffset);
      EXPECT_EQ(result.gridToDataMap(p), expected)
          << "at pattern pixel (" << p.x() << ", " << p.y() << ")";
      if (expected >= 0) ++labelled;
    }
  }
  EXPECT_EQ(labelled, static_cast<long>(scene.truth.size()))
      << "every found dot lies on the pattern";
}

/// Results of two runs are the same: poses, coverages, fit errors and labels.
inline void expectSameResults(const mvPointMatcherResultSet& a, const mvPointMatcherResultSet& b) {
  ASSERT_EQ(a.results().size(), b.results().size());
  for (std::size_t i = 0; i < a.results().size(); ++i) {
    const mvPointMatcherResult& ra = a.results()[i];
    const mvPointMatcherResult& rb = b.results()[i];
    EXPECT_EQ(ra.runMode(), rb.runMode());
    EXPECT_EQ(ra.modelToDataXform(), rb.modelToDataXform());
    EXPECT_EQ(ra.coverage(), rb.coverage());
    EXPECT_EQ(ra.fitError(), rb.fitError());
    const mvPelBuffer_const<long>& la = ra.gridToDataImage();
    const mvPelBuffer_const<long>& lb = rb.gridToDataImage();
    ASSERT_EQ(la.size(), lb.size());
    EXPECT_EQ(la.offset(), lb.offset());
    for (long y = 0; y < la.height(); ++y) {
      for (long x = 0; x < la.width(); ++x) EXPECT_EQ(la.pointToRow(y)[x], lb.pointToRow(y)[x]);
    }
  }
}

/// Run parameters for a dense pattern: the given capture range (explicit), a scale
/// uncertainty of +-10 % and the default rotation range of +-15 degrees.
inline mvPointMatcherRunParams denseParams(double captureRange, long maxNumResults = 1) {
  mvPointMatcherRunParams p;
  p.scaleUncertainty(mvRange(-0.1, 0.1));
  p.autoCaptureRange(false);
  p.captureRange(captureRange);
  p.maxNumResults(maxNumResults);
  return p;
}

/// The image-training state of a matcher as its archive holds it.
struct PatternState {
  bool hasCorresponder = false;
  mv_PointToGridCorresponder corresponder;
  bool hasNested = false;
  mvPointMatcher nested;
  mvXform<2> transform;
  long cellCount = 0;
  Cells cells;
};

/// Reads the archive of an image-trained matcher (which holds no point model): the
/// version, the three presence flags with the corresponder and the nested matcher, the
/// pattern transform, the cell count and the cells.
inline PatternState readPatternState(const mvPointMatcher& matcher) {
  mvMemoryArchive in(archive_bytes::store(matcher));
  PatternState s;
  unsigned long version = 0;
  long modelFlag = 0;
  long flag = 0;
  in || version;
  in || modelFlag;
  EXPECT_EQ(version, 200009ul);
  EXPECT_EQ(modelFlag, 0) << "an image-trained matcher holds no point model";
  in || flag;
  s.hasCorresponder = flag != 0;
  if (s.hasCorresponder) in || s.corresponder;
  in || flag;
  s.hasNested = flag != 0;
  if (s.hasNested) in || s.nested;
  in || s.transform;
  in || s.cellCount;
  in || s.cells;
  EXPECT_TRUE(in.atEnd());
  return s;
}

/// Loads into matcher an archive that replaces only what is given: the corresponder and
/// the nested matcher when present (a zero flag leaves the matcher's own in place), then
/// the pattern transform, the cell count and the cells.
inline void replacePatternState(mvPointMatcher& matcher, PatternState& s) {
  mvMemoryArchive out;
  unsigned long version = 200009;
  long noModel = 0;
  long corresponderFlag = s.hasCorresponder ? 1 : 0;
  long nestedFlag = s.hasNested ? 1 : 0;
  out || version;
  out || noModel;
  out || corresponderFlag;
  if (s.hasCorresponder) out || s.corresponder;
  out || nestedFlag;
  if (s.hasNested) out || s.nested;
  out || s.transform;
  out || s.cellCount;
  out || s.cells;
  mvMemoryArchive in(out.bytes());
  in || matcher;
  EXPECT_TRUE(in.atEnd());
}

}  // namespace pattern_test
