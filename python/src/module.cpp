// The extension module ptmatch._ptmatch; the package ptmatch re-exports it.
#include "common.h"

namespace ptmatch_py {
namespace {

PyObject* gResultsType = nullptr;  // ptmatch.Results, set by the package on import

}  // namespace

py::list makeResults(py::list items, double time) {
  if (gResultsType == nullptr) return items;
  py::object results = py::reinterpret_borrow<py::object>(gResultsType)(items);
  results.attr("time") = time;
  return results;
}

}  // namespace ptmatch_py

PYBIND11_MODULE(_ptmatch, m) {
  using namespace ptmatch_py;
  m.doc() = "Bindings of the ptmatch point-matching library; import the package ptmatch.";
  m.attr("__version__") = PTMATCH_VERSION;
  bindErrors(m);
  bindAttention(m);
  bindPointMatcher(m);
  bindGridMap(m);
  bindRobustGridMap(m);
  bindGridCorresponder(m);
  bindScoreHashing(m);
  bindTransforms(m);
  bindMatrices(m);
  bindDots(m);
  bindPlanned(m);
  m.def(
      "_set_results_type",
      [](const py::object& type) {
        Py_XDECREF(gResultsType);
        gResultsType = type.inc_ref().ptr();
      },
      py::arg("type"), "Sets the list type that runs return (used by the package).");
}
