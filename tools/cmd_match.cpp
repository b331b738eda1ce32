// `ptmatch match`: trains a matcher with the model file and runs it on the data file.

#include <algorithm>
#include <cmath>

#include "commands.h"
#include "cost_warning.h"
#include "dot_input.h"
#include "errors.h"
#include "outputs.h"
#include "pointfile.h"
#include "ptmatch/planned.h"
#include "report.h"

namespace ptmatch::cli {

std::vector<OptionSpec> searchOptionSpecs() {
  return {{"--start-pose", true},  {"--x-range", true},
          {"--y-range", true},     {"--rotation", true},
          {"--scale", true},       {"--min-coverage", true},
          {"--grid-size", true},   {"--capture-range", true},
          {"--max-results", true}, {"--json", false},
          {"--svg", true}};
}

mvPointMatcherRunParams runParamsFrom(const ParsedOptions& options) {
  mvPointMatcherRunParams params;
  // The tool's defaults where they differ from the record's own.
  params.rotationUncertainty(mvAngleRange::FullRange());
  params.xTranslationUncertainty(mvRange::FullRange());
  params.yTranslationUncertainty(mvRange::FullRange());

  if (options.has("--min-coverage")) {
    const double c = parseNumber(options.value("--min-coverage"), "--min-coverage");
    setOption("--min-coverage", [&] { params.minCoverage(c); });
  }
  if (options.has("--start-pose")) {
    params.startPose(parsePose(options.value("--start-pose"), "--start-pose"));
  }
  if (options.has("--x-range")) {
    const mvRange r = parseTranslationRange(options.value("--x-range"), "--x-range");
    setOption("--x-range", [&] { params.xTranslationUncertainty(r); });
  }
  if (options.has("--y-range")) {
    const mvRange r = parseTranslationRange(options.value("--y-range"), "--y-range");
    setOption("--y-range", [&] { params.yTranslationUncertainty(r); });
  }
  if (options.has("--rotation")) {
    const mvAngleRange r = parseRotationRange(options.value("--rotation"), "--rotation");
    setOption("--rotation", [&] { params.rotationUncertainty(r); });
  }
  if (options.has("--scale")) {
    const auto s = parseInterval(options.value("--scale"), "--scale");
    setOption("--scale", [&] { params.scaleUncertainty(mvRange(s.first, s.second)); });
  }
  double value = 0.0;
  if (options.has("--grid-size") &&
      parseNumberOr(options.value("--grid-size"), "auto", "--grid-size", value)) {
    setOption("--grid-size", [&] {
      params.autoGridSize(false);
      params.gridSize(value);
    });
  }
  if (options.has("--capture-range") &&
      parseNumberOr(options.value("--capture-range"), "auto", "--capture-range", value)) {
    setOption("--capture-range", [&] {
      params.autoCaptureRange(false);
      params.captureRange(value);
    });
  }
  if (options.has("--max-results")) {
    const long n = parseWholeNumber(options.value("--max-results"), "--max-results");
    setOption("--max-results", [&] { params.maxNumResults(n); });
  }
  return params;
}

namespace {

// The model's weights: the file's third column or a --weights file, never both.
std::vector<long> modelWeights(const PointFile& model, const std::string& modelPath,
                               const ParsedOptions& options) {
  if (!options.has("--weights")) return model.weights;
  const std::string path = options.value("--weights");
  if (!model.weights.empty()) {
    throw UsageError("--weights given, but " + modelPath + " has a weight column already");
  }
  std::vector<long> weights = readWeightsFile(path);
  if (weights.size() != model.points.size()) {
    throw InputError(path + ": " + std::to_string(weights.size()) + " weights for " +
                     std::to_string(model.points.size()) + " model points");
  }
  return weights;
}

void trainFromPoints(mvPointMatcher& matcher, const PointFile& model, const std::string& modelPath,
                     const std::vector<long>& weights, bool exhaustive) {
  if (model.points.size() < 3) {
    throw InputError(modelPath + ": a model needs at least 3 points, found " +
                     std::to_string(model.points.size()));
  }
  const auto positive = std::count_if(weights.begin(), weights.end(), [](long w) { return w > 0; });
  if (!weights.empty() && positive < 2) {
    throw InputError("the model needs at least two positive weights, found " +
                     std::to_string(positive));
  }
  const mvPointMatcherDefs::Mode mode =
      exhaustive ? mvPointMatcherDefs::eExhaustiveMode : mvPointMatcherDefs::eAutoDetect;
  if (weights.empty()) {
    matcher.train(model.points, mode);
  } else {
    matcher.train(model.points, weights, mode);
  }
}

// The exhaustive search tries (larger set + 1) ^ (smaller set) assignments without
// pruning; beyond this many a run would not end in any useful time.
constexpr double kMostExhaustiveAssignments = 1e8;

void checkExhaustiveSize(std::size_t modelCount, std::size_t dataCount) {
  const double smaller = static_cast<double>(std::min(modelCount, dataCount));
  const double larger = static_cast<double>(std::max(modelCount, dataCount));
  const double log10Assignments = smaller * std::log10(larger + 1.0);
  if (log10Assignments > std::log10(kMostExhaustiveAssignments)) {
    throw UsageError("--exhaustive would try about 10^" +
                     std::to_string(static_cast<long>(std::ceil(log10Assignments))) +
                     " assignments for " + std::to_string(modelCount) + " model and " +
                     std::to_string(dataCount) +
                     " data points (at most 10^8 are allowed); leave it out for larger sets");
  }
}

}  // namespace

int runMatch(const std::vector<std::string>& args, std::ostream& out) {
  std::vector<OptionSpec> specs = searchOptionSpecs();
  specs.insert(specs.end(), {{"--model", true},
                             {"--data", true},
                             {"--weights", true},
                             {"--exhaustive", false},
                             {"--exact", false}});
  const ParsedOptions options =
      parseOptions(args, withImageInput(specs, {"--model-image", "--data-image"}), "match");
  const mvPointMatcherRunParams params = runParamsFrom(options);

  std::string modelPath, dataPath;
  const PointFile model = pointsOrDots(options, "--model", "--model-image", modelPath, true);
  const std::vector<long> weights = modelWeights(model, modelPath, options);
  const PointFile data = pointsOrDots(options, "--data", "--data-image", dataPath);

  if (options.has("--exhaustive")) checkExhaustiveSize(model.points.size(), data.points.size());

  mvPointMatcher matcher;
  trainFromPoints(matcher, model, modelPath, weights, options.has("--exhaustive"));
  mvPointMatcherResultSet resultSet;
  // The written run as asked (or as the planned search would run it: a given grid size).
  if (options.has("--exact") || options.has("--exhaustive") || !params.autoGridSize()) {
    warnAboutLongSearch("match", matcher, data.points, params);
    matcher.run(data.points, params, resultSet);
  } else {
    mfPlannedMatch(matcher, data.points, params, resultSet);
  }

  const MatchReport report =
      pointMatchReport("match", matcher, model.points, data.points, resultSet);
  writeMatchOutputs(out, options, report, "ptmatch match: " + modelPath + " on " + dataPath);
  return 0;
}

}  // namespace ptmatch::cli
