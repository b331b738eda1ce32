// The entry point of a run: it empties the result set, refuses an untrained matcher and
// hands the run to the search of the matcher's train mode.
#include "ppmatch/internal.h"

void mvPointMatcher::run(const std::vector<mvVector<2>>& dataPoints,
                         const mvPointMatcherRunParams& params,
                         mvPointMatcherResultSet& resultSet) const {
  // Emptied first, so that a refused or failed run leaves no stale results (the time
  // keeps its value until a search sets it).
  resultSet.getResults_().clear();
  if (!isTrained()) throw mvPointMatcherDefs::NotTrained(L"mvPointMatcher tool is not trained\n");

  switch (trainMode()) {
    case mvPointMatcherDefs::ePointToGrid:
      impl_->runPtToGrid_(dataPoints, params, resultSet);
      return;
    case mvPointMatcherDefs::eExhaustiveMode:
      impl_->runExhaustive_(dataPoints, params, resultSet);
      return;
    default:
      impl_->runPointToPoint_(dataPoints, params, resultSet);
      return;
  }
}
