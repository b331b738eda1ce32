// The exception root, the library's own exception classes and the assertion routine.
#include "mvbase/exception.h"

#include <sstream>

#include "mvbase/archive.h"

// --- mvException ---

mvException::mvException() = default;
mvException::mvException(const mvException&) = default;
mvException& mvException::operator=(const mvException&) = default;
mvException::~mvException() = default;

const char* mvException::what() const noexcept {
  try {
    what_ = mfNarrow(message());
  } catch (...) {
    what_.clear();
  }
  return what_.c_str();
}

std::wstring mvException::message() const {
  std::wostringstream os;
  message_(os);
  return os.str();
}

void mvException::message_(std::wostream& os) const {
  const std::string name = mv_Instantiator::nameOf(typeid(*this));
  os << mfWiden(name.empty() ? std::string("mvException") : name);
}

long mvException::errorNumber() const { return 0; }

void mvException::requireClassVersion_(unsigned char version, const char* className) {
  if (version != 0) throw mvArchive::UnknownVersion(className, 0);
}

void mvException::requireClassVersion_(unsigned char version, const std::type_info& type) {
  if (version == 0) return;
  const std::string name = mv_Instantiator::nameOf(type);
  throw mvArchive::UnknownVersion(name.empty() ? type.name() : name.c_str(), 0);
}

void mvException::dispatchLevel_(mvArchive& ar, mvException& self, const void* address,
                                 std::size_t size, LevelSerializer serialize) {
  dispatchVersioned_(ar, address, size,
                     [&](unsigned char version) { serialize(self, ar, version); });
}

void mvException::suicideAndRethrow() { rethrowCopy_(this); }

void mvException::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(mvException),
                     [&](unsigned char version) { mvException::serialize_(ar, version); });
}

void mvException::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, "mvException");
  mvPersistent::dispatchSerialize(ar);
}

// --- mvExceptionWithString ---

mvExceptionWithString::mvExceptionWithString() = default;
mvExceptionWithString::mvExceptionWithString(const std::wstring& message) : text_(message) {}
mvExceptionWithString::mvExceptionWithString(const mvExceptionWithString&) = default;
mvExceptionWithString& mvExceptionWithString::operator=(const mvExceptionWithString&) = default;
mvExceptionWithString::~mvExceptionWithString() = default;

void mvExceptionWithString::message_(std::wostream& os) const { os << text_; }

void mvExceptionWithString::suicideAndRethrow() { rethrowCopy_(this); }

void mvExceptionWithString::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(mvExceptionWithString), [&](unsigned char version) {
    mvExceptionWithString::serialize_(ar, version);
  });
}

void mvExceptionWithString::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, "mvExceptionWithString");
  mvException::dispatchSerialize(ar);
  mfArchiveString(ar, text_);
}

mvPersistent* mvExceptionWithString::make() {
  return new mvExceptionWithString(L"An error occurred.");
}

// --- mvMathError ---

mvMathError::mvMathError() : mvErrorOf(L"A numeric operation failed.") {}
mvMathError::mvMathError(const std::wstring& message) : mvErrorOf(message) {}

// --- mvAssertionError ---

namespace {
std::wstring assertionMessage(const std::string& expression, const std::string& module, int line) {
  std::wostringstream os;
  os << L"Assertion failed: " << mfWiden(expression) << L" (" << mfWiden(module) << L", line "
     << line << L")";
  return os.str();
}
}  // namespace

mvAssertionError::mvAssertionError() : mvErrorOf(L"An internal check failed.") {}

mvAssertionError::mvAssertionError(const std::string& expression, const std::string& module,
                                   int line)
    : mvErrorOf(assertionMessage(expression, module, line)),
      expression_(expression),
      module_(module),
      line_(line) {}

void mvAssertionError::serialize_(mvArchive& ar, unsigned char version) {
  mvErrorOf::serialize_(ar, version);
  mfArchiveString(ar, expression_);
  mfArchiveString(ar, module_);
  ar || line_;
}

void mfAssertionFailed(const char* expression, const char* module, int line) {
  throw mvAssertionError(expression != nullptr ? expression : "", module != nullptr ? module : "",
                         line);
}

// --- registration ---

namespace {
mvPersistent* makeException() { return new mvException(); }

const mv_Instantiator registerException(typeid(mvException), &makeException, "mvException");
const mv_Instantiator registerExceptionWithString(typeid(mvExceptionWithString),
                                                  &mvExceptionWithString::make,
                                                  "mvExceptionWithString");
const mv_InstantiatorOf<mvMathError> registerMathError("mvMathError");
const mv_InstantiatorOf<mvAssertionError> registerAssertionError("mvAssertionError");
}  // namespace
