// Boost.Serialization: the binary archive over a vector, without its header and object tracking.
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>

#include "bench/harness.h"
#include "bench/vector_streambuf.h"

namespace nox::bench {

template <class Archive>
void serialize(Archive& ar, ReadRecord& object, unsigned int /*version*/) {
  ar& object.mode& object.fileName& object.recordId;
}
template <class Archive>
void serialize(Archive& ar, WriteRecord& object, unsigned int /*version*/) {
  ar& object.mode& object.fileName& object.recordId& object.record;
}
template <class Archive>
void serialize(Archive& ar, KeyList& object, unsigned int /*version*/) {
  ar& object.keys;
}
template <class Archive>
void serialize(Archive& ar, RowSet& object, unsigned int /*version*/) {
  ar& object.rows;
}

namespace {

constexpr unsigned int kFlags =
    boost::archive::no_header | boost::archive::no_codecvt | boost::archive::no_tracking;

template <class Object>
class BoostCodec {
public:
  explicit BoostCodec(const Object& source) : source_(source) {}

  std::size_t encode() {
    sink_.rewind();
    boost::archive::binary_oarchive archive(sink_, kFlags);
    archive << source_;
    return sink_.size();
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<Object>();
    from_.open(sink_.data(), sink_.size());
    boost::archive::binary_iarchive archive(from_, kFlags);
    archive >> *object;
    visitAll(*object, visit);
  }

private:
  const Object source_;
  VectorSink sink_;
  MemorySource from_;
};

}  // namespace

void addBoost(Suite& suite) {
  suite.addAll<BoostCodec<ReadRecord>, BoostCodec<WriteRecord>, BoostCodec<KeyList>,
               BoostCodec<RowSet>>("boost");
}

}  // namespace nox::bench
