#include "nox/core/gzip_compressor.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "nox/io/buffered_out_stream.h"

namespace nox {

namespace {

// The interface this code is written against; zlib refuses another major version.
constexpr char kZlibInterface[] = "1.2.3";
constexpr int kStreamSize = static_cast<int>(sizeof(z_stream));

constexpr int kRawDeflate = -15;  // 32 KiB window, no zlib wrapper
constexpr int kDefaultLevel = -1;
constexpr int kMethodDeflate = 8;
constexpr int kMemoryLevel = 9;
constexpr int kDefaultStrategy = 0;

constexpr std::size_t kHeader = GZipCompressor::GZIP_HEADER_LENGTH;
constexpr std::size_t kFooter = GZipCompressor::GZIP_FOOTER_LENGTH;

// zlib counts bytes in 32 bits; a longer input would be cut without a word.
constexpr std::size_t kLongestInput = std::numeric_limits<uInt>::max();

// One byte of deflate data stands for less than 1032 bytes of content.
constexpr std::uint64_t kLargestRatio = 1032;
constexpr std::uint64_t kRatioSlack = 64;

// Room to begin with: typical texts fit, and what the input justifies is already eight times it.
constexpr std::size_t kFirstRoom = 64 * 1024;
constexpr std::size_t kFirstRatio = 8;

constexpr std::size_t kLongestErrorText = 63;

// The working memory of zlib (268 KiB to compress, 40 KiB to inflate) is kept per thread: a reset
// stream produces the bytes a new one does.
class DeflateStream {
public:
  DeflateStream() = default;
  DeflateStream(const DeflateStream&) = delete;
  DeflateStream& operator=(const DeflateStream&) = delete;
  ~DeflateStream() { release(); }

  void release() {
    if (std::exchange(initialised_, false)) deflateEnd(&stream_);
  }

  z_stream& fresh() {
    const int result =
        initialised_ ? deflateReset(&stream_)
                     : deflateInit2_(&stream_, kDefaultLevel, kMethodDeflate, kRawDeflate,
                                     kMemoryLevel, kDefaultStrategy, kZlibInterface, kStreamSize);
    if (result != Z_OK) throw GZipCompressor::ZLibError(result);
    initialised_ = true;
    return stream_;
  }

private:
  z_stream stream_{};
  bool initialised_ = false;
};

class InflateStream {
public:
  InflateStream() = default;
  InflateStream(const InflateStream&) = delete;
  InflateStream& operator=(const InflateStream&) = delete;
  ~InflateStream() { release(); }

  void release() {
    if (std::exchange(initialised_, false)) inflateEnd(&stream_);
  }

  z_stream& fresh() {
    const int result = initialised_
                           ? inflateReset(&stream_)
                           : inflateInit2_(&stream_, kRawDeflate, kZlibInterface, kStreamSize);
    if (result != Z_OK) throw GZipCompressor::ZLibError(result);
    initialised_ = true;
    return stream_;
  }

private:
  z_stream stream_{};
  bool initialised_ = false;
};

thread_local DeflateStream deflater;
thread_local InflateStream inflater;

Bytef* zlibBytes(const char* data) { return reinterpret_cast<Bytef*>(const_cast<char*>(data)); }

void storeLittleEndian32(char* to, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(value >> (8 * i));
}

std::uint32_t loadLittleEndian32(const char* from) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(from[i])) << (8 * i);
  }
  return value;
}

std::uint32_t checksum(const char* data, std::size_t n) {
  return static_cast<std::uint32_t>(
      crc32(crc32(0, nullptr, 0), zlibBytes(data), static_cast<uInt>(n)));
}

// zlib says "fine so far" when a call that should have finished ran out of room.
void requireStreamEnd(int result) {
  if (result == Z_STREAM_END) return;
  throw GZipCompressor::ZLibError(result == Z_OK ? Z_BUF_ERROR : result);
}

std::size_t deflateBound(std::size_t n) { return n + n / GZipCompressor::ZLIB_MODIFIER + 16; }

void requireShortEnough(std::size_t n) {
  if (n > kLongestInput) throw GZipCompressor::ZLibError(Z_BUF_ERROR);
}

