#include "fuzz/frame_mutator.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/sample_frames.h"
#include "nox/core/gzip_compressor.h"
#include "nox/protocol/remote/remote_object_factory.h"
#include "nox/protocol/remote/select_list.h"
#include "tests/core/samples.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::fuzz {
namespace {

using test::bytes;
using test::framed;

constexpr std::uint32_t kRounds = 200;

std::string upperCase(std::string text, std::size_t maxSize) {
  for (char& c : text) c = 'X';
  return text.substr(0, maxSize);
}

/// Walks frames by the rules of the format alone; false where one of them is broken.
class WellFormed {
public:
  static bool frames(std::string_view input) {
    while (!input.empty()) {
      if (input.size() < 6) return false;
      const std::size_t length = number(input, 4);
      if (length < 2 || input.size() - 4 < length) return false;
      if (input[4] != '[' || input[3 + length] != ']') return false;
      std::string body(input.substr(5, length - 2));
      if (body.substr(0, 4) == "GZIP") body = GZipCompressor().uncompress(body.substr(4));
      WellFormed walk(body);
      while (!walk.rest_.empty()) {
        if (!walk.entity()) return false;
      }
      input.remove_prefix(4 + length);
    }
    return true;
  }

private:
  explicit WellFormed(std::string_view body) : rest_(body) {}

  static std::size_t number(std::string_view from, std::size_t size) {
    std::size_t value = 0;
    for (const char c : from.substr(0, size)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  bool take(std::size_t n) {
    if (rest_.size() < n) return false;
    rest_.remove_prefix(n);
    return true;
  }
  bool take(std::string_view text) {
    return rest_.substr(0, text.size()) == text && take(text.size());
  }
  bool content(std::size_t sizeOfLength) {
    const std::size_t length = number(rest_, sizeOfLength);
    return take(sizeOfLength) && take(length);
  }
  bool entity() {
    if (take("I")) return take(4);
    if (take("s")) return content(2) && take(";");
    if (take("jb")) return content(4) && take(";;");
    if (!take("L")) return false;
    while (!take(";")) {
      if (!entity()) return false;
    }
    return true;
  }

  std::string_view rest_;
};

class FrameMutatorTest : public ::testing::Test {
protected:
  noxp::remote::RemoteObjectFactory factory_;
  std::vector<std::string> seeds_ = sampleFrames(factory_);
  FrameMutator mutator_{factory_, seeds_, upperCase};
};

// A pair of the worked example: the number 5 and the text "ab".
const char kPair[] = "4C 49 00 00 00 03 49 00 00 00 00 49 00 00 00 05 73 00 02 61 62 3B 3B";

TEST_F(FrameMutatorTest, SeedsAreWellFormedFramesOfEveryClass) {
  std::vector<bool> seen(ObjectFactory::kCapacity);
  for (const std::string& seed : seeds_) {
    EXPECT_TRUE(WellFormed::frames(seed)) << test::hex(seed);
    const std::unique_ptr<Serializable> read = test::readFrame(seed, factory_);
    ASSERT_NE(read, nullptr);
    seen[static_cast<std::size_t>(read->getType())] = true;
  }
  for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
    EXPECT_EQ(seen[static_cast<std::size_t>(code)], factory_.getTypeName(code) != nullptr) << code;
  }
}

TEST_F(FrameMutatorTest, SeedsHaveListsWithEntries) {
  const noxp::remote::SelectListProt* list = nullptr;
  std::unique_ptr<Serializable> read;
  for (const std::string& seed : seeds_) {
    read = test::readFrame(seed, factory_);
    list = dynamic_cast<noxp::remote::SelectListProt*>(read.get());
    if (list && list->hasRecordData()) break;
  }
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(list->hasRecordData());
  EXPECT_EQ(list->size(), 1U);
}

TEST_F(FrameMutatorTest, WellFormedChangesLeaveIntactFrames) {
  for (const Change change : kWellFormed) {
    std::uint32_t changed = 0;
    for (std::uint32_t i = 0; i < kRounds; ++i) {
      const std::string& seed = seeds_[i % seeds_.size()];
      const std::string output = mutator_.change(seed, change, i);
      ASSERT_TRUE(WellFormed::frames(output)) << "change " << static_cast<int>(change) << ": "
                                              << test::hex(seed) << " became " << test::hex(output);
      changed += output != seed;
    }
    EXPECT_GT(changed, kRounds / 10) << "change " << static_cast<int>(change);
  }
}

TEST_F(FrameMutatorTest, BreakingChangesBreakFrames) {
  for (const Change change : kBreaking) {
    std::uint32_t broken = 0;
    for (std::uint32_t i = 0; i < kRounds; ++i) {
      broken += !WellFormed::frames(mutator_.change(seeds_[i % seeds_.size()], change, i));
    }
    EXPECT_GT(broken, kRounds / 4) << "change " << static_cast<int>(change);
  }
}

TEST_F(FrameMutatorTest, WhatCannotBeChangedStaysAsItIs) {
  const std::string null = framed(bytes("4C 49 00 00 00 01 3B"));
  // None of them holds a string or a blob that is whole.
  for (const std::string& input :
       {std::string(), std::string("GET / HTTP/1.1\r\n\r\n"), framed(""), framed("x;;y"),
        framed("L"), framed("sXab"), framed("jb"), framed("I"),
        framed("GZIPno member, but as long as one may be"), null + null, null + "rest",
        null.substr(0, null.size() - 1), null.substr(0, 9), std::string("\x7F\xFF\xFF\xFF[L;]", 8),
        std::string("\0\0\0\0[L;]", 8)}) {
    EXPECT_BYTES(mutator_.change(input, Change::ContentLength, 1), input);
  }
}

TEST_F(FrameMutatorTest, TypeCodesComeFromTheFactory) {
  const std::string input = framed(bytes(kPair));
  int known = 0;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::string output = mutator_.change(input, Change::TypeCode, i);
    ASSERT_EQ(output.size(), input.size());
    EXPECT_BYTES(output.substr(0, 7), input.substr(0, 7));
    EXPECT_BYTES(output.substr(11), input.substr(11));
    const int code =
        static_cast<unsigned char>(output[9]) << 8 | static_cast<unsigned char>(output[10]);
    known += factory_.getTypeName(code) != nullptr;
  }
  EXPECT_GT(known, static_cast<int>(kRounds) / 2);
}

TEST_F(FrameMutatorTest, CountsGrowWithTheirEntries) {
  // An object with a list of one text.
  const std::string input =
      framed(bytes("4C 49 00 00 00 03 49 00 00 00 00 49 00 00 00 01 73 00 01 61 3B 3B"));
  const std::string twice = framed(
      bytes("4C 49 00 00 00 03 49 00 00 00 00 49 00 00 00 02 73 00 01 61 3B 73 00 01 61 3B 3B"));
  bool grew = false;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    grew = grew || mutator_.change(input, Change::Count, i) == twice;
  }
  EXPECT_TRUE(grew);
}

