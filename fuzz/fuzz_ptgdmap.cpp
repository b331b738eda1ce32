// Maps fuzzed points onto a grid with fuzzed parameters. Half of the inputs lay the points
// near the nodes of a grid (with noise, gaps and clutter) so that the mapping gets past its
// seed; the others take the points as they come. mfPtToGridMap may refuse non-finite input
// with mvPtToGridMapDefs::BadInput, and the fitter's errors may pass through; otherwise:
// - the count returned equals the number of assigned points, and valid() is count >= 3;
// - the map is either untouched (no seed) or holds one entry per point;
// - in the staggered case every assigned node of a valid mapping has an even index sum;
// - the time is set and not negative on every exit.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/fitter.h"
#include "ptmatch/ptgdmap.h"

namespace {

// Largest point set.
constexpr std::size_t kMaxPoints = 400;

std::vector<mvVector<2>> gridPoints(FuzzedDataProvider& in, const mvVector<2>& xv,
                                    const mvVector<2>& yv, bool staggered) {
  const int columns = in.ConsumeIntegralInRange<int>(1, 20);
  const int rows = in.ConsumeIntegralInRange<int>(1, 20);
  const double noise = in.ConsumeIntegralInRange<int>(0, 30) / 100.0;
  std::vector<mvVector<2>> points;
  for (int j = 0; j < rows; ++j) {
    for (int i = 0; i < columns; ++i) {
      if (staggered && (i + j) % 2 != 0) continue;
      if (in.ConsumeIntegralInRange<int>(0, 9) == 0) continue;  // a gap
      const double dx = (in.ConsumeIntegralInRange<int>(-100, 100) / 100.0) * noise;
      const double dy = (in.ConsumeIntegralInRange<int>(-100, 100) / 100.0) * noise;
      points.push_back(xv * i + yv * j + mvVector<2>(dx * xv.len(), dy * yv.len()));
    }
  }
  const std::size_t clutter = in.ConsumeIntegralInRange<std::size_t>(0, 10);
  const double reach = 30.0 * std::max(xv.len(), yv.len());
  for (std::size_t k = 0; k < clutter; ++k) points.push_back(fuzz_support::point(in, reach));
  return points;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const bool onGrid = in.ConsumeBool();
  const bool staggered = in.ConsumeBool();
  mvVector<2> xv;
  mvVector<2> yv;
  double snap = 0.0;
  std::vector<mvVector<2>> points;
  if (onGrid) {
    const double pitch = in.ConsumeIntegralInRange<int>(1, 400) / 10.0;
    const mvRadian turn = mvDegree(in.ConsumeIntegralInRange<int>(-30, 30));
    xv = mvVector<2>(pitch * std::cos(turn.toDouble()), pitch * std::sin(turn.toDouble()));
    yv = mvVector<2>(-xv.y(), xv.x()) * (in.ConsumeIntegralInRange<int>(8, 12) / 10.0);
    snap = pitch * in.ConsumeIntegralInRange<int>(0, 15) / 10.0;
    points = gridPoints(in, xv, yv, staggered);
    if (in.ConsumeBool()) xv = fuzz_support::point(in, 40.0);
  } else {
    xv = fuzz_support::point(in, 40.0);
    yv = fuzz_support::point(in, 40.0);
    // A snap size far below the points' spread makes a bucket grid of up to 2^27 cells,
    // which is allowed but slow; such sizes are left to the hostile values.
    snap = in.ConsumeIntegralInRange<int>(0, 15) == 0
               ? fuzz_support::hostileDouble(in)
               : in.ConsumeIntegralInRange<int>(-10, 400) / 10.0;
    points = fuzz_support::points(in, kMaxPoints, 400.0);
  }
  const mvRange sizeTol = in.ConsumeBool() ? fuzz_support::range(in, 2.0) : mvRange();
  const mvAngleRange angleTol = in.ConsumeBool() ? fuzz_support::angleRange(in) : mvAngleRange();
  const mvPtToGridMapRunParams params(xv, yv, staggered, snap, sizeTol, angleTol);

  mvPtToGridMapResult result;
  const std::vector<mvPair<long>> before = result.map();
  long count = 0;
  try {
    count = mfPtToGridMap(points, params, result);
  } catch (const mvPtToGridMapDefs::BadInput&) {
    FUZZ_CHECK(result.time() >= 0.0);
    return 0;
  } catch (const mvLSPointToPointFitter::Errors&) {
    return 0;
  } catch (const mvMathError&) {
    return 0;
  }
  FUZZ_CHECK(result.time() >= 0.0);
  FUZZ_CHECK(count >= 0 && count <= static_cast<long>(points.size()));
  FUZZ_CHECK(result.valid() == (count >= 3));
  if (count == 0 && result.map() == before) return 0;
  FUZZ_CHECK(result.map().size() == points.size());
  long assigned = 0;
  for (const mvPair<long>& node : result.map()) {
    const bool unassigned = node.x() == mvPtToGridMapResult::kUnassigned &&
                            node.y() == mvPtToGridMapResult::kUnassigned;
    if (unassigned) continue;
    ++assigned;
    // The staggered indices are made only for a valid mapping.
    if (staggered && result.valid()) FUZZ_CHECK((node.x() + node.y()) % 2 == 0);
  }
  FUZZ_CHECK(assigned == count);
  fuzz_support::checkStoreLoadStore(result, [] { return mvPtToGridMapResult(); });
  return 0;
}
