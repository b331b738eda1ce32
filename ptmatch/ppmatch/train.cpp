// The point matcher's life cycle: construction, copying, training from points,
// untraining and the accessors of the trained state.
//
// Copying gives the target its own copies of the point model, the grid corresponder and
// the nested matcher, but never the train mode, which travels only through training: a
// copy-constructed matcher starts in ePointToPoint (so a copy of an exhaustive-mode
// matcher runs point to point), and an assigned matcher keeps its own train mode. The
// assignment releases what the target held before.
//
// Training from points checks its input in this order: at least 3 points, as many weights
// as points, a mode of eExhaustiveMode or eAutoDetect, at least 2 positive weights; then
// every coordinate must be finite and every weight a 32-bit number whose positive weights
// add up to at most 2147483647. Any failure leaves the matcher untrained.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include "ppmatch/internal.h"

namespace {

using Mode = mvPointMatcherDefs::Mode;

constexpr std::size_t kMinModelPoints = 3;
constexpr long kMinPositiveWeights = 2;

// Grid size relative to the closest spacing of two model points, and the floor set by the
// model's largest extent.
constexpr double kSpacingPerGridCell = 4.0;
constexpr double kSpanPerGridCell = 4096.0;

constexpr std::int64_t kMaxWeight = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMinWeight = std::numeric_limits<std::int32_t>::min();

const wchar_t* const kNotTrainedMessage = L"mvPointMatcher tool is not trained\n";
const wchar_t* const kNotTrainedPointToPointMessage =
    L"mvPointMatcher tool is not trained in mode ePointToPoint\n";
const wchar_t* const kWeightCountMessage =
    L"The number of model points must be equal to the number of weights\n";

// --- Input checks, in the order training applies them ---

void checkPointCount(const std::vector<mvVector<2>>& points) {
  if (points.size() < kMinModelPoints) {
    throw mvPointMatcherDefs::InsufficientModelPoints(L"The number of model points must be >= 3\n");
  }
}

void checkWeightCount(const std::vector<mvVector<2>>& points, const std::vector<long>& weights) {
  if (weights.size() != points.size()) throw mvPointMatcherDefs::BadParams(kWeightCountMessage);
}

void checkTrainMode(Mode mode) {
  if (mode == mvPointMatcherDefs::ePointToPoint || mode == mvPointMatcherDefs::ePointToGrid) {
    throw mvPointMatcherDefs::BadParams(
        L"mode must be either mvPointMatcherDefs::eExhaustiveMode or "
        L"mvPointMatcherDefs::eAutoDetect");
  }
}

void checkPositiveWeights(const std::vector<long>& weights) {
  long positive = 0;
  for (long w : weights) {
    if (w > 0) ++positive;
  }
  if (positive < kMinPositiveWeights) {
    throw mvPointMatcherDefs::BadParams(L"At least two weights must be positve.");
  }
}

void checkFinite(const std::vector<mvVector<2>>& points) {
  for (const mvVector<2>& p : points) {
    if (!std::isfinite(p.x()) || !std::isfinite(p.y())) {
      throw mvPointMatcherDefs::BadParams(L"model point coordinates must be finite\n");
    }
  }
}

// Weights are 32-bit numbers, and so is their positive total (the denominator of every
// coverage).
void checkWeightRange(const std::vector<long>& weights) {
  std::int64_t positiveTotal = 0;
  for (long w : weights) {
    const std::int64_t w64 = w;
    if (w64 < kMinWeight || w64 > kMaxWeight) {
      throw mvPointMatcherDefs::BadParams(L"each weight must lie in [-2147483648, 2147483647]\n");
    }
    if (w64 > 0) positiveTotal += w64;
    if (positiveTotal > kMaxWeight) {
      throw mvPointMatcherDefs::BadParams(
          L"the positive weights must add up to at most 2147483647\n");
    }
  }
}

// --- Precomputation of the point model ---

// Closest spacing of two distinct point positions and the largest distance between two
// points; a point that coincides with another adds nothing to the spacing.
struct Spacing {
  double minSpacing = std::numeric_limits<double>::infinity();
  double maxSpan = 0.0;
};

Spacing measureSpacing(const std::vector<mvVector<2>>& points) {
  const double infinity = std::numeric_limits<double>::infinity();
  Spacing s;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double smallest2 = infinity;
    double largest2 = 0.0;
    for (std::size_t j = 0; j < points.size(); ++j) {
      if (j == i) continue;
      const mvVector<2> d = points[i] - points[j];
      const double d2 = d.x() * d.x() + d.y() * d.y();
      if (d2 < smallest2) smallest2 = d2;
      if (d2 > largest2) largest2 = d2;
    }
    if (smallest2 != 0.0 && smallest2 != infinity) {
      s.minSpacing = std::min(s.minSpacing, std::sqrt(smallest2));
    }
    if (largest2 != 0.0 && largest2 != infinity)
      s.maxSpan = std::max(s.maxSpan, std::sqrt(largest2));
  }
  return s;
}

