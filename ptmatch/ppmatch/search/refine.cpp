#include "ppmatch/search/refine.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "mvbase/attention.h"
#include "mvbase/fitter.h"
#include "ppmatch/search/lattice.h"

namespace ptmatch {
namespace detail {
namespace {

// Lines reported when the pair lists of a fine hypothesis disagree in length or are short.
constexpr int kMappedPairsLine = 1723;
constexpr int kDataPairsLine = 1724;
constexpr int kEnoughPairsLine = 1725;

// Degrees of freedom of every fit: translation, rotation and one uniform scale.
constexpr int kSimilarity = 4;

// A refit repeats a tried one when its scale is within 1 % and its rotation within a tenth
// of a rotation step.
constexpr double kRepeatScaleLo = 0.99;
constexpr double kRepeatScaleHi = 1.01;
constexpr double kRepeatRotationSteps = 0.1;

// Cells searched either side of a model point's fitted cell by the capture pass.
constexpr long kCaptureReach = 2;

// Marks "no data point" in index rasters; data point j is stored as j + 1 (16 bits, so
// indices wrap beyond 65535: a deliberate limit of the rasters).
constexpr std::uint16_t kNoDataPoint = 0;

// Fits a similarity; false when the fitter cannot (its own error or a numeric failure).
bool fitSimilarity(const mvLSPointToPointFitter& fitter, mvXform<2>& pose) {
  try {
    pose = fitter.fit(kSimilarity);
    return true;
  } catch (const mvLSPointToPointFitter::Errors&) {
    return false;
  } catch (const mvMathError&) {
    return false;
  }
}

double squaredDistance(const mvVector<2>& a, const mvVector<2>& b) {
  const mvVector<2> d = a - b;
  return d.x() * d.x() + d.y() * d.y();
}

bool insideRaster(const mv_PelBuffer& raster, const mvPair<long>& cell) {
  return cell.x() >= 0 && cell.x() < raster.width() && cell.y() >= 0 && cell.y() < raster.height();
}

// The neighbourhood index raster (the 3 x 3 block around each data point's cell holds its
// number) and the cell index raster (only the cell itself). Later points overwrite earlier.
struct IndexRasters {
  mvPelBuffer<std::uint16_t> neighbourhood;
  mvPelBuffer<std::uint16_t> cell;
};

IndexRasters buildIndexRasters(const GridSpace& space) {
  const long width = space.occupancy.width();
  const long height = space.occupancy.height();
  IndexRasters rasters{mvPelBuffer<std::uint16_t>(width, height),
                       mvPelBuffer<std::uint16_t>(width, height)};
  for (std::size_t j = 0; j < space.mapped.size(); ++j) {
    const std::uint16_t number = wrapToUint16(static_cast<long>(j) + 1);
    const mvPair<long> cell = dataCell(space.dataToGrid, space.mapped[j]);
    fillNeighbourhood(rasters.neighbourhood, cell, number);
    if (insideRaster(rasters.cell, cell)) rasters.cell.pointToRow(cell.y())[cell.x()] = number;
  }
  return rasters;
}

// A model point and the data point it is paired with.
struct IndexPair {
  std::size_t model;
  std::size_t data;
};

// A (rotation in degrees, scale) already voted again in stage 1.
struct TriedFit {
  double rotation;
  double scale;
};

// Both stages, with the state they share and the reusable per-candidate buffers.
class Refinement {
 public:
  Refinement(const std::vector<mvVector<2>>& data, const GridSpace& space,
             const mv_PointMatcherModel& model, double captureRange, Voter& voter)
      : data_(data),
        space_(space),
        model_(model),
        captureRange2_(captureRange * captureRange),
        voter_(voter),
        rasters_(buildIndexRasters(space)),
        map_(model.points.size(), -1),
        reverse_(data.size(), -1) {}

  void fitAndRevote(HypothesisStore& coarse, long baseMinScore, HypothesisStore& fine);
  void verifyFineHypotheses(HypothesisStore& fine, CandidateStore& run);

 private:
  void projectHypothesis(const CellHypothesis& h);
  void pairThroughNeighbourhood();
  bool fitToMappedData(const CellHypothesis& h, mvXform<2>& fit);
  bool isRepeat(double rotation, double scale) const;
  void verifyHypothesis(const CellHypothesis& h, CandidateStore& run);
  bool fitStartPoses(const CellHypothesis& h, mvXform<2>& gridFit, mvXform<2>& pose);
  void clearMap();
  void match(std::size_t m, std::size_t j);
  long nearestInReach(const mvVector<2>& target, long cx, long cy) const;
  void capturePass(const mvXform<2>& gridFit, const mvXform<2>& pose);
  long nearestUnmatched(const mvVector<2>& target) const;
  void completionPass(const mvXform<2>& pose);
  bool isDuplicate(CandidateStore& run);
  long score() const;

