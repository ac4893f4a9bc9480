// The one answer to a request.
#include "agent/session/reply.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace nox::agent::test {
namespace {

TEST(Reply, WhatOthersAreToSeeIsShownBeforeItsFirstByteLeaves) {
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  bool shown = false;
  Reply reply(writer, [&] {
    shown = true;
    EXPECT_TRUE(out.str().empty());
  });
  reply.send(OKResponseProt());
  EXPECT_TRUE(shown);
  EXPECT_FALSE(out.str().empty());
}

TEST(Reply, IsSentOnce) {
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  Reply reply(writer);
  EXPECT_FALSE(reply.sent());
  reply.send(OKResponseProt());
  EXPECT_TRUE(reply.sent());
  const std::size_t bytes = out.str().size();
  EXPECT_THROW(reply.send(OKResponseProt()), std::logic_error);
  EXPECT_EQ(out.str().size(), bytes);
}

}  // namespace
}  // namespace nox::agent::test
