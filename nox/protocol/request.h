// RequestProt, the root of everything a client asks.
#pragma once

#include <string>

#include "nox/core/serializable.h"

namespace nox {

class SQLExtError;

namespace noxp {

class ResponseProt;

/// Adds nothing to the wire: each request's `serialize` writes that request's own fields.
class NOX_EXPORT RequestProt : public Serializable {
public:
  RequestProt() = default;
  RequestProt(const RequestProt&) = default;
  RequestProt& operator=(const RequestProt&) = default;
  ~RequestProt() override;

  /// Whether this object was made to be read into, and so owns the select lists it points to.
  bool isServerSide() const { return serverSide; }
  /// The layout version with which `serialize` last ran, in the requests that depend on it.
  unsigned int getSerializedVersion() const { return serializedVersion; }

protected:
  // Replies for request handlers: newly allocated, the caller's; null when there is no memory for
  // them. `file` and `line` only reach the log. A status is appended to the message as
  // " (Status = 0x", its 32 bits in lower-case hexadecimal, ")".
  ResponseProt* OK();
  ResponseProt* error(SQLExtError& e);
  ResponseProt* error(SQLExtError& e, const char* file, int line);
  /// The catalogue's message for this SQLSTATE.
  ResponseProt* error(const char* sqlClass, const char* sqlSubClass);
  /// An internal error, IE/000, with this message.
  ResponseProt* error(std::string& msg);
  ResponseProt* error(int status, const char* sqlClass, const char* sqlSubClass);
  /// Deliberate: `msg` itself takes on the status.
  ResponseProt* error(int status, std::string& msg);
  ResponseProt* error(int status, const char* msg);

  // For subclasses to set: the first where the object is made to be read into, the second in
  // `serialize`.
  bool serverSide = false;
  unsigned int serializedVersion = 0;
};

}  // namespace noxp
}  // namespace nox
