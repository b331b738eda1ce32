// Trains a grid corresponder from fuzzed nodes or a fuzzed image and runs it on fuzzed
// observed nodes or an observed image. The memory of both grows with the bounding box of
// the nodes, so coordinates stay within a few hundred pels. Training may refuse an image
// with fewer than 3 set pels (InsufficientModelPoints); a run checks its preconditions
// with mvAssert, which must fire exactly when one is broken (untrained, maxNumResults
// below 1, accept outside 0..1). Otherwise:
// - at most maxNumResults results, scores in [0, 1], best first; true exactly when some
//   result was reported;
// - the corresponder is unchanged by the run (archive bytes), and a copy runs alike.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"

namespace {

using Defs = mv_PointToGridCorresponderDefs;

constexpr long kMaxCoordinate = 48;
constexpr std::size_t kMaxNodes = 120;

std::vector<mvPair<long>> fuzzedNodes(FuzzedDataProvider& in, long spread) {
  const std::size_t n = in.ConsumeIntegralInRange<std::size_t>(0, kMaxNodes);
  std::vector<mvPair<long>> nodes;
  for (std::size_t i = 0; i < n && in.remaining_bytes() > 0; ++i) {
    const long x = in.ConsumeIntegralInRange<long>(-spread, spread);
    const long y = in.ConsumeIntegralInRange<long>(-spread, spread);
    nodes.emplace_back(x, y);
  }
  return nodes;
}

mvPelBuffer<unsigned char> fuzzedImage(FuzzedDataProvider& in) {
  const long width = in.ConsumeIntegralInRange<long>(0, 24);
  const long height = in.ConsumeIntegralInRange<long>(0, 24);
  mvPelBuffer<unsigned char> image(width, height, in.ConsumeIntegralInRange<long>(1, 40));
  const bool binary = in.ConsumeBool();
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      const unsigned char v = in.ConsumeIntegral<unsigned char>();
      image.put(x, y, binary ? static_cast<unsigned char>(v & 1) : v);
    }
  }
  image.offset(mvPair<long>(in.ConsumeIntegralInRange<long>(-kMaxCoordinate, kMaxCoordinate),
                            in.ConsumeIntegralInRange<long>(-kMaxCoordinate, kMaxCoordinate)));
  return image;
}

std::vector<unsigned char> bytesOf(mv_PointToGridCorresponder& c) {
  mvMemoryArchive out;
  out || c;
  return out.bytes();
}

void checkResults(const mv_PointToGridCorresponderResultSet& set, bool found, long maxResults) {
  const auto& results = set.results();
  FUZZ_CHECK(found == !results.empty());
  FUZZ_CHECK(static_cast<long>(results.size()) <= maxResults);
  FUZZ_CHECK(set.time() >= 0.0);
  for (std::size_t k = 0; k < results.size(); ++k) {
    FUZZ_CHECK(results[k].score() >= 0.0 && results[k].score() <= 1.0);
    if (k > 0) FUZZ_CHECK(results[k - 1].score() >= results[k].score());
  }
}

bool sameResults(const mv_PointToGridCorresponderResultSet& a,
                 const mv_PointToGridCorresponderResultSet& b) {
  if (a.results().size() != b.results().size()) return false;
  for (std::size_t k = 0; k < a.results().size(); ++k) {
    if (a.results()[k].score() != b.results()[k].score()) return false;
    if (a.results()[k].position() != b.results()[k].position()) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const mv_PointToGridCorresponderTrainParams trainParams(
      in.ConsumeBool(), static_cast<Defs::FeatureType>(in.ConsumeIntegralInRange<int>(-1, 3)));

  mv_PointToGridCorresponder corresponder;
  if (in.ConsumeBool()) {
    try {
      corresponder.train(fuzzedImage(in), trainParams);
    } catch (const Defs::InsufficientModelPoints&) {
      FUZZ_CHECK(corresponder.trainParams() == trainParams);
    }
  } else {
    const std::vector<mvPair<long>> nodes = fuzzedNodes(in, in.ConsumeIntegralInRange<long>(0, 16));
    try {
      corresponder.train(nodes, trainParams, fuzz_support::pose(in));
      FUZZ_CHECK(!nodes.empty());
    } catch (const mvAssertionError&) {
      FUZZ_CHECK(nodes.empty());  // training from no nodes is a precondition violation
    }
  }

  const long maxResults = in.ConsumeIntegralInRange<long>(-1, 12);
  const double accept = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 20) / 20.0
                                         : fuzz_support::number(in, 2.0);
  const mv_PointToGridCorresponderRunParams runParams(accept, 1.0, maxResults);
  // A capacity below 1 is refused only where the score store is made: a run with nothing
  // worth scanning returns first, finding nothing.
  const bool runnable = corresponder.isTrained() && accept >= 0.0 && accept <= 1.0;

  const bool useImage = in.ConsumeBool();
  const std::vector<mvPair<long>> observedNodes = fuzzedNodes(in, kMaxCoordinate);
  const mvPelBuffer<unsigned char> observedImage = fuzzedImage(in);
  const std::vector<unsigned char> before = bytesOf(corresponder);

  mv_PointToGridCorresponderResultSet results;
  bool found = false;
  try {
    found = useImage ? corresponder.run(observedImage, runParams, results)
                     : corresponder.run(observedNodes, runParams, results);
    FUZZ_CHECK(runnable);
  } catch (const mvAssertionError&) {
    FUZZ_CHECK(!runnable || maxResults < 1);
    return 0;
  }
  if (maxResults < 1) {
    FUZZ_CHECK(!found && results.results().empty());
    return 0;
  }
  checkResults(results, found, maxResults);
  FUZZ_CHECK(bytesOf(corresponder) == before);

  const mv_PointToGridCorresponder copy(corresponder);
  mv_PointToGridCorresponderResultSet again;
  const bool foundAgain = useImage ? copy.run(observedImage, runParams, again)
                                   : copy.run(observedNodes, runParams, again);
  FUZZ_CHECK(foundAgain == found);
  FUZZ_CHECK(sameResults(results, again));
  fuzz_support::checkStoreLoadStore(results, [] { return mv_PointToGridCorresponderResultSet(); });
  return 0;
}
