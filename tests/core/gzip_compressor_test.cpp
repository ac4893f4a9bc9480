#include "nox/core/gzip_compressor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "nox/io/buffered_out_stream.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/bytes.h"

namespace nox {
namespace {

using test::bytes;
using testing::MatchesRegex;

// A text whose every part differs from the others and which deflate can still shorten.
std::string text(std::size_t n) {
  std::string out;
  while (out.size() < n) out += std::to_string(out.size() * 7919) + " ";
  out.resize(n);
  return out;
}

template <class E>
E thrownBy(const std::string& member) {
  try {
    GZipCompressor().uncompress(member);
  } catch (const E& error) {
    return error;
  }
  throw std::logic_error("nothing was thrown");
}

std::string withSize(std::string member, std::uint32_t size) {
  for (int i = 0; i < 4; ++i) member[member.size() - 4 + i] = static_cast<char>(size >> (8 * i));
  return member;
}

// "ab" in one stored block: deflate data typed by hand.
const std::string kStoredAb = bytes(
    "1F 8B 08 00 00 00 00 00 00 03"  // header
    "01 02 00 FD FF 61 62"           // last block, stored, 2 bytes, ~2, "ab"
    "6D 48 83 9E"                    // CRC-32 of "ab", 9E83486D
    "02 00 00 00");

TEST(GZipCompressor, CompressesNothingToTwentyBytes) {
  EXPECT_BYTES(GZipCompressor().compress(""), bytes("1F 8B 08 00 00 00 00 00 00 03"
                                                    "03 00"
                                                    "00 00 00 00"
                                                    "00 00 00 00"));
}

TEST(GZipCompressor, WritesTheFixedHeader) {
  for (const std::size_t n : {1, 100, 100000}) {
    EXPECT_BYTES(GZipCompressor().compress(text(n)).substr(0, 10),
                 bytes("1F 8B 08 00 00 00 00 00 00 03"));
  }
}

TEST(GZipCompressor, EndsWithTheChecksumAndTheLengthLittleEndian) {
  // CRC-32 of "123456789" is CBF43926, the algorithm's check value.
  const std::string member = GZipCompressor().compress("123456789");
  EXPECT_BYTES(member.substr(member.size() - 8), bytes("26 39 F4 CB  09 00 00 00"));

  const std::string longMember = GZipCompressor().compress(text(0x12345));
  EXPECT_BYTES(longMember.substr(longMember.size() - 4), bytes("45 23 01 00"));
}

TEST(GZipCompressor, GivesEveryTextBack) {
  GZipCompressor gzip;
  for (const std::size_t n : {0u, 1u, 100u, 65535u, 65536u, 65537u, 1u << 20}) {
    EXPECT_EQ(gzip.uncompress(gzip.compress(text(n))), text(n)) << n;
  }
  const std::string nuls(200000, '\0');
  EXPECT_EQ(gzip.uncompress(gzip.compress(nuls)), nuls);
}

TEST(GZipCompressor, GivesTextBackThatDeflateCannotShorten) {
  std::string noise(300000, '\0');
  std::uint32_t state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
  const std::string member = GZipCompressor().compress(noise);
  EXPECT_GT(member.size(), noise.size());
  EXPECT_EQ(GZipCompressor().uncompress(member), noise);
}

TEST(GZipCompressor, KeepsNothingFromOneTextToTheNext) {
  GZipCompressor gzip;
  std::string first;
  std::thread([&] { first = GZipCompressor().compress(text(5000)); }).join();
  gzip.compress(std::string(70000, 'x'));
  EXPECT_EQ(gzip.compress(text(5000)), first);

  EXPECT_THROW(gzip.uncompress(kStoredAb.substr(0, 12) + std::string(8, '\0')),
               GZipCompressor::ZLibError);
  EXPECT_EQ(gzip.uncompress(kStoredAb), "ab");
}

TEST(GZipCompressor, InflatesAMemberTypedByHand) {
  EXPECT_EQ(GZipCompressor().uncompress(kStoredAb), "ab");
}

TEST(GZipCompressor, RefusesOtherMagicBytesAndMethods) {
  EXPECT_STREQ(thrownBy<GZipCompressor::BadHeader>(bytes("1F 8B 09") + kStoredAb.substr(3)).what(),
               "Bad GZIP header");
  EXPECT_THROW(GZipCompressor().uncompress(bytes("1E") + kStoredAb.substr(1)),
               GZipCompressor::BadHeader);
  EXPECT_THROW(GZipCompressor().uncompress(bytes("1F 8C") + kStoredAb.substr(2)),
               GZipCompressor::BadHeader);
}

TEST(GZipCompressor, RefusesWhatIsTooShortForHeaderAndFooter) {
  for (std::size_t n = 0; n < 18; ++n) {
    EXPECT_THROW(GZipCompressor().uncompress(kStoredAb.substr(0, n)), GZipCompressor::BadHeader)
        << n;
  }
}

TEST(GZipCompressor, DoesNotLookAtTheRestOfTheHeader) {
  // Deliberate: flags that announce further header fields are ignored, and so are the fields.
  std::string member = kStoredAb;
  for (std::size_t i = 3; i < 10; ++i) member[i] = '\x1F';
  EXPECT_EQ(GZipCompressor().uncompress(member), "ab");
}

TEST(GZipCompressor, IgnoresBytesBetweenTheDataAndTheFooter) {
  EXPECT_EQ(GZipCompressor().uncompress(kStoredAb.substr(0, 17) + "junk" + kStoredAb.substr(17)),
            "ab");
}

TEST(GZipCompressor, TellsBothChecksumsInUpperCaseHexadecimal) {
  std::string member = kStoredAb;
  member[17] = 0x0A;  // the lowest byte of the expected checksum
  const auto error = thrownBy<GZipCompressor::CrcError>(member);
  EXPECT_STREQ(error.what(), "CRC error, must be 9E83480A but actual value is 9E83486D");
  EXPECT_EQ(error.getExpected(), 0x9E83480Au);
  EXPECT_EQ(error.getActual(), 0x9E83486Du);
}

TEST(GZipCompressor, PadsChecksumsWithZeros) {
  EXPECT_STREQ(GZipCompressor::CrcError(0xA, 0xBC00).what(),
               "CRC error, must be 0000000A but actual value is 0000BC00");
}

TEST(GZipCompressor, RefusesContentLongerThanItsSizeField) {
  for (const std::uint32_t size : {0u, 1u}) {
    const auto error = thrownBy<GZipCompressor::ZLibError>(withSize(kStoredAb, size));
    EXPECT_EQ(error.getCode(), -5);
    EXPECT_STREQ(error.what(), "ZLIB error, code=-5");
  }
  const std::string big = GZipCompressor().compress(text(300000));
  EXPECT_EQ(thrownBy<GZipCompressor::ZLibError>(withSize(big, 299999)).getCode(), -5);
}

TEST(GZipCompressor, AcceptsContentShorterThanItsSizeField) {
  // Deliberate: the size is only the room; the checksum decides.
  EXPECT_EQ(GZipCompressor().uncompress(withSize(kStoredAb, 3)), "ab");
  EXPECT_EQ(GZipCompressor().uncompress(withSize(kStoredAb, 0xFFFFFFFF)), "ab");
  const std::string big = GZipCompressor().compress(text(300000));
  EXPECT_EQ(GZipCompressor().uncompress(withSize(big, 0xFFFFFFFF)), text(300000));
}

TEST(GZipCompressor, TakesNoMemoryForAFalseSizeField) {
  const std::string member = withSize(GZipCompressor().compress(""), 0xFFFFFFFF);
  GZipCompressor().uncompress(member);  // so that the thread's zlib memory exists
  const test::AllocationScope scope;
  EXPECT_EQ(GZipCompressor().uncompress(member), "");
  EXPECT_LT(scope.bytes(), 16384u);
}

TEST(GZipCompressor, InflatesAThousandfoldWithoutTrustingTheSize) {
  const std::string zeros(8 << 20, '\0');
  const std::string member = GZipCompressor().compress(zeros);
  EXPECT_LT(member.size() * 1000, zeros.size());
  EXPECT_EQ(GZipCompressor().uncompress(member), zeros);
  EXPECT_EQ(GZipCompressor().uncompress(withSize(member, 0xFFFFFFFF)), zeros);
}

TEST(GZipCompressor, InflatesUpToALimit) {
  const std::string zeros(1 << 20, '\0');
  const std::string member = GZipCompressor().compress(zeros);
  std::string out;
  GZipCompressor::uncompressTo(member.data(), member.size(), out, zeros.size());
  EXPECT_EQ(out, zeros);
}

TEST(GZipCompressor, TakesNoMemoryForContentBeyondALimit) {
  const std::string member = GZipCompressor().compress(std::string(1 << 20, '\0'));
  std::string out;
  try {
    GZipCompressor::uncompressTo(member.data(), member.size(), out, (1 << 20) - 1);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const GZipCompressor::ZLibError& error) {
    EXPECT_EQ(error.getCode(), -5);
  }
  EXPECT_THROW(GZipCompressor::uncompressTo(member.data(), member.size(), out, 1000),
               GZipCompressor::ZLibError);
  EXPECT_LE(out.capacity(), 1u << 20);
}

TEST(GZipCompressor, WorksOnAfterItsMemoryWasGivenBack) {
  const std::string member = GZipCompressor().compress("abc");
  GZipCompressor::releaseMemory();
  GZipCompressor::releaseMemory();
  EXPECT_EQ(GZipCompressor().uncompress(member), "abc");
  EXPECT_EQ(GZipCompressor().compress("abc"), member);
}

TEST(GZipCompressor, ReportsBrokenAndTruncatedData) {
  std::string broken = kStoredAb;
  broken[10] = 0x07;  // a block type that does not exist
  EXPECT_EQ(thrownBy<GZipCompressor::ZLibError>(broken).getCode(), -3);

  const std::string truncated = kStoredAb.substr(0, 14) + kStoredAb.substr(17);
  EXPECT_EQ(thrownBy<GZipCompressor::ZLibError>(truncated).getCode(), -5);
  const std::string without = kStoredAb.substr(0, 10) + kStoredAb.substr(17);
  EXPECT_EQ(thrownBy<GZipCompressor::ZLibError>(without).getCode(), -5);
}

TEST(GZipCompressor, SurvivesEveryTruncationAndFlippedBit) {
  const std::string member = GZipCompressor().compress(text(600));
  GZipCompressor().uncompress(member);
  for (std::size_t n = 0; n < member.size(); ++n) {
    EXPECT_THROW(GZipCompressor().uncompress(member.substr(0, n)), GZipCompressor::Error) << n;
  }
  for (std::size_t bit = 0; bit < member.size() * 8; ++bit) {
    std::string flipped = member;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    const test::AllocationScope scope;
    try {
      EXPECT_EQ(GZipCompressor().uncompress(flipped), text(600)) << "bit " << bit;
    } catch (const GZipCompressor::Error&) {
    }
    EXPECT_LT(scope.bytes(), 1100 * member.size()) << "bit " << bit;
  }
}

TEST(GZipCompressor, SharesOneErrorTextPerThread) {
  // Deliberate: asking the second error changes what the first one's pointer shows.
  const GZipCompressor::ZLibError first(-3);
  const GZipCompressor::ZLibError second(-5);
  const char* const shown = first.what();
  EXPECT_STREQ(shown, "ZLIB error, code=-3");
  EXPECT_EQ(second.what(), shown);
  EXPECT_STREQ(shown, "ZLIB error, code=-5");
}

TEST(GZipCompressor, KeepsTheErrorTextsOfThreadsApart) {
  const GZipCompressor::ZLibError mine(-3);
  const char* const shown = mine.what();
  std::thread([] { EXPECT_STREQ(GZipCompressor::BadHeader().what(), "Bad GZIP header"); }).join();
  EXPECT_STREQ(shown, "ZLIB error, code=-3");
}

TEST(GZipCompressor, ThrowsErrorsByValueAsStandardExceptions) {
  EXPECT_THROW(GZipCompressor().uncompress(""), std::exception);
}

TEST(GZipCompressor, ServesAsACompressor) {
  const std::unique_ptr<Compressor> compressor = std::make_unique<GZipCompressor>();
  EXPECT_EQ(compressor->uncompress(compressor->compress("abc")), "abc");
}

TEST(GZipCompressor, NamesItsConstants) {
  EXPECT_EQ(GZipCompressor::GZ_MAGIC_0, 0x1F);
  EXPECT_EQ(GZipCompressor::GZ_MAGIC_1, 0x8B);
  EXPECT_EQ(GZipCompressor::OS_CODE, 0x03);
  EXPECT_EQ(GZipCompressor::GZIP_HEADER_LENGTH, 10);
  EXPECT_EQ(GZipCompressor::GZIP_FOOTER_LENGTH, 8);
  EXPECT_EQ(GZipCompressor::ZLIB_MODIFIER, 100);
}

TEST(GZipCompressor, AppendsToAStreamUnderConstruction) {
  BufferedOutStream out(nullptr, true);
  out.send("GZIP", 4);
  const std::string content = text(40000);
  GZipCompressor::compressTo(content.data(), content.size(), out);
  const std::string gathered(reinterpret_cast<const char*>(out.getBuffer()), out.getLength());
  EXPECT_EQ(gathered.substr(0, 4), "GZIP");
  EXPECT_EQ(gathered.substr(4), GZipCompressor().compress(content));
}

TEST(GZipCompressor, InflatesInPlaceOfWhatAStringHeld) {
  std::string out = "something else, and longer";
  GZipCompressor::uncompressTo(kStoredAb.data(), kStoredAb.size(), out);
  EXPECT_EQ(out, "ab");
}

}  // namespace
}  // namespace nox
