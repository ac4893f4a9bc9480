// Hands every file of the given corpus directories to a fuzz target, where libFuzzer is not at
// hand.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace {

std::vector<std::filesystem::path> filesIn(int count, char** directories) {
  std::vector<std::filesystem::path> files;
  for (int i = 0; i < count; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(directories[i])) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

// From a block of exactly this size, so that the sanitizers see a read behind it.
void replay(const std::string& input) {
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[input.size()]);
  if (!input.empty()) std::memcpy(exact.get(), input.data(), input.size());
  LLVMFuzzerTestOneInput(exact.get(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  const auto files = filesIn(argc - 1, argv + 1);
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    replay(std::string(std::istreambuf_iterator<char>(in), {}));
  }
  std::printf("%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
