// A small JSON value: built by the commands for --json output and read back from point
// files (arrays of [x, y] pairs) and by the tests. Objects keep their keys in insertion
// order so the output reads in the documented order.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ptmatch::cli {

/// A JSON document that could not be read; line and column count from 1.
class JsonParseError : public std::runtime_error {
 public:
  JsonParseError(const std::string& message, long line, long column)
      : std::runtime_error(message), line_(line), column_(column) {}
  long line() const { return line_; }
  long column() const { return column_; }

 private:
  long line_;
  long column_;
};

/// One JSON value of any kind.
class JsonValue {
 public:
  enum class Kind { Null, Bool, Number, String, Array, Object };

  /// null.
  JsonValue() = default;
  JsonValue(bool b) : kind_(Kind::Bool), bool_(b) {}        // NOLINT: JSON literals read naturally
  JsonValue(double v) : kind_(Kind::Number), number_(v) {}  // NOLINT
  JsonValue(int v) : JsonValue(static_cast<double>(v)) {}   // NOLINT
  JsonValue(long v) : JsonValue(static_cast<double>(v)) {}  // NOLINT
  JsonValue(const char* s) : kind_(Kind::String), string_(s) {}         // NOLINT
  JsonValue(const std::string& s) : kind_(Kind::String), string_(s) {}  // NOLINT

  static JsonValue array();
  static JsonValue object();

  Kind kind() const { return kind_; }
  bool isNull() const { return kind_ == Kind::Null; }
  bool isNumber() const { return kind_ == Kind::Number; }
  bool isArray() const { return kind_ == Kind::Array; }
  bool isObject() const { return kind_ == Kind::Object; }

  bool asBool() const;
  double asNumber() const;
  const std::string& asString() const;
  /// Elements of an array.
  const std::vector<JsonValue>& items() const;
  /// Members of an object, in order.
  const std::vector<std::pair<std::string, JsonValue>>& members() const;
  /// The member of an object with this key; throws std::out_of_range when absent.
  const JsonValue& operator[](const std::string& key) const;
  /// The element of an array at this index; throws std::out_of_range when absent.
  const JsonValue& operator[](std::size_t index) const;
  bool contains(const std::string& key) const;
  std::size_t size() const;
  /// The line (from 1) where a parsed value starts; 0 for a value built in code.
  long line() const { return line_; }

  /// Appends to an array.
  JsonValue& push(JsonValue v);
  /// Adds (or replaces) an object member; returns *this for chaining.
  JsonValue& set(const std::string& key, JsonValue v);

  /// The document as text: objects one member a line, arrays of scalars and of short
  /// arrays on one line. Non-finite numbers are written as null.
  std::string dump() const;

  /// Reads a whole document; throws JsonParseError.
  static JsonValue parse(const std::string& text);

 private:
  void dumpTo(std::string& out, int indent) const;

  friend class JsonReader;

  Kind kind_ = Kind::Null;
  long line_ = 0;
  bool bool_ = false;
  double number_ = 0.0;
  std::string string_;
  std::vector<JsonValue> items_;
  std::vector<std::pair<std::string, JsonValue>> members_;
};

/// A number as JSON writes it: the shortest text that reads back to the same double.
std::string formatJsonNumber(double v);

}  // namespace ptmatch::cli
