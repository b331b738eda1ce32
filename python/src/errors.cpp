// The library's errors as Python exceptions, and Ctrl-C during a run.
//
// Every C++ error class has one Python class, all under ptmatch.Error, each also derived
// from the built-in exception that says what went wrong (BadParams is a ValueError,
// NotTrained a RuntimeError, ...). A raised exception carries the library's message as its
// text and in `message`, the error number in `error_number` and the C++ class name in
// `cpp_class`.
//
// mvAttention::Interrupted becomes ptmatch.Interrupted, a KeyboardInterrupt and on purpose
// not an Error: `except ptmatch.Error` and `except Exception` must never swallow Ctrl-C.
// Its subclass mvAttention::TimedOut, a passed timeout= limit, is no Ctrl-C: it becomes
// ptmatch.TimeoutError, a ptmatch.Error and a built-in TimeoutError.
//
// Interruption. A run releases the GIL; the library calls mvAttention::check() once per
// search step, and the poll installed here, on the main thread only and at most every
// kPollInterval, takes the GIL back for a moment and runs the Python signal handlers
// (PyErr_CheckSignals). When a handler raises, the poll keeps that exception for the
// thread and throws mvAttention::Interrupted straight out of check(), so the run unwinds
// on its own thread (the library's process-wide request flag is left alone, so a Ctrl-C
// never interrupts another thread's run). When the run has unwound, the kept exception is
// raised: a KeyboardInterrupt as ptmatch.Interrupted, anything else as it is.
#include <chrono>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "common.h"
#include "ptmatch/ptmatch.h"

