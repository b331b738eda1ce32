// The commands of the ptmatch tool. Each takes the words after its name, writes its
// report to `out` and returns the exit status; failures are thrown (UsageError,
// InputError, the library's errors) and turned into messages by runCommandLine.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "args.h"
#include "errors.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch::cli {

/// `ptmatch demo`: the built-in scenarios.
int runDemo(const std::vector<std::string>& args, std::ostream& out);
/// `ptmatch match`: a model file against a data file.
int runMatch(const std::vector<std::string>& args, std::ostream& out);
/// `ptmatch grid`: points onto the nodes of a grid.
int runGrid(const std::vector<std::string>& args, std::ostream& out);
/// `ptmatch pattern`: a dot-pattern image against a data file.
int runPattern(const std::vector<std::string>& args, std::ostream& out);

/// `ptmatch dots`: the dots of an image.
int runDots(const std::vector<std::string>& args, std::ostream& out);

/// The help text of a command, or the general help for an empty name.
std::string helpText(const std::string& command);

/// The search options shared by `match` and `pattern`.
std::vector<OptionSpec> searchOptionSpecs();
/// Run parameters from the search options; the tool's defaults are full translation and
/// rotation ranges, scale 0:0, coverage 0.5, automatic grid size and capture range and one
/// result. A value the library refuses becomes a UsageError naming the option.
mvPointMatcherRunParams runParamsFrom(const ParsedOptions& options);

/// Calls `set`, turning the library's BadParams into a UsageError naming the option.
template <typename Set>
void setOption(const std::string& option, Set set) {
  try {
    set();
  } catch (const mvPointMatcherDefs::BadParams& e) {
    throw UsageError(option + ": " + trimmed(e.what()));
  }
}

}  // namespace ptmatch::cli
