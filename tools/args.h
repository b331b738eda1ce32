// Command-line options: `--name value`, `--name=value` and `--flag`, checked against the
// options a command knows, and the parsers of the option values (numbers, LO:HI ranges,
// X,Y vectors, six-number poses). Every failure is a UsageError naming the option.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "mvbase/geometry.h"

namespace ptmatch::cli {

/// One option a command accepts.
struct OptionSpec {
  std::string name;  ///< with the leading dashes, e.g. "--model"
  bool takesValue;   ///< false for a flag such as "--json"
};

/// The options found on a command line, in the order given.
class ParsedOptions {
 public:
  /// True when the option (flag or valued) was given.
  bool has(const std::string& name) const;
  /// The value of a valued option, or the fallback when it was not given.
  std::string value(const std::string& name, const std::string& fallback = "") const;
  /// The value of an option that must be given; throws UsageError naming it otherwise.
  std::string required(const std::string& name) const;

  void add(const std::string& name, const std::string& value);

 private:
  std::vector<std::pair<std::string, std::string>> entries_;
};

/// Parses args (the words after the command name) against specs. Rejects unknown options,
/// positional words, missing values and options given twice; `command` names the command
/// in messages ("match").
ParsedOptions parseOptions(const std::vector<std::string>& args,
                           const std::vector<OptionSpec>& specs, const std::string& command);

/// A finite number; `what` names the option in the message.
double parseNumber(const std::string& text, const std::string& what);
/// A whole number that fits a signed 32-bit value.
long parseWholeNumber(const std::string& text, const std::string& what);
/// A finite number, or nothing when the text is exactly `allowed` (e.g. "full"). Returns
/// false for the word, true with `value` set for a number.
bool parseNumberOr(const std::string& text, const std::string& word, const std::string& what,
                   double& value);

/// "LO:HI" with LO <= HI, both finite.
std::pair<double, double> parseInterval(const std::string& text, const std::string& what);
/// "X,Y".
mvVector<2> parseVector(const std::string& text, const std::string& what);
/// "a00,a01,a10,a11,tx,ty", a non-singular transform.
mvXform<2> parsePose(const std::string& text, const std::string& what);
/// A translation range: "full" or "LO:HI".
mvRange parseTranslationRange(const std::string& text, const std::string& what);
/// A rotation range in degrees: "full" or "LO:HI" (a span of 360 or more is full).
mvAngleRange parseRotationRange(const std::string& text, const std::string& what);

/// Splits text at every separator; empty fields are kept.
std::vector<std::string> splitAt(const std::string& text, char separator);
/// Text without leading and trailing blanks.
std::string trimmed(const std::string& text);

}  // namespace ptmatch::cli
