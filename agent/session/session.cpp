#include "agent/session/session.h"

#include <algorithm>
#include <utility>

#include "agent/commands/queries.h"
#include "agent/config/configuration.h"
#include "agent/failure.h"
#include "agent/lists/select_lists.h"
#include "agent/session/agent.h"
#include "agent/session/data_access.h"
#include "agent/session/reply.h"
#include "agent/session/transactions.h"
#include "agent/sql/statements.h"

namespace nox::agent {

namespace {

Settings defaultSettings(const ConfigurationValues& values) {
  Settings settings;
  settings.lockWait = values.lockWait;
  settings.fetchSize = values.fetchSize;
  settings.statementTimeout = values.statementTimeout;
  settings.timezone = values.timezone;
  return settings;
}

}  // namespace

Session::Session(Agent& agent, SessionId id, std::string user, std::string account, Right right,
                 std::string peer)
    : agent_(agent),
      id_(id),
      peer_(std::move(peer)),
      user_(std::move(user)),
      account_(std::move(account)),
      right_(right),
      lockOwner_(agent.locks.newOwner()),
      settings_(defaultSettings(*agent.configuration.values())) {
  open();
}

Session::~Session() { close(); }

void Session::open() {
  auto store = agent_.stores.open(account_).openSession();
  writerWaits_.emplace(agent_.locks, lockOwner_, account_);
  store->setWatch(&*writerWaits_);
  store->setWait(settings_.lockWait);
  {
    const std::lock_guard<std::mutex> lock(storeMutex_);
    store_ = std::move(store);
  }
  transactions_ = std::make_unique<Transactions>(*this);
  data_ = std::make_unique<DataAccess>(*this);
  lists_ = std::make_unique<SelectLists>(*this);
  statements_ = std::make_unique<SqlStatements>(*this);
  queries_ = std::make_unique<Queries>(*this);
}

void Session::close() {
  // What reads the store ends before its transaction, the transaction before its locks.
  program_.reset();
  queries_.reset();
  statements_.reset();
  lists_.reset();
  transactions_.reset();
  data_.reset();
  std::unique_ptr<StoreSession> store;
  {
    const std::lock_guard<std::mutex> lock(storeMutex_);
    store = std::move(store_);
  }
  store.reset();
  agent_.locks.releaseAll(lockOwner_);
}

void Session::requireWrite() const {
  if (right_ < Right::Write) throw Failure("42", "000", "the user may only read this account");
}

std::size_t Session::frameCap() const { return agent_.configuration.values()->maxFrame; }

std::size_t Session::roomInFrame() const {
  constexpr std::size_t kOtherFields = 1024;  // at most
  return frameCap() - std::min(frameCap(), kOtherFields);
}

void Session::switchTo(std::string user, std::string account, Right right) {
  // Opened before the old one ends, so that a store that cannot be opened changes nothing.
  agent_.stores.open(account);
  close();
  user_ = std::move(user);
  account_ = std::move(account);
  right_ = right;
  commons_.clear();
  lastCommandCode_ = 0;
  open();
}

void Session::start(std::unique_ptr<Program> program, Reply& reply) {
  if (transactions_->isOpen()) store_->setMark();
  program_ = std::move(program);
  run(std::nullopt, reply);
}

void Session::resume(std::string_view input, Reply& reply) {
  if (!program_) throw Failure("IE", "011", "no program waits for input");
  run(input, reply);
}

void Session::run(std::optional<std::string_view> input, Reply& reply) {
  // Taken out while it runs: a program that fails is over.
  std::unique_ptr<Program> program = std::move(program_);
  const Program::State state = program->run(input);
  if (state == Program::State::Done) {
    program->finish(reply);
    return;
  }
  const std::string output = program->takeOutput();
  constexpr int kInput = 1;
  constexpr int kHiddenInput = 2;
  const NOXPBlob shown(output.data(), output.size());
  program_ = std::move(program);
  programSince_ = Clock::now();
  reply.send(noxp::InputOutputResponseProt(
      state == Program::State::WantsHiddenInput ? kHiddenInput : kInput, &shown));
}

void Session::abandonProgram() {
  if (!program_) return;
  program_.reset();
  // Outside a transaction each of its changes was committed as it was made.
  if (transactions_->isOpen()) store_->rollbackToMark();
}

void Session::beginRequest() {
  const Clock::time_point now = Clock::now();
  transactions_->touch(now);
  deadline_.reset();
  if (settings_.statementTimeout.count() > 0) deadline_ = now + settings_.statementTimeout;
  store_->setDeadline(deadline_);
  // The store begins anew with each request; a session that is told to end does not.
  if (isInterrupted()) store_->interrupt();
  transactions_->tellExpired();
}

void Session::afterReply() {
  // Whom the transaction keeps waiting goes on as soon as it is over.
  if (writerWaits_->takeCycle()) transactions_->giveUp();
  // Idle is who does not ask: a long request takes nothing away.
  if (transactions_->isOpen()) transactions_->touch(Clock::now());
  statements_->prepareNextBatch();
}

std::optional<Session::Clock::time_point> Session::nextExpiry() const {
  std::optional<Clock::time_point> next = transactions_->expiry();
  if (program_) {
    const auto prompt = programSince_ + agent_.configuration.values()->prompt;
    next = next ? std::min(*next, prompt) : prompt;
  }
  return next;
}

void Session::expire(Clock::time_point now) {
  if (program_ && programSince_ + agent_.configuration.values()->prompt <= now) abandonProgram();
  const auto transaction = transactions_->expiry();
  if (transaction && *transaction <= now) transactions_->expire();
}

void Session::interrupt() {
  interrupted_.store(true, std::memory_order_relaxed);
  {
    const std::lock_guard<std::mutex> lock(storeMutex_);
    if (store_) store_->interrupt();
  }
  agent_.locks.cancel(lockOwner_);
}

}  // namespace nox::agent
