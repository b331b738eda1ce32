// The point matcher's error classes: their numbers, their persistence and their
// registration with the instantiator.
//
// Each class persists as a one-byte class version 0 (once per object per archive), then
// its base class's own persistence; a class version other than 0 is reported as an unknown
// version naming the class and line 0. make() gives an instance with an empty message.
#include <typeinfo>

#include "ptmatch/ppmatch.h"

namespace {

constexpr long kBadParamsNumber = 0x10005f00;
constexpr long kNotTrainedNumber = 0x10005f01;
constexpr long kNotRunNumber = 0x10005f02;
// 0x10005f03 is not used by this family.
constexpr long kInsufficientModelPointsNumber = 0x10005f04;

constexpr const char* kErrorsName = "mvPointMatcherDefs::Errors";
constexpr const char* kBadParamsName = "mvPointMatcherDefs::BadParams";
constexpr const char* kNotTrainedName = "mvPointMatcherDefs::NotTrained";
constexpr const char* kNotRunName = "mvPointMatcherDefs::NotRun";
constexpr const char* kInsufficientModelPointsName = "mvPointMatcherDefs::InsufficientModelPoints";

}  // namespace

// --- Errors ---

mvPointMatcherDefs::Errors::Errors(const std::wstring& message) : mvErrorOf(message) {}

mvPersistent* mvPointMatcherDefs::Errors::make() { return new Errors(L""); }

// --- BadParams ---

mvPointMatcherDefs::BadParams::BadParams(const std::wstring& message) : mvErrorOf(message) {}

long mvPointMatcherDefs::BadParams::errorNumber() const { return kBadParamsNumber; }

// --- NotTrained ---

mvPointMatcherDefs::NotTrained::NotTrained(const std::wstring& message) : mvErrorOf(message) {}

long mvPointMatcherDefs::NotTrained::errorNumber() const { return kNotTrainedNumber; }

// --- NotRun ---

mvPointMatcherDefs::NotRun::NotRun(const std::wstring& message) : mvErrorOf(message) {}

long mvPointMatcherDefs::NotRun::errorNumber() const { return kNotRunNumber; }

// --- InsufficientModelPoints ---

mvPointMatcherDefs::InsufficientModelPoints::InsufficientModelPoints(const std::wstring& message)
    : mvErrorOf(message) {}

long mvPointMatcherDefs::InsufficientModelPoints::errorNumber() const {
  return kInsufficientModelPointsNumber;
}

// --- Registration, by type and by name, at library load ---

namespace {
const mv_InstantiatorOf<mvPointMatcherDefs::Errors> registerErrors(kErrorsName);
const mv_InstantiatorOf<mvPointMatcherDefs::BadParams> registerBadParams(kBadParamsName);
const mv_InstantiatorOf<mvPointMatcherDefs::NotTrained> registerNotTrained(kNotTrainedName);
const mv_InstantiatorOf<mvPointMatcherDefs::NotRun> registerNotRun(kNotRunName);
const mv_InstantiatorOf<mvPointMatcherDefs::InsufficientModelPoints>
    registerInsufficientModelPoints(kInsufficientModelPointsName);
}  // namespace
