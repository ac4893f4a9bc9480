#include "agent/server/connection.h"

#include <utility>

#include "agent/http/http_pages.h"
#include "agent/http/http_request.h"
#include "agent/locks/lock_table.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/names.h"
#include "agent/requests/fields.h"
#include "agent/session/session_registry.h"
#include "agent/store/store.h"
#include "agent/users/logins.h"
#include "agent/users/users.h"

namespace nox::agent {

namespace {

constexpr std::size_t kLoginFrame = 64 * 1024;  // bytes
constexpr int kMostFailures = 3;

// For clients that are not served: to say hello, to ask, and to read the answer.
constexpr std::chrono::seconds kRefusalHandshake{2};
constexpr std::chrono::seconds kRefusalWait{1};
constexpr std::chrono::seconds kLinger{1};

std::string metricsPage(Agent& agent) {
  Metrics::Gauges gauges;
  gauges.sessions = agent.sessions.size();
  gauges.locks = agent.locks.size();
  for (const std::string& account : agent.stores.accounts()) {
    const StoreStatistics statistics = agent.stores.open(account).statistics();
    gauges.storeBusySeconds += statistics.busySeconds;
    gauges.storeCommits += statistics.commits;
    gauges.storeWrites += statistics.writes;
  }
  return agent.metrics.page(gauges);
}

/// A name as the log shows it: what is no name may be a password in the wrong place.
std::string shown(const std::string& user) {
  return isFileName(user) ? "user " + user : "a user of no valid name";
}

}  // namespace

Connection::Connection(ServerState& state, std::unique_ptr<Transport> transport, Peer peer,
                       bool tls)
    : state_(state),
      agent_(state.agent),
      values_(agent_.configuration.values()),
      transport_(std::move(transport)),
      peer_(std::move(peer)),
      tls_(tls),
      wire_(*transport_) {
  Wire::Limits limits;
  limits.frame = kLoginFrame;
  limits.reply = values_->maxFrame;
  limits.frameTime = values_->login;
  limits.sendTime = values_->send;
  wire_.expect(state_.loginFactory, limits);
}

Connection::~Connection() = default;

void Connection::drain() { transport_->shutDownReading(); }

void Connection::cut() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (toInterrupt_) toInterrupt_->interrupt();
  }
  transport_->shutDown();
}

void Connection::cutIfGone() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!toInterrupt_ || !toInterrupt_->runsStill() || !transport_->hasPeerClosed()) return;
    agent_.log.info("session " + std::to_string(toInterrupt_->id()) +
                    ": the client has gone, what it asked for is ended");
  }
  cut();
}

void Connection::setConversation(Conversation* conversation) {
  const std::lock_guard<std::mutex> lock(mutex_);
  toInterrupt_ = conversation;
}

/// Lets nothing out of the thread.
void Connection::guarded(const std::function<void()>& body) noexcept {
  try {
    body();
  } catch (const ConnectionLost&) {
    agent_.log.debug("connection from " + peer_.text() + ": lost");
  } catch (const std::exception& error) {
    agent_.log.error("connection from " + peer_.text() + " ended: " + error.what());
  } catch (...) {
    agent_.log.error("connection from " + peer_.text() + " ended: unknown exception");
  }
  setConversation(nullptr);
  conversation_.reset();
}

void Connection::serve() noexcept {
  agent_.metrics.connectionOpened(tls_);
  guarded([this] {
    const Clock::time_point deadline = Clock::now() + values_->login;
    if (handshake(deadline) && logIn(deadline)) converse();
    finish();
  });
  agent_.metrics.connectionClosed(tls_);
}

void Connection::dismiss(const char* reason) noexcept {
  agent_.metrics.connectionRefused();
  guarded([this, reason] {
    wire_.sendError(Failure("08", "004", reason));
    transport_->sayGoodbye();
  });
}

void Connection::refuse(const char* reason) noexcept {
  agent_.metrics.connectionRefused();
  agent_.log.info("connection from " + peer_.text() + " refused: " + reason);
  guarded([this, reason] {
    if (!handshake(Clock::now() + kRefusalHandshake)) return;
    const Clock::time_point deadline = Clock::now() + kRefusalWait;
    Wire::Event event = Wire::Event::Nothing;
    wire_.setDeadline(deadline);
    while (event == Wire::Event::Nothing && Clock::now() < deadline && !state_.stopping()) {
      event = wire_.next();
    }
    if (event == Wire::Event::Http) {
      answerHttp(deadline);
    } else {
      wire_.sendError(Failure("08", "004", reason));
    }
    finish();
  });
}

bool Connection::handshake(Clock::time_point deadline) {
  std::string reason;
  if (transport_->handshake(deadline, reason)) return true;
  agent_.log.info("connection from " + peer_.text() + ": no TLS: " + reason);
  return false;
}

/// True when there is a conversation.
bool Connection::logIn(Clock::time_point deadline) {
  wire_.setDeadline(deadline);
  for (int failures = 0; failures < kMostFailures;) {
    std::optional<Failure> failure;
    switch (wire_.next()) {
      case Wire::Event::Request:
      case Wire::Event::Unreadable:
        failure = answerBeforeLogin(deadline);
        break;
      case Wire::Event::Broken:
        wire_.sendError(Failure("IE", "000", "this is no frame, or one that is too long"));
        return false;
      case Wire::Event::Http:
        answerHttp(deadline);
        return false;
      case Wire::Event::Nothing:
        if (Clock::now() >= deadline || !state_.serving()) return false;
        transport_->waitReadable(deadline);
        continue;
      case Wire::Event::Ended:
        return false;
    }
    if (!failure) return true;
    ++failures;
    wire_.sendError(*failure);
    if (Clock::now() >= deadline || !state_.serving()) return false;
  }
  return false;
}

