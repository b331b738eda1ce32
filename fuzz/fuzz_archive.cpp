// Loads every persisted class of the library from arbitrary bytes. The first byte picks
// the class; the rest is the archive. Loading may only fail with the archive's own errors
// (mvArchive::Errors and its subclasses); a count read from the bytes is checked against
// the bytes left, so nothing large is allocated. When loading succeeds, storing the loaded
// object, loading that and storing again must give the same bytes. A loaded matcher or
// corresponder is also copied and run: that may throw the library's exceptions, but must
// not crash, leak or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/attention.h"
#include "mvbase/fitter.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/matext.h"
#include "ptmatch/pinv.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/tm.h"

namespace {

using fuzz_support::checkStoreLoadStore;

// Polls allowed to the run of a loaded matcher.
constexpr long kRunPolls = 200;

// Loads a T from the bytes; returns false when the archive's errors reported damage.
template <typename T>
bool load(const std::uint8_t* data, std::size_t size, T& value) {
  try {
    mvMemoryArchive in(data, size);
    in || value;
    return true;
  } catch (const mvArchive::Errors&) {
    return false;
  }
}

// A value class: load, then store, load and store again.
template <typename T>
void fuzzValue(const std::uint8_t* data, std::size_t size) {
  T value;
  if (load(data, size, value)) checkStoreLoadStore(value, [] { return T(); });
}

// Runs a loaded matcher and its copies on a small data set; any of the library's
// exceptions may come out.
void exerciseMatcher(const mvPointMatcher& loaded) {
  const std::vector<mvVector<2>> data = {{0, 0}, {10, 0}, {0, 10}, {10, 10}, {5, 3}};
  mvPointMatcher copy(loaded);
  mvPointMatcher assigned;
  assigned = loaded;
  assigned = copy;
  fuzz_support::PollBudget budget(kRunPolls);
  for (const mvPointMatcher* m : {&loaded, &copy}) {
    mvPointMatcherResultSet results;
    try {
      m->run(data, mvPointMatcherRunParams(), results);
    } catch (const mvException&) {
    }
  }
}

void fuzzMatcher(const std::uint8_t* data, std::size_t size) {
  mvPointMatcher matcher;
  if (!load(data, size, matcher)) {
    // Partly loaded: the object must still copy and destroy cleanly.
    mvPointMatcher copy(matcher);
    return;
  }
  checkStoreLoadStore(matcher, [] { return mvPointMatcher(); });
  exerciseMatcher(matcher);
}

void fuzzCorresponder(const std::uint8_t* data, std::size_t size) {
  mv_PointToGridCorresponder corresponder;
  if (!load(data, size, corresponder)) return;
  checkStoreLoadStore(corresponder, [] { return mv_PointToGridCorresponder(); });
  if (!corresponder.isTrained()) return;
  const std::vector<mvPair<long>> nodes = {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {2, 2}, {9, 9}};
  mv_PointToGridCorresponderResultSet results;
  try {
    corresponder.run(nodes, mv_PointToGridCorresponderRunParams(0.5, 1.0, 3), results);
  } catch (const mvException&) {
  }
}

// A pel buffer of pel type T.
template <typename T>
void fuzzImage(const std::uint8_t* data, std::size_t size) {
  mvPelBuffer<T> image;
  if (!load(data, size, static_cast<mv_PelBuffer&>(image))) return;
  mvMemoryArchive first;
  first || static_cast<mv_PelBuffer&>(image);
  mvPelBuffer<T> again;
  mvMemoryArchive in(first.bytes());
  in || static_cast<mv_PelBuffer&>(again);
  mvMemoryArchive second;
  second || static_cast<mv_PelBuffer&>(again);
  FUZZ_CHECK(first.bytes() == second.bytes());
}

// An exception class, loaded through its persistence hooks.
template <typename E>
void fuzzException(const std::uint8_t* data, std::size_t size) {
  std::unique_ptr<mvPersistent> loaded(E::make());
  try {
    mvMemoryArchive in(data, size);
    loaded->dispatchSerialize(in);
  } catch (const mvArchive::Errors&) {
    return;
  }
  mvMemoryArchive first;
  loaded->dispatchSerialize(first);
  std::unique_ptr<mvPersistent> again(E::make());
  mvMemoryArchive in(first.bytes());
  again->dispatchSerialize(in);
  mvMemoryArchive second;
  again->dispatchSerialize(second);
  FUZZ_CHECK(first.bytes() == second.bytes());
  (void)static_cast<mvException*>(again.get())->what();
}

using Fuzzer = void (*)(const std::uint8_t*, std::size_t);

const Fuzzer kFuzzers[] = {
    // The point matcher and its records.
    &fuzzValue<mvPointMatcherRunParams>,
    &fuzzValue<mvPointMatcherResult>,
    &fuzzValue<mvPointMatcherResultSet>,
    &fuzzMatcher,
    // Point-to-grid mapping.
    &fuzzValue<mvPtToGridMapRunParams>,
    &fuzzValue<mvPtToGridMapResult>,
    // Grid correspondence.
    &fuzzValue<mv_PointToGridCorresponderTrainParams>,
    &fuzzValue<mv_PointToGridCorresponderRunParams>,
    &fuzzValue<mv_PointToGridCorresponderResult>,
    &fuzzValue<mv_PointToGridCorresponderResultSet>,
    &fuzzCorresponder,
    // Transforms and numerics.
    &fuzzValue<mv2PtMatchTm>,
    &fuzzValue<mv2PTm>,
    &fuzzValue<mv3PtMatchTm>,
    &fuzzValue<mvPsuedoInverse>,
    &fuzzValue<mvMatrixExt>,
    // Base-library values the classes above are made of.
    &fuzzValue<mvXform<2>>,
    &fuzzValue<mvRange>,
    &fuzzValue<mvAngleRange>,
    &fuzzValue<std::vector<long>>,
    &fuzzValue<std::vector<mvVector<2>>>,
    &fuzzValue<std::vector<mvPair<long>>>,
    &fuzzImage<unsigned char>,
    &fuzzImage<long>,
    &fuzzImage<short>,
    &fuzzImage<unsigned short>,
    // Exceptions.
    &fuzzException<mvPointMatcherDefs::BadParams>,
    &fuzzException<mvPointMatcherDefs::NotTrained>,
    &fuzzException<mvPointMatcherDefs::NotRun>,
    &fuzzException<mvPointMatcherDefs::InsufficientModelPoints>,
    &fuzzException<mvPtToGridMapDefs::BadInput>,
    &fuzzException<mv_PointToGridCorresponderDefs::Errors>,
    &fuzzException<mv_PointToGridCorresponderDefs::InsufficientModelPoints>,
    &fuzzException<mv_PointToGridCorresponderDefs::InsufficientMemory>,
    &fuzzException<mv2PtMatchTm::BadArgs>,
    &fuzzException<mv2PTm::BadArgs>,
    &fuzzException<mv3PtMatchTm::BadArgs>,
    &fuzzException<mvMatrixExt::NotSquareMatrix>,
    &fuzzException<mvMatrixExt::SingularMatrix>,
    &fuzzException<mvArchive::UnknownVersion>,
    &fuzzException<mvAssertionError>,
    &fuzzException<mvAttention::Interrupted>,
    &fuzzException<mvLSPointToPointFitter::Errors>,
    &fuzzException<mvMathError>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::size_t which = data[0] % std::size(kFuzzers);
  kFuzzers[which](data + 1, size - 1);
  return 0;
}
