// Bindings of the point matcher: PointMatcher (mvPointMatcher), RunParams
// (mvPointMatcherRunParams) and PointMatcherResult (mvPointMatcherResult).
//
// Choices of the bindings:
// - A run returns a ptmatch.Results, a list of PointMatcherResult best first whose `time`
//   is the run's seconds (mvPointMatcherResultSet::time).
// - Copies and pickles keep the train mode of an exhaustive-mode matcher. The C++ copy
//   constructor and the archive leave the train mode behind (it travels only through
//   training), which would turn such a matcher into a point-to-point one; the bindings
//   restore it through the assignment, which keeps the target's own mode. to_bytes() and
//   from_bytes() are the bare archive and behave as in C++.
// - A matcher being run by one thread refuses training and untraining from another
//   (RuntimeError) instead of racing with the run.
#include <string>

#include "common.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch_py {

namespace {

using Mode = mvPointMatcherDefs::Mode;

const char* modeName(Mode mode) {
  switch (mode) {
    case mvPointMatcherDefs::ePointToPoint:
      return "point_to_point";
    case mvPointMatcherDefs::ePointToGrid:
      return "point_to_grid";
    case mvPointMatcherDefs::eExhaustiveMode:
      return "exhaustive";
    case mvPointMatcherDefs::eAutoDetect:
      return "auto";
  }
  return "unknown";
}

// "auto" and "exhaustive" are the modes a training from points accepts; the other two names
// pass to the library, which refuses them with its own message.
Mode trainModeFrom(const std::string& name) {
  if (name == "auto") return mvPointMatcherDefs::eAutoDetect;
  if (name == "exhaustive") return mvPointMatcherDefs::eExhaustiveMode;
  if (name == "point_to_point") return mvPointMatcherDefs::ePointToPoint;
  if (name == "point_to_grid") return mvPointMatcherDefs::ePointToGrid;
  throw py::value_error("mode must be \"auto\" or \"exhaustive\", not \"" + name + "\"");
}

long toLong32(long long v, const char* what) {
  if (v < -2147483647LL - 1 || v > 2147483647LL) {
    throw py::value_error(std::string(what) + " must fit 32 bits");
  }
  return static_cast<long>(v);
}

// --- run parameters ---

// Applies each given field through its validating setter, in the order of the C++
// constructor; None keeps the default of a fresh RunParams.
mvPointMatcherRunParams buildRunParams(double minCoverage, const py::object& startPose,
                                       const py::object& xRange, const py::object& yRange,
                                       const py::object& rotation, const py::object& scale,
                                       const py::object& gridSize, const py::object& captureRange,
                                       long long maxResults) {
  mvPointMatcherRunParams p;
  p.minCoverage(minCoverage);
  if (!startPose.is_none()) p.startPose(toXform(startPose, "start_pose"));
  p.xTranslationUncertainty(toRange(xRange, p.xTranslationUncertainty(), "x_range"));
  p.yTranslationUncertainty(toRange(yRange, p.yTranslationUncertainty(), "y_range"));
  p.rotationUncertainty(toAngleRangeDegrees(rotation, p.rotationUncertainty(), "rotation"));
  p.scaleUncertainty(toRange(scale, p.scaleUncertainty(), "scale"));
  p.autoGridSize(gridSize.is_none());
  if (!gridSize.is_none()) p.gridSize(gridSize.cast<double>());
  p.autoCaptureRange(captureRange.is_none());
  if (!captureRange.is_none()) p.captureRange(captureRange.cast<double>());
  p.maxNumResults(toLong32(maxResults, "max_results"));
  return p;
}

// The keyword arguments shared by RunParams() and PointMatcher.run().
#define PTMATCH_RUN_PARAM_ARGS                                                   \
  py::arg("min_coverage") = 0.5, py::arg("start_pose") = py::none(),             \
  py::arg("x_range") = py::none(), py::arg("y_range") = py::none(),              \
  py::arg("rotation") = py::none(), py::arg("scale") = py::make_tuple(0.0, 0.0), \
  py::arg("grid_size") = py::none(), py::arg("capture_range") = py::none(),      \
  py::arg("max_results") = 1

constexpr const char* kRunParamsDoc = R"doc(
min_coverage   least matched fraction of the model weight, in [0, 1] (minCoverage)
start_pose     nominal model-to-data pose, 2x3 [[a00, a01, tx], [a10, a11, ty]]; None is the
               identity (startPose)
x_range        allowed x translation about the start pose: (lo, hi), "full", or None for
               the default, full (xTranslationUncertainty)
y_range        the same for y (yTranslationUncertainty)
rotation       allowed rotation about the start pose in degrees: (lo, hi), "full", or None
               for the C++ default of -15 to +15 degrees (rotationUncertainty)
scale          allowed relative scale change (lo, hi), lo at least -0.9; (0, 0) means no
               scale change (scaleUncertainty)
grid_size      spatial quantisation cell in model units, above 0; None computes it from
               the model (autoGridSize, gridSize)
capture_range  distance within which a data point matches a projected model point, at
               least 0; None computes it (autoCaptureRange, captureRange)
max_results    most results to return, at least 1 (maxNumResults)

Every field is validated by the library's setter: a rejected value raises
ptmatch.BadParams with the library's message.)doc";

void bindRunParams(py::module_& m) {
  py::class_<mvPointMatcherRunParams> cls(
      m, "RunParams",
      (std::string("What a point matcher run looks for (mvPointMatcherRunParams).\n") +
       kRunParamsDoc)
          .c_str());
  cls.def(py::init(&makeRunParams), PTMATCH_RUN_PARAM_ARGS);
  cls.def_property(
      "min_coverage", [](const mvPointMatcherRunParams& p) { return p.minCoverage(); },
      [](mvPointMatcherRunParams& p, double v) { p.minCoverage(v); },
      "Least matched fraction of the model weight, in [0, 1] (minCoverage).");
  cls.def_property(
      "start_pose", [](const mvPointMatcherRunParams& p) { return fromXform(p.startPose()); },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        p.startPose(v.is_none() ? mvXform<2>() : toXform(v, "start_pose"));
      },
      "Nominal model-to-data pose as a 2x3 array (startPose).");
  cls.def_property(
      "x_range",
      [](const mvPointMatcherRunParams& p) { return fromRange(p.xTranslationUncertainty()); },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        p.xTranslationUncertainty(toRange(v, mvRange(), "x_range"));
      },
      "Allowed x translation: (lo, hi) or \"full\" (xTranslationUncertainty).");
  cls.def_property(
      "y_range",
      [](const mvPointMatcherRunParams& p) { return fromRange(p.yTranslationUncertainty()); },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        p.yTranslationUncertainty(toRange(v, mvRange(), "y_range"));
      },
      "Allowed y translation: (lo, hi) or \"full\" (yTranslationUncertainty).");
  cls.def_property(
      "rotation",
      [](const mvPointMatcherRunParams& p) {
        return fromAngleRangeDegrees(p.rotationUncertainty());
      },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        p.rotationUncertainty(toAngleRangeDegrees(v, mvAngleRange(), "rotation"));
      },
      "Allowed rotation in degrees: (lo, hi) or \"full\" (rotationUncertainty).");
  cls.def_property(
      "scale", [](const mvPointMatcherRunParams& p) { return fromRange(p.scaleUncertainty()); },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        p.scaleUncertainty(toRange(v, mvRange(), "scale"));
      },
      "Allowed relative scale change (lo, hi) (scaleUncertainty).");
  cls.def_property(
      "grid_size",
      [](const mvPointMatcherRunParams& p) -> py::object {
        if (p.autoGridSize()) return py::none();
        return py::float_(p.gridSize());
      },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        mvPointMatcherRunParams changed = p;  // p stays as it was when the setter refuses
        changed.autoGridSize(v.is_none());
        if (!v.is_none()) changed.gridSize(v.cast<double>());
        p = changed;
      },
      "Quantisation cell size, or None for automatic (autoGridSize, gridSize).");
  cls.def_property(
      "capture_range",
      [](const mvPointMatcherRunParams& p) -> py::object {
        if (p.autoCaptureRange()) return py::none();
        return py::float_(p.captureRange());
      },
      [](mvPointMatcherRunParams& p, const py::object& v) {
        mvPointMatcherRunParams changed = p;
        changed.autoCaptureRange(v.is_none());
        if (!v.is_none()) changed.captureRange(v.cast<double>());
        p = changed;
      },
      "Capture range, or None for automatic (autoCaptureRange, captureRange).");
  cls.def_property(
      "max_results", [](const mvPointMatcherRunParams& p) { return p.maxNumResults(); },
      [](mvPointMatcherRunParams& p, long long v) { p.maxNumResults(toLong32(v, "max_results")); },
      "Most results to return, at least 1 (maxNumResults).");
  cls.def(
      "__eq__",
      [](const mvPointMatcherRunParams& a, const mvPointMatcherRunParams& b) { return a == b; },
      py::is_operator());
  cls.def("__repr__", [](const mvPointMatcherRunParams& p) {
    return py::str(
               "RunParams(min_coverage={!r}, start_pose={}, x_range={!r}, y_range={!r}, "
               "rotation={!r}, scale={!r}, grid_size={!r}, capture_range={!r}, max_results={!r})")
        .format(p.minCoverage(), fromXform(p.startPose()).attr("tolist")(),
                fromRange(p.xTranslationUncertainty()), fromRange(p.yTranslationUncertainty()),
                fromAngleRangeDegrees(p.rotationUncertainty()), fromRange(p.scaleUncertainty()),
                p.autoGridSize() ? py::object(py::none()) : py::float_(p.gridSize()),
                p.autoCaptureRange() ? py::object(py::none()) : py::float_(p.captureRange()),
                p.maxNumResults());
  });
  addArchivePickling<mvPointMatcherRunParams>(cls);
}

