// The grid's rotation from the direction histogram of the neighbour links: the histogram
// is smoothed, read over the angle tolerance at both axis directions, and the peak of
// that profile is refined by a (doubled) parabolic offset.
#include <cmath>
#include <vector>

#include "ptgdmap/internal.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// Smoothing weights for the offsets -3 ... +3.
constexpr long kSmoothing[7] = {1, 2, 4, 8, 4, 2, 1};

/// The circularly smoothed histogram H.
std::vector<long> smoothHistogram(const std::vector<long>& h) {
  std::vector<long> smoothed(static_cast<std::size_t>(kDirectionBins), 0);
  for (long j = 0; j < kDirectionBins; ++j) {
    long sum = 0;
    for (long o = -3; o <= 3; ++o) {
      const long k = ((j + o) % kDirectionBins + kDirectionBins) % kDirectionBins;
      sum += kSmoothing[o + 3] * h[static_cast<std::size_t>(k)];
    }
    smoothed[static_cast<std::size_t>(j)] = sum;
  }
  return smoothed;
}

/// Brings an index that the single wrap left outside 0..359 into range; only tolerances
/// wider than a turn get here.
long intoRange(long i) { return ((i % kDirectionBins) + kDirectionBins) % kDirectionBins; }

/// Index along the first axis: raised by 360 below 0, lowered by 360 at 360 or more.
long firstAxisIndex(long i) {
  if (i < 0) i += kDirectionBins;
  if (i >= kDirectionBins) i -= kDirectionBins;
  return intoRange(i);
}

/// Index along the second axis: clamped to 0 below 0 (not wrapped, unlike the first
/// axis), lowered by 360 at 360 or more.
long secondAxisIndex(long i) {
  if (i < 0) i = 0;
  if (i >= kDirectionBins) i -= kDirectionBins;
  return intoRange(i);
}

/// The profile P over k = lo ... hi, stored at k - lo.
std::vector<long> rotationProfile(const GridMapContext& ctx, const std::vector<long>& H, long lo,
                                  long hi) {
  const long ax = static_cast<long>(ctx.alphaX + 0.5);
  const long ay = static_cast<long>(ctx.alphaY + 0.5);
  std::vector<long> profile;
  for (long k = lo; k <= hi; ++k) {
    const long atX = H[static_cast<std::size_t>(firstAxisIndex(k + ax))];
    const long atY = H[static_cast<std::size_t>(secondAxisIndex(k + ay))];
    if (ctx.xv.isNull()) {
      profile.push_back(atY);
    } else if (ctx.yv.isNull()) {
      profile.push_back(atX);
    } else {
      profile.push_back(atX + atY);
    }
  }
  return profile;
}

/// Offset of the profile's peak, refined: the peak search starts at index 1 and runs while
/// i < size - 2, the first maximum winning; when both neighbours lie strictly below, the
/// peak moves by (P[+1] - P[-1]) / (2 P - P[-1] - P[+1]), twice the parabola's vertex
/// offset (kept so on purpose).
double profilePeak(const std::vector<long>& P) {
  const long size = static_cast<long>(P.size());
  // The search starts at index 1 whatever index 0 holds. With two entries that is the
  // peak, and it has no right neighbour to be refined with; a single entry is its own.
  if (size == 1) return 0.0;
  if (size == 2) return 1.0;
  long peak = 1;
  for (long i = 2; i < size - 2; ++i) {
    if (P[static_cast<std::size_t>(i)] > P[static_cast<std::size_t>(peak)]) peak = i;
  }
  double offset = static_cast<double>(peak);
  const long at = P[static_cast<std::size_t>(peak)];
  const long before = P[static_cast<std::size_t>(peak - 1)];
  const long after = P[static_cast<std::size_t>(peak + 1)];
  if (before < at && after < at) {
    const long d = 2 * at - before - after;
    if (d != 0) offset += static_cast<double>(after - before) / static_cast<double>(d);
  }
  return offset;
}

/// Adds theta to a direction, taking 360 off once when the sum is not below 360.
double rotated(double alpha, double theta) {
  double sum = alpha + theta;
  if (sum >= 360.0) sum -= 360.0;
  return sum;
}

}  // namespace

double estimateRotation(GridMapContext& ctx) {
  const std::vector<long> H = smoothHistogram(ctx.histogram);
  const long lo = static_cast<long>(std::floor(mvDegree(ctx.angleTol.start()).toDouble()));
  const long hi = static_cast<long>(std::ceil(mvDegree(ctx.angleTol.end()).toDouble()));
  const std::vector<long> profile = rotationProfile(ctx, H, lo, hi);
  // A tolerance with its end before its start leaves no profile: no rotation then.
  const double theta = profile.empty() ? 0.0 : profilePeak(profile) + static_cast<double>(lo);
  ctx.alphaX = rotated(ctx.alphaX, theta);
  ctx.alphaY = rotated(ctx.alphaY, theta);
  return theta;
}

}  // namespace ptmatch::detail::ptgdmap
