// Channel: requests out, answers in, in step; or not at all.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nox/nox.h>

#include "client/src/canceller.h"
#include "client/src/deadline.h"
#include "client/src/frame_input.h"
#include "client/src/trace.h"
#include "client/src/transport.h"
#include "nox/client/error.h"
#include "nox/client/observer.h"

namespace nox::client::detail {

/// The Error that an answer carries; nothing for an answer without one.
std::optional<Error> errorIn(Serializable& answer);

/// A request that is encoded, as part of many.
struct EncodedFrame {
  std::size_t end = 0;  // where it ends among the bytes of all
  int type = 0;
  bool isSecret = false;
};

/// One connection's requests and answers, one after the other. It never sends a request twice. What
/// leaves the two sides out of step, or in doubt about it, closes it for good.
class Channel {
public:
  struct Settings {
    std::size_t maxFrame = 0;
    Observer observer;
    Trace trace;
  };

  Channel(std::unique_ptr<Transport> transport, Settings settings);
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  ~Channel();

  /// Sends `request` and returns its answer. Throws Error: Rejected when the answer says so.
  std::unique_ptr<Serializable> exchange(Serializable& request, const Deadline& deadline,
                                         bool isSecret = false);
  /// Sends `request`; its answer is dropped when it comes.
  void post(Serializable& request, const Deadline& deadline);

  /// Called for each answer in order: the Error that it carries or, without one, the answer.
  using TakeAnswer =
      std::function<void(std::size_t index, std::optional<Error>, std::unique_ptr<Serializable>)>;
  /// Sends many requests, while it reads their answers. Each answer may take `timeout` from the one
  /// before it. When the connection is lost, the requests that were not answered get an Error each:
  /// Unknown for those of which something left, NotSent for the others.
  void exchangeAll(const std::string& bytes, const std::vector<EncodedFrame>& frames,
                   std::chrono::milliseconds timeout, const TakeAnswer& take);

  /// The answer to `request` is of another kind than it must be: closes, and throws.
  [[noreturn]] void failAnswer(int request, int answer);
  /// Closes for a reason that is known above: requests throw it from now on.
  void condemn(const std::string& reason) noexcept;

  bool isUsable() const;
  std::string unusableReason() const;
  /// Whether nothing has come that was not asked for, the peer's end included.
  bool isAlive();
  bool isEncrypted() const { return isEncrypted_; }
  const std::shared_ptr<Canceller>& canceller() const { return canceller_; }

private:
  class Output;
  class Observation;
  struct Posted;

  void requireUsable() const;
  bool isForeign() const;
  void noticeEnd();
  void send(Serializable& request, const Deadline& deadline, bool isSecret);
  std::unique_ptr<Serializable> receive();
  void takePosted(Serializable& answer);
  void dropPostedAnswers();
  std::optional<Error> lastWords();
  template <class Action>
  void guarded(const Action& action);
  [[noreturn]] void fail(const char* sqlState, const std::string& message);
  Outcome outcomeSoFar() const;
  void tellOfPosted() noexcept;
  void close() noexcept;

  const pid_t owner_;
  Settings settings_;
  const std::shared_ptr<Canceller> canceller_ = std::make_shared<Canceller>();
  const std::unique_ptr<Transport> transport_;
  const bool isEncrypted_;
  ClientObjectFactory& factory_;
  FrameInput input_;
  std::unique_ptr<Output> output_;
  BinaryReader reader_;
  BinaryWriter writer_;
  std::vector<Posted> posted_;       // whose answers nobody waits for
  std::uint64_t bytesBefore_ = 0;    // on the wire when the request began
  std::uint64_t bytesReceived_ = 0;  // of the last answer
  std::chrono::steady_clock::time_point lastUse_;
  bool isClosed_ = false;
  std::string reason_;  // why it is closed
};

}  // namespace nox::client::detail
