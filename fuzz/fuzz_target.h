// What the fuzz targets have in common: the entry point, and a check that survives NDEBUG.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Called once per input, by libFuzzer or by the replay. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace nox::fuzz {

/// Ends the process, as a finding, when the condition does not hold.
inline void require(bool holds, const char* condition) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", condition);
  std::abort();
}

}  // namespace nox::fuzz
