// Loads every persisted class of the library from arbitrary bytes. The first byte picks
// the class; the rest is the archive. Loading may only fail with the archive's own errors
// (mvArchive::Errors and its subclasses); a count read from the bytes is checked against
// the bytes left, so nothing large is allocated. When loading succeeds, storing the loaded
// object, loading that and storing again must give the same bytes. A loaded matcher or
// corresponder is also copied and run: that may throw the library's exceptions, but must
// not crash, leak or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "mvbase/attention.h"
#include "mvbase/fitter.h"
#include "mvbase/image.h"
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
  for (const mvPointMatcher* m : {&loaded, static_cast<const mvPointMatcher*>(&copy)}) {
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

using Bytes = std::vector<unsigned char>;
using Fuzzer = void (*)(const std::uint8_t*, std::size_t);
using Sample = Bytes (*)();

// The stored bytes of a value.
template <typename T>
Bytes stored(T value) {
  mvMemoryArchive out;
  out || value;
  return out.bytes();
}

template <typename T>
Bytes defaultSample() {
  return stored(T());
}

template <typename E>
Bytes exceptionSample() {
  std::unique_ptr<mvPersistent> e(E::make());
  mvMemoryArchive out;
  e->dispatchSerialize(out);
  return out.bytes();
}

template <typename T>
Bytes imageSample() {
  mvPelBuffer<T> image(3, 2);
  image.put(1, 1, static_cast<T>(7));
  image.offset(mvPair<long>(2, -1));
  mvMemoryArchive out;
  out || static_cast<mv_PelBuffer&>(image);
  return out.bytes();
}

const std::vector<mvVector<2>> kModel = {{0, 0}, {10, 0}, {0, 10}, {7, 3}};

Bytes runParamsSample() {
  mvPointMatcherRunParams p;
  p.maxNumResults(3);
  p.autoGridSize(false);
  p.gridSize(2.0);
  return stored(p);
}

Bytes resultSetSample() {
  mvPointMatcher m;
  m.train(kModel, mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherResultSet set;
  m.run({{1, 1}, {11, 1}, {1, 11}, {8, 4}}, mvPointMatcherRunParams(), set);
  return stored(set);
}

Bytes resultSample() {
  mvMemoryArchive in(resultSetSample());
  mvPointMatcherResultSet set;
  in || set;
  return set.results().empty() ? stored(mvPointMatcherResult()) : stored(set.results()[0]);
}

Bytes weightedMatcherSample() {
  mvPointMatcher m;
  m.train(kModel, {2, 1, 0, -1}, mvPointMatcherDefs::eAutoDetect);
  return stored(m);
}

Bytes imageMatcherSample() {
  mvPelBuffer<unsigned char> image(4, 4);
  for (long k = 0; k < 4; ++k) image.put(k, (3 * k) % 4, 1);
  mvPointMatcher m;
  m.train(image);
  return stored(m);
}

Bytes gridMapResultSample() {
  mvPtToGridMapResult r;
  mfPtToGridMap({{0, 0}, {10, 0}, {0, 10}, {10, 10}, {20, 0}},
                mvPtToGridMapRunParams(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0), r);
  return stored(r);
}

Bytes corresponderSample() {
  mv_PointToGridCorresponder c;
  c.train({{0, 0}, {1, 0}, {2, 0}, {0, 1}, {2, 2}}, mv_PointToGridCorresponderTrainParams(),
          mvXform<2>());
  return stored(c);
}

Bytes corresponderResultSetSample() {
  mvMemoryArchive in(corresponderSample());
  mv_PointToGridCorresponder c;
  in || c;
  mv_PointToGridCorresponderResultSet set;
  c.run({{3, 3}, {4, 3}, {5, 3}, {3, 4}, {5, 5}}, mv_PointToGridCorresponderRunParams(0.5, 1.0, 2),
        set);
  return stored(set);
}

Bytes fitterSample() {
  mvPsuedoInverse p(2);
  p.update({1, 2}, 3);
  return stored(p);
}

// One persisted class: its name (for seed files), how to fuzz its loading, and a sample.
struct ArchivedClass {
  const char* name;
  Fuzzer fuzz;
  Sample sample;
};

const ArchivedClass kClasses[] = {
    // The point matcher and its records.
    {"runparams", &fuzzValue<mvPointMatcherRunParams>, &runParamsSample},
    {"result", &fuzzValue<mvPointMatcherResult>, &resultSample},
    {"resultset", &fuzzValue<mvPointMatcherResultSet>, &resultSetSample},
    {"matcher", &fuzzMatcher, &weightedMatcherSample},
    {"imagematcher", &fuzzMatcher, &imageMatcherSample},
    // Point-to-grid mapping.
    {"gridparams", &fuzzValue<mvPtToGridMapRunParams>, &defaultSample<mvPtToGridMapRunParams>},
    {"gridresult", &fuzzValue<mvPtToGridMapResult>, &gridMapResultSample},
    // Grid correspondence.
    {"corrtrain", &fuzzValue<mv_PointToGridCorresponderTrainParams>,
     &defaultSample<mv_PointToGridCorresponderTrainParams>},
    {"corrrun", &fuzzValue<mv_PointToGridCorresponderRunParams>,
     &defaultSample<mv_PointToGridCorresponderRunParams>},
    {"corrresult", &fuzzValue<mv_PointToGridCorresponderResult>,
     &defaultSample<mv_PointToGridCorresponderResult>},
    {"corrresultset", &fuzzValue<mv_PointToGridCorresponderResultSet>,
     &corresponderResultSetSample},
    {"corresponder", &fuzzCorresponder, &corresponderSample},
    // Transforms and numerics.
    {"tm2", &fuzzValue<mv2PtMatchTm>, &defaultSample<mv2PtMatchTm>},
    {"persp", &fuzzValue<mv2PTm>, &defaultSample<mv2PTm>},
    {"tm3", &fuzzValue<mv3PtMatchTm>, &defaultSample<mv3PtMatchTm>},
    {"pinv", &fuzzValue<mvPsuedoInverse>, &fitterSample},
    {"matext", &fuzzValue<mvMatrixExt>, &defaultSample<mvMatrixExt>},
    // Base-library values the classes above are made of.
    {"xform", &fuzzValue<mvXform<2>>, &defaultSample<mvXform<2>>},
    {"range", &fuzzValue<mvRange>, &defaultSample<mvRange>},
    {"anglerange", &fuzzValue<mvAngleRange>, &defaultSample<mvAngleRange>},
    {"longs", &fuzzValue<std::vector<long>>,
     [] {
       return stored(std::vector<long>{1, -2, 3});
     }},
    {"points", &fuzzValue<std::vector<mvVector<2>>>, [] { return stored(kModel); }},
    {"pairs", &fuzzValue<std::vector<mvPair<long>>>,
     [] {
       return stored(std::vector<mvPair<long>>{{1, 2}, {-3, 4}});
     }},
    {"image8", &fuzzImage<unsigned char>, &imageSample<unsigned char>},
    {"image32", &fuzzImage<long>, &imageSample<long>},
    {"image16s", &fuzzImage<short>, &imageSample<short>},
    {"image16u", &fuzzImage<unsigned short>, &imageSample<unsigned short>},
    // Exceptions.
    {"badparams", &fuzzException<mvPointMatcherDefs::BadParams>,
     &exceptionSample<mvPointMatcherDefs::BadParams>},
    {"nottrained", &fuzzException<mvPointMatcherDefs::NotTrained>,
     &exceptionSample<mvPointMatcherDefs::NotTrained>},
    {"notrun", &fuzzException<mvPointMatcherDefs::NotRun>,
     &exceptionSample<mvPointMatcherDefs::NotRun>},
    {"insufficient", &fuzzException<mvPointMatcherDefs::InsufficientModelPoints>,
     &exceptionSample<mvPointMatcherDefs::InsufficientModelPoints>},
    {"badinput", &fuzzException<mvPtToGridMapDefs::BadInput>,
     &exceptionSample<mvPtToGridMapDefs::BadInput>},
    {"correrrors", &fuzzException<mv_PointToGridCorresponderDefs::Errors>,
     &exceptionSample<mv_PointToGridCorresponderDefs::Errors>},
    {"corrinsufficient", &fuzzException<mv_PointToGridCorresponderDefs::InsufficientModelPoints>,
     &exceptionSample<mv_PointToGridCorresponderDefs::InsufficientModelPoints>},
    {"corrmemory", &fuzzException<mv_PointToGridCorresponderDefs::InsufficientMemory>,
     &exceptionSample<mv_PointToGridCorresponderDefs::InsufficientMemory>},
    {"tm2badargs", &fuzzException<mv2PtMatchTm::BadArgs>, &exceptionSample<mv2PtMatchTm::BadArgs>},
    {"perspbadargs", &fuzzException<mv2PTm::BadArgs>, &exceptionSample<mv2PTm::BadArgs>},
    {"tm3badargs", &fuzzException<mv3PtMatchTm::BadArgs>, &exceptionSample<mv3PtMatchTm::BadArgs>},
    {"notsquare", &fuzzException<mvMatrixExt::NotSquareMatrix>,
     &exceptionSample<mvMatrixExt::NotSquareMatrix>},
    {"singular", &fuzzException<mvMatrixExt::SingularMatrix>,
     &exceptionSample<mvMatrixExt::SingularMatrix>},
    {"unknownversion", &fuzzException<mvArchive::UnknownVersion>,
     [] {
       mvArchive::UnknownVersion e("ptmatch/tm", 12);
       mvMemoryArchive out;
       e.dispatchSerialize(out);
       return out.bytes();
     }},
    {"assertion", &fuzzException<mvAssertionError>,
     [] {
       mvAssertionError e("x > 0", "ptmatch/matext", 7);
       mvMemoryArchive out;
       e.dispatchSerialize(out);
       return out.bytes();
     }},
    {"interrupted", &fuzzException<mvAttention::Interrupted>,
     &exceptionSample<mvAttention::Interrupted>},
    {"fittererrors", &fuzzException<mvLSPointToPointFitter::Errors>,
     &exceptionSample<mvLSPointToPointFitter::Errors>},
    {"matherror", &fuzzException<mvMathError>, &exceptionSample<mvMathError>},
};

// Writes one seed per class into dir: the class's index byte, then its sample's bytes.
void writeSeeds(const std::string& dir) {
  for (std::size_t i = 0; i < std::size(kClasses); ++i) {
    Bytes seed = kClasses[i].sample();
    seed.insert(seed.begin(), static_cast<unsigned char>(i));
    const std::string path = dir + "/" + std::to_string(i) + "-" + kClasses[i].name;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(seed.data()),
              static_cast<std::streamsize>(seed.size()));
  }
}

}  // namespace

// With PTMATCH_FUZZ_WRITE_SEEDS=DIR in the environment the target writes its seed corpus
// into DIR and exits (scripts/fuzz.sh --seeds).
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (const char* dir = std::getenv("PTMATCH_FUZZ_WRITE_SEEDS")) {
    writeSeeds(dir);
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::size_t which = data[0] % std::size(kClasses);
  kClasses[which].fuzz(data + 1, size - 1);
  return 0;
}
