// Frames of messages, and messages of frames, through memory.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"

namespace nox::test {

/// The whole frame of `message`, its 4-byte length included.
std::string frameOf(Serializable& message);
inline std::string frameOf(Serializable&& message) { return frameOf(message); }

/// A body in a frame: the 4-byte length, '[', `body`, ']'.
std::string framed(std::string_view body);

/// A factory of the given classes alone: Classes<A, B> factory;
template <class... Messages>
class Classes : public ObjectFactory {
public:
  Classes() { (add<Messages>("test"), ...); }
  Serializable* create() override { return new Classes; }
};

/// Reads the first root object of `frame`; what the reader throws passes.
std::unique_ptr<Serializable> readFrame(std::string_view frame, ObjectFactory& factory);

/// The same, as a Message; null, with a failure, when the root is of another class.
template <class Message>
std::unique_ptr<Message> readAs(std::string_view frame, ObjectFactory& factory) {
  std::unique_ptr<Serializable> root = readFrame(frame, factory);
  auto* message = dynamic_cast<Message*>(root.get());
  if (message) root.release();
  return std::unique_ptr<Message>(message);
}

/// Writes `message` and reads it back as a new object of its own class.
template <class Message>
std::unique_ptr<Message> roundTrip(Message& message) {
  Classes<Message> factory;
  return readAs<Message>(frameOf(message), factory);
}

/// Reads `frame` through `factory` and says how it ended: "object", "null", or the name of what was
/// thrown. For inputs whose only duty is to end clearly.
std::string outcomeOf(std::string_view frame, ObjectFactory& factory);

/// Every truncation of `frame`, and every single bit of it flipped, must end in an outcome, and
/// without allocating more than the frame's bytes justify.
void expectSurvivesDamage(const std::string& frame, ObjectFactory& factory);

}  // namespace nox::test
