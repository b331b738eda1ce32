// Truncated and bit-flipped archives of every persisted class. Loading damaged bytes may
// only throw the archive's own errors (mvArchive::Errors: EndOfData, BadData,
// UnknownVersion) or succeed with other values; it never crashes, leaks or allocates for a
// count the bytes cannot hold. Afterwards the object that was being loaded is still sound:
// loading the good bytes into it gives back exactly the stored object, and a matcher
// loaded from flipped bytes can still be copied and run.
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/matext.h"
#include "ptmatch/pinv.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/tm.h"
#include "robustness_support.h"

namespace {

using namespace robustness;

// What happened to one damaged load.
enum class Outcome { kLoaded, kArchiveError };

// Loads bytes into value; any exception other than the archive's errors fails the test.
template <typename T>
Outcome loadDamaged(const Bytes& bytes, T& value) {
  try {
    loadInto(bytes, value);
    return Outcome::kLoaded;
  } catch (const mvArchive::Errors&) {
    return Outcome::kArchiveError;
  }
}

// After damage, the good bytes load into the same object and give the sample back.
template <typename T>
void expectRestored(T& value, const Bytes& good) {
  loadInto(good, value);
  EXPECT_EQ(storeObject(value), good);
}

// A matcher keeps the parts that an archive's presence flags leave out, so one that a
// damaged load gave extra parts is restored by assigning a matcher loaded from good bytes.
template <>
void expectRestored(mvPointMatcher& value, const Bytes& good) {
  mvPointMatcher loaded;
  loadInto(good, loaded);
  value = loaded;
  EXPECT_EQ(storeObject(value), good);
}

// Every strict prefix of the sample's bytes fails to load with an archive error, and the
// partly loaded object then takes the good bytes.
template <typename T>
void expectTruncationsRefused(T sample, const std::function<T()>& fresh) {
  const Bytes good = storeObject(sample);
  ASSERT_FALSE(good.empty());
  for (std::size_t n = 0; n < good.size(); ++n) {
    T value = fresh();
    const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n));
    EXPECT_EQ(loadDamaged(prefix, value), Outcome::kArchiveError) << "prefix of " << n << " bytes";
    expectRestored(value, good);
  }
}

// Every single-bit flip of the sample's bytes either loads or fails with an archive error;
// what loaded is checked by the caller's probe; the object then takes the good bytes.
template <typename T>
void expectBitFlipsSafe(T sample, const std::function<T()>& fresh,
                        const std::function<void(T&)>& probe = nullptr) {
  const Bytes good = storeObject(sample);
  long loaded = 0;
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      Bytes damaged = good;
      damaged[i] = static_cast<unsigned char>(damaged[i] ^ (1u << bit));
      T value = fresh();
      if (loadDamaged(damaged, value) == Outcome::kLoaded) {
        ++loaded;
        if (probe) probe(value);
      }
      expectRestored(value, good);
    }
  }
  EXPECT_GT(loaded, 0);  // flips of plain numbers load
}

template <typename T>
void expectArchiveDamageHandled(const T& sample, const std::function<void(T&)>& probe = nullptr) {
  const std::function<T()> fresh = [] { return T(); };
  expectTruncationsRefused<T>(sample, fresh);
  expectBitFlipsSafe<T>(sample, fresh, probe);
}

// Interrupts any search after a few polls, so that running a damaged matcher stays short.
class ShortRuns {
 public:
  ShortRuns() { previous_ = mvAttention::setPoll(&ShortRuns::poll); }
  ~ShortRuns() {
    mvAttention::setPoll(previous_);
    mvAttention::clear();
  }
  static void reset() { polls_ = 0; }

 private:
  static bool poll() { return ++polls_ > 50; }
  static inline long polls_ = 0;
  mvAttention::Poll previous_;
};

// A matcher loaded from damaged bytes can be copied, assigned and run; the run may throw
// the library's exceptions.
void probeMatcher(mvPointMatcher& loaded) {
  mvPointMatcher copy(loaded);
  mvPointMatcher assigned = pointMatcher();
  assigned = loaded;
  ShortRuns::reset();
  mvPointMatcherResultSet results;
  try {
    copy.run(referenceData(), referenceParams(), results);
  } catch (const mvException&) {
  }
}

void probeCorresponder(mv_PointToGridCorresponder& loaded) {
  if (!loaded.isTrained()) return;
  const mv_PointToGridCorresponder copy(loaded);
  mv_PointToGridCorresponderResultSet results;
  copy.run(std::vector<mvPair<long>>{{0, 0}, {1, 0}, {0, 1}, {5, 5}},
           mv_PointToGridCorresponderRunParams(0.5, 1.0, 3), results);
}

// Samples: one trained or filled object of each class.

mvPointMatcherRunParams sampleRunParams() {
  mvPointMatcherRunParams p = referenceParams();
  p.startPose(referencePose());
  p.autoGridSize(false);
  p.gridSize(2.5);
  p.maxNumResults(7);
  return p;
}

