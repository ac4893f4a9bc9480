// Conversation: the requests of a client that has logged in, one after the other, each with its one
// reply.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "agent/config/configuration.h"
#include "agent/failure.h"
#include "agent/server/server_state.h"
#include "agent/server/socket.h"
#include "agent/server/wire.h"
#include "agent/session/session.h"
#include "agent/session/session_registry.h"

namespace nox::agent {

/// Runs in its connection's thread, and is in the registry of sessions while it exists.
class Conversation {
public:
  using Clock = Transport::Clock;

  enum class End {
    Http,  // the client goes on with HTTP
    Said,  // the agent has closed it: what the client still sends is not read
    Gone   // the client has
  };

  /// Of whom the conversation is with.
  struct Party {
    std::string user;
    std::string account;
    Right right = Right::Read;
    Peer peer;
    bool tls = false;
  };

  /// Borrows the first three. Opens the session, which may throw what the store throws. `kill` ends
  /// the connection, from any thread.
  Conversation(ServerState& state, Transport& transport, Wire& wire, Party party,
               SessionRegistry::Kill kill);
  ~Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  SessionId id() const { return session_.id(); }
  /// Until one of the two has had enough. Throws ConnectionLost.
  End run();
  /// From any thread: ends what runs now, and the conversation after it.
  void interrupt();
  /// From one other thread: whether the request runs that ran when this was asked last.
  bool runsStill();

private:
  enum class Activity { Idle, Running, Prompting };
  /// What `describe` shows beside counters.
  struct Identity {
    std::string user;
    std::string account;
    std::string clientName;
  };

  End converse();
  void answer();
  bool isBrief(const Dispatcher::Entry& entry);
  void refuse(const Failure& failure);
  std::string handle(const Dispatcher::Entry& entry, noxp::RequestProt& request);
  Failure failureOfException(const Dispatcher::Entry& entry);
  bool rest();
  void prepareNext();
  void note(const char* request, std::uint64_t bytesOut, const std::string& outcome);
  void publish();
  void showAtRest();
  void takeValues();
  SessionInfo describe() const;

  ServerState& state_;
  Agent& agent_;
  Transport& transport_;
  Wire& wire_;
  const Peer peer_;
  const bool tls_;
  Session session_;
  std::shared_ptr<const ConfigurationValues> values_;
  unsigned int generation_ = 0;
  int refused_ = 0;
  bool resting_ = false;
  BusyWait busyWait_;
  Clock::time_point began_{};  // the request that runs
  Clock::time_point ended_;    // the last one

  // For other threads.
  std::atomic<bool> interrupted_{false};
  std::atomic<Activity> activity_{Activity::Idle};
  std::atomic<const char*> lastRequest_{""};
  std::atomic<bool> inTransaction_{false};
  std::atomic<std::size_t> openLists_{0};
  std::atomic<std::uint64_t> requests_{0};
  std::atomic<std::uint64_t> bytesIn_{0};
  std::atomic<std::uint64_t> bytesOut_{0};
  std::optional<std::uint64_t> runningAtLastLook_;  // belongs to who asks runsStill()
  const std::chrono::system_clock::time_point since_ = std::chrono::system_clock::now();
  mutable std::mutex identityMutex_;
  Identity identity_;  // written by the connection's thread alone
};

}  // namespace nox::agent
