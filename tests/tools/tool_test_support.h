// Helpers of the tool's tests: run a command line in-process, keep files in a fresh
// directory, read the JSON a command printed.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "common/seeded_random.h"
#include "json.h"
#include "mvbase/geometry.h"

namespace tool_test {

/// What one run of the program gave.
struct Outcome {
  int status;
  std::string out;
  std::string err;
};

/// Runs `ptmatch ARGS...` in-process.
inline Outcome run(const std::vector<std::string>& args) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = ptmatch::cli::runCommandLine(args, out, err);
  return {status, out.str(), err.str()};
}

/// The JSON object a run printed (the test fails when it is not one).
inline ptmatch::cli::JsonValue json(const Outcome& outcome) {
  try {
    return ptmatch::cli::JsonValue::parse(outcome.out);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "not JSON: " << e.what() << "\n" << outcome.out;
    return ptmatch::cli::JsonValue::object();
  }
}

/// True when the error output is exactly one line starting "ptmatch: ".
inline bool isOneLineMessage(const std::string& err) {
  return err.rfind("ptmatch: ", 0) == 0 && err.find('\n') == err.size() - 1;
}

/// A fresh directory for one test's files, removed afterwards.
class Files {
 public:
  Files() {
    static std::atomic<int> counter{0};
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = std::filesystem::path(::testing::TempDir()) /
           ("ptmatch-tool-" + std::string(info ? info->name() : "test") + "-" +
            std::to_string(counter++));
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  ~Files() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  /// Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    const std::string p = path(name);
    std::ofstream(p, std::ios::binary) << content;
    return p;
  }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }
  /// The content of a file, or "" when it does not exist.
  std::string read(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
  }

 private:
  std::filesystem::path dir_;
};

}  // namespace tool_test

namespace tool_test {

/// Points as the text of a point file, exactly (17 significant digits).
inline std::string pointText(const std::vector<mvVector<2>>& points) {
  std::string text = "# x y\n";
  char line[100];
  for (const mvVector<2>& p : points) {
    std::snprintf(line, sizeof line, "%.17g %.17g\n", p.x(), p.y());
    text += line;
  }
  return text;
}

/// A similarity: rotation in degrees, scale, translation.
inline mvXform<2> similarity(double degrees, double scale, double tx, double ty) {
  const double a = degrees * 3.141592653589793 / 180.0;
  return mvXform<2>(mvMatrix<2>(scale * std::cos(a), -scale * std::sin(a), scale * std::sin(a),
                                scale * std::cos(a)),
                    mvVector<2>(tx, ty));
}

/// n points spread uniformly over [0, extent) x [0, extent), the same from a seed everywhere.
inline std::vector<mvVector<2>> spreadPoints(std::size_t n, double extent, std::uint32_t seed) {
  seeded_random::SeededRandom random(seed);
  std::vector<mvVector<2>> points;
  for (std::size_t i = 0; i < n; ++i) {
    const double x = random.uniform(0.0, extent);
    const double y = random.uniform(0.0, extent);
    points.emplace_back(x, y);
  }
  return points;
}

}  // namespace tool_test
