#include "dot_input.h"

#include "errors.h"
#include "image_io.h"
#include "outputs.h"

namespace ptmatch::cli {

namespace {

/// Calls `set`, turning the detector's BadInput into a UsageError naming the option.
template <typename Set>
void setDotOption(const std::string& option, Set set) {
  try {
    set();
  } catch (const mvDotDefs::BadInput& e) {
    throw UsageError(option + ": " + trimmed(e.what()));
  }
}

mvDotDefs::Polarity parsePolarity(const std::string& text) {
  if (text == "dark") return mvDotDefs::eDark;
  if (text == "bright") return mvDotDefs::eBright;
  if (text == "either") return mvDotDefs::eEither;
  throw UsageError("--polarity must be dark, bright or either, not '" + text + "'");
}

}  // namespace

std::vector<OptionSpec> dotOptionSpecs() {
  return {{"--polarity", true},
          {"--threshold", true},
          {"--min-area", true},
          {"--max-area", true},
          {"--min-roundness", true}};
}

std::vector<OptionSpec> withImageInput(std::vector<OptionSpec> specs,
                                       const std::vector<std::string>& imageOptions) {
  for (const std::string& name : imageOptions) specs.push_back({name, true});
  const std::vector<OptionSpec> dots = dotOptionSpecs();
  specs.insert(specs.end(), dots.begin(), dots.end());
  return specs;
}

mvDotDetectParams dotParamsFrom(const ParsedOptions& options) {
  mvDotDetectParams params;
  if (options.has("--polarity")) params.polarity(parsePolarity(options.value("--polarity")));
  if (options.has("--threshold")) {
    const std::string t = options.value("--threshold");
    if (t == "auto") {
      params.threshold(mvDotDefs::eAuto);
    } else if (t == "local") {
      params.threshold(mvDotDefs::eLocal);
    } else {
      const double grey = parseNumber(t, "--threshold");
      setDotOption("--threshold", [&] { params.fixedThreshold(grey); });
    }
  }
  // The maximum first, so that a minimum above the default maximum can be given with it.
  if (options.has("--max-area")) {
    const double a = parseNumber(options.value("--max-area"), "--max-area");
    setDotOption("--max-area", [&] {
      if (a < params.minArea() && a >= 1.0) params.minArea(1.0);
      params.maxArea(a);
    });
  }
  if (options.has("--min-area")) {
    const double a = parseNumber(options.value("--min-area"), "--min-area");
    setDotOption("--min-area", [&] { params.minArea(a); });
  }
  if (options.has("--min-roundness")) {
    const double r = parseNumber(options.value("--min-roundness"), "--min-roundness");
    setDotOption("--min-roundness", [&] { params.minRoundness(r); });
  }
  return params;
}

std::vector<mvDot> findDotsIn(const mvGreyImage& image, const mvDotDetectParams& params) {
  return image.bits() == 16 ? mfFindDots(image.pels16(), params)
                            : mfFindDots(image.pels8(), params);
}

PointFile pointsOrDots(const ParsedOptions& options, const std::string& pointsOption,
                       const std::string& imageOption, std::string& name, bool weighted) {
  const bool fromImage = options.has(imageOption);
  if (!fromImage && !options.has(pointsOption)) {
    throw UsageError("missing option " + pointsOption + " (or " + imageOption + ")");
  }
  if (fromImage && options.has(pointsOption)) {
    throw UsageError("give either " + pointsOption + " or " + imageOption + ", not both");
  }
  if (!fromImage) {
    name = options.value(pointsOption);
    return weighted ? readPointFile(name) : readDataPoints(name);
  }
  name = options.value(imageOption);
  PointFile file;
  for (const mvDot& dot : findDotsIn(readImageFile(name), dotParamsFrom(options))) {
    file.points.emplace_back(dot.x(), dot.y());
  }
  return file;
}

}  // namespace ptmatch::cli
