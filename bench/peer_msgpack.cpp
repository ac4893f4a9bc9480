// MessagePack: arrays of values, unpacked and converted.
#include <msgpack.hpp>

#include "bench/harness.h"

namespace nox::bench {

namespace {

struct PackedReadRecord : ReadRecord {
  MSGPACK_DEFINE(mode, fileName, recordId)
};
struct PackedWriteRecord : WriteRecord {
  MSGPACK_DEFINE(mode, fileName, recordId, record)
};
struct PackedKeyList : KeyList {
  MSGPACK_DEFINE(keys)
};
struct PackedRowSet : RowSet {
  MSGPACK_DEFINE(rows)
};

template <class Packed, class Object>
class MsgpackCodec {
public:
  explicit MsgpackCodec(const Object& source) { static_cast<Object&>(source_) = source; }

  std::size_t encode() {
    buffer_.clear();
    msgpack::pack(buffer_, source_);
    return buffer_.size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<Packed>();
    // Texts stay in the buffer until `convert` copies them into the object.
    const auto reference = [](msgpack::type::object_type, std::size_t, void*) { return true; };
    zone_.clear();
    msgpack::unpack(zone_, buffer_.data(), buffer_.size(), reference).convert(*object);
    visitAll(static_cast<const Object&>(*object), visit);
  }

private:
  Packed source_;
  msgpack::sbuffer buffer_;
  msgpack::zone zone_;
};

}  // namespace

void addMsgpack(Suite& suite) {
  suite.addAll<MsgpackCodec<PackedReadRecord, ReadRecord>,
               MsgpackCodec<PackedWriteRecord, WriteRecord>, MsgpackCodec<PackedKeyList, KeyList>,
               MsgpackCodec<PackedRowSet, RowSet>>("msgpack");
}

}  // namespace nox::bench
