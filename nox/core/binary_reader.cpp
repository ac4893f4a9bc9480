#include "nox/core/binary_reader.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <typeinfo>

#include "nox/core/big_endian.h"
#include "nox/core/binary_format.h"
#include "nox/core/copy_bytes.h"
#include "nox/core/exceptions.h"
#include "nox/core/frame_stream.h"
#include "nox/core/gzip_compressor.h"
#include "nox/core/input_stream.h"
#include "nox/core/object_factory.h"
#include "nox/diag/file_loggers.h"
#include "nox/encodings/http_reader.h"
#include "nox/protocol/request.h"

namespace nox {

namespace {

// Smallest compressed body: "GZIP" (4), an empty gzip member (20: header 10, deflate 2, trailer 8)
// and the closing ']' (1). A shorter body starting with GZIP is taken as a plain object.
constexpr std::size_t kSmallestCompressedBody = 25;

// A length is only a claim. Up to this much is made room for at once; what is longer grows as it
// arrives.
constexpr std::size_t kFirstChunk = std::size_t{1} << 20;

constexpr std::size_t kStringHead = 3;  // 's', 2 bytes of length
constexpr std::size_t kBlobHead = 6;    // 'j', 'b', 4 bytes of length

/// As `to.assign(text)` for a short text, with kShortText readable bytes from its begin: a copy of
/// constant length into a new string, cut afterwards, needs no call.
void assignShort(std::string& to, std::string_view text) {
  to.~basic_string();
  ::new (static_cast<void*>(&to)) std::string(text.data(), kShortText);
  to.erase(text.size());
}

/// The first four bytes of a request line, as the length they stand in the place of.
constexpr unsigned int word(const char (&text)[5]) {
  return static_cast<unsigned int>(text[0]) << 24 | static_cast<unsigned int>(text[1]) << 16 |
         static_cast<unsigned int>(text[2]) << 8 | static_cast<unsigned int>(text[3]);
}

bool isHttpWord(unsigned int w) {
  return w == word("GET ") || w == word("PUT ") || w == word("POST") || w == word("DELE") ||
         w == word("HEAD") || w == word("OPTI");
}

/// A byte as a C string, for log lines; a NUL shows as nothing.
class Shown {
public:
  explicit Shown(int c) : text_{static_cast<char>(c), '\0'} {}
  operator const char*() const { return text_; }

private:
  char text_[2];
};

[[noreturn]] void failAssertion(const char* condition) {
  NOX_LOG(filelog::critical) << condition << EndLog();
  throw new AssertionFailure(condition);
}

[[noreturn]] void unexpectedIntPrefix(int c) {
  NOX_LOG(filelog::error) << "BinaryReader::readInt(): expected INTEGER_PREFIX, got '"
                          << static_cast<long>(c) << "'; throwing UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kIntegerPrefix);
}

[[noreturn]] void unexpectedEnd(int c) {
  NOX_LOG(filelog::error) << "BinaryReader: expected END_OF_ENTITY (';'), got '" << Shown(c)
                          << "' (ASCII: " << static_cast<long>(c)
                          << "); "
                             " throwing UnexpectedChar(c)"
                          << EndLog();
  throw new UnexpectedChar(c, kEndOfEntity);
}

[[noreturn]] void unexpectedStringPrefix(int c) {
  NOX_LOG(filelog::error) << "BinaryReader::readString(): expected STRING_PREFIX, got '"
                          << static_cast<long>(c) << "'; throwing UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kStringPrefix);
}

[[noreturn]] void unexpectedObjectPrefix(int c) {
  NOX_LOG(filelog::error) << "BinaryReader::readObject(): expected char "
                          << static_cast<long>(kObjectPrefix) << ", got " << static_cast<long>(c)
                          << " throwing UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kObjectPrefix);
}

[[noreturn]] void unexpectedType(int actual, int expected) {
  NOX_LOG(filelog::error) << "BinaryReader::readObject(): expected type "
                          << static_cast<long>(expected) << ", got " << static_cast<long>(actual)
                          << " throwing UnexpectedType" << EndLog();
  throw new UnexpectedType(actual, expected);
}

[[noreturn]] void unexpectedEndOfRoot(int c) {
  NOX_LOG(filelog::error)
      << "BinaryReader::readRootObject(): expected END_OF_ROOT_OBJECT (']'), got "
      << static_cast<long>(c) << " throwing UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kEndOfRootObject);
}

[[noreturn]] void unexpectedStartOfRoot(int c) {
  NOX_LOG(filelog::error)
      << "BinaryReader::readRootObject(): expected START_OF_ROOT_OBJECT ('['), got "
      << static_cast<long>(c) << " throwing UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kStartOfRootObject);
}

[[noreturn]] void unexpectedTextPrefix(int c) {
  if (c == kEndOfEntity) {
    NOX_LOG(filelog::error) << "BinaryReader::readNOXPString():"
                            << "Unexpected END_OF_ENTITY. Expected NOXPString attribute."
                            << EndLog();
  } else {
    NOX_LOG(filelog::error) << "BinaryReader::readNOXPString(): expected 'L' or 's' ', got "
                            << static_cast<long>(c) << " '" << Shown(c)
                            << "'; throw UnexpectedChar(typeCode)" << EndLog();
  }
  throw new UnexpectedChar(c, kStringPrefix);
}

[[noreturn]] void unexpectedBlobPrefix(int c) {
  if (c == kEndOfEntity) {
    NOX_LOG(filelog::error) << "BinaryReader::readNOXPBlob():"
                            << "Unexpected END_OF_ENTITY. Expected NOXPBlob attribute." << EndLog();
  } else {
    NOX_LOG(filelog::error) << "BinaryReader::readNOXPBlob(): expected 'L', 's' or 'j', got "
                            << static_cast<long>(c) << " '" << Shown(c)
                            << "'; throw UnexpectedChar(typeCode)" << EndLog();
  }
  throw new UnexpectedChar(c, kBlobPrefix);
}

[[noreturn]] void unexpectedByteArrayPrefix(int c) {
  NOX_LOG(filelog::error) << "BinaryReader::readNOXPBlob(): expected BYTE_ARRAY_PREFIX, got "
                          << static_cast<long>(c) << " '" << Shown(c)
                          << "'; throw UnexpectedChar(c)" << EndLog();
  throw new UnexpectedChar(c, kByteArrayPrefix);
}

[[noreturn]] void unexpectedNullType(const char* reader) {
  NOX_LOG(filelog::error) << "BinaryReader::" << reader
                          << "(): expected NULL type after BY_VALUE_OBJECT_PREFIX." << EndLog();
  throw new UnexpectedChar(kObjectPrefix, kNullType);
}

}  // namespace

/// Counts the objects that are open, whichever way they end.
class BinaryReader::DepthGuard {
public:
  explicit DepthGuard(BinaryReader& reader) : reader_(reader) {
    if (reader_.depth_ >= kMaxDepth) {
      NOX_LOG(filelog::critical) << "object nesting too deep" << EndLog();
      throw new AssertionFailure("depth <= 512");
    }
    ++reader_.depth_;
  }
  ~DepthGuard() { --reader_.depth_; }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;

private:
  BinaryReader& reader_;
};

/// Makes the frame the current stream, and the connection again once the frame is read. When an
/// exception passes, the frame stays current and the connection is forgotten.
class BinaryReader::FrameGuard {
public:
  /// `fresh` is null when the reader's frame is used again.
  FrameGuard(BinaryReader& reader, std::shared_ptr<FrameStream>&& fresh, bool spent)
      : reader_(reader), connection_(reader.stream_), connectionMemory_(reader.memory_) {
    if (spent) {
      spent_ = std::move(reader_.frame_);
    } else {
      reader_.savedStream_ = connection_;
    }
    if (fresh) reader_.frame_ = std::move(fresh);
    reader_.stream_ = reader_.frame_.get();
    reader_.memory_ = reader_.frame_.get();
  }
  ~FrameGuard() {
    reader_.savedStream_ = nullptr;
    if (!done_) {
      // What is left of the frame outlives the caller's bytes.
      if (reader_.frame_) reader_.frame_->ownOrForget();
      return;
    }
    if (reader_.frame_.use_count() == 1) reader_.frame_->shrink();
    if (spent_) reader_.frame_ = std::move(spent_);
    reader_.stream_ = connection_;
    reader_.memory_ = connectionMemory_;
  }
  FrameGuard(const FrameGuard&) = delete;
  FrameGuard& operator=(const FrameGuard&) = delete;

