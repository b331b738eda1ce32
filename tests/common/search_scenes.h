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
#include <utility>
#include <vector>

#include "ptmatch/ppmatch.h"
#include "seeded_random.h"

namespace search_scenes {

using Points = std::vector<mvVector<2>>;

/// What to make.
struct SceneRecipe {
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
  /// A second copy of the whole model under another random pose (no noise), as a second
  /// instance in the data.
  bool twoInstances = false;
};

/// A model, its weights (empty when unweighted), the data and the run parameters.
struct Scene {
  Points model;
  std::vector<long> weights;
  Points data;
  mvXform<2> truth;
  /// Per model point the index of its data point under truth, -1 when left out.
  std::vector<long> truthMap;
  mvPointMatcherRunParams params;
};

/// A random similarity that keeps the recipe's model inside the data square.
inline mvXform<2> randomPose(seeded_random::SeededRandom& random, const SceneRecipe& recipe) {
  const double degrees = recipe.fullRotation
                             ? random.uniform(-180.0, 180.0)
                             : random.uniform(-recipe.rotationDegrees, recipe.rotationDegrees);
  const double scale = random.uniform(recipe.scaleLo, recipe.scaleHi);
  // The model's centre lands anywhere its scaled reach keeps it inside the data square.
  const double reach = 0.75 * recipe.modelSide * scale;
  const double x = random.uniform(reach, recipe.dataSide - reach);
  const double y = random.uniform(reach, recipe.dataSide - reach);
  const mvVector<2> centre(x, y);
  const mvRadian angle = mvDegree(degrees);
  const mvVector<2> middle(recipe.modelSide / 2.0, recipe.modelSide / 2.0);
  const mvXform<2> turn(mvVector<2>(0.0, 0.0), angle, angle, scale, scale);
  return mvXform<2>(centre - turn * middle, angle, angle, scale, scale);
}

/// The scene a recipe makes from seed.
inline Scene makeScene(const SceneRecipe& recipe, std::uint32_t seed) {
  seeded_random::SeededRandom random(seed);
  Scene s;
  while (static_cast<long>(s.model.size()) < recipe.modelPoints) {
    const double x = random.uniform(0.0, recipe.modelSide);
    const double y = random.uniform(0.0, recipe.modelSide);
    const mvVector<2> p(x, y);
    bool apart = true;
    for (const mvVector<2>& q : s.model) apart = apart && (p - q).len() >= recipe.minSpacing;
    if (apart) s.model.push_back(p);
  }
  if (recipe.weighted) {
    for (long i = 0; i < recipe.modelPoints; ++i) s.weights.push_back(i == 3 ? -2 : 1 + i % 4);
  }
  s.truth = randomPose(random, recipe);
  // Each data point with the model point it comes from (-1: clutter, or the second instance).
  std::vector<std::pair<mvVector<2>, long>> data;
  for (std::size_t i = 0; i < s.model.size(); ++i) {
    if (random.uniform() < recipe.missing) continue;
    const mvVector<2> q = s.truth * s.model[i];
    const double dx = random.normal(0.0, recipe.sigma);  // drawn in this order on every compiler
    const double dy = random.normal(0.0, recipe.sigma);
    data.push_back({mvVector<2>(q.x() + dx, q.y() + dy), static_cast<long>(i)});
  }
  if (recipe.twoInstances) {
    const mvXform<2> other = randomPose(random, recipe);
    for (const mvVector<2>& p : s.model) data.push_back({other * p, -1L});
  }
  const auto clutter = static_cast<long>(std::lround(recipe.clutter * recipe.modelPoints));
  for (long k = 0; k < clutter; ++k) {
    const double x = random.uniform(0.0, recipe.dataSide);
    const double y = random.uniform(0.0, recipe.dataSide);
    data.push_back({mvVector<2>(x, y), -1L});
  }
  random.shuffle(data);
  s.truthMap.assign(s.model.size(), -1);
  for (const auto& [point, owner] : data) {
    if (owner >= 0) s.truthMap[static_cast<std::size_t>(owner)] = static_cast<long>(s.data.size());
    s.data.push_back(point);
  }
  s.params.minCoverage(recipe.minCoverage);
  s.params.rotationUncertainty(recipe.fullRotation
                                   ? mvAngleRange::FullRange()
                                   : mvAngleRange(mvDegree(-recipe.rotationDegrees),
                                                  mvDegree(recipe.rotationDegrees), false));
  s.params.scaleUncertainty(mvRange(recipe.scaleLo - 1.0, recipe.scaleHi - 1.0));
  s.params.maxNumResults(recipe.maxResults);
  return s;
}

/// Root-mean-square distance between the model under pose and under the truth.
inline double rmsFromTruth(const Scene& s, const mvXform<2>& pose) {
  double sum = 0.0;
  for (const mvVector<2>& p : s.model) {
    const mvVector<2> d = pose * p - s.truth * p;
    sum += d.x() * d.x() + d.y() * d.y();
  }
  return std::sqrt(sum / static_cast<double>(s.model.size()));
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
inline SceneRecipe wideRecipe(long modelPoints) {
  SceneRecipe recipe;
  recipe.modelPoints = modelPoints;
  return recipe;
}

/// The many family: hundreds of points, +-45 degrees, scale 0.9-1.1, free translation.
inline SceneRecipe manyRecipe(long modelPoints) {
  SceneRecipe recipe;
  recipe.modelPoints = modelPoints;
  recipe.modelSide = 40.0 * std::sqrt(static_cast<double>(modelPoints));
  recipe.fullRotation = false;
  recipe.rotationDegrees = 45.0;
  recipe.scaleLo = 0.9;
  recipe.scaleHi = 1.1;
  recipe.dataSide = 1.5 * recipe.modelSide * 1.1 / 0.75;
  return recipe;
}

}  // namespace search_scenes
