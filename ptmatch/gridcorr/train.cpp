// Training of the grid corresponder: the model nodes are drawn into a work image, a
// boundary pass marks the nodes to probe, a ring pass marks the empty pels to probe, and
// the marked pels, read in row-major order, become the probe list.
#include <cstddef>

#include "gridcorr/internal.h"
#include "ptmatch/gridcorr.h"

using Defs = mv_PointToGridCorresponderDefs;
using ptmatch::detail::gridcorr::kAlignment;
using ptmatch::detail::gridcorr::kEmpty;
using ptmatch::detail::gridcorr::kModule;
using ptmatch::detail::gridcorr::kNode;
using ptmatch::detail::gridcorr::kNodeProbe;
using ptmatch::detail::gridcorr::kRingProbe;
using ptmatch::detail::gridcorr::nodeBounds;

namespace {

// The four side and four diagonal neighbours of one pel of the work image, read and
// written through raw row pointers. Each test applies only where its flag allows: rows
// above and below must exist, and the left and right flags are set by the caller (the
// ring pass ties them to its column counter, not to the pel's own column, so a pel at
// column 0 may read the byte before its row; the pel buffer's padding and guard rows make
// that read defined).
struct Neighbourhood {
  unsigned char* above;  // row above, null when there is none
  unsigned char* row;
  unsigned char* below;  // row below, null when there is none
  long at;               // column of the pel
  bool left;             // left tests apply
  bool right;            // right tests apply

  long sidesHolding(unsigned char value) const {
    long count = 0;
    if (above != nullptr && above[at] == value) ++count;
    if (below != nullptr && below[at] == value) ++count;
    if (left && row[at - 1] == value) ++count;
    if (right && row[at + 1] == value) ++count;
    return count;
  }

  long diagonalsHolding(unsigned char value) const {
    long count = 0;
    if (left) {
      if (above != nullptr && above[at - 1] == value) ++count;
      if (below != nullptr && below[at - 1] == value) ++count;
    }
    if (right) {
      if (above != nullptr && above[at + 1] == value) ++count;
      if (below != nullptr && below[at + 1] == value) ++count;
    }
    return count;
  }

  // A node's neighbours are its side pels on a square grid, its diagonal pels on a
  // staggered one.
  long neighboursHolding(unsigned char value, bool staggered) const {
    return staggered ? diagonalsHolding(value) : sidesHolding(value);
  }

