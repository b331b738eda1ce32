// The tool's own errors. Both end the command with exit status 2 and a one-line message;
// the library's errors are translated at the top of the program (cli.cpp).
#pragma once

#include <stdexcept>
#include <string>

namespace ptmatch::cli {

/// A bad command line: unknown option, missing or malformed value, missing file name.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

/// A file that cannot be read or does not hold what it should; the message names the
/// file and, where there is one, the line.
class InputError : public std::runtime_error {
 public:
  explicit InputError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace ptmatch::cli
