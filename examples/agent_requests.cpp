#include "agent_requests.h"

#include <iostream>
#include <memory>
#include <mutex>

using nox::noxp::ResponseProt;
using nox::noxp::common::EchoResponseProt;

namespace {

/// The helpers of RequestProt hand over a new reply, or null when there is no memory for one.
Then send(nox::BinaryWriter& writer, ResponseProt* handedOver, Then then = Then::ReadOn) {
  const std::unique_ptr<ResponseProt> reply(handedOver);
  if (!reply) return Then::HangUp;  // a client that is told nothing must not wait for it either
  writer.writeRoot(*reply);
  return then;
}

}  // namespace

Then Echo::answer(nox::BinaryWriter& writer) {
  EchoResponseProt reply(new NOXPBlob(*getBuffer()));  // the reply owns the copy
  // A frame smaller than the bytes in it was compressed: then this client can read such frames.
  properties_t asItCame;
  asItCame.compress = getPacketSize() < getBuffer()->length();
  reply.setProperties(&asItCame);  // only looked at, and only by writeRoot
  writer.writeRoot(reply);
  return Then::ReadOn;
}

Then Log::answer(nox::BinaryWriter& writer) {
  say("client, level " + std::to_string(getLevel()) + ": " + getInfo()->getString());
  return send(writer, OK());
}

Then Clock::answer(nox::BinaryWriter& writer) {
  constexpr int kNotServed = 38;
  return send(writer, error(kNotServed, "This agent keeps no clock"));
}

Then Stop::answer(nox::BinaryWriter& writer) { return send(writer, OK(), Then::StopAgent); }

nox::Archive& HttpRequest::serialize(nox::Archive& ar, unsigned int /*version*/) {
  return ar.process(text_, "request");
}

void HttpRequest::setError(int status, const char* message) {
  status_ = status;
  message_ = message;
}

Then HttpRequest::answer(nox::BinaryWriter& writer) {
  const std::string line = text_.substr(0, text_.find_first_of("\r\n"));
  if (status_ == 200 && line.rfind("GET ", 0) != 0) setError(405, "Method Not Allowed");
  const std::string body = status_ == 200 ? "The echo agent is here. You asked: " + line + "\n"
                                          : std::to_string(status_) + " " + message_ + "\n";
  const std::string response =
      "HTTP/1.0 " + std::to_string(status_) + " " + message_ +
      "\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\nConnection: close\r\n\r\n" + body;
  // No frame around it: past the writer, to the stream behind it.
  writer.getOutStream()->send(response.data(), response.size());
  writer.getOutStream()->flush();
  return Then::HangUp;
}

AgentFactory::AgentFactory() {
  add<Echo>("EchoRequest");
  add<Log>("LoggingRequest");
  add<Clock>("DateTimeRequest");
  add<Stop>("StopRequest");
  add<HttpRequest>("HTTPRequest");
}

void say(const std::string& line) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::cout << line << std::endl;  // flushed: somebody may be waiting for it on a pipe
}
