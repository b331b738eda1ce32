// The grid corresponder's definitions, parameter and result records, and the archive
// layouts of every record and of the corresponder itself.
#include <typeinfo>

#include "gridcorr/internal.h"
#include "ptmatch/gridcorr.h"

using Defs = mv_PointToGridCorresponderDefs;

namespace {

constexpr long kInsufficientModelPointsNumber = 0x10005f06;
constexpr long kInsufficientMemoryNumber = 0x10005f07;

}  // namespace

// --- errors ---

Defs::Errors::Errors(const std::wstring& message) : mvErrorOf(message) {}

Defs::InsufficientModelPoints::InsufficientModelPoints(const std::wstring& message)
    : mvErrorOf(message) {}

long Defs::InsufficientModelPoints::errorNumber() const { return kInsufficientModelPointsNumber; }

Defs::InsufficientMemory::InsufficientMemory(const std::wstring& message) : mvErrorOf(message) {}

long Defs::InsufficientMemory::errorNumber() const { return kInsufficientMemoryNumber; }

namespace {
const mv_InstantiatorOf<Defs::Errors> registerErrors("mv_PointToGridCorresponderDefs::Errors");
const mv_InstantiatorOf<Defs::InsufficientModelPoints> registerInsufficientModelPoints(
    "mv_PointToGridCorresponderDefs::InsufficientModelPoints");
const mv_InstantiatorOf<Defs::InsufficientMemory> registerInsufficientMemory(
    "mv_PointToGridCorresponderDefs::InsufficientMemory");
}  // namespace

// --- records ---

mv_PointToGridCorresponderTrainParams::mv_PointToGridCorresponderTrainParams(
    bool staggered, Defs::FeatureType featureType)
    : staggered_(staggered), featureType_(featureType) {}

mv_PointToGridCorresponderRunParams::mv_PointToGridCorresponderRunParams(double accept,
                                                                         double confusion,
                                                                         long maxNumResults)
    : maxNumResults_(maxNumResults), accept_(accept), confusion_(confusion) {}

// --- archive layouts ---

namespace {
// Every record of this tool is version 1100 and refuses any other.
void archiveVersion(mvArchive& ar, int line) {
  unsigned long version = ptmatch::detail::gridcorr::kArchiveVersion;
  ar || version;
  if (version != ptmatch::detail::gridcorr::kArchiveVersion) {
    throw mvArchive::UnknownVersion(ptmatch::detail::gridcorr::kModule, line);
  }
}
}  // namespace

mvArchive& operator||(mvArchive& ar, Defs::FeatureType& t) {
  archiveVersion(ar, __LINE__);
  long value = static_cast<long>(t);
  ar || value;
  // The archive holds 32 bits, which the feature type's own type spans.
  if (ar.isLoading()) t = static_cast<Defs::FeatureType>(static_cast<int>(value));
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderTrainParams& p) {
  archiveVersion(ar, __LINE__);
  ar || p.staggered_;
  ar || p.featureType_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderRunParams& p) {
  archiveVersion(ar, __LINE__);
  ar || p.maxNumResults_ || p.accept_ || p.confusion_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderResult& r) {
  archiveVersion(ar, __LINE__);
  ar || r.found_ || r.score_;
  ar || r.position_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderResultSet& s) {
  archiveVersion(ar, __LINE__);
  ar || s.time_;
  ar || s.results_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponder& c) {
  archiveVersion(ar, __LINE__);
  ar || c.impl_->trainParams_;
  ar || c.impl_->pattern_;
  ar || c.impl_->patternRect_;
  long count = static_cast<long>(c.impl_->probes_.size());
  ar || count;
  if (ar.isLoading() && count != static_cast<long>(c.impl_->probes_.size())) {
    if (count < 0) throw mvArchive::BadData(L"negative probe count");
    // A probe takes 10 bytes: its position (version byte and two longs) and its value.
    ar.checkCount(static_cast<unsigned long>(count), 10);
    c.impl_->probes_.resize(static_cast<std::size_t>(count));
  }
  for (auto& probe : c.impl_->probes_) {
    mvPair<long> position(probe.x, probe.y);
    ar || position;
    ar || probe.expected;
    if (ar.isLoading()) {
      probe.x = position.x();
      probe.y = position.y();
      // A run reads every probe inside the pattern rectangle; anything else is corrupt.
      const mvRectangle<long>& r = c.impl_->patternRect_;
      if (probe.x < 0 || probe.x > r.width() || probe.y < 0 || probe.y > r.height()) {
        throw mvArchive::BadData(L"probe outside the pattern rectangle");
      }
    }
  }
  return ar;
}
