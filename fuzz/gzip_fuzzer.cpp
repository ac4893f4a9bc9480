// Inflating: the input as a whole member, and as deflate data in a member that is otherwise right.
// Compressing: the input as a text that must come back.
#include <string>

#include "fuzz/fuzz_target.h"
#include "nox/core/gzip_compressor.h"

namespace {

// The most that deflate can make of its data.
constexpr std::size_t kLargestRatio = 1032;

void uncompress(const std::string& member) {
  try {
    const std::string content = nox::GZipCompressor().uncompress(member);
    nox::fuzz::require(content.size() <= kLargestRatio * member.size(), "content comes from data");
  } catch (const nox::GZipCompressor::Error& error) {
    nox::fuzz::require(error.what()[0] != '\0', "errors have a text");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  uncompress(input);

  nox::GZipCompressor gzip;
  const std::string member = gzip.compress(input);
  nox::fuzz::require(gzip.uncompress(member) == input, "a text comes back");

  // A false checksum, and a size that leaves all the room there can be.
  uncompress(member.substr(0, 10) + input + std::string(4, '\0') + std::string(4, '\xFF'));
  return 0;
}
