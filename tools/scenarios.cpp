#include "scenarios.h"

#include <cmath>
#include <cstdint>
#include <random>

#include "../tests/common/seeded_random.h"

namespace ptmatch::cli {

namespace {

// The seeded random numbers the tests and the benchmarks use too: the same scenes everywhere.
using DemoRandom = seeded_random::SeededRandom;

mvXform<2> similarity(double rotationDeg, double scale, const mvVector<2>& translation) {
  const mvRadian a = mvDegree(rotationDeg);
  return mvXform<2>(translation, a, a, scale, scale);
}

std::vector<mvVector<2>> fiducialModel() {
  std::vector<mvVector<2>> model;
  model.emplace_back(0.0, 0.0);
  for (int i = 1; i <= 5; ++i) model.emplace_back(6.0 * i, 0.0);   // long arm
  for (int i = 1; i <= 3; ++i) model.emplace_back(0.0, 6.0 * i);   // short arm
  for (int i = 1; i <= 2; ++i) model.emplace_back(-6.0 * i, 0.0);  // stub
  for (int i = 1; i <= 4; ++i) model.emplace_back(0.0, -6.0 * i);  // middle arm
  for (int i = 0; i < 20; ++i) {                                   // the ring
    const double a = 2.0 * mvDegree::kPi * i / 20.0;
    model.emplace_back(40.0 * std::cos(a), 40.0 * std::sin(a));
  }
  // An L-shaped orientation tab outside the ring.
  const double tab[5][2] = {{48, 12}, {54, 12}, {60, 12}, {60, 18}, {60, 24}};
  for (const auto& p : tab) model.emplace_back(p[0], p[1]);
  return model;
}

}  // namespace

FiducialScenario makeFiducialScenario() {
  DemoRandom random(20240607);
  FiducialScenario s;
  s.model = fiducialModel();
  s.rotationDeg = 37.5;
  s.scale = 1.035;
  s.noise = 0.2;
  s.truth = similarity(s.rotationDeg, s.scale, mvVector<2>(241.3, 187.6));
  const std::size_t missingIndices[] = {7, 22, 33};
  s.missing = 3;
  s.clutter = static_cast<long>(std::lround(0.3 * static_cast<double>(s.model.size())));

  // Data entries tagged with their model point (-1 for clutter), shuffled at the end.
  std::vector<std::pair<mvVector<2>, long>> tagged;
  for (std::size_t i = 0; i < s.model.size(); ++i) {
    bool left = false;
    for (const std::size_t m : missingIndices) left = left || m == i;
    const mvVector<2> p = s.truth * s.model[i];
    const mvVector<2> noise(s.noise * random.normal(), s.noise * random.normal());
    if (!left) tagged.emplace_back(p + noise, static_cast<long>(i));
  }
  // Clutter over the model's neighbourhood, kept 4 px away from every true point.
  for (long c = 0; c < s.clutter;) {
    const mvVector<2> q =
        s.truth * mvVector<2>(random.uniform(-55.0, 75.0), random.uniform(-55.0, 55.0));
    bool clear = true;
    for (const mvVector<2>& m : s.model) clear = clear && (s.truth * m - q).len() >= 4.0;
    if (!clear) continue;
    tagged.emplace_back(q, -1);
    ++c;
  }
  random.shuffle(tagged);
  s.trueMap.assign(s.model.size(), -1);
  for (std::size_t d = 0; d < tagged.size(); ++d) {
    s.data.push_back(tagged[d].first);
    if (tagged[d].second >= 0)
      s.trueMap[static_cast<std::size_t>(tagged[d].second)] = static_cast<long>(d);
  }
  return s;
}

GridScenario makeGridScenario() {
  DemoRandom random(19700101);
  GridScenario s;
  s.nominalXv = mvVector<2>(10.0, 0.0);
  s.nominalYv = mvVector<2>(0.0, 10.0);
  s.rotationDeg = 6.0;
  s.scale = 1.03;
  s.noise = 0.2;
  s.truth = similarity(s.rotationDeg, 10.0 * s.scale, mvVector<2>(150.0, 120.0));
  const long missingNodes[][2] = {{4, 2}, {7, 5}, {2, 6}};
  s.missing = 3;
  std::vector<std::pair<mvVector<2>, mvPair<long>>> tagged;
  for (long v = 0; v <= 8; ++v) {
    for (long u = 0; u <= 10; ++u) {
      if ((u + v) % 2 != 0) continue;
      bool left = false;
      for (const auto& m : missingNodes) left = left || (m[0] == u && m[1] == v);
      if (left) continue;
      const mvVector<2> p = s.truth * mvVector<2>(static_cast<double>(u), static_cast<double>(v));
      const mvVector<2> noise(s.noise * random.normal(), s.noise * random.normal());
      tagged.emplace_back(p + noise, mvPair<long>(u, v));
    }
  }
  random.shuffle(tagged);
  for (const auto& t : tagged) {
    s.points.push_back(t.first);
    s.trueNodes.push_back(t.second);
  }
  return s;
}

}  // namespace ptmatch::cli
