#include "ppmatch/pattern/hits.h"

namespace ptmatch {
namespace detail {

namespace {

// A hit pixel this far or farther from the line of the first two makes the hits
// non-collinear (pixels).
constexpr double kCollinearTolerance = 0.25;
// Degrees of freedom of the fit: similarity for collinear hits, affine otherwise.
constexpr int kSimilarityDof = 4;
constexpr int kAffineDof = 6;
constexpr long kUnlabelled = -1;

}  // namespace

PatternHits::PatternHits(const mvPelBuffer_const<unsigned char>& pattern)
    : labels_(pattern.width(), pattern.height()) {
  labels_.offset(pattern.offset());
  mfPelSet(labels_, kUnlabelled);
}

void PatternHits::add(const mvPair<long>& pixel, long dataIndex, const mvVector<2>& dataPoint) {
  const mvVector<2> position(pixel);
  if (labels_.get(pixel) < 0) {
    ++matched_;
    if (collinear_) trackCollinearity_(position);
  }
  labels_.put(pixel, dataIndex);
  fitter_.update(dataPoint, position);
}

void PatternHits::trackCollinearity_(const mvVector<2>& pixel) {
  if (matched_ == 1) {
    first_ = pixel;
    second_ = pixel;
  } else if (!haveLine_) {
    second_ = pixel;
    if (second_ != first_) {
      // The line through first along second - first; mvLine takes the two points.
      line_ = mvLine(first_, second_);
      haveLine_ = true;
    }
  }
  if (haveLine_) collinear_ = line_.distToPoint(pixel) < kCollinearTolerance;
}

mvXform<2> PatternHits::fit() const {
  return fitter_.fit(collinear_ ? kSimilarityDof : kAffineDof);
}

}  // namespace detail
}  // namespace ptmatch
