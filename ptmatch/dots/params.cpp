// The dot detector's parameters and its error class.
#include <cmath>
#include <string>
#include <typeinfo>

#include "ptmatch/dots.h"

namespace {

const mv_InstantiatorOf<mvDotDefs::BadInput> registerBadInput("mvDotDefs::BadInput");

[[noreturn]] void refuse(const std::wstring& what) { throw mvDotDefs::BadInput(what); }

}  // namespace

// --- mvDotDefs::BadInput ---

mvDotDefs::BadInput::BadInput(const std::wstring& message) : mvErrorOf(message) {}

// --- mvDotDetectParams ---

void mvDotDetectParams::polarity(mvDotDefs::Polarity p) {
  if (p != mvDotDefs::eDark && p != mvDotDefs::eBright && p != mvDotDefs::eEither) {
    refuse(L"The dot polarity must be dark, bright or either.");
  }
  polarity_ = p;
}

void mvDotDetectParams::threshold(mvDotDefs::Threshold t) {
  if (t != mvDotDefs::eAuto && t != mvDotDefs::eFixed && t != mvDotDefs::eLocal) {
    refuse(L"The dot threshold mode must be automatic, fixed or local.");
  }
  threshold_ = t;
}

void mvDotDetectParams::fixedThreshold(double grey) {
  if (!(grey >= 0.0 && grey <= 65535.0)) {
    refuse(L"The fixed dot threshold must be a grey value from 0 to 65535.");
  }
  fixedThreshold_ = grey;
  threshold_ = mvDotDefs::eFixed;
}

void mvDotDetectParams::localWindow(long pels) {
  if (pels != 0 && (pels < 3 || pels > 1000000)) {
    refuse(L"The local threshold window must be 0 (automatic) or 3 to 1000000 pels.");
  }
  localWindow_ = pels;
}

void mvDotDetectParams::minArea(double pels) {
  if (!(pels >= 1.0 && pels <= maxArea_)) {
    refuse(L"The minimum dot area must be at least 1 pel and at most the maximum area.");
  }
  minArea_ = pels;
}

void mvDotDetectParams::maxArea(double pels) {
  if (!(pels >= minArea_ && std::isfinite(pels))) {
    refuse(L"The maximum dot area must be finite and at least the minimum area.");
  }
  maxArea_ = pels;
}

void mvDotDetectParams::minRoundness(double r) {
  if (!(r >= 0.0 && r <= 1.0)) refuse(L"The minimum dot roundness must be from 0 to 1.");
  minRoundness_ = r;
}

void mvDotDetectParams::minContrast(double grey) {
  if (!(grey >= 0.0 && std::isfinite(grey))) {
    refuse(L"The minimum dot contrast must be finite and at least 0.");
  }
  minContrast_ = grey;
}
