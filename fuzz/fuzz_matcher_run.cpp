// Trains a point matcher (eAutoDetect or eExhaustiveMode, with or without weights, or from
// a small dot-pattern image) and runs it on fuzzed data points and parameters. Training and
// the setters may refuse their input with the matcher's errors; the run may end with the
// library's exceptions (a singular start pose, an interruption after the poll budget).
// Whatever comes back must hold:
// - at most maxNumResults results, each of the run's mode;
// - coverage in [0, 1], a fit error that is not negative;
// - one map entry per model point, each -1 or a valid data index, no data index twice (for
//   a pattern-trained matcher: a label image whose pels are -1 or a valid data index);
// - greater coverage first, at equal coverage smaller fit error first;
// - the run leaves the matcher as it was (its archive bytes do not change), and a second
//   run with the same input gives the same results.
#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/fitter.h"
#include "mvbase/image.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"

namespace {

using Mode = mvPointMatcherDefs::Mode;

// How the matcher is trained.
enum class Training { kPoints, kExhaustive, kImage };

// Largest point sets: the exhaustive search grows as (data + 1) ^ model.
constexpr std::size_t kMaxSearchModel = 16;
constexpr std::size_t kMaxSearchData = 32;
constexpr std::size_t kMaxExhaustiveModel = 4;
constexpr std::size_t kMaxExhaustiveData = 6;
constexpr long kMaxPatternSide = 8;
// Polls allowed to one run before it is interrupted.
constexpr long kRunPolls = 60;

std::vector<unsigned char> bytesOf(mvPointMatcher& m) {
  mvMemoryArchive out;
  out || m;
  return out.bytes();
}

// Applies one fuzzed value per setter; a setter that refuses its value leaves the record
// as it was, which the next setters build on.
mvPointMatcherRunParams fuzzedParams(FuzzedDataProvider& in) {
  mvPointMatcherRunParams p;
  auto attempt = [](auto&& set) {
    try {
      set();
    } catch (const mvPointMatcherDefs::BadParams&) {
    }
  };
  const double coverage = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 20) / 20.0
                                           : fuzz_support::number(in, 2.0);
  attempt([&] { p.minCoverage(coverage); });
  if (in.ConsumeBool()) {
    const mvXform<2> pose = fuzz_support::pose(in);
    attempt([&] { p.startPose(pose); });
  }
  if (in.ConsumeBool()) {
    const mvRange r = fuzz_support::range(in, 200.0);
    attempt([&] { p.xTranslationUncertainty(r); });
  }
  if (in.ConsumeBool()) {
    const mvRange r = fuzz_support::range(in, 200.0);
    attempt([&] { p.yTranslationUncertainty(r); });
  }
  if (in.ConsumeBool()) {
    const mvAngleRange r = fuzz_support::angleRange(in);
    attempt([&] { p.rotationUncertainty(r); });
  }
  if (in.ConsumeBool()) {
    const mvRange r = fuzz_support::range(in, 1.0);
    attempt([&] { p.scaleUncertainty(r); });
  }
  if (in.ConsumeBool()) {
    const bool automatic = in.ConsumeBool();
    const double size = fuzz_support::number(in, 16.0);
    attempt([&] { p.autoGridSize(automatic); });
    attempt([&] { p.gridSize(size); });
  }
  if (in.ConsumeBool()) {
    const bool automatic = in.ConsumeBool();
    const double range = fuzz_support::number(in, 16.0);
    attempt([&] { p.autoCaptureRange(automatic); });
    attempt([&] { p.captureRange(range); });
  }
  const long maxResults = in.ConsumeBool() ? in.ConsumeIntegralInRange<long>(-2, 40)
                                           : in.ConsumeIntegral<std::int32_t>();
  attempt([&] { p.maxNumResults(maxResults); });
  return p;
}

