// A warning on standard error before a search that would take long, naming the options
// that make it smaller.
#pragma once

#include <ostream>
#include <vector>

#include "ptmatch/ppmatch.h"

namespace ptmatch::cli {

/// Estimated work (mvPointMatcherCost::work) above which a search warns: about ten
/// seconds of one core.
constexpr double kLongSearchWork = 1.5e11;

/// Where warnings go: the error stream of the runCommandLine in progress, else std::cerr.
std::ostream& warningStream();

/// Sends warnings to err for its lifetime.
class WarningStreamScope {
 public:
  explicit WarningStreamScope(std::ostream& err);
  ~WarningStreamScope();
  WarningStreamScope(const WarningStreamScope&) = delete;
  WarningStreamScope& operator=(const WarningStreamScope&) = delete;

 private:
  std::ostream* previous_;
};

/// Warns, as "ptmatch COMMAND: warning: ...", when the point-to-point run of matcher on
/// data under params is estimated above kLongSearchWork. Nothing for other train modes;
/// what the estimate refuses is left for the run to report.
void warnAboutLongSearch(const char* command, const mvPointMatcher& matcher,
                         const std::vector<mvVector<2>>& data,
                         const mvPointMatcherRunParams& params);

}  // namespace ptmatch::cli
