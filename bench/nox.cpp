// Ourselves: messages through BinaryWriter and BinaryReader, as a program uses them.
//
// "nox" reads from memory, as the peers do. "nox-stream" reads the same frames from a stream that
// hands them over piece by piece, as a connection does, and so copies them once more.
#include <algorithm>
#include <cstring>

#include "bench/harness.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::bench {

namespace {

class ReadRecordMessage : public Request<ReadRecordMessage, TypeCode::ReadRecordRequest> {
public:
  ReadRecordMessage() = default;
  explicit ReadRecordMessage(const ReadRecord& from)
      : mode_(from.mode),
        fileName_(CopiedString(from.fileName.c_str())),
        recordId_(CopiedString(from.recordId.c_str())) {}

  int getMode() const { return mode_; }
  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }

  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(mode_, "readMode")
        .process(fileName_, "_fileName")
        .process(recordId_, "_recordId");
  }

private:
  int mode_ = 0;
  OwnedString fileName_;
  OwnedString recordId_;
};

class WriteRecordMessage : public Request<WriteRecordMessage, TypeCode::WriteRecordRequest> {
public:
  WriteRecordMessage() = default;
  explicit WriteRecordMessage(const WriteRecord& from)
      : mode_(from.mode),
        fileName_(CopiedString(from.fileName.c_str())),
        recordId_(CopiedString(from.recordId.c_str())) {
    record_->assign(from.record.data(), from.record.size());
  }

  int getMode() const { return mode_; }
  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }
  NOXPBlob* getRecord() const { return record_.get(); }

  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(mode_, "writeMode")
        .process(fileName_, "_fileName")
        .process(recordId_, "_recordId")
        .process(record_, "_record");
  }

private:
  int mode_ = 0;
  OwnedString fileName_;
  OwnedString recordId_;
  OwnedBlob record_;
};

class KeyListMessage : public Payload<KeyListMessage, TypeCode::SelectList> {
public:
  KeyListMessage() = default;
  explicit KeyListMessage(const KeyList& from) : keys_(from.keys) {}

  const std::vector<std::string>& getKeys() const { return keys_; }

  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    int id = 0;
    int numKeys = static_cast<int>(keys_.size());
    int hasRecords = 0;
    ar.process(id, "id").process(numKeys, "numKeys");
    if (ar.isWriting()) {
      for (std::string& key : keys_) ar& key;
    } else {
      keys_.clear();
      for (int i = 0; i < numKeys; ++i) ar.process(keys_.emplace_back(), "key");
    }
    return ar.process(hasRecords, "hasRecords");
  }

private:
  std::vector<std::string> keys_;
};

class Factory : public ObjectFactory {
public:
  Factory() {
    add<ReadRecordMessage>("ReadRecordRequest");
    add<WriteRecordMessage>("WriteRecordRequest");
    add<KeyListMessage>("SelectList");
  }
  Serializable* create() override { return new Factory; }
};

template <class Visitor>
void visitText(NOXPString* text, Visitor& visit) {
  visit(std::string_view(text->c_str(), text->length()));
}

template <class Visitor>
void visitAll(const ReadRecordMessage& message, Visitor& visit) {
  visit(message.getMode());
  visitText(message.getFileName(), visit);
  visitText(message.getRecordId(), visit);
}
template <class Visitor>
void visitAll(const WriteRecordMessage& message, Visitor& visit) {
  visit(message.getMode());
  visitText(message.getFileName(), visit);
  visitText(message.getRecordId(), visit);
  const NOXPBlob& record = *message.getRecord();
  visit(std::string_view(reinterpret_cast<const char*>(record.getBuf()), record.length()));
}
template <class Visitor>
void visitAll(const KeyListMessage& message, Visitor& visit) {
  for (const std::string& key : message.getKeys()) visit(std::string_view(key));
}

/// Keeps the last frame, so that it can be read back. While nothing asks for it, it takes frames as
/// a connection does: the writer's own block is what would be sent.
class Sink : public OutStream {
public:
  using OutStream::send;
  void send(const char* data, std::size_t n) override {
    data_ = data;
    size_ = n;
  }
  void flush() override {}
  std::string_view frame() const { return {data_, size_}; }

private:
  const char* data_ = nullptr;
  std::size_t size_ = 0;
};

/// The same frame again and again, as it would arrive on a connection.
class RepeatingStream : public InputStream {
public:
  void open(std::string_view frame) { frame_ = frame; }
  std::int64_t readMax(char* buf, int max) override {
    const std::size_t n = std::min(static_cast<std::size_t>(max), frame_.size() - at_);
    std::memcpy(buf, frame_.data() + at_, n);
    at_ += n;
    if (at_ == frame_.size()) at_ = 0;
    return static_cast<std::int64_t>(n);
  }
  std::int64_t readMax(char* buf, int max, int /*timeout*/) override { return readMax(buf, max); }

private:
  std::string_view frame_;
  std::size_t at_ = 0;
};

/// Memory that is read from its beginning each time.
class MemorySource {
public:
  InputStream* stream() { return &memory_; }
  void open(std::string_view frame) { memory_ = {frame.data(), frame.size()}; }

private:
  MemoryBufferInputStream memory_{nullptr, 0};
};

class ConnectionSource {
public:
  InputStream* stream() { return &stream_; }
  void open(std::string_view frame) { stream_.open(frame); }

private:
  RepeatingStream stream_;
};

template <class Message, class Source>
class NoxCodec {
public:
  template <class Object>
  explicit NoxCodec(const Object& source) : message_(source) {}

  std::size_t encode() {
    writer_.writeRoot(message_);
    return sink_.frame().size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    source_.open(sink_.frame());
    const std::unique_ptr<Serializable> object(reader_.readRootObject());
    visitAll(static_cast<const Message&>(*object), visit);
  }

private:
  Factory factory_;
  Message message_;
  Sink sink_;
  BinaryWriter writer_{&sink_};
  Source source_;
  BinaryReader reader_{&factory_, source_.stream()};
};

template <class Source>
void add(Suite& suite, const char* name) {
  suite.add<NoxCodec<ReadRecordMessage, Source>>("W1", name, suite.data().w1);
  suite.add<NoxCodec<WriteRecordMessage, Source>>("W2", name, suite.data().w2);
  suite.add<NoxCodec<WriteRecordMessage, Source>>("W2b", name, suite.data().w2b);
  suite.add<NoxCodec<KeyListMessage, Source>>("W4", name, suite.data().w4);
}

}  // namespace

void addNox(Suite& suite) {
  add<MemorySource>(suite, "nox");
  add<ConnectionSource>(suite, "nox-stream");
}

}  // namespace nox::bench
