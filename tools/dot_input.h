// Dots found in images as the commands' input: the detector's options, running it on an
// image file, and the points of a command taken from a point file or from an image.
#pragma once

#include <string>
#include <vector>

#include "args.h"
#include "pointfile.h"
#include "ptmatch/dots.h"
#include "ptmatch/imageio.h"

namespace ptmatch::cli {

/// --polarity, --threshold, --min-area, --max-area, --min-roundness.
std::vector<OptionSpec> dotOptionSpecs();
/// specs with the image options given (such as "--image") and the dot options added.
std::vector<OptionSpec> withImageInput(std::vector<OptionSpec> specs,
                                       const std::vector<std::string>& imageOptions);
/// The detector's parameters from those options (defaults: dark dots, automatic
/// threshold, areas 4 to 100000 pels); a bad value is a UsageError naming the option.
mvDotDetectParams dotParamsFrom(const ParsedOptions& options);
/// The dots of an 8-bit or 16-bit image.
std::vector<mvDot> findDotsIn(const mvGreyImage& image, const mvDotDetectParams& params);

/// The points of a command: read from the file of pointsOption, or (when imageOption is
/// given instead) the centres of the dots of that image. Exactly one must be given; the
/// other is a UsageError. `name` receives the file's path for titles. A point file may
/// carry weights only when `weighted` (model files).
PointFile pointsOrDots(const ParsedOptions& options, const std::string& pointsOption,
                       const std::string& imageOption, std::string& name, bool weighted = false);

}  // namespace ptmatch::cli
