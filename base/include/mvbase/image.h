// Image buffers of pels. A buffer windows into a root image whose storage is shared
// between copies. Each row is padded to a multiple of the alignment (the row stride);
// storage starts zeroed, with one zeroed guard row of a full stride before row 0 and one
// after the last row, so that reading one pel just outside a row is defined.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/export.h"
#include "mvbase/geometry.h"

/// A pel rectangle: upper-left corner and size.
class mvPelRect {
 public:
  mvPelRect() = default;
  /** @name Values and operators */
  ///@{
  /// From the upper-left corner and the size; the corner, the size and their coordinates.
  mvPelRect(long x, long y, long width, long height) : ul_(x, y), size_(width, height) {}
  mvPelRect(const mvPair<long>& ul, const mvPair<long>& size) : ul_(ul), size_(size) {}
  const mvPair<long>& ul() const { return ul_; }
  const mvPair<long>& size() const { return size_; }
  long x() const { return ul_.x(); }
  long y() const { return ul_.y(); }
  long width() const { return size_.x(); }
  long height() const { return size_.y(); }
  ///@}

 private:
  mvPair<long> ul_;
  mvPair<long> size_;
};

/// Untyped base of every image buffer: size, window, offset and client-from-image
/// transform over shared pel storage.
class MVBASE_API mv_PelBuffer {
 public:
  virtual ~mv_PelBuffer();

  /// Width and height of the (windowed) buffer in pels; 0 when unbound.
  long width() const { return width_; }
  /** @name Values and operators */
  ///@{
  /// Height, and both sizes as (width, height).
  long height() const { return height_; }
  mvPair<long> size() const { return mvPair<long>(width_, height_); }
  ///@}
  /// Position of the upper-left pel in the coordinates of the image it windows into.
  /// window() and setEntire() move it with the window, so a pel keeps its coordinates.
  const mvPair<long>& offset() const { return offset_; }
  /// Sets offset().
  void offset(const mvPair<long>& o) { offset_ = o; }
  /// True when the buffer holds an image.
  bool isBound() const { return static_cast<bool>(storage_); }
  /// Restricts the buffer to (x, y, width, height) of its root image; returns false and
  /// changes nothing when the rectangle does not lie inside the root image. The flag is
  /// accepted for compatibility and has no effect.
  bool window(long x, long y, long width, long height, bool unused = false);
  /// window() with a mvPelRect.
  bool window(const mvPelRect& r) { return window(r.x(), r.y(), r.width(), r.height()); }
  /// Widens the window back to the whole root image (the offset moves back with it).
  void setEntire();
  /// Drops the image; offset and client-from-image transform return to their defaults.
  void setUnbound();
  /// Distance in pels from one row to the next.
  long rowUpdate() const { return stride_; }
  /** @name Values and operators */
  ///@{
  /// The transform from pel coordinates to client coordinates, read and set.
  const mvXform<2>& clientFromImageXform() const { return clientFromImage_; }
  void clientFromImageXform(const mvXform<2>& x) { clientFromImage_ = x; }
  ///@}
  /// Bytes per pel.
  std::size_t pelSize() const { return pelSize_; }

  friend MVBASE_API mvArchive& operator||(mvArchive& ar, mv_PelBuffer& buffer);

 protected:
  /// A buffer of pels of the given size in bytes, unbound.
  explicit mv_PelBuffer(std::size_t pelSize);
  /// Allocates a zeroed root image with guard rows; alignment below 1 counts as 1.
  void allocate_(long width, long height, long alignment);
  /// Address of window pel (0, y); unchecked.
  unsigned char* rowBytes_(long y) const {
    return storage_.get() + (static_cast<std::ptrdiff_t>(stride_) * (1 + winY_ + y) + winX_) *
                                static_cast<std::ptrdiff_t>(pelSize_);
  }
  /// Checks that window pel (x, y) exists (mvAssert).
  void checkPel_(long x, long y) const;

 private:
  // Persists the pels of the typed buffer; only the archive operator calls it.
  virtual void serializePels_(mvArchive& ar) = 0;

  std::shared_ptr<unsigned char> storage_;
  std::size_t pelSize_;
  long rootWidth_ = 0;
  long rootHeight_ = 0;
  long stride_ = 0;
  long winX_ = 0;
  long winY_ = 0;
  long width_ = 0;
  long height_ = 0;
  mvPair<long> offset_;
  mvXform<2> clientFromImage_;
};

/// A read-only typed view of an image. Copies share the pels.
template <typename T>
class mvPelBuffer_const : public mv_PelBuffer {
 public:
  mvPelBuffer_const() : mv_PelBuffer(sizeof(T)) {}
  /// Pointer to the first pel of window row y (unchecked; see the file comment).
  const T* pointToRow(long y) const { return reinterpret_cast<const T*>(rowBytes_(y)); }
  /// The pel at (x, y) of the buffer's own frame, whose upper-left pel is at offset().
  T get(long x, long y) const {
    const long wx = x - offset().x();
    const long wy = y - offset().y();
    checkPel_(wx, wy);
    return pointToRow(wy)[wx];
  }
  /// get() at a position.
  T get(const mvPair<long>& p) const { return get(p.x(), p.y()); }

 protected:
  /// Row y of the window, writable, for the writable buffer.
  T* mutableRow_(long y) const { return reinterpret_cast<T*>(rowBytes_(y)); }

 private:
  void serializePels_(mvArchive& ar) override;
};

