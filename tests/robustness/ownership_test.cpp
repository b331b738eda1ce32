// Ownership: the matcher's copies and assignments give the target its own parts and
// release what it held before, and every exception path releases what was allocated on
// the way. Each test checks the visible outcome; under the sanitizer build
// (scripts/test.sh --sanitize) LeakSanitizer also checks that nothing was leaked.
#include <gtest/gtest.h>

#include <vector>

#include "common/expect_throw.h"
#include "mvbase/attention.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/tm.h"
#include "robustness_support.h"

namespace {

using namespace robustness;

mvPelBuffer<unsigned char> sparsePattern() {
  mvPelBuffer<unsigned char> image(9, 9);
  for (long k = 0; k < 6; ++k) image.put((k * 4) % 9, (k * 7) % 9, 1);
  return image;
}

mvPelBuffer<unsigned char> densePattern() {
  mvPelBuffer<unsigned char> image(5, 4);
  for (long y = 0; y < 4; ++y) {
    for (long x = 0; x < 5; ++x) {
      if ((x + 2 * y) % 7 != 3) image.put(x, y, 1);
    }
  }
  return image;
}

// Matchers in every state a matcher can hold parts in.
std::vector<mvPointMatcher> matchersOfEveryKind() {
  std::vector<mvPointMatcher> matchers(5);
  matchers[1].train(referenceModel(), mvPointMatcherDefs::eAutoDetect);
  matchers[2].train(referenceModel(), {2, 1, 1, 0, -3}, mvPointMatcherDefs::eExhaustiveMode);
  matchers[3].train(sparsePattern());  // corresponder and nested matcher
  matchers[4].train(densePattern());   // corresponder only
  return matchers;
}

}  // namespace

TEST(Ownership, AssignmentBetweenMatchersOfEveryKindCopiesTheSourcesParts) {
  const std::vector<mvPointMatcher> sources = matchersOfEveryKind();
  for (std::size_t s = 0; s < sources.size(); ++s) {
    for (std::size_t t = 0; t < sources.size(); ++t) {
      std::vector<mvPointMatcher> targets = matchersOfEveryKind();
      mvPointMatcher& target = targets[t];
      target = sources[s];
      mvPointMatcher source = sources[s];
      if (s == 0) {
        // An untrained source has no parts to give; the target keeps none of its own
        // model points either way it is read back.
        continue;
      }
      EXPECT_EQ(storeObject(target), storeObject(source)) << "source " << s << ", target " << t;
    }
  }
}

TEST(Ownership, SelfAssignmentAndChainedCopiesKeepTheMatcher) {
  for (mvPointMatcher& matcher : matchersOfEveryKind()) {
    const Bytes before = storeObject(matcher);
    mvPointMatcher& alias = matcher;
    matcher = alias;
    EXPECT_EQ(storeObject(matcher), before);
    mvPointMatcher a(matcher);
    mvPointMatcher b;
    b = a;
    a.untrain();
    mvPointMatcher c(b);
    EXPECT_EQ(storeObject(c), before);
  }
}

TEST(Ownership, CopiesAreIndependentOfTheirSource) {
  mvPointMatcher source;
  source.train(sparsePattern());
  mvPointMatcher copy(source);
  mvPointMatcher assigned;
  assigned = source;
  const Bytes before = storeObject(copy);
  source.untrain();
  source.train(referenceModel(), mvPointMatcherDefs::eAutoDetect);
  EXPECT_EQ(storeObject(copy), before);
  EXPECT_EQ(storeObject(assigned), before);
  EXPECT_EQ(copy.trainMode(), mvPointMatcherDefs::ePointToGrid);
}

