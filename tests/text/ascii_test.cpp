#include "nox/text/ascii.h"

#include <gtest/gtest.h>

#include <string>

namespace nox::detail {
namespace {

TEST(PlainAscii, HoldsForEveryLength) {
  for (std::size_t n = 0; n < 70; ++n) {
    EXPECT_TRUE(isPlainAscii(std::string(n, 'x').data(), n)) << n;
  }
}

TEST(PlainAscii, RunsFrom01To7F) {
  for (int c = 0; c < 256; ++c) {
    const std::string text(9, static_cast<char>(c));
    for (const std::size_t n : {1, 4, 8, 9}) {
      EXPECT_EQ(isPlainAscii(text.data(), n), c >= 1 && c <= 0x7F) << c << " x " << n;
    }
  }
}

TEST(PlainAscii, FailsForOneOtherByteAnywhere) {
  for (std::size_t n = 1; n < 40; ++n) {
    for (std::size_t at = 0; at < n; ++at) {
      for (const char other : {'\0', '\x80', '\xFF'}) {
        // Neighbours of 01 and 80 are where a subtraction could borrow or carry.
        std::string text(n, '\x01');
        text[at] = other;
        EXPECT_FALSE(isPlainAscii(text.data(), n)) << n << " at " << at;
      }
    }
  }
}

}  // namespace
}  // namespace nox::detail
