// Training the point matcher from a dot-pattern image and finding the pattern among
// generated data points: a sparse pattern (searched point to point) and a dense block
// (mapped onto its pixel grid, which needs an explicit capture range of about a pitch).
#include <ptmatch/ptmatch.h>

#include <cstdio>
#include <random>
#include <vector>

namespace {

using Cells = std::vector<mvPair<long>>;

// Dots 10 client units apart.
const double kPitch = 10.0;

mvPelBuffer<unsigned char> dotImage(long width, long height, const Cells& cells) {
  mvPelBuffer<unsigned char> image(width, height);
  image.clientFromImageXform(
      mvXform<2>(mvVector<2>(0, 0), mvDegree(0.0), mvDegree(0.0), kPitch, kPitch));
  for (const mvPair<long>& c : cells) image.put(c, 1);
  return image;
}

// The dots under a pose, with measurement noise, one dot left out, and a few stray points
// well away from the pattern.
std::vector<mvVector<2>> measuredPoints(const Cells& cells, const mvXform<2>& pose,
                                        std::size_t leftOut) {
  std::mt19937 rng(42);
  std::normal_distribution<double> noise(0.0, 0.3);
  std::vector<mvVector<2>> data;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i == leftOut) continue;
    const mvVector<2> client(kPitch * static_cast<double>(cells[i].x()),
                             kPitch * static_cast<double>(cells[i].y()));
    const double dx = noise(rng);
    data.push_back(pose * client + mvVector<2>(dx, noise(rng)));
  }
  for (const mvVector<2>& stray :
       {mvVector<2>(-90, 20), mvVector<2>(250, -60), mvVector<2>(140, 260)}) {
    data.push_back(pose * stray);
  }
  return data;
}

void report(const char* title, const mvPointMatcher& matcher, const Cells& cells,
            const std::vector<mvVector<2>>& data, const mvPointMatcherRunParams& params) {
  mvPointMatcherResultSet results;
  matcher.run(data, params, results);
  std::printf("%s: %zu dots, %zu data points, %zu result(s) in %.6f s\n", title, cells.size(),
              data.size(), results.results().size(), results.time());
  for (const mvPointMatcherResult& r : results.results()) {
    const mvXform<2>& pose = r.modelToDataXform();
    std::printf("  pose: translation (%.2f, %.2f), rotation %.2f deg, scales %.4f / %.4f\n",
                pose.trans().x(), pose.trans().y(), mvDegree(pose.rotation()).toDouble(),
                pose.xScale(), pose.yScale());
    std::printf("  coverage %.4f, fit error %.4f\n", r.coverage(), r.fitError());
    const mvPelBuffer_const<long>& labels = r.gridToDataImage();
    std::printf("  data point on each pattern pixel (-1: none):\n");
    for (long y = 0; y < labels.height(); ++y) {
      std::printf("   ");
      for (long x = 0; x < labels.width(); ++x) {
        std::printf("%4ld", r.gridToDataMap(mvPair<long>(x, y) + labels.offset()));
      }
      std::printf("\n");
    }
  }
}

}  // namespace

int main() {
  const mvXform<2> truth(mvVector<2>(120.0, 45.0), mvDegree(8.0), mvDegree(8.0), 1.04, 1.04);
  std::printf("Data made with translation (120, 45), rotation 8 deg, scale 1.04\n\n");

  // Seven dots: sparse, so the matcher searches them point to point. For a sparse pattern
  // the pose maps pattern pixels (not client points) onto the data.
  const Cells sparse = {{0, 0}, {3, 0}, {5, 1}, {1, 2}, {4, 3}, {0, 4}, {2, 4}};
  mvPointMatcher sparseMatcher;
  sparseMatcher.train(dotImage(6, 5, sparse));
  mvPointMatcherRunParams sparseParams;
  sparseParams.scaleUncertainty(mvRange(-0.1, 0.1));
  report("Sparse pattern", sparseMatcher, sparse, measuredPoints(sparse, truth, 2), sparseParams);

  // A 5 x 5 block: dense, so the data are mapped onto the pattern's grid. That mapping
  // needs an explicit capture range of about a pitch, and a scale range that admits the
  // data's pitch.
  Cells block;
  for (long y = 0; y < 5; ++y) {
    for (long x = 0; x < 5; ++x) block.emplace_back(x, y);
  }
  mvPointMatcher denseMatcher;
  denseMatcher.train(dotImage(5, 5, block));
  mvPointMatcherRunParams denseParams;
  denseParams.scaleUncertainty(mvRange(-0.1, 0.1));
  const std::vector<mvVector<2>> denseData = measuredPoints(block, truth, 12);
  std::printf("\n");
  report("Dense block, automatic capture range", denseMatcher, block, denseData, denseParams);
  denseParams.autoCaptureRange(false);
  denseParams.captureRange(1.2 * kPitch);
  report("Dense block, capture range 12", denseMatcher, block, denseData, denseParams);
  std::printf(
      "  (a dense match's fit error is the mean squared distance between each data point, "
      "mapped back to client units, and its pixel position)\n");
  return 0;
}
