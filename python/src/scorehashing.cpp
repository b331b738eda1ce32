// Bindings of the bounded best-score store: ScoreHashing (mvScoreHashing), whose entries
// are grid positions (x, y).
//
// The store has no archive form of its own, so a pickle holds its limits and its entries;
// unpickling adds the entries back lowest score and oldest first, which gives the same
// entries in the same iteration order. (The one state it does not reproduce is the lowest
// score that a full store of capacity 1 leaves on an empty bucket after a replacement; the
// copy's lowest_score is that of its entry.)
#include <string>

#include "common.h"
#include "ptmatch/scorehashing.h"

namespace ptmatch_py {
namespace {

long toLong32(long long v, const char* what) {
  if (v < -2147483647LL - 1 || v > 2147483647LL) {
    throw py::value_error(std::string(what) + " must fit 32 bits");
  }
  return static_cast<long>(v);
}

py::object entry(long score, const mvPair<long>& position) {
  if (score < 0) return py::none();
  return py::make_tuple(score, fromPair(position));
}

// Every entry in iteration order: highest score first, newest first within a score.
py::list entries(mvScoreHashing& store) {
  py::list out;
  mvPair<long> position;
  for (long score = store.first(position); score >= 0; score = store.next(position)) {
    out.append(py::make_tuple(score, fromPair(position)));
  }
  return out;
}

std::unique_ptr<mvScoreHashing> makeStore(long long maxScore, long long maxResults) {
  return std::make_unique<mvScoreHashing>(toLong32(maxScore, "max_score"),
                                          toLong32(maxResults, "max_results"));
}

}  // namespace

void bindScoreHashing(py::module_& m) {
  py::class_<mvScoreHashing> cls(m, "ScoreHashing", R"doc(
A bounded store of the best-scoring grid positions of a search whose scores are small whole
numbers (mvScoreHashing). It keeps at most max_results entries with scores in
0..max_score and hands them back from the highest score down, newest first within a
score. When full, a new entry evicts the newest entry of the lowest score, and a score
not above the lowest stored one is refused.

Example:

>>> s = ptmatch.ScoreHashing(max_score=100, max_results=2)
>>> s.add(40, (1, 2)), s.add(75, (5, 5)), s.add(10, (3, 3))
(True, True, False)
>>> s.items()
[(75, (5, 5)), (40, (1, 2))])doc");
  cls.def(py::init(&makeStore), py::arg("max_score"), py::arg("max_results"),
          "Both limits must be at least 1 (ptmatch.AssertionFailed otherwise).");
  cls.def(
      "maximums",
      [](mvScoreHashing& s, long long maxScore, long long maxResults) {
        s.maximums(toLong32(maxScore, "max_score"), toLong32(maxResults, "max_results"));
      },
      py::arg("max_score"), py::arg("max_results"),
      "Sets new limits (both at least 1) and empties the store (maximums).");
  cls.def("clear", &mvScoreHashing::clear, "Forgets every entry (clear).");
  cls.def(
      "add",
      [](mvScoreHashing& s, long long score, const py::object& position) {
        if (score < -2147483647LL - 1 || score > 2147483647LL) return false;
        return s.add(static_cast<long>(score), toPair(position, "position"));
      },
      py::arg("score"), py::arg("position") = py::make_tuple(0, 0),
      "Adds an entry; False, changing nothing, when the score lies outside 0..max_score or "
      "the store is full and the score is not above the lowest one (add).");
  cls.def(
      "first",
      [](mvScoreHashing& s) {
        mvPair<long> position;
        const long score = s.first(position);
        return entry(score, position);
      },
      "(score, (x, y)) of the newest entry of the highest score, or None when empty (first).");
  cls.def(
      "next",
      [](mvScoreHashing& s) {
        mvPair<long> position;
        const long score = s.next(position);
        return entry(score, position);
      },
      "The following (score, (x, y)) in descending score order, or None when the walk is "
      "over (next).");
  cls.def_property_readonly(
      "current", [](const mvScoreHashing& s) { return fromPair(s.current()); },
      "The position last returned by first() or next() (current); ptmatch.AssertionFailed "
      "before either returned an entry.");
  cls.def_property_readonly("highest_score", &mvScoreHashing::highestScore,
                            "The highest stored score, -1 when empty (highestScore).");
  cls.def_property_readonly("lowest_score", &mvScoreHashing::lowestScore,
                            "The lowest score, -1 when empty (lowestScore).");
  cls.def_property_readonly("num_results", &mvScoreHashing::numResults,
                            "Entries held (numResults).");
  cls.def_property_readonly("max_results", &mvScoreHashing::maxResults, "Capacity (maxResults).");
  cls.def_property_readonly("max_score", &mvScoreHashing::maxScore,
                            "Highest score that may be stored (maxScore).");
  cls.def("__len__", &mvScoreHashing::numResults);
  cls.def("items", &entries,
          "Every (score, (x, y)) in iteration order; walks with first() and next(), so it "
          "moves the iteration cursor.");
  cls.def("__iter__", [](mvScoreHashing& s) { return entries(s).attr("__iter__")(); });
  cls.def("__repr__", [](mvScoreHashing& s) {
    return py::str("ScoreHashing(max_score={!r}, max_results={!r}, num_results={!r})")
        .format(s.maxScore(), s.maxResults(), s.numResults());
  });
  cls.def(py::pickle(
      [](mvScoreHashing& s) { return py::make_tuple(s.maxScore(), s.maxResults(), entries(s)); },
      [](const py::tuple& state) {
        if (state.size() != 3) throw py::value_error("bad ScoreHashing pickle state");
        auto store = makeStore(state[0].cast<long long>(), state[1].cast<long long>());
        const py::list items = state[2].cast<py::list>();
        for (py::ssize_t i = static_cast<py::ssize_t>(items.size()) - 1; i >= 0; --i) {
          const py::tuple item = items[static_cast<std::size_t>(i)].cast<py::tuple>();
          store->add(toLong32(item[0].cast<long long>(), "score"), toPair(item[1], "position"));
        }
        return store;
      }));
}

}  // namespace ptmatch_py
