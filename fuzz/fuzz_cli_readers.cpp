// Feeds fuzzed text to the command-line tool's readers: point files, weights files and
// JSON. The first byte picks the reader, the rest is the text. Each reader either returns
// or throws its own error (InputError, JsonParseError), never anything else; and:
// - a point file's points are finite, and its weights are empty or one per point;
// - a JSON value dumps to text that parses back and dumps to the same text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "errors.h"
#include "fuzz_support.h"
#include "json.h"
#include "pointfile.h"

namespace {

using ptmatch::cli::InputError;
using ptmatch::cli::JsonParseError;
using ptmatch::cli::JsonValue;

void fuzzPointText(const std::string& text) {
  try {
    const ptmatch::cli::PointFile file = ptmatch::cli::parsePointText(text, "fuzz.txt");
    for (const mvVector<2>& p : file.points) {
      FUZZ_CHECK(std::isfinite(p.x()) && std::isfinite(p.y()));
    }
    FUZZ_CHECK(file.weights.empty() || file.weights.size() == file.points.size());
  } catch (const InputError&) {
  }
}

void fuzzWeightsText(const std::string& text) {
  try {
    ptmatch::cli::parseWeightsText(text, "fuzz.txt");
  } catch (const InputError&) {
  }
}

void fuzzJson(const std::string& text) {
  JsonValue value;
  try {
    value = JsonValue::parse(text);
  } catch (const JsonParseError&) {
    return;
  }
  const std::string dumped = value.dump();
  const JsonValue again = JsonValue::parse(dumped);
  FUZZ_CHECK(again.dump() == dumped);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      fuzzPointText(text);
      break;
    case 1:
      fuzzWeightsText(text);
      break;
    default:
      fuzzJson(text);
      break;
  }
  return 0;
}
