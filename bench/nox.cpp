// Ourselves: messages through BinaryWriter and BinaryReader, as a program uses them.
//
// "nox" reads from memory, as the peers do. "nox-stream" reads the same frames from a stream that
// hands them over piece by piece, as a connection does, and so copies them once more. "nox-data"
// asks the rows of a result set for blobs instead of views.
#include <algorithm>
#include <cstring>

#include "bench/harness.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/remote/record_requests.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox::bench {

namespace {

using noxp::remote::ReadRecordRequestProt;
using noxp::remote::SelectListProt;
using noxp::remote::WriteRecordRequestProt;
using noxp::sql::ResultSetProt;
using noxp::sql::RowProt;

std::unique_ptr<ReadRecordRequestProt> makeMessage(const ReadRecord& from) {
  return std::make_unique<ReadRecordRequestProt>(from.mode, from.fileName.c_str(),
                                                 from.recordId.c_str());
}
std::unique_ptr<WriteRecordRequestProt> makeMessage(const WriteRecord& from) {
  const NOXPString fileName(from.fileName);
  const NOXPString recordId(from.recordId);
  const NOXPBlob record(from.record.data(), from.record.size());
  return std::make_unique<WriteRecordRequestProt>(from.mode, &fileName, &recordId, &record);
}
std::unique_ptr<SelectListProt> makeMessage(const KeyList& from) {
  NOXPBlob keys;
  for (const std::string& key : from.keys) {
    keys.append(key.data(), key.size());
    keys.append("\xFE");
  }
  return std::make_unique<SelectListProt>(&keys);
}

class Factory : public ObjectFactory {
public:
  Factory() {
    add<ReadRecordRequestProt>("ReadRecordRequest");
    add<WriteRecordRequestProt>("WriteRecordRequest");
    add<SelectListProt>("SelectList");
    add<ResultSetProt>("ResultSet");
    add<RowProt>("Row");
  }
  Serializable* create() override { return new Factory; }
};

template <class Visitor>
void visitText(NOXPString* text, Visitor& visit) {
  visit(std::string_view(text->c_str(), text->length()));
}

template <class Visitor>
void visitBlob(const NOXPBlob& blob, Visitor& visit) {
  visit(std::string_view(reinterpret_cast<const char*>(blob.getBuf()), blob.length()));
}

template <class Visitor>
void visitAll(ReadRecordRequestProt& message, Visitor& visit) {
  visit(message.getReadMode());
  visitText(message.getFileName(), visit);
  visitText(message.getRecordId(), visit);
}
template <class Visitor>
void visitAll(WriteRecordRequestProt& message, Visitor& visit) {
  visit(message.getWriteMode());
  visitText(message.getFileName(), visit);
  visitText(message.getRecordId(), visit);
  visitBlob(*message.getRecord(), visit);
}
template <class Visitor>
void visitAll(SelectListProt& list, Visitor& visit) {
  while (list.next()) visit(list.getKeyView());
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

/// Memory that holds a frame again and again, as a program has it that received many at once.
class MemorySource {
public:
  InputStream* stream() { return &memory_; }
  void open(std::string_view frame) {
    if (frames_.size() % frame.size() != 0 || frames_.empty()) {
      frames_.clear();
      do frames_ += frame;
      while (frames_.size() + frame.size() <= 4096);
      left_ = 0;
    }
    if (left_ == 0) {
      memory_ = {frames_.data(), frames_.size()};
      left_ = frames_.size() / frame.size();
    }
    --left_;
  }

private:
  std::string frames_;
  std::size_t left_ = 0;  // frames that are not read yet
  MemoryBufferInputStream memory_{"", 0};
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
  explicit NoxCodec(const Object& source) : message_(makeMessage(source)) {}

  std::size_t encode() {
    writer_.writeRoot(*message_);
    return sink_.frame().size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    source_.open(sink_.frame());
    const std::unique_ptr<Serializable> object(reader_.readRootObject());
    visitAll(static_cast<Message&>(*object), visit);
  }

private:
  Factory factory_;
  const std::unique_ptr<Message> message_;
  Sink sink_;
  BinaryWriter writer_{&sink_};
  Source source_;
  BinaryReader reader_{&factory_, source_.stream()};
};

/// A set gives its rows away as it is written, and so is filled anew before each message.
template <class Source, bool blobs>
class RowsCodec {
public:
  explicit RowsCodec(const RowSet& source) : rows_(source) {}

  void prepare() {
    set_ = std::make_unique<ResultSetProt>();
    for (const auto& values : rows_.rows) {
      auto row = std::make_unique<RowProt>(set_.get());
      for (const std::string& value : values) row->addColumnValue(value);
      set_->addRow(row.release());
    }
  }

  std::size_t encode() {
    writer_.writeRoot(*set_);
    return sink_.frame().size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    source_.open(sink_.frame());
    const std::unique_ptr<Serializable> object(reader_.readRootObject());
    auto& set = static_cast<ResultSetProt&>(*object);
    while (RowProt* const row = set.next()) {
      const int count = row->getNumberOfFields();
      for (int i = 0; i < count; ++i) {
        if constexpr (blobs) {
          visitBlob(*row->getColumnValue(i), visit);
        } else {
          visit(row->getColumnView(i));
        }
      }
    }
  }

private:
  const RowSet& rows_;
  Factory factory_;
  std::unique_ptr<ResultSetProt> set_;
  Sink sink_;
  BinaryWriter writer_{&sink_};
  Source source_;
  BinaryReader reader_{&factory_, source_.stream()};
};

template <class Source>
void add(Suite& suite, const char* name) {
  suite.add<NoxCodec<ReadRecordRequestProt, Source>>("W1", name, suite.data().w1);
  suite.add<NoxCodec<WriteRecordRequestProt, Source>>("W2", name, suite.data().w2);
  suite.add<NoxCodec<WriteRecordRequestProt, Source>>("W2b", name, suite.data().w2b);
  suite.add<RowsCodec<Source, false>>("W3", name, suite.data().w3);
  suite.add<RowsCodec<Source, false>>("W3x", name, suite.data().w3x);
  suite.add<NoxCodec<SelectListProt, Source>>("W4", name, suite.data().w4);
}

}  // namespace

void addNox(Suite& suite) {
  add<MemorySource>(suite, "nox");
  add<ConnectionSource>(suite, "nox-stream");
  suite.add<RowsCodec<MemorySource, true>>("W3", "nox-data", suite.data().w3);
  suite.add<RowsCodec<MemorySource, true>>("W3x", "nox-data", suite.data().w3x);
}

}  // namespace nox::bench
