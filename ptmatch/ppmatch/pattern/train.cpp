// Training the point matcher from a dot-pattern image: every set (nonzero) pixel is one
// model point on a regular pixel grid.
//
// Training prepares two engines. A grid corresponder, trained on the image with point
// features, finds the pattern among data points mapped onto a grid (the dense path). For a
// sparse pattern a nested matcher is also trained, from the set pixels' positions in
// client coordinates, and runs the ordinary point-to-point search (the sparse path). A
// pattern is staggered when no two set pixels touch edge to edge; it is sparse when it has
// fewer than 10 set pixels, or when no set pixel has more than one set grid neighbour
// (diagonal neighbours on a staggered pattern, edge neighbours otherwise).
//
// Choices made where the behaviour leaves room:
// - A training image whose client-from-image transform is not finite is refused with
//   BadParams before anything is stored; an unbound image has no set pixels and is
//   refused like any image with fewer than 3 (InsufficientModelPoints, empty message).
// - The corresponder is trained aside and stored once its training has succeeded, so a
//   failure there leaves the matcher untrained (the pattern transform and the pattern cell
//   count keep the values of the failed training).
//
// Every later step stores what it makes as it goes: the cells, then the nested matcher,
// which exists before it is trained. A failure of the nested training therefore passes out
// with the matcher partly trained: it keeps its corresponder (so it reports ePointToGrid
// and runs point to grid), its cells and an untrained nested matcher.
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "ppmatch/internal.h"

namespace {

using Defs = mv_PointToGridCorresponderDefs;

constexpr long kMinPatternCells = 3;
// A pattern of fewer set pixels is always sparse.
constexpr long kSparseBelow = 10;

/// Offsets of the four neighbours of a pixel.
struct Neighbours {
  mvPair<long> at[4];
};
const Neighbours kEdgeNeighbours = {{{-1, 0}, {1, 0}, {0, -1}, {0, 1}}};
const Neighbours kDiagonalNeighbours = {{{-1, -1}, {-1, 1}, {1, -1}, {1, 1}}};

// Reads the set pixels of a training image by position relative to the image's own
// origin (the image offset is added when a pel is read).
class SetPixels {
 public:
  explicit SetPixels(const mvPelBuffer_const<unsigned char>& image) : image_(image) {}

  long width() const { return image_.width(); }
  long height() const { return image_.height(); }

  /// True when (x, y) lies inside the image and its pel is nonzero.
  bool isSet(long x, long y) const {
    if (x < 0 || y < 0 || x >= width() || y >= height()) return false;
    return image_.get(mvPair<long>(x, y) + image_.offset()) != 0;
  }

  /// Number of the given neighbours of (x, y) that are set (outside ones count as clear).
  long setNeighbours(long x, long y, const Neighbours& neighbours) const {
    long count = 0;
    for (const mvPair<long>& d : neighbours.at) {
      if (isSet(x + d.x(), y + d.y())) ++count;
    }
    return count;
  }

