// Monitoring: one command line as text, one text back. The command language is the server's.
#pragma once

#include <string>

#include "nox/protocol/message.h"

namespace nox::noxp::remote {

/// Plain text in the native code page: it ends at its first NUL and stays below 65,536 bytes.
class NOX_EXPORT MonitoringRequestProt
    : public Request<MonitoringRequestProt, TypeCode::MonitoringRequest> {
public:
  MonitoringRequestProt() = default;
  MonitoringRequestProt(const std::string& command) : command_(command) {}
  /// The command, one space and the argument; the space stays when the argument is empty.
  MonitoringRequestProt(const std::string& command, const std::string& argument)
      : command_(command + " " + argument) {}

  const std::string& command() const { return command_; }
  const std::string& getCommand() const { return command_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::string command_;
};

class NOX_EXPORT MonitoringResponseProt
    : public Response<MonitoringResponseProt, TypeCode::MonitoringResponse> {
public:
  MonitoringResponseProt() = default;
  MonitoringResponseProt(const std::string& response) : response_(response) {}

  const std::string& response() const { return response_; }
  const std::string& getResponse() const { return response_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::string response_;
};

}  // namespace nox::noxp::remote
