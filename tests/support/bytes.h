// Bytes written by hand in hexadecimal, and shown the same way when they differ.
#pragma once

#include <string>
#include <string_view>

namespace nox::test {

/// The bytes of a text of hexadecimal pairs: bytes("4C  49 00 00 00 C9"). Blanks and line breaks
/// are free; anything else fails the test.
std::string bytes(std::string_view hex);

/// The reverse, for messages of failed expectations: "4C 49 00".
std::string hex(std::string_view data);

}  // namespace nox::test

/// Compares two byte strings and shows both in hexadecimal.
#define EXPECT_BYTES(actual, expected) \
  EXPECT_EQ(::nox::test::hex(actual), ::nox::test::hex(expected))
