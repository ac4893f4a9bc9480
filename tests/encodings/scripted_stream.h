// Streams that note how they are used.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "nox/core/input_stream.h"
#include "nox/core/out_stream.h"
#include "nox/core/serializable.h"

namespace nox::test {

/// Delivers a text and then ends, stays silent, or throws, as it was told.
class ScriptedInput : public InputStream {
public:
  enum Ending { End, Silence, ThrowLast };
  struct Read {
    int max;
    int timeout;  // -1: without
    bool operator==(const Read& other) const {
      return max == other.max && timeout == other.timeout;
    }
  };

  explicit ScriptedInput(std::string text, Ending ending = End)
      : text_(std::move(text)), ending_(ending) {}
  ~ScriptedInput() override {
    if (deleted) *deleted = true;
  }

  std::int64_t readMax(char* buf, int max) override { return read(buf, max, -1); }
  std::int64_t readMax(char* buf, int max, int timeout) override { return read(buf, max, timeout); }

  /// What nobody has read.
  std::string rest() const { return text_.substr(position_); }
  /// Reads of more than one byte.
  std::vector<Read> blockReads;
  bool* deleted = nullptr;

private:
  std::int64_t read(char* buf, int max, int timeout) {
    if (max != 1) blockReads.push_back({max, timeout});
    const std::size_t n = std::min(text_.size() - position_, static_cast<std::size_t>(max));
    if (n == 0) return end();
    std::memcpy(buf, text_.data() + position_, n);
    position_ += n;
    return static_cast<std::int64_t>(n);
  }

  std::int64_t end() const {
    if (ending_ == ThrowLast) throw new LAST;
    if (ending_ == End) return 0;
    errno = kErrnoTimeout;
    return -1;
  }

  std::string text_;
  Ending ending_;
  std::size_t position_ = 0;
};

/// Keeps every piece that was sent.
class NotingOutput : public OutStream {
public:
  using OutStream::send;
  void send(const char* data, std::size_t n) override { pieces.emplace_back(data, n); }
  void flush() override { ++flushes; }

  std::string all() const {
    std::string text;
    for (const std::string& piece : pieces) text += piece;
    return text;
  }

  std::vector<std::string> pieces;
  int flushes = 0;
};

}  // namespace nox::test
