// Streams that pass bytes on and keep a copy of them. A stream of one's own needs no more than
// this: the two `readMax` here, `send` and `flush` there.
#pragma once

#include <string>

#include <nox/nox.h>

class RecordingInputStream : public nox::InputStream {
public:
  explicit RecordingInputStream(nox::InputStream& source) : source_(source) {}

  std::int64_t readMax(char* buf, int max) override {
    return recorded(buf, source_.readMax(buf, max));
  }
  std::int64_t readMax(char* buf, int max, int timeout) override {
    return recorded(buf, source_.readMax(buf, max, timeout));
  }

  std::string bytes;

private:
  std::int64_t recorded(const char* buf, std::int64_t count) {
    if (count > 0) bytes.append(buf, static_cast<std::size_t>(count));
    return count;
  }

  nox::InputStream& source_;
};

class RecordingOutStream : public nox::OutStream {
public:
  using nox::OutStream::send;
  explicit RecordingOutStream(nox::OutStream& target) : target_(target) {}

  void send(const char* data, std::size_t n) override {
    bytes.append(data, n);
    target_.send(data, n);
  }
  void flush() override { target_.flush(); }

  std::string bytes;

private:
  nox::OutStream& target_;
};
