// The one-call match (mfPlannedMatch, or the written run on request) and the thread setting.
#include "ptmatch/planned.h"
#include "common.h"

namespace ptmatch_py {
namespace {

py::list match(const py::object& model, const py::object& data, const py::object& weights,
               double minCoverage, const py::object& startPose, const py::object& xRange,
               const py::object& yRange, const py::object& rotation, const py::object& scale,
               const py::object& gridSize, const py::object& captureRange, long long maxResults,
               bool exact, const py::object& timeout) {
  const Points2 modelPoints = toPoints2(model, "model");
  const Points2 dataPoints = toPoints2(data, "data");
  // Unlike PointMatcher.run, any rotation and translation unless given.
  const py::object anyRotation = rotation.is_none() ? py::object(py::str("full")) : rotation;
  const mvPointMatcherRunParams params =
      makeRunParams(minCoverage, startPose, xRange, yRange, anyRotation, scale, gridSize,
                    captureRange, maxResults);
  const double seconds = timeoutSeconds(timeout);
  mvPointMatcher matcher;
  if (weights.is_none()) {
    matcher.train(modelPoints, mvPointMatcherDefs::eAutoDetect);
  } else {
    matcher.train(modelPoints, toLongs(weights, "weights"), mvPointMatcherDefs::eAutoDetect);
  }
  mvPointMatcherResultSet resultSet;
  withoutGil(
      [&] {
        if (exact) {
          const mvThreads::Scope threads(mvThreads::forMachine());
          matcher.run(dataPoints, params, resultSet);
        } else {
          mfPlannedMatch(matcher, dataPoints, params, resultSet);
        }
      },
      seconds);
  py::list items;
  for (const mvPointMatcherResult& r : resultSet.results()) items.append(py::cast(r));
  return makeResults(items, resultSet.time());
}

constexpr const char* kMatchDoc =
    R"doc(Finds a point model in data points in one call (mfPlannedMatch).

Trains a matcher with model (and weights) and finds the poses that carry it onto data with
the planned search: it plans the written run from the data (shape hypotheses, coarse grids
from the data's density, fine passes of the written run about each candidate) and falls
back to finer plans and to the written run itself, so it reports what the written run
reports, verified the same way, usually many times faster. exact=True runs the written run
(PointMatcher.run) with its automatic sizes instead; a given grid_size is honoured as given.
Both use every core unless ptmatch.set_num_threads() says otherwise; results do not depend
on the thread count.

model, data    (N, 2) array-likes of points
weights        None, or one whole number per model point
rotation       allowed rotation in degrees (lo, hi) or "full"; None means any rotation
x_range        allowed x translation (lo, hi) about the start pose; None means anywhere
y_range        the same for y
scale          allowed relative scale change (lo, hi), e.g. (-0.1, 0.1) for 0.9 to 1.1
min_coverage, start_pose, grid_size, capture_range, max_results: as for PointMatcher.run
exact          True for the written run over the whole ranges
timeout        seconds allowed, None for no limit

Returns a ptmatch.Results list of PointMatcherResult, best first, with the seconds of the
whole search in `time`.)doc";

}  // namespace

void bindPlanned(py::module_& m) {
  m.def("match", &match, py::arg("model"), py::arg("data"), py::arg("weights") = py::none(),
        py::arg("min_coverage") = 0.5, py::arg("start_pose") = py::none(),
        py::arg("x_range") = py::none(), py::arg("y_range") = py::none(),
        py::arg("rotation") = py::none(), py::arg("scale") = py::make_tuple(0.0, 0.0),
        py::arg("grid_size") = py::none(), py::arg("capture_range") = py::none(),
        py::arg("max_results") = 1, py::arg("exact") = false, py::arg("timeout") = py::none(),
        kMatchDoc);
  m.def(
      "set_num_threads",
      [](long n) {
        if (n < 0 || n > mvThreads::kMaxThreads) {
          throw py::value_error("set_num_threads: n must be from 0 to 1024");
        }
        mvThreads::setCount(n);
      },
      py::arg("n"),
      R"doc(Asks every search for n threads (mvThreads::setCount); 0 withdraws the request, so
that PointMatcher.run uses the calling thread alone again and ptmatch.match every core.
Raises ValueError outside 0 to 1024.)doc");
  m.def("get_num_threads", &mvThreads::requested,
        "The thread count asked for (set_num_threads or PTMATCH_NUM_THREADS), 0 when none.");
}

}  // namespace ptmatch_py
