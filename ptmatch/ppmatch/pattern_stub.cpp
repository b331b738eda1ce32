// Placeholders for training from a dot-pattern image and for the point-to-grid run, which
// are not part of this build yet. Each refuses with an error of the matcher's family so
// that a caller gets a clear message instead of a missing symbol.
#include "ptmatch/ppmatch.h"

namespace {
[[noreturn]] void notAvailableYet(const wchar_t* what) {
  throw mvPointMatcherDefs::NotTrained(std::wstring(what) + L" is not available yet\n");
}
}  // namespace

void mvPointMatcher::train(const mvPelBuffer_const<unsigned char>& /*image*/) {
  throw mvPointMatcherDefs::BadParams(
      L"mvPointMatcher: training from an image is not available yet\n");
}

const mvPelBuffer_const<unsigned char>& mvPointMatcher::pattern() const {
  notAvailableYet(L"mvPointMatcher: the training pattern");
}

void mvPointMatcher::runPtToGrid_(const std::vector<mvVector<2>>& /*dataPoints*/,
                                  const mvPointMatcherRunParams& /*params*/,
                                  mvPointMatcherResultSet& /*resultSet*/) const {
  notAvailableYet(L"mvPointMatcher: the point-to-grid run");
}

void mvPointMatcher::pointToPointMatching_(const std::vector<mvVector<2>>& /*dataPoints*/,
                                           const mvPointMatcherRunParams& /*params*/,
                                           mvPointMatcherResultSet& /*resultSet*/) const {
  notAvailableYet(L"mvPointMatcher: point-to-point matching of a pattern");
}

void mvPointMatcher::pointToGridMatching_(const std::vector<mvVector<2>>& /*dataPoints*/,
                                          const mvPointMatcherRunParams& /*params*/,
                                          mvPointMatcherResultSet& /*resultSet*/) const {
  notAvailableYet(L"mvPointMatcher: point-to-grid matching of a pattern");
}
