#include "client/src/channel.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <new>
#include <system_error>

#include "client/src/message_names.h"
#include "client/src/socket.h"
#include "client/src/transport_failure.h"

namespace nox::client::detail {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = Transport::Result::Kind;

// After so long without a word it is worth a look whether the peer has gone.
constexpr std::chrono::seconds kIdleBeforeLook{1};

constexpr std::size_t kMostPosted = 32;

// What a TLS record holds at most.
constexpr std::size_t kTlsRecord = 16384;

/// What every channel reads with. It is only read, and never destroyed: static objects of the
/// application may use connections in their destructors.
ClientObjectFactory& clientFactory() {
  static ClientObjectFactory& factory = *new ClientObjectFactory;
  return factory;
}

/// The code in " (Status = 0x1f)" at the end of a server's message.
std::optional<std::int32_t> statusIn(std::string_view message) {
  constexpr std::string_view kPrefix = " (Status = 0x";
  const std::size_t at = message.rfind(kPrefix);
  if (at == std::string_view::npos || message.back() != ')') return std::nullopt;
  const std::string_view digits =
      message.substr(at + kPrefix.size(), message.size() - at - kPrefix.size() - 1);
  std::uint32_t status = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, status, 16);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return static_cast<std::int32_t>(status);
}

/// What a peer sends may be of any length; a code has five characters.
std::string stateOf(SQLSTATE& state) {
  constexpr std::size_t kClass = 2;
  constexpr std::size_t kSubclass = 3;
  std::string code = state.getSQLClass().substr(0, kClass);
  code.resize(kClass, '?');
  code += state.getSQLSubClass().substr(0, kSubclass);
  code.resize(kClass + kSubclass, '?');
  return code;
}

std::optional<Error> errorFrom(SQLExtError* error) {
  if (!error) return Error("IE000", "the server gives no reason", Outcome::Rejected);
  const std::string message = error->getMsg();
  return Error(stateOf(error->getSqlState()), message, Outcome::Rejected, statusIn(message));
}

}  // namespace

std::optional<Error> errorIn(Serializable& answer) {
  if (auto* const failed = dynamic_cast<ErrorResponseProt*>(&answer)) {
    return errorFrom(failed->getError());
  }
  if (auto* const failed = dynamic_cast<noxp::sql::SQLErrorResponseProt*>(&answer)) {
    return errorFrom(failed->getError());
  }
  return std::nullopt;
}

/// Takes whole frames from the writer and waits until the system has them.
class Channel::Output final : public OutStream {
public:
  using OutStream::send;
  Output(Transport& transport, Trace& trace) : transport_(transport), trace_(trace) {}

  void prepare(const Deadline& deadline, int type, bool isSecret) {
    deadline_ = deadline;
    type_ = type;
    isSecret_ = isSecret;
  }

  void send(const char* data, std::size_t n) override {
    if (trace_.isOn()) traceFrame(data, n);
    while (n > 0) {
      const Transport::Result result = transport_.write(data, n);
      if (result.kind == Kind::Bytes) {
        data += result.count;
        n -= result.count;
        // A peer that takes a little now and then gains no time by it.
        if (n > 0 && deadline_.hasPassed()) throwTooLate();
        continue;
      }
      if (result.kind == Kind::End || result.kind == Kind::Failed) {
        throw TransportFailure{sqlstate::kConnectionLost, result.kind == Kind::End
                                                              ? "the server closed the connection"
                                                              : transport_.failure()};
      }
      const short events = result.kind == Kind::WantsRead ? POLLIN : POLLOUT;
      if (waitFor(transport_.fd(), events, deadline_) == 0) throwTooLate();
    }
  }

  void flush() override {}

private:
  [[noreturn]] static void throwTooLate() {
    throw TransportFailure{sqlstate::kTimeout, "the request could not be sent in time"};
  }

  void traceFrame(const char* data, std::size_t n) {
    const std::string_view frame(data, n);
    trace_.write(Trace::Direction::Sent, requestName(type_), type_, n,
                 frame.substr(std::min(kLengthSize, n)), isSecret_ || detail::isSecret(type_));
  }

  Transport& transport_;
  Trace& trace_;
  Deadline deadline_;
  int type_ = 0;
  bool isSecret_ = false;
};

/// Tells the observer of one request, however it ends.
class Channel::Observation {
public:
  /// Of a request that begins now.
  Observation(const Channel& channel, int type)
      : Observation(channel, type,
                    channel.settings_.observer ? Clock::now() : Clock::time_point()) {}
  Observation(const Channel& channel, int type, Clock::time_point begin)
      : observer_(&channel.settings_.observer), begin_(begin) {
    if (!*observer_) return;
    exchange_.type = type;
    exchange_.request = requestName(type);
  }

