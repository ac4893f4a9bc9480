// Stream buffers over a vector that is kept, for the peers that write to standard streams.
#pragma once

#include <cstring>
#include <streambuf>
#include <vector>

namespace nox::bench {

/// Writes into the vector, which grows and is never given back.
class VectorSink : public std::streambuf {
public:
  VectorSink() : bytes_(1024) { rewind(); }
  void rewind() { setp(bytes_.data(), bytes_.data() + bytes_.size()); }
  const char* data() const { return bytes_.data(); }
  std::size_t size() const { return static_cast<std::size_t>(pptr() - pbase()); }

protected:
  std::streamsize xsputn(const char* from, std::streamsize n) override {
    if (n > epptr() - pptr()) growFor(static_cast<std::size_t>(n));
    std::memcpy(pptr(), from, static_cast<std::size_t>(n));
    advance(static_cast<std::size_t>(n));
    return n;
  }
  int_type overflow(int_type c) override {
    growFor(1);
    *pptr() = traits_type::to_char_type(c);
    advance(1);
    return c;
  }

private:
  void growFor(std::size_t n) {
    const std::size_t used = size();
    bytes_.resize((used + n) * 2);
    rewind();
    advance(used);
  }
  void advance(std::size_t n) { pbump(static_cast<int>(n)); }

  std::vector<char> bytes_;
};

/// Reads bytes that somebody else keeps.
class MemorySource : public std::streambuf {
public:
  void open(const char* data, std::size_t n) {
    char* begin = const_cast<char*>(data);
    setg(begin, begin, begin + n);
  }

protected:
  std::streamsize xsgetn(char* to, std::streamsize n) override {
    const std::streamsize taken = n < egptr() - gptr() ? n : egptr() - gptr();
    std::memcpy(to, gptr(), static_cast<std::size_t>(taken));
    gbump(static_cast<int>(taken));
    return taken;
  }
};

}  // namespace nox::bench
