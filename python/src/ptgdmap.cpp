// Bindings of the point-to-grid mapping: pt_to_grid_map (mfPtToGridMap), GridMapParams
// (mvPtToGridMapRunParams) and GridMapResult (mvPtToGridMapResult).
#include <string>

#include "common.h"
#include "ptmatch/ptgdmap.h"

namespace ptmatch_py {
namespace {

mvPtToGridMapRunParams makeGridMapParams(const py::object& xv, const py::object& yv, bool staggered,
                                         double snapSize, const py::object& sizeTol,
                                         const py::object& angleTol) {
  return mvPtToGridMapRunParams(toVector2(xv, "xv"), toVector2(yv, "yv"), staggered, snapSize,
                                toRange(sizeTol, mvRange(), "size_tol"),
                                toAngleRangeDegrees(angleTol, mvAngleRange(), "angle_tol"));
}

#define PTMATCH_GRID_MAP_ARGS                                                                 \
  py::arg("xv") = py::make_tuple(0.0, 0.0), py::arg("yv") = py::make_tuple(0.0, 0.0),         \
  py::arg("staggered") = false, py::arg("snap_size") = 0.0, py::arg("size_tol") = py::none(), \
  py::arg("angle_tol") = py::none()

constexpr const char* kGridMapParamsDoc = R"doc(
xv, yv      expected vectors from a node to its neighbour along the grid's first and second
            axis, in point coordinates; (0, 0) leaves that axis unknown
staggered   alternate rows are offset by half a pitch
snap_size   tolerance of the snapping test and side of the neighbour buckets; 0 means 0.2
            of the shorter pitch, which finds no neighbours: give at least the longer pitch
            times size_tol's end (1.25 pitch serves a scale within +-20 %)
size_tol    accepted pitch lengths relative to the given ones, (lo, hi); None means 0.8 to 1.2
angle_tol   accepted grid rotations in degrees, (lo, hi) or "full"; None means -20 to +20

Nothing is validated here; the mapping raises ptmatch.BadInput for non-finite input.)doc";

bool isAssigned(const mvPair<long>& node) { return node.x() != mvPtToGridMapResult::kUnassigned; }

py::array_t<bool> assignedMask(const mvPtToGridMapResult& r) {
  py::array_t<bool> mask(static_cast<py::ssize_t>(r.map().size()));
  bool* d = mask.mutable_data();
  for (std::size_t i = 0; i < r.map().size(); ++i) d[i] = isAssigned(r.map()[i]);
  return mask;
}

long countAssigned(const mvPtToGridMapResult& r) {
  long n = 0;
  for (const mvPair<long>& node : r.map()) n += isAssigned(node) ? 1 : 0;
  return n;
}

mvPtToGridMapResult mapPoints(const py::object& points, const mvPtToGridMapRunParams& params,
                              const py::object& timeout) {
  const Points2 input = toPoints2(points, "points");
  const double seconds = timeoutSeconds(timeout);
  mvPtToGridMapResult result;
  withoutGil([&] { mfPtToGridMap(input, params, result); }, seconds);
  return result;
}

void bindParams(py::module_& m) {
  py::class_<mvPtToGridMapRunParams> cls(
      m, "GridMapParams",
      (std::string("What pt_to_grid_map knows of the grid (mvPtToGridMapRunParams).\n") +
       kGridMapParamsDoc)
          .c_str());
  cls.def(py::init(&makeGridMapParams), PTMATCH_GRID_MAP_ARGS);
  cls.def_property(
      "xv", [](const mvPtToGridMapRunParams& p) { return fromVector2(p.xv()); },
      [](mvPtToGridMapRunParams& p, const py::object& v) { p.xv(toVector2(v, "xv")); },
      "Grid vector along the first axis (xv).");
  cls.def_property(
      "yv", [](const mvPtToGridMapRunParams& p) { return fromVector2(p.yv()); },
      [](mvPtToGridMapRunParams& p, const py::object& v) { p.yv(toVector2(v, "yv")); },
      "Grid vector along the second axis (yv).");
  cls.def_property(
      "staggered", [](const mvPtToGridMapRunParams& p) { return p.staggered(); },
      [](mvPtToGridMapRunParams& p, bool v) { p.staggered(v); },
      "Alternate rows offset by half a pitch (staggered).");
  cls.def_property(
      "snap_size", [](const mvPtToGridMapRunParams& p) { return p.snapSize(); },
      [](mvPtToGridMapRunParams& p, double v) { p.snapSize(v); },
      "Snapping tolerance and bucket size; 0 or less for the default (snapSize).");
  cls.def_property(
      "size_tol", [](const mvPtToGridMapRunParams& p) { return fromRange(p.sizeTol()); },
      [](mvPtToGridMapRunParams& p, const py::object& v) {
        p.sizeTol(toRange(v, mvRange(), "size_tol"));
      },
      "Accepted relative pitch lengths (lo, hi), None for the default (sizeTol).");
  cls.def_property(
      "angle_tol",
      [](const mvPtToGridMapRunParams& p) { return fromAngleRangeDegrees(p.angleTol()); },
      [](mvPtToGridMapRunParams& p, const py::object& v) {
        p.angleTol(toAngleRangeDegrees(v, mvAngleRange(), "angle_tol"));
      },
      "Accepted grid rotations in degrees, None for the default (angleTol).");
  cls.def("__repr__", [](const mvPtToGridMapRunParams& p) {
    return py::str(
               "GridMapParams(xv={!r}, yv={!r}, staggered={!r}, snap_size={!r}, "
               "size_tol={!r}, angle_tol={!r})")
        .format(py::make_tuple(p.xv().x(), p.xv().y()), py::make_tuple(p.yv().x(), p.yv().y()),
                p.staggered(), p.snapSize(), fromRange(p.sizeTol()),
                fromAngleRangeDegrees(p.angleTol()));
  });
  addArchivePickling<mvPtToGridMapRunParams>(cls);
}

void bindResult(py::module_& m) {
  py::class_<mvPtToGridMapResult> cls(
      m, "GridMapResult",
      "The outcome of pt_to_grid_map (mvPtToGridMapResult): whether it succeeded, the fitted "
      "grid-to-point transform and the node of each input point.");
  cls.def(py::init<>(), "Not valid, time 0, identity transform, empty map.");
  cls.attr("UNASSIGNED") = mvPtToGridMapResult::kUnassigned;
  cls.def_property_readonly("valid", &mvPtToGridMapResult::valid,
                            "True when at least 3 points were assigned and grid_to_point was "
                            "fitted (valid).");
  cls.def_property_readonly("time", &mvPtToGridMapResult::time,
                            "Seconds spent by the call (time).");
  cls.def_property_readonly(
      "grid_to_point", [](const mvPtToGridMapResult& r) { return fromXform(r.grid2point()); },
      "From node indices to point coordinates, 2x3 (grid2point).");
  cls.def_property_readonly(
      "map", [](const mvPtToGridMapResult& r) { return fromPairs(r.map()); },
      "Per input point its node (column, row), (N, 2) int64; both UNASSIGNED (2147483647) for "
      "a point without a node (map). Empty when no seed was found.");
  cls.def_property_readonly("assigned", &assignedMask,
                            "Per input point, True when it was assigned to a node.");
  cls.def_property_readonly("num_assigned", &countAssigned,
                            "Number of assigned points (what mfPtToGridMap returns).");
  cls.def("__repr__", [](const mvPtToGridMapResult& r) {
    return py::str("GridMapResult(valid={!r}, num_assigned={!r}, grid_to_point={})")
        .format(r.valid(), countAssigned(r), fromXform(r.grid2point()).attr("tolist")());
  });
  addArchivePickling<mvPtToGridMapResult>(cls);
}

}  // namespace

