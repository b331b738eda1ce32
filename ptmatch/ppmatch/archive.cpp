// Persistence of the point matcher's records, of the matcher itself and of its point
// model. One routine per class serves storing and loading.
//
// The records and the matcher carry version 200009 and read every older version with the
// same layout; a newer version is reported with a fixed line per class. The point model
// writes version 1 and reads 0, 1 and 200009; versions 0 and 200009 hold no weights, so
// loading one of them gives an unweighted model (no weights, total weight = number of
// points) rather than keeping weights that may not match the loaded points.
//
// Loading checks what later code relies on and reports a damaged archive as
// mvArchive::BadData: a result's run mode must be one of the four modes, a point model's
// weights must be absent or one per point, and matchers nest at most kMaxNesting deep.
#include <memory>

#include "ppmatch/internal.h"

namespace {

using ptmatch::detail::kPpmatchModule;

// Current version of the matcher's records and of the matcher.
constexpr unsigned long kPpmatchVersion = 200009;
// Version the point model writes; it also reads 0 and 200009 (both without weights).
constexpr unsigned long kModelVersion = 1;
constexpr unsigned long kModelVersionWithoutWeights = 0;

// Lines reported with an unknown version, one per class.
constexpr int kRunParamsUnknownVersionLine = 2226;
constexpr int kResultUnknownVersionLine = 2253;
constexpr int kResultSetUnknownVersionLine = 2304;
constexpr int kMatcherUnknownVersionLine = 2884;
constexpr int kModelUnknownVersionLine = 778;

// Image training nests one matcher in another; a damaged archive must not nest them
// deeply enough to exhaust the stack.
constexpr int kMaxNesting = 64;

// Persists the version word of a record and rejects a version newer than the current one.
void archiveRecordVersion(mvArchive& ar, int unknownVersionLine) {
  unsigned long version = kPpmatchVersion;
  ar || version;
  if (version > kPpmatchVersion)
    throw mvArchive::UnknownVersion(kPpmatchModule, unknownVersionLine);
}

// Persists a run mode as an unsigned long; loading accepts only the four modes.
void archiveMode(mvArchive& ar, mvPointMatcherDefs::Mode& mode) {
  if (ar.isStoring()) {
    unsigned long value = static_cast<unsigned long>(mode);
    ar || value;
    return;
  }
  unsigned long value = 0;
  ar >> value;
  if (value < mvPointMatcherDefs::ePointToPoint || value > mvPointMatcherDefs::eAutoDetect) {
    throw mvArchive::BadData(L"mvPointMatcherResult: unknown run mode in archive\n");
  }
  mode = static_cast<mvPointMatcherDefs::Mode>(value);
}

// Persists the presence flag of an owned part (a long, non-zero when present); returns
// whether the part follows. Loading creates the part when it follows and is absent; a
// zero flag leaves an existing part untouched.
template <typename T>
bool archivePresence(mvArchive& ar, std::unique_ptr<T>& part) {
  long flag = part ? 1 : 0;
  ar || flag;
  if (flag == 0) return false;
  if (ar.isLoading() && !part) part = std::make_unique<T>();
  return true;
}

// Counts how deeply matchers are being persisted inside one another on this thread.
class NestingGuard {
 public:
  NestingGuard() {
    if (depth_ >= kMaxNesting) {
      throw mvArchive::BadData(L"mvPointMatcher: matchers nested too deeply in archive\n");
    }
    ++depth_;
  }
  ~NestingGuard() { --depth_; }
  NestingGuard(const NestingGuard&) = delete;
  NestingGuard& operator=(const NestingGuard&) = delete;

 private:
  static thread_local int depth_;
};
thread_local int NestingGuard::depth_ = 0;

}  // namespace

mvArchive& operator||(mvArchive& ar, mvPointMatcherRunParams& p) {
  archiveRecordVersion(ar, kRunParamsUnknownVersionLine);
  // The rotation range comes before the translation ranges here, unlike the constructor.
  ar || p.minCoverage_;
  ar || p.startPose_;
  ar || p.rotationUncertainty_;
  ar || p.xTranslationUncertainty_;
  ar || p.yTranslationUncertainty_;
  ar || p.scaleUncertainty_;
  ar || p.autoGridSize_;
  ar || p.gridSize_;
  ar || p.autoCaptureRange_;
  ar || p.captureRange_;
  ar || p.maxNumResults_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvPointMatcherResult& r) {
  archiveRecordVersion(ar, kResultUnknownVersionLine);
  archiveMode(ar, r.runMode_);
  ar || r.modelToDataXform_;
  ar || r.modelToDataMap_;
  ar || r.coverage_;
  ar || r.fitError_;
  ar || static_cast<mv_PelBuffer&>(r.gridToData_);
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvPointMatcherResultSet& s) {
  archiveRecordVersion(ar, kResultSetUnknownVersionLine);
  ar || s.time_;
  ar || s.results_;
  return ar;
}

mvArchive& operator||(mvArchive& ar, mv_PointMatcherModel& model) {
  unsigned long version = kModelVersion;
  ar || version;
  const bool hasWeights = version == kModelVersion;
  if (!hasWeights && version != kModelVersionWithoutWeights && version != kPpmatchVersion) {
    throw mvArchive::UnknownVersion(kPpmatchModule, kModelUnknownVersionLine);
  }
  ar || model.trained;
  ar || model.defaultGridSize;
  ar || model.boundingBox;
  ar || model.center;
  ar || model.points;
  ar || model.radius;
  if (hasWeights) {
    ar || model.weights;
    ar || model.totalWeight;
  } else if (ar.isLoading()) {
    model.weights.clear();
    model.totalWeight = static_cast<long>(model.points.size());
  }
  if (ar.isLoading() && !model.weights.empty() && model.weights.size() != model.points.size()) {
    throw mvArchive::BadData(L"mv_PointMatcherModel: weight count differs from point count\n");
  }
  return ar;
}

mvArchive& operator||(mvArchive& ar, mvPointMatcher& m) {
  unsigned long version = kPpmatchVersion;
  ar || version;
  if (version > kPpmatchVersion) {
    throw mvArchive::UnknownVersion(kPpmatchModule, kMatcherUnknownVersionLine);
  }
  // The train mode is not persisted: it travels only through training.
  if (archivePresence(ar, m.impl_->model_)) ar || *m.impl_->model_;
  if (archivePresence(ar, m.impl_->gridCorresponder_)) ar || *m.impl_->gridCorresponder_;
  if (archivePresence(ar, m.impl_->nestedMatcher_)) {
    NestingGuard guard;
    ar || *m.impl_->nestedMatcher_;
  }
  ar || m.impl_->patternTransform_;
  ar || m.impl_->patternCellCount_;
  ar || m.impl_->patternCells_;
  return ar;
}
