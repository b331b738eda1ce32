// Point files. Plain text, one point per line as `x y` or `x,y`, an optional third column
// holding a whole-number weight, `#` starting a comment, blank lines ignored and one
// optional header line (a first line without numbers, such as `x,y,weight`); or a JSON
// array of [x, y] (or [x, y, weight]) pairs. Every parse error names the file and the line.
#pragma once

#include <string>
#include <vector>

#include "mvbase/geometry.h"

namespace ptmatch::cli {

/// The points of a file, in file order, and their weights when the file has a weight
/// column (else empty).
struct PointFile {
  std::vector<mvVector<2>> points;
  std::vector<long> weights;
};

/// Reads a point file; throws InputError ("FILE:LINE: ...").
PointFile readPointFile(const std::string& path);
/// Parses the text of a point file; `name` is the file name used in messages.
PointFile parsePointText(const std::string& text, const std::string& name);

/// Reads a weights file: one whole number a line (same comment and header rules), or a
/// JSON array of whole numbers.
std::vector<long> readWeightsFile(const std::string& path);
/// Parses the text of a weights file.
std::vector<long> parseWeightsText(const std::string& text, const std::string& name);

/// The whole content of a file; throws InputError naming it when it cannot be read.
std::string readWholeFile(const std::string& path);

}  // namespace ptmatch::cli
