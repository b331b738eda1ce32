// The grid map's value records, their persistence and its error class.
#include <typeinfo>

#include "ptgdmap/internal.h"
#include "ptmatch/ptgdmap.h"

namespace {

/// Version word of both records.
constexpr unsigned long kRecordVersion = 1100;

/// Reads or writes the version word and rejects any other than 1100.
void archiveRecordVersion(mvArchive& ar, int line) {
  unsigned long version = kRecordVersion;
  ar || version;
  if (version != kRecordVersion) {
    throw mvArchive::UnknownVersion(ptmatch::detail::ptgdmap::kGridMapModule, line);
  }
}

const mv_InstantiatorOf<mvPtToGridMapDefs::BadInput> registerBadInput(
    "mvPtToGridMapDefs::BadInput");

}  // namespace

// --- mvPtToGridMapDefs::BadInput ---

mvPtToGridMapDefs::BadInput::BadInput(const std::wstring& message) : mvErrorOf(message) {}

// --- mvPtToGridMapRunParams ---

mvPtToGridMapRunParams::mvPtToGridMapRunParams(const mvVector<2>& xv, const mvVector<2>& yv,
                                               bool staggered, double snapSize,
                                               const mvRange& sizeTol, const mvAngleRange& angleTol)
    : xv_(xv),
      yv_(yv),
      staggered_(staggered),
      snapSize_(snapSize),
      sizeTol_(sizeTol),
      angleTol_(angleTol) {}

mvArchive& operator||(mvArchive& ar, mvPtToGridMapRunParams& p) {
  archiveRecordVersion(ar, __LINE__);
  ar || p.xv_;
  ar || p.yv_;
  ar || p.staggered_;
  ar || p.snapSize_;
  ar || p.sizeTol_;
  ar || p.angleTol_;
  return ar;
}

// --- mvPtToGridMapResult ---

mvPtToGridMapResult::mvPtToGridMapResult() : valid_(false), time_(0.0) {}

mvArchive& operator||(mvArchive& ar, mvPtToGridMapResult& r) {
  archiveRecordVersion(ar, __LINE__);
  ar || r.valid_;
  ar || r.time_;
  ar || r.grid2point_;
  // A 0 format byte, the count and each pair with its own 0 version byte: the base
  // library's vector and pair operators write exactly that.
  ar || r.map_;
  return ar;
}
