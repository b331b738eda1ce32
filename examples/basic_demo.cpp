// A tour of the base library: fit a pose to measured points, archive it, look at an
// image buffer and interrupt a long loop.
#include <ptmatch/ptmatch.h>

#include <cstdio>
#include <thread>
#include <vector>

namespace {

// Model points carried by a known pose, then measured with a little error.
void fitAPose() {
  const mvXform<2> truth(mvVector<2>(120.0, 45.0), mvDegree(30.0), mvDegree(30.0), 1.25, 1.25);
  const std::vector<mvVector<2>> model{{0, 0}, {40, 0}, {40, 20}, {0, 20}, {20, 10}};
  const std::vector<mvVector<2>> error{
      {0.02, -0.01}, {-0.03, 0.0}, {0.01, 0.02}, {0.0, -0.02}, {0.01, 0.01}};
  mvLSPointToPointFitter fitter;
  for (std::size_t i = 0; i < model.size(); ++i)
    fitter.update(truth * model[i] + error[i], model[i]);

  std::printf("Fitting model-to-image poses to %ld measured points\n", fitter.numPairs());
  for (int dof : {3, 4, 5, 6}) {
    const mvXform<2> pose = fitter.fit(dof);
    std::printf("  dof %d: translation (%.3f, %.3f), rotation %.3f deg, scales %.4f / %.4f\n", dof,
                pose.trans().x(), pose.trans().y(), mvDegree(pose.rotation()).toDouble(),
                pose.xScale(), pose.yScale());
  }

  mvLSPointToPointFitter tooFew;
  tooFew.update(mvVector<2>(1, 1), mvVector<2>(0, 0));
  try {
    tooFew.fit(4);
  } catch (const mvLSPointToPointFitter::Errors& e) {
    std::printf("  one pair only: %s\n", e.what());
  }
}

// A pose and a range stored to bytes and read back.
void archiveValues() {
  mvXform<2> pose(mvVector<2>(1.5, -2.0), mvDegree(90.0), mvDegree(90.0), 2.0, 2.0);
  mvAngleRange rotations(mvDegree(-10.0), mvDegree(10.0));
  std::vector<mvVector<2>> points{{1, 2}, {3, 4}};
  mvMemoryArchive out;
  out || pose || rotations || points;

  mvXform<2> pose2;
  mvAngleRange rotations2;
  std::vector<mvVector<2>> points2;
  mvMemoryArchive in(out.bytes());
  in || pose2 || rotations2 || points2;
  std::printf(
      "\nArchived a pose, an angle range and %zu points in %zu bytes; read back %s\n",
      points.size(), out.bytes().size(),
      pose2 == pose && rotations2 == rotations && points2 == points ? "equal" : "DIFFERENT");

  mvMemoryArchive cut(std::vector<unsigned char>(out.bytes().begin(), out.bytes().begin() + 20));
  try {
    cut || pose2;
  } catch (const mvArchive::EndOfData& e) {
    std::printf("  reading 48 bytes from 20: %s\n", e.what());
  }
}

// An 8-bit image with a dot, a window onto it and the pels read through the offset.
void lookAtAnImage() {
  mvPelBuffer<unsigned char> image(8, 6, 4);
  image.put(5, 3, 200);
  mvPelBuffer<unsigned char> part(image);  // shares the pels
  part.window(4, 2, 3, 3);
  std::printf("\nImage %ldx%ld, row stride %ld; window %ldx%ld at (%ld, %ld):\n", image.width(),
              image.height(), image.rowUpdate(), part.width(), part.height(), part.offset().x(),
              part.offset().y());
  for (long y = 0; y < part.height(); ++y) {
    std::printf("  ");
    for (long x = 0; x < part.width(); ++x)
      std::printf("%4d", part.get(part.offset() + mvPair<long>(x, y)));
    std::printf("\n");
  }
}

// A loop that checks for interruption once per step, stopped from another thread.
void interruptALoop() {
  long steps = 0;
  std::thread requester([] { mvAttention::requestInterruption(); });
  requester.join();
  try {
    for (;;) {
      mvAttention::check();
      ++steps;
    }
  } catch (const mvAttention::Interrupted& e) {
    std::printf("\nLoop stopped after %ld steps: %s\n", steps, e.what());
  }
}

}  // namespace

int main() {
  fitAPose();
  archiveValues();
  lookAtAnImage();
  interruptALoop();
  return 0;
}
