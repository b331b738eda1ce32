// The pieces every scenario is made of: case seeds, poses, spaced random point sets, data
// made from a model under its poses. Internal to bench/scenarios.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "scenarios.h"

namespace ptmatch_bench {
namespace detail {

constexpr double kPi = 3.141592653589793;

// Families whose parameters ramp over the cases do so in ten steps, case 0 to case 9,
// and start again at case 10.
constexpr long kRampSteps = 10;

// 0 at case 0 of a ramp, 1 at its last case.
double ramp(long index);

// The seed of one case: FNV-1a over the family name, mixed with the run's seed and the
// case index, so that families and cases are independent of each other.
std::uint32_t caseSeed(std::uint32_t seed, const std::string& family, long index);

// The similarity that turns by `degrees`, scales by `scale` and then moves by translation.
mvXform<2> similarity(double degrees, double scale, const mvVector<2>& translation);

struct Box {
  double minX, minY, maxX, maxY;
  mvVector<2> center() const { return mvVector<2>((minX + maxX) / 2.0, (minY + maxY) / 2.0); }
};

// The bounding box of a non-empty point set.
Box boundsOf(const Points& points);

Points transformed(const mvXform<2>& pose, const Points& points);

// Up to n points uniform in a side x side square, none nearer than spacing to another.
Points spacedPoints(Random& rng, long n, double spacing, double side);

// Side of the square that holds n points spaced `spacing` apart at a comfortable density
// (one point per (2 spacing)^2 on average).
double sideFor(long n, double spacing);

// Gaussian noise of the given standard deviation per coordinate (none for sigma <= 0).
mvVector<2> gaussianNoise(Random& rng, double sigma);

// A translation that puts the model, turned and scaled, wholly inside the width x height
// image with a margin; the image centre when the model does not fit.
mvVector<2> placeInside(Random& rng, const Points& model, double degrees, double scale,
                        double width, double height, double margin);

// Fills data, truthMap, instances, missing and clutter: the model under every pose of
// s.instances (s.truth alone when it is empty) with noise, except for the points that
// `keep` rejects and `missing` of the others, plus `clutter` uniform points in the image;
// shuffled.
void makeData(Random& rng, PointScenario& s, long missing, long clutter,
              const std::function<bool(const mvVector<2>&)>& keep);

// Keeps every point.
bool anywhere(const mvVector<2>&);

// Ranges of rotation +-degrees and relative scale +-scale, translation free.
SearchRanges similarityRanges(double degrees, double scale, double minCoverage);

}  // namespace detail
}  // namespace ptmatch_bench