  // The thick feature types widen a mark to the side neighbours holding `from`.
  void markSides(unsigned char from, unsigned char to) const {
    if (above != nullptr && above[at] == from) above[at] = to;
    if (below != nullptr && below[at] == from) below[at] = to;
    if (left && row[at - 1] == from) row[at - 1] = to;
    if (right && row[at + 1] == from) row[at + 1] = to;
  }
};

// Row pointers of one row of the work image and of its neighbours.
Neighbourhood rowNeighbourhood(mvPelBuffer<unsigned char>& work, long y) {
  Neighbourhood n{};
  n.above = y > 0 ? work.pointToRow(y - 1) : nullptr;
  n.row = work.pointToRow(y);
  n.below = y < work.height() - 1 ? work.pointToRow(y + 1) : nullptr;
  return n;
}

// Boundary pass: a node on the edge of the work image, or with an empty neighbour,
// becomes a node probe; when thick, its side neighbours that are nodes become node probes
// too (a right or lower one is then examined in its own turn like any nonzero pel).
void markBoundaryNodes(mvPelBuffer<unsigned char>& work, bool staggered, bool thick) {
  const long width = work.width();
  const long height = work.height();
  for (long y = 0; y < height; ++y) {
    Neighbourhood n = rowNeighbourhood(work, y);
    for (long x = 0; x < width; ++x) {
      if (n.row[x] == kEmpty) continue;
      n.at = x;
      n.left = x > 0;
      n.right = x < width - 1;
      const bool onEdge = x == 0 || x == width - 1 || y == 0 || y == height - 1;
      const long count = (onEdge ? 1 : 0) + n.neighboursHolding(kEmpty, staggered);
      if (count > 0) {
        n.row[x] = kNodeProbe;
        if (thick) n.markSides(kNode, kNodeProbe);
      }
    }
  }
}

// Ring pass: an empty pel next to a node probe becomes a ring probe; when thick, its
// empty side neighbours become ring probes too. Within a row the read position advances
// only past nonzero pels, while the column counter advances at every step: an empty pel
// that is not marked holds the read position for the rest of the row, and the remaining
// steps re-examine it with the bounds tests of the advancing counter. This scanning rule
// decides which empty pels are probed and is kept as it is.
void markRing(mvPelBuffer<unsigned char>& work, bool staggered, bool thick) {
  const long width = work.width();
  const long height = work.height();
  for (long y = 0; y < height; ++y) {
    Neighbourhood n = rowNeighbourhood(work, y);
    long read = 0;
    for (long column = 0; column < width; ++column) {
      if (n.row[read] != kEmpty) {
        ++read;
        continue;
      }
      n.at = read;
      n.left = column > 0;
      n.right = column < width - 1;
      if (n.neighboursHolding(kNodeProbe, staggered) > 0) {
        n.row[read] = kRingProbe;
        if (thick) n.markSides(kEmpty, kRingProbe);
      }
    }
  }
}

// Writes value at each node's pel of an image whose pel (0, 0) is the node at origin.
void drawNodes(mvPelBuffer<unsigned char>& image, const std::vector<mvPair<long>>& nodes,
               const mvPair<long>& origin, unsigned char value) {
  for (const mvPair<long>& p : nodes)
    image.pointToRow(p.y() - origin.y())[p.x() - origin.x()] = value;
}

// The set pels of an image, row by row, as positions in the image's own frame.
std::vector<mvPair<long>> setPels(const mvPelBuffer_const<unsigned char>& image) {
  long count = 0;
  for (long y = 0; y < image.height(); ++y) {
    const unsigned char* row = image.pointToRow(y);
    for (long x = 0; x < image.width(); ++x) count += row[x] != 0 ? 1 : 0;
  }
  if (count < 3) throw Defs::InsufficientModelPoints(L"");
  std::vector<mvPair<long>> nodes;
  nodes.reserve(static_cast<std::size_t>(count));
  for (long y = 0; y < image.height(); ++y) {
    const unsigned char* row = image.pointToRow(y);
    for (long x = 0; x < image.width(); ++x) {
      if (row[x] != 0) nodes.push_back(mvPair<long>(x, y) + image.offset());
    }
  }
  return nodes;
}

}  // namespace

// Bounding box of the nodes, grown from the first node as each further one is compared.
mvRectangle<long> ptmatch::detail::gridcorr::nodeBounds(const std::vector<mvPair<long>>& nodes) {
  long minX = nodes.front().x();
  long maxX = minX;
  long minY = nodes.front().y();
  long maxY = minY;
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    const mvPair<long>& p = nodes[i];
    if (p.x() < minX) {
      minX = p.x();
    } else if (p.x() > maxX) {
      maxX = p.x();
    }
    if (p.y() < minY) {
      minY = p.y();
    } else if (p.y() > maxY) {
      maxY = p.y();
    }
  }
  return mvRectangle<long>(mvPair<long>(minX, minY), mvPair<long>(maxX, maxY));
}

mv_PointToGridCorresponder::mv_PointToGridCorresponder() : impl_(std::make_unique<Impl>()) {}

mv_PointToGridCorresponder::mv_PointToGridCorresponder(const mv_PointToGridCorresponder& o)
    : impl_(std::make_unique<Impl>(*o.impl_)) {}

mv_PointToGridCorresponder& mv_PointToGridCorresponder::operator=(
    const mv_PointToGridCorresponder& o) {
  if (this != &o) impl_ = std::make_unique<Impl>(*o.impl_);
  return *this;
}