mvPointMatcherResultSet sampleResultSet() {
  mvPointMatcherResultSet set;
  mvPointMatcher matcher = pointMatcher();
  mvPointMatcherRunParams params = referenceParams();
  params.minCoverage(0.2);
  params.maxNumResults(3);
  matcher.run(referenceData(), params, set);
  return set;
}

mvPelBuffer<unsigned char> sampleImage() {
  mvPelBuffer<unsigned char> image(4, 3);
  for (long y = 0; y < 3; ++y) {
    for (long x = 0; x < 4; ++x) image.put(x, y, static_cast<unsigned char>((x * 3 + y) % 2));
  }
  return image;
}

mvPointMatcher sampleImageTrainedMatcher() {
  mvPelBuffer<unsigned char> image(5, 5);
  for (long k = 0; k < 5; ++k) image.put(k, (k * 2) % 5, 1);
  mvPointMatcher m;
  m.train(image);
  return m;
}

}  // namespace

TEST(HostileArchive, PointMatcherRecordsSurviveTruncationAndBitFlips) {
  expectArchiveDamageHandled(sampleRunParams());
  const mvPointMatcherResultSet set = sampleResultSet();
  ASSERT_FALSE(set.results().empty());
  mvPointMatcherResult result = set.results()[0];
  expectArchiveDamageHandled(result);
  expectArchiveDamageHandled(set);
}

TEST(HostileArchive, PointTrainedMatcherSurvivesTruncationAndBitFlips) {
  ShortRuns shortRuns;
  mvPointMatcher weighted;
  weighted.train(referenceModel(), {3, 1, 2, 0, -1}, mvPointMatcherDefs::eAutoDetect);
  expectTruncationsRefused<mvPointMatcher>(pointMatcher(), [] { return mvPointMatcher(); });
  expectBitFlipsSafe<mvPointMatcher>(
      pointMatcher(), [] { return mvPointMatcher(); }, probeMatcher);
  expectBitFlipsSafe<mvPointMatcher>(
      weighted, [] { return mvPointMatcher(); }, probeMatcher);
}

TEST(HostileArchive, ImageTrainedMatcherSurvivesTruncationAndBitFlips) {
  ShortRuns shortRuns;
  expectTruncationsRefused<mvPointMatcher>(sampleImageTrainedMatcher(),
                                           [] { return mvPointMatcher(); });
  expectBitFlipsSafe<mvPointMatcher>(
      sampleImageTrainedMatcher(), [] { return mvPointMatcher(); }, probeMatcher);
}

TEST(HostileArchive, DamagedLoadIntoATrainedMatcherLeavesItLoadable) {
  // Loading over a trained matcher: a damaged archive leaves it partly loaded, and the good
  // bytes of another matcher then replace it completely.
  const mvPointMatcher other = sampleImageTrainedMatcher();
  mvPointMatcher copyOfOther(other);
  const Bytes good = storeObject(copyOfOther);
  for (std::size_t n = 0; n < good.size(); n += 7) {
    mvPointMatcher target = pointMatcher();
    const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n));
    EXPECT_EQ(loadDamaged(prefix, target), Outcome::kArchiveError);
    mvPointMatcher fresh;
    loadInto(good, fresh);
    target = fresh;
    EXPECT_EQ(storeObject(target), good);
  }
}

TEST(HostileArchive, GridMapRecordsSurviveTruncationAndBitFlips) {
  mvPtToGridMapRunParams params(mvVector<2>(10, 0), mvVector<2>(0, 10), true, 9.0,
                                mvRange(0.9, 1.1),
                                mvAngleRange(mvDegree(-5.0), mvDegree(5.0), false));
  expectArchiveDamageHandled(params);
  std::vector<mvVector<2>> points;
  for (int j = 0; j < 3; ++j) {
    for (int i = 0; i < 3; ++i) points.emplace_back(10.0 * i, 10.0 * j);
  }
  points.emplace_back(55.0, 55.0);
  mvPtToGridMapResult result;
  ASSERT_GE(mfPtToGridMap(
                points, mvPtToGridMapRunParams(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0),
                result),
            3);
  expectArchiveDamageHandled(result);
}

TEST(HostileArchive, GridCorresponderAndItsRecordsSurviveTruncationAndBitFlips) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train(sampleImage(),
                     mv_PointToGridCorresponderTrainParams(
                         false, mv_PointToGridCorresponderDefs::eThickBoundaryFeatures));
  expectArchiveDamageHandled(corresponder,
                             std::function<void(mv_PointToGridCorresponder&)>(probeCorresponder));
  expectArchiveDamageHandled(mv_PointToGridCorresponderTrainParams(
      true, mv_PointToGridCorresponderDefs::eThickBoundaryFeatures));
  expectArchiveDamageHandled(mv_PointToGridCorresponderRunParams(0.75, 0.5, 4));
  mv_PointToGridCorresponderResultSet results;
  std::vector<mvPair<long>> nodes;
  for (long y = 0; y < 3; ++y) {
    for (long x = 0; x < 4; ++x) {
      if ((x * 3 + y) % 2 != 0) nodes.emplace_back(x + 6, y + 2);
    }
  }
  ASSERT_TRUE(corresponder.run(nodes, mv_PointToGridCorresponderRunParams(0.5, 1.0, 3), results));
  expectArchiveDamageHandled(results);
  mv_PointToGridCorresponderResult one = results.results()[0];
  expectArchiveDamageHandled(one);
}