TEST(Ownership, EveryTrainingFailureReleasesWhatTheMatcherHeld) {
  for (mvPointMatcher& matcher : matchersOfEveryKind()) {
    EXPECT_THROW(matcher.train(Points{{0, 0}}, mvPointMatcherDefs::eAutoDetect),
                 mvPointMatcherDefs::InsufficientModelPoints);
    EXPECT_FALSE(matcher.isTrained());
  }
  for (mvPointMatcher& matcher : matchersOfEveryKind()) {
    EXPECT_THROW(matcher.train(referenceModel(), {1, 1}, mvPointMatcherDefs::eAutoDetect),
                 mvPointMatcherDefs::BadParams);
    EXPECT_THROW(matcher.train(referenceModel(), mvPointMatcherDefs::ePointToGrid),
                 mvPointMatcherDefs::BadParams);
    EXPECT_THROW(matcher.train(referenceModel(), {1, 0, 0, 0, 0}, mvPointMatcherDefs::eAutoDetect),
                 mvPointMatcherDefs::BadParams);
    EXPECT_THROW(matcher.train(mvPelBuffer<unsigned char>(3, 3)),
                 mvPointMatcherDefs::InsufficientModelPoints);
    mvPelBuffer<unsigned char> pattern = densePattern();
    pattern.clientFromImageXform(mvXform<2>(mvMatrix<2>(1, 0, 0, 1), mvVector<2>(kNaN, 0)));
    EXPECT_THROW(matcher.train(pattern), mvPointMatcherDefs::BadParams);
    EXPECT_FALSE(matcher.isTrained());
  }
}

TEST(Ownership, EveryRunFailureReleasesItsWorkingMemory) {
  const std::vector<mvPointMatcher> matchers = matchersOfEveryKind();
  mvPointMatcherResultSet results;
  EXPECT_THROW(matchers[0].run(referenceData(), referenceParams(), results),
               mvPointMatcherDefs::NotTrained);
  Points bad = referenceData();
  bad[0] = mvVector<2>(kNaN, 0);
  EXPECT_THROW(matchers[1].run(bad, referenceParams(), results), mvPointMatcherDefs::BadParams);
  mvPointMatcherRunParams singular = referenceParams();
  singular.startPose(mvXform<2>(mvMatrix<2>(0, 0, 0, 0), mvVector<2>()));
  EXPECT_THROW(matchers[1].run(referenceData(), singular, results), mvMathError);
  // An interruption at the first poll of every search that polls (the point-to-point
  // search, the exhaustive one, and the nested search of a sparse pattern).
  long interrupted = 0;
  for (std::size_t k = 1; k < matchers.size(); ++k) {
    mvAttention::requestInterruption();
    try {
      matchers[k].run(referenceData(), referenceParams(), results);
    } catch (const mvAttention::Interrupted&) {
      ++interrupted;
      EXPECT_TRUE(results.results().empty());
    }
    mvAttention::clear();
  }
  EXPECT_GE(interrupted, 3);
}

TEST(Ownership, ArchiveFailuresReleaseWhatLoadingAllocated) {
  for (mvPointMatcher& matcher : matchersOfEveryKind()) {
    const Bytes good = storeObject(matcher);
    for (std::size_t n = 0; n < good.size(); n += 3) {
      mvPointMatcher target;
      EXPECT_THROW(
          loadInto(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n)), target),
          mvArchive::Errors);
    }
  }
}

TEST(Ownership, ExceptionsRethrownBySuicideAreReleased) {
  // suicideAndRethrow destroys the heap object it is called on and throws a copy.
  mvException* heap = new mvPointMatcherDefs::BadParams(L"gone\n");
  EXPECT_THROW_THAT(
      heap->suicideAndRethrow(), mvPointMatcherDefs::BadParams,
      [&](const mvPointMatcherDefs::BadParams& e) { EXPECT_EQ(messageOf(e), "gone\n"); });
  mvException* other = new mvPtToGridMapDefs::BadInput();
  EXPECT_THROW(other->suicideAndRethrow(), mvPtToGridMapDefs::BadInput);
  mvException* tm = new mv2PtMatchTm::BadArgs();
  EXPECT_THROW(tm->suicideAndRethrow(), mv2PtMatchTm::BadArgs);
  mvException* corr = new mv_PointToGridCorresponderDefs::InsufficientMemory();
  EXPECT_THROW(corr->suicideAndRethrow(), mv_PointToGridCorresponderDefs::InsufficientMemory);
}