// Trains the matcher from fuzzed points; false when training refused them.
bool fuzzedTraining(FuzzedDataProvider& in, mvPointMatcher& matcher, bool exhaustive) {
  const Mode mode = exhaustive ? mvPointMatcherDefs::eExhaustiveMode
                               : (in.ConsumeIntegralInRange<int>(0, 15) == 0
                                      ? static_cast<Mode>(in.ConsumeIntegralInRange<int>(0, 6))
                                      : mvPointMatcherDefs::eAutoDetect);
  const std::vector<mvVector<2>> model =
      fuzz_support::points(in, exhaustive ? kMaxExhaustiveModel : kMaxSearchModel);
  try {
    if (in.ConsumeBool()) {
      std::vector<long> weights;
      const std::size_t n =
          in.ConsumeBool() ? model.size() : in.ConsumeIntegralInRange<std::size_t>(0, 8);
      for (std::size_t i = 0; i < n; ++i)
        weights.push_back(in.ConsumeIntegralInRange<long>(-8, 40));
      matcher.train(model, weights, mode);
    } else {
      matcher.train(model, mode);
    }
  } catch (const mvPointMatcherDefs::Errors&) {
    FUZZ_CHECK(!matcher.isTrained());
    return false;
  }
  return true;
}

// Trains the matcher from a small fuzzed dot pattern; false when that left it untrained. A
// failure of the nested matcher's training (a client transform that sends the pels beyond
// the finite numbers) leaves the matcher partly trained, and such a matcher is run too.
bool fuzzedImageTraining(FuzzedDataProvider& in, mvPointMatcher& matcher) {
  const long width = in.ConsumeIntegralInRange<long>(0, kMaxPatternSide);
  const long height = in.ConsumeIntegralInRange<long>(0, kMaxPatternSide);
  mvPelBuffer<unsigned char> image(width, height);
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) image.put(x, y, in.ConsumeBool() ? 1 : 0);
  }
  if (in.ConsumeBool()) image.clientFromImageXform(fuzz_support::pose(in));
  try {
    matcher.train(image);
  } catch (const mvPointMatcherDefs::Errors&) {
    return matcher.isTrained();
  }
  return true;
}

// Data for a pattern-trained matcher: the pattern's set pels under a fuzzed pose, some left
// out, with fuzzed clutter; or fuzzed points as they come.
std::vector<mvVector<2>> patternData(FuzzedDataProvider& in, const mvPointMatcher& matcher) {
  if (in.ConsumeBool()) return fuzz_support::points(in, kMaxSearchData, 16.0);
  const mvPelBuffer_const<unsigned char>& pattern = matcher.pattern();
  const mvXform<2> pose = fuzz_support::pose(in);
  std::vector<mvVector<2>> data;
  for (long y = 0; y < pattern.height(); ++y) {
    for (long x = 0; x < pattern.width(); ++x) {
      if (pattern.pointToRow(y)[x] == 0 || in.ConsumeIntegralInRange<int>(0, 7) == 0) continue;
      data.push_back(pose * (pattern.clientFromImageXform() * mvVector<2>(x, y)));
    }
  }
  const std::size_t clutter = in.ConsumeIntegralInRange<std::size_t>(0, 6);
  for (std::size_t k = 0; k < clutter; ++k) data.push_back(fuzz_support::point(in, 16.0));
  return data;
}

