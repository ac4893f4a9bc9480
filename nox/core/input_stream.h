// Where readers take their bytes from.
#pragma once

#include <cstdint>

#include "nox/core/export.h"

namespace nox {

/// The error numbers with which a stream's `readMax` reports "nothing yet". They are the library's
/// own and fixed; the platform's EWOULDBLOCK and EAGAIN count as kErrnoWouldBlock too.
constexpr int kErrnoWouldBlock = 61;
constexpr int kErrnoTimeout = 62;

/// A stream of bytes. Subclasses implement the two `readMax`.
class NOX_EXPORT InputStream {
public:
  virtual ~InputStream();

  /// Reads at most `max` bytes into `buf`. Returns their number; 0 at the peer's orderly end; -1 on
  /// failure, with errno kErrnoTimeout after a time-out, kErrnoWouldBlock where the call would
  /// block, else the system's. Streams may throw `new NONE` and `new LAST` instead, as the socket
  /// streams do.
  virtual std::int64_t readMax(char* buf, int max) = 0;
  /// The same within `timeout` seconds.
  virtual std::int64_t readMax(char* buf, int max, int timeout) = 0;

  /// The next byte, 0 to 255, or -1 when nothing has arrived yet. Throws `new LAST` at the end of
  /// the stream and on a hard error.
  int readChar();
  /// Reads a big-endian 32-bit number with one `readMax` of 4 bytes and returns what that returned.
  /// `value` is set only by exactly 4 bytes; those of a short read are gone. Adds no throw of its
  /// own.
  std::int64_t readInt(int& value);
};

}  // namespace nox
