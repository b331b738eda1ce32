// Helpers for the grid corresponder's tests: node lists drawn as pictures, the probe list
// read back through the corresponder's archive, and the version word of its records.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/archive_bytes.h"
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
  mvMemoryArchive in(archive_bytes::store(corresponder));
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

/// The version word of every grid corresponder record.
constexpr long kVersion = 1100;

}  // namespace gridcorr_test
