#include "nox/core/object_reader.h"

#include <gtest/gtest.h>

#include <utility>

#include "nox/core/input_reader.h"
#include "nox/core/memory_streams.h"
#include "tests/core/samples.h"
#include "tests/support/frames.h"

namespace nox {
namespace {

// Counts its living instances.
class TrackedStream : public MemoryBufferInputStream {
public:
  TrackedStream() : MemoryBufferInputStream("", 0) { ++alive; }
  TrackedStream(const TrackedStream&) = delete;
  TrackedStream& operator=(const TrackedStream&) = delete;
  ~TrackedStream() override { --alive; }
  static inline int alive = 0;
};

class PlainReader : public ObjectReader {
public:
  using ObjectReader::process;
  PlainReader(ObjectFactory* factory, InputStream* stream) : ObjectReader(factory, stream) {}
  Archive& process(int&, const char*) override { return *this; }
  Archive& process(Serializable*, const char*) override { return *this; }
  Serializable* readRootObject() override { return nullptr; }
};

TEST(ObjectReader, HoldsAFactoryAndAStream) {
  test::Classes<> factory;
  test::Classes<> other;
  MemoryBufferInputStream stream("", 0);
  PlainReader reader(&factory, &stream);
  EXPECT_EQ(reader.getObjectFactory(), &factory);
  EXPECT_EQ(reader.getInputStream(), &stream);
  reader.setObjectFactory(&other);
  EXPECT_EQ(reader.getObjectFactory(), &other);
}

TEST(ObjectReader, DeletesTheStreamThatItReplaces) {
  // Deliberate: also the one that was given to the constructor.
  PlainReader reader(nullptr, new TrackedStream);
  auto* const second = new TrackedStream;
  EXPECT_EQ(TrackedStream::alive, 2);
  reader.setInputStream(second);
  EXPECT_EQ(TrackedStream::alive, 1);
  EXPECT_EQ(reader.getInputStream(), second);
  reader.setInputStream(nullptr);
  EXPECT_EQ(TrackedStream::alive, 0);
  EXPECT_EQ(reader.getInputStream(), nullptr);
}

TEST(ObjectReader, KeepsAStreamThatReplacesItself) {
  const auto stream = std::make_unique<TrackedStream>();
  PlainReader reader(nullptr, stream.get());
  reader.setInputStream(stream.get());
  EXPECT_EQ(TrackedStream::alive, 1);
  EXPECT_EQ(reader.getInputStream(), stream.get());
}

TEST(ObjectReader, StartsFromNoStream) {
  const auto stream = std::make_unique<TrackedStream>();
  PlainReader reader(nullptr, nullptr);
  reader.setInputStream(stream.get());
  EXPECT_EQ(reader.getInputStream(), stream.get());
}

TEST(ObjectReader, FreesNeitherFactoryNorStream) {
  const auto stream = std::make_unique<TrackedStream>();
  test::Classes<test::Pair> factory;
  { PlainReader reader(&factory, stream.get()); }
  EXPECT_EQ(TrackedStream::alive, 1);
  EXPECT_STREQ(factory.getTypeName(3), "test");
}

TEST(ObjectReader, CopiesAndMovesBothPointers) {
  test::Classes<> factory;
  MemoryBufferInputStream stream("", 0);
  PlainReader reader(&factory, &stream);
  PlainReader copy(reader);
  PlainReader moved(std::move(reader));
  for (PlainReader* each : {&copy, &moved}) {
    EXPECT_EQ(each->getObjectFactory(), &factory);
    EXPECT_EQ(each->getInputStream(), &stream);
  }
}

TEST(InputReader, StandsBesideTheArchives) {
  static_assert(!std::is_base_of_v<Archive, input_reader>);
  static_assert(std::has_virtual_destructor_v<input_reader>);
  static_assert(std::is_abstract_v<input_reader>);
}

}  // namespace
}  // namespace nox
