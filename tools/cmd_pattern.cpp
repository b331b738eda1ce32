// `ptmatch pattern`: trains a matcher from a dot-pattern image and runs it on a data file.

#include <algorithm>
#include <cmath>

#include "commands.h"
#include "errors.h"
#include "image_io.h"
#include "outputs.h"

namespace ptmatch::cli {

namespace {

// The pattern's dots, in scan order: the model points of a pattern-trained matcher, in
// the image's own pel coordinates (the file sets no client transform).
std::vector<mvVector<2>> patternDots(const mvPelBuffer_const<unsigned char>& image) {
  std::vector<mvVector<2>> dots;
  for (long y = 0; y < image.height(); ++y) {
    const unsigned char* row = image.pointToRow(y);
    for (long x = 0; x < image.width(); ++x) {
      if (row[x] != 0) dots.emplace_back(static_cast<double>(x), static_cast<double>(y));
    }
  }
  return dots;
}

// A pattern result carries a grid-to-data label image instead of a model-to-data map;
// read per dot, it becomes the same kind of map as a point result's.
std::vector<long> dotMap(const mvPointMatcherResult& result,
                         const mvPelBuffer_const<unsigned char>& image,
                         const std::vector<mvVector<2>>& dots) {
  std::vector<long> map;
  const mvPelBuffer_const<long>& labels = result.gridToDataImage();
  for (const mvVector<2>& dot : dots) {
    const mvPair<long> cell(static_cast<long>(dot.x()) + image.offset().x(),
                            static_cast<long>(dot.y()) + image.offset().y());
    map.push_back(labels.isBound() ? result.gridToDataMap(cell) : -1);
  }
  return map;
}

// Whether the matcher will match this pattern through the grid mapping: the pattern is
// "dense" when it has 10 or more dots and some dot has two or more grid neighbours (the
// diagonal pels when no two dots touch edge to edge, else the edge neighbours). This is
// the matcher's own rule for choosing between its two ways of matching a pattern.
bool isStaggered(const mvPelBuffer_const<unsigned char>& image) {
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x) {
      if (image.pointToRow(y)[x] == 0) continue;
      if (x + 1 < image.width() && image.pointToRow(y)[x + 1] != 0) return false;
      if (y + 1 < image.height() && image.pointToRow(y + 1)[x] != 0) return false;
    }
  }
  return true;
}

bool isDense(const mvPelBuffer_const<unsigned char>& image, std::size_t dots, bool staggered) {
  if (dots < 10) return false;
  const long diagonal[4][2] = {{-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
  const long edge[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
  const auto& steps = staggered ? diagonal : edge;
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x) {
      if (image.pointToRow(y)[x] == 0) continue;
      int neighbours = 0;
      for (const auto& step : steps) {
        const long nx = x + step[0];
        const long ny = y + step[1];
        if (nx >= 0 && ny >= 0 && nx < image.width() && ny < image.height() &&
            image.pointToRow(ny)[nx] != 0) {
          ++neighbours;
        }
      }
      if (neighbours >= 2) return true;
    }
  }
  return false;
}

// The pattern cut to the bounding box of its dots, and the box's upper-left pel. The
// matcher keeps its pattern in that box (offset at the box's corner), and its point-to-
// point path adds that offset to the dots' positions once more; trained on the cut image,
// whose box starts at (0, 0), both of its paths give poses of the same pel frame.
mvPelBuffer<unsigned char> cutToDots(const mvPelBuffer_const<unsigned char>& image,
                                     mvPair<long>& origin) {
  long minX = image.width();
  long minY = image.height();
  long maxX = -1;
  long maxY = -1;
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x) {
      if (image.pointToRow(y)[x] == 0) continue;
      minX = std::min(minX, x);
      minY = std::min(minY, y);
      maxX = std::max(maxX, x);
      maxY = std::max(maxY, y);
    }
  }
  origin = mvPair<long>(minX, minY);
  mvPelBuffer<unsigned char> cut(maxX - minX + 1, maxY - minY + 1);
  for (long y = minY; y <= maxY; ++y) {
    for (long x = minX; x <= maxX; ++x) cut.pointToRow(y - minY)[x - minX] = image.pointToRow(y)[x];
  }
  return cut;
}

