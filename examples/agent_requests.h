// The requests that the echo agent understands. Each is a class of the library's or the protocol's
// with the agent's own part added: an answer. The agent's factory makes these classes, so what the
// reader hands over can answer itself, and the loop around it needs no list of types.
#pragma once

#include <functional>
#include <string>

#include "echo_protocol.h"

enum class Then { ReadOn, HangUp, StopAgent };

/// What the agent adds to a request.
class Answerable {
public:
  virtual ~Answerable() = default;
  /// Writes the answer and says what becomes of the conversation.
  virtual Then answer(nox::BinaryWriter& writer) = 0;

protected:
  Answerable() = default;
  Answerable(const Answerable&) = default;
  Answerable& operator=(const Answerable&) = default;
};

/// Sends the same bytes back, compressed when they came compressed.
class Echo : public nox::noxp::common::EchoRequestProt, public Answerable {
public:
  nox::Serializable* create() override { return new Echo; }
  Then answer(nox::BinaryWriter& writer) override;
};

/// Prints a line for the client.
class Log : public nox::noxp::common::LoggingRequestProt, public Answerable {
public:
  nox::Serializable* create() override { return new Log; }
  Then answer(nox::BinaryWriter& writer) override;
};

/// Stands for the requests of the protocol that this agent does not serve.
class Clock : public nox::noxp::remote::DateTimeRequestProt, public Answerable {
public:
  nox::Serializable* create() override { return new Clock; }
  Then answer(nox::BinaryWriter& writer) override;
};

class Stop : public StopRequest, public Answerable {
public:
  nox::Serializable* create() override { return new Stop; }
  Then answer(nox::BinaryWriter& writer) override;
};

/// A browser, or anybody who speaks HTTP to the same port.
class HttpRequest : public nox::noxp::HTTPRequestProt, public Answerable {
public:
  nox::Serializable* create() override { return new HttpRequest; }
  nox::Archive& serialize(nox::Archive& ar, unsigned int version) override;
  bool isServiceEnabled(int /*service*/) override { return true; }
  int getMaxRequestSize() override { return 64 * 1024; }
  void setError(int status, const char* message) override;
  Then answer(nox::BinaryWriter& writer) override;

private:
  std::string text_;  // the whole request
  int status_ = 200;
  std::string message_ = "OK";
};

/// Read-only once made, so all connections share one.
class AgentFactory : public nox::ObjectFactory {
public:
  AgentFactory();
  nox::Serializable* create() override { return new AgentFactory; }
};

/// Prints one line of the agent's, whole, whichever thread it comes from.
void say(const std::string& line);
