// The trace file: a line per frame.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/src/descriptor.h"

namespace nox::client::detail {

/// Appends lines such as
///
///   2026-02-03T04:05:06.789012Z 4711.1 > ReadRecord type=201 bytes=45 payload=***
///
/// process and connection, ">" for what is sent and "<" for what comes, the frame's length with its
/// head, and its body in hexadecimal where payload is shown. Each line is written at once, so that
/// threads and processes may share a file. A line that cannot be written is left out.
class Trace {
public:
  enum class Direction { Sent, Received };

  /// Off.
  Trace() = default;
  /// Throws Error HY024 when the file cannot be opened. It is made with permissions for its owner
  /// alone.
  Trace(const std::string& file, bool showPayload);

  bool isOn() const { return static_cast<bool>(file_); }
  /// Whether `write` looks at bodies.
  bool showsPayload() const { return showsPayload_; }
  /// `body` is what follows the 4 bytes of the length.
  void write(Direction direction, const char* name, int type, std::uint64_t bytes,
             std::string_view body, bool isSecret) noexcept;

private:
  Descriptor file_;
  bool showsPayload_ = false;
  std::uint64_t connection_ = 0;
};

}  // namespace nox::client::detail
