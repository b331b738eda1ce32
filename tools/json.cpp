#include "json.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace ptmatch::cli {

namespace {

void appendEscaped(std::string& out, const std::string& s) {
  out += '"';
  for (const char c : s) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char buffer[8];
          std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
          out += buffer;
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

bool isScalar(const JsonValue& v) { return !v.isArray() && !v.isObject(); }

// Arrays of scalars, and arrays of arrays of scalars, are written on one line.
bool isFlat(const JsonValue& v) {
  if (!v.isArray()) return isScalar(v);
  for (const JsonValue& item : v.items()) {
    if (item.isObject()) return false;
    if (item.isArray()) {
      for (const JsonValue& inner : item.items()) {
        if (!isScalar(inner)) return false;
      }
    }
  }
  return true;
}

}  // namespace

// Recursive-descent reader keeping line and column for its messages and the line of
// every value it reads.
class JsonReader {
 public:
  explicit JsonReader(const std::string& text) : text_(text) {}

  JsonValue document() {
    skipBlanks();
    JsonValue v = value();
    skipBlanks();
    if (pos_ != text_.size()) fail("unexpected text after the JSON value");
    return v;
  }

 private:
  [[noreturn]] void fail(const std::string& message) const {
    long line = 1;
    long column = 1;
    for (std::size_t i = 0; i < pos_ && i < text_.size(); ++i) {
      if (text_[i] == '\n') {
        ++line;
        column = 1;
      } else {
        ++column;
      }
    }
    throw JsonParseError(message, line, column);
  }

  bool atEnd() const { return pos_ >= text_.size(); }
  char peek() const { return atEnd() ? '\0' : text_[pos_]; }

  void skipBlanks() {
    while (!atEnd() && std::strchr(" \t\r\n", text_[pos_]) != nullptr) {
      if (text_[pos_] == '\n') ++line_;
      ++pos_;
    }
  }

  void expect(char c) {
    if (peek() != c) fail(std::string("expected '") + c + "'");
    ++pos_;
  }

  JsonValue value() {
    if (atEnd()) fail("unexpected end of the document");
    const long line = currentLine();
    JsonValue v = bareValue();
    v.line_ = line;
    return v;
  }

  // Newlines occur only between tokens (strings refuse control characters), so
  // skipBlanks keeps the count.
  long currentLine() const { return line_; }

  JsonValue bareValue() {
    const char c = peek();
    if (c == '[') return array();
    if (c == '{') return object();
    if (c == '"') return JsonValue(string());
    if (c == '-' || (c >= '0' && c <= '9')) return number();
    if (word("true")) return JsonValue(true);
    if (word("false")) return JsonValue(false);
    if (word("null")) return JsonValue();
    fail(std::string("unexpected character '") + c + "'");
  }

  bool word(const char* w) {
    const std::size_t n = std::strlen(w);
    if (text_.compare(pos_, n, w) != 0) return false;
    pos_ += n;
    return true;
  }

  JsonValue array() {
    expect('[');
    JsonValue result = JsonValue::array();
    skipBlanks();
    if (peek() == ']') {
      ++pos_;
      return result;
    }
    for (;;) {
      skipBlanks();
      result.push(value());
      skipBlanks();
      if (peek() == ',') {
        ++pos_;
        continue;
      }
      if (peek() == ']') {
        ++pos_;
        return result;
      }
      fail("expected ',' or ']' in an array");
    }
  }

  JsonValue object() {
    expect('{');
    JsonValue result = JsonValue::object();
    skipBlanks();
    if (peek() == '}') {
      ++pos_;
      return result;
    }
    for (;;) {
      skipBlanks();
      if (peek() != '"') fail("expected a string key in an object");
      const std::string key = string();
      skipBlanks();
      expect(':');
      skipBlanks();
      result.set(key, value());
      skipBlanks();
      if (peek() == ',') {
        ++pos_;
        continue;
      }
      if (peek() == '}') {
        ++pos_;
        return result;
      }
      fail("expected ',' or '}' in an object");
    }
  }

  std::string string() {
    expect('"');
    std::string out;
    for (;;) {
      if (atEnd()) fail("unterminated string");
      const char c = text_[pos_++];
      if (c == '"') return out;
      if (static_cast<unsigned char>(c) < 0x20) fail("control character in a string");
      if (c != '\\') {
        out += c;
        continue;
      }
      if (atEnd()) fail("unterminated string");
      const char e = text_[pos_++];
      switch (e) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case '/':
          out += '/';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u':
          appendUtf8(out, hex4());
          break;
        default:
          --pos_;
          fail("bad escape in a string");
      }
    }
  }

