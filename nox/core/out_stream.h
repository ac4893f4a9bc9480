// Where writers put their bytes.
#pragma once

#include <cstddef>

#include "nox/core/export.h"

class NOXPBlob;
class NOXPString;

namespace nox {

/// A sink of bytes. Subclasses implement `send(const char*, size_t)` and `flush`, and add
/// `using OutStream::send;` to keep the other forms.
class NOX_EXPORT OutStream {
public:
  virtual ~OutStream();
  /// The blob's bytes, nothing before or after them. A null blob sends nothing.
  virtual void send(NOXPBlob& blob);
  virtual void send(NOXPBlob* blob);
  /// The string's UTF-8 bytes (it is converted in place), nothing before or after them: the text
  /// ends at its first NUL. A null string sends nothing.
  virtual void send(NOXPString& text);
  virtual void send(NOXPString* text);
  /// Accepts all `n` bytes, buffering or blocking as needed.
  virtual void send(const char* data, std::size_t n) = 0;

private:
  virtual void blobSend(NOXPBlob* blob);

public:
  /// `send(data, n)`; nothing for an `n` below 1.
  virtual void blobSend(char* data, int n);
  /// Pushes buffered bytes out.
  virtual void flush() = 0;
};

}  // namespace nox
