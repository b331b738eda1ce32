// One way for tests to say "this throws that error": the class, and either the exact message
// or any further checks on the error thrown.
//
//   EXPECT_THROW_MESSAGE(mfPtToGridMap(points, params, result), mvPtToGridMapDefs::BadInput,
//                        L"Point 4 is not finite.");
//   EXPECT_THROW_MESSAGE(parseWeightsText("2.5", "w.txt"), InputError,
//                        "w.txt:1: expected one whole-number weight, got '2.5'");
//   EXPECT_THROW_THAT(loadInto(bytes, m), mvArchive::UnknownVersion, [](const auto& e) {
//     EXPECT_EQ(e.file(), "ptmatch/matext");
//   });
//
// A wide expected message is compared with the error's message(), a narrow one with what().
// Nothing thrown is a failure at the caller's line; an error of another class is not caught,
// so the test fails on it as on any unexpected exception. The test goes on either way.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

namespace expect_throw {

/// Compares the message of e with expected: message() for wide text, what() for narrow text.
template <typename E, typename Text>
void expectMessage(const E& e, const Text& expected) {
  if constexpr (std::is_convertible_v<const Text&, std::wstring>) {
    EXPECT_EQ(e.message(), std::wstring(expected));
  } else {
    EXPECT_EQ(std::string(e.what()), std::string(expected));
  }
}

/// Runs action; when it throws E, hands the error to check. When it throws nothing, adds a
/// failure at file:line naming statement.
template <typename E, typename Action, typename Check>
void expectThrows(const char* file, int line, const char* statement, Action&& action,
                  Check&& check) {
  try {
    std::forward<Action>(action)();
  } catch (const E& e) {
    std::forward<Check>(check)(e);
    return;
  }
  ADD_FAILURE_AT(file, line) << "no exception from " << statement;
}

/// The what() of the E that action throws, or "" when it throws nothing: for tests that check
/// parts of many messages of one reader.
template <typename E, typename Action>
std::string whatOf(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

/// True when text begins with prefix (for messages that end in details a test leaves open).
inline bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace expect_throw

/// Expects statement to throw E, then runs check (a callable taking const E&) on it.
#define EXPECT_THROW_THAT(statement, E, check) \
  ::expect_throw::expectThrows<E>(             \
      __FILE__, __LINE__, #statement, [&]() { statement; }, check)

/// Expects statement to throw E whose message is exactly expected (wide: message(); narrow:
/// what()).
#define EXPECT_THROW_MESSAGE(statement, E, expected) \
  EXPECT_THROW_THAT(statement, E,                    \
                    [&](const E& thrown_) { ::expect_throw::expectMessage(thrown_, expected); })
