// HTTPRequestProt, what an agent that also speaks HTTP derives its request class from.
#pragma once

#include "nox/protocol/request.h"
#include "nox/protocol/type_codes.h"

namespace nox {
namespace noxp {

/// An HTTP request that arrived on the binary port. The agent's own class adds `create` and
/// `serialize`, which takes the text of the request with `process(std::string&)`, and is registered
/// in the agent's factory.
class NOX_EXPORT HTTPRequestProt : public RequestProt {
public:
  ~HTTPRequestProt() override = default;
  int getType() override { return TypeCode::HTTPRequest; }

  /// Whether requests are read at all; asked with 0.
  virtual bool isServiceEnabled(int service) = 0;
  /// The limit for headers and body together, in bytes; below 1 for the reader's own.
  virtual int getMaxRequestSize() = 0;
  /// The request could not be read: an HTTP status and its text, a constant that stays valid.
  virtual void setError(int status, const char* message) = 0;

protected:
  HTTPRequestProt() = default;
  HTTPRequestProt(const HTTPRequestProt&) = default;
  HTTPRequestProt& operator=(const HTTPRequestProt&) = default;
};

}  // namespace noxp
}  // namespace nox