// Writes the member into `to`, which has room for deflateBound(n) and the header and footer.
// Returns its length.
std::size_t writeMember(const char* data, std::size_t n, char* to) {
  std::memset(to, 0, kHeader);  // no flags, no modification time, no extra flags
  to[0] = static_cast<char>(GZipCompressor::GZ_MAGIC_0);
  to[1] = static_cast<char>(GZipCompressor::GZ_MAGIC_1);
  to[2] = kMethodDeflate;
  to[9] = GZipCompressor::OS_CODE;

  z_stream& stream = deflater.fresh();
  stream.next_in = zlibBytes(data);
  stream.avail_in = static_cast<uInt>(n);
  stream.next_out = zlibBytes(to + kHeader);
  stream.avail_out = static_cast<uInt>(std::min(deflateBound(n), kLongestInput));
  const uInt room = stream.avail_out;
  requireStreamEnd(deflate(&stream, Z_FINISH));

  char* const footer = to + kHeader + (room - stream.avail_out);
  storeLittleEndian32(footer, checksum(data, n));
  storeLittleEndian32(footer + 4, static_cast<std::uint32_t>(n));
  return static_cast<std::size_t>(footer - to) + kFooter;
}

}  // namespace

Compressor::~Compressor() = default;

GZipCompressor::~GZipCompressor() = default;

GZipCompressor::Error::~Error() = default;

const char* GZipCompressor::Error::what() const noexcept {
  // Deliberate: one text for all errors of the thread; see the declaration.
  thread_local std::string shared;
  try {
    // Assigned in place, so that pointers handed out before stay valid.
    shared.reserve(kLongestErrorText);
    shared.assign(text().c_str());
    return shared.c_str();
  } catch (const std::bad_alloc&) {
    return "GZIP error";
  }
}

GZipCompressor::BadHeader::~BadHeader() = default;

std::string GZipCompressor::BadHeader::text() const { return "Bad GZIP header"; }

GZipCompressor::ZLibError::~ZLibError() = default;

std::string GZipCompressor::ZLibError::text() const {
  return "ZLIB error, code=" + std::to_string(code_);
}

GZipCompressor::CrcError::~CrcError() = default;

std::string GZipCompressor::CrcError::text() const {
  char text[kLongestErrorText + 1];
  std::snprintf(text, sizeof text, "CRC error, must be %08X but actual value is %08X", expected_,
                actual_);
  return text;
}

std::string GZipCompressor::compress(const std::string& in) {
  requireShortEnough(in.size());
  std::string member(kHeader + deflateBound(in.size()) + kFooter, '\0');
  member.resize(writeMember(in.data(), in.size(), member.data()));
  return member;
}

std::string GZipCompressor::uncompress(const std::string& in) {
  std::string content;
  uncompressTo(in.data(), in.size(), content);
  return content;
}

void GZipCompressor::compressTo(const char* data, std::size_t n, BufferedOutStream& out) {
  requireShortEnough(n);
  char* const to = out.reserve(kHeader + deflateBound(n) + kFooter);
  out.commit(writeMember(data, n, to));
}

void GZipCompressor::uncompressTo(const char* member, std::size_t n, std::string& out,
                                  std::size_t most) {
  out.clear();
  if (n < kHeader + kFooter || static_cast<unsigned char>(member[0]) != GZ_MAGIC_0 ||
      static_cast<unsigned char>(member[1]) != GZ_MAGIC_1 || member[2] != kMethodDeflate) {
    throw BadHeader();
  }
  requireShortEnough(n);
  // Deliberate: the flags are not looked at, the header is always 10 bytes long, and bytes between
  // the end of the deflate data and the footer do no harm.
  const std::size_t deflated = n - kHeader - kFooter;
  const char* const footer = member + n - kFooter;
  const std::uint32_t expected = loadLittleEndian32(footer);

  // The size in the footer is only a claim: a false one ends in "out of room", not in memory.
  const std::uint64_t claimed = loadLittleEndian32(footer + 4);
  const auto room = static_cast<std::size_t>(
      std::min({claimed, kLargestRatio * deflated + kRatioSlack, std::uint64_t{most}}));

  z_stream& stream = inflater.fresh();
  stream.next_in = zlibBytes(member + kHeader);
  stream.avail_in = static_cast<uInt>(deflated);
  std::size_t produced = 0;
  int result = Z_OK;
  do {
    out.resize(std::min(room, std::max({produced * 2, kFirstRoom, kFirstRatio * deflated})));
    stream.next_out = zlibBytes(out.data() + produced);
    stream.avail_out = static_cast<uInt>(out.size() - produced);
    result = inflate(&stream, Z_FINISH);
    produced = out.size() - stream.avail_out;
  } while (result == Z_BUF_ERROR && produced == out.size() && produced < room);
  requireStreamEnd(result);

  out.resize(produced);
  const std::uint32_t actual = checksum(out.data(), produced);
  if (actual != expected) throw CrcError(expected, actual);
}

void GZipCompressor::releaseMemory() {
  deflater.release();
  inflater.release();
}

}  // namespace nox
