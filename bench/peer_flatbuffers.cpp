// FlatBuffers: built from the plain object, verified, then copied out into a new one.
#include "bench/harness.h"
#include "messages_generated.h"

namespace nox::bench {

namespace {

using Builder = flatbuffers::FlatBufferBuilder;

struct ReadLayout {
  using Object = ReadRecord;
  using Table = fb::ReadRecord;

  static flatbuffers::Offset<Table> build(Builder& builder, const Object& from) {
    const auto fileName = builder.CreateString(from.fileName);
    const auto recordId = builder.CreateString(from.recordId);
    return fb::CreateReadRecord(builder, from.mode, fileName, recordId);
  }
  static void take(Object& to, const Table& from) {
    to.mode = from.mode();
    to.fileName.assign(from.file_name()->c_str(), from.file_name()->size());
    to.recordId.assign(from.record_id()->c_str(), from.record_id()->size());
  }
};

struct WriteLayout {
  using Object = WriteRecord;
  using Table = fb::WriteRecord;

  static flatbuffers::Offset<Table> build(Builder& builder, const Object& from) {
    const auto fileName = builder.CreateString(from.fileName);
    const auto recordId = builder.CreateString(from.recordId);
    const auto record = builder.CreateVector(
        reinterpret_cast<const std::uint8_t*>(from.record.data()), from.record.size());
    return fb::CreateWriteRecord(builder, from.mode, fileName, recordId, record);
  }
  static void take(Object& to, const Table& from) {
    to.mode = from.mode();
    to.fileName.assign(from.file_name()->c_str(), from.file_name()->size());
    to.recordId.assign(from.record_id()->c_str(), from.record_id()->size());
    to.record.assign(reinterpret_cast<const char*>(from.record()->data()), from.record()->size());
  }
};

struct KeysLayout {
  using Object = KeyList;
  using Table = fb::KeyList;

  static flatbuffers::Offset<Table> build(Builder& builder, const Object& from) {
    return fb::CreateKeyList(builder, builder.CreateVectorOfStrings(from.keys));
  }
  static void take(Object& to, const Table& from) {
    to.keys.reserve(from.keys()->size());
    for (const flatbuffers::String* key : *from.keys()) {
      to.keys.emplace_back(key->c_str(), key->size());
    }
  }
};

struct RowsLayout {
  using Object = RowSet;
  using Table = fb::RowSet;

  static flatbuffers::Offset<Table> build(Builder& builder, const Object& from) {
    thread_local std::vector<flatbuffers::Offset<fb::Row>> rows;
    rows.clear();
    for (const auto& row : from.rows) {
      rows.push_back(fb::CreateRow(builder, builder.CreateVectorOfStrings(row)));
    }
    return fb::CreateRowSet(builder, builder.CreateVector(rows));
  }
  static void take(Object& to, const Table& from) {
    to.rows.reserve(from.rows()->size());
    for (const fb::Row* row : *from.rows()) {
      std::vector<std::string>& values = to.rows.emplace_back();
      values.reserve(row->values()->size());
      for (const flatbuffers::String* value : *row->values()) {
        values.emplace_back(value->c_str(), value->size());
      }
    }
  }
};

template <class Layout>
class FlatbuffersCodec {
public:
  using Object = typename Layout::Object;

  explicit FlatbuffersCodec(const Object& source) : source_(source) {}

  std::size_t encode() {
    builder_.Clear();
    builder_.Finish(Layout::build(builder_, source_));
    return builder_.GetSize();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    flatbuffers::Verifier verifier(builder_.GetBufferPointer(), builder_.GetSize());
    if (!verifier.VerifyBuffer<typename Layout::Table>(nullptr)) std::abort();
    const auto object = std::make_unique<Object>();
    Layout::take(*object,
                 *flatbuffers::GetRoot<typename Layout::Table>(builder_.GetBufferPointer()));
    benchmark::DoNotOptimize(object.get());
    visitAll(*object, visit);
  }

private:
  const Object& source_;
  Builder builder_;
};

}  // namespace

void addFlatbuffers(Suite& suite) {
  suite.addAll<FlatbuffersCodec<ReadLayout>, FlatbuffersCodec<WriteLayout>,
               FlatbuffersCodec<KeysLayout>, FlatbuffersCodec<RowsLayout>>("flatbuffers");
}

}  // namespace nox::bench
