// Thrift: the binary protocol over a memory transport, with templated (not virtual) readers.
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include "bench/harness.h"
#include "messages_types.h"
#include "messages_types.tcc"

namespace nox::bench {

namespace {

using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::transport::TMemoryBuffer;

void fill(th::ReadRecord& to, const ReadRecord& from) {
  to.__set_mode(from.mode);
  to.__set_fileName(from.fileName);
  to.__set_recordId(from.recordId);
}
void fill(th::WriteRecord& to, const WriteRecord& from) {
  to.__set_mode(from.mode);
  to.__set_fileName(from.fileName);
  to.__set_recordId(from.recordId);
  to.__set_record(from.record);
}
void fill(th::KeyList& to, const KeyList& from) { to.__set_keys(from.keys); }
void fill(th::RowSet& to, const RowSet& from) {
  for (const auto& row : from.rows) to.rows.emplace_back().__set_values(row);
  to.__isset.rows = true;
}

template <class Visitor>
void visitAll(const th::ReadRecord& object, Visitor& visit) {
  visit(object.mode);
  visit(std::string_view(object.fileName));
  visit(std::string_view(object.recordId));
}
template <class Visitor>
void visitAll(const th::WriteRecord& object, Visitor& visit) {
  visit(object.mode);
  visit(std::string_view(object.fileName));
  visit(std::string_view(object.recordId));
  visit(std::string_view(object.record));
}
template <class Visitor>
void visitAll(const th::KeyList& object, Visitor& visit) {
  for (const std::string& key : object.keys) visit(std::string_view(key));
}
template <class Visitor>
void visitAll(const th::RowSet& object, Visitor& visit) {
  for (const th::Row& row : object.rows) {
    for (const std::string& value : row.values) visit(std::string_view(value));
  }
}

template <class Generated>
class ThriftCodec {
public:
  template <class Object>
  explicit ThriftCodec(const Object& source) {
    fill(source_, source);
  }

  std::size_t encode() {
    written_->resetBuffer();
    source_.write(&out_);
    return written_->available_read();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<Generated>();
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    written_->getBuffer(&bytes, &size);
    received_->resetBuffer(bytes, size);
    object->read(&in_);
    received_->readEnd();  // the next message counts its bytes anew
    visitAll(*object, visit);
  }

private:
  Generated source_;
  std::shared_ptr<TMemoryBuffer> written_ = std::make_shared<TMemoryBuffer>();
  std::shared_ptr<TMemoryBuffer> received_ = std::make_shared<TMemoryBuffer>();
  TBinaryProtocolT<TMemoryBuffer> out_{written_};
  TBinaryProtocolT<TMemoryBuffer> in_{received_};
};

}  // namespace

void addThrift(Suite& suite) {
  suite.addAll<ThriftCodec<th::ReadRecord>, ThriftCodec<th::WriteRecord>, ThriftCodec<th::KeyList>,
               ThriftCodec<th::RowSet>>("thrift");
}

}  // namespace nox::bench
