// A check shared by the point matcher's tests: a statement throws an error of the
// library's family whose message is exactly the one expected.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// Expects statement to throw E whose message is exactly `expected`.
#define EXPECT_THROW_MESSAGE(statement, E, expected)    \
  do {                                                  \
    try {                                               \
      statement;                                        \
      ADD_FAILURE() << "no exception from " #statement; \
    } catch (const E& e) {                              \
      EXPECT_EQ(e.message(), std::wstring(expected));   \
    }                                                   \
  } while (false)
