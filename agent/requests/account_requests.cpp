// The request that moves a session to another account: 224.
#include <chrono>
#include <optional>
#include <string>

#include "agent/config/configuration.h"
#include "agent/failure.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/requests/fields.h"
#include "agent/session/agent.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"
#include "agent/session/transactions.h"
#include "agent/store/store.h"
#include "agent/users/logins.h"
#include "agent/users/users.h"

namespace nox::agent {

namespace {

using noxp::remote::SwitchAccountRequestProt;
using noxp::remote::SwitchAccountResponseProt;

constexpr int kSwitched = 0;
constexpr int kRefused = 1;

/// What the user may do in the account; nothing when it is to stay outside.
std::optional<Right> rightOf(Session& session, const std::string& user, std::string_view password,
                             const std::string& account) {
  Agent& agent = session.agent();
  const auto deadline = Logins::Clock::now() + agent.configuration.values()->login;
  const auto verdict = agent.logins.check(session.peer(), user, password, deadline);
  if (verdict != Logins::Verdict::Right) {
    agent.metrics.loginFailed();
    return std::nullopt;
  }
  const std::optional<Right> right = agent.users.right(user, account);
  return right && agent.stores.hasAccount(account) ? right : std::nullopt;
}

void switchAccount(Session& session, SwitchAccountRequestProt& request, Reply& reply) {
  if (session.transactions().isOpen()) throw Failure("25", "000", "a transaction is open");
  const std::string user(textOf(request.getUser()));
  const std::string account(textOf(request.getAccount()));
  const auto right = rightOf(session, user, textOf(request.getPassword()), account);
  const std::string who = "session " + std::to_string(session.id()) + ": ";
  if (!right) {
    session.agent().log.warning(who + "a switch of the account was refused");
    return reply.send(SwitchAccountResponseProt(kRefused));
  }
  session.switchTo(user, account, *right);
  session.agent().log.info(who + "user " + user + " went to " + account);
  reply.send(SwitchAccountResponseProt(kSwitched));
}

}  // namespace

void registerAccountRequests(Dispatcher& dispatcher) {
  dispatcher.on("SwitchAccount", switchAccount);
}

}  // namespace nox::agent
