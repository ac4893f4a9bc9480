// One client's connection, from the first byte to the last.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "agent/config/configuration.h"
#include "agent/failure.h"
#include "agent/server/conversation.h"
#include "agent/server/server_state.h"
#include "agent/server/socket.h"
#include "agent/server/transport.h"
#include "agent/server/wire.h"

namespace nox::agent {

/// One of `serve`, `refuse` and `dismiss` is called, the first two in the connection's own thread.
class Connection {
public:
  using Clock = Transport::Clock;

  /// Borrows `state`.
  Connection(ServerState& state, std::unique_ptr<Transport> transport, Peer peer, bool tls);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Lets the client log in and answers what it asks, until one of the two has had enough.
  void serve() noexcept;
  /// Tells the client why it is not served. HTTP is answered all the same, so that an agent at its
  /// limits can be watched. `reason` is a literal.
  void refuse(const char* reason) noexcept;
  /// The same without a handshake and without waiting for anything.
  void dismiss(const char* reason) noexcept;

  /// From any thread: ends the connection when it is at rest, else after the request that runs.
  void drain();
  /// From any thread: ends it now, with what it does.
  void cut();
  /// From one other thread, again and again: cuts it where the client has gone while a request runs
  /// that ran the last time, too. The one that drains asks no more: its own end of reading would
  /// look like the client's.
  void cutIfGone();

private:
  void guarded(const std::function<void()>& body) noexcept;
  bool handshake(Clock::time_point deadline);
  bool logIn(Clock::time_point deadline);
  std::optional<Failure> answerBeforeLogin(Clock::time_point deadline);
  std::optional<Failure> tryLogin(noxp::AuthenticationRequestProt& request,
                                  Clock::time_point deadline);
  std::optional<Failure> checkPassword(const std::string& user, std::string_view password,
                                       Clock::time_point deadline);
  std::optional<Failure> open(const std::string& user, const std::string& account);
  void converse();
  void answerHttp(Clock::time_point deadline);
  void finish();
  void setConversation(Conversation* conversation);

  ServerState& state_;
  Agent& agent_;
  const std::shared_ptr<const ConfigurationValues> values_;
  const std::unique_ptr<Transport> transport_;
  const Peer peer_;
  const bool tls_;
  Wire wire_;
  std::unique_ptr<Conversation> conversation_;

  std::mutex mutex_;
  Conversation* toInterrupt_ = nullptr;  // the conversation, for cut()
};

}  // namespace nox::agent
