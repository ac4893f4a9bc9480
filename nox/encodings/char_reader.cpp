#include "nox/encodings/char_reader.h"

#include <algorithm>
#include <memory>

#include "nox/core/memory_streams.h"
#include "nox/encodings/reader_support.h"

namespace nox {

namespace {

constexpr int kRootType = 0;
constexpr int kSecondsToWait = 1;

/// A failed read counts as no bytes.
std::size_t bytesRead(std::int64_t result) {
  return static_cast<std::size_t>(std::clamp<std::int64_t>(result, 0, char_reader::kBlockSize));
}

/// Puts another stream in a reader's place. Assigning the member, since `setInputStream` would
/// delete the caller's stream.
class StreamSwap {
public:
  StreamSwap(InputStream*& place, InputStream* stream) : place_(place), saved_(place) {
    place_ = stream;
  }
  StreamSwap(const StreamSwap&) = delete;
  StreamSwap& operator=(const StreamSwap&) = delete;
  ~StreamSwap() { place_ = saved_; }

private:
  InputStream*& place_;
  InputStream* saved_;
};

}  // namespace

char_reader::~char_reader() = default;

Archive& char_reader::process(std::string& value, const char* /*name*/) {
  const std::unique_ptr<std::string> text(readString());
  value = std::move(*text);
  return *this;
}

Archive& char_reader::process(NOXPBlob* value, const char* name) {
  return ObjectReader::process(value, name);
}

Archive& char_reader::process(NOXPString* value, const char* name) {
  return ObjectReader::process(value, name);
}

Archive& char_reader::process(int& /*value*/, const char* /*name*/) { return *this; }

Archive& char_reader::process(Serializable* /*value*/, const char* /*name*/) { return *this; }

Serializable* char_reader::readRootObject() {
  char block[kBlockSize];
  const std::size_t n = bytesRead(stream_->readMax(block, kBlockSize, kSecondsToWait));
  MemoryBufferInputStream memory(block, n);
  const StreamSwap swap(stream_, &memory);
  std::unique_ptr<Serializable> object = createObject(factory_, kRootType);
  object->setClassVersion(0);
  object->setPacketSize(0);
  readObject(object.get());
  object->setPacketSize(n);
  return object.release();
}

Serializable* char_reader::readObject(Serializable* object) {
  if (!object) return readRootObject();
  object->serialize(*this, static_cast<unsigned int>(object->getClassVersion()));
  return object;
}

noxp::RequestProt* char_reader::readRequest() {
  return asRequest(std::unique_ptr<Serializable>(readRootObject()));
}

std::string* char_reader::readString() {
  char block[kBlockSize];
  const std::size_t n = bytesRead(stream_->readMax(block, kBlockSize));
  return new std::string(block, n);
}

int char_reader::readChar() { return stream_->readChar(); }

int char_reader::readInt() {
  int value = 0;
  stream_->readInt(value);
  return value;
}

}  // namespace nox
