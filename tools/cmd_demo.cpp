// `ptmatch demo`: the library's main jobs on built-in scenarios, with the truth beside
// what was found.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include "commands.h"
#include "errors.h"
#include "grid_defaults.h"
#include "outputs.h"
#include "pictures.h"
#include "ptmatch/ptgdmap.h"
#include "scenarios.h"
#include "svg.h"

namespace ptmatch::cli {

namespace {

// A recovered pose counts as right when it puts every model point within this distance of
// where the true pose puts it.
constexpr double kPoseTolerance = 0.5;

// The fiducial scenario's run and what it found.
struct FiducialOutcome {
  FiducialScenario scenario;
  MatchReport report;
  double poseDifference = INFINITY;  // largest model-point displacement, best vs truth
  long agreeing = 0;                 // correspondences equal to the true ones
  long matchedClutter = 0;           // model points matched to clutter points
  bool passed = false;
};

// The grid scenario's run and what it found.
struct GridOutcome {
  GridScenario scenario;
  GridReport report;
  double snap = 0.0;
  mvPair<long> shift;                // true node minus found node, the most common one
  long agreeing = 0;                 // assigned points whose node is the true one after the shift
  double gridDifference = INFINITY;  // largest displacement of the found grid vs the truth
  bool passed = false;
};

FiducialOutcome runFiducial() {
  FiducialOutcome o;
  o.scenario = makeFiducialScenario();
  const FiducialScenario& s = o.scenario;
  mvPointMatcher matcher;
  matcher.train(s.model, mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherRunParams params;
  params.rotationUncertainty(mvAngleRange::FullRange());
  params.xTranslationUncertainty(mvRange::FullRange());
  params.yTranslationUncertainty(mvRange::FullRange());
  params.scaleUncertainty(mvRange(-0.1, 0.1));
  params.minCoverage(0.5);
  mvPointMatcherResultSet resultSet;
  matcher.run(s.data, params, resultSet);
  o.report = pointMatchReport("demo", matcher, s.model, s.data, resultSet);
  if (o.report.results.empty()) return o;
  const FoundMatch& best = o.report.results.front();
  o.poseDifference = largestDisplacement(best.pose, s.truth, s.model);
  for (std::size_t i = 0; i < best.map.size() && i < s.trueMap.size(); ++i) {
    if (best.map[i] >= 0 && best.map[i] == s.trueMap[i]) ++o.agreeing;
    if (best.map[i] >= 0) {
      bool isModelPoint = false;
      for (const long t : s.trueMap) isModelPoint = isModelPoint || t == best.map[i];
      if (!isModelPoint) ++o.matchedClutter;
    }
  }
  o.passed = o.poseDifference <= kPoseTolerance;
  return o;
}

GridOutcome runGridScenario() {
  GridOutcome o;
  o.scenario = makeGridScenario();
  const GridScenario& s = o.scenario;
  o.snap = defaultSnap(s.nominalXv, s.nominalYv, true);
  const mvPtToGridMapRunParams params(s.nominalXv, s.nominalYv, true, o.snap, mvRange(),
                                      mvAngleRange());
  o.report = mapPointsToGrid(s.points, params);
  if (!o.report.valid) return o;
  // Node numbers start wherever the mapping began; compare them with the truth up to the
  // most common shift.
  std::map<std::pair<long, long>, long> shifts;
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    if (!o.report.assigned(i)) continue;
    ++shifts[{s.trueNodes[i].x() - o.report.map[i].x(), s.trueNodes[i].y() - o.report.map[i].y()}];
  }
  long best = 0;
  for (const auto& entry : shifts) {
    if (entry.second > best) {
      best = entry.second;
      o.shift = mvPair<long>(entry.first.first, entry.first.second);
    }
  }
  o.agreeing = best;
  // The truth in the found numbering: node n lies at truth * (n + shift).
  const mvXform<2> shiftXform(mvMatrix<2>(), mvVector<2>(o.shift));
  const mvXform<2> truthInFoundNodes = s.truth * shiftXform;
  std::vector<mvVector<2>> nodes;
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    if (o.report.assigned(i)) nodes.emplace_back(o.report.map[i]);
  }
  o.gridDifference = largestDisplacement(o.report.grid2point, truthInFoundNodes, nodes);
  o.passed = o.gridDifference <= kPoseTolerance && o.agreeing == static_cast<long>(s.points.size());
  return o;
}

std::string poseRow(const char* label, const mvXform<2>& pose) {
  char line[200];
  std::snprintf(line, sizeof line, "   %-12s %13.3f %9.4f %10.3f %10.3f\n", label,
                rotationDegrees(pose), similarityScale(pose), pose.trans().x(), pose.trans().y());
  return line;
}

void printFiducial(std::ostream& out, const FiducialOutcome& o) {
  const FiducialScenario& s = o.scenario;
  out << "1. Fiducial in clutter: a model of " << s.model.size()
      << " points; the data are the model"
      << " rotated " << fixed(s.rotationDeg, 2) << " deg,\n   scaled " << fixed(s.scale, 4)
      << " and moved by (" << fixed(s.truth.trans().x(), 2) << ", " << fixed(s.truth.trans().y(), 2)
      << "), with " << fixed(s.noise, 2) << " px noise, " << s.missing << " points missing\n   and "
      << s.clutter << " clutter points (" << s.data.size()
      << " data points). Search: full rotation, scale 0.9 to 1.1.\n";
  out << "                rotation(deg)     scale         tx         ty\n";
  out << poseRow("true pose", s.truth);
  if (o.report.results.empty()) {
    out << "   found pose   none\n";
    return;
  }
  const FoundMatch& best = o.report.results.front();
  out << poseRow("found pose", best.pose);
  out << "   found pose within " << fixed(o.poseDifference, 3)
      << " px of the true one at every model point\n";
  out << "   coverage " << fixed(best.coverage, 4) << " (" << matchedCount(best.map) << " of "
      << s.model.size() << " model points), fit error " << fixed(best.fitError, 3) << " px, time "
      << milliseconds(o.report.time) << "\n";
  out << "   " << o.agreeing << " of " << (s.model.size() - static_cast<std::size_t>(s.missing))
      << " present model points matched to their own data point, " << o.matchedClutter
      << " to clutter\n";
}

void printGrid(std::ostream& out, const GridOutcome& o) {
  const GridScenario& s = o.scenario;
  out << "2. Staggered dot grid: " << s.points.size() << " dots on nodes u + v even, pitch 10,"
      << " rotated " << fixed(s.rotationDeg, 1) << " deg,\n   scaled " << fixed(s.scale, 3)
      << ", with " << fixed(s.noise, 2) << " px noise and " << s.missing
      << " dots missing. Mapping: xv 10,0, yv 0,10,\n   staggered, snap " << fixed(o.snap, 2)
      << " (the tool's default).\n";
  out << "                 a00      a01      a10      a11         tx         ty\n";
  const mvXform<2> shiftXform(mvMatrix<2>(), mvVector<2>(o.shift));
  const auto row = [&out](const char* label, const mvXform<2>& x) {
    char line[200];
    const mvMatrix<2>& m = x.matrix();
    std::snprintf(line, sizeof line, "   %-10s %8.4f %8.4f %8.4f %8.4f %10.3f %10.3f\n", label,
                  m.element(0, 0), m.element(0, 1), m.element(1, 0), m.element(1, 1), x.trans().x(),
                  x.trans().y());
    out << line;
  };
  row("true grid", s.truth * shiftXform);
  if (!o.report.valid) {
    out << "   found grid  none (" << o.report.count << " points assigned)\n";
    return;
  }
  row("found grid", o.report.grid2point);
  if (o.shift != mvPair<long>(0, 0)) {
    out << "   (the found node numbers are the true ones less (" << o.shift.x() << ", "
        << o.shift.y() << "); the true grid is written in them)\n";
  }
  out << "   found grid within " << fixed(o.gridDifference, 3)
      << " px of the true one at every assigned node\n";
  out << "   coverage "
      << fixed(static_cast<double>(o.report.count) / static_cast<double>(s.points.size()), 4)
      << " (" << o.report.count << " of " << s.points.size() << " dots on a node), fit error "
      << fixed(gridFitError(o.report), 3) << " px, time " << milliseconds(o.report.time) << "\n";
  out << "   " << o.agreeing << " of " << s.points.size() << " dots on their true node\n";
}

JsonValue fiducialJson(const FiducialOutcome& o) {
  JsonValue j = matchJson(o.report);
  j.set("command", "demo");
  JsonValue scenario = JsonValue::object();
  scenario.set("name", "fiducial");
  for (const auto& member : j.members()) {
    if (member.first != "command") scenario.set(member.first, member.second);
  }
  scenario.set("truth", poseJson(o.scenario.truth));
  scenario.set("poseDifference", o.poseDifference);
  scenario.set("correspondencesCorrect", o.agreeing);
  scenario.set("passed", o.passed);
  return scenario;
}

JsonValue gridScenarioJson(const GridOutcome& o) {
  const JsonValue j = gridJson(o.report);
  JsonValue scenario = JsonValue::object();
  scenario.set("name", "staggered grid");
  for (const auto& member : j.members()) {
    if (member.first != "command") scenario.set(member.first, member.second);
  }
  const mvXform<2> shiftXform(mvMatrix<2>(), mvVector<2>(o.shift));
  scenario.set("truth", poseJson(o.scenario.truth * shiftXform));
  scenario.set("gridDifference", o.gridDifference);
  scenario.set("nodesCorrect", o.agreeing);
  scenario.set("passed", o.passed);
  return scenario;
}

void writeDemoPicture(const std::string& path, const FiducialOutcome& f, const GridOutcome& g) {
  SvgDocument svg(2 * kPanelWidth + 20, kPanelHeight);
  svg.rect(0, 0, 2 * kPanelWidth + 20, kPanelHeight, "fill=\"#ffffff\" stroke=\"none\"");
  drawMatchPanel(
      svg, 0, 0, "ptmatch demo 1: fiducial in clutter", f.report,
      {"true     rotation " + fixed(f.scenario.rotationDeg, 3) + " deg, scale " +
       fixed(f.scenario.scale, 5) + ", found within " + fixed(f.poseDifference, 3) + " px"});
  drawGridPanel(svg, kPanelWidth + 20, 0, "ptmatch demo 2: staggered dot grid", g.report,
                {"true grid found within " + fixed(g.gridDifference, 3) + " px; " +
                 std::to_string(g.agreeing) + " of " + std::to_string(g.scenario.points.size()) +
                 " dots on their true node"});
  svg.save(path);
}

void writePointList(const std::string& path, const std::vector<mvVector<2>>& points,
                    const std::string& header) {
  std::ofstream file(path);
  if (!file) throw InputError("cannot write " + path);
  file << "# " << header << "\n";
  for (const mvVector<2>& p : points) {
    file << formatJsonNumber(p.x()) << " " << formatJsonNumber(p.y()) << "\n";
  }
  if (!file) throw InputError("cannot write " + path);
}

void writeScenarioFiles(const std::string& dir, const FiducialOutcome& f, const GridOutcome& g) {
  // The folder is made when it does not exist yet, so a first call just works.
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) throw InputError("cannot create " + dir + ": " + error.message());
  writePointList(dir + "/fiducial-model.txt", f.scenario.model, "ptmatch demo: fiducial model");
  writePointList(dir + "/fiducial-data.txt", f.scenario.data,
                 "ptmatch demo: fiducial data, true pose " + poseText(f.scenario.truth, 6));
  writePointList(dir + "/grid-points.txt", g.scenario.points,
                 "ptmatch demo: staggered grid, try --xv 10,0 --yv 0,10 --staggered");
}

}  // namespace

