// The planned search against the written run over generated scenes of every kind users
// search: whatever the written run solves (its best result within 1 px of the truth), the
// planned search solves too, with the same map (all but at most 1 % of the scenes, and
// those differ in a point or two), and it never reports fewer results.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "planned_scenes.h"
#include "ptmatch/planned.h"

namespace {

using planned_test::makeScene;
using planned_test::rmsFromTruth;
using planned_test::Scene;
using planned_test::SceneSpec;

// Scenes per kind; PTMATCH_DIFFERENTIAL_CASES may lower it (the sanitizer builds do).
long casesPerKind() {
  const char* text = std::getenv("PTMATCH_DIFFERENTIAL_CASES");
  const long n = text != nullptr ? std::atol(text) : 0;
  return n > 0 ? n : 84;
}

struct Kind {
  std::string name;
  SceneSpec spec;
};

std::vector<Kind> kinds() {
  std::vector<Kind> k(6);
  k[0].name = "wide";
  k[1].name = "wide-degraded";
  k[1].spec.modelPoints = 30;
  k[1].spec.noise = 0.5;
  k[1].spec.clutter = 0.25;
  k[1].spec.missing = 0.15;
  k[2].name = "narrow-rotation";
  k[2].spec.anyRotation = false;
  k[2].spec.scaleLo = 0.9;
  k[2].spec.scaleHi = 1.1;
  k[2].spec.clutter = 0.1;
  k[3].name = "two-instances";
  k[3].spec.twoInstances = true;
  k[4].name = "few";
  k[4].spec.modelPoints = 8;
  k[4].spec.noise = 0.1;
  k[5].name = "larger";
  k[5].spec.modelPoints = 60;
  k[5].spec.minSpacing = 14.0;
  k[5].spec.anyRotation = false;
  k[5].spec.scaleLo = 0.9;
  k[5].spec.scaleHi = 1.1;
  k[5].spec.clutter = 0.05;
  k[5].spec.missing = 0.05;
  return k;
}

bool solves(const Scene& s, const mvPointMatcherResultSet& r) {
  return !r.results().empty() && rmsFromTruth(s, r.results()[0].modelToDataXform()) < 1.0;
}

TEST(PlannedDifferential, SolvesWhatTheWrittenRunSolvesWithTheSameMap) {
  long cases = 0, solvedByWritten = 0, differentMaps = 0;
  for (const Kind& kind : kinds()) {
    for (long i = 0; i < casesPerKind(); ++i) {
      const Scene s = makeScene(static_cast<std::uint32_t>(1000 * cases + 17), kind.spec);
      ++cases;
      mvPointMatcher m;
      m.train(s.model, mvPointMatcherDefs::eAutoDetect);
      mvPointMatcherResultSet planned, written;
      mfPlannedMatch(m, s.data, s.params, planned);
      m.run(s.data, s.params, written);
      const std::string where = kind.name + " case " + std::to_string(i);
      EXPECT_GE(planned.results().size(), written.results().size()) << where;
      if (!solves(s, written)) continue;
      ++solvedByWritten;
      ASSERT_TRUE(solves(s, planned)) << where;
      const std::vector<long>& a = planned.results()[0].modelToDataMap();
      const std::vector<long>& b = written.results()[0].modelToDataMap();
      if (a == b) {
        EXPECT_EQ(planned.results()[0].coverage(), written.results()[0].coverage()) << where;
        continue;
      }
      // The written run's own map depends on where its lattice happens to sample; a fine
      // pass samples the same lattice but holds other candidates, so rarely a clutter point
      // within the capture range goes the other way. Such a map differs in a point or two.
      ++differentMaps;
      long differing = 0;
      for (std::size_t m = 0; m < a.size(); ++m) differing += a[m] != b[m] ? 1 : 0;
      EXPECT_LE(differing, 2) << where;
      std::cout << where << ": maps differ in " << differing << " model point(s), coverage "
                << planned.results()[0].coverage() << " against the written run's "
                << written.results()[0].coverage() << "\n";
    }
  }
  // The scenes are meant to be solvable: most of them must be, or the test proves little.
  EXPECT_GT(solvedByWritten, cases * 3 / 4);
  // Same map in at least 99 % of the solved scenes.
  EXPECT_LE(differentMaps * 100, solvedByWritten) << differentMaps << " maps differ";
  std::cout << cases << " scenes, " << solvedByWritten << " solved by the written run, "
            << differentMaps << " with a different map\n";
}

}  // namespace
