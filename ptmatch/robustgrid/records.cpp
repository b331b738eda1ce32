// The robust grid map's parameter and result records and its error class.
#include <cmath>
#include <typeinfo>

#include "ptmatch/robustgrid.h"

namespace {

const mv_InstantiatorOf<mvRobustGridMapDefs::BadInput> registerBadInput(
    "mvRobustGridMapDefs::BadInput");

bool finite(const mvVector<2>& v) { return std::isfinite(v.x()) && std::isfinite(v.y()); }

}  // namespace

// --- mvRobustGridMapDefs::BadInput ---

mvRobustGridMapDefs::BadInput::BadInput(const std::wstring& message) : mvErrorOf(message) {}

// --- mvRobustGridMapParams ---

mvRobustGridMapParams::mvRobustGridMapParams(const mvVector<2>& xv, const mvVector<2>& yv,
                                             bool staggered, double rejectSigmas, long minNodes)
    : xv_(), yv_(), staggered_(staggered), rejectSigmas_(6.0), minNodes_(6) {
  vectors(xv, yv);
  this->rejectSigmas(rejectSigmas);
  this->minNodes(minNodes);
}

void mvRobustGridMapParams::vectors(const mvVector<2>& xv, const mvVector<2>& yv) {
  if (!finite(xv) || !finite(yv)) {
    throw mvRobustGridMapDefs::BadInput(L"The robust grid map's pitch vectors must be finite.");
  }
  if (xv.isNull() != yv.isNull()) {
    throw mvRobustGridMapDefs::BadInput(
        L"The robust grid map needs both pitch vectors or neither.");
  }
  const double cross = xv.x() * yv.y() - xv.y() * yv.x();
  if (!xv.isNull() && !(std::fabs(cross) > 1e-9 * xv.len() * yv.len())) {
    throw mvRobustGridMapDefs::BadInput(L"The robust grid map's pitch vectors are parallel.");
  }
  xv_ = xv;
  yv_ = yv;
}

void mvRobustGridMapParams::rejectSigmas(double v) {
  if (!std::isfinite(v) || !(v > 0.0)) {
    throw mvRobustGridMapDefs::BadInput(
        L"The robust grid map's reject level must be finite and above 0.");
  }
  rejectSigmas_ = v;
}

void mvRobustGridMapParams::minNodes(long v) {
  if (v < 4) {
    throw mvRobustGridMapDefs::BadInput(L"The robust grid map needs minNodes of at least 4.");
  }
  minNodes_ = v;
}

// --- mvRobustGridMapResult ---

mvRobustGridMapResult::mvRobustGridMapResult()
    : failure_(mvRobustGridMapDefs::eTooFewPoints),
      reason_("not run"),
      time_(0.0),
      matrix_{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0},
      sigma_(0.0),
      count_(0) {}
