#include "tests/agent/support/agent_in_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "agent/agent_object_factory.h"
#include "agent/failure.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/session/branches.h"
#include "agent/session/data_access.h"
#include "agent/session/reply.h"
#include "agent/session/session_registry.h"
#include "agent/sql/sql_conversions.h"
#include "agent/store/sqlite/sqlite_engine.h"
#include "agent/store/sqlite/sqlite_store.h"
#include "agent/users/logins.h"

namespace nox::agent::test {

/// What a start of the agent makes, in the order in which main() makes it.
struct AgentInProcess::Parts {
  Parts(const TempDirectory& directory, const ConfigurationValues& values,
        const Dispatcher& dispatcher)
      : configuration(values),
        log(directory.file("noxd.log"), LogLevel::Debug),
        metrics(dispatcher.names()),
        users(directory.file("users.db"), true),
        logins(users),
        stores(makeSqliteEngine(directory.file("accounts"), options())),
        branches(*stores, locks),
        agent{configuration, log, metrics, users, *stores, locks, branches, sessions, logins} {
    if (!stores->hasAccount("MAIN")) stores->createAccount("MAIN");
    branches.recover(log);
  }

  static SqliteOptions options() {
    SqliteOptions options;
    options.synchronousFull = false;  // no test here pulls the plug
    options.conversions = sqlConversions;
    return options;
  }

  Configuration configuration;
  Log log;
  Metrics metrics;
  Users users;
  Logins logins;
  std::unique_ptr<StoreEngine> stores;
  LockTable locks;
  Branches branches;
  SessionRegistry sessions;
  Agent agent;
};

AgentInProcess::AgentInProcess(const Change& change) : dispatcher_(allRequests()) {
  values_.dataDirectory = directory_.path();
  if (change) change(values_);
  start();
}

AgentInProcess::~AgentInProcess() = default;

void AgentInProcess::start() { parts_ = std::make_unique<Parts>(directory_, values_, dispatcher_); }

void AgentInProcess::restart() {
  parts_.reset();
  start();
}

Agent& AgentInProcess::agent() { return parts_->agent; }

namespace {

void waitUntil(const std::function<bool()>& somebodyWaits) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!somebodyWaits()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "nobody waits";
    std::this_thread::yield();
  }
}

}  // namespace

void AgentInProcess::waitUntilSomebodyWaits() {
  waitUntil([&] {
    const std::vector<HeldLock> held = agent().locks.list("MAIN");
    return std::any_of(held.begin(), held.end(),
                       [](const HeldLock& lock) { return lock.waiting > 0; });
  });
}

void AgentInProcess::waitUntilSomebodyWaitsForTheWriter() {
  auto& store = dynamic_cast<SqliteStore&>(agent().stores.open("MAIN"));
  waitUntil([&] { return store.writerPlace().waiting() > 0; });
}

std::unique_ptr<Session> AgentInProcess::newSession(Right right, const std::string& user,
                                                    const std::string& account) {
  return std::make_unique<Session>(agent(), agent().sessions.newId(), user, account, right);
}

ClientInProcess::ClientInProcess(AgentInProcess& agent, Right right, const std::string& user,
                                 const std::string& account)
    : agent_(agent), session_(agent.newSession(right, user, account)) {}

ClientInProcess::~ClientInProcess() = default;

std::unique_ptr<Serializable> ClientInProcess::ask(noxp::RequestProt& request) {
  MemoryBufferOutStream asked;
  BinaryWriter(&asked).writeRoot(request);
  AgentObjectFactory agentFactory;
  MemoryBufferInputStream arrived(asked.str().data(), asked.str().size());
  const std::unique_ptr<noxp::RequestProt> received(
      BinaryReader(&agentFactory, &arrived).readRequest());

  MemoryBufferOutStream answered;
  BinaryWriter writer(&answered);
  answer(*received, writer);
  session_->afterReply();

  ClientObjectFactory clientFactory;
  MemoryBufferInputStream back(answered.str().data(), answered.str().size());
  return std::unique_ptr<Serializable>(BinaryReader(&clientFactory, &back).readRootObject());
}

void ClientInProcess::answer(noxp::RequestProt& request, BinaryWriter& writer) {
  const Dispatcher::Entry* const entry = agent_.dispatcher().find(request);
  if (!entry) throw std::logic_error("no handler for this request");
  Reply reply(writer);
  std::optional<Failure> failure;
  try {
    if (!entry->keepsPrompt) session_->abandonProgram();
    session_->beginRequest();
    entry->handle(*session_, request, reply, *entry);
    if (!reply.sent()) throw std::logic_error("the request was not answered");
  } catch (const Failure& thrown) {
    failure = thrown;
  } catch (const StoreError& error) {
    try {
      throwAsFailure(error, "IE", "000");
    } catch (const Failure& thrown) {
      failure = thrown;
    }
  }
  if (!failure) return;
  const SQLExtError error = failure->error();
  if (entry->isSql) {
    const auto* const about = dynamic_cast<noxp::sql::SQLRequestProt*>(&request);
    reply.send(noxp::sql::SQLErrorResponseProt(about ? about->getStatementId() : 0, error));
  } else {
    reply.send(ErrorResponseProt(error));
  }
}

}  // namespace nox::agent::test