// Divides the data by the pitch, so that neighbouring pattern pels are 1 apart in them.
std::vector<mvVector<2>> inPatternUnits(const std::vector<mvVector<2>>& data, double pitch) {
  std::vector<mvVector<2>> scaled;
  for (const mvVector<2>& p : data) scaled.push_back(p / pitch);
  return scaled;
}

}  // namespace

int runPattern(const std::vector<std::string>& args, std::ostream& out) {
  std::vector<OptionSpec> specs = searchOptionSpecs();
  specs.insert(specs.end(), {{"--image", true}, {"--data", true}, {"--pitch", true}});
  const ParsedOptions options = parseOptions(args, specs, "pattern");
  const std::string imagePath = options.required("--image");
  const std::string dataPath = options.required("--data");
  mvPointMatcherRunParams params = runParamsFrom(options);
  double pitch = 1.0;
  if (options.has("--pitch")) {
    pitch = parseNumber(options.value("--pitch"), "--pitch");
    if (!(pitch > 0.0)) throw UsageError("--pitch must be above 0");
  }

  const mvPelBuffer<unsigned char> image = readGreyImage(imagePath);
  const std::vector<mvVector<2>> dots = patternDots(image);
  if (dots.size() < 3) {
    throw InputError(imagePath + ": a pattern needs at least 3 nonzero pels, found " +
                     std::to_string(dots.size()));
  }
  const PointFile data = readDataPoints(dataPath);
  mvPair<long> origin;
  const mvPelBuffer<unsigned char> cut = cutToDots(image, origin);
  const bool staggered = isStaggered(cut);
  const bool dense = isDense(cut, dots.size(), staggered);
  if (!options.has("--capture-range") && dense) {
    // The grid mapping snaps within the capture range and searches neighbours in buckets
    // of that size; like `ptmatch grid`, default to 1.25 x the longest step it links
    // along: one pel, or a diagonal of one for a staggered pattern.
    params.autoCaptureRange(false);
    params.captureRange(1.25 * (staggered ? std::sqrt(2.0) : 1.0));
  }

  mvPointMatcher matcher;
  matcher.train(cut);
  mvPointMatcherResultSet resultSet;
  matcher.run(inPatternUnits(data.points, pitch), params, resultSet);
  // Poses of the cut image's pels, in pattern units, become poses of the file's pels in
  // data units.
  const mvXform<2> toDataUnits(mvMatrix<2>(pitch, 0.0, 0.0, pitch), mvVector<2>());
  const mvXform<2> fromFilePels(mvMatrix<2>(), -mvVector<2>(origin));
  const std::vector<mvVector<2>> cutDots = patternDots(cut);

  MatchReport report;
  report.command = "pattern";
  report.mode = modeName(matcher.trainMode());
  report.time = resultSet.time();
  report.model = dots;
  report.data = data.points;
  for (const mvPointMatcherResult& r : resultSet.results()) {
    FoundMatch found;
    found.pose = toDataUnits * r.modelToDataXform() * fromFilePels;
    found.coverage = r.coverage();
    found.fitError = r.fitError();
    found.map = dotMap(r, cut, cutDots);
    report.results.push_back(found);
  }
  writeMatchOutputs(out, options, report, "ptmatch pattern: " + imagePath + " on " + dataPath);
  const mvRange scale = params.scaleUncertainty();
  if (report.results.empty() && dense && scale.start() == 0.0 && scale.end() == 0.0 &&
      !options.has("--json")) {
    out << "note: this pattern is matched through a grid mapping, which accepts neighbour\n"
           "      distances only within 1 + the --scale range; for measured data give a\n"
           "      range, such as --scale -0.1:0.1\n";
  }
  return 0;
}

}  // namespace ptmatch::cli
