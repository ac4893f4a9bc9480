// Transport: the bytes of a connection, plain or encrypted, without waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "client/src/deadline.h"
#include "client/src/descriptor.h"
#include "nox/client/options.h"

namespace nox::client::detail {

class Transport {
public:
  struct Result {
    enum class Kind {
      Bytes,
      WantsRead,   // again when the socket can be read,
      WantsWrite,  // or written
      End,         // the peer closed
      Failed       // failure() says why
    };
    Kind kind;
    std::size_t count = 0;  // of bytes
  };

  virtual ~Transport() = default;

  /// Up to `n` bytes, which is more than none. Neither call waits.
  virtual Result read(char* to, std::size_t n) = 0;
  virtual Result write(const char* from, std::size_t n) = 0;
  /// Whether bytes that arrived may be waiting where poll() does not see them.
  virtual bool mayHoldBytes() const = 0;
  /// Tells the peer that this is the end, if that takes no waiting.
  virtual void sayGoodbye() noexcept = 0;
  virtual bool isEncrypted() const = 0;

  int fd() const { return descriptor_.get(); }
  /// All that was given to the system so far, handshakes included.
  std::uint64_t bytesOnWire() const { return bytesOnWire_; }
  const std::string& failure() const { return failure_; }

protected:
  explicit Transport(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  Descriptor descriptor_;
  std::uint64_t bytesOnWire_ = 0;
  std::string failure_;
};

std::unique_ptr<Transport> makePlainTransport(Descriptor descriptor);

/// What all TLS connections made with the same options share: certificates to trust and to show.
class TlsContext {
public:
  virtual ~TlsContext() = default;
  /// Shakes hands as a client, and verifies the peer as the options say; `host` is whom it should
  /// be. Throws TransportFailure.
  virtual std::unique_ptr<Transport> connect(Descriptor descriptor, const std::string& host,
                                             const Deadline& deadline) const = 0;
};

/// Throws Error HY024 for files that cannot be used.
std::unique_ptr<TlsContext> makeTlsContext(const Options& options);

}  // namespace nox::client::detail
