// Runs a target over files, for compilers without a fuzzer of their own: the seeds and what was
// found once.
//
//   fuzz_TARGET FILE|FOLDER...      ends well when there was at least one file and nothing aborted
#include "target.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

void run(const std::filesystem::path &path) {
  // Named before it runs: an abort leaves it as the last line.
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  std::ifstream file{path, std::ios::binary};
  const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char **argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  int files = 0;
  for (int index = 1; index < argc; ++index) {
    const std::filesystem::path path{argv[index]};
    if (!std::filesystem::is_directory(path)) {
      run(path);
      ++files;
      continue;
    }
    for (const auto &entry : std::filesystem::directory_iterator{path}) {
      run(entry.path());
      ++files;
    }
  }
  std::printf("%d inputs\n", files);
  return files > 0 ? 0 : 1;
}