mv_PointToGridCorresponder::~mv_PointToGridCorresponder() = default;

void mv_PointToGridCorresponder::untrain() { impl_->probes_.clear(); }

bool mv_PointToGridCorresponder::isTrained() const { return impl_->isTrained(); }

const mvPelBuffer_const<unsigned char>& mv_PointToGridCorresponder::pattern() const {
  return impl_->pattern_;
}

const mv_PointToGridCorresponderTrainParams& mv_PointToGridCorresponder::trainParams() const {
  return impl_->trainParams_;
}

// --- training ---

void mv_PointToGridCorresponder::train(const mvPelBuffer_const<unsigned char>& image,
                                       const mv_PointToGridCorresponderTrainParams& params) {
  impl_->trainParams_ = params;  // replaced even when the image holds too few nodes
  const std::vector<mvPair<long>> nodes = setPels(image);
  train(nodes, params, image.clientFromImageXform());
}

void mv_PointToGridCorresponder::train(const std::vector<mvPair<long>>& nodes,
                                       const mv_PointToGridCorresponderTrainParams& params,
                                       const mvXform<2>& clientFromImage) {
  impl_->trainParams_ = params;  // stored before the first node is read, as from an image
  mvAssert(!nodes.empty(), kModule, __LINE__);

  // Everything is built aside and committed at the end, so that a failure (memory) leaves
  // the corresponder as it was.
  const mvRectangle<long> bounds = nodeBounds(nodes);
  const long width = bounds.width() + 1;
  const long height = bounds.height() + 1;

  mvPelBuffer<unsigned char> work(width, height, kAlignment);
  mvPelBuffer<unsigned char> pattern(width, height, kAlignment);
  drawNodes(pattern, nodes, bounds.ul(), kNode);
  pattern.offset(bounds.ul());
  pattern.clientFromImageXform(clientFromImage);

  const Defs::FeatureType feature = params.featureType();
  if (feature != Defs::eBoundaryFeatures && feature != Defs::eThickBoundaryFeatures) {
    drawNodes(work, nodes, bounds.ul(), kNodeProbe);
  } else {
    drawNodes(work, nodes, bounds.ul(), kNode);
    // The pattern becomes a copy of the work image, taken before the passes mark it. The
    // copy takes the work image's frame, so the pattern's offset and transform are put back.
    pattern.setUnbound();
    mfPelCopy(work, pattern);
    pattern.offset(bounds.ul());
    pattern.clientFromImageXform(clientFromImage);

    const bool thick = feature == Defs::eThickBoundaryFeatures;
    markBoundaryNodes(work, params.staggered(), thick);
    markRing(work, params.staggered(), thick);
  }
  std::vector<Impl::Probe> probes = Impl::listProbes_(work);

  impl_->patternRect_ = bounds;
  impl_->pattern_ = pattern;
  impl_->probes_ = std::move(probes);
}

// Every node probe gives (x, y, 1) and every ring probe (x, y, 0), in row-major order.
std::vector<mv_PointToGridCorresponder::Impl::Probe> mv_PointToGridCorresponder::Impl::listProbes_(
    const mvPelBuffer<unsigned char>& work) {
  std::size_t count = 0;
  for (long y = 0; y < work.height(); ++y) {
    const unsigned char* row = work.pointToRow(y);
    for (long x = 0; x < work.width(); ++x) {
      if (row[x] == kNodeProbe || row[x] == kRingProbe) ++count;
    }
  }
  std::vector<Probe> probes(count);
  std::size_t next = 0;
  for (long y = 0; y < work.height(); ++y) {
    const unsigned char* row = work.pointToRow(y);
    for (long x = 0; x < work.width(); ++x) {
      if (row[x] == kNodeProbe) {
        probes[next++] = Probe{x, y, 1};
      } else if (row[x] == kRingProbe) {
        probes[next++] = Probe{x, y, 0};
      }
    }
  }
  return probes;
}