namespace ptmatch_py {
namespace {

// --- the exception classes ---

// One Python exception class: its name, the C++ class it stands for, its bases (Python
// classes of this table by name, then one built-in) and its docstring.
struct ErrorClass {
  const char* name;
  const char* cppClass;
  const char* parent;  // a class of this table, or null for Exception itself
  PyObject** builtin;  // an extra built-in base, or null
  const char* doc;
  bool (*matches)(const mvException&);
  PyObject* type;
};

template <typename T>
bool isA(const mvException& e) {
  return dynamic_cast<const T*>(&e) != nullptr;
}

bool isAnyError(const mvException&) { return true; }

// Most derived first: translation takes the first class that the error is an instance of.
std::vector<ErrorClass>& errorClasses() {
  static std::vector<ErrorClass> classes = {
      {"UnknownVersion", "mvArchive::UnknownVersion", "ArchiveError", nullptr,
       "The archive holds a version that this library does not read (mvArchive::UnknownVersion); "
       "`file` and `line` say where it was met.",
       &isA<mvArchive::UnknownVersion>, nullptr},
      {"EndOfData", "mvArchive::EndOfData", "ArchiveError", nullptr,
       "Loading ran past the end of the archive bytes (mvArchive::EndOfData).",
       &isA<mvArchive::EndOfData>, nullptr},
      {"BadData", "mvArchive::BadData", "ArchiveError", nullptr,
       "A value cannot be archived, or the archive bytes are inconsistent (mvArchive::BadData).",
       &isA<mvArchive::BadData>, nullptr},
      {"ArchiveError", "mvArchive::Errors", "Error", &PyExc_ValueError,
       "Root of the archive's errors (mvArchive::Errors); also a ValueError.",
       &isA<mvArchive::Errors>, nullptr},
      {"NotSquareMatrix", "mvMatrixExt::NotSquareMatrix", "MathError", nullptr,
       "An operation that needs a square matrix got another shape (mvMatrixExt::NotSquareMatrix).",
       &isA<mvMatrixExt::NotSquareMatrix>, nullptr},
      {"SingularMatrix", "mvMatrixExt::SingularMatrix", "MathError", nullptr,
       "The matrix is singular (mvMatrixExt::SingularMatrix).", &isA<mvMatrixExt::SingularMatrix>,
       nullptr},
      {"MathError", "mvMathError", "Error", &PyExc_ArithmeticError,
       "A failed numeric operation, such as inverting a singular transform (mvMathError); also an "
       "ArithmeticError.",
       &isA<mvMathError>, nullptr},
      {"AssertionFailed", "mvAssertionError", "Error", &PyExc_AssertionError,
       "A precondition of the library failed (mvAssertionError); `expression`, `module` and "
       "`line` name the check. Also an AssertionError.",
       &isA<mvAssertionError>, nullptr},
      {"FitError", "mvLSPointToPointFitter::Errors", "Error", &PyExc_ArithmeticError,
       "The point pairs do not determine a transform of the asked family "
       "(mvLSPointToPointFitter::Errors); also an ArithmeticError.",
       &isA<mvLSPointToPointFitter::Errors>, nullptr},
      {"BadParams", "mvPointMatcherDefs::BadParams", "MatcherError", &PyExc_ValueError,
       "A rejected parameter or training input of the point matcher "
       "(mvPointMatcherDefs::BadParams); also a ValueError.",
       &isA<mvPointMatcherDefs::BadParams>, nullptr},
      {"NotTrained", "mvPointMatcherDefs::NotTrained", "MatcherError", &PyExc_RuntimeError,
       "The point matcher is not trained, or not in the mode asked for "
       "(mvPointMatcherDefs::NotTrained); also a RuntimeError.",
       &isA<mvPointMatcherDefs::NotTrained>, nullptr},
      {"NotRun", "mvPointMatcherDefs::NotRun", "MatcherError", &PyExc_RuntimeError,
       "A result accessor used for a result of another mode (mvPointMatcherDefs::NotRun); also a "
       "RuntimeError.",
       &isA<mvPointMatcherDefs::NotRun>, nullptr},
      {"InsufficientModelPoints", "mvPointMatcherDefs::InsufficientModelPoints", "MatcherError",
       &PyExc_ValueError,
       "Too few model points, or set pattern pels, to train the point matcher "
       "(mvPointMatcherDefs::InsufficientModelPoints); also a ValueError.",
       &isA<mvPointMatcherDefs::InsufficientModelPoints>, nullptr},
      {"MatcherError", "mvPointMatcherDefs::Errors", "Error", nullptr,
       "Root of the point matcher's errors (mvPointMatcherDefs::Errors).",
       &isA<mvPointMatcherDefs::Errors>, nullptr},
      {"BadInput", "mvPtToGridMapDefs::BadInput", "Error", &PyExc_ValueError,
       "Input that the point-to-grid mapping cannot work with: a non-finite point or parameter, "
       "or points spread over too many buckets (mvPtToGridMapDefs::BadInput); also a ValueError.",
       &isA<mvPtToGridMapDefs::BadInput>, nullptr},
      {"RobustGridBadInput", "mvRobustGridMapDefs::BadInput", "Error", &PyExc_ValueError,
       "Input or parameters that the robust grid mapping cannot work with: a non-finite point "
       "or vector, parallel or half-given pitch vectors, a reject level or node minimum out of "
       "range (mvRobustGridMapDefs::BadInput); also a ValueError.",
       &isA<mvRobustGridMapDefs::BadInput>, nullptr},
      {"DotError", "mvDotDefs::BadInput", "Error", &PyExc_ValueError,
       "A dot detector parameter out of range, or an image it cannot work with "
       "(mvDotDefs::BadInput); also a ValueError.",
       &isA<mvDotDefs::BadInput>, nullptr},
      {"ImageFileError", "mvImageFileDefs::BadFile", "Error", &PyExc_ValueError,
       "A file that cannot be read as an image; the message names the file and the problem "
       "(mvImageFileDefs::BadFile). Also a ValueError.",
       &isA<mvImageFileDefs::BadFile>, nullptr},
      {"GridInsufficientModelPoints", "mv_PointToGridCorresponderDefs::InsufficientModelPoints",
       "GridCorresponderError", &PyExc_ValueError,
       "A grid corresponder training image with fewer than 3 set pels "
       "(mv_PointToGridCorresponderDefs::InsufficientModelPoints); also a ValueError.",
       &isA<mv_PointToGridCorresponderDefs::InsufficientModelPoints>, nullptr},
      {"InsufficientMemory", "mv_PointToGridCorresponderDefs::InsufficientMemory",
       "GridCorresponderError", &PyExc_MemoryError,
       "The working memory of a grid corresponder run could not be allocated "
       "(mv_PointToGridCorresponderDefs::InsufficientMemory); also a MemoryError.",
       &isA<mv_PointToGridCorresponderDefs::InsufficientMemory>, nullptr},
      {"GridCorresponderError", "mv_PointToGridCorresponderDefs::Errors", "Error", nullptr,
       "Root of the grid corresponder's errors (mv_PointToGridCorresponderDefs::Errors).",
       &isA<mv_PointToGridCorresponderDefs::Errors>, nullptr},
      {"PtMatchTm2BadArgs", "mv2PtMatchTm::BadArgs", "BadArgs", nullptr,
       "The two point lists given to a PtMatchTm2 differ in length (mv2PtMatchTm::BadArgs).",
       &isA<mv2PtMatchTm::BadArgs>, nullptr},
      {"PerspectiveTm2BadArgs", "mv2PTm::BadArgs", "BadArgs", nullptr,
       "The two point lists given to a PerspectiveTm2 differ in length (mv2PTm::BadArgs).",
       &isA<mv2PTm::BadArgs>, nullptr},
      {"PtMatchTm3BadArgs", "mv3PtMatchTm::BadArgs", "BadArgs", nullptr,
       "The two point lists given to a PtMatchTm3 differ in length (mv3PtMatchTm::BadArgs).",
       &isA<mv3PtMatchTm::BadArgs>, nullptr},
      {"BadArgs", "", "Error", &PyExc_ValueError,
       "Root of the transforms' BadArgs errors (a grouping of the bindings); also a ValueError.",
       nullptr, nullptr},
      {"TimeoutError", "mvAttention::TimedOut", "Error", &PyExc_TimeoutError,
       "A run passed the time limit given by its timeout= argument (mvAttention::TimedOut); "
       "the message names the limit. Also the built-in TimeoutError, and unlike Interrupted a "
       "ptmatch.Error.",
       &isA<mvAttention::TimedOut>, nullptr},
      {"Interrupted", "mvAttention::Interrupted", nullptr, &PyExc_KeyboardInterrupt,
       "A run was interrupted (mvAttention::Interrupted): by Ctrl-C, or by "
       "ptmatch.request_interruption(). A KeyboardInterrupt, and on purpose not a ptmatch.Error, "
       "so that `except Exception` never swallows Ctrl-C.",
       &isA<mvAttention::Interrupted>, nullptr},
      {"Error", "mvException", nullptr, &PyExc_Exception,
       "Root of the library's errors (mvException, mvExceptionWithString). Carries `message`, "
       "`error_number` and `cpp_class`.",
       &isAnyError, nullptr},
  };
  return classes;
}

ErrorClass& errorClassNamed(const char* name) {
  for (ErrorClass& c : errorClasses()) {
    if (std::strcmp(c.name, name) == 0) return c;
  }
  throw std::logic_error(std::string("ptmatch bindings: no exception class ") + name);
}

// Creates the class (its parents first) and adds it to the module.
PyObject* createErrorClass(py::module_& m, ErrorClass& c) {
  if (c.type != nullptr) return c.type;
  py::list bases;
  if (c.parent != nullptr) bases.append(py::handle(createErrorClass(m, errorClassNamed(c.parent))));
  if (c.builtin != nullptr) bases.append(py::handle(*c.builtin));
  const std::string qualified = std::string("ptmatch.") + c.name;
  c.type = PyErr_NewExceptionWithDoc(qualified.c_str(), c.doc, py::tuple(bases).ptr(), nullptr);
  if (c.type == nullptr) throw py::error_already_set();
  m.add_object(c.name, py::handle(c.type));  // the table keeps its own reference for good
  return c.type;
}

// Sets the Python error for an instance of the class with the given message and fields.
void setError(const ErrorClass& c, const std::string& message, long errorNumber,
              const py::dict& extra) {
  py::object type = py::reinterpret_borrow<py::object>(c.type);
  py::object instance = type(py::str(message));
  instance.attr("message") = py::str(message);
  instance.attr("error_number") = errorNumber;
  instance.attr("cpp_class") = py::str(c.cppClass);
  for (auto item : extra) instance.attr(item.first) = item.second;
  PyErr_SetObject(c.type, instance.ptr());
}

// Translates one library error into its Python class.
void setErrorFor(const mvException& e) {
  for (const ErrorClass& c : errorClasses()) {
    if (c.matches == nullptr || !c.matches(e)) continue;
    py::dict extra;
    if (const auto* v = dynamic_cast<const mvArchive::UnknownVersion*>(&e)) {
      extra["file"] = py::str(v->file());
      extra["line"] = v->line();
    } else if (const auto* a = dynamic_cast<const mvAssertionError*>(&e)) {
      extra["expression"] = py::str(a->expression());
      extra["module"] = py::str(a->module());
      extra["line"] = a->line();
    }
    setError(c, e.what(), e.errorNumber(), extra);
    return;
  }
}

// --- interruption ---

constexpr auto kPollInterval = std::chrono::milliseconds(50);

thread_local PyThreadState* tSavedState = nullptr;  // set while this thread runs without the GIL
thread_local std::chrono::steady_clock::time_point tNextPoll;
thread_local PyObject* tPendingType = nullptr;  // the exception a signal handler raised
thread_local PyObject* tPendingValue = nullptr;
thread_local PyObject* tPendingTrace = nullptr;

unsigned long gMainThread = 0;
mvAttention::Poll gPreviousPoll = nullptr;

// Polled by mvAttention::check(): runs the Python signal handlers now and then on the main
// thread while it runs without the GIL, and unwinds the run when one of them raised.
bool pollSignals() {
  if (gPreviousPoll != nullptr && gPreviousPoll()) return true;
  if (tSavedState == nullptr || PyThread_get_thread_ident() != gMainThread) return false;
  const auto now = std::chrono::steady_clock::now();
  if (now < tNextPoll) return false;
  tNextPoll = now + kPollInterval;

  PyEval_RestoreThread(tSavedState);
  const bool raised = PyErr_CheckSignals() != 0;
  if (raised && tPendingType == nullptr) {
    PyErr_Fetch(&tPendingType, &tPendingValue, &tPendingTrace);
  } else if (raised) {
    PyErr_Clear();  // the first exception wins
  }
  tSavedState = PyEval_SaveThread();
  if (raised) throw mvAttention::Interrupted();
  return false;
}

}  // namespace

ReleasedGil::ReleasedGil() : outer_(tSavedState) {
  tNextPoll = std::chrono::steady_clock::now() + kPollInterval;
  tSavedState = PyEval_SaveThread();
}

ReleasedGil::~ReleasedGil() {
  PyEval_RestoreThread(tSavedState);
  tSavedState = static_cast<PyThreadState*>(outer_);
}

void raisePendingSignal() {
  if (tPendingType == nullptr) return;
  PyObject* type = tPendingType;
  PyObject* value = tPendingValue;
  PyObject* trace = tPendingTrace;
  tPendingType = tPendingValue = tPendingTrace = nullptr;
  if (type == PyExc_KeyboardInterrupt) {
    Py_XDECREF(type);
    Py_XDECREF(value);
    Py_XDECREF(trace);
    mvAttention::Interrupted interrupted;
    setErrorFor(interrupted);
  } else {
    PyErr_Restore(type, value, trace);
  }
  throw py::error_already_set();
}

double timeoutSeconds(const py::object& timeout) {
  if (timeout.is_none()) return std::numeric_limits<double>::infinity();
  if (PyBool_Check(timeout.ptr()) || !PyNumber_Check(timeout.ptr())) {
    throw py::type_error("timeout must be None or a number of seconds, not " +
                         py::repr(timeout).cast<std::string>());
  }
  const double seconds = py::float_(timeout).cast<double>();
  if (!(seconds > 0.0)) {  // also NaN
    throw py::value_error("timeout must be None or a number of seconds above 0, not " +
                          py::repr(timeout).cast<std::string>());
  }
  return seconds;
}

void RunCounter::checkIdle(const char* tool) const {
  if (runs_.load() != 0) {
    throw std::runtime_error(std::string(tool) +
                             " is being run by another thread and cannot be changed now");
  }
}

void bindErrors(py::module_& m) {
  for (ErrorClass& c : errorClasses()) createErrorClass(m, c);
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const mvException& e) {
      setErrorFor(e);
    }
  });
}

void bindAttention(py::module_& m) {
  gMainThread =
      py::module_::import("threading").attr("main_thread")().attr("ident").cast<unsigned long>();
  gPreviousPoll = mvAttention::setPoll(&pollSignals);

  m.def(
      "request_interruption", [] { mvAttention::requestInterruption(); },
      "Requests an interruption of the run in progress (mvAttention::requestInterruption).\n\n"
      "The request is process-wide: the next interruption check of any running search (on "
      "any thread) consumes it and that run raises ptmatch.Interrupted. A request made while "
      "nothing runs stays pending until a run checks, or clear_interruption() withdraws it.");
  m.def(
      "clear_interruption", [] { mvAttention::clear(); },
      "Withdraws a pending interruption request (mvAttention::clear).");
  m.def(
      "interruption_requested", [] { return mvAttention::isRequested(); },
      "True while an interruption request is pending (mvAttention::isRequested).");
}

}  // namespace ptmatch_py