/// Nothing once the client is logged in, and has been told so.
std::optional<Failure> Connection::answerBeforeLogin(Clock::time_point deadline) {
  const std::unique_ptr<noxp::RequestProt> request = wire_.takeRequest();
  if (!request) {
    const std::optional<int> type = wire_.unknownType();
    if (!type) return wire_.problem();
    return Failure("0A", "000",
                   "type code " + std::to_string(*type) + " is not known before the login");
  }
  auto* const login = dynamic_cast<noxp::AuthenticationRequestProt*>(request.get());
  if (!login) return Failure("0A", "000", "the agent does not answer this request");
  std::optional<Failure> failure;
  try {
    failure = tryLogin(*login, deadline);
  } catch (const std::exception& error) {
    agent_.log.error("login from " + peer_.text() + " failed: " + error.what());
    failure = Failure("IE", "000", "internal error");
  }
  wire_.wipeFrame();
  if (!failure) {
    OKResponseProt reply;
    wire_.writer().writeRoot(reply);
  } else if (failure->state().sqlClass == "28") {
    agent_.metrics.loginFailed();
  }
  return failure;
}

std::optional<Failure> Connection::tryLogin(noxp::AuthenticationRequestProt& request,
                                            Clock::time_point deadline) {
  const auto* const credentials = dynamic_cast<LocalUserCredentials*>(request.getCredentials());
  if (!credentials) return Failure("28", "000", "there are no credentials");
  if (!tls_ && !peer_.loopback && !values_->plainLoginEverywhere) {
    agent_.log.warning("login refused: " + peer_.text() + " came without TLS");
    return Failure("28", "000", "from other machines passwords are taken over TLS alone");
  }
  const std::string user(textOf(credentials->getUserName()));
  if (auto failure = checkPassword(user, textOf(credentials->getPassword()), deadline)) {
    return failure;
  }
  const auto* const naming = dynamic_cast<const AccountUserCredentialsProt*>(credentials);
  std::string account(naming ? textOf(naming->getAccount()) : std::string_view());
  if (account.empty()) account = values_->defaultAccount;
  return open(user, account);
}

std::optional<Failure> Connection::checkPassword(const std::string& user, std::string_view password,
                                                 Clock::time_point deadline) {
  switch (agent_.logins.check(peer_.address, user, password, deadline)) {
    case Logins::Verdict::Right:
      return std::nullopt;
    case Logins::Verdict::Wrong:
      agent_.log.warning("login refused: " + shown(user) + " from " + peer_.text() +
                         ": wrong user or password");
      return Failure("28", "000", "wrong user or password");
    case Logins::Verdict::TooMany:
      break;
  }
  agent_.log.warning("login refused: " + shown(user) + " from " + peer_.text() +
                     ": too many logins at once");
  return Failure("28", "000", "too many logins at once, try again later");
}

/// The password was right: begins the conversation.
std::optional<Failure> Connection::open(const std::string& user, const std::string& account) {
  const std::optional<Right> right = agent_.users.right(user, account);
  if (!right || !agent_.stores.hasAccount(account)) {
    agent_.log.warning("login refused: " + shown(user) + " from " + peer_.text() +
                       ": no right to enter the account");
    return Failure("28", "000", "the user may not enter this account");
  }
  try {
    conversation_ = std::make_unique<Conversation>(
        state_, *transport_, wire_, Conversation::Party{user, account, *right, peer_, tls_},
        [this] { cut(); });
  } catch (const StoreError& error) {
    agent_.log.error("account " + account + " cannot be opened: " + error.what());
    return Failure("08", "004", "the account cannot be opened");
  }
  setConversation(conversation_.get());
  agent_.log.info("session " + std::to_string(conversation_->id()) + ": user " + user +
                  " logged in to " + account + " from " + peer_.text() + (tls_ ? " over TLS" : ""));
  return std::nullopt;
}

void Connection::converse() {
  wire_.setDeadline(std::nullopt);
  const SessionId id = conversation_->id();
  Conversation::End end = Conversation::End::Gone;
  try {
    end = conversation_->run();
  } catch (const ConnectionLost&) {
    agent_.log.info("session " + std::to_string(id) + ": the client is gone");
  }
  setConversation(nullptr);
  conversation_.reset();
  agent_.log.info("session " + std::to_string(id) + ": ended");
  if (end == Conversation::End::Http) answerHttp(Clock::now() + values_->login);
}

void Connection::answerHttp(Clock::time_point deadline) {
  wire_.setDeadline(deadline);
  const std::unique_ptr<HttpRequest> request = wire_.readHttp();
  if (!request) return;
  HttpPages pages;
  pages.allowed = values_->http && (peer_.loopback || values_->httpEverywhere);
  pages.ready = state_.serving();
  pages.metrics = [this] { return metricsPage(agent_); };
  wire_.sendRaw(nox::agent::answerHttp(*request, pages));
}

/// Ends the connection so that the client reads all that was sent.
void Connection::finish() {
  if (wire_.lost()) return transport_->shutDown();
  transport_->sayGoodbye();
  transport_->linger(Clock::now() + kLinger, [this] { return state_.stopping(); });
  transport_->shutDown();
}

}  // namespace nox::agent
