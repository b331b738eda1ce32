// ptmatch: the command-line front end of the point-matching library.
#include <iostream>
#include <string>
#include <vector>

#include "cli.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  return ptmatch::cli::runCommandLine(args, std::cout, std::cerr);
}
