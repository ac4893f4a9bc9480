#include "agent/server/conversation.h"

#include <algorithm>
#include <new>
#include <utility>

#include "agent/lists/select_lists.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/session/data_access.h"
#include "agent/session/reply.h"
#include "agent/session/transactions.h"

namespace nox::agent {

namespace {

constexpr int kMostRefused = 3;
constexpr const char* kOk = "ok";

/// The five characters, as logs and metrics show them.
std::string codeOf(const Failure& failure) {
  return failure.state().sqlClass + failure.state().sqlSubClass;
}

int statementIdOf(const noxp::RequestProt& request) {
  const auto* const about = dynamic_cast<const noxp::sql::SQLRequestProt*>(&request);
  return about ? about->getStatementId() : 0;
}

/// Adds to what this thread alone writes and others read.
void add(std::atomic<std::uint64_t>& counter, std::uint64_t n) {
  counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

}  // namespace

Conversation::Conversation(ServerState& state, Transport& transport, Wire& wire, Party party,
                           SessionRegistry::Kill kill)
    : state_(state),
      agent_(state.agent),
      transport_(transport),
      wire_(wire),
      peer_(party.peer),
      tls_(party.tls),
      session_(agent_, agent_.sessions.newId(), std::move(party.user), std::move(party.account),
               party.right, party.peer.address),
      busyWait_(state.traffic),
      ended_(Clock::now()) {
  session_.setBeforeWait([this] { wire_.sendGathered(); });
  takeValues();
  publish();
  agent_.sessions.add(
      session_.id(), [this] { return describe(); }, std::move(kill));
}

Conversation::~Conversation() { agent_.sessions.remove(session_.id()); }

void Conversation::takeValues() {
  generation_ = state_.generation.load(std::memory_order_relaxed);
  values_ = agent_.configuration.values();
  Wire::Limits limits;
  limits.frame = values_->maxFrame;
  limits.reply = values_->maxFrame;
  limits.frameTime = values_->frame;
  limits.sendTime = values_->send;
  wire_.expect(state_.agentFactory, limits);
}

void Conversation::interrupt() {
  interrupted_ = true;
  session_.interrupt();
}

bool Conversation::runsStill() {
  std::optional<std::uint64_t> running;
  if (activity_.load(std::memory_order_relaxed) == Activity::Running) {
    running = requests_.load(std::memory_order_relaxed);
  }
  return std::exchange(runningAtLastLook_, running) == running && running;
}

Conversation::End Conversation::run() {
  const End end = converse();
  wire_.sendGathered();
  return end;
}

Conversation::End Conversation::converse() {
  for (;;) {
    if (generation_ != state_.generation.load(std::memory_order_relaxed)) takeValues();
    switch (wire_.next()) {
      case Wire::Event::Request:
        answer();
        break;
      case Wire::Event::Unreadable:
        began_ = Clock::now();
        refuse(wire_.problem());
        break;
      case Wire::Event::Broken:
        began_ = Clock::now();
        refuse(Failure("IE", "000", "this is no frame, or one that is too long"));
        return End::Said;
      case Wire::Event::Http:
        return End::Http;
      case Wire::Event::Nothing:
        if (!rest()) return End::Said;
        continue;
      case Wire::Event::Ended:
        return End::Gone;
    }
    resting_ = false;
    const bool mayGoOn = state_.serving() && !interrupted_.load(std::memory_order_relaxed);
    if (!mayGoOn || refused_ == kMostRefused) return End::Said;
    if (wire_.lost()) return End::Gone;
    if (!wire_.hasMore()) busyWait_.await([this] { return transport_.isReadable(); });
  }
}

void Conversation::answer() {
  began_ = Clock::now();
  const std::unique_ptr<noxp::RequestProt> request = wire_.takeRequest();
  const Dispatcher::Entry* const entry = state_.dispatcher.find(*request);
  if (!entry) return refuse(Failure("0A", "000", "the agent does not answer this request"));
  activity_.store(Activity::Running, std::memory_order_relaxed);
  lastRequest_.store(entry->name, std::memory_order_relaxed);
  // Many requests that were sent at once are answered with a few pieces. Nobody waits longer for a
  // reply than the next brief request takes.
  const bool brief = isBrief(*entry);
  if (!brief) wire_.sendGathered();
  wire_.gatherReplies(brief && wire_.hasNextFrame());
  const std::uint64_t sentBefore = wire_.bytesSent();
  const std::string outcome = handle(*entry, *request);
  wire_.gatherReplies(false);
  const std::uint64_t bytesOut = wire_.bytesSent() - sentBefore;
  ended_ = Clock::now();
  agent_.metrics.request(entry->index, wire_.frameBytes(), bytesOut, ended_ - began_);
  note(entry->name, bytesOut, outcome);
  prepareNext();
  publish();
  showAtRest();
}

bool Conversation::isBrief(const Dispatcher::Entry& entry) {
  using Brief = Dispatcher::Entry::Brief;
  return entry.brief == Brief::Yes ||
         (entry.brief == Brief::WhileWriting && session_.store().hasWritten());
}

/// Answers a frame that holds nothing the agent can work on.
void Conversation::refuse(const Failure& failure) {
  ++refused_;
  const std::string code = codeOf(failure);
  agent_.metrics.error(code);
  const std::uint64_t sentBefore = wire_.bytesSent();
  wire_.sendError(failure);
  ended_ = Clock::now();
  note("(none)", wire_.bytesSent() - sentBefore, code);
}

/// Sends the one reply, and says how it went: "ok" or an SQLSTATE.
std::string Conversation::handle(const Dispatcher::Entry& entry, noxp::RequestProt& request) {
  const std::uint64_t sentBefore = wire_.bytesSent();
  Reply reply(wire_.writer(), [this] { publish(); });
  const int threshold = session_.settings().compressThreshold;
  if (threshold >= 0) reply.compressFrom(threshold);
  std::optional<Failure> failure;
  try {
    if (!entry.keepsPrompt) session_.abandonProgram();
    session_.beginRequest();
    // An interruption that came before the request began has been forgotten with its begin.
    if (interrupted_) throw Failure("IE", "000", "the session was ended");
    entry.handle(session_, request, reply, entry);
    if (reply.sent()) return kOk;
    throw std::logic_error("a request was not answered");
  } catch (const ConnectionLost&) {
    throw;
  } catch (...) {
    failure = failureOfException(entry);
  }
  std::string code = codeOf(*failure);
  agent_.metrics.error(code);
  if (wire_.bytesSent() == sentBefore) {
    if (reply.sent()) wire_.dropReply();
    publish();
    if (entry.isSql) {
      wire_.sendSqlError(statementIdOf(request), *failure);
    } else {
      wire_.sendError(*failure);
    }
  }
  return code;
}

/// What the exception that is being handled is to the client. The log alone learns the particulars
/// of what is the agent's own fault.
Failure Conversation::failureOfException(const Dispatcher::Entry& entry) {
  const auto internal = [&](const std::string& what) {
    agent_.log.error("session " + std::to_string(session_.id()) + ": " + entry.name +
                     " failed: " + what);
    return Failure("IE", "000", "internal error");
  };
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const StoreError& error) {
    try {
      throwAsFailure(error, "IE", "000");
    } catch (const Failure& failure) {
      return failure;
    }
  } catch (const SQLExtError& error) {
    return Failure(error.getSqlState().sqlClass.c_str(), error.getSqlState().sqlSubClass.c_str(),
                   "the request is at odds with itself");
  } catch (const std::bad_alloc&) {
    agent_.log.error("session " + std::to_string(session_.id()) + ": no memory for " + entry.name);
    return Failure("IE", "000", "out of memory");
  } catch (const FrameTooLong& error) {
    return Failure("IE", "000", error.what());
  } catch (const std::exception& error) {
    return internal(error.what());
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    return internal(error->what());
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
    return internal("end of stream");
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
    return internal("nothing to read");
  } catch (...) {
    return internal("unknown exception");
  }
}

/// The request that was just answered, in the counters and the logs.
void Conversation::note(const char* request, std::uint64_t bytesOut, const std::string& outcome) {
  add(requests_, 1);
  add(bytesIn_, wire_.frameBytes());
  add(bytesOut_, bytesOut);
  const auto duration = ended_ - began_;
  const bool slow = values_->slowRequest.count() > 0 && duration >= values_->slowRequest;
  if (!values_->accessLog && !slow) return;
  AccessRecord record;
  record.session = session_.id();
  record.user = session_.user();
  record.account = session_.account();
  record.request = request;
  record.bytesIn = wire_.frameBytes();
  record.bytesOut = bytesOut;
  record.duration = duration;
  record.outcome = outcome;
  if (values_->accessLog) agent_.log.access(record);
  if (slow) agent_.log.slow(record);
}

void Conversation::prepareNext() {
  try {
    session_.afterReply();
  } catch (const std::exception& error) {
    // The client has its answer. Whatever is wrong comes up again when it asks for what was to be
    // prepared.
    agent_.log.warning("session " + std::to_string(session_.id()) +
                       ": nothing prepared: " + error.what());
  }
}

void Conversation::showAtRest() {
  activity_.store(session_.isPrompting() ? Activity::Prompting : Activity::Idle,
                  std::memory_order_relaxed);
}

/// Shows other threads what the request has changed; before its reply, so that who has the reply
/// may rely on it.
void Conversation::publish() {
  inTransaction_.store(session_.transactions().isOpen(), std::memory_order_relaxed);
  openLists_.store(session_.lists().size(), std::memory_order_relaxed);
  const std::string& clientName = session_.settings().clientName;
  if (identity_.user == session_.user() && identity_.account == session_.account() &&
      identity_.clientName == clientName) {
    return;
  }
  const std::lock_guard<std::mutex> lock(identityMutex_);
  identity_ = Identity{session_.user(), session_.account(), clientName};
}

SessionInfo Conversation::describe() const {
  SessionInfo info;
  info.id = session_.id();
  info.lockOwner = session_.lockOwner();
  {
    const std::lock_guard<std::mutex> lock(identityMutex_);
    info.user = identity_.user;
    info.account = identity_.account;
    info.clientName = identity_.clientName;
  }
  info.peer = peer_.text();
  info.tls = tls_;
  switch (activity_.load(std::memory_order_relaxed)) {
    case Activity::Idle:
      info.state = "idle";
      break;
    case Activity::Running:
      info.state = "running";
      break;
    case Activity::Prompting:
      info.state = "prompting";
      break;
  }
  info.lastRequest = lastRequest_.load(std::memory_order_relaxed);
  info.inTransaction = inTransaction_.load(std::memory_order_relaxed);
  info.openLists = openLists_.load(std::memory_order_relaxed);
  info.requests = requests_.load(std::memory_order_relaxed);
  info.bytesIn = bytesIn_.load(std::memory_order_relaxed);
  info.bytesOut = bytesOut_.load(std::memory_order_relaxed);
  info.since = since_;
  return info;
}

/// A tick has passed without a byte: ends what has waited for too long, and waits on without ticks
/// until the next thing is due. False when the conversation is over.
bool Conversation::rest() {
  if (!state_.serving() || interrupted_.load(std::memory_order_relaxed)) return false;
  if (!std::exchange(resting_, true)) {
    wire_.rest();
    session_.store().rest();
  }
  const Clock::time_point now = Clock::now();
  auto due = session_.nextExpiry();
  if (due && *due <= now) {
    session_.expire(now);
    publish();
    showAtRest();
    due = session_.nextExpiry();
  }
  if (values_->idle.count() > 0) {
    const Clock::time_point idleEnd = ended_ + values_->idle;
    if (idleEnd <= now) {
      agent_.log.info("session " + std::to_string(session_.id()) + ": idle for too long");
      return false;
    }
    due = due ? std::min(*due, idleEnd) : idleEnd;
  }
  transport_.waitReadable(due);
  return true;
}

}  // namespace nox::agent
