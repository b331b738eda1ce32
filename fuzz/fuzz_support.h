// Shared pieces of the fuzz targets: a check that aborts with a message (so that libFuzzer
// records the input), and readers that turn fuzz bytes into points, numbers and ranges
// which mostly stay in a useful domain and sometimes take hostile values (NaN, infinities,
// 1e300, the largest double).
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/attention.h"
#include "mvbase/geometry.h"

/// Aborts with the failed condition, its file and line: a broken invariant is a finding.
#define FUZZ_CHECK(cond)                                                                   \
  do {                                                                                     \
    if (!(cond)) {                                                                         \
      std::fprintf(stderr, "FUZZ_CHECK failed: %s at %s:%d\n", #cond, __FILE__, __LINE__); \
      std::abort();                                                                        \
    }                                                                                      \
  } while (0)

namespace fuzz_support {

/// One of the values that break naive arithmetic.
inline double hostileDouble(FuzzedDataProvider& in) {
  static const double kValues[] = {std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(),
                                   1e300,
                                   -1e300,
                                   std::numeric_limits<double>::max(),
                                   std::numeric_limits<double>::denorm_min(),
                                   0.0,
                                   -0.0,
                                   1e-300,
                                   4294967296.0,
                                   -2147483649.0};
  return kValues[in.ConsumeIntegralInRange<std::size_t>(0, std::size(kValues) - 1)];
}

/// A number: mostly a multiple of 1/16 in [-scale, scale], rarely a hostile value or the
/// raw bits of a double.
inline double number(FuzzedDataProvider& in, double scale = 64.0) {
  const unsigned kind = in.ConsumeIntegral<std::uint8_t>();
  if (kind < 240) return in.ConsumeIntegralInRange<int>(-1024, 1024) * (scale / 1024.0);
  if (kind < 252) return hostileDouble(in);
  std::uint64_t bits = in.ConsumeIntegral<std::uint64_t>();
  double v;
  static_assert(sizeof v == sizeof bits, "double is 64 bits");
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

/// A point whose coordinates come from number().
inline mvVector<2> point(FuzzedDataProvider& in, double scale = 64.0) {
  const double x = number(in, scale);
  const double y = number(in, scale);
  return mvVector<2>(x, y);
}

/// Up to maxCount points.
inline std::vector<mvVector<2>> points(FuzzedDataProvider& in, std::size_t maxCount,
                                       double scale = 64.0) {
  const std::size_t n = in.ConsumeIntegralInRange<std::size_t>(0, maxCount);
  std::vector<mvVector<2>> out;
  out.reserve(n);
  for (std::size_t i = 0; i < n && in.remaining_bytes() > 0; ++i) out.push_back(point(in, scale));
  return out;
}

/// A range of any kind; the ends come from number(), so NaN ends occur.
inline mvRange range(FuzzedDataProvider& in, double scale) {
  const double a = number(in, scale);
  const double b = number(in, scale);
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      return mvRange(a, b);
    case 1:
      return mvRange(a, b, mvRangeDefs::eNormal);
    case 2:
      return mvRange(a, b, mvRangeDefs::eFull);
    default:
      return mvRange(std::fmin(a, b), std::fmax(a, b));
  }
}

/// An angle range (ends in degrees from number()) of any kind.
inline mvAngleRange angleRange(FuzzedDataProvider& in) {
  const mvRadian a = mvDegree(number(in, 200.0));
  const mvRadian b = mvDegree(number(in, 200.0));
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      return mvAngleRange(a, b, false);
    case 1:
      return mvAngleRange(a, b, mvRangeDefs::eNormal);
    case 2:
      return mvAngleRange(a, b, mvRangeDefs::eFull);
    default:
      return a < b ? mvAngleRange(a, b, false) : mvAngleRange(b, a, false);
  }
}

/// A similarity pose (rotation, scale, translation), now and then an arbitrary affine one.
inline mvXform<2> pose(FuzzedDataProvider& in) {
  if (in.ConsumeIntegralInRange<int>(0, 7) != 0) {
    const mvRadian a = mvDegree(in.ConsumeIntegralInRange<int>(-180, 180));
    const double s = in.ConsumeIntegralInRange<int>(1, 40) / 10.0;
    const double tx = number(in);
    const double ty = number(in);
    return mvXform<2>(mvVector<2>(tx, ty), a, a, s, s);
  }
  const double a00 = number(in, 4.0);
  const double a01 = number(in, 4.0);
  const double a10 = number(in, 4.0);
  const double a11 = number(in, 4.0);
  const double tx = number(in);
  const double ty = number(in);
  return mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty));
}

/// Stores a value, loads the bytes into a fresh value and stores that again; the two byte
/// strings must agree (loading reads back what storing wrote).
template <typename T, typename Make>
void checkStoreLoadStore(T& value, Make make) {
  mvMemoryArchive first;
  first || value;
  T again = make();
  mvMemoryArchive in(first.bytes());
  in || again;
  FUZZ_CHECK(in.atEnd());
  mvMemoryArchive second;
  second || again;
  FUZZ_CHECK(first.bytes() == second.bytes());
}

/// Bounds the time of one input: the searches poll mvAttention::check(), and after this
/// many polls the run is interrupted (mvAttention::Interrupted is an accepted outcome).
/// A long step between two polls is bounded by a deadline of kSeconds as well (its
/// mvAttention::TimedOut is an Interrupted too).
class PollBudget {
 public:
  static constexpr double kSeconds = 0.25;
  explicit PollBudget(long polls) : deadline_(kSeconds) {
    remaining_ = polls;
    previous_ = mvAttention::setPoll(&PollBudget::poll);
  }
  ~PollBudget() {
    mvAttention::setPoll(previous_);
    mvAttention::clear();
  }
  PollBudget(const PollBudget&) = delete;
  PollBudget& operator=(const PollBudget&) = delete;

 private:
  static bool poll() { return --remaining_ < 0; }
  static inline long remaining_ = 0;
  mvAttention::Deadline deadline_;
  mvAttention::Poll previous_;
};

}  // namespace fuzz_support
