// Write access to result sets for searches that assemble their results from other runs.
#pragma once

#include <utility>
#include <vector>

#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {

/// Fills result sets and rewrites result maps on behalf of searches outside mvPointMatcher.
struct ResultWriter {
  static std::vector<mvPointMatcherResult>& results(mvPointMatcherResultSet& set) {
    return set.getResults_();
  }
  static void setTime(mvPointMatcherResultSet& set, double seconds) { set.setTime_(seconds); }
  static void setMap(mvPointMatcherResult& result, std::vector<long> map) {
    result.setModelToDataMap_(std::move(map));
  }
};

}  // namespace detail
}  // namespace ptmatch
