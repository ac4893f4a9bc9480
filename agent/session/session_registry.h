// The sessions that are there, for those who watch them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace nox::agent {

using SessionId = std::uint64_t;

/// One session as an administrator sees it.
struct SessionInfo {
  SessionId id = 0;
  std::uint64_t lockOwner = 0;  // whose locks are the session's
  std::string user;
  std::string account;
  std::string peer;  // address and port
  bool tls = false;
  std::string clientName;
  std::string state;        // "idle", "running", "prompting"
  std::string lastRequest;  // the class of the request that runs or ran last
  bool inTransaction = false;
  std::size_t openLists = 0;
  std::uint64_t requests = 0;
  std::uint64_t bytesIn = 0;
  std::uint64_t bytesOut = 0;
  std::chrono::system_clock::time_point since;
};

/// Safe for threads. Each connection adds itself with two functions that other threads may call
/// while it is there: one that describes it, one that ends it.
class SessionRegistry {
public:
  using Describe = std::function<SessionInfo()>;
  using Kill = std::function<void()>;

  SessionId newId();
  void add(SessionId id, Describe describe, Kill kill);
  void remove(SessionId id);

  std::vector<SessionInfo> list() const;
  /// False where there is no such session.
  bool kill(SessionId id);
  std::size_t size() const;

private:
  struct Entry {
    Describe describe;
    Kill kill;
  };
  mutable std::mutex mutex_;
  std::map<SessionId, Entry> entries_;
  SessionId lastId_ = 0;
};

}  // namespace nox::agent