int runDemo(const std::vector<std::string>& args, std::ostream& out) {
  const std::vector<OptionSpec> specs = {
      {"--svg", true}, {"--no-svg", false}, {"--json", false}, {"--write-points", true}};
  const ParsedOptions options = parseOptions(args, specs, "demo");
  if (options.has("--svg") && options.has("--no-svg")) {
    throw UsageError("--svg and --no-svg exclude each other");
  }
  const std::string svgPath = options.value("--svg", "ptmatch-demo.svg");

  const FiducialOutcome fiducial = runFiducial();
  const GridOutcome grid = runGridScenario();
  const bool passed = fiducial.passed && grid.passed;
  if (!options.has("--no-svg")) writeDemoPicture(svgPath, fiducial, grid);
  if (options.has("--write-points"))
    writeScenarioFiles(options.value("--write-points"), fiducial, grid);

  if (options.has("--json")) {
    JsonValue j = JsonValue::object();
    j.set("command", "demo");
    j.set("scenarios",
          JsonValue::array().push(fiducialJson(fiducial)).push(gridScenarioJson(grid)));
    j.set("passed", passed);
    out << j.dump();
  } else {
    out << "ptmatch demo: two built-in scenarios, each with its known truth\n\n";
    printFiducial(out, fiducial);
    out << "\n";
    printGrid(out, grid);
    out << "\n";
    if (!options.has("--no-svg")) out << "picture: " << svgPath << "\n";
    if (options.has("--write-points")) {
      out << "points: " << options.value("--write-points")
          << "/{fiducial-model,fiducial-data,grid-points}.txt\n";
    }
    out << (passed ? "result: both scenarios recovered within 0.5 px of the truth\n"
                   : "result: FAILED, a scenario was not recovered within 0.5 px of the truth\n");
  }
  return passed ? 0 : 1;
}

}  // namespace ptmatch::cli