void bindGridMap(py::module_& m) {
  bindParams(m);
  bindResult(m);
  m.def("pt_to_grid_map", &mapPoints, py::arg("points"), py::arg("params"),
        py::arg("timeout") = py::none(),
        "Maps points with a GridMapParams (mfPtToGridMap); see the other overload.");
  m.def(
      "pt_to_grid_map",
      [](const py::object& points, const py::object& xv, const py::object& yv, bool staggered,
         double snapSize, const py::object& sizeTol, const py::object& angleTol,
         const py::object& timeout) {
        return mapPoints(points, makeGridMapParams(xv, yv, staggered, snapSize, sizeTol, angleTol),
                         timeout);
      },
      py::arg("points"), PTMATCH_GRID_MAP_ARGS, py::arg("timeout") = py::none(),
      (std::string(
           R"doc(Assigns points to the nodes of a regular, optionally staggered grid and fits the
grid-to-point transform (mfPtToGridMap). The GIL is released meanwhile.

points      (N, 2) array-like of measured points
)doc") +
       kGridMapParamsDoc + R"doc(
timeout     seconds allowed for the call, None for no limit; past it the call raises
            ptmatch.TimeoutError (also a TimeoutError)

Returns a GridMapResult; node (0, 0) is where the growth started, so the index origin
depends on the data.

Example:

>>> dots = [(12 * i + 3, 12 * j + 4) for j in range(4) for i in range(5)]
>>> grid = ptmatch.pt_to_grid_map(dots, xv=(12, 0), yv=(0, 12), snap_size=11)
>>> grid.valid, grid.num_assigned
(True, 20))doc")
          .c_str());
}

}  // namespace ptmatch_py
