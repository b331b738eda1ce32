// Fits the transforms to fuzzed point pairs and drives the numerics kit with fuzzed
// matrices. Allowed outcomes besides success: the fitter's Errors and mvMathError (the
// matrix errors derive from it) for pairs that determine no transform, BadArgs for lists of
// unequal length, mvAssertionError for an index or size outside a matrix. Invariants:
// - a failed fit of mv2PtMatchTm leaves both of its transforms as they were;
// - after a successful fit of mv2PtMatchTm or mv3PtMatchTm whose numbers are finite and
//   well conditioned, b2a undoes a2b;
// - pairs made exactly by a known similarity give that similarity back from mv2PtMatchTm;
// - every object stores, loads and stores to the same bytes.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/fitter.h"
#include "ptmatch/matext.h"
#include "ptmatch/pinv.h"
#include "ptmatch/tm.h"

namespace {

constexpr std::size_t kMaxPairs = 12;
constexpr long kMaxMatrixSide = 7;

bool finite(const mvXform<2>& x) {
  const mvMatrix<2>& m = x.matrix();
  return std::isfinite(m.element(0, 0)) && std::isfinite(m.element(0, 1)) &&
         std::isfinite(m.element(1, 0)) && std::isfinite(m.element(1, 1)) &&
         std::isfinite(x.trans().x()) && std::isfinite(x.trans().y());
}

// True when the linear part is far from singular and the numbers are moderate, so that
// the round trip a2b then b2a keeps its precision.
bool wellConditioned(const mvXform<2>& x) {
  if (!finite(x)) return false;
  const mvMatrix<2>& m = x.matrix();
  const double norm = std::fabs(m.element(0, 0)) + std::fabs(m.element(0, 1)) +
                      std::fabs(m.element(1, 0)) + std::fabs(m.element(1, 1));
  const double det = std::fabs(m.determinant());
  return norm < 1e6 && norm > 1e-6 && det > 1e-6 * norm * norm && x.trans().len() < 1e6;
}

void checkRoundTrip2(const mv2PtMatchTm& tm) {
  if (!wellConditioned(tm.a2bXform())) return;
  for (const mvVector<2>& p : {mvVector<2>(0, 0), mvVector<2>(3, -7), mvVector<2>(-50, 20)}) {
    const mvVector<2> back = tm.b2a(tm.a2b(p));
    FUZZ_CHECK((back - p).len() <= 1e-6 * (1.0 + p.len()));
  }
}

void fuzzPtMatchTm(FuzzedDataProvider& in) {
  mv2PtMatchTm tm;
  if (in.ConsumeBool()) {
    // Exact pairs of a known similarity: the fit must find it.
    const mvRadian turn = mvDegree(in.ConsumeIntegralInRange<int>(-180, 180));
    const double s = in.ConsumeIntegralInRange<int>(1, 40) / 10.0;
    const mvVector<2> shift(in.ConsumeIntegralInRange<int>(-100, 100),
                            in.ConsumeIntegralInRange<int>(-100, 100));
    const mvXform<2> truth(shift, turn, turn, s, s);
    std::vector<mvVector<2>> a;
    std::vector<mvVector<2>> b;
    const std::size_t n = in.ConsumeIntegralInRange<std::size_t>(0, kMaxPairs);
    for (std::size_t i = 0; i < n; ++i) {
      const mvVector<2> p(in.ConsumeIntegralInRange<int>(-20, 20),
                          in.ConsumeIntegralInRange<int>(-20, 20));
      a.push_back(p);
      b.push_back(truth * p);
    }
    const long dof = in.ConsumeIntegralInRange<long>(4, 6);
    try {
      tm.fit(a, b, dof);
    } catch (const mvLSPointToPointFitter::Errors&) {
      return;
    } catch (const mvMathError&) {
      return;
    }
    if (!wellConditioned(truth)) return;
    for (const mvVector<2>& p : a) {
      FUZZ_CHECK((tm.a2b(p) - truth * p).len() <= 1e-6 * (1.0 + (truth * p).len()));
    }
    checkRoundTrip2(tm);
    return;
  }

  const std::vector<mvVector<2>> a = fuzz_support::points(in, kMaxPairs);
  std::vector<mvVector<2>> b = fuzz_support::points(in, kMaxPairs);
  const long dof = in.ConsumeIntegralInRange<long>(-2, 8);
  try {
    tm.update(a, b);
  } catch (const mv2PtMatchTm::BadArgs&) {
    FUZZ_CHECK(a.size() != b.size());
    b.resize(a.size());
    tm.update(a, b);
  }
  const mvXform<2> a2bBefore = tm.a2bXform();
  const mvXform<2> b2aBefore = tm.b2aXform();
  try {
    tm.fit(dof);
  } catch (const mvLSPointToPointFitter::Errors&) {
    FUZZ_CHECK(tm.a2bXform() == a2bBefore && tm.b2aXform() == b2aBefore);
    return;
  } catch (const mvMathError&) {
    FUZZ_CHECK(tm.a2bXform() == a2bBefore && tm.b2aXform() == b2aBefore);
    return;
  }
  checkRoundTrip2(tm);
  fuzz_support::checkStoreLoadStore(tm, [] { return mv2PtMatchTm(); });
  try {
    tm.rotate(mvDegree(fuzz_support::number(in, 360.0)));
    tm.translate(fuzz_support::point(in));
    tm.scale(fuzz_support::point(in, 4.0));
    checkRoundTrip2(tm);
  } catch (const mvMathError&) {
  }
}

void fuzzPerspective(FuzzedDataProvider& in) {
  const std::vector<mvVector<2>> a = fuzz_support::points(in, kMaxPairs);
  const std::vector<mvVector<2>> b = fuzz_support::points(in, kMaxPairs);
  mv2PTm tm;
  try {
    tm.fit(a, b);
  } catch (const mv2PTm::BadArgs&) {
    FUZZ_CHECK(a.size() != b.size());
    return;
  } catch (const mvMathError&) {
    return;
  }
  fuzz_support::checkStoreLoadStore(tm, [] { return mv2PTm(); });
  (void)tm.a2b(fuzz_support::point(in));
  (void)tm.b2a(fuzz_support::point(in));
  try {
    (void)tm.a2bXform();
    tm.rotate(mvDegree(fuzz_support::number(in, 360.0)));
    tm.translate(fuzz_support::point(in));
  } catch (const mvLSPointToPointFitter::Errors&) {
  } catch (const mvMathError&) {
  }
}

void fuzz3d(FuzzedDataProvider& in) {
  const std::size_t n = in.ConsumeIntegralInRange<std::size_t>(0, kMaxPairs);
  std::vector<mvVector<3>> a;
  std::vector<mvVector<3>> b;
  for (std::size_t i = 0; i < n; ++i) {
    a.emplace_back(fuzz_support::number(in), fuzz_support::number(in), fuzz_support::number(in));
    b.emplace_back(fuzz_support::number(in), fuzz_support::number(in), fuzz_support::number(in));
  }
  if (in.ConsumeBool() && !b.empty()) b.pop_back();
  mv3PtMatchTm tm;
  try {
    tm.fit(a, b);
  } catch (const mv3PtMatchTm::BadArgs&) {
    FUZZ_CHECK(a.size() != b.size());
    return;
  } catch (const mvMathError&) {
    return;
  }
  fuzz_support::checkStoreLoadStore(tm, [] { return mv3PtMatchTm(); });
  (void)tm.a2b(mvVector<3>(1, 2, 3));
  try {
    tm.rotateOnX(mvDegree(fuzz_support::number(in, 360.0)));
    tm.scale(fuzz_support::number(in, 4.0));
  } catch (const mvMathError&) {
  }
}

void fuzzMatrix(FuzzedDataProvider& in) {
  const long rows = in.ConsumeIntegralInRange<long>(0, kMaxMatrixSide);
  const long cols = in.ConsumeBool() ? rows : in.ConsumeIntegralInRange<long>(0, kMaxMatrixSide);
  mvMatrixExt m(rows, cols);
  for (long r = 0; r < rows; ++r) {
    for (long c = 0; c < cols; ++c) m.element(r, c, fuzz_support::number(in, 8.0));
  }
  fuzz_support::checkStoreLoadStore(m, [] { return mvMatrixExt(); });
  try {
    if (in.ConsumeBool()) {
      mvMatrixExt lu = m;
      std::vector<long> indx;
      lu.ludcmp(indx);
      std::vector<double> rhs(static_cast<std::size_t>(rows), 1.0);
      lu.lubksb(indx, rhs);
    } else {
      mvMatrixExt inverse = m;
      mvMatrixExt rhs(in.ConsumeBool() ? rows : in.ConsumeIntegralInRange<long>(0, kMaxMatrixSide),
                      in.ConsumeIntegralInRange<long>(0, 3));
      const bool shapesFit = rows == cols && rhs.rows() == rows;
      try {
        inverse.gaussj(rhs);
        FUZZ_CHECK(shapesFit);
      } catch (const mvAssertionError&) {
        FUZZ_CHECK(!shapesFit);  // a precondition of gaussj, checked with mvAssert
      }
    }
  } catch (const mvMathError&) {
  }

  mvPsuedoInverse fitter(in.ConsumeIntegralInRange<long>(0, kMaxMatrixSide));
  const std::size_t observations = in.ConsumeIntegralInRange<std::size_t>(0, 12);
  for (std::size_t k = 0; k < observations; ++k) {
    std::vector<double> row(static_cast<std::size_t>(fitter.numParams()));
    for (double& v : row) v = fuzz_support::number(in, 8.0);
    fitter.update(row, fuzz_support::number(in, 8.0));
  }
  try {
    const std::vector<double> solution = fitter.fit();
    FUZZ_CHECK(static_cast<long>(solution.size()) == fitter.numParams());
  } catch (const mvMathError&) {
  }
  fuzz_support::checkStoreLoadStore(fitter, [] { return mvPsuedoInverse(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      fuzzPtMatchTm(in);
      break;
    case 1:
      fuzzPerspective(in);
      break;
    case 2:
      fuzz3d(in);
      break;
    default:
      fuzzMatrix(in);
      break;
  }
  return 0;
}
