#include "agent/server/deadline_streams.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace nox::agent {

namespace {

constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kHeadSize = kLengthSize + 1;  // with the '['
constexpr char kStartOfFrame = '[';

constexpr std::size_t kSmallBlock = 8 * 1024;  // what a connection at rest keeps
constexpr std::size_t kFirstStep = 64 * 1024;  // as far as a length is believed

constexpr std::size_t kLongestFrame = 0x7FFFFFFF;  // a length has 31 bits

/// The request lines that the library's reader knows, by their first four bytes.
bool isHttpWord(const char* bytes) {
  for (const char* const word : {"GET ", "PUT ", "POST", "DELE", "HEAD", "OPTI"}) {
    if (std::memcmp(bytes, word, kLengthSize) == 0) return true;
  }
  return false;
}

}  // namespace

DeadlineInputStream::DeadlineInputStream(Transport& transport)
    : transport_(transport),
      block_(new char[kSmallBlock]),
      capacity_(kSmallBlock),
      frame_(block_.get(), 0) {}

bool DeadlineInputStream::late(std::optional<Clock::time_point> frameDeadline) const {
  if (!frameDeadline && !deadline_) return false;
  const Clock::time_point now = Clock::now();
  return (frameDeadline && *frameDeadline <= now) || (deadline_ && *deadline_ <= now);
}

/// Sees to it that there is room behind what has arrived: for the whole frame of `wanted` bytes, or
/// for as much again as is there already.
void DeadlineInputStream::makeRoom(std::size_t wanted) {
  if (begin_ == end_) begin_ = end_ = 0;
  if (capacity_ - begin_ >= wanted) return;
  const std::size_t have = buffered();
  if (begin_ > 0) std::memmove(block_.get(), block_.get() + begin_, have);
  begin_ = 0;
  end_ = have;
  if (end_ < capacity_) return;
  const std::size_t size = std::min(wanted, std::max(kFirstStep, 2 * have));
  std::unique_ptr<char[]> grown(new char[size]);
  std::memcpy(grown.get(), block_.get(), have);
  block_ = std::move(grown);
  capacity_ = size;
}

/// What the bytes at the begin of the block are, and in `wanted` how many it takes to know more.
DeadlineInputStream::Arrival DeadlineInputStream::inspect(std::size_t cap, std::size_t& wanted) {
  wanted = kHeadSize;
  if (buffered() < kLengthSize) return Arrival::Nothing;
  const char* const head = block_.get() + begin_;
  const auto length = static_cast<std::uint32_t>(loadBigEndian32(head));
  const bool possible = length >= 1 && length <= cap;
  if (buffered() < kHeadSize) {
    return possible || isHttpWord(head) ? Arrival::Nothing : Arrival::Broken;
  }
  if (head[kLengthSize] != kStartOfFrame) {
    return isHttpWord(head) ? Arrival::Http : Arrival::Broken;
  }
  if (!possible) return Arrival::Broken;
  wanted = kLengthSize + length;
  if (buffered() < wanted) return Arrival::Nothing;
  frameBytes_ = wanted;
  frame_ = MemoryBufferInputStream(head, wanted);
  return Arrival::Frame;
}

bool DeadlineInputStream::hasNextFrame() const {
  const std::size_t behind = buffered() - frameBytes_;
  if (behind < kLengthSize) return false;
  const auto length =
      static_cast<std::uint32_t>(loadBigEndian32(block_.get() + begin_ + frameBytes_));
  return length <= behind - kLengthSize;
}

DeadlineInputStream::Arrival DeadlineInputStream::nextFrame(std::size_t cap,
                                                            std::chrono::milliseconds time) {
  begin_ += std::exchange(frameBytes_, 0);
  std::optional<Clock::time_point> frameDeadline;
  for (;;) {
    std::size_t wanted = 0;
    const Arrival arrival = inspect(std::min(cap, kLongestFrame), wanted);
    if (arrival != Arrival::Nothing) return arrival;
    if (buffered() > 0) {
      if (!frameDeadline) frameDeadline = Clock::now() + time;
      if (late(frameDeadline)) return Arrival::Late;
    }
    makeRoom(wanted);
    const int count = transport_.receive(block_.get() + end_, capacity_ - end_);
    if (count == Transport::kEnded) return Arrival::Ended;
    if (count == Transport::kNothingYet && buffered() == 0) return Arrival::Nothing;
    end_ += static_cast<std::size_t>(count);
  }
}

void DeadlineInputStream::wipeFrame() {
  explicit_bzero(block_.get() + begin_, frameBytes_);
  begin_ += std::exchange(frameBytes_, 0);
}

void DeadlineInputStream::shrink() {
  begin_ += std::exchange(frameBytes_, 0);
  if (capacity_ == kSmallBlock || buffered() > 0) return;
  block_.reset(new char[kSmallBlock]);
  capacity_ = kSmallBlock;
  begin_ = end_ = 0;
}

std::int64_t DeadlineInputStream::readMax(char* buf, int max) {
  return readUntil(buf, max, deadline_);
}

std::int64_t DeadlineInputStream::readMax(char* buf, int max, int timeout) {
  const auto ends = Clock::now() + std::chrono::seconds(timeout);
  return readUntil(buf, max, deadline_ ? std::min(*deadline_, ends) : ends);
}

std::int64_t DeadlineInputStream::readUntil(char* buf, int max,
                                            std::optional<Clock::time_point> deadline) {
  const std::size_t wanted = max > 0 ? static_cast<std::size_t>(max) : 0;
  std::size_t got = std::min(wanted, buffered());
  std::memcpy(buf, block_.get() + begin_, got);
  begin_ += got;
  while (got < wanted) {
    if (deadline && *deadline <= Clock::now()) {
      if (got > 0) break;
      errno = kErrnoTimeout;
      return -1;
    }
    const int count = transport_.receive(buf + got, wanted - got);
    if (count == Transport::kEnded) break;
    got += static_cast<std::size_t>(count);
  }
  return static_cast<std::int64_t>(got);
}

void DeadlineOutStream::send(const char* data, std::size_t n) {
  if (lost_) lose();
  if (n > cap_ + kLengthSize) throw FrameTooLong();
  bytes_ += n;
  const bool joins = isGathering_ || !gathered_.empty();
  if (joins && gathered_.size() + n <= kMostGathered) {
    gathered_.append(data, n);
    if (!isGathering_) sendGathered();
    return;
  }
  sendGathered();
  sendNow(data, n);
}

void DeadlineOutStream::sendGathered() {
  if (gathered_.empty()) return;
  if (lost_) lose();
  sendNow(gathered_.data(), gathered_.size());
  gathered_.clear();
}

void DeadlineOutStream::sendNow(const char* data, std::size_t n) {
  const int count = transport_.send(data, n);
  if (count == Transport::kEnded) lose();
  const auto sent = static_cast<std::size_t>(count);
  if (sent < n) sendRest(data + sent, n - sent);
}

void DeadlineOutStream::lose() {
  lost_ = true;
  throw ConnectionLost();
}

void DeadlineOutStream::sendRest(const char* data, std::size_t n) {
  const auto deadline = Transport::Clock::now() + time_;
  while (n > 0) {
    const int count = transport_.send(data, n);
    if (count == Transport::kEnded) lose();
    data += count;
    n -= static_cast<std::size_t>(count);
    if (n > 0 && Transport::Clock::now() >= deadline) lose();
  }
}

}  // namespace nox::agent
