// Helpers for the grid corresponder's tests: node lists drawn as pictures, the probe list
// read back through the corresponder's archive, and archive bytes spelled out by hand.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mvbase/archive.h"
#include "ptmatch/gridcorr.h"

namespace gridcorr_test {

/// Node positions of a picture: '#' (or '1') is a node, any other character is empty.
/// Row r, column c of the picture is the node (origin x + c, origin y + r).
inline std::vector<mvPair<long>> nodesOf(std::initializer_list<const char*> rows,
                                         mvPair<long> origin = mvPair<long>(0, 0)) {
  std::vector<mvPair<long>> nodes;
  long y = 0;
  for (const char* row : rows) {
    for (long x = 0; row[x] != '\0'; ++x) {
      if (row[x] == '#' || row[x] == '1') nodes.push_back(origin + mvPair<long>(x, y));
    }
    ++y;
  }
  return nodes;
}

/// An image of a picture: 1 where the picture has '#' (or '1'), 0 elsewhere.
inline mvPelBuffer<unsigned char> imageOf(std::initializer_list<const char*> rows) {
  const long height = static_cast<long>(rows.size());
  const long width = static_cast<long>(std::strlen(*rows.begin()));
  mvPelBuffer<unsigned char> image(width, height);
  long y = 0;
  for (const char* row : rows) {
    for (long x = 0; x < width; ++x) {
      image.put(x, y, row[x] == '#' || row[x] == '1' ? 1 : 0);
    }
    ++y;
  }
  return image;
}

/// One probe as the corresponder archives it: a pel of the pattern frame and the value
/// expected there.
struct ProbeRecord {
  long x;
  long y;
  int expected;
  bool operator==(const ProbeRecord& o) const {
    return x == o.x && y == o.y && expected == o.expected;
  }
};

inline std::ostream& operator<<(std::ostream& os, const ProbeRecord& p) {
  return os << "(" << p.x << ", " << p.y << ", " << p.expected << ")";
}

using Probes = std::vector<ProbeRecord>;

/// The fields of a corresponder, read back from its archive.
struct Archived {
  mv_PointToGridCorresponderTrainParams trainParams;
  mvPelBuffer<unsigned char> pattern;
  mvRectangle<long> patternRect;
  Probes probes;
};

/// Reads a corresponder's fields back from its archive, in the archived order.
inline Archived archivedFields(const mv_PointToGridCorresponder& corresponder) {
  mv_PointToGridCorresponder copy(corresponder);
  mvMemoryArchive out;
  out || copy;
  mvMemoryArchive in(out.bytes());
  Archived fields;
  unsigned long version = 0;
  in || version;
  EXPECT_EQ(version, 1100u);
  in || fields.trainParams;
  in || fields.pattern;
  in || fields.patternRect;
  long count = 0;
  in || count;
  for (long i = 0; i < count; ++i) {
    mvPair<long> position;
    unsigned char expected = 0;
    in || position;
    in || expected;
    fields.probes.push_back(ProbeRecord{position.x(), position.y(), expected});
  }
  EXPECT_TRUE(in.atEnd());
  return fields;
}

/// The probe list of a corresponder, in its stored order.
inline Probes probesOf(const mv_PointToGridCorresponder& corresponder) {
  return archivedFields(corresponder).probes;
}

/// A corresponder trained from a picture with the given features.
inline mv_PointToGridCorresponder trainedOn(std::initializer_list<const char*> rows,
                                            mv_PointToGridCorresponderDefs::FeatureType feature,
                                            bool staggered = false) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train(nodesOf(rows), mv_PointToGridCorresponderTrainParams(staggered, feature),
                     mvXform<2>::I);
  return corresponder;
}

/// The archive encoding spelled out by hand: little-endian, 4-byte longs, 8-byte doubles.
class Bytes {
 public:
  Bytes& u8(unsigned v) {
    bytes_.push_back(static_cast<unsigned char>(v));
    return *this;
  }
  Bytes& boolean(bool v) { return u8(v ? 1 : 0); }
  Bytes& i32(long v) {
    const auto u = static_cast<std::uint32_t>(v);
    for (int i = 0; i < 4; ++i) u8((u >> (8 * i)) & 0xffu);
    return *this;
  }
  Bytes& f64(double v) {
    std::uint64_t u = 0;
    std::memcpy(&u, &v, sizeof u);
    for (int i = 0; i < 8; ++i) u8(static_cast<unsigned>((u >> (8 * i)) & 0xffu));
    return *this;
  }
  /// The version word of every grid corresponder record.
  Bytes& version() { return i32(1100); }
  /// A position: version byte 0, x, y.
  Bytes& pair(long x, long y) { return u8(0).i32(x).i32(y); }
  /// A transform: a00, a01, a10, a11, tx, ty.
  Bytes& identity() { return f64(1).f64(0).f64(0).f64(1).f64(0).f64(0); }
  const std::vector<unsigned char>& bytes() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

/// The bytes that storing a value writes.
template <typename T>
std::vector<unsigned char> stored(T value) {
  mvMemoryArchive out;
  out || value;
  return out.bytes();
}

/// A value loaded from bytes; the bytes must be used up exactly.
template <typename T>
T loaded(const std::vector<unsigned char>& bytes, T value = T()) {
  mvMemoryArchive in(bytes);
  in || value;
  EXPECT_TRUE(in.atEnd());
  return value;
}

}  // namespace gridcorr_test
