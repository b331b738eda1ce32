// Pel storage of the image buffers, their windows, their archive form and the pel-wise
// arithmetic on short images.
#include "mvbase/image.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr const char* kModule = "mvbase/image";

// Smallest number of archive bytes one pel of pelSize bytes takes: 1 for 8-bit pels, 4 for
// whole numbers up to 32 bits (short pels widen to 4), 8 for doubles.
std::size_t minArchivedPelSize(std::size_t pelSize) { return std::min<std::size_t>(pelSize, 4); }

// Largest side that a loaded image of 0 pels (width or height 0) may have.
constexpr long kMaxEmptyImageSide = 65536;

}  // namespace

mv_PelBuffer::mv_PelBuffer(std::size_t pelSize) : pelSize_(pelSize) {}

mv_PelBuffer::~mv_PelBuffer() = default;

void mv_PelBuffer::allocate_(long width, long height, long alignment) {
  mvAssert(width >= 0 && height >= 0, kModule, __LINE__);
  if (alignment < 1) alignment = 1;
  // A zero-width image still gets a stride, so that its guard rows exist.
  const long paddedWidth = std::max(width, 1L);
  const long stride = (paddedWidth + alignment - 1) / alignment * alignment;
  // Guard row before row 0 and after the last row, plus one slack pel at each end so that
  // a diagonal neighbour of a corner pel stays inside the allocation even without padding.
  const long double pels =
      static_cast<long double>(stride) * (static_cast<long double>(height) + 2) + 2;
  const long double limit = static_cast<long double>(std::numeric_limits<std::ptrdiff_t>::max()) /
                            static_cast<long double>(pelSize_);
  mvAssert(pels < limit, kModule, __LINE__);
  const std::size_t bytes = static_cast<std::size_t>(pels) * pelSize_;

  // Zeroed, padding and guards included. calloc takes fresh zero pages from the system for
  // a large image instead of writing zeros, so allocating costs no time in proportion to
  // the size and only the pages written to take memory.
  auto* raw = static_cast<unsigned char*>(std::calloc(bytes, 1));
  if (raw == nullptr) throw std::bad_alloc();
  std::shared_ptr<unsigned char> owner(raw, [](unsigned char* p) { std::free(p); });
  storage_ = std::shared_ptr<unsigned char>(owner, raw + pelSize_);  // past the slack pel

  rootWidth_ = width;
  rootHeight_ = height;
  stride_ = stride;
  winX_ = 0;
  winY_ = 0;
  width_ = width;
  height_ = height;
  offset_ = mvPair<long>();
  clientFromImage_ = mvXform<2>();
}

bool mv_PelBuffer::window(long x, long y, long width, long height, bool /*unused*/) {
  if (!isBound() || x < 0 || y < 0 || width < 0 || height < 0) return false;
  if (x > rootWidth_ - width || y > rootHeight_ - height) return false;
  // Keep the frame: the root image's upper-left pel stays where it was.
  offset_ = offset_ - mvPair<long>(winX_, winY_) + mvPair<long>(x, y);
  winX_ = x;
  winY_ = y;
  width_ = width;
  height_ = height;
  return true;
}

void mv_PelBuffer::setEntire() {
  if (!isBound()) return;
  offset_ = offset_ - mvPair<long>(winX_, winY_);
  winX_ = 0;
  winY_ = 0;
  width_ = rootWidth_;
  height_ = rootHeight_;
}

void mv_PelBuffer::setUnbound() {
  storage_.reset();
  rootWidth_ = 0;
  rootHeight_ = 0;
  stride_ = 0;
  winX_ = 0;
  winY_ = 0;
  width_ = 0;
  height_ = 0;
  offset_ = mvPair<long>();
  clientFromImage_ = mvXform<2>();
}

void mv_PelBuffer::checkPel_(long x, long y) const {
  mvAssert(isBound() && x >= 0 && x < width_ && y >= 0 && y < height_, kModule, __LINE__);
}

mvArchive& operator||(mvArchive& ar, mv_PelBuffer& buffer) {
  long width = buffer.isBound() ? buffer.width_ : 0;
  long height = buffer.isBound() ? buffer.height_ : 0;
  ar || width || height;
  if (width == 0 && height == 0) {
    if (ar.isLoading()) buffer.setUnbound();
    return ar;
  }
  if (width < 0 || height < 0)
    throw mvArchive::BadData(L"The archive holds a negative image size.");

  mvPair<long> offset = buffer.offset_;
  mvXform<2> clientFromImage = buffer.clientFromImage_;
  ar || offset || clientFromImage;
  if (ar.isLoading()) {
    const std::uint64_t pels =
        static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    const std::uint64_t left = ar.bytesLeft();
    if (pels > left / minArchivedPelSize(buffer.pelSize_)) {
      throw mvArchive::BadData(L"The archive holds an image larger than the data that follow it.");
    }
    // An image without pels (one side 0) still allocates a stride per row and its guard
    // rows, which no data bound: its other side is bounded instead.
    if (pels == 0 && std::max(width, height) > kMaxEmptyImageSide) {
      throw mvArchive::BadData(L"The archive holds an empty image of implausible size.");
    }
    buffer.allocate_(width, height, 1);
    buffer.offset_ = offset;
    buffer.clientFromImage_ = clientFromImage;
  }
  buffer.serializePels_(ar);
  return ar;
}

namespace {
// Wrap-around arithmetic on 16-bit pels, done on unsigned values to stay defined.
short wrappedSum(short a, short b) {
  return static_cast<short>(
      static_cast<std::uint16_t>(static_cast<std::uint16_t>(a) + static_cast<std::uint16_t>(b)));
}
short wrappedDifference(short a, short b) {
  return static_cast<short>(
      static_cast<std::uint16_t>(static_cast<std::uint16_t>(a) - static_cast<std::uint16_t>(b)));
}
}  // namespace

void mfPelAdd(const mvPelBuffer_const<short>& a, const mvPelBuffer_const<short>& b,
              mvPelBuffer<short>& destination) {
  mvbase_detail::pelCombine(a, b, destination, wrappedSum);
}

void mfPelSub(const mvPelBuffer_const<short>& a, const mvPelBuffer_const<short>& b,
              mvPelBuffer<short>& destination) {
  mvbase_detail::pelCombine(a, b, destination, wrappedDifference);
}
