// The archive layouts of the geometry types: vectors, pairs, ranges, transforms and
// rectangles.
#include "mvbase/archive.h"
#include "mvbase/geometry.h"

mvArchive& operator||(mvArchive& ar, mvVector<2>& v) {
  double x = v.x();
  double y = v.y();
  ar || x || y;
  if (ar.isLoading()) v = mvVector<2>(x, y);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvVector<3>& v) {
  double x = v.x();
  double y = v.y();
  double z = v.z();
  ar || x || y || z;
  if (ar.isLoading()) v = mvVector<3>(x, y, z);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvPair<long>& p) {
  unsigned char version = 0;
  ar || version;
  if (version != 0) throw mvArchive::UnknownVersion(nullptr, 0);
  long x = p.x();
  long y = p.y();
  ar || x || y;
  if (ar.isLoading()) p = mvPair<long>(x, y);
  return ar;
}

namespace {
// Persists a range kind as an unsigned long; loading rejects values that name no kind.
void archiveRangeKind(mvArchive& ar, mvRangeDefs::Range& kind) {
  unsigned long v = static_cast<unsigned long>(kind);
  ar || v;
  if (ar.isLoading()) {
    if (v > mvRangeDefs::eFull)
      throw mvArchive::BadData(L"The archive holds an unknown range kind.");
    kind = static_cast<mvRangeDefs::Range>(v);
  }
}
}  // namespace

mvArchive& operator||(mvArchive& ar, mvRange& r) {
  mvRangeDefs::Range kind = r.range();
  double start = r.start();
  double end = r.end();
  archiveRangeKind(ar, kind);
  ar || start || end;
  if (ar.isLoading()) r = mvRange(start, end, kind);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvAngleRange& r) {
  mvRangeDefs::Range kind = r.range();
  double start = r.start().toDouble();
  double end = r.end().toDouble();
  archiveRangeKind(ar, kind);
  ar || start || end;
  if (ar.isLoading()) r = mvAngleRange(mvRadian(start), mvRadian(end), kind);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvXform<2>& x) {
  const mvMatrix<2>& m = x.matrix();
  double a00 = m.element(0, 0);
  double a01 = m.element(0, 1);
  double a10 = m.element(1, 0);
  double a11 = m.element(1, 1);
  double tx = x.trans().x();
  double ty = x.trans().y();
  ar || a00 || a01 || a10 || a11 || tx || ty;
  if (ar.isLoading()) x = mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty));
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvRectangle<long>& r) {
  mvPair<long> ul = r.ul();
  mvPair<long> lr = r.lr();
  ar || ul || lr;
  if (ar.isLoading()) r = mvRectangle<long>(ul, lr);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvRectangle<double>& r) {
  double ulx = r.ul().x();
  double uly = r.ul().y();
  double lrx = r.lr().x();
  double lry = r.lr().y();
  ar || ulx || uly || lrx || lry;
  if (ar.isLoading()) r = mvRectangle<double>(mvVector<2>(ulx, uly), mvVector<2>(lrx, lry));
  return ar;
}
