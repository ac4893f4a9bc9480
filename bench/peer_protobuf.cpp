// Protocol Buffers: generated messages, into and out of one kept buffer.
#include "bench/harness.h"
#include "messages.pb.h"

namespace nox::bench {

namespace {

void fill(pb::ReadRecord& to, const ReadRecord& from) {
  to.set_mode(from.mode);
  to.set_file_name(from.fileName);
  to.set_record_id(from.recordId);
}
void fill(pb::WriteRecord& to, const WriteRecord& from) {
  to.set_mode(from.mode);
  to.set_file_name(from.fileName);
  to.set_record_id(from.recordId);
  to.set_record(from.record);
}
void fill(pb::KeyList& to, const KeyList& from) {
  for (const std::string& key : from.keys) to.add_keys(key);
}
void fill(pb::RowSet& to, const RowSet& from) {
  for (const auto& row : from.rows) {
    pb::Row* added = to.add_rows();
    for (const std::string& value : row) added->add_values(value);
  }
}

template <class Visitor>
void visitAll(const pb::ReadRecord& object, Visitor& visit) {
  visit(object.mode());
  visit(std::string_view(object.file_name()));
  visit(std::string_view(object.record_id()));
}
template <class Visitor>
void visitAll(const pb::WriteRecord& object, Visitor& visit) {
  visit(object.mode());
  visit(std::string_view(object.file_name()));
  visit(std::string_view(object.record_id()));
  visit(std::string_view(object.record()));
}
template <class Visitor>
void visitAll(const pb::KeyList& object, Visitor& visit) {
  for (const std::string& key : object.keys()) visit(std::string_view(key));
}
template <class Visitor>
void visitAll(const pb::RowSet& object, Visitor& visit) {
  for (const pb::Row& row : object.rows()) {
    for (const std::string& value : row.values()) visit(std::string_view(value));
  }
}

template <class Generated>
class ProtobufCodec {
public:
  template <class Object>
  explicit ProtobufCodec(const Object& source) {
    fill(source_, source);
    bytes_.resize(source_.ByteSizeLong());
  }

  std::size_t encode() {
    const std::size_t size = source_.ByteSizeLong();
    if (size > bytes_.size()) bytes_.resize(size);
    source_.SerializeWithCachedSizesToArray(bytes_.data());
    return size_ = size;
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<Generated>();
    if (!object->ParseFromArray(bytes_.data(), static_cast<int>(size_))) std::abort();
    visitAll(*object, visit);
  }

private:
  Generated source_;
  std::vector<std::uint8_t> bytes_;
  std::size_t size_ = 0;
};

}  // namespace

void addProtobuf(Suite& suite) {
  suite.addAll<ProtobufCodec<pb::ReadRecord>, ProtobufCodec<pb::WriteRecord>,
               ProtobufCodec<pb::KeyList>, ProtobufCodec<pb::RowSet>>("protobuf");
}

}  // namespace nox::bench
