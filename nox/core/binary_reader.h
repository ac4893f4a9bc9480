// Reads objects in the binary format, one root object per frame.
#pragma once

#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nox/core/input_reader.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_reader.h"

namespace nox {

class FrameStream;

/// Takes a whole frame off the connection and builds the root object from it. One reader per
/// connection and thread.
///
/// What is malformed ends in an exception (by pointer: UnexpectedChar, UnexpectedType, UnknownType,
/// AssertionFailure; by value: CompressionError); the object under construction is deleted. When it
/// came from inside a frame, the frame stays the current stream and the reader is spent for that
/// connection: discard it, or give it a stream with `setInputStream`, which deletes the frame.
///
/// No count or length from the peer reserves memory that the bytes that arrived do not justify, and
/// objects nest at most kMaxDepth deep.
class NOX_EXPORT BinaryReader : public input_reader, public ObjectReader {
public:
  using ObjectReader::process;

  /// Objects nested deeper end in `new AssertionFailure("depth <= 512")`; messages nest up to 5.
  static constexpr int kMaxDepth = 512;

  /// Neither argument is owned, unless it is replaced by `setInputStream`.
  BinaryReader(ObjectFactory* factory, InputStream* stream);
  /// A copy reads from the same streams; a frame left over after a failure is shared.
  BinaryReader(const BinaryReader& other);
  BinaryReader& operator=(const BinaryReader& other);
  ~BinaryReader() override;

  Archive& process(std::string& value, const char* name) override;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  /// Fills `value` in place. Through a null pointer an object is created, read and deleted.
  Archive& process(Serializable* value, const char* name) override;

  /// The next root object, the caller's; null for a frame that holds the null object, and for an
  /// HTTP request when the factory knows no HTTP request object. Throws `new NONE` when nothing
  /// arrived within the stream's time-out and `new LAST` at its end.
  Serializable* readRootObject() override;
  /// The next root object if it is a request; another one is deleted, and the result is null.
  noxp::RequestProt* readRequest() override;

  void setInputStream(InputStream* stream) override;

  /// From now on a compressed body of more than `bytes` of content ends in CompressionError, and
  /// takes no memory beyond that. Without a limit content may be 1032 times what arrived.
  void limitInflation(std::size_t bytes) { mostInflated_ = bytes; }

  /// Reads one object with its head: into `expected`, which must be of the type that comes, or into
  /// a new object that the caller owns. Null for the null object (`expected` then stays as it is).
  Serializable* readObject(Serializable* expected);

  /// The binary reader that `ar` is, for payloads that know a shorter way out of it; null for other
  /// archives and for subclasses, which may read fields their own way.
  static BinaryReader* behind(Archive& ar);
  /// For payloads that keep their bytes where they arrived: steps past up to `n` blobs that stand
  /// one after the other in the frame, as long as they are plain (not null, not malformed), says in
  /// `taken` how many there were and returns their encoded bytes. What comes then is read the
  /// ordinary way. The bytes are valid while `shareFrame()` is held. Outside a frame nothing is
  /// taken.
  std::string_view takeBlobsInPlace(int n, int& taken);
  /// A share of the frame that is being read, so that bytes of it outlive it; null outside one.
  std::shared_ptr<const void> shareFrame();

  /// Reads `count` strings as `process` would, at less cost, and appends them to `to`. Room for as
  /// many as the bytes that arrived can hold is made at once.
  void readStrings(std::vector<std::string>& to, int count);

protected:
  void checkEndOfObjectMarker() override;

private:
  class DepthGuard;
  class FrameGuard;

  void readNOXPString(NOXPString* value) override;
  void readNOXPBlob(NOXPBlob* value) override;
  std::string* readString() override;
  int readChar() override;
  int readInt() override;

  void useStream(InputStream* stream);
  Serializable* readFrame(int length);
  std::size_t receiveBody(FrameStream& frame, std::size_t n);
  bool inflateBody(FrameStream& frame, std::string_view body);
  noxp::RequestProt* readHttpRequest(unsigned int length, int c);

  /// The next `n` bytes when the current stream is memory and holds them, else null.
  const char* peek(std::size_t n) const {
    return memory_ && memory_->length_ - memory_->position_ >= n
               ? memory_->buffer_ + memory_->position_
               : nullptr;
  }
  void skip(std::size_t n) { memory_->position_ += static_cast<std::uint32_t>(n); }
  std::size_t remaining() const { return memory_->length_ - memory_->position_; }
  /// Bytes that may be looked at from the begin of a text that takeString() gave.
  std::size_t readableFrom(std::string_view text) const {
    return static_cast<std::size_t>(memory_->buffer_ + memory_->length_ - text.data());
  }

  /// Steps past a well-formed string and says where its bytes lie; false, with nothing read, when
  /// they are not in memory or anything about it asks for a closer look.
  bool takeString(std::string_view& text);
  bool takeBlob(std::string_view& content);
  unsigned int readStringLength(const char* reader);
  std::string readStringBytes(unsigned int n, const char* reader);
  std::size_t readBlobBytes(NOXPBlob& blob, std::size_t n);
  void readText(std::string& text);
  void takeShortStrings(std::vector<std::string>& to, std::size_t wanted);
  static void assignNative(std::string& to, std::string_view utf8);

  InputStream* savedStream_ = nullptr;  // the connection, while a frame is parsed
  std::shared_ptr<FrameStream> frame_;  // the last frame; current while parsed and once spent
  MemoryBufferInputStream* memory_ = nullptr;  // the current stream, where it is known to be memory
  int depth_ = 0;
  std::size_t mostInflated_ = std::numeric_limits<std::size_t>::max();
};

}  // namespace nox