  void succeeded(std::uint64_t sent, std::uint64_t received) { tell(sent, received, nullptr); }
  void failed(std::uint64_t sent, std::uint64_t received, const Error& error) {
    tell(sent, error.outcome() == Outcome::Rejected ? received : 0, &error);
  }

private:
  void tell(std::uint64_t sent, std::uint64_t received, const Error* error) {
    if (!*observer_) return;
    exchange_.bytesSent = sent;
    exchange_.bytesReceived = received;
    exchange_.duration = Clock::now() - begin_;
    if (error) {
      exchange_.sqlState = error->sqlState();
      exchange_.outcome = error->outcome();
    }
    try {
      (*observer_)(exchange_);
    } catch (...) {  // NOLINT(bugprone-empty-catch): an observer changes nothing
    }
  }

  const Observer* observer_;
  Clock::time_point begin_;
  Exchange exchange_;
};

/// A request whose answer has not come yet, and is for nobody but the observer.
struct Channel::Posted {
  Observation observation;
  std::uint64_t bytesSent;
};

Channel::Channel(std::unique_ptr<Transport> transport, Settings settings)
    : owner_(::getpid()),
      settings_(std::move(settings)),
      transport_(std::move(transport)),
      isEncrypted_(transport_->isEncrypted()),
      factory_(clientFactory()),
      input_(*transport_, settings_.maxFrame),
      output_(std::make_unique<Output>(*transport_, settings_.trace)),
      reader_(&factory_, &input_),
      writer_(output_.get()),
      lastUse_(Clock::now()) {
  reader_.limitInflation(settings_.maxFrame);
  if (settings_.trace.isOn() && settings_.trace.showsPayload()) input_.keepCopies();
  posted_.reserve(kMostPosted);
  canceller_->attach(transport_->fd());
}

Channel::~Channel() { close(); }

bool Channel::isForeign() const { return ::getpid() != owner_; }

void Channel::close() noexcept {
  if (isClosed_) return;
  isClosed_ = true;
  if (isForeign()) return;  // the session goes on in the parent: only the descriptor is closed
  tellOfPosted();
  transport_->sayGoodbye();
  canceller_->detach();
  static_cast<void>(::shutdown(transport_->fd(), SHUT_RDWR));
}

/// What was posted and not answered has no more answers to come.
void Channel::tellOfPosted() noexcept {
  try {
    const Error lost(sqlstate::kConnectionLost, "the connection ended before the answer came",
                     Outcome::Unknown);
    for (Posted& posted : posted_) posted.observation.failed(posted.bytesSent, 0, lost);
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no memory to tell it
  }
  posted_.clear();
}

void Channel::condemn(const std::string& reason) noexcept {
  if (isClosed_) return;
  try {
    reason_ = reason;
  } catch (const std::exception&) {
    reason_.clear();
  }
  close();
}

bool Channel::isUsable() const { return !isClosed_ && !isForeign() && !canceller_->isCancelled(); }

std::string Channel::unusableReason() const {
  if (isForeign()) return "it belongs to the parent process";
  if (isClosed_) return reason_.empty() ? "it was closed" : reason_;
  if (canceller_->isCancelled()) return "it was cancelled";
  return {};
}

void Channel::requireUsable() const {
  if (isUsable()) return;
  throw Error(sqlstate::kUnusable, "the connection is unusable: " + unusableReason(),
              Outcome::NotSent);
}

Outcome Channel::outcomeSoFar() const {
  return transport_->bytesOnWire() == bytesBefore_ ? Outcome::NotSent : Outcome::Unknown;
}

void Channel::fail(const char* sqlState, const std::string& message) {
  const Outcome outcome = outcomeSoFar();
  if (canceller_->isCancelled()) {
    condemn("it was cancelled");
    throw Error(sqlstate::kCancelled, "the request was cancelled", outcome);
  }
  condemn(message);
  throw Error(sqlState, message, outcome);
}

void Channel::failAnswer(int request, int answer) {
  const std::string message = std::string("the answer to ") + requestName(request) +
                              " is of the wrong kind: " + replyName(answer);
  condemn(message);
  throw Error(sqlstate::kOutOfStep, message, Outcome::Unknown);
}

