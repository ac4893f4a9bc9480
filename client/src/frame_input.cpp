#include "client/src/frame_input.h"

#include <poll.h>

#include <algorithm>
#include <cstring>

#include "client/src/socket.h"
#include "client/src/transport_failure.h"
#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

using Kind = Transport::Result::Kind;

constexpr std::size_t kBuffer = 65536;

// What a TLS server says to somebody who speaks plain.
constexpr char kTlsAlert = '\x15';

}  // namespace

FrameInput::FrameInput(Transport& transport, std::size_t maxFrame)
    : transport_(transport), maxFrame_(maxFrame), buffer_(kBuffer) {}

std::size_t FrameInput::frameLength() const {
  const char* const head = buffer_.data() + begin_;
  const std::int32_t length = loadBigEndian32(head);
  if (head[kLengthSize] != '[' || length < 1) {
    throw TransportFailure{sqlstate::kOutOfStep, head[0] == kTlsAlert
                                                     ? "what came is no frame: this port speaks TLS"
                                                     : "what came is no frame"};
  }
  const std::size_t whole = static_cast<std::size_t>(length) + kLengthSize;
  if (whole > maxFrame_) {
    throw TransportFailure{sqlstate::kOutOfStep,
                           "an answer of " + std::to_string(whole) + " bytes came; up to " +
                               std::to_string(maxFrame_) + " (max_frame) are taken"};
  }
  return whole;
}

std::size_t FrameInput::awaitFrame() {
  if (keepsCopies_) copy_.clear();
  if (buffered() == 0 && !transport_.mayHoldBytes()) {
    // The answer is hardly ever here yet: to wait first saves a receive in vain.
    if (waitFor(transport_.fd(), POLLIN, deadline_) == 0) {
      throw TransportFailure{sqlstate::kTimeout, "no answer in time"};
    }
  }
  while (buffered() < kHead) fill();
  return frameLength();
}

bool FrameInput::hasFrame() const { return buffered() >= kHead && buffered() >= frameLength(); }

bool FrameInput::drain() {
  for (;;) {
    makeRoom(kBuffer);
    const Transport::Result result = transport_.read(buffer_.data() + end_, buffer_.size() - end_);
    switch (result.kind) {
      case Kind::Bytes:
        end_ += result.count;
        break;
      case Kind::End:
        return false;
      case Kind::Failed:
        throw TransportFailure{sqlstate::kConnectionLost, transport_.failure()};
      default:
        return true;
    }
    // Enough for now: what is whole is read before more is taken.
    if (buffered() >= kHead && hasFrame()) return true;
  }
}

/// Room behind what is buffered.
void FrameInput::makeRoom(std::size_t n) {
  if (begin_ == end_) {
    begin_ = end_ = 0;
    // One huge answer does not stay for the life of the connection.
    if (buffer_.size() > 16 * kBuffer) {
      buffer_.resize(kBuffer);
      buffer_.shrink_to_fit();
    }
  }
  if (buffer_.size() - end_ >= n) return;
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, buffered());
    end_ -= begin_;
    begin_ = 0;
  }
  if (buffer_.size() - end_ < n) buffer_.resize(std::max(2 * buffer_.size(), end_ + n));
}

/// Waits for at least one byte.
std::size_t FrameInput::receive(char* to, std::size_t room) {
  for (;;) {
    const Transport::Result result = transport_.read(to, room);
    switch (result.kind) {
      case Kind::Bytes:
        return result.count;
      case Kind::End:
        throw TransportFailure{sqlstate::kConnectionLost, "the server closed the connection"};
      case Kind::Failed:
        throw TransportFailure{sqlstate::kConnectionLost, transport_.failure()};
      default:
        break;
    }
    const short events = result.kind == Kind::WantsRead ? POLLIN : POLLOUT;
    if (waitFor(transport_.fd(), events, deadline_) == 0) {
      throw TransportFailure{sqlstate::kTimeout, "no whole answer in time"};
    }
  }
}

void FrameInput::fill() {
  makeRoom(1);
  end_ += receive(buffer_.data() + end_, buffer_.size() - end_);
}

std::int64_t FrameInput::readMax(char* to, int n) {
  std::size_t wanted = n > 0 ? static_cast<std::size_t>(n) : 0;
  char* at = to;
  while (wanted > 0) {
    // A peer whose bytes never stop has no more time than a silent one.
    if (deadline_.hasPassed()) {
      throw TransportFailure{sqlstate::kTimeout, "no whole answer in time"};
    }
    if (buffered() == 0 && wanted >= kBuffer / 2) {
      const std::size_t count = receive(at, wanted);
      at += count;
      wanted -= count;
      continue;
    }
    if (buffered() == 0) fill();
    const std::size_t count = std::min(wanted, buffered());
    std::memcpy(at, buffer_.data() + begin_, count);
    begin_ += count;
    at += count;
    wanted -= count;
  }
  if (keepsCopies_) copy_.append(to, static_cast<std::size_t>(at - to));
  return at - to;
}

std::int64_t FrameInput::readMax(char* to, int n, int /*timeout*/) { return readMax(to, n); }

}  // namespace nox::client::detail
