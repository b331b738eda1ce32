// The pseudo-inverse fitter: accumulation of the normal equations, their solution by LU
// decomposition, and persistence.
#include "ptmatch/pinv.h"

#include <cstddef>
#include <utility>

namespace {

const char* const kModule = "ptmatch/pinv";

/// The one archive version of a fitter.
constexpr unsigned long kArchiveVersion = 1100;
/// Line reported by UnknownVersion for a fitter archive of another version; fixed, so that
/// the report stays the same when this file changes.
constexpr int kUnknownVersionLine = 101;

}  // namespace

mvPsuedoInverse::mvPsuedoInverse(long n) { resize(n); }

mvPsuedoInverse::~mvPsuedoInverse() = default;

void mvPsuedoInverse::resize(long n) {
  mvAssert(n >= 0, kModule, __LINE__);
  mvMatrixExt::resize(n, n);
  rhs_.assign(static_cast<std::size_t>(n), 0.0);
}

void mvPsuedoInverse::reset() {
  const long n = numParams();
  for (long i = 0; i < n; ++i) {
    double* row = pointToRow(i);
    for (long j = 0; j < n; ++j) row[j] = 0.0;
  }
  rhs_.assign(rhs_.size(), 0.0);
}

void mvPsuedoInverse::update(const std::vector<double>& row, double value) {
  const long n = numParams();
  mvAssert(static_cast<long>(row.size()) >= n, kModule, __LINE__);
  for (long i = 0; i < n; ++i) {
    double* normalRow = pointToRow(i);
    for (long j = 0; j < n; ++j) normalRow[j] += row[i] * row[j];
    rhs_[i] += row[i] * value;
  }
}

std::vector<double> mvPsuedoInverse::fit() const {
  // Solve on copies, so that the sums stay as they are and more observations can follow.
  mvMatrixExt normal(*this);
  std::vector<double> solution(rhs_);
  std::vector<long> indx;
  normal.ludcmp(indx);
  normal.lubksb(indx, solution);
  return solution;
}

mvArchive& operator||(mvArchive& ar, mvPsuedoInverse& p) {
  unsigned long version = kArchiveVersion;
  ar || version;
  if (version != kArchiveVersion) throw mvArchive::UnknownVersion(kModule, kUnknownVersionLine);
  if (ar.isStoring()) {
    ar || static_cast<mvMatrixExt&>(p);
    ar || p.rhs_;
    return ar;
  }
  // Loading: the normal matrix must be n x n for the n elements of rhs.
  mvMatrixExt normal;
  std::vector<double> rhs;
  ar || normal;
  ar || rhs;
  const long n = static_cast<long>(rhs.size());
  if (normal.rows() != n || normal.cols() != n) {
    throw mvArchive::BadData(L"the fitter's normal matrix disagrees with its right-hand side");
  }
  static_cast<mvMatrixExt&>(p) = normal;
  p.rhs_ = std::move(rhs);
  return ar;
}
