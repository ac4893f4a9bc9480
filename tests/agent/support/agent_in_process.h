// The agent without its server: everything that sessions share, over a store in a directory of its
// own.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <nox/nox.h>

#include "agent/config/configuration.h"
#include "agent/locks/lock_table.h"
#include "agent/session/agent.h"
#include "agent/session/dispatcher.h"
#include "agent/session/session.h"
#include "agent/store/store.h"
#include "agent/users/users.h"
#include "tests/agent/support/client_calls.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {

/// Has the account MAIN. Locks are waited for 200 ms unless `change` says otherwise.
class AgentInProcess {
public:
  using Change = std::function<void(ConfigurationValues&)>;

  explicit AgentInProcess(const Change& change = {});
  /// The sessions have ended.
  ~AgentInProcess();
  AgentInProcess(const AgentInProcess&) = delete;
  AgentInProcess& operator=(const AgentInProcess&) = delete;

  Agent& agent();
  const Dispatcher& dispatcher() const { return dispatcher_; }
  const TempDirectory& directory() const { return directory_; }
  std::unique_ptr<Session> newSession(Right right = Right::Admin, const std::string& user = "ann",
                                      const std::string& account = "MAIN");
  /// Returns when somebody waits for a record of MAIN that another has locked.
  void waitUntilSomebodyWaits();
  /// Returns when somebody waits for another one who writes to MAIN.
  void waitUntilSomebodyWaitsForTheWriter();
  /// What is left when the agent is started anew. The sessions have ended, in whatever state.
  void restart();

private:
  struct Parts;

  void start();

  TempDirectory directory_;
  const Dispatcher dispatcher_;
  ConfigurationValues values_;
  std::unique_ptr<Parts> parts_;
};

/// A client of a session in the same process. Requests and replies travel as frames in memory.
class ClientInProcess : public ClientCalls {
public:
  explicit ClientInProcess(AgentInProcess& agent, Right right = Right::Admin,
                           const std::string& user = "ann", const std::string& account = "MAIN");
  /// Ends the session.
  ~ClientInProcess() override;

  Session& session() { return *session_; }
  std::unique_ptr<Serializable> ask(noxp::RequestProt& request) override;

private:
  void answer(noxp::RequestProt& request, BinaryWriter& writer);

  AgentInProcess& agent_;
  std::unique_ptr<Session> session_;
};

}  // namespace nox::agent::test