 private:
  const mvPelBuffer_const<unsigned char>& image_;
};

bool isFinite(const mvXform<2>& x) {
  const mvMatrix<2>& m = x.matrix();
  return std::isfinite(m.element(0, 0)) && std::isfinite(m.element(0, 1)) &&
         std::isfinite(m.element(1, 0)) && std::isfinite(m.element(1, 1)) &&
         std::isfinite(x.trans().x()) && std::isfinite(x.trans().y());
}

void checkClientFromImage(const mvXform<2>& clientFromImage) {
  if (!isFinite(clientFromImage)) {
    throw mvPointMatcherDefs::BadParams(
        L"the training image's client-from-image transform must be finite\n");
  }
}

/// What the first scan learns: the number of set pixels and whether the pattern is
/// staggered (no two set pixels touch edge to edge).
struct FirstScan {
  long cellCount = 0;
  bool staggered = true;
};

FirstScan countCells(const SetPixels& pixels) {
  FirstScan scan;
  for (long y = 0; y < pixels.height(); ++y) {
    for (long x = 0; x < pixels.width(); ++x) {
      if (!pixels.isSet(x, y)) continue;
      ++scan.cellCount;
      if (scan.staggered && pixels.setNeighbours(x, y, kEdgeNeighbours) > 0) {
        scan.staggered = false;
      }
    }
  }
  return scan;
}

std::unique_ptr<mv_PointToGridCorresponder> trainedCorresponder(
    const mvPelBuffer_const<unsigned char>& image, bool staggered) {
  // Training from an image always uses point features.
  mv_PointToGridCorresponderTrainParams params(false, Defs::eBoundaryFeatures);
  params.featureType(Defs::ePointFeatures);
  params.staggered(staggered);
  auto corresponder = std::make_unique<mv_PointToGridCorresponder>();
  corresponder->train(image, params);
  return corresponder;
}

/// The set pixels in scan order: their positions (without the image offset) and the
/// model points they become in client coordinates.
struct PatternCells {
  std::vector<mvPair<long>> cells;
  std::vector<mvVector<2>> points;
};

PatternCells listCells(const SetPixels& pixels, long cellCount, const mvXform<2>& clientFromImage) {
  PatternCells list;
  list.cells.reserve(static_cast<std::size_t>(cellCount));
  list.points.reserve(static_cast<std::size_t>(cellCount));
  for (long y = 0; y < pixels.height(); ++y) {
    for (long x = 0; x < pixels.width(); ++x) {
      if (!pixels.isSet(x, y)) continue;
      list.cells.emplace_back(x, y);
      list.points.push_back(clientFromImage *
                            mvVector<2>(static_cast<double>(x), static_cast<double>(y)));
    }
  }
  return list;
}

// Sparse: few set pixels, or no set pixel with two or more set grid neighbours.
bool isSparse(const SetPixels& pixels, long cellCount, bool staggered) {
  if (cellCount < kSparseBelow) return true;
  const Neighbours& neighbours = staggered ? kDiagonalNeighbours : kEdgeNeighbours;
  for (long y = 0; y < pixels.height(); ++y) {
    for (long x = 0; x < pixels.width(); ++x) {
      if (pixels.isSet(x, y) && pixels.setNeighbours(x, y, neighbours) > 1) return false;
    }
  }
  return true;
}

// Trains the nested matcher from the pattern's points for a sparse pattern, else leaves it
// untrained.
void trainNestedMatcher(mvPointMatcher& nested, const std::vector<mvVector<2>>& points,
                        bool sparse) {
  if (sparse) {
    nested.train(points, mvPointMatcherDefs::eAutoDetect);
  } else {
    nested.untrain();
  }
}

}  // namespace

void mvPointMatcher::train(const mvPelBuffer_const<unsigned char>& image) {
  untrain();
  checkClientFromImage(image.clientFromImageXform());
  Impl& state = *impl_;
  state.patternTransform_ = image.clientFromImageXform();

  const SetPixels pixels(image);
  const FirstScan scan = countCells(pixels);
  state.patternCellCount_ = scan.cellCount;
  if (state.patternCellCount_ < kMinPatternCells) {
    throw mvPointMatcherDefs::InsufficientModelPoints(L"");
  }

  state.gridCorresponder_ = trainedCorresponder(image, scan.staggered);
  PatternCells list = listCells(pixels, state.patternCellCount_, state.patternTransform_);
  state.patternCells_ = std::move(list.cells);

  state.nestedMatcher_ = std::make_unique<mvPointMatcher>();
  trainNestedMatcher(*state.nestedMatcher_, list.points,
                     isSparse(pixels, state.patternCellCount_, scan.staggered));
}

const mvPelBuffer_const<unsigned char>& mvPointMatcher::pattern() const {
  if (isTrained() && trainMode() == mvPointMatcherDefs::ePointToGrid) {
    return impl_->gridCorresponder_->pattern();
  }
  throw mvPointMatcherDefs::NotTrained(L"");
}
