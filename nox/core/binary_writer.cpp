#include "nox/core/binary_writer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "nox/core/big_endian.h"
#include "nox/core/binary_format.h"
#include "nox/core/copy_bytes.h"
#include "nox/core/gzip_compressor.h"
#include "nox/diag/file_loggers.h"

namespace nox {

namespace {

constexpr std::size_t kObjectHead = 11;  // 'L', type, class version
constexpr std::size_t kNullObject = 7;   // 'L', the null type, ';'

// A std::string of up to 15 bytes can be read 16 bytes far, whether they lie inside it or not: a
// copy of constant length, whose surplus the next field overwrites.
constexpr std::size_t kShortCopy = 16;
constexpr std::size_t kShortRoom = 4 + kShortCopy;

constexpr std::size_t kLongestString = 0x80000000u;

char* putInt(char* to, int value) {
  *to = kIntegerPrefix;
  storeBigEndian32(to + 1, static_cast<std::uint32_t>(value));
  return to + kMarkedInt;
}

void putHead(char* to, int type, int version) {
  *to = kObjectPrefix;
  putInt(putInt(to + 1, type), version);
}

/// A text of up to kShortText bytes; needs kShortRoom.
inline char* putText(char* to, const std::string& utf8) {
  const std::size_t n = utf8.size();
  to[0] = kStringPrefix;
  storeBigEndian16(to + 1, static_cast<unsigned int>(n));
  std::memcpy(to + 3, utf8.data(), kShortCopy);
  to[3 + n] = kEndOfEntity;
  return to + n + 4;
}

/// Whether narrow text is short and means the same in UTF-8.
inline bool isShortAndPlain(const std::string& narrow) {
  return narrow.size() <= kShortText && detail::nativeKeepsAscii.load(std::memory_order_relaxed) &&
         detail::isPlainAscii(narrow.data(), narrow.size());
}

void putByte(BufferedOutStream& out, char byte) {
  *out.reserve(1) = byte;
  out.commit(1);
}

void putNullObject(BufferedOutStream& out) {
  char* to = out.reserve(kNullObject);
  *to++ = kObjectPrefix;
  to = putInt(to, kNullType);
  *to = kEndOfEntity;
  out.commit(kNullObject);
}

}  // namespace

BinaryWriter::BinaryWriter(OutStream* os)
    : ObjectWriter(os),
      frame_(std::make_unique<BufferedOutStream>(os, false)),
      out_(frame_.get()) {}

BinaryWriter::~BinaryWriter() = default;

Archive& BinaryWriter::process(NOXPBlob* value, const char* /*name*/) {
  write(value);
  return *this;
}

/// False, with nothing written, when the text is not short or does not fit without growth.
inline bool BinaryWriter::writeShortText(const std::string& utf8) {
  BufferedOutStream& out = *out_;
  if (utf8.size() > kShortText || !out.hasRoom(kShortRoom)) return false;
  putText(out.reserve(0), utf8);
  out.commit(utf8.size() + 4);
  return true;
}

// Most texts are short and plain. They are written without a call, so that no register need be
// saved; whatever else may come is left to the ordinary way.
Archive& BinaryWriter::process(NOXPString* value, const char* /*name*/) {
  if (value && value->becomesUtf8() && writeShortText(value->bytes_)) return *this;
  return writeAny(value);
}

Archive& BinaryWriter::process(std::string& value, const char* /*name*/) {
  if (isShortAndPlain(value) && writeShortText(value)) return *this;
  return writeAny(value);
}

template <class T>
Archive& BinaryWriter::writeAny(T&& value) {
  write(value);
  return *this;
}

void BinaryWriter::writeStrings(std::vector<std::string>& values) {
  BufferedOutStream& out = *out_;
  auto value = values.begin();
  while (value != values.end()) {
    // A run of short plain texts, with one look at the room for many.
    constexpr std::size_t kRun = 64;
    const std::size_t left = static_cast<std::size_t>(values.end() - value);
    const auto end = value + static_cast<std::ptrdiff_t>(std::min(left, kRun));
    char* const begin = out.reserve(kRun * kShortRoom);
    char* to = begin;
    for (; value != end && isShortAndPlain(*value); ++value) to = putText(to, *value);
    out.commit(static_cast<std::size_t>(to - begin));
    if (value != end) write(*value++);
  }
}

Archive& BinaryWriter::process(int& value, const char* /*name*/) {
  write(value);
  return *this;
}

Archive& BinaryWriter::process(Serializable* value, const char* /*name*/) {
  write(value);
  return *this;
}

void BinaryWriter::writeRoot(Serializable& root) {
  const Serializable::properties_t* const properties = root.getProperties();
  if (properties && properties->compress) {
    putByte(*out_, kStartOfRootObject);
    writeCompressible(root, properties->compressThreshold);
    putByte(*out_, kEndOfRootObject);
  } else {
    // The marks of the frame and of the object at once.
    const int version = root.getClassVersion();
    const int type = root.getType();
    char* to = out_->reserve(1 + kObjectHead);
    *to++ = kStartOfRootObject;
    putHead(to, type, version);
    out_->commit(1 + kObjectHead);
    root.serialize(*this, static_cast<unsigned int>(version));
    to = out_->reserve(2);
    to[0] = kEndOfEntity;
    to[1] = kEndOfRootObject;
    out_->commit(2);
  }
  root.setPacketSize(out_->flushSz());
}

void BinaryWriter::writeNullRoot() {
  putByte(*out_, kStartOfRootObject);
  putNullObject(*out_);
  putByte(*out_, kEndOfRootObject);
  out_->flushSz();
}

void BinaryWriter::writeCompressible(Serializable& root, int threshold) {
  if (!plainBody_) plainBody_ = std::make_unique<BufferedOutStream>(nullptr, true);
  plainBody_->discard();
  struct BackToFrame {
    BinaryWriter& writer;
    ~BackToFrame() { writer.out_ = writer.frame_.get(); }
  };
  {
    const BackToFrame guard{*this};
    out_ = plainBody_.get();
    write(&root);
  }
  const std::size_t n = plainBody_->getLength();
  const char* const body = reinterpret_cast<const char*>(plainBody_->getBuffer());
  // Sign-extended and compared as unsigned, so that a negative threshold never compresses.
  if (static_cast<std::uint64_t>(n) < static_cast<std::uint64_t>(std::int64_t{threshold})) {
    out_->send(body, n);
    return;
  }
  out_->send(kCompressedMarker, sizeof kCompressedMarker);
  GZipCompressor::compressTo(body, n, *out_);
}

void BinaryWriter::setOutStream(OutStream* os) {
  frame_ = std::make_unique<BufferedOutStream>(os, false);
  out_ = frame_.get();
  stream_ = os;
}

OutStream* BinaryWriter::getOutStream() { return stream_; }

void BinaryWriter::sendInt(int value) {
  storeBigEndian32(out_->reserve(4), static_cast<std::uint32_t>(value));
  out_->commit(4);
}

BinaryWriter* BinaryWriter::behind(Archive& ar) {
  Writer* const writer = ar.getWriter();
  return writer && typeid(*writer) == typeid(BinaryWriter) ? static_cast<BinaryWriter*>(writer)
                                                           : nullptr;
}

void BinaryWriter::writeEncoded(std::string_view bytes) {
  copyBytes(out_->reserve(bytes.size()), bytes.data(), bytes.size());
  out_->commit(bytes.size());
}

void BinaryWriter::writeObject(int type, int version, int count, std::string_view encoded) {
  const std::size_t size = kObjectHead + kMarkedInt + encoded.size() + 1;
  char* to = out_->reserve(size);
  putHead(to, type, version);
  to = putInt(to + kObjectHead, count);
  copyBytes(to, encoded.data(), encoded.size());
  to[encoded.size()] = kEndOfEntity;
  out_->commit(size);
}

void BinaryWriter::write(int value) {
  putInt(out_->reserve(kMarkedInt), value);
  out_->commit(kMarkedInt);
}

void BinaryWriter::write(std::string& value) {
  // The text is narrow: it travels as what it means in the native code page, up to its first NUL.
  if (NOXPString::isSameInUtf8(value)) return writeText(value);
  NOXPString narrow(value);
  writeText(narrow.utf8Bytes());
}

void BinaryWriter::write(NOXPString* value) {
  if (!value) return putNullObject(*out_);
  std::string_view utf8 = value->utf8Bytes();
  if (utf8.size() > kLongestString) {
    NOX_LOG(filelog::warning) << "Writer truncating NOXPString" << EndLog();
    utf8 = utf8.substr(0, kLongestString);
  }
  writeText(utf8);
}

void BinaryWriter::writeText(std::string_view utf8) {
  const std::size_t n = utf8.size();
  char* to = out_->reserve(n + 4);
  *to++ = kStringPrefix;
  // Deliberate: the count wraps at 16 bits while every byte is sent. Senders keep strings shorter.
  storeBigEndian16(to, static_cast<unsigned int>(n & 0xFFFF));
  copyBytes(to + 2, utf8.data(), n);
  to[2 + n] = kEndOfEntity;
  out_->commit(n + 4);
}

void BinaryWriter::write(NOXPBlob* value) {
  if (!value) return putNullObject(*out_);
  const std::size_t n = value->length();
  char* to = out_->reserve(n + 8);
  *to++ = kBlobPrefix;
  *to++ = kByteArrayPrefix;
  storeBigEndian32(to, static_cast<std::uint32_t>(n));
  to += 4;
  copyBytes(to, reinterpret_cast<const char*>(value->getBuf()), n);
  to[n] = kEndOfEntity;      // of the byte array
  to[n + 1] = kEndOfEntity;  // of the blob
  out_->commit(n + 8);
}

void BinaryWriter::write(Serializable* value) {
  if (!value) return putNullObject(*out_);
  const int version = value->getClassVersion();
  const int type = value->getType();
  putHead(out_->reserve(kObjectHead), type, version);
  out_->commit(kObjectHead);
  value->serialize(*this, static_cast<unsigned int>(version));
  putByte(*out_, kEndOfEntity);
}

}  // namespace nox
