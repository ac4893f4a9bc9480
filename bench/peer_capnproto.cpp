// Cap'n Proto: built from the plain object into one segment, then copied out into a new one.
#include <capnp/message.h>
#include <capnp/serialize.h>

#include <cstring>

#include "bench/harness.h"
#include "messages.capnp.h"

namespace nox::bench {

namespace {

capnp::Text::Reader textOf(const std::string& value) { return {value.data(), value.size()}; }
capnp::Data::Reader dataOf(const std::string& value) {
  return {reinterpret_cast<const kj::byte*>(value.data()), value.size()};
}
void take(std::string& to, capnp::Text::Reader from) { to.assign(from.begin(), from.size()); }
void take(std::string& to, capnp::Data::Reader from) {
  to.assign(reinterpret_cast<const char*>(from.begin()), from.size());
}

struct ReadLayout {
  using Object = ReadRecord;
  using Struct = cp::ReadRecord;

  static void build(Struct::Builder to, const Object& from) {
    to.setMode(from.mode);
    to.setFileName(textOf(from.fileName));
    to.setRecordId(textOf(from.recordId));
  }
  static void read(Object& to, Struct::Reader from) {
    to.mode = from.getMode();
    take(to.fileName, from.getFileName());
    take(to.recordId, from.getRecordId());
  }
};

struct WriteLayout {
  using Object = WriteRecord;
  using Struct = cp::WriteRecord;

  static void build(Struct::Builder to, const Object& from) {
    to.setMode(from.mode);
    to.setFileName(textOf(from.fileName));
    to.setRecordId(textOf(from.recordId));
    to.setRecord(dataOf(from.record));
  }
  static void read(Object& to, Struct::Reader from) {
    to.mode = from.getMode();
    take(to.fileName, from.getFileName());
    take(to.recordId, from.getRecordId());
    take(to.record, from.getRecord());
  }
};

struct KeysLayout {
  using Object = KeyList;
  using Struct = cp::KeyList;

  static void build(Struct::Builder to, const Object& from) {
    auto keys = to.initKeys(static_cast<unsigned int>(from.keys.size()));
    for (unsigned int i = 0; i < keys.size(); ++i) keys.set(i, textOf(from.keys[i]));
  }
  static void read(Object& to, Struct::Reader from) {
    const auto keys = from.getKeys();
    to.keys.reserve(keys.size());
    for (const capnp::Text::Reader key : keys) to.keys.emplace_back(key.begin(), key.size());
  }
};

struct RowsLayout {
  using Object = RowSet;
  using Struct = cp::RowSet;

  static void build(Struct::Builder to, const Object& from) {
    auto rows = to.initRows(static_cast<unsigned int>(from.rows.size()));
    for (unsigned int i = 0; i < rows.size(); ++i) {
      const auto& row = from.rows[i];
      auto values = rows[i].initValues(static_cast<unsigned int>(row.size()));
      for (unsigned int k = 0; k < values.size(); ++k) values.set(k, dataOf(row[k]));
    }
  }
  static void read(Object& to, Struct::Reader from) {
    to.rows.reserve(from.getRows().size());
    for (const cp::RowSet::Row::Reader row : from.getRows()) {
      std::vector<std::string>& values = to.rows.emplace_back();
      values.reserve(row.getValues().size());
      for (const capnp::Data::Reader value : row.getValues()) take(values.emplace_back(), value);
    }
  }
};

template <class Layout>
class CapnprotoCodec {
public:
  using Object = typename Layout::Object;
  using Struct = typename Layout::Struct;

  explicit CapnprotoCodec(const Object& source) : source_(source) {
    capnp::MallocMessageBuilder message;
    Layout::build(message.initRoot<Struct>(), source_);
    const std::size_t words = capnp::computeSerializedSizeInWords(message);
    scratch_.resize(words);
    bytes_.resize(words);
    std::memset(static_cast<void*>(scratch_.data()), 0, words * sizeof(capnp::word));
  }

  std::size_t encode() {
    capnp::MallocMessageBuilder message(kj::arrayPtr(scratch_.data(), scratch_.size()));
    Layout::build(message.template initRoot<Struct>(), source_);
    kj::ArrayOutputStream out(kj::arrayPtr(reinterpret_cast<kj::byte*>(bytes_.data()),
                                           bytes_.size() * sizeof(capnp::word)));
    capnp::writeMessage(out, message);
    return out.getArray().size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    capnp::FlatArrayMessageReader message(kj::arrayPtr(bytes_.data(), bytes_.size()));
    const auto object = std::make_unique<Object>();
    Layout::read(*object, message.getRoot<Struct>());
    benchmark::DoNotOptimize(object.get());
    visitAll(*object, visit);
  }

private:
  const Object& source_;
  std::vector<capnp::word> scratch_;
  std::vector<capnp::word> bytes_;
};

}  // namespace

void addCapnproto(Suite& suite) {
  suite.addAll<CapnprotoCodec<ReadLayout>, CapnprotoCodec<WriteLayout>, CapnprotoCodec<KeysLayout>,
               CapnprotoCodec<RowsLayout>>("capnproto");
}

}  // namespace nox::bench
