// The factories' fuzz targets without a fuzzer: every sample frame, and a changed one of each.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/agent_factory.h"
#include "fuzz/frame_mutator.h"
#include "fuzz/read_frames.h"
#include "fuzz/sample_frames.h"
#include "nox/protocol/client_object_factory.h"

namespace nox::fuzz {
namespace {

constexpr std::size_t kLongest = 4096;

std::string unchanged(std::string bytes, std::size_t maxSize) { return bytes.substr(0, maxSize); }

void readExactly(const std::string& input, ObjectFactory& factory) {
  // In a block of exactly this size, so that the sanitizers see a read behind it.
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[input.size()]);
  std::copy(input.begin(), input.end(), exact.get());
  readFrames(exact.get(), input.size(), factory);
}

template <class Factory>
class MutatedFrames : public ::testing::Test {};

using Factories =
    ::testing::Types<noxp::auth::AuthObjectFactory, noxp::sql::SQLObjectFactory,
                     noxp::remote::RemoteObjectFactory, ClientObjectFactory, AgentFactory>;
TYPED_TEST_SUITE(MutatedFrames, Factories);

TYPED_TEST(MutatedFrames, AreReadAndUsedWithoutHarm) {
  TypeParam factory;
  const std::vector<std::string> frames = sampleFrames(factory);
  const FrameMutator mutator(factory, frames, unchanged);
  std::uint32_t random = 0;
  for (const std::string& frame : frames) {
    readExactly(frame, factory);
    readExactly(mutator.mutate(frame, ++random, kLongest), factory);
  }
}

}  // namespace
}  // namespace nox::fuzz