  const std::vector<mvVector<2>>& data_;
  const GridSpace& space_;
  const mv_PointMatcherModel& model_;
  const double captureRange2_;
  Voter& voter_;
  const IndexRasters rasters_;
  // Fits already voted again in stage 1.
  std::vector<TriedFit> tried_;
  // Cells of the projected model of the hypothesis at hand.
  std::vector<mvPair<long>> cells_;
  // Pairs found through the neighbourhood index raster.
  std::vector<IndexPair> pairs_;
  std::vector<mvVector<2>> pairedModel_;
  std::vector<mvVector<2>> pairedMapped_;
  std::vector<mvVector<2>> pairedData_;
  // Model-to-data map and data-to-model reverse map of the candidate; kept consistent.
  std::vector<long> map_;
  std::vector<long> reverse_;
  // Pairs of the map, in data space.
  mvLSPointToPointFitter fitter_;
  long matched_ = 0;
  // Entry copied out of the run's store by the duplicate test.
  PoseCandidate stored_;
};

void Refinement::projectHypothesis(const CellHypothesis& h) {
  projectModel(model_.points, modelToGrid(space_.dataToGrid, model_.center, h.scale, h.rotation),
               cells_);
  for (mvPair<long>& cell : cells_) cell = cell + h.offset;
}

void Refinement::pairThroughNeighbourhood() {
  pairs_.clear();
  for (std::size_t m = 0; m < cells_.size(); ++m) {
    if (!insideRaster(rasters_.neighbourhood, cells_[m])) continue;
    const std::uint16_t number = rasters_.neighbourhood.pointToRow(cells_[m].y())[cells_[m].x()];
    if (number != kNoDataPoint) pairs_.push_back(IndexPair{m, std::size_t{number} - 1});
  }
}

// Stage 1, steps 1 to 3: the least-squares pose of the model onto the (start-pose frame)
// data that its projected points land on.
bool Refinement::fitToMappedData(const CellHypothesis& h, mvXform<2>& fit) {
  projectHypothesis(h);
  pairThroughNeighbourhood();
  if (pairs_.size() < 2) return false;
  fitter_.reset();
  for (const IndexPair& p : pairs_) fitter_.update(space_.mapped[p.data], model_.points[p.model]);
  return fitSimilarity(fitter_, fit) && !fit.isSingular();
}

bool Refinement::isRepeat(double rotation, double scale) const {
  const double step = rotationStep(model_.defaultGridSize, model_, scale);
  for (const TriedFit& t : tried_) {
    const double ratio = scale / t.scale;
    if (ratio >= kRepeatScaleLo && ratio <= kRepeatScaleHi &&
        std::fabs(rotation - t.rotation) / step <= kRepeatRotationSteps) {
      return true;
    }
  }
  return false;
}

void Refinement::fitAndRevote(HypothesisStore& coarse, long baseMinScore, HypothesisStore& fine) {
  long minScore = baseMinScore;
  CellHypothesis h;
  for (long votes = coarse.first(h); votes >= 0; votes = coarse.next(h)) {
    mvXform<2> fit;
    if (!fitToMappedData(h, fit)) continue;
    const double scale = fit.xScale();
    const double rotation = mvDegree(fit.xRot()).toDouble();
    if (isRepeat(rotation, scale)) continue;
    tried_.push_back(TriedFit{rotation, scale});
    voter_.voteAndCollect(scale, mvDegree(rotation), minScore, fine);
  }
}

// Stage 2, step 2: the hypothesis fitted to the data its projected points land on, once in
// the start-pose frame (gridFit, for lookups) and once in data space (pose).
bool Refinement::fitStartPoses(const CellHypothesis& h, mvXform<2>& gridFit, mvXform<2>& pose) {
  projectHypothesis(h);
  pairThroughNeighbourhood();
  if (pairs_.size() < 2) return false;
  pairedModel_.clear();
  pairedMapped_.clear();
  pairedData_.clear();
  for (const IndexPair& p : pairs_) {
    pairedModel_.push_back(model_.points[p.model]);
    pairedMapped_.push_back(space_.mapped[p.data]);
    pairedData_.push_back(data_[p.data]);
  }
  mvAssert(pairedMapped_.size() == pairedModel_.size(), kPpmatchModule, kMappedPairsLine);
  mvAssert(pairedData_.size() == pairedModel_.size(), kPpmatchModule, kDataPairsLine);
  mvAssert(pairedModel_.size() >= 2, kPpmatchModule, kEnoughPairsLine);
  return fitSimilarity(mvLSPointToPointFitter(pairedMapped_, pairedModel_), gridFit) &&
         fitSimilarity(mvLSPointToPointFitter(pairedData_, pairedModel_), pose);
}

void Refinement::clearMap() {
  for (long& j : map_) {
    if (j >= 0) reverse_[static_cast<std::size_t>(j)] = -1;
    j = -1;
  }
  fitter_.reset();
  matched_ = 0;
}

void Refinement::match(std::size_t m, std::size_t j) {
  map_[m] = static_cast<long>(j);
  reverse_[j] = static_cast<long>(m);
  fitter_.update(data_[j], model_.points[m]);
  ++matched_;
}

// The data point nearest to target among those whose cells lie within 2 cells of cell,
// scanned row by row (the first of equally near ones wins); -1 when there is none.
long Refinement::nearestInReach(const mvVector<2>& target, long cx, long cy) const {
  const mvPelBuffer_const<std::uint16_t>& cellIndex = rasters_.cell;
  const long lastX = cellIndex.width() - 1;
  const long lastY = cellIndex.height() - 1;
  double best = std::numeric_limits<double>::infinity();
  long nearest = -1;
  for (long y = std::max(cy - kCaptureReach, 0L); y <= std::min(cy + kCaptureReach, lastY); ++y) {
    const std::uint16_t* row = cellIndex.pointToRow(y);
    for (long x = std::max(cx - kCaptureReach, 0L); x <= std::min(cx + kCaptureReach, lastX); ++x) {
      if (row[x] == kNoDataPoint) continue;
      const std::size_t j = std::size_t{row[x]} - 1;
      const double d2 = squaredDistance(target, data_[j]);
      if (d2 < best) {
        best = d2;
        nearest = static_cast<long>(j);
      }
    }
  }
  return nearest;
}

// Stage 2, step 3: for each model point in model order, the data point nearest to its
// pose among those whose cells lie within 2 cells of its fitted cell (the grid-space fit
// applied to the point, then T, rounded); taken when within the capture range and not
// already taken by an earlier model point. A model point whose nearest data point is
// taken stays unmatched here.
void Refinement::capturePass(const mvXform<2>& gridFit, const mvXform<2>& pose) {
  clearMap();
  for (std::size_t m = 0; m < model_.points.size(); ++m) {
    const mvVector<2> g = space_.dataToGrid * (gridFit * model_.points[m]);
    const mvVector<2> target = pose * model_.points[m];
    const long nearest = nearestInReach(target, roundToCell(g.x()), roundToCell(g.y()));
    if (nearest < 0) continue;
    const auto j = static_cast<std::size_t>(nearest);
    if (squaredDistance(target, data_[j]) < captureRange2_ && reverse_[j] < 0) match(m, j);
  }
}

// The unmatched data point nearest to target, over all data points in order; -1 when
// every data point is matched.
long Refinement::nearestUnmatched(const mvVector<2>& target) const {
  double best = std::numeric_limits<double>::infinity();
  long nearest = -1;
  for (std::size_t j = 0; j < data_.size(); ++j) {
    if (reverse_[j] >= 0) continue;
    const double d2 = squaredDistance(target, data_[j]);
    if (d2 < best) {
      best = d2;
      nearest = static_cast<long>(j);
    }
  }
  return nearest;
}

// Stage 2, step 5: each model point still unmatched takes the nearest unmatched data point
// within the capture range, searched over all data points.
void Refinement::completionPass(const mvXform<2>& pose) {
  for (std::size_t m = 0; m < model_.points.size(); ++m) {
    if (map_[m] >= 0) continue;
    const mvVector<2> target = pose * model_.points[m];
    const long nearest = nearestUnmatched(target);
    if (nearest < 0) continue;
    const auto j = static_cast<std::size_t>(nearest);
    if (squaredDistance(target, data_[j]) < captureRange2_) match(m, j);
  }
}

bool Refinement::isDuplicate(CandidateStore& run) {
  for (long s = run.first(stored_); s >= 0; s = run.next(stored_)) {
    if (stored_.modelToData == map_) return true;
  }
  return false;
}

// Matched points, or the sum of the weights of the matched points, negative ones included.
long Refinement::score() const {
  if (model_.weights.empty()) return matched_;
  double sum = 0.0;  // exact for any realistic weights, and free of overflow for any
  for (std::size_t m = 0; m < map_.size(); ++m) {
    if (map_[m] >= 0) sum += static_cast<double>(model_.weights[m]);
  }
  return toCell(sum);
}

void Refinement::verifyHypothesis(const CellHypothesis& h, CandidateStore& run) {
  mvXform<2> gridFit;
  mvXform<2> pose;
  if (!fitStartPoses(h, gridFit, pose)) return;
  capturePass(gridFit, pose);
  if (matched_ > 1 && !fitSimilarity(fitter_, pose)) return;
  completionPass(pose);
  if (isDuplicate(run)) return;
  if (matched_ > 1 && !fitSimilarity(fitter_, pose)) return;
  // Entered whatever its score; run() drops scores below the caller's coverage.
  run.add(score(), PoseCandidate{pose, map_});
}

void Refinement::verifyFineHypotheses(HypothesisStore& fine, CandidateStore& run) {
  CellHypothesis h;
  for (long votes = fine.first(h); votes >= 0; votes = fine.next(h)) {
    mvAttention::check();
    verifyHypothesis(h, run);
  }
}

}  // namespace

void refineHypotheses(const std::vector<mvVector<2>>& data, const GridSpace& space,
                      const mv_PointMatcherModel& model, double captureRange, long baseMinScore,
                      long storeCapacity, Voter& voter, HypothesisStore& coarse,
                      CandidateStore& run) {
  Refinement refinement(data, space, model, captureRange, voter);
  HypothesisStore fine(model.totalWeight, storeCapacity);
  refinement.fitAndRevote(coarse, baseMinScore, fine);
  refinement.verifyFineHypotheses(fine, run);
}

}  // namespace detail
}  // namespace ptmatch
