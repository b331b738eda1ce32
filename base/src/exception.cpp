// The persistence root, the instantiator registry, the exception root and the assertion
// routine, plus the UTF-8 conversions the messages use.
#include "mvbase/exception.h"

#include <map>
#include <mutex>
#include <sstream>
#include <typeindex>

#include "mvbase/archive.h"
#include "persist_detail.h"

// --- mvPersistent ---

mvPersistent::~mvPersistent() = default;

void mvPersistent::dispatchSerialize(mvArchive& /*ar*/) {}

bool mvPersistent::haveVisited(void* object, std::size_t size) {
  const mvArchive* ar = mvbase_detail::currentArchive();
  return ar != nullptr && ar->haveVisited(object, size);
}

void mvPersistent::setVisited(void* object, std::size_t size) {
  mvArchive* ar = mvbase_detail::currentArchive();
  if (ar != nullptr) ar->setVisited(object, size);
}

// --- mv_Instantiator ---

namespace {

struct Registration {
  mv_Instantiator::Factory make;
  std::string name;
  const mv_Instantiator* owner;
};

// The registry lives in a function so that instantiators of any library may register
// during static initialisation, whatever the order of initialisation.
struct Registry {
  std::mutex mutex;
  std::map<std::type_index, Registration> byType;
  std::map<std::string, mv_Instantiator::Factory> byName;
};

Registry& registry() {
  static Registry r;
  return r;
}

void registerClass(const std::type_info& type, mv_Instantiator::Factory make,
                   const std::string& name, const mv_Instantiator* owner) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.byType[std::type_index(type)] = Registration{make, name, owner};
  r.byName[name] = make;
}

}  // namespace

mv_Instantiator::mv_Instantiator(const std::type_info& type, Factory make) : type_(&type) {
  registerClass(type, make, type.name(), this);
}

mv_Instantiator::mv_Instantiator(const std::type_info& type, Factory make, const char* name)
    : type_(&type) {
  registerClass(type, make, name != nullptr ? name : type.name(), this);
}

mv_Instantiator::~mv_Instantiator() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  const auto it = r.byType.find(std::type_index(*type_));
  if (it == r.byType.end() || it->second.owner != this) return;
  const auto named = r.byName.find(it->second.name);
  if (named != r.byName.end() && named->second == it->second.make) r.byName.erase(named);
  r.byType.erase(it);
}

mvPersistent* mv_Instantiator::create(const std::string& name) {
  Factory make = nullptr;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.byName.find(name);
    if (it != r.byName.end()) make = it->second;
  }
  return make != nullptr ? make() : nullptr;
}

mvPersistent* mv_Instantiator::create(const std::type_info& type) {
  Factory make = nullptr;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.byType.find(std::type_index(type));
    if (it != r.byType.end()) make = it->second.make;
  }
  return make != nullptr ? make() : nullptr;
}

std::string mv_Instantiator::nameOf(const std::type_info& type) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  const auto it = r.byType.find(std::type_index(type));
  return it != r.byType.end() ? it->second.name : std::string();
}

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

mvMathError::mvMathError() : mvExceptionWithString(L"A numeric operation failed.") {}
mvMathError::mvMathError(const std::wstring& message) : mvExceptionWithString(message) {}

void mvMathError::suicideAndRethrow() { rethrowCopy_(this); }

void mvMathError::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(mvMathError),
                     [&](unsigned char version) { mvMathError::serialize_(ar, version); });
}

void mvMathError::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, "mvMathError");
  mvExceptionWithString::dispatchSerialize(ar);
}

mvPersistent* mvMathError::make() { return new mvMathError(); }

// --- mvAssertionError ---

namespace {
std::wstring assertionMessage(const std::string& expression, const std::string& module, int line) {
  std::wostringstream os;
  os << L"Assertion failed: " << mfWiden(expression) << L" (" << mfWiden(module) << L", line "
     << line << L")";
  return os.str();
}
}  // namespace

mvAssertionError::mvAssertionError() : mvExceptionWithString(L"An internal check failed.") {}

mvAssertionError::mvAssertionError(const std::string& expression, const std::string& module,
                                   int line)
    : mvExceptionWithString(assertionMessage(expression, module, line)),
      expression_(expression),
      module_(module),
      line_(line) {}

void mvAssertionError::suicideAndRethrow() { rethrowCopy_(this); }

void mvAssertionError::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(mvAssertionError),
                     [&](unsigned char version) { mvAssertionError::serialize_(ar, version); });
}

void mvAssertionError::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, "mvAssertionError");
  mvExceptionWithString::dispatchSerialize(ar);
  mfArchiveString(ar, expression_);
  mfArchiveString(ar, module_);
  ar || line_;
}

mvPersistent* mvAssertionError::make() { return new mvAssertionError(); }

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
const mv_Instantiator registerMathError(typeid(mvMathError), &mvMathError::make, "mvMathError");
const mv_Instantiator registerAssertionError(typeid(mvAssertionError), &mvAssertionError::make,
                                             "mvAssertionError");
}  // namespace

// --- UTF-8 ---

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void appendWide(std::wstring& out, char32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (c >> 10));
      out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

// Decodes one code point at text[i], advancing i; malformed bytes decode as U+FFFD.
char32_t decodeUtf8(const std::string& text, std::size_t& i) {
  const unsigned char lead = static_cast<unsigned char>(text[i++]);
  if (lead < 0x80) return lead;
  int trailing = 0;
  char32_t c = 0;
  char32_t smallest = 0;
  if ((lead & 0xE0) == 0xC0) {
    trailing = 1;
    c = lead & 0x1F;
    smallest = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    trailing = 2;
    c = lead & 0x0F;
    smallest = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    trailing = 3;
    c = lead & 0x07;
    smallest = 0x10000;
  } else {
    return kReplacement;
  }
  for (int k = 0; k < trailing; ++k) {
    if (i >= text.size()) return kReplacement;
    const unsigned char next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    c = (c << 6) | (next & 0x3F);
    ++i;
  }
  if (c < smallest || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return kReplacement;
  return c;
}

}  // namespace

std::wstring mfWiden(const std::string& utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) appendWide(out, decodeUtf8(utf8, i));
  return out;
}

std::string mfNarrow(const std::wstring& wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    char32_t c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(wide[i]));
    if constexpr (sizeof(wchar_t) == 2) {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < wide.size()) {
        const char32_t low = static_cast<char32_t>(wide[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    appendUtf8(out, c);
  }
  return out;
}
