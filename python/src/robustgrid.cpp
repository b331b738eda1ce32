// Bindings of the robust grid mapping: robust_grid_map (mfRobustGridMap),
// RobustGridMapParams (mvRobustGridMapParams) and RobustGridMapResult
// (mvRobustGridMapResult).
#include <string>

#include "common.h"
#include "ptmatch/robustgrid.h"

namespace ptmatch_py {
namespace {

mvRobustGridMapParams makeParams(const py::object& xv, const py::object& yv, bool staggered,
                                 double rejectSigmas, long minNodes) {
  const mvVector<2> x = xv.is_none() ? mvVector<2>() : toVector2(xv, "xv");
  const mvVector<2> y = yv.is_none() ? mvVector<2>() : toVector2(yv, "yv");
  return mvRobustGridMapParams(x, y, staggered, rejectSigmas, minNodes);
}

#define PTMATCH_ROBUST_GRID_ARGS                                                        \
  py::arg("xv") = py::none(), py::arg("yv") = py::none(), py::arg("staggered") = false, \
  py::arg("reject_sigmas") = 6.0, py::arg("min_nodes") = 6

constexpr const char* kParamsDoc = R"doc(
xv, yv         nominal vectors from a node to its neighbour along the first and second
               axis; both None (or both (0, 0)) to estimate them from the points. They
               bound the accepted pitch and say which axis is which; the rotation is
               always found in the data
staggered      only nodes with an even index sum carry dots (xv, yv are the staggered
               grid's own axes: half the spacing within a row, and the row step)
reject_sigmas  a point farther from its node than this many robust noise levels has no
               node (above 0)
min_nodes      the fewest assigned nodes of a valid mapping (at least 4)

Raises ptmatch.RobustGridBadInput for values out of range.)doc";

const char* failureName(mvRobustGridMapDefs::Failure f) {
  switch (f) {
    case mvRobustGridMapDefs::eNone:
      return "none";
    case mvRobustGridMapDefs::eTooFewPoints:
      return "too_few_points";
    case mvRobustGridMapDefs::eNoPitch:
      return "no_pitch";
    case mvRobustGridMapDefs::eNoSeed:
      return "no_seed";
    case mvRobustGridMapDefs::eTooFewNodes:
      return "too_few_nodes";
    case mvRobustGridMapDefs::eInconsistent:
      return "inconsistent";
  }
  return "unknown";
}

py::array_t<bool> assignedMask(const mvRobustGridMapResult& r) {
  py::array_t<bool> mask(static_cast<py::ssize_t>(r.map().size()));
  bool* d = mask.mutable_data();
  for (std::size_t i = 0; i < r.map().size(); ++i) {
    d[i] = r.map()[i].x() != mvRobustGridMapResult::kUnassigned;
  }
  return mask;
}

py::array_t<double> residualArray(const mvRobustGridMapResult& r) {
  py::array_t<double> out(static_cast<py::ssize_t>(r.residuals().size()));
  double* d = out.mutable_data();
  for (std::size_t i = 0; i < r.residuals().size(); ++i) d[i] = r.residuals()[i];
  return out;
}

py::array_t<double> matrixArray(const mvRobustGridMapResult& r) {
  py::array_t<double> out({3, 3});
  double* d = out.mutable_data();
  for (std::size_t i = 0; i < 9; ++i) d[i] = r.homographyMatrix()[i];
  return out;
}

mvRobustGridMapResult mapPoints(const py::object& points, const mvRobustGridMapParams& params,
                                const py::object& timeout) {
  const Points2 input = toPoints2(points, "points");
  const double seconds = timeoutSeconds(timeout);
  mvRobustGridMapResult result;
  withoutGil([&] { mfRobustGridMap(input, params, result); }, seconds);
  return result;
}

void bindParams(py::module_& m) {
  py::class_<mvRobustGridMapParams> cls(
      m, "RobustGridMapParams",
      (std::string("What robust_grid_map knows of the grid (mvRobustGridMapParams).\n") +
       kParamsDoc)
          .c_str());
  cls.def(py::init(&makeParams), PTMATCH_ROBUST_GRID_ARGS);
  cls.def_property_readonly(
      "xv", [](const mvRobustGridMapParams& p) { return fromVector2(p.xv()); },
      "Nominal vector along the first axis, (0, 0) when not given (xv).");
  cls.def_property_readonly(
      "yv", [](const mvRobustGridMapParams& p) { return fromVector2(p.yv()); },
      "Nominal vector along the second axis, (0, 0) when not given (yv).");
  cls.def(
      "set_vectors",
      [](mvRobustGridMapParams& p, const py::object& xv, const py::object& yv) {
        p.vectors(xv.is_none() ? mvVector<2>() : toVector2(xv, "xv"),
                  yv.is_none() ? mvVector<2>() : toVector2(yv, "yv"));
      },
      py::arg("xv"), py::arg("yv"), "Sets both vectors, or clears both with None (vectors).");
  cls.def_property(
      "staggered", [](const mvRobustGridMapParams& p) { return p.staggered(); },
      [](mvRobustGridMapParams& p, bool v) { p.staggered(v); },
      "Only nodes with an even index sum carry dots (staggered).");
  cls.def_property(
      "reject_sigmas", [](const mvRobustGridMapParams& p) { return p.rejectSigmas(); },
      [](mvRobustGridMapParams& p, double v) { p.rejectSigmas(v); },
      "Rejection level in robust noise levels (rejectSigmas).");
  cls.def_property(
      "min_nodes", [](const mvRobustGridMapParams& p) { return p.minNodes(); },
      [](mvRobustGridMapParams& p, long v) { p.minNodes(v); },
      "Fewest assigned nodes of a valid mapping (minNodes).");
  cls.def("__repr__", [](const mvRobustGridMapParams& p) {
    return py::str(
               "RobustGridMapParams(xv={!r}, yv={!r}, staggered={!r}, reject_sigmas={!r}, "
               "min_nodes={!r})")
        .format(py::make_tuple(p.xv().x(), p.xv().y()), py::make_tuple(p.yv().x(), p.yv().y()),
                p.staggered(), p.rejectSigmas(), p.minNodes());
  });
}

void bindResult(py::module_& m) {
  py::class_<mvRobustGridMapResult> cls(
      m, "RobustGridMapResult",
      "The outcome of robust_grid_map (mvRobustGridMapResult): whether it succeeded and why "
      "not, per point its node and residual, the grid-to-point transforms and counts.");
  cls.def(py::init<>(), "Not valid (reason 'not run'), time 0, empty map.");
  cls.attr("UNASSIGNED") = mvRobustGridMapResult::kUnassigned;
  cls.def_property_readonly("valid", &mvRobustGridMapResult::valid,
                            "True when the mapping succeeded (valid).");
  cls.def_property_readonly(
      "failure", [](const mvRobustGridMapResult& r) { return failureName(r.failure()); },
      "Why it failed: 'none', 'too_few_points', 'no_pitch', 'no_seed', 'too_few_nodes' or "
      "'inconsistent' (failure).");
  cls.def_property_readonly("reason", &mvRobustGridMapResult::reason,
                            "Why it failed in words, or 'ok' (reason).");
  cls.def_property_readonly("time", &mvRobustGridMapResult::time,
                            "Seconds spent by the call (time).");
  cls.def_property_readonly(
      "map", [](const mvRobustGridMapResult& r) { return fromPairs(r.map()); },
      "Per input point its node (u, v), (N, 2) int64; both UNASSIGNED (2147483647) for a "
      "point without a node (map).");
  cls.def_property_readonly("assigned", &assignedMask, "Per input point, True when it has a node.");
  cls.def_property_readonly("residuals", &residualArray,
                            "Per input point its distance from its node under the homography, "
                            "-1 for a point without a node (residuals).");
  cls.def_property_readonly(
      "grid_to_point", [](const mvRobustGridMapResult& r) { return fromXform(r.grid2point()); },
      "The affine fit from node indices to point coordinates, 2x3 (grid2point).");
  cls.def_property_readonly(
      "homography", [](const mvRobustGridMapResult& r) { return r.homography(); },
      "The perspective transform from node indices (a) to points (b), a PerspectiveTm2 "
      "(homography).");
  cls.def_property_readonly("homography_matrix", &matrixArray,
                            "The same as a 3x3 matrix, last element 1 (homographyMatrix).");
  cls.def_property_readonly(
      "xv", [](const mvRobustGridMapResult& r) { return fromVector2(r.xv()); },
      "Lattice vector along the first index, found at the seed (xv).");
  cls.def_property_readonly(
      "yv", [](const mvRobustGridMapResult& r) { return fromVector2(r.yv()); },
      "Lattice vector along the second index, found at the seed (yv).");
  cls.def_property_readonly("sigma", &mvRobustGridMapResult::sigma,
                            "Robust noise level per axis of the assigned points (sigma).");
  cls.def_property_readonly("num_assigned", &mvRobustGridMapResult::count,
                            "Points with a node (count).");
  cls.def_property_readonly("num_unassigned", &mvRobustGridMapResult::numUnassigned,
                            "Points without a node (numUnassigned).");
  cls.def("__repr__", [](const mvRobustGridMapResult& r) {
    return py::str("RobustGridMapResult(valid={!r}, reason={!r}, num_assigned={!r})")
        .format(r.valid(), r.reason(), r.count());
  });
}

}  // namespace

void bindRobustGridMap(py::module_& m) {
  bindParams(m);
  bindResult(m);
  m.def("robust_grid_map", &mapPoints, py::arg("points"), py::arg("params"),
        py::arg("timeout") = py::none(),
        "Maps points with a RobustGridMapParams (mfRobustGridMap); see the other overload.");
  m.def(
      "robust_grid_map",
      [](const py::object& points, const py::object& xv, const py::object& yv, bool staggered,
         double rejectSigmas, long minNodes, const py::object& timeout) {
        return mapPoints(points, makeParams(xv, yv, staggered, rejectSigmas, minNodes), timeout);
      },
      py::arg("points"), PTMATCH_ROBUST_GRID_ARGS, py::arg("timeout") = py::none(),
      (std::string(
           R"doc(Assigns points to the nodes of a dot grid seen under perspective, with holes,
clutter and noise, and fits the grid-to-point transforms (mfRobustGridMap). Each node gets
at most one point; clutter is left without a node. The GIL is released meanwhile.

points         (N, 2) array-like of measured points
)doc") +
       kParamsDoc + R"doc(
timeout        seconds allowed for the call, None for no limit; past it the call raises
               ptmatch.TimeoutError (also a TimeoutError)

Returns a RobustGridMapResult; the indices start at 0 at the board's first row and column.
A mapping it cannot stand behind is not valid, with the reason.)doc")
          .c_str());
}

}  // namespace ptmatch_py
