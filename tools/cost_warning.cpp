#include "cost_warning.h"

#include <cmath>
#include <iostream>
#include <string>

namespace ptmatch::cli {
namespace {

thread_local std::ostream* tWarnings = nullptr;

// Seconds of work, rounded to two significant figures.
std::string roughSeconds(double work) {
  const double seconds = work / kLongSearchWork * 10.0;
  const double magnitude = std::pow(10.0, std::floor(std::log10(seconds)) - 1.0);
  return std::to_string(static_cast<long long>(std::round(seconds / magnitude) * magnitude));
}

}  // namespace

std::ostream& warningStream() { return tWarnings != nullptr ? *tWarnings : std::cerr; }

WarningStreamScope::WarningStreamScope(std::ostream& err) : previous_(tWarnings) {
  tWarnings = &err;
}

WarningStreamScope::~WarningStreamScope() { tWarnings = previous_; }

void warnAboutLongSearch(const char* command, const mvPointMatcher& matcher,
                         const std::vector<mvVector<2>>& data,
                         const mvPointMatcherRunParams& params) {
  if (!matcher.isTrained() || matcher.trainMode() != mvPointMatcherDefs::ePointToPoint) return;
  mvPointMatcherCost cost;
  try {
    cost = matcher.estimateCost(data, params);
  } catch (const mvException&) {
    return;  // the run itself reports it
  }
  if (!(cost.work() > kLongSearchWork)) return;
  warningStream() << "ptmatch " << command << ": warning: this search would take about "
                  << roughSeconds(cost.work()) << " s (" << cost.latticeSteps
                  << " rotation and scale steps x " << cost.windowCells << " translation cells x "
                  << cost.modelPoints << " model points at grid size " << cost.gridSize
                  << "); a larger --grid-size or narrower --x-range, --y-range, --rotation or "
                     "--scale make it smaller\n";
}

}  // namespace ptmatch::cli
