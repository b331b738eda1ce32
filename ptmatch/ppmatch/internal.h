// Names shared by the point matcher's source files: the module name its reports carry and
// the matcher's trained state with the runs of its train modes.
#pragma once

#include <memory>
#include <vector>

#include "mvbase/geometry.h"
#include "ppmatch/model.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {
/// Module name reported by the point matcher's errors and assertions.
constexpr const char* kPpmatchModule = "ptmatch/ppmatch";
}  // namespace detail
}  // namespace ptmatch

/// What a matcher holds once trained, and the run of each train mode. A copy is deep: it
/// gets its own point model, grid corresponder and nested matcher, and the train mode.
struct PTMATCH_LOCAL mvPointMatcher::Impl {
  Impl() = default;
  Impl(const Impl& other);
  Impl& operator=(const Impl&) = delete;

  /// The point-to-point search of a point-trained matcher (search/run_point.cpp).
  void runPointToPoint_(const std::vector<mvVector<2>>& dataPoints,
                        const mvPointMatcherRunParams& params,
                        mvPointMatcherResultSet& resultSet) const;
  /// The exhaustive search of a matcher trained in eExhaustiveMode (exhaustive.cpp).
  void runExhaustive_(const std::vector<mvVector<2>>& dataPoints,
                      const mvPointMatcherRunParams& params,
                      mvPointMatcherResultSet& resultSet) const;
  /// The run of a pattern-trained matcher: picks one of the two below (pattern/grid.cpp).
  void runPtToGrid_(const std::vector<mvVector<2>>& dataPoints,
                    const mvPointMatcherRunParams& params,
                    mvPointMatcherResultSet& resultSet) const;
  /// A sparse pattern, searched by the nested matcher (pattern/point.cpp).
  void pointToPointMatching_(const std::vector<mvVector<2>>& dataPoints,
                             const mvPointMatcherRunParams& params,
                             mvPointMatcherResultSet& resultSet) const;
  /// A dense pattern, mapped onto its pixel grid (pattern/grid.cpp).
  void pointToGridMatching_(const std::vector<mvVector<2>>& dataPoints,
                            const mvPointMatcherRunParams& params,
                            mvPointMatcherResultSet& resultSet) const;

  std::unique_ptr<mv_PointMatcherModel> model_;
  mvXform<2> patternTransform_;
  long patternCellCount_ = 0;
  std::unique_ptr<mv_PointToGridCorresponder> gridCorresponder_;
  std::unique_ptr<mvPointMatcher> nestedMatcher_;
  std::vector<mvPair<long>> patternCells_;
  mvPointMatcherDefs::Mode trainMode_ = mvPointMatcherDefs::ePointToPoint;
};