// --- results ---

void bindResult(py::module_& m) {
  py::class_<mvPointMatcherResult> cls(
      m, "PointMatcherResult",
      "One match of a point matcher run (mvPointMatcherResult): its pose, its coverage, its fit "
      "error and which data point each model point (or pattern cell) went to.");
  cls.def(py::init<>(), "An empty result: point-to-point, identity pose, no map.");
  cls.def_property_readonly(
      "run_mode", [](const mvPointMatcherResult& r) { return modeName(r.runMode()); },
      "How the result was found: \"point_to_point\", \"point_to_grid\" or \"exhaustive\" "
      "(runMode).");
  cls.def_property_readonly(
      "pose", [](const mvPointMatcherResult& r) { return fromXform(r.modelToDataXform()); },
      "The model-to-data pose as a 2x3 array [[a00, a01, tx], [a10, a11, ty]] "
      "(modelToDataXform).");
  cls.def_property_readonly("coverage", &mvPointMatcherResult::coverage,
                            "Matched model weight over total model weight (coverage).");
  cls.def_property_readonly(
      "fit_error", &mvPointMatcherResult::fitError,
      "How far the matched pairs lie apart under the pose (fitError): the root-mean-square "
      "distance for point results, the mean squared distance in pattern pels for grid results.");
  cls.def_property_readonly(
      "model_to_data_map",
      [](const mvPointMatcherResult& r) { return fromLongs(r.modelToDataMap()); },
      "Per model point the index of its data point, -1 when unmatched (modelToDataMap). Raises "
      "ptmatch.NotRun for a point-to-grid result.");
  cls.def_property_readonly(
      "grid_to_data_map",
      [](const mvPointMatcherResult& r) {
        if (r.runMode() != mvPointMatcherDefs::ePointToGrid) {
          throw mvPointMatcherDefs::NotRun(
              L"mvPointMatcherResult was not run in mode ePointToGrid\n");
        }
        return fromLabelImage(r.gridToDataImage());
      },
      "Per pattern cell (rows are y) the index of the data point in it, -1 for none "
      "(gridToDataImage); cell (x, y) of the pattern frame is element [y - oy, x - ox] with "
      "(ox, oy) = grid_to_data_offset. Raises ptmatch.NotRun unless the result is point-to-grid.");
  cls.def_property_readonly(
      "grid_to_data_offset",
      [](const mvPointMatcherResult& r) { return fromPair(r.gridToDataImage().offset()); },
      "Pattern-frame position (x, y) of element [0, 0] of grid_to_data_map.");
  cls.def(
      "grid_to_data",
      [](const mvPointMatcherResult& r, const py::object& cell) {
        return r.gridToDataMap(toPair(cell, "cell"));
      },
      py::arg("cell"),
      "The index of the data point in a pattern cell (x, y) (gridToDataMap). Raises "
      "ptmatch.NotRun unless the result is point-to-grid.");
  cls.def("__repr__", [](const mvPointMatcherResult& r) {
    return py::str("PointMatcherResult(run_mode={!r}, coverage={!r}, fit_error={!r}, pose={})")
        .format(modeName(r.runMode()), r.coverage(), r.fitError(),
                fromXform(r.modelToDataXform()).attr("tolist")());
  });
  addArchivePickling<mvPointMatcherResult>(cls);
}

