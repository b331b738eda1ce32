#include "cli.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <new>
#include <typeinfo>

#include "args.h"
#include "commands.h"
#include "cost_warning.h"
#include "errors.h"
#include "mvbase/attention.h"
#include "mvbase/exception.h"
#include "mvbase/threads.h"

#ifndef PTMATCH_VERSION_STRING
#define PTMATCH_VERSION_STRING "unknown"
#endif

namespace ptmatch::cli {

namespace {

// A message on one line: the library's messages end in a newline, some span several.
std::string oneLine(const std::string& text) {
  std::string line = trimmed(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  std::replace(line.begin(), line.end(), '\r', ' ');
  return line;
}

// Runs a command under its --time-limit SECONDS (taken out of its arguments; match, grid
// and pattern take it), so that the searches end with mvAttention::TimedOut once it passes.
int runWithinTimeLimit(int (*run)(const std::vector<std::string>&, std::ostream&),
                       std::vector<std::string> args, std::ostream& out) {
  const auto option = std::find(args.begin(), args.end(), "--time-limit");
  if (option == args.end() || run == runDemo) return run(args, out);
  if (option + 1 == args.end()) throw UsageError("--time-limit: missing value (seconds)");
  const double seconds = parseNumber(*(option + 1), "--time-limit");
  if (!(seconds > 0.0)) throw UsageError("--time-limit: must be more than 0 seconds");
  args.erase(option, option + 2);
  const mvAttention::Deadline limit(seconds);
  return run(args, out);
}

// Runs a command with its --threads N (taken out of its arguments): the searches of the
// command use N threads; without it they use every core.
int runWithThreads(int (*run)(const std::vector<std::string>&, std::ostream&),
                   std::vector<std::string> args, std::ostream& out) {
  const auto option = std::find(args.begin(), args.end(), "--threads");
  long threads = mvThreads::forMachine();
  if (option != args.end()) {
    if (option + 1 == args.end()) throw UsageError("--threads: missing value (a count)");
    const double n = parseNumber(*(option + 1), "--threads");
    if (!(n >= 1.0 && n <= static_cast<double>(mvThreads::kMaxThreads)) || n != std::floor(n)) {
      throw UsageError("--threads: must be a whole number from 1 to 1024");
    }
    threads = static_cast<long>(n);
    args.erase(option, option + 2);
  }
  const mvThreads::Scope scope(threads);
  return runWithinTimeLimit(run, std::move(args), out);
}

bool asksForHelp(const std::vector<std::string>& args) {
  return std::any_of(args.begin(), args.end(),
                     [](const std::string& a) { return a == "--help" || a == "-h"; });
}

int dispatch(const std::vector<std::string>& args, std::ostream& out) {
  if (args.empty()) {
    throw UsageError("missing command (demo, match, grid, pattern or dots; see 'ptmatch --help')");
  }
  const std::string& command = args.front();
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "--help" || command == "-h" || command == "help") {
    const std::string topic = rest.empty() ? "" : rest.front();
    if (!topic.empty() && helpText(topic).empty()) {
      throw UsageError("no help on '" + topic + "' (commands: demo, match, grid, pattern, dots)");
    }
    out << helpText(topic);
    return kExitOk;
  }
  if (command == "--version" || command == "version") {
    out << "ptmatch " << versionString() << "\n";
    return kExitOk;
  }
  using Command = int (*)(const std::vector<std::string>&, std::ostream&);
  Command run = nullptr;
  if (command == "demo") run = runDemo;
  if (command == "match") run = runMatch;
  if (command == "grid") run = runGrid;
  if (command == "pattern") run = runPattern;
  if (command == "dots") run = runDots;
  if (run == nullptr) {
    throw UsageError("unknown command '" + command +
                     "' (commands: demo, match, grid, pattern, dots; see 'ptmatch --help')");
  }
  if (asksForHelp(rest)) {
    out << helpText(command);
    return kExitOk;
  }
  return runWithThreads(run, rest, out);
}

}  // namespace

const char* versionString() { return PTMATCH_VERSION_STRING; }

int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  const WarningStreamScope warnings(err);
  try {
    return dispatch(args, out);
  } catch (const UsageError& e) {
    err << "ptmatch: " << oneLine(e.what()) << "\n";
    return kExitUsage;
  } catch (const InputError& e) {
    err << "ptmatch: " << oneLine(e.what()) << "\n";
    return kExitUsage;
  } catch (const mvAttention::TimedOut& e) {
    err << "ptmatch: stopped by --time-limit: " << oneLine(e.what())
        << " Give a larger --time-limit, or search less: a larger --grid-size, narrower "
           "--rotation, --scale, --x-range or --y-range.\n";
    return kExitTimeLimit;
  } catch (const mvAssertionError& e) {
    err << "ptmatch: internal error: " << oneLine(e.what()) << "\n";
    return kExitFailure;
  } catch (const mvException& e) {
    // The library refused what it was given (too few model points, a bad parameter, a
    // singular pose): an input error.
    std::string message = oneLine(e.what());
    if (message.empty()) message = mv_Instantiator::nameOf(typeid(e));
    if (message.empty()) message = "no reason given";
    err << "ptmatch: the input was refused: " << message << "\n";
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    err << "ptmatch: out of memory\n";
    return kExitFailure;
  } catch (const std::exception& e) {
    err << "ptmatch: internal error: " << oneLine(e.what()) << "\n";
    return kExitFailure;
  } catch (...) {
    err << "ptmatch: internal error\n";
    return kExitFailure;
  }
}

}  // namespace ptmatch::cli
