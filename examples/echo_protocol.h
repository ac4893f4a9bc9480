// What the echo agent and its client agree on besides the library's own messages.
#pragma once

#include <nox/nox.h>

/// Asks the agent to end; answered by OKResponseProt. A message of one's own is a type code that no
/// other class of the factory has, and a `serialize` that names the fields, of which there are
/// none.
class StopRequest : public nox::Request<StopRequest, 900> {
public:
  nox::Archive& serialize(nox::Archive& ar, unsigned int /*version*/) override { return ar; }
};

/// Knows what both sides say. The client reads replies with it, and it gives the names of requests
/// to whoever shows them to people.
class EchoProtocol : public nox::ClientObjectFactory {
public:
  EchoProtocol() {
    add<nox::noxp::common::EchoRequestProt>("EchoRequest");
    add<nox::noxp::common::LoggingRequestProt>("LoggingRequest");
    add<nox::noxp::remote::DateTimeRequestProt>("DateTimeRequest");
    add<StopRequest>("StopRequest");
  }
  nox::Serializable* create() override { return new EchoProtocol; }
};