// --- the matcher ---

// A matcher with the count of its runs in progress.
struct PointMatcher {
  mvPointMatcher matcher;
  RunCounter runs;
};

// Three points that train any matcher; used only to set the train mode of a target.
const Points2& placeholderPoints() {
  static const Points2 points = {mvVector<2>(0, 0), mvVector<2>(1, 0), mvVector<2>(0, 1)};
  return points;
}

// A copy of source that keeps its train mode (see the file comment).
std::unique_ptr<PointMatcher> copyKeepingMode(const mvPointMatcher& source, bool exhaustive) {
  auto copy = std::make_unique<PointMatcher>();
  if (exhaustive) copy->matcher.train(placeholderPoints(), mvPointMatcherDefs::eExhaustiveMode);
  copy->matcher = source;
  return copy;
}

bool isExhaustive(const mvPointMatcher& m) {
  return m.isTrained() && m.trainMode() == mvPointMatcherDefs::eExhaustiveMode;
}

py::list runMatcher(PointMatcher& self, const py::object& data,
                    const mvPointMatcherRunParams& params, const py::object& timeout) {
  const Points2 points = toPoints2(data, "data");
  const double seconds = timeoutSeconds(timeout);
  mvPointMatcherResultSet resultSet;
  {
    RunCounter::Scope running(self.runs);
    withoutGil([&] { self.matcher.run(points, params, resultSet); }, seconds);
  }
  py::list items;
  for (const mvPointMatcherResult& r : resultSet.results()) items.append(py::cast(r));
  return makeResults(items, resultSet.time());
}

