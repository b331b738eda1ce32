// Uses the installed headers and libraries: fits a transform, archives it and reads it
// back; then trains a point matcher on a few points and finds them, moved, in the data.
// Exits with 0 when everything agrees.
#include <ptmatch/ptmatch.h>

#include <cmath>
#include <cstdio>
#include <exception>
#include <vector>

namespace {

bool fitAndArchive() {
  const mvXform<2> truth(mvVector<2>(3.0, -2.0), mvRadian(0.25), mvRadian(0.25), 1.5, 1.5);
  mvLSPointToPointFitter fitter;
  for (const mvVector<2>& p :
       {mvVector<2>(0.0, 0.0), mvVector<2>(4.0, 1.0), mvVector<2>(-2.0, 3.0)}) {
    fitter.update(truth * p, p);
  }
  mvXform<2> fitted = fitter.fit(4);

  mvMemoryArchive out;
  out || fitted;
  mvMemoryArchive in(out.bytes());
  mvXform<2> loaded;
  in || loaded;

  const bool ok = loaded == fitted && std::fabs(loaded.xScale() - 1.5) < 1e-9 && in.atEnd();
  std::printf("ptmatch consumer: scale %.6f, %zu archive bytes: %s\n", loaded.xScale(),
              out.bytes().size(), ok ? "ok" : "MISMATCH");
  return ok;
}

// Eight points, the data the same points turned by 5 degrees and moved by (40, -25): the
// best result maps every model point onto its own data point.
bool trainAndRun() {
  const std::vector<mvVector<2>> model = {mvVector<2>(0.0, 0.0),   mvVector<2>(50.0, 4.0),
                                          mvVector<2>(97.0, 12.0), mvVector<2>(20.0, 61.0),
                                          mvVector<2>(71.0, 48.0), mvVector<2>(8.0, 100.0),
                                          mvVector<2>(55.0, 93.0), mvVector<2>(101.0, 77.0)};
  const mvXform<2> truth(mvVector<2>(40.0, -25.0), mvDegree(5.0), mvDegree(5.0), 1.0, 1.0);
  std::vector<mvVector<2>> data;
  for (const mvVector<2>& p : model) data.push_back(truth * p);

  mvPointMatcher matcher;
  matcher.train(model, mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherRunParams params;
  params.minCoverage(0.9);
  mvPointMatcherResultSet results;
  matcher.run(data, params, results);

  bool ok = !results.results().empty();
  if (ok) {
    const mvPointMatcherResult& best = results.results().front();
    const mvVector<2> moved = best.modelToDataXform().trans();
    std::vector<long> identity;
    for (long i = 0; i < static_cast<long>(model.size()); ++i) identity.push_back(i);
    ok = best.coverage() == 1.0 && best.modelToDataMap() == identity &&
         std::fabs(moved.x() - 40.0) < 1e-6 && std::fabs(moved.y() + 25.0) < 1e-6;
    std::printf("ptmatch consumer: %zu results, coverage %.3f, translation (%.3f, %.3f): %s\n",
                results.results().size(), best.coverage(), moved.x(), moved.y(),
                ok ? "ok" : "MISMATCH");
  } else {
    std::printf("ptmatch consumer: the matcher found nothing: MISMATCH\n");
  }
  return ok;
}

}  // namespace

int main() {
  try {
    const bool archived = fitAndArchive();
    const bool matched = trainAndRun();
    return archived && matched ? 0 : 1;
  } catch (const std::exception& e) {
    std::printf("ptmatch consumer: %s\n", e.what());
    return 1;
  }
}