// Bounding box (origin at the smallest x and y), its centre, and the largest distance from
// the centre to a point. Needs at least one point.
void measureExtent(const std::vector<mvVector<2>>& points, mv_PointMatcherModel& model) {
  double minX = points.front().x();
  double maxX = minX;
  double minY = points.front().y();
  double maxY = minY;
  for (std::size_t i = 1; i < points.size(); ++i) {
    const double x = points[i].x();
    const double y = points[i].y();
    if (x < minX) {
      minX = x;
    } else if (x > maxX) {
      maxX = x;
    }
    if (y < minY) {
      minY = y;
    } else if (y > maxY) {
      maxY = y;
    }
  }
  model.boundingBox = mvRectangle<double>(minX, minY, maxX - minX, maxY - minY);
  model.center = mvVector<2>((minX + maxX) / 2.0, (minY + maxY) / 2.0);

  double largest2 = 0.0;
  for (const mvVector<2>& p : points) {
    const mvVector<2> d = p - model.center;
    largest2 = std::max(largest2, d.x() * d.x() + d.y() * d.y());
  }
  model.radius = largest2 > 0.0 ? std::sqrt(largest2) : 0.0;
}

// Fills the point model from the points and, when weights is not null, their weights.
// With no points it only forgets the old points and leaves the model untrained.
void fillModel(mv_PointMatcherModel& model, const std::vector<mvVector<2>>& points,
               const std::vector<long>* weights) {
  model.trained = false;
  if (points.empty()) {
    model.points.clear();
    return;
  }
  if (weights != nullptr) checkWeightCount(points, *weights);

  model.points = points;
  model.weights = weights != nullptr ? *weights : std::vector<long>();

  const Spacing spacing = measureSpacing(points);
  model.defaultGridSize =
      std::max(spacing.minSpacing / kSpacingPerGridCell, spacing.maxSpan / kSpanPerGridCell);
  measureExtent(points, model);

  if (model.weights.empty()) {
    model.totalWeight = static_cast<long>(points.size());
  } else {
    long total = 0;
    for (long w : model.weights) {
      if (w > 0) total += w;
    }
    model.totalWeight = total;
  }
  model.trained = true;
}

template <typename T>
std::unique_ptr<T> cloneOf(const std::unique_ptr<T>& source) {
  return source ? std::make_unique<T>(*source) : nullptr;
}

}  // namespace

mvPointMatcher::Impl::Impl(const Impl& other)
    : model_(cloneOf(other.model_)),
      patternTransform_(other.patternTransform_),
      patternCellCount_(other.patternCellCount_),
      gridCorresponder_(cloneOf(other.gridCorresponder_)),
      nestedMatcher_(cloneOf(other.nestedMatcher_)),
      patternCells_(other.patternCells_),
      trainMode_(other.trainMode_) {}

mvPointMatcher::mvPointMatcher() : impl_(std::make_unique<Impl>()) {}

