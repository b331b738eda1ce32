// The run parameters of the point matcher: validating setters and equality.
//
// Every setter checks its value first and stores it only when the check passes, so a
// rejected value leaves the object as it was. The grid-size check is strict (0.0 is
// rejected) while the capture-range check accepts 0.0; both checks are skipped while the
// matching automatic flag is set, so that flag must be stored first.
//
// The default constructor asks for: coverage 0.5, the identity start pose, full x and y
// translation ranges, rotation from -15 to +15 degrees, no scale change (0:0, so the fits
// are rigid), automatic grid size and capture range (both sizes held as 0.0) and one
// result.
#include "ptmatch/ppmatch.h"

namespace {

constexpr double kEqualityTolerance = 1e-15;

// Throws the family's parameter error with a fixed message.
[[noreturn]] void rejectParam(const wchar_t* message) {
  throw mvPointMatcherDefs::BadParams(message);
}

}  // namespace

mvPointMatcherRunParams::mvPointMatcherRunParams()
    : minCoverage_(0.5),
      startPose_(),
      rotationUncertainty_(mvRadian(mvDegree(-15.0)), mvRadian(mvDegree(15.0)), false),
      xTranslationUncertainty_(mvRange::FullRange()),
      yTranslationUncertainty_(mvRange::FullRange()),
      scaleUncertainty_(0.0, 0.0),
      autoGridSize_(true),
      gridSize_(0.0),
      autoCaptureRange_(true),
      captureRange_(0.0),
      maxNumResults_(1) {}

mvPointMatcherRunParams::mvPointMatcherRunParams(double minCoverage, const mvXform<2>& startPose,
                                                 const mvRange& xTranslationUncertainty,
                                                 const mvRange& yTranslationUncertainty,
                                                 const mvAngleRange& rotationUncertainty,
                                                 const mvRange& scaleUncertainty, bool autoGridSize,
                                                 double gridSize, bool autoCaptureRange,
                                                 double captureRange, long maxNumResults)
    : minCoverage_(0.0),
      startPose_(),
      rotationUncertainty_(),
      xTranslationUncertainty_(),
      yTranslationUncertainty_(),
      scaleUncertainty_(),
      autoGridSize_(false),
      gridSize_(0.0),
      autoCaptureRange_(false),
      captureRange_(0.0),
      maxNumResults_(1) {
  // The setters run in this order; each automatic flag is stored before its size is
  // checked, so the check sees the new flag.
  this->minCoverage(minCoverage);
  this->startPose(startPose);
  this->xTranslationUncertainty(xTranslationUncertainty);
  this->yTranslationUncertainty(yTranslationUncertainty);
  this->rotationUncertainty(rotationUncertainty);
  this->scaleUncertainty(scaleUncertainty);
  this->autoGridSize(autoGridSize);
  this->gridSize(gridSize);
  this->autoCaptureRange(autoCaptureRange);
  this->captureRange(captureRange);
  this->maxNumResults(maxNumResults);
}

void mvPointMatcherRunParams::minCoverage(double v) {
  if (!(v >= 0.0 && v <= 1.0)) rejectParam(L"minCoverage must be in [0.0, 1.0]\n");
  minCoverage_ = v;
}

void mvPointMatcherRunParams::startPose(const mvXform<2>& pose) { startPose_ = pose; }

void mvPointMatcherRunParams::xTranslationUncertainty(const mvRange& r) {
  if (r.range() == mvRangeDefs::eEmpty) {
    rejectParam(L"xTranslationUncertainty range must not be empty\n");
  }
  xTranslationUncertainty_ = r;
}

void mvPointMatcherRunParams::yTranslationUncertainty(const mvRange& r) {
  if (r.range() == mvRangeDefs::eEmpty) {
    rejectParam(L"yTranslationUncertainty range must not be empty\n");
  }
  yTranslationUncertainty_ = r;
}

void mvPointMatcherRunParams::rotationUncertainty(const mvAngleRange& r) {
  // The message names the field as the matcher has always named it.
  if (r.range() == mvRangeDefs::eEmpty) rejectParam(L"angleUncertainty range must not be empty\n");
  rotationUncertainty_ = r;
}

void mvPointMatcherRunParams::scaleUncertainty(const mvRange& r) {
  if (r.range() == mvRangeDefs::eEmpty) rejectParam(L"scaleUncertainty range must not be empty\n");
  if (r.range() == mvRangeDefs::eFull) rejectParam(L"scaleUncertainty range must not be full\n");
  // A relative change below -0.9 would allow scale factors under 0.1.
  if (r.start() < -0.9) rejectParam(L"start of scaleUncertainty scale must be >= -0.9\n");
  scaleUncertainty_ = r;
}

void mvPointMatcherRunParams::autoGridSize(bool v) { autoGridSize_ = v; }

void mvPointMatcherRunParams::gridSize(double v) {
  // Strict on purpose: a grid size of exactly 0.0 is rejected although the message says
  // ">= 0.0".
  if (!autoGridSize_ && !(v > 0.0)) {
    rejectParam(L"if autoGridSize==false, gridSize must be >= 0.0\n");
  }
  gridSize_ = v;
}

void mvPointMatcherRunParams::autoCaptureRange(bool v) { autoCaptureRange_ = v; }

void mvPointMatcherRunParams::captureRange(double v) {
  if (!autoCaptureRange_ && !(v >= 0.0)) {
    rejectParam(L"if autoCaptureRange==false, captureRange must be >= 0.0\n");
  }
  captureRange_ = v;
}

void mvPointMatcherRunParams::maxNumResults(long v) {
  if (v < 1) rejectParam(L"maxNumResults must be >= 1\n");
  maxNumResults_ = v;
}

bool mvPointMatcherRunParams::operator==(const mvPointMatcherRunParams& o) const {
  return mfRealEq(minCoverage_, o.minCoverage_, kEqualityTolerance) && startPose_ == o.startPose_ &&
         xTranslationUncertainty_ == o.xTranslationUncertainty_ &&
         yTranslationUncertainty_ == o.yTranslationUncertainty_ &&
         scaleUncertainty_ == o.scaleUncertainty_ &&
         rotationUncertainty_ == o.rotationUncertainty_ && autoGridSize_ == o.autoGridSize_ &&
         mfRealEq(gridSize_, o.gridSize_, kEqualityTolerance) &&
         autoCaptureRange_ == o.autoCaptureRange_ &&
         mfRealEq(captureRange_, o.captureRange_, kEqualityTolerance) &&
         maxNumResults_ == o.maxNumResults_;
}
