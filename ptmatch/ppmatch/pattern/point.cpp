// Point-to-point matching of a sparse pattern: the nested matcher, trained from the
// pattern's set pixels, runs its ordinary point search, and each of its results is
// re-expressed as a pattern result: a transform fitted from pattern pixel positions to
// data points, a grid-to-data label image and a coverage counted in pattern pixels.
//
// The inner search is free in translation: the caller's translation ranges and start pose
// are not used. Its start pose is rotated to the middle of the caller's rotation range
// while its rotation range stays the caller's range, so a normal range (a, b) makes the
// inner search look at rotations from (a + b) / 2 + a to (a + b) / 2 + b.
//
// Each model point k lands on the pattern pixel patternCells[k] + the pattern's offset
// and is kept only when patternCells[k] lies within the pattern's width and height. The
// pattern is the corresponder's, cropped to the set pixels; when the set pixels do not
// reach the training image's top and left edges, that crop shifts the cells (some land
// on other pixels, some are skipped).
#include <vector>

#include "ppmatch/internal.h"
#include "ppmatch/pattern/hits.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"

namespace {

using ptmatch::detail::kPpmatchModule;
using ptmatch::detail::PatternHits;

// The inner parameters' starting values; most are replaced by the caller's.
constexpr double kInnerMinCoverage = 0.5;
constexpr double kInnerRotationDegrees = 15.0;

// The start pose of the inner search: rotated to the middle of a normal rotation range,
// else the identity; no translation, unit scales.
mvXform<2> innerStartPose(const mvAngleRange& rotation) {
  double angle = 0.0;  // degrees
  if (rotation.range() == mvRangeDefs::eNormal) angle = mvDegree(rotation.middle()).toDouble();
  return mvXform<2>(mvVector<2>(0.0, 0.0), mvDegree(angle), mvDegree(angle), 1.0, 1.0);
}

// The inner run parameters: built with fixed values, then given the caller's values in
// this order (each flag before its size, so that the size's check sees the flag).
mvPointMatcherRunParams innerRunParams(const mvPointMatcherRunParams& params) {
  mvPointMatcherRunParams inner(
      kInnerMinCoverage, mvXform<2>::I, mvRange::FullRange(), mvRange::FullRange(),
      mvAngleRange(mvDegree(-kInnerRotationDegrees), mvDegree(kInnerRotationDegrees), false),
      mvRange(0.0, 0.0), true, 0.0, true, 0.0, 1);
  inner.minCoverage(params.minCoverage());
  inner.autoGridSize(params.autoGridSize());
  inner.gridSize(params.gridSize());
  inner.autoCaptureRange(params.autoCaptureRange());
  inner.captureRange(params.captureRange());
  inner.startPose(innerStartPose(params.rotationUncertainty()));
  inner.rotationUncertainty(params.rotationUncertainty());
  inner.scaleUncertainty(params.scaleUncertainty());
  inner.maxNumResults(params.maxNumResults());
  return inner;
}

bool withinPattern(const mvPair<long>& cell, const mvPelBuffer_const<unsigned char>& pattern) {
  return cell.x() >= 0 && cell.y() >= 0 && cell.x() < pattern.width() &&
         cell.y() < pattern.height();
}

// The hits of one inner result: each matched model point lands on its cell's pixel (the
// cell plus the pattern's offset) when the cell lies within the pattern's size.
PatternHits hitsOf(const mvPointMatcherResult& inner, const std::vector<mvPair<long>>& cells,
                   const mvPelBuffer_const<unsigned char>& pattern,
                   const std::vector<mvVector<2>>& dataPoints) {
  PatternHits hits(pattern);
  const std::vector<long>& modelToData = inner.modelToDataMap();
  for (std::size_t k = 0; k < modelToData.size(); ++k) {
    const long d = modelToData[k];
    if (d < 0) continue;
    mvAssert(k < cells.size(), kPpmatchModule, __LINE__);
    mvAssert(static_cast<std::size_t>(d) < dataPoints.size(), kPpmatchModule, __LINE__);
    const mvPair<long>& cell = cells[k];
    if (!withinPattern(cell, pattern)) continue;
    hits.add(cell + pattern.offset(), d, dataPoints[static_cast<std::size_t>(d)]);
  }
  return hits;
}

}  // namespace

void mvPointMatcher::Impl::pointToPointMatching_(const std::vector<mvVector<2>>& dataPoints,
                                                 const mvPointMatcherRunParams& params,
                                                 mvPointMatcherResultSet& resultSet) const {
  mvPointMatcherResultSet innerResults;
  nestedMatcher_->run(dataPoints, innerRunParams(params), innerResults);

  const mvPelBuffer_const<unsigned char>& pattern = gridCorresponder_->pattern();
  std::vector<mvPointMatcherResult>& results = resultSet.getResults_();
  for (const mvPointMatcherResult& inner : innerResults.results()) {
    const PatternHits hits = hitsOf(inner, patternCells_, pattern, dataPoints);
    const mvXform<2> fit = hits.fit();

    results.emplace_back();
    mvPointMatcherResult& result = results.back();
    result.setRunMode_(mvPointMatcherDefs::ePointToGrid);
    // Pattern pixel positions to data, not composed with the image-from-client transform.
    result.setModelToDataXform_(fit);
    result.setGridToData_(hits.labels());
    result.setCoverage_(static_cast<double>(hits.matched()) /
                        static_cast<double>(patternCellCount_));
    result.setFitError_(inner.fitError());
  }
}
