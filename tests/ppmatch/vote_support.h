// Helpers for the tests that run the point-to-point search with a chosen way of voting:
// the point model a matcher trained, and the search a run makes on it.
#pragma once

#include <vector>

#include "mvbase/archive.h"
#include "ppmatch/model.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/vote.h"
#include "ptmatch/ppmatch.h"

namespace vote_test {

/// The point model the matcher trained, read back from the matcher's archive: its version
/// word, the model's presence flag, then the model (an empty model when it has none).
inline mv_PointMatcherModel trainedModel(const mvPointMatcher& matcher) {
  mvPointMatcher copy(matcher);
  mvMemoryArchive out;
  out || copy;
  mvMemoryArchive in(out.bytes());
  unsigned long version = 0;
  long present = 0;
  in || version;
  in || present;
  mv_PointMatcherModel model;
  if (present != 0) in || model;
  return model;
}

/// One candidate of a search, with its score.
struct Candidate {
  long score;
  ptmatch::detail::PoseCandidate candidate;
};

/// The candidates, best first, of the search a run with params makes (8 times the results,
/// half the coverage), voting as vote says.
inline std::vector<Candidate> searchWith(const ptmatch::detail::VoteOptions& vote,
                                         const mv_PointMatcherModel& model,
                                         const std::vector<mvVector<2>>& data,
                                         const mvPointMatcherRunParams& params) {
  mvPointMatcherRunParams search = params;
  search.maxNumResults(8 * params.maxNumResults());
  search.minCoverage(0.5 * params.minCoverage());
  ptmatch::detail::CandidateStore store(model.totalWeight, search.maxNumResults());
  ptmatch::detail::hypothesisSearch(data, model, search, store, vote);
  std::vector<Candidate> out;
  ptmatch::detail::PoseCandidate c;
  for (long score = store.first(c); score >= 0; score = store.next(c)) {
    out.push_back(Candidate{score, c});
  }
  return out;
}

}  // namespace vote_test
