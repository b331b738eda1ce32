// Generated scenes for the planned search's tests: a random model, and data made from it
// under a known similarity with noise, clutter, missing points and a second instance.
#pragma once

#include <cmath>
#include <vector>

#include "common/seeded_random.h"
#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace planned_test {

using Points = std::vector<mvVector<2>>;

struct SceneSpec {
  long modelPoints = 20;
  double minSpacing = 24.0;  // of the model's points
  double modelSide = 200.0;  // the model fills a square this wide
  double dataSide = 500.0;   // the data's square (translation anywhere in it)
  bool anyRotation = true;   // else +-45 degrees
  double scaleLo = 0.8, scaleHi = 1.25;
  double noise = 0.2;         // per coordinate, pixels
  double clutter = 0.0;       // extra points, share of the model
  double missing = 0.0;       // share of model points left out
  bool twoInstances = false;  // a second copy under another pose
};

struct Scene {
  Points model;
  Points data;
  mvXform<2> truth;
  std::vector<long> truthMap;  // per model point its data point, -1 when left out
  mvPointMatcherRunParams params;
};

inline mvXform<2> similarity(double degrees, double scale, const mvVector<2>& t) {
  const double a = degrees * 3.141592653589793 / 180.0;
  return mvXform<2>(mvMatrix<2>(scale * std::cos(a), -scale * std::sin(a), scale * std::sin(a),
                                scale * std::cos(a)),
                    t);
}

inline Points randomModel(seeded_random::SeededRandom& rng, const SceneSpec& spec) {
  Points model;
  for (int tries = 0; static_cast<long>(model.size()) < spec.modelPoints && tries < 100000;
       ++tries) {
    const mvVector<2> p(rng.uniform(0.0, spec.modelSide), rng.uniform(0.0, spec.modelSide));
    bool apart = true;
    for (const mvVector<2>& q : model) {
      const mvVector<2> d = p - q;
      if (d.x() * d.x() + d.y() * d.y() < spec.minSpacing * spec.minSpacing) apart = false;
    }
    if (apart) model.push_back(p);
  }
  return model;
}

// A pose that puts the model's centre somewhere in the data square.
inline mvXform<2> randomPose(seeded_random::SeededRandom& rng, const SceneSpec& spec) {
  const double rotation = spec.anyRotation ? rng.uniform(-180.0, 180.0) : rng.uniform(-45.0, 45.0);
  const double scale = rng.uniform(spec.scaleLo, spec.scaleHi);
  const mvXform<2> turn = similarity(rotation, scale, mvVector<2>());
  const mvVector<2> centre(spec.modelSide / 2.0, spec.modelSide / 2.0);
  const double reach = spec.modelSide * 0.75 * scale;
  const mvVector<2> where(rng.uniform(reach, spec.dataSide - reach),
                          rng.uniform(reach, spec.dataSide - reach));
  return similarity(rotation, scale, where - turn * centre);
}

inline Scene makeScene(std::uint32_t seed, const SceneSpec& spec) {
  seeded_random::SeededRandom rng(seed);
  Scene s;
  s.model = randomModel(rng, spec);
  s.truth = randomPose(rng, spec);
  s.truthMap.assign(s.model.size(), -1);
  for (std::size_t i = 0; i < s.model.size(); ++i) {
    if (rng.uniform() < spec.missing) continue;
    const mvVector<2> p = s.truth * s.model[i];
    s.truthMap[i] = static_cast<long>(s.data.size());
    s.data.push_back(
        mvVector<2>(p.x() + rng.normal(0.0, spec.noise), p.y() + rng.normal(0.0, spec.noise)));
  }
  if (spec.twoInstances) {
    const mvXform<2> other = randomPose(rng, spec);
    for (const mvVector<2>& p : s.model) s.data.push_back(other * p);
  }
  const long clutter = std::lround(spec.clutter * static_cast<double>(s.model.size()));
  for (long k = 0; k < clutter; ++k) {
    s.data.push_back(mvVector<2>(rng.uniform(0.0, spec.dataSide), rng.uniform(0.0, spec.dataSide)));
  }
  s.params.minCoverage(0.6);
  s.params.xTranslationUncertainty(mvRange::FullRange());
  s.params.yTranslationUncertainty(mvRange::FullRange());
  s.params.rotationUncertainty(spec.anyRotation
                                   ? mvAngleRange::FullRange()
                                   : mvAngleRange(mvDegree(-50.0), mvDegree(50.0), false));
  s.params.scaleUncertainty(mvRange(spec.scaleLo - 1.0 - 0.02, spec.scaleHi - 1.0 + 0.02));
  s.params.maxNumResults(spec.twoInstances ? 2 : 1);
  return s;
}

// Root-mean-square distance between the model under pose and under the truth.
inline double rmsFromTruth(const Scene& s, const mvXform<2>& pose) {
  double sum = 0.0;
  for (const mvVector<2>& p : s.model) {
    const mvVector<2> d = pose * p - s.truth * p;
    sum += d.x() * d.x() + d.y() * d.y();
  }
  return std::sqrt(sum / static_cast<double>(s.model.size()));
}

}  // namespace planned_test
