// The HTTP request object that the factories know: it holds the text until a connection answers it.
#pragma once

#include <string>

#include <nox/nox.h>

namespace nox::agent {

/// Read by the library's HTTP reader. Whether it is served at all is the connection's to decide,
/// which knows where the peer is.
class HttpRequest : public noxp::HTTPRequestProt {
public:
  /// Headers and body together, in bytes; a request for a page has no body to speak of.
  static constexpr int kMostBytes = 16 * 1024;

  Serializable* create() override { return newOrNull<HttpRequest>(); }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(text_, "request");
  }
  bool isServiceEnabled(int /*service*/) override { return true; }
  int getMaxRequestSize() override { return kMostBytes; }
  void setError(int status, const char* message) override {
    errorStatus_ = status;
    errorMessage_ = message;
  }

  const std::string& text() const { return text_; }
  /// 0 when it was read whole.
  int errorStatus() const { return errorStatus_; }
  const char* errorMessage() const { return errorMessage_; }

private:
  std::string text_;
  int errorStatus_ = 0;
  const char* errorMessage_ = "";
};

}  // namespace nox::agent
