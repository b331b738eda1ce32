// Replays fuzz inputs through a target without libFuzzer, in an ordinary build: every file
// given (or every file of a folder given, in name order) is run once, and its time
// reported. Exits with 1 when an input takes longer than --max-seconds (default 1).
//
//   replay_fuzz_matcher_run [--max-seconds S] FILE_OR_FOLDER...
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
// Targets that set something up before the first input define this.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::vector<std::string> inputsOf(const std::string& path) {
  std::vector<std::string> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (entry.is_regular_file()) files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
  } else {
    files.push_back(path);
  }
  return files;
}

std::vector<std::uint8_t> bytesOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  double maxSeconds = 1.0;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--max-seconds") == 0 && i + 1 < argc) {
      maxSeconds = std::atof(argv[++i]);
      continue;
    }
    for (const std::string& f : inputsOf(argv[i])) files.push_back(f);
  }
  int slow = 0;
  double longest = 0.0;
  for (const std::string& file : files) {
    const std::vector<std::uint8_t> bytes = bytesOf(file);
    const auto start = std::chrono::steady_clock::now();
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    longest = std::max(longest, seconds);
    if (seconds > maxSeconds) {
      std::printf("SLOW %.3f s: %s\n", seconds, file.c_str());
      ++slow;
    }
  }
  std::printf("%zu inputs replayed, the longest in %.3f s; %d over %.3f s\n", files.size(), longest,
              slow, maxSeconds);
  return slow == 0 ? 0 : 1;
}