/// Runs `action`. Whatever ends it but an Error closes the channel and is thrown as an Error.
template <class Action>
void Channel::guarded(const Action& action) {
  try {
    action();
  } catch (const TransportFailure& failure) {
    // A server that closes may have said why.
    if (failure.sqlState == std::string_view(sqlstate::kConnectionLost)) {
      if (const std::optional<Error> said = lastWords()) {
        condemn(said->message());
        throw Error(said->sqlState(), said->message(),
                    outcomeSoFar() == Outcome::NotSent ? Outcome::NotSent : Outcome::Rejected,
                    said->status());
      }
    }
    fail(failure.sqlState, failure.message);
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    fail(sqlstate::kOutOfStep, std::string("the answer cannot be read: ") + error->what());
  } catch (const NOXException& error) {
    fail(sqlstate::kOutOfStep, std::string("the answer cannot be read: ") + error.what());
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
    fail(sqlstate::kOutOfStep, "the answer cannot be read: it ends too early");
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
    fail(sqlstate::kOutOfStep, "the answer cannot be read: it ends too early");
  } catch (const std::bad_alloc&) {
    condemn("memory ran out during a request");
    throw;
  }
}

/// What the server said before it closed, if it was an error.
std::optional<Error> Channel::lastWords() {
  try {
    static_cast<void>(input_.drain());
    input_.setDeadline(Deadline::in(std::chrono::milliseconds(1)));
    while (input_.hasFrame()) {
      const std::unique_ptr<Serializable> said = receive();
      if (std::optional<Error> error = errorIn(*said)) return error;
    }
  } catch (const TransportFailure&) {  // NOLINT(bugprone-empty-catch): there are no last words
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
  }
  return std::nullopt;
}

/// Whether the peer has gone is found out before something is sent to nobody.
void Channel::noticeEnd() {
  if (Clock::now() - lastUse_ < kIdleBeforeLook) return;
  bool isOpen = input_.drain();
  while (!posted_.empty() && input_.hasFrame()) {
    takePosted(*receive());
    if (isOpen) isOpen = input_.drain();
  }
  if (!isOpen) {
    throw TransportFailure{sqlstate::kConnectionLost, "the server has closed the connection"};
  }
  if (posted_.empty() && input_.buffered() > 0) {
    throw TransportFailure{sqlstate::kConnectionLost, "the server sent what nobody asked for"};
  }
}

bool Channel::isAlive() {
  if (!isUsable()) return false;
  bytesBefore_ = transport_->bytesOnWire();
  input_.setDeadline(Deadline::in(kIdleBeforeLook));
  lastUse_ = {};
  try {
    guarded([this] { noticeEnd(); });
  } catch (const Error&) {
    return false;
  }
  lastUse_ = Clock::now();
  return true;
}

void Channel::send(Serializable& request, const Deadline& deadline, bool isSecret) {
  output_->prepare(deadline, request.getType(), isSecret);
  writer_.writeRoot(request);
}

std::unique_ptr<Serializable> Channel::receive() {
  const std::size_t length = input_.awaitFrame();
  bytesReceived_ = length;
  std::unique_ptr<Serializable> answer(reader_.readRootObject());
  if (!answer) throw TransportFailure{sqlstate::kOutOfStep, "the answer is no object"};
  if (settings_.trace.isOn()) {
    const std::string_view copy = input_.copy();
    settings_.trace.write(Trace::Direction::Received, replyName(answer->getType()),
                          answer->getType(), length,
                          copy.substr(std::min(kLengthSize, copy.size())), false);
  }
  return answer;
}

/// `answer` is that of the oldest request that was posted.
void Channel::takePosted(Serializable& answer) {
  Posted posted = posted_.front();
  posted_.erase(posted_.begin());
  if (const std::optional<Error> error = errorIn(answer)) {
    posted.observation.failed(posted.bytesSent, bytesReceived_, *error);
  } else {
    posted.observation.succeeded(posted.bytesSent, bytesReceived_);
  }
}

void Channel::dropPostedAnswers() {
  while (!posted_.empty()) takePosted(*receive());
}

std::unique_ptr<Serializable> Channel::exchange(Serializable& request, const Deadline& deadline,
                                                bool isSecret) {
  Observation observation(*this, request.getType());
  request.setPacketSize(0);
  bytesReceived_ = 0;
  try {
    requireUsable();
    std::unique_ptr<Serializable> answer;
    bytesBefore_ = transport_->bytesOnWire();
    input_.setDeadline(deadline);
    guarded([&] {
      noticeEnd();
      bytesBefore_ = transport_->bytesOnWire();
      send(request, deadline, isSecret);
      dropPostedAnswers();
      answer = receive();
    });
    lastUse_ = Clock::now();
    if (const std::optional<Error> error = errorIn(*answer)) throw *error;
    observation.succeeded(request.getPacketSize(), bytesReceived_);
    return answer;
  } catch (const Error& error) {
    observation.failed(request.getPacketSize(), bytesReceived_, error);
    throw;
  }
}

