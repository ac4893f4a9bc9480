#include "nox/core/object_writer.h"

#include <gtest/gtest.h>

#include <utility>

#include "nox/core/memory_streams.h"
#include "tests/core/expect_logged.h"
#include "tests/core/samples.h"

namespace nox {
namespace {

class PlainWriter : public ObjectWriter {
public:
  using ObjectWriter::ObjectWriter;
  using ObjectWriter::process;
  using ObjectWriter::writeRoot;
  Archive& process(int&, const char*) override { return *this; }
  Archive& process(Serializable*, const char*) override { return *this; }
  void writeRoot(Serializable& root) override { last_ = &root; }
  Serializable* last_ = nullptr;
};

TEST(ObjectWriter, HoldsAStreamWithoutOwningIt) {
  NullOutStream one;
  NullOutStream two;
  PlainWriter writer(&one);
  EXPECT_EQ(writer.getOutStream(), &one);
  writer.setOutStream(&two);
  EXPECT_EQ(writer.getOutStream(), &two);
}

TEST(ObjectWriter, WritesARootByPointerAsByReference) {
  PlainWriter writer(nullptr);
  test::Pair root;
  writer.writeRoot(&root);
  EXPECT_EQ(writer.last_, &root);
}

TEST(ObjectWriter, FormsNoReferenceToANullRoot) {
  PlainWriter writer(nullptr);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_EQ(writer.last_, nullptr);
}

TEST(ObjectWriter, CreatesNoWriterWhateverTheKind) {
  // Deliberate: the hooks are empty.
  NullOutStream stream;
  for (const char* kind : {"binary", "xml", "", static_cast<const char*>(nullptr)}) {
    const test::LogCapture log;
    EXPECT_EQ(ObjectWriter::createWriter(&stream, kind), nullptr);
    EXPECT_LOGGED(log, debug, " ObjectWriter::createWriter");
  }
  EXPECT_EQ(ObjectWriter::createWriter(&stream, "csv", ";", "\n"), nullptr);
}

TEST(ObjectWriter, CopiesAndMovesItsStream) {
  NullOutStream stream;
  PlainWriter writer(&stream);
  PlainWriter copy(writer);
  PlainWriter moved(std::move(writer));
  EXPECT_EQ(copy.getOutStream(), &stream);
  EXPECT_EQ(moved.getOutStream(), &stream);
}

}  // namespace
}  // namespace nox
