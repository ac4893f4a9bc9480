// cereal: the binary archive over a vector.
#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <istream>
#include <ostream>

#include "bench/harness.h"
#include "bench/vector_streambuf.h"

namespace nox::bench {

template <class Archive>
void serialize(Archive& ar, ReadRecord& object) {
  ar(object.mode, object.fileName, object.recordId);
}
template <class Archive>
void serialize(Archive& ar, WriteRecord& object) {
  ar(object.mode, object.fileName, object.recordId, object.record);
}
template <class Archive>
void serialize(Archive& ar, KeyList& object) {
  ar(object.keys);
}
template <class Archive>
void serialize(Archive& ar, RowSet& object) {
  ar(object.rows);
}

namespace {

template <class Object>
class CerealCodec {
public:
  explicit CerealCodec(const Object& source) : source_(source) {}

  std::size_t encode() {
    sink_.rewind();
    cereal::BinaryOutputArchive archive(out_);
    archive(source_);
    return sink_.size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<Object>();
    from_.open(sink_.data(), sink_.size());
    cereal::BinaryInputArchive archive(in_);
    archive(*object);
    visitAll(*object, visit);
  }

private:
  Object source_;
  VectorSink sink_;
  MemorySource from_;
  std::ostream out_{&sink_};
  std::istream in_{&from_};
};

}  // namespace

void addCereal(Suite& suite) {
  suite.addAll<CerealCodec<ReadRecord>, CerealCodec<WriteRecord>, CerealCodec<KeyList>,
               CerealCodec<RowSet>>("cereal");
}

}  // namespace nox::bench
