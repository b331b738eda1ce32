// The seeded point families of bench/scenarios: each family makes the cases its name
// promises (sizes, ranges, degradations, instances), the truth carries the model onto its
// data, and the same seed gives the same points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "scenarios.h"

namespace {

using ptmatch_bench::makePointScenario;
using ptmatch_bench::Points;
using ptmatch_bench::PointScenario;

constexpr std::uint32_t kSeed = 1;
constexpr long kCases = 10;
constexpr double kDegree = 3.141592653589793 / 180.0;

double rotationDegrees(const mvXform<2>& pose) {
  return std::atan2(pose.matrix().element(1, 0), pose.matrix().element(0, 0)) / kDegree;
}

double scaleOf(const mvXform<2>& pose) {
  return std::hypot(pose.matrix().element(0, 0), pose.matrix().element(1, 0));
}

// What a family declares and how large its models are.
struct Expected {
  std::string family;
  bool fullRotation;
  double rotation;  // +-degrees when not full
  double scaleLo;
  double scaleHi;
  long minPoints;
  long maxPoints;
};

const std::vector<Expected>& expectations() {
  static const std::vector<Expected> all = {{"clean", false, 45.0, -0.1, 0.1, 20, 60},
                                            {"noise", false, 45.0, -0.1, 0.1, 20, 60},
                                            {"clutter", false, 45.0, -0.1, 0.1, 20, 60},
                                            {"missing", false, 45.0, -0.1, 0.1, 20, 60},
                                            {"partial", false, 45.0, -0.1, 0.1, 30, 60},
                                            {"few", false, 45.0, -0.1, 0.1, 4, 8},
                                            {"symmetric", true, 0.0, -0.1, 0.1, 6, 37},
                                            {"wide", true, 0.0, -0.2, 0.25, 20, 60},
                                            {"wide-degraded", true, 0.0, -0.2, 0.25, 30, 60},
                                            {"many", false, 45.0, -0.1, 0.1, 200, 2000},
                                            {"two-instances", false, 45.0, -0.1, 0.1, 20, 40},
                                            {"narrow-many", false, 10.0, -0.02, 0.02, 200, 2000}};
  return all;
}

bool insideImage(const PointScenario& s, const mvVector<2>& p) {
  return p.x() >= 0.0 && p.x() <= s.imageWidth && p.y() >= 0.0 && p.y() <= s.imageHeight;
}

TEST(PointFamilies, ListsTheRealisticFamiliesInReportOrder) {
  const std::vector<std::string> expected = {
      "clean",     "noise", "clutter",       "missing", "partial",       "few",
      "symmetric", "wide",  "wide-degraded", "many",    "two-instances", "narrow-many"};
  EXPECT_EQ(ptmatch_bench::pointFamilies(), expected);
}

TEST(PointFamilies, AnUnknownFamilyIsRefused) {
  EXPECT_THROW(makePointScenario("rotation-scale", 0, kSeed), std::invalid_argument);
  EXPECT_THROW(makePointScenario("", 0, kSeed), std::invalid_argument);
}

TEST(PointFamilies, DeclareTheirRangesAndLeaveTheTranslationFree) {
  for (const Expected& e : expectations()) {
    for (long i = 0; i < kCases; ++i) {
      SCOPED_TRACE(e.family + " case " + std::to_string(i));
      const PointScenario s = makePointScenario(e.family, i, kSeed);
      EXPECT_EQ(s.ranges.fullRotation, e.fullRotation);
      if (!e.fullRotation) {
        EXPECT_DOUBLE_EQ(s.ranges.rotationLo, -e.rotation);
        EXPECT_DOUBLE_EQ(s.ranges.rotationHi, e.rotation);
      }
      EXPECT_DOUBLE_EQ(s.ranges.scaleLo, e.scaleLo);
      EXPECT_DOUBLE_EQ(s.ranges.scaleHi, e.scaleHi);
      EXPECT_EQ(s.ranges.translation, e.family == "narrow-many" ? 50.0 : 0.0);
      EXPECT_EQ(s.ranges.maxResults, e.family == "two-instances" ? 2 : 1);
      EXPECT_GE(static_cast<long>(s.model.size()), e.minPoints);
      EXPECT_LE(static_cast<long>(s.model.size()), e.maxPoints);
    }
  }
}

TEST(PointFamilies, EveryTruePoseLiesInTheDeclaredRanges) {
  for (const Expected& e : expectations()) {
    for (long i = 0; i < kCases; ++i) {
      SCOPED_TRACE(e.family + " case " + std::to_string(i));
      const PointScenario s = makePointScenario(e.family, i, kSeed);
      ASSERT_FALSE(s.instances.empty());
      EXPECT_EQ(s.instances.front().matrix().element(0, 0), s.truth.matrix().element(0, 0));
      EXPECT_EQ((s.instances.front().trans() - s.truth.trans()).len(), 0.0);
      for (const mvXform<2>& pose : s.instances) {
        if (!e.fullRotation) {
          EXPECT_LE(std::fabs(rotationDegrees(pose)), e.rotation + 1e-9);
        }
        EXPECT_GE(scaleOf(pose), 1.0 + e.scaleLo - 1e-12);
        EXPECT_LE(scaleOf(pose), 1.0 + e.scaleHi + 1e-12);
      }
    }
  }
}

TEST(PointFamilies, TheTruthCarriesEachModelPointOntoItsDataPoint) {
  for (const std::string& family : ptmatch_bench::pointFamilies()) {
    for (long i = 0; i < kCases; ++i) {
      SCOPED_TRACE(family + " case " + std::to_string(i));
      const PointScenario s = makePointScenario(family, i, kSeed);
      ASSERT_EQ(s.truthMap.size(), s.model.size());
      long present = 0;
      for (std::size_t m = 0; m < s.model.size(); ++m) {
        const long j = s.truthMap[m];
        if (j < 0) continue;
        ++present;
        ASSERT_LT(j, static_cast<long>(s.data.size()));
        // Six standard deviations per coordinate, and a hair for the noiseless families.
        EXPECT_LE((s.truth * s.model[m] - s.data[static_cast<std::size_t>(j)]).len(),
                  6.0 * std::sqrt(2.0) * s.noise + 1e-9);
      }
      // Data = every instance's present points + clutter.
      const long instances = static_cast<long>(s.instances.size());
      EXPECT_EQ(static_cast<long>(s.data.size()),
                instances * static_cast<long>(s.model.size()) - s.missing + s.clutter);
      if (instances == 1) {
        EXPECT_EQ(present, static_cast<long>(s.model.size()) - s.missing);
      }
    }
  }
}

TEST(PointFamilies, EveryModelLiesWhollyInsideItsImageButThePartialOnes) {
  for (const std::string& family : ptmatch_bench::pointFamilies()) {
    if (family == "partial") continue;
    for (long i = 0; i < kCases; ++i) {
      SCOPED_TRACE(family + " case " + std::to_string(i));
      const PointScenario s = makePointScenario(family, i, kSeed);
      for (const mvXform<2>& pose : s.instances) {
        for (const mvVector<2>& m : s.model) EXPECT_TRUE(insideImage(s, pose * m));
      }
    }
  }
}

TEST(PointFamilies, PartialPartsAreSixtyToEightyFivePercentVisible) {
  for (long i = 0; i < kCases; ++i) {
    const PointScenario s = makePointScenario("partial", i, kSeed);
    long visible = 0;
    for (const mvVector<2>& m : s.model) visible += insideImage(s, s.truth * m) ? 1 : 0;
    const double share = static_cast<double>(visible) / static_cast<double>(s.model.size());
    EXPECT_GE(share, 0.55) << "case " << i;
    EXPECT_LE(share, 0.9) << "case " << i;
  }
}

TEST(PointFamilies, ManyRunsFromTwoHundredToTwoThousandPoints) {
  const long sizes[kCases] = {200, 250, 300, 400, 500, 700, 1000, 1200, 1500, 2000};
  for (long i = 0; i < kCases; ++i) {
    const PointScenario s = makePointScenario("many", i, kSeed);
    EXPECT_EQ(static_cast<long>(s.model.size()), sizes[i]) << "case " << i;
    // 5 % missing and 5 % clutter, 0.2 px noise.
    EXPECT_EQ(s.missing, std::lround(0.05 * static_cast<double>(sizes[i])));
    EXPECT_EQ(s.clutter, std::lround(0.05 * static_cast<double>(sizes[i])));
    EXPECT_DOUBLE_EQ(s.noise, 0.2);
  }
}

TEST(PointFamilies, WideDegradedCarriesItsClutterMissingAndNoise) {
  for (long i = 0; i < kCases; ++i) {
    const PointScenario s = makePointScenario("wide-degraded", i, kSeed);
    const double n = static_cast<double>(s.model.size());
    EXPECT_EQ(s.missing, std::lround(0.15 * n)) << "case " << i;
    EXPECT_EQ(s.clutter, std::lround(0.25 * n)) << "case " << i;
    EXPECT_DOUBLE_EQ(s.noise, 0.5);
  }
  const PointScenario wide = makePointScenario("wide", 3, kSeed);
  EXPECT_EQ(wide.missing, 0);
  EXPECT_EQ(wide.clutter, 0);
  EXPECT_DOUBLE_EQ(wide.noise, 0.2);
}

TEST(PointFamilies, TwoInstancesPutTheModelTwiceApart) {
  for (long i = 0; i < kCases; ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const PointScenario s = makePointScenario("two-instances", i, kSeed);
    ASSERT_EQ(s.instances.size(), 2u);
    EXPECT_EQ(s.data.size(), 2 * s.model.size());
    // One instance in each half of the image.
    const double half = s.imageWidth / 2.0;
    for (const mvVector<2>& m : s.model) {
      EXPECT_LE((s.instances[0] * m).x(), half);
      EXPECT_GE((s.instances[1] * m).x(), half);
    }
    // Every data point is one of the two instances' points.
    for (const mvVector<2>& d : s.data) {
      double nearest = 1e300;
      for (const mvXform<2>& pose : s.instances) {
        for (const mvVector<2>& m : s.model) nearest = std::min(nearest, (pose * m - d).len());
      }
      EXPECT_LE(nearest, 6.0 * std::sqrt(2.0) * s.noise);
    }
  }
}

TEST(PointFamilies, SearchParamsAskForEveryInstance) {
  const PointScenario two = makePointScenario("two-instances", 0, kSeed);
  EXPECT_EQ(ptmatch_bench::searchParams(two.ranges).maxNumResults(), 2);
  const PointScenario one = makePointScenario("wide", 0, kSeed);
  const mvPointMatcherRunParams p = ptmatch_bench::searchParams(one.ranges);
  EXPECT_EQ(p.maxNumResults(), 1);
  EXPECT_DOUBLE_EQ(p.minCoverage(), 0.7);
  const PointScenario narrow = makePointScenario("narrow-many", 0, kSeed);
  const mvPointMatcherRunParams q = ptmatch_bench::searchParams(narrow.ranges);
  EXPECT_DOUBLE_EQ(q.xTranslationUncertainty().start(), -50.0);
  EXPECT_DOUBLE_EQ(q.yTranslationUncertainty().end(), 50.0);
}

TEST(PointFamilies, TheSameSeedGivesTheSamePointsAndAnotherSeedOthers) {
  for (const std::string& family : {std::string("wide"), std::string("many")}) {
    const PointScenario a = makePointScenario(family, 2, kSeed);
    const PointScenario b = makePointScenario(family, 2, kSeed);
    const PointScenario c = makePointScenario(family, 2, kSeed + 1);
    ASSERT_EQ(a.data.size(), b.data.size());
    for (std::size_t j = 0; j < a.data.size(); ++j) {
      EXPECT_EQ(a.data[j].x(), b.data[j].x());
      EXPECT_EQ(a.data[j].y(), b.data[j].y());
    }
    EXPECT_NE(a.model[0].x(), c.model[0].x()) << family;
  }
}

TEST(PointFamilies, TheTenCasesOfAFamilyDiffer) {
  for (const std::string& family : ptmatch_bench::pointFamilies()) {
    std::set<double> firstCoordinates;
    for (long i = 0; i < kCases; ++i) {
      firstCoordinates.insert(makePointScenario(family, i, kSeed).data.front().x());
    }
    EXPECT_EQ(static_cast<long>(firstCoordinates.size()), kCases) << family;
  }
}

}  // namespace
