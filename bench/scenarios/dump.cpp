// ptmatch_scenarios: writes the benchmark scenarios as one JSON object, so that scripts in
// other languages (bench/compare.py) run every tool on exactly the same points.
//
//   ptmatch_scenarios [--count N] [--seed S] [--families a,b,...] [--out FILE]
//
// --count     cases per family (default 10)
// --seed      run seed (default 1); the same seed gives the same points everywhere
// --families  comma-separated family names (default: every point and grid family)
// --out       file to write (default: standard output)
//
// Output: {"seed", "count", "points": [...], "grids": [...]}; poses are 2 x 3 arrays
// [[a00, a01, tx], [a10, a11, ty]], points [x, y], nodes [column, row] (null for clutter).
// A point case's "instances" holds the pose of every instance of the model in the data
// ("truth" is the first), its ranges' "max_results" the number of results to ask for.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "scenarios.h"

namespace {

using ptmatch_bench::GridScenario;
using ptmatch_bench::PointScenario;

std::string number(double v) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.17g", v);
  return buffer;
}

std::string vec(const mvVector<2>& p) { return "[" + number(p.x()) + "," + number(p.y()) + "]"; }

std::string points(const ptmatch_bench::Points& list) {
  std::string out = "[";
  for (std::size_t i = 0; i < list.size(); ++i) out += (i ? "," : "") + vec(list[i]);
  return out + "]";
}

std::string pose(const mvXform<2>& x) {
  const mvMatrix<2>& m = x.matrix();
  return "[[" + number(m.element(0, 0)) + "," + number(m.element(0, 1)) + "," +
         number(x.trans().x()) + "],[" + number(m.element(1, 0)) + "," + number(m.element(1, 1)) +
         "," + number(x.trans().y()) + "]]";
}

std::string quoted(const std::string& s) { return "\"" + s + "\""; }

std::string pointJson(const PointScenario& s) {
  std::ostringstream o;
  const ptmatch_bench::SearchRanges& r = s.ranges;
  o << "{\"family\":" << quoted(s.family) << ",\"index\":" << s.index
    << ",\"model\":" << points(s.model) << ",\"data\":" << points(s.data)
    << ",\"truth\":" << pose(s.truth) << ",\"instances\":[";
  for (std::size_t i = 0; i < s.instances.size(); ++i) o << (i ? "," : "") << pose(s.instances[i]);
  o << "],\"truth_map\":[";
  for (std::size_t i = 0; i < s.truthMap.size(); ++i) o << (i ? "," : "") << s.truthMap[i];
  o << "],\"symmetry\":" << s.symmetry << ",\"noise\":" << number(s.noise)
    << ",\"missing\":" << s.missing << ",\"clutter\":" << s.clutter << ",\"image\":["
    << number(s.imageWidth) << "," << number(s.imageHeight) << "],\"ranges\":{"
    << "\"full_rotation\":" << (r.fullRotation ? "true" : "false") << ",\"rotation\":["
    << number(r.rotationLo) << "," << number(r.rotationHi) << "],\"scale\":[" << number(r.scaleLo)
    << "," << number(r.scaleHi) << "],\"start\":" << vec(r.start)
    << ",\"translation\":" << number(r.translation) << ",\"min_coverage\":" << number(r.minCoverage)
    << ",\"max_results\":" << r.maxResults << "}}";
  return o.str();
}

std::string gridJson(const GridScenario& g) {
  std::ostringstream o;
  o << "{\"family\":" << quoted(g.family) << ",\"index\":" << g.index
    << ",\"points\":" << points(g.points) << ",\"nodes\":[";
  for (std::size_t i = 0; i < g.nodes.size(); ++i) {
    o << (i ? "," : "");
    if (g.nodes[i].x() == ptmatch_bench::kNoNode) {
      o << "null";
    } else {
      o << "[" << g.nodes[i].x() << "," << g.nodes[i].y() << "]";
    }
  }
  o << "],\"staggered\":" << (g.staggered ? "true" : "false") << ",\"columns\":" << g.columns
    << ",\"rows\":" << g.rows << ",\"xv\":" << vec(g.xv) << ",\"yv\":" << vec(g.yv)
    << ",\"pitch\":" << number(g.pitch) << ",\"rotation\":" << number(g.rotation)
    << ",\"scale\":" << number(g.scale) << ",\"perspective\":" << number(g.perspective)
    << ",\"noise\":" << number(g.noise) << ",\"missing\":" << g.missing
    << ",\"clutter\":" << g.clutter << ",\"image\":[" << number(g.imageWidth) << ","
    << number(g.imageHeight) << "]}";
  return o.str();
}

bool contains(const std::vector<std::string>& list, const std::string& name) {
  for (const std::string& s : list) {
    if (s == name) return true;
  }
  return false;
}

std::vector<std::string> splitCommas(const std::string& s) {
  std::vector<std::string> out;
  std::stringstream in(s);
  for (std::string item; std::getline(in, item, ',');) {
    if (!item.empty()) out.push_back(item);
  }
  return out;
}

int usage() {
  std::cerr << "usage: ptmatch_scenarios [--count N] [--seed S] [--families a,b,...] "
               "[--out FILE]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  long count = 10;
  unsigned long seed = 1;
  std::vector<std::string> families;
  std::string out;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (i + 1 >= argc) return usage();
    const std::string value = argv[++i];
    if (arg == "--count") {
      count = std::strtol(value.c_str(), nullptr, 10);
    } else if (arg == "--seed") {
      seed = std::strtoul(value.c_str(), nullptr, 10);
    } else if (arg == "--families") {
      families = splitCommas(value);
    } else if (arg == "--out") {
      out = value;
    } else {
      return usage();
    }
  }
  if (count < 1) return usage();
  const auto& pointNames = ptmatch_bench::pointFamilies();
  const auto& gridNames = ptmatch_bench::gridFamilies();
  if (families.empty()) {
    families = pointNames;
    families.insert(families.end(), gridNames.begin(), gridNames.end());
  }
  std::ostringstream json;
  json << "{\"seed\":" << seed << ",\"count\":" << count << ",\"points\":[";
  bool first = true;
  try {
    for (const std::string& family : families) {
      if (!contains(pointNames, family)) continue;
      for (long i = 0; i < count; ++i) {
        json << (first ? "" : ",\n")
             << pointJson(
                    ptmatch_bench::makePointScenario(family, i, static_cast<std::uint32_t>(seed)));
        first = false;
      }
    }
    json << "],\"grids\":[";
    first = true;
    for (const std::string& family : families) {
      if (contains(pointNames, family)) continue;
      for (long i = 0; i < count; ++i) {
        json << (first ? "" : ",\n")
             << gridJson(
                    ptmatch_bench::makeGridScenario(family, i, static_cast<std::uint32_t>(seed)));
        first = false;
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "ptmatch_scenarios: " << e.what() << "\n";
    return 2;
  }
  json << "]}\n";
  if (out.empty()) {
    std::cout << json.str();
  } else {
    std::ofstream file(out);
    file << json.str();
    if (!file) {
      std::cerr << "ptmatch_scenarios: cannot write " << out << "\n";
      return 1;
    }
  }
  return 0;
}