py::dict costOf(const PointMatcher& self, const py::object& data,
                const mvPointMatcherRunParams& params) {
  const Points2 points = toPoints2(data, "data");
  const mvPointMatcherCost cost = self.matcher.estimateCost(points, params);
  py::dict out;
  out["lattice_steps"] = cost.latticeSteps;
  out["window_cells"] = cost.windowCells;
  out["model_points"] = cost.modelPoints;
  out["grid_size"] = cost.gridSize;
  out["work"] = cost.work();
  return out;
}

constexpr const char* kCostDoc =
    R"doc(The size of run(data, ...) before it starts (mvPointMatcher::estimateCost).

Returns a dict: lattice_steps (scale and rotation steps of the coarse search),
window_cells (translation offsets voted on at each step), model_points, grid_size (the
one the run would use) and work = lattice_steps x window_cells x model_points; one core
does about 1.5e10 units of work a second. A smaller grid_size, or wider rotation, scale, x_range and
y_range, make it larger. A run that cannot reach min_coverage costs 0. Takes the
arguments of run() except max_results' effect and timeout; raises ptmatch.NotTrained
unless trained from points in mode "auto", and what run() raises for bad data.)doc";

void bindMatcher(py::module_& m) {
  py::class_<PointMatcher> cls(m, "PointMatcher", R"doc(
The point-matching tool (mvPointMatcher): train it once with model points (optionally
weighted) or an 8-bit dot-pattern image, then run it on data points any number of times.
A run releases the GIL, so several threads can run matchers (or one matcher) at once, and
Ctrl-C ends a long run with ptmatch.Interrupted. A matcher refuses to be retrained while
another thread runs it.

Example:

>>> m = ptmatch.PointMatcher()
>>> m.train([(0, 0), (10, 0), (0, 7), (3, 9)])
>>> results = m.run([(5, 5), (15, 5), (5, 12), (8, 14)], min_coverage=0.9)
>>> (results[0].pose.round(6) + 0.0).tolist()
[[1.0, 0.0, 5.0], [0.0, 1.0, 5.0]]
>>> results[0].model_to_data_map.tolist()
[0, 1, 2, 3])doc");
  cls.def(py::init<>(), "An untrained matcher.");
  cls.def(
      "train",
      [](PointMatcher& self, const py::object& points, const py::object& weights,
         const std::string& mode) {
        self.runs.checkIdle("PointMatcher");
        const Points2 model = toPoints2(points, "points");
        const Mode trainMode = trainModeFrom(mode);
        if (weights.is_none()) {
          self.matcher.train(model, trainMode);
        } else {
          self.matcher.train(model, toLongs(weights, "weights"), trainMode);
        }
      },
      py::arg("points"), py::arg("weights") = py::none(), py::arg("mode") = "auto",
      R"doc(Trains from model points (mvPointMatcher::train).

points   (N, 2) array-like, at least 3 points
weights  None, or N whole numbers: a matched point of negative weight counts against a
         pose, one of weight 0 for nothing; at least two must be positive
mode     "auto" (point-to-point hypothesis search, eAutoDetect) or "exhaustive" (every
         pairing of a small model with small data is tried, eExhaustiveMode)

Raises ptmatch.InsufficientModelPoints or ptmatch.BadParams; a failed training leaves the
matcher untrained.)doc");
  cls.def(
      "train_image",
      [](PointMatcher& self, const py::object& image, const py::object& clientFromImage) {
        self.runs.checkIdle("PointMatcher");
        mvPelBuffer<unsigned char> buffer = toImage(image, "image");
        if (!clientFromImage.is_none()) {
          buffer.clientFromImageXform(toXform(clientFromImage, "client_from_image"));
        }
        self.matcher.train(buffer);
      },
      py::arg("image"), py::arg("client_from_image") = py::none(),
      R"doc(Trains from an 8-bit dot-pattern image (mvPointMatcher::train with an image).

image              2-D array (rows are y) of whole numbers 0..255; every nonzero pel is
                   one model point on a regular pixel grid
client_from_image  2x3 pose from pixel to client (model) coordinates; None is the identity

Afterwards train_mode is "point_to_grid" and results carry grid_to_data_map.)doc");
  cls.def(
      "untrain",
      [](PointMatcher& self) {
        self.runs.checkIdle("PointMatcher");
        self.matcher.untrain();
      },
      "Forgets the model (untrain).");
  cls.def_property_readonly(
      "is_trained", [](const PointMatcher& self) { return self.matcher.isTrained(); },
      "True once trained (isTrained).");
  cls.def_property_readonly(
      "train_mode", [](PointMatcher& self) { return modeName(self.matcher.trainMode()); },
      "\"point_to_point\", \"point_to_grid\" or \"exhaustive\" (trainMode); a matcher trained "
      "with mode \"auto\" reports \"point_to_point\". Raises ptmatch.NotTrained when untrained.");
  cls.def_property_readonly(
      "model_points",
      [](const PointMatcher& self) { return fromPoints2(self.matcher.modelPoints()); },
      "The model points in training order, (N, 2) (modelPoints). Raises ptmatch.NotTrained "
      "unless trained from points.");
  cls.def_property_readonly(
      "weights", [](PointMatcher& self) { return fromLongs(self.matcher.weights()); },
      "The model point weights, 1 each when trained without (weights). Raises "
      "ptmatch.NotTrained unless trained from points in mode \"auto\".");
  cls.def_property_readonly(
      "pattern", [](const PointMatcher& self) { return fromImage(self.matcher.pattern()); },
      "The training image of an image-trained matcher (pattern). Raises ptmatch.NotTrained "
      "otherwise.");
  cls.def("estimate_cost", &costOf, py::arg("data"), py::arg("params"),
          "The size of run(data, params) before it starts; see the other overload.");
  cls.def(
      "estimate_cost",
      [](const PointMatcher& self, const py::object& data, double minCoverage,
         const py::object& startPose, const py::object& xRange, const py::object& yRange,
         const py::object& rotation, const py::object& scale, const py::object& gridSize,
         const py::object& captureRange, long long maxResults) {
        return costOf(self, data,
                      makeRunParams(minCoverage, startPose, xRange, yRange, rotation, scale,
                                    gridSize, captureRange, maxResults));
      },
      py::arg("data"), PTMATCH_RUN_PARAM_ARGS, kCostDoc);
  cls.def("run", &runMatcher, py::arg("data"), py::arg("params"), py::arg("timeout") = py::none(),
          "Runs with a RunParams (mvPointMatcher::run); see the other overload.");
  cls.def(
      "run",
      [](PointMatcher& self, const py::object& data, double minCoverage,
         const py::object& startPose, const py::object& xRange, const py::object& yRange,
         const py::object& rotation, const py::object& scale, const py::object& gridSize,
         const py::object& captureRange, long long maxResults, const py::object& timeout) {
        const mvPointMatcherRunParams params =
            makeRunParams(minCoverage, startPose, xRange, yRange, rotation, scale, gridSize,
                          captureRange, maxResults);
        return runMatcher(self, data, params, timeout);
      },
      py::arg("data"), PTMATCH_RUN_PARAM_ARGS, py::arg("timeout") = py::none(),
      (std::string(
           R"doc(Finds the poses that carry the model onto the data points (mvPointMatcher::run).

data           (N, 2) array-like of data points
)doc") +
       kRunParamsDoc + R"doc(
timeout        seconds allowed for the run, None for no limit (an mvAttention::Deadline)

Returns a ptmatch.Results list of PointMatcherResult, best first (greater coverage, then
smaller fit error), with the run's seconds in `time`. Raises ptmatch.NotTrained when
untrained, ptmatch.Interrupted when interrupted (Ctrl-C) and ptmatch.TimeoutError (also a
TimeoutError) when the run takes longer than timeout. The GIL is released meanwhile.)doc")
          .c_str());
  cls.def("__copy__", [](const PointMatcher& self) {
    return copyKeepingMode(self.matcher, isExhaustive(self.matcher));
  });
  cls.def(
      "__deepcopy__",
      [](const PointMatcher& self, const py::object&) {
        return copyKeepingMode(self.matcher, isExhaustive(self.matcher));
      },
      py::arg("memo"));
  cls.def(py::pickle(
      [](PointMatcher& self) {
        return py::make_tuple(archiveBytes(self.matcher), isExhaustive(self.matcher));
      },
      [](const py::tuple& state) {
        if (state.size() != 2) throw py::value_error("bad PointMatcher pickle state");
        mvPointMatcher loaded;
        loadArchiveBytes(state[0].cast<py::bytes>(), loaded);
        return copyKeepingMode(loaded, state[1].cast<bool>());
      }));
  cls.def(
      "to_bytes", [](PointMatcher& self) { return archiveBytes(self.matcher); },
      "The matcher in the library's archive encoding (operator||). The archive does not hold "
      "the train mode: an exhaustive-mode matcher loads as a point-to-point one.");
  cls.def_static(
      "from_bytes",
      [](const py::bytes& data) {
        auto loaded = std::make_unique<PointMatcher>();
        loadArchiveBytes(data, loaded->matcher);
        return loaded;
      },
      py::arg("data"), "Loads a matcher from the library's archive encoding.");
  cls.def("__repr__", [](PointMatcher& self) {
    if (!self.matcher.isTrained()) return std::string("PointMatcher(untrained)");
    return std::string("PointMatcher(") + modeName(self.matcher.trainMode()) + ")";
  });
}

}  // namespace

mvPointMatcherRunParams makeRunParams(double minCoverage, const py::object& startPose,
                                      const py::object& xRange, const py::object& yRange,
                                      const py::object& rotation, const py::object& scale,
                                      const py::object& gridSize, const py::object& captureRange,
                                      long long maxResults) {
  return buildRunParams(minCoverage, startPose, xRange, yRange, rotation, scale, gridSize,
                        captureRange, maxResults);
}

void bindPointMatcher(py::module_& m) {
  bindRunParams(m);
  bindResult(m);
  bindMatcher(m);
}

}  // namespace ptmatch_py
