// One match of the point matcher and the result set of a run.
#include "ptmatch/ppmatch.h"

mvPointMatcherResult::mvPointMatcherResult()
    : runMode_(mvPointMatcherDefs::ePointToPoint),
      modelToDataXform_(),
      modelToDataMap_(),
      coverage_(0.0),
      fitError_(0.0),
      gridToData_() {}

const std::vector<long>& mvPointMatcherResult::modelToDataMap() const {
  // The message names ePointToGrid although ePointToPoint is the mode accepted; the
  // wording is kept as callers have always seen it.
  if (runMode_ != mvPointMatcherDefs::ePointToPoint &&
      runMode_ != mvPointMatcherDefs::eExhaustiveMode) {
    throw mvPointMatcherDefs::NotRun(
        L"mvPointMatcherResult was not run in mode ePointToGrid or eExhaustiveMode\n");
  }
  return modelToDataMap_;
}

long mvPointMatcherResult::gridToDataMap(const mvPair<long>& cell) const {
  if (runMode_ != mvPointMatcherDefs::ePointToGrid) {
    throw mvPointMatcherDefs::NotRun(L"mvPointMatcherResult was not run in mode ePointToGrid\n");
  }
  return gridToData_.get(cell);
}

mvPointMatcherResultSet::mvPointMatcherResultSet() : results_(), time_(0.0) {}
