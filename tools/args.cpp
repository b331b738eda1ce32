#include "args.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "errors.h"

namespace ptmatch::cli {

namespace {

const OptionSpec* findSpec(const std::vector<OptionSpec>& specs, const std::string& name) {
  for (const OptionSpec& entry : specs) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

std::string quoted(const std::string& text) { return "'" + text + "'"; }

}  // namespace

bool ParsedOptions::has(const std::string& name) const {
  for (const auto& entry : entries_) {
    if (entry.first == name) return true;
  }
  return false;
}

std::string ParsedOptions::value(const std::string& name, const std::string& fallback) const {
  for (const auto& entry : entries_) {
    if (entry.first == name) return entry.second;
  }
  return fallback;
}

std::string ParsedOptions::required(const std::string& name) const {
  if (!has(name)) throw UsageError("missing option " + name);
  return value(name);
}

void ParsedOptions::add(const std::string& name, const std::string& value) {
  entries_.emplace_back(name, value);
}

ParsedOptions parseOptions(const std::vector<std::string>& args,
                           const std::vector<OptionSpec>& specs, const std::string& command) {
  ParsedOptions options;
  const std::string seeHelp = " (see 'ptmatch " + command + " --help')";
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (word.size() < 3 || word.compare(0, 2, "--") != 0) {
      throw UsageError("unexpected argument " + quoted(word) + " for 'ptmatch " + command + "'" +
                       seeHelp);
    }
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const OptionSpec* entry = findSpec(specs, name);
    if (entry == nullptr) {
      throw UsageError("unknown option " + name + " for 'ptmatch " + command + "'" + seeHelp);
    }
    if (options.has(name)) throw UsageError("option " + name + " given twice");
    if (!entry->takesValue) {
      if (equals != std::string::npos) throw UsageError("option " + name + " takes no value");
      options.add(name, "");
      continue;
    }
    if (equals != std::string::npos) {
      options.add(name, word.substr(equals + 1));
    } else if (i + 1 < args.size()) {
      options.add(name, args[++i]);
    } else {
      throw UsageError("option " + name + " needs a value" + seeHelp);
    }
  }
  return options;
}

std::string trimmed(const std::string& text) {
  const char* blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  const std::size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

std::vector<std::string> splitAt(const std::string& text, char separator) {
  std::vector<std::string> fields;
  std::size_t start = 0;
  for (;;) {
    const std::size_t at = text.find(separator, start);
    fields.push_back(text.substr(start, at - start));
    if (at == std::string::npos) return fields;
    start = at + 1;
  }
}

double parseNumber(const std::string& text, const std::string& what) {
  const std::string t = trimmed(text);
  if (t.empty()) throw UsageError(what + ": expected a number, got " + quoted(text));
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(t.c_str(), &end);
  if (end != t.c_str() + t.size() || !std::isfinite(v) || errno == ERANGE) {
    throw UsageError(what + ": expected a finite number, got " + quoted(text));
  }
  return v;
}

long parseWholeNumber(const std::string& text, const std::string& what) {
  const std::string t = trimmed(text);
  char* end = nullptr;
  errno = 0;
  const long long v = t.empty() ? 0 : std::strtoll(t.c_str(), &end, 10);
  if (t.empty() || end != t.c_str() + t.size() || errno == ERANGE || v < INT32_MIN ||
      v > INT32_MAX) {
    throw UsageError(what + ": expected a whole number, got " + quoted(text));
  }
  return static_cast<long>(v);
}

bool parseNumberOr(const std::string& text, const std::string& word, const std::string& what,
                   double& value) {
  if (trimmed(text) == word) return false;
  try {
    value = parseNumber(text, what);
  } catch (const UsageError&) {
    throw UsageError(what + ": expected a number or '" + word + "', got " + quoted(text));
  }
  return true;
}

std::pair<double, double> parseInterval(const std::string& text, const std::string& what) {
  const std::vector<std::string> fields = splitAt(text, ':');
  if (fields.size() != 2) {
    throw UsageError(what + ": expected LO:HI, got " + quoted(text));
  }
  const double lo = parseNumber(fields[0], what + " (LO)");
  const double hi = parseNumber(fields[1], what + " (HI)");
  if (lo > hi) throw UsageError(what + ": LO must not exceed HI, got " + quoted(text));
  return {lo, hi};
}

mvVector<2> parseVector(const std::string& text, const std::string& what) {
  const std::vector<std::string> fields = splitAt(text, ',');
  if (fields.size() != 2) throw UsageError(what + ": expected X,Y, got " + quoted(text));
  return mvVector<2>(parseNumber(fields[0], what + " (X)"), parseNumber(fields[1], what + " (Y)"));
}

mvXform<2> parsePose(const std::string& text, const std::string& what) {
  const std::vector<std::string> fields = splitAt(text, ',');
  if (fields.size() != 6) {
    throw UsageError(what + ": expected six numbers a00,a01,a10,a11,tx,ty, got " + quoted(text));
  }
  double v[6];
  const char* names[6] = {"a00", "a01", "a10", "a11", "tx", "ty"};
  for (int i = 0; i < 6; ++i) v[i] = parseNumber(fields[i], what + " (" + names[i] + ")");
  const mvXform<2> pose(mvMatrix<2>(v[0], v[1], v[2], v[3]), mvVector<2>(v[4], v[5]));
  if (pose.isSingular()) throw UsageError(what + ": the pose is singular (determinant 0)");
  return pose;
}

mvRange parseTranslationRange(const std::string& text, const std::string& what) {
  if (trimmed(text) == "full") return mvRange::FullRange();
  const auto interval = parseInterval(text, what);
  return mvRange(interval.first, interval.second);
}

mvAngleRange parseRotationRange(const std::string& text, const std::string& what) {
  if (trimmed(text) == "full") return mvAngleRange::FullRange();
  const auto interval = parseInterval(text, what);
  if (interval.second - interval.first >= 360.0) return mvAngleRange::FullRange();
  return mvAngleRange(mvDegree(interval.first), mvDegree(interval.second));
}

}  // namespace ptmatch::cli
