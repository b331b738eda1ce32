// Helpers shared by the robustness tests: a reference model and its data, the invariants
// every matcher result must satisfy, and checks that an object came through a hostile call
// unharmed (its archive bytes unchanged, and it still finds the reference model).
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace robustness {

using Points = std::vector<mvVector<2>>;
// Archive bytes, storing and loading: the tests' common helpers.
using archive_bytes::Bytes;
using archive_bytes::loadInto;
using archive_bytes::storeObject;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Five model points with no symmetry, at least 10 apart.
inline Points referenceModel() { return {{0, 0}, {40, 0}, {0, 30}, {25, 12}, {13, 27}}; }

/// The pose that carries the reference model onto its data: 10 degrees and (100, 50).
inline mvXform<2> referencePose() {
  const mvRadian a = mvDegree(10.0);
  return mvXform<2>(mvVector<2>(100.0, 50.0), a, a, 1.0, 1.0);
}

inline Points transformed(const mvXform<2>& pose, const Points& points) {
  Points out;
  for (const mvVector<2>& p : points) out.push_back(pose * p);
  return out;
}

/// The reference model under the reference pose.
inline Points referenceData() { return transformed(referencePose(), referenceModel()); }

/// Coverage 0.5, rotation +-30 degrees, everything else as constructed.
inline mvPointMatcherRunParams referenceParams() {
  mvPointMatcherRunParams p;
  p.rotationUncertainty(mvAngleRange(mvDegree(-30.0), mvDegree(30.0), false));
  return p;
}

inline mvPointMatcher pointMatcher(const Points& model = referenceModel()) {
  mvPointMatcher m;
  m.train(model, mvPointMatcherDefs::eAutoDetect);
  return m;
}

inline mvPointMatcher exhaustiveMatcher(const Points& model) {
  mvPointMatcher m;
  m.train(model, mvPointMatcherDefs::eExhaustiveMode);
  return m;
}

/// Ranges for the exhaustive search: free translation, rotation +-30 degrees (so that no
/// turned pose ties with the true one), scale change +-0.5.
inline mvPointMatcherRunParams exhaustiveParams() {
  mvPointMatcherRunParams p;
  p.rotationUncertainty(mvAngleRange(mvDegree(-30.0), mvDegree(30.0), false));
  p.scaleUncertainty(mvRange(-0.5, 0.5));
  return p;
}

/// The invariants of every result set: at most maxNumResults results, each of the given
/// mode, coverage in [0, 1], fit error not negative, one map entry per model point that is
/// -1 or a valid data index with no data index twice, best first.
inline void expectValidResults(const mvPointMatcherResultSet& set, std::size_t numModel,
                               std::size_t numData, long maxNumResults,
                               mvPointMatcherDefs::Mode mode) {
  const std::vector<mvPointMatcherResult>& results = set.results();
  EXPECT_LE(static_cast<long>(results.size()), maxNumResults);
  for (std::size_t k = 0; k < results.size(); ++k) {
    const mvPointMatcherResult& r = results[k];
    EXPECT_EQ(r.runMode(), mode);
    EXPECT_GE(r.coverage(), 0.0);
    EXPECT_LE(r.coverage(), 1.0);
    EXPECT_GE(r.fitError(), 0.0);
    const std::vector<long>& map = r.modelToDataMap();
    EXPECT_EQ(map.size(), numModel);
    std::set<long> used;
    for (long d : map) {
      EXPECT_GE(d, -1);
      EXPECT_LT(d, static_cast<long>(numData));
      if (d >= 0) {
        EXPECT_TRUE(used.insert(d).second) << "data point " << d << " matched twice";
      }
    }
    if (k > 0) {
      EXPECT_GE(results[k - 1].coverage(), r.coverage());
      if (results[k - 1].coverage() == r.coverage()) {
        EXPECT_LE(results[k - 1].fitError(), r.fitError());
      }
    }
  }
}

/// The matcher still finds the reference model in the reference data: coverage 1, each
/// model point on its own data point, and the reference pose.
inline void expectFindsReference(const mvPointMatcher& matcher) {
  mvPointMatcherResultSet results;
  matcher.run(referenceData(), referenceParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  const mvPointMatcherResult& best = results.results()[0];
  EXPECT_DOUBLE_EQ(best.coverage(), 1.0);
  EXPECT_EQ(best.modelToDataMap(), (std::vector<long>{0, 1, 2, 3, 4}));
  EXPECT_LT(best.fitError(), 1e-9);
  EXPECT_NEAR(mvDegree(best.modelToDataXform().rotation()).toDouble(), 10.0, 1e-9);
}

/// A trained reference matcher went through a hostile call unharmed: the same archive
/// bytes as before, and it still finds the reference model.
inline void expectIntact(mvPointMatcher& matcher, const Bytes& before) {
  EXPECT_EQ(storeObject(matcher), before);
  expectFindsReference(matcher);
}

/// The message of a library exception, in UTF-8.
inline std::string messageOf(const mvException& e) { return mfNarrow(e.message()); }

/// Expects the call to throw exactly E with the given message.
template <typename E, typename F>
void expectThrowsWithMessage(F call, const std::string& message) {
  EXPECT_THROW_THAT(call(), E, [&](const E& e) {
    EXPECT_TRUE(typeid(e) == typeid(E)) << typeid(e).name();
    EXPECT_EQ(messageOf(e), message);
  });
}

}  // namespace robustness
