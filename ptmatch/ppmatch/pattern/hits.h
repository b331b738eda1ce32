// The pattern pixels that one match of a pattern-trained matcher hits, shared by the
// point-to-point and the point-to-grid search of such a matcher.
#pragma once

#include <vector>

#include "mvbase/fitter.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"

namespace ptmatch {
namespace detail {

/// Collects the hits of one match: a label image holding, per pattern pixel, the index of
/// the data point found there (or -1), the number of distinct pixels hit, whether the hit
/// pixels lie on one line, and the (data point, pixel) pairs of the fit.
///
/// A pixel hit twice counts once, keeps the later data index, and gives the fit both
/// pairs. The hits are collinear while every newly hit pixel lies within a quarter pixel
/// of the line through the first two distinct pixels hit; once a pixel lies farther off,
/// they stay non-collinear.
class PatternHits {
 public:
  /// A label image of the pattern's size and offset, every pel -1.
  explicit PatternHits(const mvPelBuffer_const<unsigned char>& pattern);

  /// Records data point number dataIndex, at dataPoint, on the pattern pixel at position
  /// pixel of the pattern's frame (offset included); the pixel must lie on the pattern.
  void add(const mvPair<long>& pixel, long dataIndex, const mvVector<2>& dataPoint);

  /// Number of distinct pixels hit.
  long matched() const { return matched_; }
  /// True while the hit pixels lie on one line.
  bool collinear() const { return collinear_; }
  /// The transform from pattern pixel positions to data points: a similarity while the
  /// hits are collinear, else affine. Throws mvLSPointToPointFitter::Errors when the pairs
  /// do not determine it (fewer than 2 pairs, or a single pixel hit).
  mvXform<2> fit() const;
  /// The label image (pattern frame).
  const mvPelBuffer<long>& labels() const { return labels_; }

 private:
  void trackCollinearity_(const mvVector<2>& pixel);

  mvPelBuffer<long> labels_;
  long matched_ = 0;
  bool collinear_ = true;
  // The line of the collinearity test: through the first pixel hit and the first pixel
  // hit that differs from it.
  mvVector<2> first_;
  mvVector<2> second_;
  bool haveLine_ = false;
  mvLine line_;
  mvLSPointToPointFitter fitter_;
};

}  // namespace detail
}  // namespace ptmatch
