// What is expected of every message: that it travels as described, survives damage, and copies.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::test {

/// Expects that `message` goes out as a frame with exactly this body (in hexadecimal), that reading
/// the frame gives a message that goes out the same way, and that every damaged form of the frame
/// has a clear end. `Nested` are the payload classes that the reader must know besides.
template <class... Nested, class Message>
void expectTravelsAs(Message&& message, std::string_view body) {
  using Class = std::decay_t<Message>;
  const std::string frame = framed(bytes(body));
  EXPECT_BYTES(frameOf(message), frame);

  Classes<Class, Nested...> factory;
  const std::unique_ptr<Class> read = readAs<Class>(frame, factory);
  ASSERT_NE(read, nullptr);
  EXPECT_BYTES(frameOf(*read), frame);
  expectSurvivesDamage(frame, factory);
}

/// Expects that copies of `message`, by construction and by assignment, go out like the original
/// after the original is gone, and that assigning a message to itself changes nothing.
template <class Message>
void expectCopies(const Message& message) {
  auto original = std::make_unique<Message>(message);
  original->setClassVersion(1);
  const std::string frame = frameOf(*original);

  Message constructed(*original);
  Message assigned;
  assigned = *original;
  original.reset();
  EXPECT_BYTES(frameOf(constructed), frame);
  EXPECT_BYTES(frameOf(assigned), frame);

  const Message& itself = assigned;
  assigned = itself;
  EXPECT_BYTES(frameOf(assigned), frame);
}

}  // namespace nox::test
