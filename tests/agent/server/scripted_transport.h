// A connection whose other end is a list of what happens.
#pragma once

#include <algorithm>
#include <deque>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "agent/server/transport.h"

namespace nox::agent::test {

/// Each call of `receive` takes one step: bytes that arrive, or a tick without any. Behind the last
/// step the peer has closed. Bytes that are sent are gathered.
class ScriptedTransport : public Transport {
public:
  static constexpr std::chrono::milliseconds kShortTick{1};

  ScriptedTransport() : Transport(Descriptor()) {}

  ScriptedTransport& bytes(std::string_view bytes) {
    steps_.emplace_back(bytes);
    return *this;
  }
  ScriptedTransport& tick() {
    steps_.emplace_back();
    return *this;
  }
  /// From then on one step is repeated for ever.
  ScriptedTransport& endlessly(std::string_view bytes) {
    repeated_ = bytes;
    endless_ = true;
    return *this;
  }
  /// How many bytes the peer takes per call; 0: none any more.
  void takes(std::size_t bytes) { taken_ = bytes; }

  bool handshake(Clock::time_point /*deadline*/, std::string& /*reason*/) override { return true; }

  int receive(char* to, std::size_t room) override {
    ++receives_;
    if (steps_.empty()) {
      if (!endless_) return kEnded;
      steps_.push_back(repeated_);
    }
    std::string& step = steps_.front();
    if (step.empty()) std::this_thread::sleep_for(kShortTick);
    const std::size_t n = std::min(room, step.size());
    step.copy(to, n);
    step.erase(0, n);
    if (step.empty()) steps_.pop_front();
    return static_cast<int>(n);
  }

  int send(const char* from, std::size_t n) override {
    ++sends_;
    n = std::min(n, taken_);
    if (n == 0) std::this_thread::sleep_for(kShortTick);
    sent_.append(from, n);
    return static_cast<int>(n);
  }

  void sayGoodbye() override {}

  int receives() const { return receives_; }
  int sends() const { return sends_; }
  const std::string& sent() const { return sent_; }

private:
  /// What comes next needs no wait.
  bool hasBuffered() const override { return true; }

  std::deque<std::string> steps_;
  std::string repeated_;
  bool endless_ = false;
  std::size_t taken_ = 0x7FFFFFFF;
  int receives_ = 0;
  int sends_ = 0;
  std::string sent_;
};

}  // namespace nox::agent::test