  unsigned hex4() {
    if (pos_ + 4 > text_.size()) fail("bad \\u escape");
    unsigned v = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = text_[pos_++];
      v <<= 4;
      if (c >= '0' && c <= '9') {
        v |= static_cast<unsigned>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        v |= static_cast<unsigned>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        v |= static_cast<unsigned>(c - 'A' + 10);
      } else {
        --pos_;
        fail("bad \\u escape");
      }
    }
    return v;
  }

  static void appendUtf8(std::string& out, unsigned cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }

  JsonValue number() {
    // The JSON grammar: -? int frac? exp?, checked here; strtod then converts.
    const std::size_t start = pos_;
    if (peek() == '-') ++pos_;
    if (peek() == '0') {
      ++pos_;
    } else if (peek() >= '1' && peek() <= '9') {
      while (peek() >= '0' && peek() <= '9') ++pos_;
    } else {
      fail("bad number");
    }
    if (peek() == '.') {
      ++pos_;
      if (!(peek() >= '0' && peek() <= '9')) fail("bad number");
      while (peek() >= '0' && peek() <= '9') ++pos_;
    }
    if (peek() == 'e' || peek() == 'E') {
      ++pos_;
      if (peek() == '+' || peek() == '-') ++pos_;
      if (!(peek() >= '0' && peek() <= '9')) fail("bad number");
      while (peek() >= '0' && peek() <= '9') ++pos_;
    }
    const std::string digits = text_.substr(start, pos_ - start);
    const double v = std::strtod(digits.c_str(), nullptr);
    if (!std::isfinite(v)) {
      pos_ = start;
      fail("number out of range");
    }
    return JsonValue(v);
  }

  const std::string& text_;
  std::size_t pos_ = 0;
  long line_ = 1;
};

namespace {

bool isFlatObject(const JsonValue& v) {
  if (v.size() > 8) return false;
  for (const auto& member : v.members()) {
    if (!isScalar(member.second)) return false;
  }
  return true;
}

}  // namespace

std::string formatJsonNumber(double v) {
  if (!std::isfinite(v)) return "null";
  if (v == 0.0) return "0";  // also -0.0
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
  return std::string(buffer, result.ptr);
}

JsonValue JsonValue::array() {
  JsonValue v;
  v.kind_ = Kind::Array;
  return v;
}

JsonValue JsonValue::object() {
  JsonValue v;
  v.kind_ = Kind::Object;
  return v;
}

bool JsonValue::asBool() const {
  if (kind_ != Kind::Bool) throw std::logic_error("JSON value is not a boolean");
  return bool_;
}

double JsonValue::asNumber() const {
  if (kind_ != Kind::Number) throw std::logic_error("JSON value is not a number");
  return number_;
}

const std::string& JsonValue::asString() const {
  if (kind_ != Kind::String) throw std::logic_error("JSON value is not a string");
  return string_;
}

const std::vector<JsonValue>& JsonValue::items() const {
  if (kind_ != Kind::Array) throw std::logic_error("JSON value is not an array");
  return items_;
}

const std::vector<std::pair<std::string, JsonValue>>& JsonValue::members() const {
  if (kind_ != Kind::Object) throw std::logic_error("JSON value is not an object");
  return members_;
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
  for (const auto& member : members()) {
    if (member.first == key) return member.second;
  }
  throw std::out_of_range("JSON object has no member '" + key + "'");
}

const JsonValue& JsonValue::operator[](std::size_t index) const { return items().at(index); }

bool JsonValue::contains(const std::string& key) const {
  for (const auto& member : members()) {
    if (member.first == key) return true;
  }
  return false;
}

std::size_t JsonValue::size() const {
  if (kind_ == Kind::Array) return items_.size();
  if (kind_ == Kind::Object) return members_.size();
  return 0;
}

JsonValue& JsonValue::push(JsonValue v) {
  if (kind_ != Kind::Array) throw std::logic_error("push on a JSON value that is not an array");
  items_.push_back(std::move(v));
  return *this;
}

JsonValue& JsonValue::set(const std::string& key, JsonValue v) {
  if (kind_ != Kind::Object) throw std::logic_error("set on a JSON value that is not an object");
  for (auto& member : members_) {
    if (member.first == key) {
      member.second = std::move(v);
      return *this;
    }
  }
  members_.emplace_back(key, std::move(v));
  return *this;
}

std::string JsonValue::dump() const {
  std::string out;
  dumpTo(out, 0);
  out += '\n';
  return out;
}

void JsonValue::dumpTo(std::string& out, int indent) const {
  switch (kind_) {
    case Kind::Null:
      out += "null";
      return;
    case Kind::Bool:
      out += bool_ ? "true" : "false";
      return;
    case Kind::Number:
      out += formatJsonNumber(number_);
      return;
    case Kind::String:
      appendEscaped(out, string_);
      return;
    case Kind::Array: {
      const bool flat = isFlat(*this);
      out += '[';
      for (std::size_t i = 0; i < items_.size(); ++i) {
        if (i > 0) out += flat ? ", " : ",";
        if (!flat) out += "\n" + std::string(static_cast<std::size_t>(indent + 2), ' ');
        items_[i].dumpTo(out, indent + 2);
      }
      if (!flat && !items_.empty())
        out += "\n" + std::string(static_cast<std::size_t>(indent), ' ');
      out += ']';
      return;
    }
    case Kind::Object: {
      if (isFlatObject(*this)) {
        out += '{';
        for (std::size_t i = 0; i < members_.size(); ++i) {
          if (i > 0) out += ", ";
          appendEscaped(out, members_[i].first);
          out += ": ";
          members_[i].second.dumpTo(out, indent);
        }
        out += '}';
        return;
      }
      out += '{';
      for (std::size_t i = 0; i < members_.size(); ++i) {
        if (i > 0) out += ',';
        out += "\n" + std::string(static_cast<std::size_t>(indent + 2), ' ');
        appendEscaped(out, members_[i].first);
        out += ": ";
        members_[i].second.dumpTo(out, indent + 2);
      }
      if (!members_.empty()) out += "\n" + std::string(static_cast<std::size_t>(indent), ' ');
      out += '}';
      return;
    }
  }
}

JsonValue JsonValue::parse(const std::string& text) { return JsonReader(text).document(); }

}  // namespace ptmatch::cli
