// The run of a pattern-trained matcher: a sparse pattern goes to point-to-point matching
// (the nested matcher), every other one to point-to-grid matching here.
//
// Point-to-grid matching works in three stages. mfPtToGridMap maps the data points onto a
// grid whose pitch vectors are the pattern's pixel steps in client space; the grid
// corresponder (trained with point features) finds where the pattern lies among the mapped
// grid positions; each position it reports becomes a result with a label image of data
// indices per pattern pixel, a transform fitted from pattern pixels to data points and
// composed with the image-from-client transform, a coverage counted in pattern pixels and
// a fit error.
//
// The mapping's parameters come from the run parameters: the size tolerance is 1 plus the
// scale uncertainty, the angle tolerance is the rotation uncertainty, and the snap size is
// the capture range when that is explicit and positive, else 0 (the mapper's default, a
// fifth of the pitch, with which it finds no neighbour and maps nothing). A dense pattern
// is therefore found only with an explicit capture range of about a pitch or more and a
// scale uncertainty wide enough for the data's pitch and noise.
//
// The fit error of a result is the mean squared distance, over the labelled pixels,
// between the data point mapped back into the model's client space and the pixel's
// position in the pattern frame (a mean of squares, not its root).
#include <optional>
#include <vector>

#include "mvbase/timer.h"
#include "ppmatch/internal.h"
#include "ppmatch/pattern/hits.h"
#include "ppmatch/result_order.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"

namespace {

using ptmatch::detail::kPpmatchModule;
using ptmatch::detail::PatternHits;

// The corresponder's confusion value; its run does not read it.
constexpr double kConfusion = 1.0;

// The grid the data points are mapped onto: the pattern's pixel steps in client space,
// with an axis dropped where the pattern is a single pixel wide or high.
mvPtToGridMapRunParams gridMapParams(const mvPointMatcherRunParams& params,
                                     const mvXform<2>& patternTransform,
                                     const mvPelBuffer_const<unsigned char>& pattern,
                                     bool staggered) {
  const mvVector<2> origin = patternTransform * mvVector<2>(0.0, 0.0);
  const mvVector<2> xStep = patternTransform * mvVector<2>(1.0, 0.0) - origin;
  const mvVector<2> yStep = patternTransform * mvVector<2>(0.0, 1.0) - origin;
  const mvRange sizeTol(1.0 + params.scaleUncertainty().start(),
                        1.0 + params.scaleUncertainty().end());
  const double snap =
      (!params.autoCaptureRange() && params.captureRange() > 0.0) ? params.captureRange() : 0.0;

  mvPtToGridMapRunParams mapParams(xStep, yStep, staggered, snap, sizeTol,
                                   params.rotationUncertainty());
  if (pattern.width() == 1) mapParams.xv(mvVector<2>(0.0, 0.0));
  if (pattern.height() == 1) mapParams.yv(mvVector<2>(0.0, 0.0));
  return mapParams;
}

bool isMapped(const mvPair<long>& node) { return node.x() != mvPtToGridMapResult::kUnassigned; }

// The grid positions of the mapped data points, in data order, count entries long.
std::vector<mvPair<long>> mappedPositions(const mvPtToGridMapResult& mapResult, long count) {
  std::vector<mvPair<long>> positions;
  positions.reserve(static_cast<std::size_t>(count));
  for (const mvPair<long>& node : mapResult.map()) {
    if (isMapped(node)) positions.push_back(node);
  }
  positions.resize(static_cast<std::size_t>(count));
  return positions;
}

// True when pixel (pattern frame) lies on a set pel of the pattern.
bool onPatternCell(const mvPair<long>& pixel, const mvPelBuffer_const<unsigned char>& pattern) {
  const mvPair<long> local = pixel - pattern.offset();
  if (local.x() < 0 || local.y() < 0 || local.x() >= pattern.width() ||
      local.y() >= pattern.height()) {
    return false;
  }
  return pattern.get(pixel) != 0;
}

// The hits of the pattern placed at position: every mapped data point that, taken relative
// to position, lands on a set pel of the pattern, in data order.
PatternHits hitsAt(const mvPair<long>& position, const std::vector<mvPair<long>>& nodes,
                   const mvPelBuffer_const<unsigned char>& pattern,
                   const std::vector<mvVector<2>>& dataPoints) {
  PatternHits hits(pattern);
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    if (!isMapped(nodes[k])) continue;
    const mvPair<long> pixel = nodes[k] - position;
    if (!onPatternCell(pixel, pattern)) continue;
    hits.add(pixel, static_cast<long>(k), dataPoints[k]);
  }
  return hits;
}