TEST(HostileArchive, TransformsAndNumericsSurviveTruncationAndBitFlips) {
  mv2PtMatchTm tm2(referencePose());
  expectArchiveDamageHandled(tm2);
  mv2PTm perspective(tm2);
  expectArchiveDamageHandled(perspective);
  mv3PtMatchTm tm3;
  tm3.translate(mvVector<3>(1, 2, 3));
  expectArchiveDamageHandled(tm3);
  mvPsuedoInverse fitter(3);
  fitter.update({1, 2, 3}, 4);
  fitter.update({0, 1, 0}, 2);
  expectArchiveDamageHandled(fitter);
  mvMatrixExt matrix(2, 3);
  matrix.element(1, 2, 7.5);
  expectArchiveDamageHandled(matrix);
}

TEST(HostileArchive, ExceptionsSurviveTruncationAndBitFlips) {
  using Make = mvPersistent* (*)();
  const Make makers[] = {&mvPointMatcherDefs::BadParams::make,
                         &mvPtToGridMapDefs::BadInput::make,
                         &mv_PointToGridCorresponderDefs::InsufficientMemory::make,
                         &mvMatrixExt::SingularMatrix::make,
                         &mvArchive::UnknownVersion::make,
                         &mvAssertionError::make};
  for (Make make : makers) {
    std::unique_ptr<mvPersistent> sample(make());
    mvMemoryArchive out;
    sample->dispatchSerialize(out);
    const Bytes good = out.bytes();
    for (std::size_t n = 0; n < good.size(); ++n) {
      std::unique_ptr<mvPersistent> value(make());
      mvMemoryArchive in(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n)));
      EXPECT_THROW(value->dispatchSerialize(in), mvArchive::Errors);
    }
    for (std::size_t i = 0; i < good.size(); ++i) {
      for (int bit = 0; bit < 8; ++bit) {
        Bytes damaged = good;
        damaged[i] = static_cast<unsigned char>(damaged[i] ^ (1u << bit));
        std::unique_ptr<mvPersistent> value(make());
        mvMemoryArchive in(damaged);
        try {
          value->dispatchSerialize(in);
          (void)static_cast<mvException*>(value.get())->what();
        } catch (const mvArchive::Errors&) {
        }
      }
    }
  }
}

TEST(HostileArchive, CountsBeyondTheBytesLeftAreRefusedBeforeAllocating) {
  // A result set claiming 2^32 - 1 results, and a matcher whose point list claims as many
  // points: both are refused with BadData, not allocated.
  mvPointMatcherResultSet set = sampleResultSet();
  Bytes bytes = storeObject(set);
  // Version (4), time (8), container version (1), then the count.
  for (std::size_t i = 13; i < 17; ++i) bytes[i] = 0xff;
  mvPointMatcherResultSet loaded;
  EXPECT_THROW(loadInto(bytes, loaded), mvArchive::BadData);

  std::vector<mvVector<2>> points(3);
  Bytes pointBytes = storeObject(points);
  for (std::size_t i = 1; i < 5; ++i) pointBytes[i] = 0xff;
  std::vector<mvVector<2>> loadedPoints;
  EXPECT_THROW(loadInto(pointBytes, loadedPoints), mvArchive::BadData);
}

TEST(HostileArchive, AnEmptyImageOfHugeSideIsRefusedBeforeAllocating) {
  // An image of 0 x n pels holds no pel data, yet would allocate a row stride per row:
  // a huge n is refused. A modest one loads.
  mvPelBuffer<long> image(0, 3);
  Bytes bytes = storeObject(static_cast<mv_PelBuffer&>(image));
  mvPelBuffer<long> loaded;
  loadInto(bytes, static_cast<mv_PelBuffer&>(loaded));
  EXPECT_EQ(loaded.size(), mvPair<long>(0, 3));
  for (std::size_t i = 4; i < 8; ++i) bytes[i] = i == 7 ? 0x7f : 0xff;  // height 2^31 - 1
  EXPECT_THROW(loadInto(bytes, static_cast<mv_PelBuffer&>(loaded)), mvArchive::BadData);
  mvPelBuffer<unsigned char> wide(3, 0);
  Bytes wideBytes = storeObject(static_cast<mv_PelBuffer&>(wide));
  for (std::size_t i = 0; i < 4; ++i) wideBytes[i] = i == 3 ? 0x7f : 0xff;  // width 2^31 - 1
  mvPelBuffer<unsigned char> loadedWide;
  EXPECT_THROW(loadInto(wideBytes, static_cast<mv_PelBuffer&>(loadedWide)), mvArchive::BadData);
}