  void done() { done_ = true; }

private:
  BinaryReader& reader_;
  InputStream* connection_;
  MemoryBufferInputStream* connectionMemory_;
  std::shared_ptr<FrameStream> spent_;  // the left-over frame that serves as the connection
  bool done_ = false;
};

BinaryReader::BinaryReader(ObjectFactory* factory, InputStream* stream)
    : ObjectReader(factory, nullptr) {
  useStream(stream);
}

BinaryReader::BinaryReader(const BinaryReader& other)
    : input_reader(other),
      ObjectReader(other),
      savedStream_(other.savedStream_),
      frame_(other.frame_),
      memory_(other.memory_),
      mostInflated_(other.mostInflated_) {}

BinaryReader& BinaryReader::operator=(const BinaryReader& other) {
  ObjectReader::operator=(other);
  savedStream_ = other.savedStream_;
  frame_ = other.frame_;
  memory_ = other.memory_;
  mostInflated_ = other.mostInflated_;
  return *this;
}

BinaryReader::~BinaryReader() = default;

void BinaryReader::useStream(InputStream* stream) {
  stream_ = stream;
  // Only these two: a subclass may have its own idea of where its bytes come from.
  const bool plainMemory = stream && (typeid(*stream) == typeid(MemoryBufferInputStream) ||
                                      typeid(*stream) == typeid(FrameStream));
  memory_ = plainMemory ? static_cast<MemoryBufferInputStream*>(stream) : nullptr;
  if (memory_ && !memory_->buffer_) memory_ = nullptr;  // whatever its length says
}

void BinaryReader::setInputStream(InputStream* stream) {
  if (stream == stream_) return;
  if (frame_ && stream_ == frame_.get()) {
    // The frame is this reader's own. It is still being parsed when an object changes the stream.
    if (depth_ == 0) frame_.reset();
  } else {
    delete stream_;
  }
  useStream(stream);
}

Archive& BinaryReader::process(int& value, const char* /*name*/) {
  value = BinaryReader::readInt();
  return *this;
}

inline bool BinaryReader::takeString(std::string_view& text) {
  const char* const head = peek(kStringHead);
  if (!head || *head != kStringPrefix) return false;
  const std::size_t n = loadBigEndian16(head + 1);
  if (remaining() < kStringHead + n + 1 || head[kStringHead + n] != kEndOfEntity) return false;
  text = std::string_view(head + kStringHead, n);
  skip(kStringHead + n + 1);
  return true;
}

// Most texts are short, plain and at hand; the rest is left to the ordinary way.
Archive& BinaryReader::process(std::string& value, const char* /*name*/) {
  if constexpr (!kLoggerOutput) {
    std::string_view utf8;
    if (takeString(utf8)) {
      if (utf8.size() <= kShortText && readableFrom(utf8) >= kShortText &&
          detail::nativeKeepsAscii.load(std::memory_order_relaxed) &&
          detail::isPlainAscii(utf8.data(), utf8.size())) {
        assignShort(value, utf8);
      } else {
        assignNative(value, utf8);
      }
      return *this;
    }
  }
  readText(value);
  return *this;
}

void BinaryReader::readStrings(std::vector<std::string>& to, int count) {
  constexpr std::size_t kShortestString = kStringHead + 1;
  constexpr std::size_t kUnseen = 1024;  // how many are believed in without their bytes
  if (count <= 0) return;
  const std::size_t wanted = to.size() + static_cast<std::size_t>(count);
  const std::size_t possible = memory_ ? remaining() / kShortestString : kUnseen;
  to.reserve(std::min(wanted, to.size() + possible));
  while (to.size() < wanted) {
    takeShortStrings(to, wanted);
    if (to.size() < wanted) BinaryReader::process(to.emplace_back(), nullptr);
  }
}

/// Reads short plain strings up to the first that is something else, or until there are `wanted`.
void BinaryReader::takeShortStrings(std::vector<std::string>& to, std::size_t wanted) {
  if (kLoggerOutput || !memory_ || !detail::nativeKeepsAscii.load(std::memory_order_relaxed))
    return;
  const char* at = memory_->buffer_ + memory_->position_;
  const char* const end = memory_->buffer_ + memory_->length_;
  // A short string as long as it may be, so that one look at the end is enough.
  constexpr std::ptrdiff_t kRoom = kStringHead + kShortText + 1;
  while (to.size() < wanted && end - at >= kRoom && *at == kStringPrefix) {
    const std::size_t n = loadBigEndian16(at + 1);
    const char* const text = at + kStringHead;
    if (n > kShortText || text[n] != kEndOfEntity || !detail::isPlainAscii(text, n)) break;
    to.emplace_back(text, kShortText);
    to.back().erase(n);
    at = text + n + 1;
  }
  memory_->position_ = static_cast<std::uint32_t>(at - memory_->buffer_);
}

Archive& BinaryReader::process(NOXPString* value, const char* /*name*/) {
  if constexpr (!kLoggerOutput) {
    std::string_view text;
    if (value && takeString(text)) {
      value->assignNarrow(text.data(), text.size(), readableFrom(text));
      return *this;
    }
  }
  BinaryReader::readNOXPString(value);
  return *this;
}

Archive& BinaryReader::process(NOXPBlob* value, const char* /*name*/) {
  BinaryReader::readNOXPBlob(value);
  return *this;
}

Archive& BinaryReader::process(Serializable* value, const char* /*name*/) {
  Serializable* const object = readObject(value);
  if (!value) delete object;
  return *this;
}

int BinaryReader::readChar() {
  if (const char* const at = peek(1)) {
    skip(1);
    return static_cast<unsigned char>(*at);
  }
  return stream_->readChar();
}

int BinaryReader::readInt() {
  if constexpr (!kLoggerOutput) {
    const char* const at = peek(kMarkedInt);
    if (at && *at == kIntegerPrefix) {
      skip(kMarkedInt);
      return loadBigEndian32(at + 1);
    }
  }
  const int c = BinaryReader::readChar();
  if (c != kIntegerPrefix) unexpectedIntPrefix(c);
  NOX_LOG(filelog::debug) << "BinaryReader::readInt(): prefix 'I' OK, read 4 bytes now."
                          << EndLog();
  // Bytes that are missing count as zero; what follows them is missing too and ends the parse.
  char bytes[4] = {};
  stream_->readMax(bytes, 4);
  return loadBigEndian32(bytes);
}

void BinaryReader::checkEndOfObjectMarker() {
  const int c = BinaryReader::readChar();
  if (c != kEndOfEntity) unexpectedEnd(c);
}

bool BinaryReader::takeBlob(std::string_view& content) {
  const char* const head = peek(kBlobHead);
  if (!head || head[0] != kBlobPrefix || head[1] != kByteArrayPrefix) return false;
  const std::size_t n = static_cast<std::uint32_t>(loadBigEndian32(head + 2));
  if (remaining() - kBlobHead < n + 2) return false;
  const char* const body = head + kBlobHead;
  if (body[n] != kEndOfEntity || body[n + 1] != kEndOfEntity) return false;
  content = std::string_view(body, n);
  skip(kBlobHead + n + 2);
  return true;
}

unsigned int BinaryReader::readStringLength(const char* reader) {
  char bytes[2] = {};
  const std::int64_t count = stream_->readMax(bytes, 2);
  if (count != 2) failAssertion("bytesRead == 2");
  const unsigned int n = loadBigEndian16(bytes);
  NOX_LOG(filelog::debug) << "BinaryReader::" << reader << "(): read 2 bytes of String length"
                          << EndLog();
  NOX_LOG(filelog::debug) << "BinaryReader::" << reader
                          << "(): stringLength = " << static_cast<long>(n) << EndLog();
  return n;
}

std::string BinaryReader::readStringBytes(unsigned int n, const char* reader) {
  std::string bytes(n, '\0');  // at most 65,535
  const std::int64_t count = stream_->readMax(bytes.data(), static_cast<int>(n));
  if (count != static_cast<std::int64_t>(n)) failAssertion("bytesRead == stringLength");
  NOX_LOG(filelog::debug) << "BinaryReader::" << reader << "(): all string read OK." << EndLog();
  return bytes;
}

/// UTF-8 from the wire as text in the native code page, up to its first NUL.
void BinaryReader::assignNative(std::string& to, std::string_view utf8) {
  if (const void* const nul = utf8.empty() ? nullptr : std::memchr(utf8.data(), 0, utf8.size())) {
    utf8 = utf8.substr(0, static_cast<std::size_t>(static_cast<const char*>(nul) - utf8.data()));
  }
  if (NOXPString::isSameInUtf8(utf8)) {
    to.assign(utf8.data(), utf8.size());
    return;
  }
  NOXPString text(utf8.data(), utf8.size(), true);
  text.toString();
  const char* const native = text.c_str();
  to.assign(native ? native : "");
}

void BinaryReader::readText(std::string& text) {
  if constexpr (!kLoggerOutput) {
    std::string_view utf8;
    if (takeString(utf8)) return assignNative(text, utf8);
  }
  const int c = BinaryReader::readChar();
  if (c != kStringPrefix) unexpectedStringPrefix(c);
  NOX_LOG(filelog::debug) << "BinaryReader::readString(): prefix 's' OK, read 2 bytes now."
                          << EndLog();
  const unsigned int n = readStringLength("readString");
  if (n < 1) {
    text.clear();
  } else {
    assignNative(text, readStringBytes(n, "readString"));
  }
  BinaryReader::checkEndOfObjectMarker();
}

std::string* BinaryReader::readString() {
  auto text = std::make_unique<std::string>();
  readText(*text);
  return text.release();
}

void BinaryReader::readNOXPString(NOXPString* value) {
  NOXPString dropped;
  if (!value) value = &dropped;
  if constexpr (!kLoggerOutput) {
    std::string_view text;
    if (takeString(text)) {
      return value->assignNarrow(text.data(), text.size(), text.size() + remaining());
    }
  }
  const int c = BinaryReader::readChar();
  if (c == kObjectPrefix) {
    if (BinaryReader::readInt() != kNullType) unexpectedNullType("readNOXPString");
    BinaryReader::checkEndOfObjectMarker();
    value->assignNarrow("", 0);
    return;
  }
  if (c != kStringPrefix) unexpectedTextPrefix(c);
  const unsigned int n = readStringLength("readNOXPString");
  if (n < 1) {
    value->assignNarrow("", 0);
  } else {
    const std::string bytes = readStringBytes(n, "readNOXPString");
    value->assignNarrow(bytes.data(), bytes.size());
  }
  BinaryReader::checkEndOfObjectMarker();
}

void BinaryReader::readNOXPBlob(NOXPBlob* value) {
  if (!value) {
    NOXPBlob dropped;
    return BinaryReader::readNOXPBlob(&dropped);
  }
  std::string_view content;
  if (takeBlob(content)) {
    if (!value->setSizeUnfilled(content.size())) throw std::bad_alloc();
    if (!content.empty()) std::memcpy(value->getBuf(), content.data(), content.size());
    return;
  }
  int c = BinaryReader::readChar();
  if (c == kObjectPrefix) {
    if (BinaryReader::readInt() != kNullType) unexpectedNullType("readNOXPBlob");
    BinaryReader::checkEndOfObjectMarker();
    value->clear();
    return;
  }
  if (c != kBlobPrefix) unexpectedBlobPrefix(c);
  c = BinaryReader::readChar();
  if (c != kByteArrayPrefix) unexpectedByteArrayPrefix(c);
  char length[4] = {};
  stream_->readMax(length, 4);
  const std::size_t n = static_cast<std::uint32_t>(loadBigEndian32(length));
  const std::size_t got = readBlobBytes(*value, n);
  if (got < value->length() && !value->setSizeUnfilled(got)) throw std::bad_alloc();
  BinaryReader::checkEndOfObjectMarker();
  BinaryReader::checkEndOfObjectMarker();
}

/// Reads up to `n` bytes into `blob`, which grows as they arrive, and returns how many came.
std::size_t BinaryReader::readBlobBytes(NOXPBlob& blob, std::size_t n) {
  if (memory_) n = std::min(n, remaining());
  if (!blob.setSizeUnfilled(0)) throw std::bad_alloc();
  std::size_t got = 0;
  for (std::size_t step = kFirstChunk; got < n; step *= 2) {
    const std::size_t chunk = std::min({n - got, step, std::size_t{1} << 30});
    if (!blob.setSizeUnfilled(got + chunk)) throw std::bad_alloc();
    const std::int64_t count =
        stream_->readMax(reinterpret_cast<char*>(blob.getBuf()) + got, static_cast<int>(chunk));
    if (count > 0) got += std::min(static_cast<std::size_t>(count), chunk);
    if (count != static_cast<std::int64_t>(chunk)) break;
  }
  return got;
}

BinaryReader* BinaryReader::behind(Archive& ar) {
  Reader* const reader = ar.getReader();
  return reader && typeid(*reader) == typeid(BinaryReader) ? static_cast<BinaryReader*>(reader)
                                                           : nullptr;
}

std::string_view BinaryReader::takeBlobsInPlace(int n, int& taken) {
  taken = 0;
  if (!frame_ || stream_ != frame_.get()) return {};
  frame_->own();
  const char* const begin = memory_->buffer_ + memory_->position_;
  const char* const end = memory_->buffer_ + memory_->length_;
  constexpr std::size_t kMarks = kBlobHead + 2;
  const char* at = begin;
  for (; taken < n && static_cast<std::size_t>(end - at) >= kMarks; ++taken) {
    const std::size_t size = static_cast<std::uint32_t>(loadBigEndian32(at + 2));
    if (at[0] != kBlobPrefix || at[1] != kByteArrayPrefix ||
        size > static_cast<std::size_t>(end - at) - kMarks) {
      break;
    }
    const char* const tail = at + kBlobHead + size;
    if (tail[0] != kEndOfEntity || tail[1] != kEndOfEntity) break;
    at = tail + 2;
  }
  memory_->position_ = static_cast<std::uint32_t>(at - memory_->buffer_);
  return {begin, static_cast<std::size_t>(at - begin)};
}

std::shared_ptr<const void> BinaryReader::shareFrame() {
  if (!frame_ || stream_ != frame_.get()) return nullptr;
  frame_->own();
  return frame_;
}

Serializable* BinaryReader::readObject(Serializable* expected) {
  const DepthGuard depth(*this);
  int type;
  const char* const head = kLoggerOutput ? nullptr : peek(1 + kMarkedInt);
  if (head && head[0] == kObjectPrefix && head[1] == kIntegerPrefix) {
    type = loadBigEndian32(head + 2);
    skip(1 + kMarkedInt);
  } else {
    const int c = BinaryReader::readChar();
    if (c != kObjectPrefix) unexpectedObjectPrefix(c);
    type = BinaryReader::readInt();
  }
  if (type == kNullType) {
    NOX_LOG(filelog::debug) << "BinaryReader::readObject(): returning NULL" << EndLog();
    BinaryReader::checkEndOfObjectMarker();
    return nullptr;
  }
  std::unique_ptr<Serializable> created;
  Serializable* object = expected;
  if (expected) {
    const int expectedType = expected->getType();
    if (type != expectedType) unexpectedType(type, expectedType);
  } else {
    if (!factory_) throw new UnknownType(type);
    created.reset(factory_->createObject(type));
    if (!created) throw std::bad_alloc();
    object = created.get();
  }
  const int version = BinaryReader::readInt();
  object->setClassVersion(version);
  object->serialize(*this, static_cast<unsigned int>(version));
  BinaryReader::checkEndOfObjectMarker();
  created.release();
  return object;
}

Serializable* BinaryReader::readRootObject() {
  if (!stream_) throw new LAST;
  int length = 0;
  int c;
  const char* const head = peek(kMarkedInt);
  if (head) {
    length = loadBigEndian32(head);
    c = static_cast<unsigned char>(head[4]);
    skip(kMarkedInt);
  } else {
    stream_->readInt(length);
    c = stream_->readChar();
  }
  if (c == -1) {
    NOX_LOG(filelog::debug)
        << "BinaryReader::readRootObject(): TIMEOUT, throwing Serializable::NONE" << EndLog();
    throw new NONE;
  }
  if (c == kStartOfRootObject) return readFrame(length);
  if (isHttpWord(static_cast<unsigned int>(length))) {
    return readHttpRequest(static_cast<unsigned int>(length), c);
  }
  unexpectedStartOfRoot(c);
}

Serializable* BinaryReader::readFrame(int length) {
  // The length counts '[', which is read already. Below 1 it cannot be true: the body is then taken
  // as empty, and the object is missed where it should begin.
  const std::size_t n = length > 1 ? static_cast<std::size_t>(length) - 1 : 0;
  // Until the body is complete the reader keeps the stream it is on, be it a left-over frame: an
  // exception leaves it there.
  const bool spent = frame_ && stream_ == frame_.get();
  std::shared_ptr<FrameStream> fresh;
  if (spent || !frame_ || frame_.use_count() > 1) fresh = std::make_shared<FrameStream>();
  FrameStream* const frame = fresh ? fresh.get() : frame_.get();

  std::size_t received;
  std::string_view body;
  if (memory_) {
    // The bytes are at hand: they are read where they lie.
    received = std::min(n, remaining());
    char* const bytes = memory_->buffer_ + memory_->position_;
    skip(received);
    body = std::string_view(bytes, received);
    frame->readBorrowed(bytes, received);
  } else {
    received = receiveBody(*frame, n);
    frame->readBlock(received);
    body = std::string_view(frame->getBuffer(), received);
  }
  if (received != n || length < 1) {
    NOX_LOG(filelog::warning) << "Corrupted data. " << EndLog();
  }
  // Of a frame that came short the last byte is missing, whatever its last byte here is.
  const int last = received == n && n > 0 ? static_cast<unsigned char>(body[n - 1]) : 0;
  const bool closed = inflateBody(*frame, body) || last == kEndOfRootObject;

  FrameGuard guard(*this, std::move(fresh), spent);
  std::unique_ptr<Serializable> root(readObject(nullptr));
  if (!closed) unexpectedEndOfRoot(last);
  guard.done();
  if (root) root->setPacketSize(static_cast<std::uint64_t>(length));
  return root.release();
}

/// Reads up to `n` bytes of the frame into its block, which grows as they arrive, and returns how
/// many came.
std::size_t BinaryReader::receiveBody(FrameStream& frame, std::size_t n) {
  std::size_t got = 0;
  for (std::size_t step = kFirstChunk; got < n; step *= 2) {
    const std::size_t chunk = std::min(n - got, step);
    char* const block = frame.block(got + chunk, got);
    const std::int64_t count = stream_->readMax(block + got, static_cast<int>(chunk));
    if (count > 0) got += std::min(static_cast<std::size_t>(count), chunk);
    if (count != static_cast<std::int64_t>(chunk)) break;
  }
  return got;
}

/// Inflates a compressed body and aims the frame at the result, closed by ']'. False for a plain
/// one.
bool BinaryReader::inflateBody(FrameStream& frame, std::string_view body) {
  if (body.size() < kSmallestCompressedBody ||
      std::memcmp(body.data(), kCompressedMarker, sizeof kCompressedMarker) != 0) {
    return false;
  }
  // Up to, not including, the last byte, which is never looked at.
  const std::string_view member =
      body.substr(sizeof kCompressedMarker, body.size() - sizeof kCompressedMarker - 1);
  try {
    GZipCompressor::uncompressTo(member.data(), member.size(), frame.inflated(), mostInflated_);
  } catch (const GZipCompressor::Error& error) {
    NOX_LOG(filelog::error) << "GZIP: " << error.what() << EndLog();
    throw CompressionError(std::string("Root object compression error: ") + error.what());
  }
  frame.inflated().push_back(kEndOfRootObject);
  frame.readInflated();
  return true;
}

noxp::RequestProt* BinaryReader::readHttpRequest(unsigned int length, int c) {
  char prefix[6] = {};
  storeBigEndian32(prefix, length);
  prefix[4] = static_cast<char>(c);
  httpReader reader(factory_, stream_);
  reader.setPrefix(prefix);
  return reader.readRequest();
}

noxp::RequestProt* BinaryReader::readRequest() {
  std::unique_ptr<Serializable> root(readRootObject());
  auto* const request = dynamic_cast<noxp::RequestProt*>(root.get());
  if (request) root.release();
  return request;
}

}  // namespace nox
