#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "svg.h"

namespace ptmatch::cli {

std::string modeName(mvPointMatcherDefs::Mode mode) {
  switch (mode) {
    case mvPointMatcherDefs::ePointToPoint:
      return "ePointToPoint";
    case mvPointMatcherDefs::ePointToGrid:
      return "ePointToGrid";
    case mvPointMatcherDefs::eExhaustiveMode:
      return "eExhaustiveMode";
    case mvPointMatcherDefs::eAutoDetect:
      return "eAutoDetect";
  }
  return "mode " + std::to_string(static_cast<long>(mode));
}

double rotationDegrees(const mvXform<2>& pose) {
  const mvMatrix<2>& m = pose.matrix();
  const double a = std::atan2(m.element(1, 0) - m.element(0, 1), m.element(0, 0) + m.element(1, 1));
  return a * 180.0 / mvDegree::kPi;
}

double similarityScale(const mvXform<2>& pose) {
  const mvMatrix<2>& m = pose.matrix();
  return std::hypot(m.element(0, 0) + m.element(1, 1), m.element(1, 0) - m.element(0, 1)) / 2.0;
}

double largestDisplacement(const mvXform<2>& a, const mvXform<2>& b,
                           const std::vector<mvVector<2>>& points) {
  double largest = 0.0;
  for (const mvVector<2>& p : points) largest = std::max(largest, (a * p - b * p).len());
  return largest;
}

long matchedCount(const std::vector<long>& map) {
  return static_cast<long>(std::count_if(map.begin(), map.end(), [](long d) { return d >= 0; }));
}

double gridFitError(const GridReport& report) {
  double sum = 0.0;
  long n = 0;
  for (std::size_t i = 0; i < report.points.size(); ++i) {
    if (!report.assigned(i)) continue;
    const mvVector<2> node(report.map[i]);
    const mvVector<2> d = report.grid2point * node - report.points[i];
    sum += d.x() * d.x() + d.y() * d.y();
    ++n;
  }
  return n == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(n));
}

JsonValue poseJson(const mvXform<2>& pose) {
  const mvMatrix<2>& m = pose.matrix();
  JsonValue o = JsonValue::object();
  o.set("a00", m.element(0, 0));
  o.set("a01", m.element(0, 1));
  o.set("a10", m.element(1, 0));
  o.set("a11", m.element(1, 1));
  o.set("tx", pose.trans().x());
  o.set("ty", pose.trans().y());
  return o;
}

JsonValue matchJson(const MatchReport& report) {
  JsonValue results = JsonValue::array();
  for (const FoundMatch& r : report.results) {
    JsonValue map = JsonValue::array();
    for (const long d : r.map) map.push(d);
    JsonValue o = JsonValue::object();
    o.set("coverage", r.coverage);
    o.set("fitError", r.fitError);
    o.set("pose", poseJson(r.pose));
    o.set("rotationDeg", rotationDegrees(r.pose));
    o.set("scale", similarityScale(r.pose));
    o.set("map", map);
    results.push(o);
  }
  JsonValue o = JsonValue::object();
  o.set("command", report.command);
  o.set("mode", report.mode);
  o.set("time", report.time);
  o.set("results", results);
  return o;
}

JsonValue gridJson(const GridReport& report) {
  JsonValue map = JsonValue::array();
  for (std::size_t i = 0; i < report.points.size(); ++i) {
    if (report.assigned(i)) {
      map.push(JsonValue::array().push(report.map[i].x()).push(report.map[i].y()));
    } else {
      map.push(JsonValue());
    }
  }
  JsonValue o = JsonValue::object();
  o.set("command", "grid");
  o.set("valid", report.valid);
  o.set("count", report.count);
  o.set("time", report.time);
  o.set("grid2point", poseJson(report.grid2point));
  o.set("map", map);
  if (report.robust) {
    JsonValue h = JsonValue::array();
    for (std::size_t r = 0; r < 3; ++r) {
      h.push(JsonValue::array()
                 .push(report.homography[3 * r])
                 .push(report.homography[3 * r + 1])
                 .push(report.homography[3 * r + 2]));
    }
    JsonValue residuals = JsonValue::array();
    for (std::size_t i = 0; i < report.points.size(); ++i) {
      const bool has = report.assigned(i) && i < report.residuals.size();
      residuals.push(has ? JsonValue(report.residuals[i]) : JsonValue());
    }
    o.set("reason", report.reason);
    o.set("sigma", report.sigma);
    o.set("homography", h);
    o.set("residuals", residuals);
  }
  return o;
}

std::string poseText(const mvXform<2>& pose, int decimals) {
  const mvMatrix<2>& m = pose.matrix();
  return "[" + fixed(m.element(0, 0), decimals) + " " + fixed(m.element(0, 1), decimals) + "; " +
         fixed(m.element(1, 0), decimals) + " " + fixed(m.element(1, 1), decimals) + "] + (" +
         fixed(pose.trans().x(), decimals) + ", " + fixed(pose.trans().y(), decimals) + ")";
}

std::string milliseconds(double seconds) { return fixed(seconds * 1000.0, 3) + " ms"; }

void printMatchTable(std::ostream& out, const MatchReport& report) {
  char line[256];
  out << report.results.size() << (report.results.size() == 1 ? " result" : " results") << " in "
      << milliseconds(report.time) << " (mode " << report.mode << ", " << report.model.size()
      << " model points, " << report.data.size() << " data points)\n";
  if (report.results.empty()) return;
  out << "   #  coverage  matched  fit error  rotation(deg)   scale          tx          ty\n";
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    const FoundMatch& r = report.results[i];
    std::snprintf(line, sizeof line, "%4zu  %8.4f  %7ld  %9.4f  %13.3f  %6.4f  %10.3f  %10.3f\n",
                  i + 1, r.coverage, matchedCount(r.map), r.fitError, rotationDegrees(r.pose),
                  similarityScale(r.pose), r.pose.trans().x(), r.pose.trans().y());
    out << line;
  }
  out << "best pose (model to data): " << poseText(report.results.front().pose, 6) << "\n";
}

void printGridTable(std::ostream& out, const GridReport& report) {
  out << (report.valid ? "valid" : "not valid") << ": " << report.count << " of "
      << report.points.size() << " points assigned to grid nodes in " << milliseconds(report.time)
      << "\n";
  if (report.robust && !report.valid) out << "reason: " << report.reason << "\n";
  if (report.robust && report.valid) {
    out << report.points.size() - static_cast<std::size_t>(report.count)
        << " points rejected (no node); noise level " << fixed(report.sigma, 4) << "\n";
  }
  if (report.valid) {
    out << "grid to point: " << poseText(report.grid2point, 6) << "\n";
    out << "fit error (rms distance from the fitted nodes): " << fixed(gridFitError(report), 4)
        << "\n";
  }
  out << "       #           x           y      u      v\n";
  char line[256];
  for (std::size_t i = 0; i < report.points.size(); ++i) {
    const mvVector<2>& p = report.points[i];
    if (report.assigned(i)) {
      std::snprintf(line, sizeof line, "%8zu  %10.3f  %10.3f  %5ld  %5ld\n", i, p.x(), p.y(),
                    report.map[i].x(), report.map[i].y());
    } else {
      std::snprintf(line, sizeof line, "%8zu  %10.3f  %10.3f      -      -\n", i, p.x(), p.y());
    }
    out << line;
  }
}

}  // namespace ptmatch::cli
