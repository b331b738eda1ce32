// What the commands report: the matches of `match`, `pattern` and `demo`, and the grid
// mapping of `grid`, as JSON objects (--json) and as readable tables.
#pragma once

#include <array>
#include <ostream>
#include <string>
#include <vector>

#include "json.h"
#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch::cli {

/// The grid node of a point left without one by the grid mapping.
constexpr long kUnassignedNode = 2147483647;

/// One pose found by the matcher, with its correspondence: map[i] is the index of the
/// data point matched to model point i, or negative.
struct FoundMatch {
  mvXform<2> pose;
  double coverage = 0.0;
  double fitError = 0.0;
  std::vector<long> map;
};

/// The outcome of one matcher run with the points it ran on.
struct MatchReport {
  std::string command;  ///< "match", "pattern" or a demo scenario
  std::string mode;     ///< the matcher's mode name, e.g. "ePointToPoint"
  double time = 0.0;    ///< seconds of the run, as the library measured them
  std::vector<mvVector<2>> model;
  std::vector<mvVector<2>> data;
  std::vector<FoundMatch> results;
};

/// The outcome of one grid mapping with its points.
struct GridReport {
  bool valid = false;
  long count = 0;
  double time = 0.0;
  mvXform<2> grid2point;
  bool staggered = false;
  std::vector<mvVector<2>> points;
  /// One node per point, (kUnassignedNode, kUnassignedNode) when the point has none; empty
  /// when the mapping found no place to start (then no point has a node).
  std::vector<mvPair<long>> map;
  /// Filled by the robust mapping only (robust true): why it failed ("ok" when valid), the
  /// residual of each point (negative when it has no node), the node-to-point homography
  /// as a 3 x 3 matrix row by row, and the robust noise level.
  bool robust = false;
  std::string reason;
  std::vector<double> residuals;
  std::array<double, 9> homography{};
  double sigma = 0.0;

  /// True when point i was given a node.
  bool assigned(std::size_t i) const { return i < map.size() && map[i].x() != kUnassignedNode; }
};

/// The name of a mode as the library spells it: "ePointToPoint", ...
std::string modeName(mvPointMatcherDefs::Mode mode);
/// Angle of the pose's nearest rotation, in degrees.
double rotationDegrees(const mvXform<2>& pose);
/// Scale of the pose's nearest similarity: |(a00 + a11, a10 - a01)| / 2.
double similarityScale(const mvXform<2>& pose);
/// The largest distance between where two poses put any of the points.
double largestDisplacement(const mvXform<2>& a, const mvXform<2>& b,
                           const std::vector<mvVector<2>>& points);
/// Number of matched entries (index >= 0) of a correspondence.
long matchedCount(const std::vector<long>& map);
/// Root-mean-square distance of the assigned points from their nodes under grid2point.
double gridFitError(const GridReport& report);

/// {"a00": .., "a01": .., "a10": .., "a11": .., "tx": .., "ty": ..}
JsonValue poseJson(const mvXform<2>& pose);
/// {"command", "mode", "time", "results": [{"coverage", "fitError", "pose", "rotationDeg",
/// "scale", "map"}]}
JsonValue matchJson(const MatchReport& report);
/// {"command": "grid", "valid", "count", "time", "grid2point", "map": [[u, v] or null]};
/// the robust mapping adds "reason", "sigma", "homography" ([[m0, m1, m2], [m3, m4, m5],
/// [m6, m7, 1]]) and "residuals" (a number or null per point).
JsonValue gridJson(const GridReport& report);

/// The pose as "a00 a01 / a10 a11 | tx ty" with the given decimals.
std::string poseText(const mvXform<2>& pose, int decimals = 4);
/// Seconds as "12.345 ms".
std::string milliseconds(double seconds);
/// The results as a table, one row per result, then the best pose's matrix.
void printMatchTable(std::ostream& out, const MatchReport& report);
/// The grid mapping as a summary and one row per point.
void printGridTable(std::ostream& out, const GridReport& report);

}  // namespace ptmatch::cli
