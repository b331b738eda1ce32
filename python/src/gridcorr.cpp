// Bindings of the grid corresponder: GridCorresponder (mv_PointToGridCorresponder), its
// FeatureType, train and run parameters, and GridCorresponderResult.
#include <string>

#include "common.h"
#include "ptmatch/gridcorr.h"

namespace ptmatch_py {
namespace {

using Defs = mv_PointToGridCorresponderDefs;
using TrainParams = mv_PointToGridCorresponderTrainParams;
using RunParams = mv_PointToGridCorresponderRunParams;
using Result = mv_PointToGridCorresponderResult;
using ResultSet = mv_PointToGridCorresponderResultSet;

py::list resultsOf(const ResultSet& set) {
  py::list items;
  for (const Result& r : set.results()) items.append(py::cast(r));
  return makeResults(items, set.time());
}

// "point", "boundary", "thick_boundary", a FeatureType or any 32-bit whole number (values
// other than 1 and 2 behave like point features and survive copies and archives).
Defs::FeatureType toFeatureType(const py::object& obj) {
  if (py::isinstance<py::str>(obj)) {
    const std::string name = obj.cast<std::string>();
    if (name == "point") return Defs::ePointFeatures;
    if (name == "boundary") return Defs::eBoundaryFeatures;
    if (name == "thick_boundary") return Defs::eThickBoundaryFeatures;
    throw py::value_error(
        "feature_type must be \"point\", \"boundary\" or \"thick_boundary\", not \"" + name + "\"");
  }
  const long long v = py::int_(obj).cast<long long>();
  if (v < -2147483647LL - 1 || v > 2147483647LL) {
    throw py::value_error("feature_type must fit 32 bits");
  }
  return static_cast<Defs::FeatureType>(v);
}

TrainParams makeTrainParams(bool staggered, const py::object& featureType) {
  return TrainParams(staggered, toFeatureType(featureType));
}

RunParams makeRunParams(double accept, double confusion, long long maxResults) {
  if (maxResults < -2147483647LL - 1 || maxResults > 2147483647LL) {
    throw py::value_error("max_results must fit 32 bits");
  }
  return RunParams(accept, confusion, static_cast<long>(maxResults));
}

// A corresponder with the count of its runs in progress.
struct GridCorresponder {
  mv_PointToGridCorresponder corresponder;
  RunCounter runs;
};

template <typename Observed>
py::list runCorresponder(GridCorresponder& self, const Observed& observed, const RunParams& params,
                         const py::object& timeout) {
  const double seconds = timeoutSeconds(timeout);
  ResultSet results;
  {
    RunCounter::Scope running(self.runs);
    withoutGil([&] { self.corresponder.run(observed, params, results); }, seconds);
  }
  return resultsOf(results);
}

constexpr const char* kRunDoc = R"doc(
accept       fraction of the probes (0..1) that must agree for a position to be reported
confusion    kept for compatibility; a run does not consult it
max_results  most results to report, at least 1
timeout      seconds allowed for the run, None for no limit; past it the run raises
             ptmatch.TimeoutError (also a TimeoutError)

Returns a ptmatch.Results list of GridCorresponderResult, best first, with the run's seconds
in `time`; empty when the pattern was not found. An untrained corresponder, max_results
below 1 or accept outside 0..1 raise ptmatch.AssertionFailed. The GIL is released meanwhile.)doc";

void bindRecords(py::module_& m) {
  py::enum_<Defs::FeatureType>(m, "FeatureType", py::arithmetic(),
                               "Which pels a grid corresponder training turns into probes "
                               "(mv_PointToGridCorresponderDefs::FeatureType).")
      .value("POINT", Defs::ePointFeatures, "Every model node, expected set (ePointFeatures).")
      .value("BOUNDARY", Defs::eBoundaryFeatures,
             "Boundary nodes expected set, empty pels touching them clear (eBoundaryFeatures).")
      .value("THICK_BOUNDARY", Defs::eThickBoundaryFeatures,
             "As BOUNDARY, one layer deeper on both sides (eThickBoundaryFeatures).");

  py::class_<TrainParams> train(
      m, "GridCorresponderTrainParams",
      "How to train a grid corresponder (mv_PointToGridCorresponderTrainParams): whether the "
      "grid is staggered and which pels become probes.");
  train.def(py::init(&makeTrainParams), py::arg("staggered") = false,
            py::arg("feature_type") = "boundary");
  train.def_property(
      "staggered", [](const TrainParams& p) { return p.staggered(); },
      [](TrainParams& p, bool v) { p.staggered(v); },
      "A staggered grid, whose node neighbours are the four diagonal pels (staggered).");
  train.def_property(
      "feature_type", [](const TrainParams& p) { return p.featureType(); },
      [](TrainParams& p, const py::object& v) { p.featureType(toFeatureType(v)); },
      "Which pels become probes: a FeatureType; set it from a FeatureType, \"point\", "
      "\"boundary\", \"thick_boundary\" or a whole number (featureType).");
  train.def(
      "__eq__", [](const TrainParams& a, const TrainParams& b) { return a == b; },
      py::is_operator());
  train.def("__repr__", [](const TrainParams& p) {
    return py::str("GridCorresponderTrainParams(staggered={!r}, feature_type={!r})")
        .format(p.staggered(), py::cast(p.featureType()));
  });
  addArchivePickling<TrainParams>(train);

  py::class_<RunParams> run(m, "GridCorresponderRunParams",
                            (std::string("What a grid corresponder run reports "
                                         "(mv_PointToGridCorresponderRunParams).\n") +
                             kRunDoc)
                                .c_str());
  run.def(py::init(&makeRunParams), py::arg("accept") = 0.5, py::arg("confusion") = 1.0,
          py::arg("max_results") = 1);
  run.def_property(
      "accept", [](const RunParams& p) { return p.accept(); },
      [](RunParams& p, double v) { p.accept(v); }, "Agreeing fraction of probes (accept).");
  run.def_property(
      "confusion", [](const RunParams& p) { return p.confusion(); },
      [](RunParams& p, double v) { p.confusion(v); }, "Kept, not consulted (confusion).");
  run.def_property(
      "max_results", [](const RunParams& p) { return p.maxNumResults(); },
      [](RunParams& p, long long v) { p = makeRunParams(p.accept(), p.confusion(), v); },
      "Most results to report (maxNumResults).");
  run.def("__repr__", [](const RunParams& p) {
    return py::str("GridCorresponderRunParams(accept={!r}, confusion={!r}, max_results={!r})")
        .format(p.accept(), p.confusion(), p.maxNumResults());
  });
  addArchivePickling<RunParams>(run);

  py::class_<Result> result(m, "GridCorresponderResult",
                            "One position where the pattern was found "
                            "(mv_PointToGridCorresponderResult).");
  result.def(py::init<>(), "Score 0 at (0, 0).");
  result.def_property_readonly("score", &Result::score,
                               "The fraction of probes that agreed, 0..1 (score).");
  result.def_property_readonly(
      "position", [](const Result& r) { return fromPair(r.position()); },
      "The translation (x, y), in grid positions, that carries the model nodes onto the "
      "observed nodes (position).");
  result.def("__repr__", [](const Result& r) {
    return py::str("GridCorresponderResult(score={!r}, position={!r})")
        .format(r.score(), fromPair(r.position()));
  });
  addArchivePickling<Result>(result);
}

void bindTool(py::module_& m) {
  py::class_<GridCorresponder> cls(m, "GridCorresponder", R"doc(
Finds where a trained pattern of grid nodes lies among observed grid nodes
(mv_PointToGridCorresponder). Nodes are whole-number grid positions (x, y), such as
pt_to_grid_map gives, or the set pels of a binary image. A run releases the GIL.

Example:

>>> c = ptmatch.GridCorresponder()
>>> c.train([(0, 0), (1, 0), (2, 0), (0, 1), (2, 2)])
>>> found = c.run([(10, 5), (11, 5), (12, 5), (10, 6), (12, 7), (3, 3)], accept=0.9)
>>> found[0].position
(10, 5))doc");
  cls.def(py::init<>(), "Untrained: square grid, boundary features, no pattern.");
  cls.def(
      "train",
      [](GridCorresponder& self, const py::object& nodes, bool staggered,
         const py::object& featureType, const py::object& clientFromImage) {
        self.runs.checkIdle("GridCorresponder");
        const auto model = toPairs(nodes, "nodes");
        const mvXform<2> transform = clientFromImage.is_none()
                                         ? mvXform<2>()
                                         : toXform(clientFromImage, "client_from_image");
        self.corresponder.train(model, makeTrainParams(staggered, featureType), transform);
      },
      py::arg("nodes"), py::arg("staggered") = false, py::arg("feature_type") = "boundary",
      py::arg("client_from_image") = py::none(),
      "Trains from model node positions, (N, 2) whole numbers, at least one "
      "(mv_PointToGridCorresponder::train with nodes); client_from_image becomes the pattern's "
      "client-from-image transform.");
  cls.def(
      "train_image",
      [](GridCorresponder& self, const py::object& image, bool staggered,
         const py::object& featureType) {
        self.runs.checkIdle("GridCorresponder");
        const mvPelBuffer<unsigned char> buffer = toImage(image, "image");
        self.corresponder.train(buffer, makeTrainParams(staggered, featureType));
      },
      py::arg("image"), py::arg("staggered") = false, py::arg("feature_type") = "boundary",
      "Trains from an image (rows are y) whose nonzero pels are the model nodes "
      "(mv_PointToGridCorresponder::train with an image). Fewer than 3 raise "
      "ptmatch.GridInsufficientModelPoints.");
  cls.def(
      "untrain",
      [](GridCorresponder& self) {
        self.runs.checkIdle("GridCorresponder");
        self.corresponder.untrain();
      },
      "Forgets the probes; the train parameters and the pattern stay (untrain).");
  cls.def_property_readonly(
      "is_trained", [](const GridCorresponder& self) { return self.corresponder.isTrained(); },
      "True when training left at least one probe (isTrained).");
  cls.def_property_readonly(
      "pattern",
      [](const GridCorresponder& self) { return fromImage(self.corresponder.pattern()); },
      "The model nodes as an image, 1 at each node (pattern); rows are y.");
  cls.def_property_readonly(
      "pattern_offset",
      [](const GridCorresponder& self) { return fromPair(self.corresponder.pattern().offset()); },
      "Grid position (x, y) of the pattern's element [0, 0], the model's upper-left node.");
  cls.def_property_readonly(
      "train_params", [](const GridCorresponder& self) { return self.corresponder.trainParams(); },
      "A copy of the parameters of the last training (trainParams).");
  cls.def(
      "run",
      [](GridCorresponder& self, const py::object& nodes, double accept, double confusion,
         long long maxResults, const py::object& timeout) {
        return runCorresponder(self, toPairs(nodes, "nodes"),
                               makeRunParams(accept, confusion, maxResults), timeout);
      },
      py::arg("nodes"), py::arg("accept") = 0.5, py::arg("confusion") = 1.0,
      py::arg("max_results") = 1, py::arg("timeout") = py::none(),
      (std::string("Finds the pattern among observed node positions, (N, 2) whole numbers "
                   "(mv_PointToGridCorresponder::run).\n") +
       kRunDoc)
          .c_str());
  cls.def(
      "run_image",
      [](GridCorresponder& self, const py::object& image, double accept, double confusion,
         long long maxResults, const py::object& timeout) {
        return runCorresponder(self, toImage(image, "image"),
                               makeRunParams(accept, confusion, maxResults), timeout);
      },
      py::arg("image"), py::arg("accept") = 0.5, py::arg("confusion") = 1.0,
      py::arg("max_results") = 1, py::arg("timeout") = py::none(),
      (std::string("Finds the pattern in an image holding 1 at each observed node and 0 "
                   "elsewhere (mv_PointToGridCorresponder::run with an image).\n") +
       kRunDoc)
          .c_str());
  cls.def("__copy__", [](const GridCorresponder& self) {
    auto copy = std::make_unique<GridCorresponder>();
    copy->corresponder = self.corresponder;
    return copy;
  });
  cls.def(
      "__deepcopy__",
      [](const GridCorresponder& self, const py::object&) {
        auto copy = std::make_unique<GridCorresponder>();
        copy->corresponder = self.corresponder;
        return copy;
      },
      py::arg("memo"));
  cls.def(py::pickle([](GridCorresponder& self) { return archiveBytes(self.corresponder); },
                     [](const py::bytes& state) {
                       auto loaded = std::make_unique<GridCorresponder>();
                       loadArchiveBytes(state, loaded->corresponder);
                       return loaded;
                     }));
  cls.def(
      "to_bytes", [](GridCorresponder& self) { return archiveBytes(self.corresponder); },
      "The corresponder in the library's archive encoding (operator||).");
  cls.def_static(
      "from_bytes",
      [](const py::bytes& data) {
        auto loaded = std::make_unique<GridCorresponder>();
        loadArchiveBytes(data, loaded->corresponder);
        return loaded;
      },
      py::arg("data"), "Loads a corresponder from the library's archive encoding.");
  cls.def("__repr__", [](const GridCorresponder& self) {
    return std::string(self.corresponder.isTrained() ? "GridCorresponder(trained)"
                                                     : "GridCorresponder(untrained)");
  });
}

}  // namespace

void bindGridCorresponder(py::module_& m) {
  bindRecords(m);
  bindTool(m);
}

}  // namespace ptmatch_py