mvPointMatcher::mvPointMatcher(const mvPointMatcher& other)
    : impl_(std::make_unique<Impl>(*other.impl_)) {
  impl_->trainMode_ = mvPointMatcherDefs::ePointToPoint;
}

mvPointMatcher& mvPointMatcher::operator=(const mvPointMatcher& other) {
  if (this == &other) return *this;
  // Copy everything first, so that a failing copy leaves the target as it was.
  std::unique_ptr<Impl> copy = std::make_unique<Impl>(*other.impl_);
  // The train mode stays the target's own.
  copy->trainMode_ = impl_->trainMode_;
  impl_ = std::move(copy);
  return *this;
}

mvPointMatcher::~mvPointMatcher() = default;

void mvPointMatcher::train(const std::vector<mvVector<2>>& points, mvPointMatcherDefs::Mode mode) {
  untrain();
  checkPointCount(points);
  checkTrainMode(mode);
  checkFinite(points);

  if (!impl_->model_) impl_->model_ = std::make_unique<mv_PointMatcherModel>();
  fillModel(*impl_->model_, points, nullptr);
  impl_->trainMode_ = mode;
}

void mvPointMatcher::train(const std::vector<mvVector<2>>& points, const std::vector<long>& weights,
                           mvPointMatcherDefs::Mode mode) {
  untrain();
  checkPointCount(points);
  checkWeightCount(points, weights);
  checkTrainMode(mode);
  checkPositiveWeights(weights);
  checkFinite(points);
  checkWeightRange(weights);

  if (!impl_->model_) impl_->model_ = std::make_unique<mv_PointMatcherModel>();
  fillModel(*impl_->model_, points, &weights);
  impl_->trainMode_ = mode;
}

void mvPointMatcher::untrain() {
  impl_->model_.reset();
  impl_->gridCorresponder_.reset();
  impl_->nestedMatcher_.reset();
  impl_->patternCells_.clear();
  impl_->trainMode_ = mvPointMatcherDefs::ePointToPoint;
  // The pattern transform and the pattern cell count keep their values.
}

bool mvPointMatcher::isTrained() const {
  return (impl_->model_ && impl_->model_->trained) || impl_->gridCorresponder_ ||
         impl_->trainMode_ == mvPointMatcherDefs::eExhaustiveMode;
}

mvPointMatcherDefs::Mode mvPointMatcher::trainMode() const {
  if (impl_->trainMode_ == mvPointMatcherDefs::eExhaustiveMode)
    return mvPointMatcherDefs::eExhaustiveMode;
  if (impl_->model_ && impl_->model_->trained) return mvPointMatcherDefs::ePointToPoint;
  if (impl_->gridCorresponder_) return mvPointMatcherDefs::ePointToGrid;
  throw mvPointMatcherDefs::NotTrained(kNotTrainedMessage);
}

const std::vector<mvVector<2>>& mvPointMatcher::modelPoints() const {
  // An assigned matcher may keep the exhaustive train mode without holding a point model;
  // it has no points to give.
  if (isTrained() && impl_->model_) {
    const mvPointMatcherDefs::Mode mode = trainMode();
    if (mode == mvPointMatcherDefs::ePointToPoint || mode == mvPointMatcherDefs::eExhaustiveMode) {
      return impl_->model_->points;
    }
  }
  throw mvPointMatcherDefs::NotTrained(kNotTrainedPointToPointMessage);
}

std::vector<long> mvPointMatcher::weights() const {
  // An exhaustive-mode matcher is refused here, although modelPoints() accepts it.
  if (!isTrained() || !impl_->model_ || trainMode() != mvPointMatcherDefs::ePointToPoint) {
    throw mvPointMatcherDefs::NotTrained(kNotTrainedPointToPointMessage);
  }
  if (!impl_->model_->weights.empty()) return impl_->model_->weights;
  return std::vector<long>(impl_->model_->points.size(), 1L);
}
