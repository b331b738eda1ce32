// The one order of match results: greater coverage first, then smaller fit error.
#pragma once

#include <vector>

#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {

/// One row of the table that results are sorted by.
struct ResultOrderEntry {
  long index;
  double coverage;
  double fitError;
};

/// qsort comparator: coverage descending, then fit error ascending; equal when both tie.
int compareResultOrder(const void* a, const void* b);

/// Sorts the results with qsort (not stable) in the result order and keeps the first
/// min(count, maxNumResults); with fewer than 2 results nothing happens.
void orderAndTruncate(std::vector<mvPointMatcherResult>& results, long maxNumResults);

}  // namespace detail
}  // namespace ptmatch