TEST_F(FrameMutatorTest, ObjectsNestBeyondTheReadersLimit) {
  test::Classes<test::Anything> factory;
  const FrameMutator mutator(factory, {}, upperCase);
  const std::string input =
      framed(bytes("4C 49 00 00 00 0F 49 00 00 00 00 4C 49 00 00 00 01 3B 3B"));
  bool tooDeep = false;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::string output = mutator.change(input, Change::Nest, i);
    tooDeep = tooDeep || test::outcomeOf(output, factory) == "depth <= 512";
  }
  EXPECT_TRUE(tooDeep);
}

TEST_F(FrameMutatorTest, CompressedBodiesAreChangedInside) {
  const std::string compressed = mutator_.change(framed(bytes(kPair)), Change::Compression, 1);
  EXPECT_EQ(compressed.substr(5, 4), "GZIP");
  bool changed = false;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::string output = mutator_.change(compressed, Change::Absent, i);
    ASSERT_TRUE(WellFormed::frames(output));
    changed = changed || (output != compressed && output.substr(5, 4) == "GZIP");
  }
  EXPECT_TRUE(changed);
  EXPECT_BYTES(mutator_.change(compressed, Change::Compression, 1), framed(bytes(kPair)));
}

TEST_F(FrameMutatorTest, OutputsFitAndFollowFromTheirSeed) {
  constexpr std::size_t kMost = 100;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::string& input = seeds_[i % seeds_.size()];
    const std::string output = mutator_.mutate(input, i, kMost);
    EXPECT_LE(output.size(), kMost);
    EXPECT_BYTES(mutator_.mutate(input, i, kMost), output);
  }
}

TEST_F(FrameMutatorTest, InputsWithoutFramesBecomeSeedsOrOtherBytes) {
  int frames = 0;
  for (std::uint32_t i = 0; i < kRounds; ++i) {
    const std::string output = mutator_.mutate("no frame", i, 1000);
    frames += output.size() > 4 && output[4] == '[';
  }
  EXPECT_GT(frames, static_cast<int>(kRounds) / 2);
}

}  // namespace
}  // namespace nox::fuzz
