// Matching found dots with rendered ones: counts, misses, false dots, centre errors.
#pragma once

#include <cmath>
#include <vector>

#include "common/dot_images.h"
#include "ptmatch/dots.h"

namespace dot_test {

struct Score {
  long found = 0;      ///< rendered dots with a found dot within 1.5 pels
  long missed = 0;     ///< rendered dots without
  long falseDots = 0;  ///< found dots near no rendered dot
  double rms = 0.0;    ///< centre error of the matched dots, RMS
  double worst = 0.0;  ///< largest centre error
};

inline Score score(const std::vector<dot_images::Dot>& truth, const std::vector<mvDot>& found) {
  Score s;
  std::vector<bool> used(found.size(), false);
  double sum = 0.0;
  for (const dot_images::Dot& t : truth) {
    long best = -1;
    double bestDistance = 1.5;
    for (std::size_t i = 0; i < found.size(); ++i) {
      const double d = std::hypot(found[i].x() - t.x, found[i].y() - t.y);
      if (d < bestDistance) {
        bestDistance = d;
        best = static_cast<long>(i);
      }
    }
    if (best < 0) {
      ++s.missed;
      continue;
    }
    used[static_cast<std::size_t>(best)] = true;
    ++s.found;
    sum += bestDistance * bestDistance;
    s.worst = std::max(s.worst, bestDistance);
  }
  for (const bool u : used) {
    if (!u) ++s.falseDots;
  }
  if (s.found > 0) s.rms = std::sqrt(sum / static_cast<double>(s.found));
  return s;
}

}  // namespace dot_test
