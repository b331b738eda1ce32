// Seeded point-matching scenes of the kinds users search widely: a model scattered with a
// least spacing, found in data made from it under a random similarity (any rotation, or a
// range of it, and a range of scale), with noise, missing points and clutter, and the
// translation left free over the whole data. For the tests that compare runs and for the
// benchmarks that time them.
//
// Header-only and free of the test framework, like seeded_random.h.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "ptmatch/ppmatch.h"
#include "seeded_random.h"

namespace search_scenes {

using Points = std::vector<mvVector<2>>;

/// What to make.
struct SceneSpec {
  /// Model points, scattered over a square of side modelSide with at least minSpacing
  /// between any two.
  long modelPoints = 40;
  double modelSide = 200.0;
  double minSpacing = 8.0;
  /// Any rotation, or rotations within +-rotationDegrees.
  bool fullRotation = true;
  double rotationDegrees = 45.0;
  /// Scales from scaleLo to scaleHi (the search is told the same range).
  double scaleLo = 0.8;
  double scaleHi = 1.25;
  /// Noise of each coordinate (standard deviation), fractions of the model points left out
  /// and of clutter points added (relative to the model points).
  double sigma = 0.2;
  double missing = 0.0;
  double clutter = 0.0;
  /// Integer weights 1 to 4 per model point, one of them -2, instead of none.
  bool weighted = false;
  /// The data lie within a square of this side.
  double dataSide = 640.0;
  /// The run's parameters.
  double minCoverage = 0.6;
  long maxResults = 1;
};

/// A model, its weights (empty when unweighted), the data and the run parameters.
struct Scene {
  Points model;
  std::vector<long> weights;
  Points data;
  mvXform<2> truth;
  mvPointMatcherRunParams params;
};

/// The scene of spec made from seed.
inline Scene makeScene(const SceneSpec& spec, std::uint32_t seed) {
  seeded_random::SeededRandom random(seed);
  Scene s;
  while (static_cast<long>(s.model.size()) < spec.modelPoints) {
    const mvVector<2> p(random.uniform(0.0, spec.modelSide), random.uniform(0.0, spec.modelSide));
    bool apart = true;
    for (const mvVector<2>& q : s.model) apart = apart && (p - q).len() >= spec.minSpacing;
    if (apart) s.model.push_back(p);
  }
  if (spec.weighted) {
    for (long i = 0; i < spec.modelPoints; ++i) s.weights.push_back(i == 3 ? -2 : 1 + i % 4);
  }
  const double degrees = spec.fullRotation
                             ? random.uniform(-180.0, 180.0)
                             : random.uniform(-spec.rotationDegrees, spec.rotationDegrees);
  const double scale = random.uniform(spec.scaleLo, spec.scaleHi);
  // The model's centre lands anywhere its scaled reach keeps it inside the data square.
  const double reach = 0.75 * spec.modelSide * scale;
  const mvVector<2> centre(random.uniform(reach, spec.dataSide - reach),
                           random.uniform(reach, spec.dataSide - reach));
  const mvRadian angle = mvDegree(degrees);
  const mvVector<2> middle(spec.modelSide / 2.0, spec.modelSide / 2.0);
  const mvXform<2> turn(mvVector<2>(0.0, 0.0), angle, angle, scale, scale);
  s.truth = mvXform<2>(centre - turn * middle, angle, angle, scale, scale);
  for (const mvVector<2>& p : s.model) {
    if (random.uniform() < spec.missing) continue;
    const mvVector<2> q = s.truth * p;
    s.data.emplace_back(q.x() + random.normal(0.0, spec.sigma),
                        q.y() + random.normal(0.0, spec.sigma));
  }
  const auto clutter = static_cast<long>(std::lround(spec.clutter * spec.modelPoints));
  for (long k = 0; k < clutter; ++k) {
    s.data.emplace_back(random.uniform(0.0, spec.dataSide), random.uniform(0.0, spec.dataSide));
  }
  random.shuffle(s.data);
  s.params.minCoverage(spec.minCoverage);
  s.params.rotationUncertainty(
      spec.fullRotation
          ? mvAngleRange::FullRange()
          : mvAngleRange(mvDegree(-spec.rotationDegrees), mvDegree(spec.rotationDegrees), false));
  s.params.scaleUncertainty(mvRange(spec.scaleLo - 1.0, spec.scaleHi - 1.0));
  s.params.maxNumResults(spec.maxResults);
  return s;
}

/// A matcher trained on the scene's model (and weights).
inline mvPointMatcher trainedOn(const Scene& s) {
  mvPointMatcher matcher;
  if (s.weights.empty()) {
    matcher.train(s.model, mvPointMatcherDefs::eAutoDetect);
  } else {
    matcher.train(s.model, s.weights, mvPointMatcherDefs::eAutoDetect);
  }
  return matcher;
}

/// The wide family: 20-60 points, any rotation, scale 0.8-1.25, free translation.
inline SceneSpec wideSpec(long modelPoints) {
  SceneSpec spec;
  spec.modelPoints = modelPoints;
  return spec;
}

/// The many family: hundreds of points, +-45 degrees, scale 0.9-1.1, free translation.
inline SceneSpec manySpec(long modelPoints) {
  SceneSpec spec;
  spec.modelPoints = modelPoints;
  spec.modelSide = 40.0 * std::sqrt(static_cast<double>(modelPoints));
  spec.fullRotation = false;
  spec.rotationDegrees = 45.0;
  spec.scaleLo = 0.9;
  spec.scaleHi = 1.1;
  spec.dataSide = 1.5 * spec.modelSide * 1.1 / 0.75;
  return spec;
}

}  // namespace search_scenes
