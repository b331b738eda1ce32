#include "ppmatch/result_order.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace ptmatch {
namespace detail {

int compareResultOrder(const void* a, const void* b) {
  const auto* ra = static_cast<const ResultOrderEntry*>(a);
  const auto* rb = static_cast<const ResultOrderEntry*>(b);
  if (ra->coverage > rb->coverage) return -1;
  if (ra->coverage < rb->coverage) return 1;
  if (ra->fitError < rb->fitError) return -1;
  if (ra->fitError > rb->fitError) return 1;
  return 0;
}

void orderAndTruncate(std::vector<mvPointMatcherResult>& results, long maxNumResults) {
  if (results.size() < 2) return;
  std::vector<ResultOrderEntry> table;
  table.reserve(results.size());
  for (std::size_t i = 0; i < results.size(); ++i) {
    table.push_back({static_cast<long>(i), results[i].coverage(), results[i].fitError()});
  }
  std::qsort(table.data(), table.size(), sizeof(ResultOrderEntry), compareResultOrder);
  const std::size_t keep =
      std::min(table.size(), static_cast<std::size_t>(std::max<long>(maxNumResults, 0)));
  std::vector<mvPointMatcherResult> ordered;
  ordered.reserve(keep);
  for (std::size_t i = 0; i < keep; ++i) ordered.push_back(std::move(results[table[i].index]));
  results = std::move(ordered);
}

}  // namespace detail
}  // namespace ptmatch
