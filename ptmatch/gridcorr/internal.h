// Names shared by the grid corresponder's source files: its constants and its trained
// state with the steps of a run.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"

namespace ptmatch::detail::gridcorr {

/// The module named in assertion and unknown-version reports.
constexpr const char* kModule = "ptmatch/gridcorr";
/// The archive version of every record of the grid corresponder.
constexpr unsigned long kArchiveVersion = 1100;

/// Pel values of the work image that training builds.
constexpr unsigned char kEmpty = 0;      ///< an empty pel
constexpr unsigned char kNode = 1;       ///< a model node
constexpr unsigned char kRingProbe = 2;  ///< an empty pel to be probed as 0
constexpr unsigned char kNodeProbe = 3;  ///< a node to be probed as 1
/// The row alignment passed to every image the corresponder makes.
constexpr long kAlignment = 32;

/// Bounding box of a non-empty node list: corners (minX, minY) and (maxX, maxY).
mvRectangle<long> nodeBounds(const std::vector<mvPair<long>>& nodes);

}  // namespace ptmatch::detail::gridcorr

/// What a corresponder holds: the parameters and pattern of its last training and the
/// probes made from them; and the steps of a run. Copies share the pattern's pels as image
/// buffers do.
struct PTMATCH_LOCAL mv_PointToGridCorresponder::Impl {
  /// A pel of the pattern frame (origin at the model's upper-left node) and the value
  /// that the observed image must hold there, 1 or 0.
  struct Probe {
    long x = 0;
    long y = 0;
    unsigned char expected = 0;
  };

  /// The probes of a marked work image, in row-major order (train.cpp).
  static std::vector<Probe> listProbes_(const mvPelBuffer<unsigned char>& work);
  /// Scans the padded observed image with the probes (run.cpp).
  bool run_(const mvPelBuffer<unsigned char>& padded, const mvPelRect& observedRect,
            const mv_PointToGridCorresponderRunParams& params,
            mv_PointToGridCorresponderResultSet& results) const;
  /// Counts the probes that agree at one scan position (run.cpp).
  long probe_(unsigned char** rows, long x, long y, long threshold) const;
  /// True when training left at least one probe.
  bool isTrained() const { return !probes_.empty(); }
  /// Asserts what a run relies on (run.cpp).
  void checkRunnable_(const mv_PointToGridCorresponderRunParams& params) const;

  mv_PointToGridCorresponderTrainParams trainParams_{
      false, mv_PointToGridCorresponderDefs::eBoundaryFeatures};
  mvPelBuffer<unsigned char> pattern_;
  mvRectangle<long> patternRect_;  // corners (minX, minY) and (maxX, maxY)
  std::vector<Probe> probes_;
};
