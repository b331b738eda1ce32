// Shared pieces of the Python bindings: conversions between numpy arrays and the library's
// value types, pickling through the archive, running without the GIL, raising the
// library's errors as Python exceptions, and the guard that keeps a tool from being changed
// while another thread runs it.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mvbase/mvbase.h"
#include "ptmatch/ppmatch.h"

namespace py = pybind11;

namespace ptmatch_py {

// --- binding entry points, one per module of the library ---

void bindErrors(py::module_& m);
void bindAttention(py::module_& m);
void bindPointMatcher(py::module_& m);
void bindGridMap(py::module_& m);
void bindRobustGridMap(py::module_& m);
void bindGridCorresponder(py::module_& m);
void bindScoreHashing(py::module_& m);
void bindTransforms(py::module_& m);
void bindMatrices(py::module_& m);
void bindDots(py::module_& m);
void bindPlanned(py::module_& m);

// --- conversions ---

using Points2 = std::vector<mvVector<2>>;
using Points3 = std::vector<mvVector<3>>;

/// Any (N, 2) array-like of numbers (an empty sequence counts as no points).
Points2 toPoints2(const py::handle& obj, const char* what);

/// Run parameters from the keyword arguments of PointMatcher.run() (None keeps a field's
/// default); each field goes through its validating setter.
mvPointMatcherRunParams makeRunParams(double minCoverage, const py::object& startPose,
                                      const py::object& xRange, const py::object& yRange,
                                      const py::object& rotation, const py::object& scale,
                                      const py::object& gridSize, const py::object& captureRange,
                                      long long maxResults);
/// Any (N, 3) array-like of numbers.
Points3 toPoints3(const py::handle& obj, const char* what);
/// One 2-vector from a length-2 array-like.
mvVector<2> toVector2(const py::handle& obj, const char* what);
/// One 3-vector from a length-3 array-like.
mvVector<3> toVector3(const py::handle& obj, const char* what);
/// An (N, 2) float array.
py::array_t<double> fromPoints2(const Points2& points);
/// An (N, 3) float array.
py::array_t<double> fromPoints3(const Points3& points);
/// A length-2 float array.
py::array_t<double> fromVector2(const mvVector<2>& v);
/// A length-3 float array.
py::array_t<double> fromVector3(const mvVector<3>& v);

/// A pose from a 2x3 array-like [[a00, a01, tx], [a10, a11, ty]] (a 3x3 one whose last row
/// is 0, 0, 1 is accepted too).
mvXform<2> toXform(const py::handle& obj, const char* what);
/// A pose as a 2x3 float array.
py::array_t<double> fromXform(const mvXform<2>& x);

/// Whole numbers that fit 32 bits, from an array-like of integers.
std::vector<long> toLongs(const py::handle& obj, const char* what);
/// An int64 array.
py::array_t<std::int64_t> fromLongs(const std::vector<long>& values);
/// Grid positions from an (N, 2) array-like of integers.
std::vector<mvPair<long>> toPairs(const py::handle& obj, const char* what);
/// Grid positions as an (N, 2) int64 array.
py::array_t<std::int64_t> fromPairs(const std::vector<mvPair<long>>& pairs);
/// A pair from a length-2 sequence of integers.
mvPair<long> toPair(const py::handle& obj, const char* what);
/// A pair as the tuple (x, y).
py::tuple fromPair(const mvPair<long>& p);

/// A range from None (the given default), "full", or (start, end).
mvRange toRange(const py::handle& obj, const mvRange& ifNone, const char* what);
/// A range as (start, end), "full", or None when empty.
py::object fromRange(const mvRange& r);
/// An angle range in degrees from None (the given default), "full", or (start, end).
mvAngleRange toAngleRangeDegrees(const py::handle& obj, const mvAngleRange& ifNone,
                                 const char* what);
/// An angle range as (start, end) in degrees, "full", or None when empty.
py::object fromAngleRangeDegrees(const mvAngleRange& r);

/// An 8-bit image from a 2-D array-like of whole numbers in 0..255 (or booleans); rows are y.
mvPelBuffer<unsigned char> toImage(const py::handle& obj, const char* what);
/// The pels of an 8-bit image as a (height, width) uint8 array.
py::array_t<std::uint8_t> fromImage(const mvPelBuffer_const<unsigned char>& image);
/// The pels of a label image as a (height, width) int64 array.
py::array_t<std::int64_t> fromLabelImage(const mvPelBuffer_const<long>& image);

// --- results ---

/// A ptmatch.Results list (a list with the run's seconds in `time`) holding the items.
py::list makeResults(py::list items, double time);

// --- pickling through the archive ---

/// The bytes that the archive stores for the object.
template <typename T>
py::bytes archiveBytes(T& object) {
  std::vector<unsigned char> bytes;
  {
    mvMemoryArchive out;
    out || object;
    bytes = out.bytes();
  }
  return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

/// Loads the object from archive bytes; bytes left over are an archive error.
template <typename T>
void loadArchiveBytes(const py::bytes& data, T& object) {
  const std::string raw = data;
  mvMemoryArchive in(reinterpret_cast<const unsigned char*>(raw.data()), raw.size());
  in || object;
  if (!in.atEnd()) {
    throw mvArchive::BadData(L"The archive holds bytes after the object.");
  }
}

/// Adds __getstate__/__setstate__ over the archive bytes of a default-constructible class,
/// plus to_bytes() and from_bytes() for callers that keep the archive themselves.
template <typename T, typename Class>
void addArchivePickling(Class& cls) {
  cls.def(py::pickle([](T& self) { return archiveBytes(self); },
                     [](const py::bytes& state) {
                       auto object = std::make_unique<T>();
                       loadArchiveBytes(state, *object);
                       return object;
                     }));
  cls.def(
      "to_bytes", [](T& self) { return archiveBytes(self); },
      "The object in the library's archive encoding (operator|| into an mvMemoryArchive).");
  cls.def_static(
      "from_bytes",
      [](const py::bytes& state) {
        auto object = std::make_unique<T>();
        loadArchiveBytes(state, *object);
        return object;
      },
      py::arg("data"), "Loads an object from the library's archive encoding.");
}

/// Adds __copy__ and __deepcopy__ through the C++ copy constructor (which keeps what the
/// archive leaves out, such as the pairs of a transform).
template <typename T, typename Class>
void addCopying(Class& cls) {
  cls.def("__copy__", [](const T& self) { return T(self); });
  cls.def(
      "__deepcopy__", [](const T& self, const py::object&) { return T(self); }, py::arg("memo"));
}

// --- running without the GIL ---

/// Releases the GIL for its lifetime. While it is released, the library's interruption
/// check (mvAttention::check) on the main thread looks for pending signals now and then
/// (Ctrl-C), briefly taking the GIL back to run the Python signal handlers.
class ReleasedGil {
 public:
  ReleasedGil();
  ~ReleasedGil();
  ReleasedGil(const ReleasedGil&) = delete;
  ReleasedGil& operator=(const ReleasedGil&) = delete;

 private:
  void* outer_;  // the thread state saved by an enclosing release, restored afterwards
};

/// Raises the exception left by a signal handler during a released run, if any; a
/// KeyboardInterrupt becomes ptmatch.Interrupted (itself a KeyboardInterrupt).
void raisePendingSignal();

/// The seconds of a timeout= argument: infinity for None. Raises TypeError for what is not
/// a number (a bool included) and ValueError for a number that is not above 0 (NaN included).
double timeoutSeconds(const py::object& timeout);

/// Calls work without the GIL, under an mvAttention::Deadline of the given seconds on this
/// thread (none for infinity), so that the work's checks throw mvAttention::TimedOut once it
/// passes. Exceptions of the work pass on (translated by the module's exception translator),
/// except that an exception raised by a signal handler meanwhile takes precedence.
template <typename Work>
void withoutGil(Work&& work, double timeout = std::numeric_limits<double>::infinity()) {
  std::exception_ptr failure;
  try {
    ReleasedGil released;
    std::optional<mvAttention::Deadline> limit;
    if (timeout < std::numeric_limits<double>::infinity()) limit.emplace(timeout);
    work();
  } catch (...) {
    failure = std::current_exception();
  }
  raisePendingSignal();
  if (failure) std::rethrow_exception(failure);
}

// --- tools shared with running threads ---

/// Counts the runs in progress on a tool whose run releases the GIL. A change of the tool
/// (training, loading) is refused while the count is not zero; both happen with the GIL
/// held, so no run can start during a change.
class RunCounter {
 public:
  /// Holds one run for its lifetime.
  class Scope {
   public:
    explicit Scope(RunCounter& counter) : counter_(counter) { ++counter_.runs_; }
    ~Scope() { --counter_.runs_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    RunCounter& counter_;
  };
  /// Raises RuntimeError naming the tool when a run is in progress.
  void checkIdle(const char* tool) const;

 private:
  std::atomic<int> runs_{0};
};

}  // namespace ptmatch_py
