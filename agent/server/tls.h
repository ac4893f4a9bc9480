// TLS: the certificate that the agent shows, and the connections that are made with it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "agent/config/configuration.h"
#include "agent/server/transport.h"

namespace nox::agent {

/// What the files of the configuration hold at one moment: TLS 1.2 and later, no renegotiation, no
/// resumption (every connection is checked against what holds now). Safe for threads.
class TlsContext {
public:
  /// Reads the certificate chain, its key and the authorities of clients. Throws
  /// std::runtime_error that names the file and what is wrong with it. `warn` is told of a key that
  /// others may read.
  TlsContext(const TlsSettings& settings, const std::function<void(std::string_view)>& warn);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  /// The connections keep what they need of the context. Throws std::runtime_error without memory.
  std::unique_ptr<Transport> makeTransport(Descriptor socket) const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