// Mean squared distance between each labelled data point, mapped back by the inverse of
// modelToData, and its pixel's position in the pattern frame; 0.0 without labels.
double gridFitError(const mvPelBuffer_const<long>& labels, const mvXform<2>& modelToData,
                    const std::vector<mvVector<2>>& dataPoints) {
  std::optional<mvXform<2>> dataToModel;
  double sum = 0.0;
  long count = 0;
  for (long y = 0; y < labels.height(); ++y) {
    const long* row = labels.pointToRow(y);
    for (long x = 0; x < labels.width(); ++x) {
      const long k = row[x];
      if (k < 0) continue;
      if (!dataToModel) dataToModel = modelToData.inverse();
      const mvVector<2> p = *dataToModel * dataPoints[static_cast<std::size_t>(k)];
      const mvVector<2> pixel(static_cast<double>(x + labels.offset().x()),
                              static_cast<double>(y + labels.offset().y()));
      const mvVector<2> d = p - pixel;
      sum += d.x() * d.x() + d.y() * d.y();
      ++count;
    }
  }
  return count == 0 ? 0.0 : sum / static_cast<double>(count);
}

}  // namespace

void mvPointMatcher::Impl::runPtToGrid_(const std::vector<mvVector<2>>& dataPoints,
                                        const mvPointMatcherRunParams& params,
                                        mvPointMatcherResultSet& resultSet) const {
  mvTimer timer;
  resultSet.setTime_(0.0);
  resultSet.getResults_().clear();
  if (nestedMatcher_ && nestedMatcher_->isTrained() &&
      nestedMatcher_->trainMode() == mvPointMatcherDefs::ePointToPoint) {
    pointToPointMatching_(dataPoints, params, resultSet);
  } else {
    pointToGridMatching_(dataPoints, params, resultSet);
  }
  resultSet.setTime_(timer.sec());
}

void mvPointMatcher::Impl::pointToGridMatching_(const std::vector<mvVector<2>>& dataPoints,
                                                const mvPointMatcherRunParams& params,
                                                mvPointMatcherResultSet& resultSet) const {
  const mvPelBuffer_const<unsigned char>& pattern = gridCorresponder_->pattern();
  const mvPtToGridMapRunParams mapParams = gridMapParams(
      params, patternTransform_, pattern, gridCorresponder_->trainParams().staggered());
  mvPtToGridMapResult mapResult;
  const long mapped = mfPtToGridMap(dataPoints, mapParams, mapResult);
  if (mapped < 3) return;
  const std::vector<mvPair<long>>& nodes = mapResult.map();
  mvAssert(nodes.size() == dataPoints.size(), kPpmatchModule, __LINE__);

  const mv_PointToGridCorresponderRunParams corrParams(params.minCoverage(), kConfusion,
                                                       params.maxNumResults());
  mv_PointToGridCorresponderResultSet corrResults;
  if (!gridCorresponder_->run(mappedPositions(mapResult, mapped), corrParams, corrResults)) {
    return;
  }
  const mvXform<2> imageFromClient = patternTransform_.inverse();

  std::vector<mvPointMatcherResult>& results = resultSet.getResults_();
  for (const mv_PointToGridCorresponderResult& found : corrResults.results()) {
    const PatternHits hits = hitsAt(found.position(), nodes, pattern, dataPoints);
    const mvXform<2> modelToData = hits.fit() * imageFromClient;

    results.emplace_back();
    mvPointMatcherResult& result = results.back();
    result.setRunMode_(mvPointMatcherDefs::ePointToGrid);
    result.setModelToDataXform_(modelToData);
    result.setGridToData_(hits.labels());
    result.setCoverage_(static_cast<double>(hits.matched()) /
                        static_cast<double>(patternCellCount_));
    result.setFitError_(gridFitError(hits.labels(), modelToData, dataPoints));
  }
  // Ordered, not cut: the corresponder's maxNumResults already bounds the list.
  ptmatch::detail::orderAndTruncate(results, static_cast<long>(results.size()));
}