void Channel::post(Serializable& request, const Deadline& deadline) {
  Observation observation(*this, request.getType());
  request.setPacketSize(0);
  try {
    requireUsable();
    bytesBefore_ = transport_->bytesOnWire();
    input_.setDeadline(deadline);
    guarded([&] {
      // Answers that nobody takes would stop the server in the end.
      if (posted_.size() >= kMostPosted) dropPostedAnswers();
      send(request, deadline, false);
    });
  } catch (const Error& error) {
    observation.failed(request.getPacketSize(), 0, error);
    throw;
  }
  posted_.push_back({observation, request.getPacketSize()});
  lastUse_ = Clock::now();
}

void Channel::exchangeAll(const std::string& bytes, const std::vector<EncodedFrame>& frames,
                          std::chrono::milliseconds timeout, const TakeAnswer& take) {
  requireUsable();
  std::size_t answered = 0;
  std::size_t sent = 0;
  std::size_t mayHaveLeft = 0;  // of the bytes, in whole or part
  auto before = Clock::now();
  const auto sizeOf = [&](std::size_t i) {
    return frames[i].end - (i > 0 ? frames[i - 1].end : 0);
  };

  const auto tell = [&](std::size_t i, std::uint64_t bytesSent, std::uint64_t bytesReceived,
                        const std::optional<Error>& error) {
    if (!settings_.observer) return;
    Observation observation(*this, frames[i].type, before);
    before = Clock::now();
    if (error) {
      observation.failed(bytesSent, bytesReceived, *error);
    } else {
      observation.succeeded(bytesSent, bytesReceived);
    }
  };
  const auto takeNext = [&] {
    std::unique_ptr<Serializable> answer = receive();
    if (!posted_.empty()) {
      takePosted(*answer);
      return;
    }
    std::optional<Error> error = errorIn(*answer);
    tell(answered, sizeOf(answered), bytesReceived_, error);
    take(answered, std::move(error), std::move(answer));
    ++answered;
    input_.setDeadline(Deadline::in(timeout));
  };

  bytesBefore_ = transport_->bytesOnWire();
  input_.setDeadline(Deadline::in(timeout));
  try {
    guarded([&] {
      noticeEnd();
      bytesBefore_ = transport_->bytesOnWire();
      const std::string_view all = bytes;
      for (std::size_t i = 0; settings_.trace.isOn() && i < frames.size(); ++i) {
        const std::string_view frame = all.substr(frames[i].end - sizeOf(i), sizeOf(i));
        settings_.trace.write(Trace::Direction::Sent, requestName(frames[i].type), frames[i].type,
                              frame.size(), frame.substr(kLengthSize), frames[i].isSecret);
      }
      Deadline deadline = Deadline::in(timeout);
      while (answered < frames.size()) {
        if (sent == bytes.size()) {
          takeNext();
          continue;
        }
        while (answered < frames.size() && input_.hasFrame()) {
          takeNext();
          deadline = Deadline::in(timeout);
        }
        if (deadline.hasPassed()) throw TransportFailure{sqlstate::kTimeout, "no answer in time"};
        const Transport::Result result = transport_->write(all.data() + sent, all.size() - sent);
        switch (result.kind) {
          case Kind::Bytes:
            sent += result.count;
            mayHaveLeft = std::max(mayHaveLeft, sent);
            break;
          case Kind::End:
          case Kind::Failed:
            throw TransportFailure{sqlstate::kConnectionLost,
                                   result.kind == Kind::End ? "the server closed the connection"
                                                            : transport_->failure()};
          default: {
            // A record may have left in part.
            if (isEncrypted_) mayHaveLeft = sent + std::min(kTlsRecord, all.size() - sent);
            // The server may be unable to take more before its answers are taken.
            const short ready = waitFor(transport_->fd(), POLLIN | POLLOUT, deadline);
            if (ready == 0) {
              throw TransportFailure{sqlstate::kTimeout, "no answer in time"};
            }
            if ((ready & POLLIN) != 0 && !input_.drain()) {
              throw TransportFailure{sqlstate::kConnectionLost, "the server closed the connection"};
            }
          }
        }
      }
    });
    lastUse_ = Clock::now();
  } catch (const Error& error) {
    // The first request of which nothing left, and all behind it, were not sent.
    for (std::size_t i = answered; i < frames.size(); ++i) {
      const bool touched = frames[i].end - sizeOf(i) < mayHaveLeft;
      std::optional<Error> failed(std::in_place, error.sqlState(), error.message(),
                                  touched ? Outcome::Unknown : Outcome::NotSent, error.status());
      tell(i, touched ? sizeOf(i) : 0, 0, failed);
      take(i, std::move(failed), nullptr);
    }
  }
}

}  // namespace nox::client::detail
