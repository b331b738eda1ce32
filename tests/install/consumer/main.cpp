// Uses the installed headers and libraries: fits a transform, archives it and reads it
// back. Exits with 0 when everything agrees.
#include <ptmatch/ptmatch.h>

#include <cmath>
#include <cstdio>
#include <vector>

int main() {
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
  return ok ? 0 : 1;
}
