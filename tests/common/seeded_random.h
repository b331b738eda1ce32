// Seeded random numbers that come out the same with every compiler and standard library,
// for the scenes of the tests, the scenarios of the benchmarks and the command-line tool's
// demonstration. The words come from std::mt19937, whose sequence the standard fixes; they
// become numbers by this class's own formulas, since the standard library's distributions
// differ between implementations. (The normal draws go through std::log, std::sqrt and
// std::cos and so may differ in the last bits between C libraries.)
//
// Header-only and free of the test framework, so that the benchmarks and the tool include
// it from here.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace seeded_random {

/// The generator: one seed, one sequence of draws.
class SeededRandom {
 public:
  /// Seeds the generator.
  explicit SeededRandom(std::uint32_t seed) : engine_(seed) {}

  /// Uniform in [0, 1), 53 random bits from two words.
  double uniform() {
    const std::uint64_t hi = engine_() >> 5;  // 27 bits
    const std::uint64_t lo = engine_() >> 6;  // 26 bits
    return static_cast<double>((hi << 26) | lo) * (1.0 / 9007199254740992.0);
  }
  /// Uniform in [lo, hi).
  double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
  /// Uniform whole number in [lo, hi].
  long between(long lo, long hi) {
    return lo + std::min(hi - lo, static_cast<long>(uniform() * static_cast<double>(hi - lo + 1)));
  }
  /// Standard normal deviate (Box-Muller, one of the pair).
  double normal() {
    const double u = 1.0 - uniform();  // (0, 1]
    const double v = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * kPi * v);
  }
  /// Normal deviate of the given mean and standard deviation.
  double normal(double mean, double sigma) { return mean + sigma * normal(); }
  /// Fisher-Yates shuffle of the given order.
  template <typename T>
  void shuffle(std::vector<T>& v) {
    for (std::size_t i = v.size(); i > 1; --i) {
      const std::size_t j = static_cast<std::size_t>(between(0, static_cast<long>(i) - 1));
      std::swap(v[i - 1], v[j]);
    }
  }

 private:
  static constexpr double kPi = 3.141592653589793;
  std::mt19937 engine_;
};

}  // namespace seeded_random
