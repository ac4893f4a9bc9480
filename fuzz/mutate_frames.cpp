// Lets libFuzzer change inputs as frames. Part of the libFuzzer programs only, which have what the
// bytes are changed with.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/factory_fuzzer.h"
#include "fuzz/frame_mutator.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/sample_frames.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

/// Called by libFuzzer: replaces the input by a changed one of at most `maxSize` bytes.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed);

namespace {

std::string mutateBytes(std::string bytes, std::size_t maxSize) {
  const std::size_t size = std::min(bytes.size(), maxSize);
  bytes.resize(maxSize);
  if (maxSize == 0) return bytes;
  auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
  bytes.resize(LLVMFuzzerMutate(data, size, maxSize));
  return bytes;
}

}  // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                    unsigned int seed) {
  using namespace nox::fuzz;
  static const FrameMutator mutator(factoryUnderTest(), sampleFrames(factoryUnderTest()),
                                    mutateBytes);
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string output = mutator.mutate(input, seed, maxSize);
  std::memcpy(data, output.data(), output.size());
  return output.size();
}
