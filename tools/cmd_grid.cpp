// `ptmatch grid`: assigns the points of a file to the nodes of a grid, with mfRobustGridMap
// or, with --plain, mfPtToGridMap.

#include <algorithm>
#include <cmath>
#include <string>

#include "commands.h"
#include "dot_input.h"
#include "errors.h"
#include "grid_defaults.h"
#include "outputs.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/robustgrid.h"

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

GridReport robustMapPointsToGrid(const std::vector<mvVector<2>>& points,
                                 const mvRobustGridMapParams& params) {
  mvRobustGridMapResult result;
  GridReport report;
  report.count = mfRobustGridMap(points, params, result);
  report.valid = result.valid();
  report.time = result.time();
  report.grid2point = result.grid2point();
  report.staggered = params.staggered();
  report.points = points;
  report.map = result.map();
  report.robust = true;
  report.reason = result.reason();
  report.residuals = result.residuals();
  report.homography = result.homographyMatrix();
  report.sigma = result.sigma();
  return report;
}

namespace {

// The written mapping's parameters (--plain): the grid vectors are needed, the snap has a
// default.
mvPtToGridMapRunParams plainParams(const ParsedOptions& options) {
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
  return mvPtToGridMapRunParams(xv, yv, staggered, snap, sizeTol, angleTol);
}

// The robust mapping's parameters (the default): the grid vectors are optional, both or
// neither.
mvRobustGridMapParams robustParams(const ParsedOptions& options) {
  for (const char* plainOnly : {"--snap", "--size-tol", "--angle-tol"}) {
    if (options.has(plainOnly)) throw UsageError(std::string(plainOnly) + " needs --plain");
  }
  if (options.has("--xv") != options.has("--yv")) {
    throw UsageError("give both --xv and --yv, or neither");
  }
  mvRobustGridMapParams params;
  params.staggered(options.has("--staggered"));
  if (options.has("--xv")) {
    const mvVector<2> xv = parseVector(options.value("--xv"), "--xv");
    const mvVector<2> yv = parseVector(options.value("--yv"), "--yv");
    const double cross = xv.x() * yv.y() - xv.y() * yv.x();
    if (!(std::fabs(cross) > 1e-9 * xv.len() * yv.len()) || xv.isNull()) {
      throw UsageError("--xv and --yv must be non-zero and not parallel");
    }
    params.vectors(xv, yv);
  }
  if (options.has("--reject")) {
    const double k = parseNumber(options.value("--reject"), "--reject");
    if (!(k > 0.0)) throw UsageError("--reject must be above 0");
    params.rejectSigmas(k);
  }
  return params;
}

}  // namespace

int runGrid(const std::vector<std::string>& args, std::ostream& out) {
  const std::vector<OptionSpec> specs = {
      {"--points", true}, {"--xv", true},       {"--yv", true},        {"--staggered", false},
      {"--snap", true},   {"--size-tol", true}, {"--angle-tol", true}, {"--plain", false},
      {"--reject", true}, {"--json", false},    {"--svg", true}};
  const ParsedOptions options = parseOptions(args, withImageInput(specs, {"--image"}), "grid");
  std::string pointsPath;
  const bool plain = options.has("--plain");
  if (plain && options.has("--reject")) throw UsageError("--reject does not apply with --plain");
  // The options are checked before the file is read, so that usage errors come first.
  if (plain) {
    const mvPtToGridMapRunParams params = plainParams(options);
    const PointFile points = pointsOrDots(options, "--points", "--image", pointsPath);
    writeGridOutputs(out, options, mapPointsToGrid(points.points, params),
                     "ptmatch grid: " + pointsPath);
    return 0;
  }
  const mvRobustGridMapParams params = robustParams(options);
  const PointFile points = pointsOrDots(options, "--points", "--image", pointsPath);
  const GridReport report = robustMapPointsToGrid(points.points, params);
  writeGridOutputs(out, options, report, "ptmatch grid: " + pointsPath);
  return 0;
}

}  // namespace ptmatch::cli
