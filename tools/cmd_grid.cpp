// `ptmatch grid`: assigns the points of a file to the nodes of a grid with mfPtToGridMap.

#include <algorithm>
#include <cmath>

#include "commands.h"
#include "dot_input.h"
#include "errors.h"
#include "grid_defaults.h"
#include "outputs.h"
#include "ptmatch/ptgdmap.h"

namespace ptmatch::cli {

double defaultSnap(const mvVector<2>& xv, const mvVector<2>& yv, bool staggered) {
  // The mapping links neighbours only within the buckets next to a point's own, and a
  // bucket is as wide as the snap tolerance; so the tolerance must exceed the longest
  // vector the search links along, with room for the size tolerance and the noise.
  const mvVector<2> a = staggered ? xv + yv : xv;
  const mvVector<2> b = staggered ? yv - xv : yv;
  return 1.25 * std::max(a.len(), b.len());
}

GridReport mapPointsToGrid(const std::vector<mvVector<2>>& points,
                           const mvPtToGridMapRunParams& params) {
  mvPtToGridMapResult result;
  GridReport report;
  report.count = mfPtToGridMap(points, params, result);
  report.valid = result.valid();
  report.time = result.time();
  report.grid2point = result.grid2point();
  report.staggered = params.staggered();
  report.points = points;
  report.map = result.map();
  return report;
}

int runGrid(const std::vector<std::string>& args, std::ostream& out) {
  const std::vector<OptionSpec> specs = {
      {"--points", true},     {"--xv", true},    {"--yv", true},
      {"--staggered", false}, {"--snap", true},  {"--size-tol", true},
      {"--angle-tol", true},  {"--json", false}, {"--svg", true}};
  const ParsedOptions options = parseOptions(args, withImageInput(specs, {"--image"}), "grid");
  const mvVector<2> xv = parseVector(options.required("--xv"), "--xv");
  const mvVector<2> yv = parseVector(options.required("--yv"), "--yv");
  if (xv.isNull() && yv.isNull()) throw UsageError("--xv and --yv must not both be 0,0");
  const bool staggered = options.has("--staggered");

  double snap = defaultSnap(xv, yv, staggered);
  if (options.has("--snap")) {
    snap = parseNumber(options.value("--snap"), "--snap");
    if (!(snap > 0.0)) throw UsageError("--snap must be above 0");
  }
  mvRange sizeTol;  // empty: the mapping's own default, 0.8:1.2
  if (options.has("--size-tol")) {
    const auto t = parseInterval(options.value("--size-tol"), "--size-tol");
    if (!(t.first > 0.0)) throw UsageError("--size-tol: LO must be above 0");
    sizeTol = mvRange(t.first, t.second);
  }
  mvAngleRange angleTol;  // empty: the mapping's own default, -20:20 degrees
  if (options.has("--angle-tol")) {
    const auto t = parseInterval(options.value("--angle-tol"), "--angle-tol");
    if (t.second - t.first >= 360.0) throw UsageError("--angle-tol must span less than 360");
    angleTol = mvAngleRange(mvDegree(t.first), mvDegree(t.second));
  }

  std::string pointsPath;
  const PointFile points = pointsOrDots(options, "--points", "--image", pointsPath);
  const mvPtToGridMapRunParams params(xv, yv, staggered, snap, sizeTol, angleTol);
  const GridReport report = mapPointsToGrid(points.points, params);
  writeGridOutputs(out, options, report, "ptmatch grid: " + pointsPath);
  return 0;
}

}  // namespace ptmatch::cli
