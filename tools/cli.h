// The ptmatch program: dispatches a command line to its command and turns every failure
// into a one-line message and an exit status.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace ptmatch::cli {

/// Exit status of a command that ran, also one that found nothing.
constexpr int kExitOk = 0;
/// Exit status of an internal failure (a library assertion, memory exhausted) or a demo
/// that did not recover its truth.
constexpr int kExitFailure = 1;
/// Exit status of a usage or input error.
constexpr int kExitUsage = 2;
/// Exit status of a command stopped by its --time-limit.
constexpr int kExitTimeLimit = 3;

/// Runs `ptmatch ARGS...` (args without the program name): reports to `out`, messages to
/// `err` ("ptmatch: ..."), and returns the exit status. Never throws.
int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

/// The version printed by --version.
const char* versionString();

}  // namespace ptmatch::cli