/// A writable typed image. Copies share the pels.
template <typename T>
class mvPelBuffer : public mvPelBuffer_const<T> {
 public:
  mvPelBuffer() = default;
  /// A new zeroed image; rows padded to a multiple of alignment pels.
  mvPelBuffer(long width, long height, long alignment = 1) {
    this->allocate_(width, height, alignment);
  }
  using mvPelBuffer_const<T>::pointToRow;
  /// Row y of the window, writable.
  T* pointToRow(long y) { return this->mutableRow_(y); }
  /// Writes the pel at (x, y) of the buffer's own frame.
  void put(long x, long y, T v) {
    const long wx = x - this->offset().x();
    const long wy = y - this->offset().y();
    this->checkPel_(wx, wy);
    this->mutableRow_(wy)[wx] = v;
  }
  /// put() at a position.
  void put(const mvPair<long>& p, T v) { put(p.x(), p.y(), v); }
};

namespace mvbase_detail {
/// Persists one pel: whole numbers of up to 32 bits as their archive type.
template <typename T>
void archivePel(mvArchive& ar, T& v) {
  if constexpr (std::is_same<T, unsigned char>::value || std::is_same<T, double>::value ||
                std::is_same<T, long>::value || std::is_same<T, int>::value) {
    ar || v;
  } else if constexpr (std::is_signed<T>::value) {
    long w = v;
    ar || w;
    v = static_cast<T>(w);
  } else {
    unsigned long w = v;
    ar || w;
    v = static_cast<T>(w);
  }
}
}  // namespace mvbase_detail

template <typename T>
void mvPelBuffer_const<T>::serializePels_(mvArchive& ar) {
  for (long y = 0; y < this->height(); ++y) {
    T* row = mutableRow_(y);
    for (long x = 0; x < this->width(); ++x) mvbase_detail::archivePel(ar, row[x]);
  }
}

/// Persists an image: width, height, offset, client-from-image transform, then the pels
/// of the window row by row; an unbound buffer (or a window of 0 x 0 pels) is width 0 and
/// height 0 only, and loads as unbound. Loading allocates a new image of the stored size
/// (alignment 1), so buffers that shared the old pels keep them.
MVBASE_API mvArchive& operator||(mvArchive& ar, mv_PelBuffer& buffer);

/// Sets every pel to value.
template <typename T>
void mfPelSet(mvPelBuffer<T>& buffer, T value) {
  for (long y = 0; y < buffer.height(); ++y) {
    T* row = buffer.pointToRow(y);
    for (long x = 0; x < buffer.width(); ++x) row[x] = value;
  }
}

/// Sets every pel to zero.
template <typename T>
void mfPelClear(mvPelBuffer<T>& buffer) {
  mfPelSet(buffer, T());
}

/// Copies the pels of source into destination, which must have the same size; an
/// unbound destination gets a new image of the source's size first.
template <typename T>
void mfPelCopy(const mvPelBuffer_const<T>& source, mvPelBuffer<T>& destination) {
  if (!destination.isBound()) {
    destination = mvPelBuffer<T>(source.width(), source.height());
    destination.offset(source.offset());
    destination.clientFromImageXform(source.clientFromImageXform());
  }
  mvAssert(source.width() == destination.width() && source.height() == destination.height(),
           "mvbase/image", __LINE__);
  for (long y = 0; y < source.height(); ++y) {
    std::memmove(destination.pointToRow(y), source.pointToRow(y),
                 sizeof(T) * static_cast<std::size_t>(source.width()));
  }
}

/// Replaces each pel p of source by table[p] in destination (same size; an unbound
/// destination is allocated).
template <typename S, typename D>
void mfPelMap(const mvPelBuffer_const<S>& source, const std::vector<D>& table,
              mvPelBuffer<D>& destination) {
  if (!destination.isBound()) {
    destination = mvPelBuffer<D>(source.width(), source.height());
    destination.offset(source.offset());
    destination.clientFromImageXform(source.clientFromImageXform());
  }
  mvAssert(source.width() == destination.width() && source.height() == destination.height(),
           "mvbase/image", __LINE__);
  for (long y = 0; y < source.height(); ++y) {
    const S* in = source.pointToRow(y);
    D* out = destination.pointToRow(y);
    for (long x = 0; x < source.width(); ++x) {
      const std::size_t index = static_cast<std::size_t>(in[x]);
      mvAssert(index < table.size(), "mvbase/image", __LINE__);
      out[x] = table[index];
    }
  }
}

/// Returns a new buffer holding table[p] for each pel p of source.
template <typename S, typename D>
mvPelBuffer<D> mfPelMap(const mvPelBuffer_const<S>& source, const std::vector<D>& table) {
  mvPelBuffer<D> destination;
  mfPelMap(source, table, destination);
  return destination;
}

namespace mvbase_detail {
template <typename T, typename Op>
void pelCombine(const mvPelBuffer_const<T>& a, const mvPelBuffer_const<T>& b,
                mvPelBuffer<T>& destination, Op op) {
  mvAssert(a.width() == b.width() && a.height() == b.height(), "mvbase/image", __LINE__);
  if (!destination.isBound()) destination = mvPelBuffer<T>(a.width(), a.height());
  mvAssert(a.width() == destination.width() && a.height() == destination.height(), "mvbase/image",
           __LINE__);
  for (long y = 0; y < a.height(); ++y) {
    const T* ra = a.pointToRow(y);
    const T* rb = b.pointToRow(y);
    T* rd = destination.pointToRow(y);
    for (long x = 0; x < a.width(); ++x) rd[x] = op(ra[x], rb[x]);
  }
}
}  // namespace mvbase_detail

/// Pel-wise sum, wrapping as the pel type does.
MVBASE_API void mfPelAdd(const mvPelBuffer_const<short>& a, const mvPelBuffer_const<short>& b,
                         mvPelBuffer<short>& destination);
/// Pel-wise difference, wrapping as the pel type does.
MVBASE_API void mfPelSub(const mvPelBuffer_const<short>& a, const mvPelBuffer_const<short>& b,
                         mvPelBuffer<short>& destination);
