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

mvPointMatcherDefs::Errors::Errors(const std::wstring& message) : mvExceptionWithString(message) {}

void mvPointMatcherDefs::Errors::suicideAndRethrow() { rethrowCopy_(this); }

void mvPointMatcherDefs::Errors::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(*this),
                     [&](unsigned char version) { Errors::serialize_(ar, version); });
}

mvPersistent* mvPointMatcherDefs::Errors::make() { return new Errors(L""); }

void mvPointMatcherDefs::Errors::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, kErrorsName);
  mvExceptionWithString::dispatchSerialize(ar);
}

// --- BadParams ---

mvPointMatcherDefs::BadParams::BadParams(const std::wstring& message) : Errors(message) {}

long mvPointMatcherDefs::BadParams::errorNumber() const { return kBadParamsNumber; }

void mvPointMatcherDefs::BadParams::suicideAndRethrow() { rethrowCopy_(this); }

void mvPointMatcherDefs::BadParams::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(*this),
                     [&](unsigned char version) { BadParams::serialize_(ar, version); });
}

mvPersistent* mvPointMatcherDefs::BadParams::make() { return new BadParams(L""); }

void mvPointMatcherDefs::BadParams::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, kBadParamsName);
  Errors::dispatchSerialize(ar);
}

// --- NotTrained ---

mvPointMatcherDefs::NotTrained::NotTrained(const std::wstring& message) : Errors(message) {}

long mvPointMatcherDefs::NotTrained::errorNumber() const { return kNotTrainedNumber; }

void mvPointMatcherDefs::NotTrained::suicideAndRethrow() { rethrowCopy_(this); }

void mvPointMatcherDefs::NotTrained::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(*this),
                     [&](unsigned char version) { NotTrained::serialize_(ar, version); });
}

mvPersistent* mvPointMatcherDefs::NotTrained::make() { return new NotTrained(L""); }

void mvPointMatcherDefs::NotTrained::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, kNotTrainedName);
  Errors::dispatchSerialize(ar);
}

// --- NotRun ---

mvPointMatcherDefs::NotRun::NotRun(const std::wstring& message) : Errors(message) {}

long mvPointMatcherDefs::NotRun::errorNumber() const { return kNotRunNumber; }

void mvPointMatcherDefs::NotRun::suicideAndRethrow() { rethrowCopy_(this); }

void mvPointMatcherDefs::NotRun::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(*this),
                     [&](unsigned char version) { NotRun::serialize_(ar, version); });
}

mvPersistent* mvPointMatcherDefs::NotRun::make() { return new NotRun(L""); }

void mvPointMatcherDefs::NotRun::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, kNotRunName);
  Errors::dispatchSerialize(ar);
}

// --- InsufficientModelPoints ---

mvPointMatcherDefs::InsufficientModelPoints::InsufficientModelPoints(const std::wstring& message)
    : Errors(message) {}

long mvPointMatcherDefs::InsufficientModelPoints::errorNumber() const {
  return kInsufficientModelPointsNumber;
}

void mvPointMatcherDefs::InsufficientModelPoints::suicideAndRethrow() { rethrowCopy_(this); }

void mvPointMatcherDefs::InsufficientModelPoints::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(*this), [&](unsigned char version) {
    InsufficientModelPoints::serialize_(ar, version);
  });
}

mvPersistent* mvPointMatcherDefs::InsufficientModelPoints::make() {
  return new InsufficientModelPoints(L"");
}

void mvPointMatcherDefs::InsufficientModelPoints::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, kInsufficientModelPointsName);
  Errors::dispatchSerialize(ar);
}

// --- Registration, by type and by name, at library load ---

namespace {
const mv_Instantiator registerErrors(typeid(mvPointMatcherDefs::Errors),
                                     &mvPointMatcherDefs::Errors::make, kErrorsName);
const mv_Instantiator registerBadParams(typeid(mvPointMatcherDefs::BadParams),
                                        &mvPointMatcherDefs::BadParams::make, kBadParamsName);
const mv_Instantiator registerNotTrained(typeid(mvPointMatcherDefs::NotTrained),
                                         &mvPointMatcherDefs::NotTrained::make, kNotTrainedName);
const mv_Instantiator registerNotRun(typeid(mvPointMatcherDefs::NotRun),
                                     &mvPointMatcherDefs::NotRun::make, kNotRunName);
const mv_Instantiator registerInsufficientModelPoints(
    typeid(mvPointMatcherDefs::InsufficientModelPoints),
    &mvPointMatcherDefs::InsufficientModelPoints::make, kInsufficientModelPointsName);
}  // namespace
