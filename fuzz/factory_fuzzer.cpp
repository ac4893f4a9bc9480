#include "fuzz/factory_fuzzer.h"

#include "fuzz/fuzz_target.h"
#include "fuzz/read_frames.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nox::fuzz::readFrames(data, size, nox::fuzz::factoryUnderTest());
  return 0;
}
