#include "pointfile.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "args.h"
#include "errors.h"
#include "json.h"

namespace ptmatch::cli {

namespace {

[[noreturn]] void failAt(const std::string& name, long line, const std::string& message) {
  throw InputError(name + ":" + std::to_string(line) + ": " + message);
}

bool toNumber(const std::string& field, double& v) {
  if (field.empty()) return false;
  char* end = nullptr;
  errno = 0;
  v = std::strtod(field.c_str(), &end);
  return end == field.c_str() + field.size() && std::isfinite(v) && errno != ERANGE;
}

// A weight is a whole number that a 32-bit long holds ("3", "-2", also "3.0").
bool toWeight(double v, long& weight) {
  if (v != std::floor(v) || v < INT32_MIN || v > INT32_MAX) return false;
  weight = static_cast<long>(v);
  return true;
}

// The fields of one content line: split at commas when it has any, else at blanks.
std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  if (line.find(',') != std::string::npos) {
    for (const std::string& f : splitAt(line, ',')) fields.push_back(trimmed(f));
    return fields;
  }
  std::istringstream words(line);
  std::string word;
  while (words >> word) fields.push_back(word);
  return fields;
}

// One text line with its number, stripped of its comment and blanks.
struct ContentLine {
  long number;
  std::string text;
};

std::vector<ContentLine> contentLines(const std::string& text) {
  std::vector<ContentLine> lines;
  std::istringstream in(text);
  std::string line;
  long number = 0;
  while (std::getline(in, line)) {
    ++number;
    const std::size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    line = trimmed(line);
    if (!line.empty()) lines.push_back({number, line});
  }
  return lines;
}

bool allNumbers(const std::vector<std::string>& fields) {
  double v = 0.0;
  for (const std::string& f : fields) {
    if (!toNumber(f, v)) return false;
  }
  return true;
}

// A header names its columns: none of its fields is a number. (A first line such as
// "1 2x" is a bad point, not a header.)
bool isHeader(const std::string& line) {
  double v = 0.0;
  for (const std::string& f : fieldsOf(line)) {
    if (toNumber(f, v)) return false;
  }
  return true;
}

// Text without a leading UTF-8 byte-order mark.
std::string withoutByteOrderMark(const std::string& text) {
  return text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? text.substr(3) : text;
}

bool looksLikeJson(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string::npos && text[first] == '[';
}

JsonValue parseJsonDocument(const std::string& text, const std::string& name) {
  try {
    return JsonValue::parse(text);
  } catch (const JsonParseError& e) {
    failAt(name, e.line(), std::string(e.what()) + " (column " + std::to_string(e.column()) + ")");
  }
}

PointFile parseJsonPoints(const std::string& text, const std::string& name) {
  const JsonValue doc = parseJsonDocument(text, name);
  if (!doc.isArray()) failAt(name, doc.line(), "expected a JSON array of [x, y] pairs");
  PointFile file;
  std::size_t columns = 0;
  for (const JsonValue& item : doc.items()) {
    const bool shaped = item.isArray() && (item.size() == 2 || item.size() == 3);
    bool numeric = shaped;
    for (std::size_t i = 0; numeric && i < item.size(); ++i) numeric = item[i].isNumber();
    if (!numeric) failAt(name, item.line(), "expected a pair [x, y] or a triple [x, y, weight]");
    if (columns == 0) columns = item.size();
    if (item.size() != columns) {
      failAt(name, item.line(),
             "every entry must have " + std::to_string(columns) + " numbers, as the first has");
    }
    file.points.emplace_back(item[0].asNumber(), item[1].asNumber());
    if (columns == 3) {
      long weight = 0;
      if (!toWeight(item[2].asNumber(), weight)) {
        failAt(name, item.line(), "the weight must be a whole number");
      }
      file.weights.push_back(weight);
    }
  }
  return file;
}

PointFile parseTextPoints(const std::string& text, const std::string& name) {
  PointFile file;
  std::size_t columns = 0;
  long columnsLine = 0;
  bool first = true;
  for (const ContentLine& line : contentLines(text)) {
    const std::vector<std::string> fields = fieldsOf(line.text);
    const bool numeric = allNumbers(fields);
    if (first && isHeader(line.text)) {  // the one optional header line
      first = false;
      continue;
    }
    first = false;
    if (!numeric || fields.size() < 2 || fields.size() > 3) {
      failAt(name, line.number,
             "expected 'x y' or 'x,y' (and an optional weight), got '" + line.text + "'");
    }
    if (columns == 0) {
      columns = fields.size();
      columnsLine = line.number;
    } else if (fields.size() != columns) {
      failAt(name, line.number,
             "expected " + std::to_string(columns) + " columns as on line " +
                 std::to_string(columnsLine) + ", got " + std::to_string(fields.size()));
    }
    double x = 0.0;
    double y = 0.0;
    toNumber(fields[0], x);
    toNumber(fields[1], y);
    file.points.emplace_back(x, y);
    if (columns == 3) {
      double w = 0.0;
      long weight = 0;
      toNumber(fields[2], w);
      if (!toWeight(w, weight)) {
        failAt(name, line.number, "the weight '" + fields[2] + "' is not a whole number");
      }
      file.weights.push_back(weight);
    }
  }
  return file;
}

}  // namespace

std::string readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw InputError("cannot read " + path + ": " + std::strerror(errno));
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) throw InputError("cannot read " + path);
  return content.str();
}

PointFile parsePointText(const std::string& rawText, const std::string& name) {
  const std::string text = withoutByteOrderMark(rawText);
  return looksLikeJson(text) ? parseJsonPoints(text, name) : parseTextPoints(text, name);
}

PointFile readPointFile(const std::string& path) {
  return parsePointText(readWholeFile(path), path);
}

std::vector<long> parseWeightsText(const std::string& rawText, const std::string& name) {
  const std::string text = withoutByteOrderMark(rawText);
  std::vector<long> weights;
  if (looksLikeJson(text)) {
    const JsonValue doc = parseJsonDocument(text, name);
    if (!doc.isArray()) failAt(name, doc.line(), "expected a JSON array of weights");
    for (const JsonValue& item : doc.items()) {
      long weight = 0;
      if (!item.isNumber() || !toWeight(item.asNumber(), weight)) {
        failAt(name, item.line(), "expected a whole-number weight");
      }
      weights.push_back(weight);
    }
    return weights;
  }
  bool first = true;
  for (const ContentLine& line : contentLines(text)) {
    double v = 0.0;
    const bool numeric = toNumber(line.text, v);
    if (first && isHeader(line.text)) {
      first = false;
      continue;
    }
    first = false;
    long weight = 0;
    if (!numeric || !toWeight(v, weight)) {
      failAt(name, line.number, "expected one whole-number weight, got '" + line.text + "'");
    }
    weights.push_back(weight);
  }
  return weights;
}

std::vector<long> readWeightsFile(const std::string& path) {
  return parseWeightsText(readWholeFile(path), path);
}

}  // namespace ptmatch::cli