void checkResults(const mvPointMatcherResultSet& set, const mvPointMatcherRunParams& params,
                  std::size_t numModel, std::size_t numData, Mode mode) {
  const std::vector<mvPointMatcherResult>& results = set.results();
  FUZZ_CHECK(static_cast<long>(results.size()) <= params.maxNumResults());
  FUZZ_CHECK(set.time() >= 0.0);
  for (std::size_t k = 0; k < results.size(); ++k) {
    const mvPointMatcherResult& r = results[k];
    FUZZ_CHECK(r.runMode() == mode);
    FUZZ_CHECK(r.coverage() >= 0.0 && r.coverage() <= 1.0);
    FUZZ_CHECK(!(r.fitError() < 0.0));
    if (mode == mvPointMatcherDefs::ePointToGrid) {
      const mvPelBuffer_const<long>& labels = r.gridToDataImage();
      FUZZ_CHECK(labels.isBound());
      for (long y = 0; y < labels.height(); ++y) {
        for (long x = 0; x < labels.width(); ++x) {
          const long d = labels.pointToRow(y)[x];
          FUZZ_CHECK(d >= -1 && d < static_cast<long>(numData));
        }
      }
    } else {
      const std::vector<long>& map = r.modelToDataMap();
      FUZZ_CHECK(map.size() == numModel);
      std::set<long> used;
      for (long d : map) {
        FUZZ_CHECK(d >= -1 && d < static_cast<long>(numData));
        if (d >= 0) FUZZ_CHECK(used.insert(d).second);
      }
    }
    if (k > 0) {
      const mvPointMatcherResult& before = results[k - 1];
      FUZZ_CHECK(before.coverage() >= r.coverage());
      if (before.coverage() == r.coverage()) FUZZ_CHECK(before.fitError() <= r.fitError());
    }
  }
}

bool sameResults(const mvPointMatcherResultSet& a, const mvPointMatcherResultSet& b) {
  if (a.results().size() != b.results().size()) return false;
  for (std::size_t k = 0; k < a.results().size(); ++k) {
    const mvPointMatcherResult& x = a.results()[k];
    const mvPointMatcherResult& y = b.results()[k];
    // Results that tie in coverage and fit error may come out in either order; compare
    // the keys, which the order fixes.
    if (x.coverage() != y.coverage()) return false;
    if (!(x.fitError() == y.fitError() ||
          (x.fitError() != x.fitError() && y.fitError() != y.fitError())))
      return false;
  }
  return true;
}

// Runs once; returns false when the run ended with one of the library's exceptions. A
// point-trained matcher then reports nothing; a pattern-trained one keeps the results it
// appended before the failure.
bool runOnce(const mvPointMatcher& matcher, const std::vector<mvVector<2>>& data,
             const mvPointMatcherRunParams& params, mvPointMatcherResultSet& results, Mode mode) {
  fuzz_support::PollBudget budget(kRunPolls);
  try {
    matcher.run(data, params, results);
    return true;
  } catch (const mvPointMatcherDefs::Errors&) {
  } catch (const mvMathError&) {
  } catch (const mvAttention::Interrupted&) {
  } catch (const mvPtToGridMapDefs::BadInput&) {
    FUZZ_CHECK(mode == mvPointMatcherDefs::ePointToGrid);
  } catch (const mvLSPointToPointFitter::Errors&) {
    FUZZ_CHECK(mode == mvPointMatcherDefs::ePointToGrid);
  }
  if (mode != mvPointMatcherDefs::ePointToGrid) FUZZ_CHECK(results.results().empty());
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const Training training = static_cast<Training>(in.ConsumeIntegralInRange<int>(0, 2));
  mvPointMatcher matcher;
  if (training == Training::kImage) {
    if (!fuzzedImageTraining(in, matcher)) return 0;
  } else if (!fuzzedTraining(in, matcher, training == Training::kExhaustive)) {
    return 0;
  }
  const mvPointMatcherRunParams params = fuzzedParams(in);
  const std::vector<mvVector<2>> points = training == Training::kImage ? patternData(in, matcher)
                                          : training == Training::kExhaustive
                                              ? fuzz_support::points(in, kMaxExhaustiveData)
                                              : fuzz_support::points(in, kMaxSearchData);

  const std::vector<unsigned char> before = bytesOf(matcher);
  const Mode mode = matcher.trainMode();
  const std::size_t numModel = training == Training::kImage ? 0 : matcher.modelPoints().size();
  mvPointMatcherResultSet first;
  if (!runOnce(matcher, points, params, first, mode)) return 0;
  checkResults(first, params, numModel, points.size(), mode);
  FUZZ_CHECK(bytesOf(matcher) == before);

  mvPointMatcherResultSet second;
  if (runOnce(matcher, points, params, second, mode)) FUZZ_CHECK(sameResults(first, second));
  return 0;
}
