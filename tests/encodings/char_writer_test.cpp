#include "nox/encodings/char_writer.h"

#include <gmock/gmock.h>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/encodings/samples.h"
#include "tests/encodings/scripted_stream.h"

namespace nox::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// An object of one std::string field.
Object textObject(std::string text) {
  Object object(0, [](Object& self, Archive& ar, unsigned int) { ar.process(self.text, "text"); });
  object.text = std::move(text);
  return object;
}

class CharWriter : public testing::Test {
protected:
  NotingOutput out;
  char_writer writer{&out};
};

TEST_F(CharWriter, SendsTheTextOfAnObjectInOnePiece) {
  Object object = textObject(std::string("a\0b\n", 4));
  writer.writeRoot(object);
  EXPECT_THAT(out.pieces, ElementsAre(std::string("a\0b\n", 4)));
}

// Deliberate: the gathered text is never reset.
TEST_F(CharWriter, SendsAgainAllThatItEverWrote) {
  Object first = textObject("first");
  Object second = textObject("second");
  writer.writeRoot(first);
  writer.writeRoot(second);
  EXPECT_THAT(out.pieces, ElementsAre("first", "firstsecond"));
}

TEST_F(CharWriter, NeverFlushes) {
  Object object = textObject("x");
  writer.writeRoot(object);
  EXPECT_EQ(out.flushes, 0);
}

TEST_F(CharWriter, GathersUntilARootIsWritten) {
  std::string text = "early";
  EXPECT_EQ(&writer.process(text, "text"), &writer);
  EXPECT_THAT(out.pieces, IsEmpty());
  Object object = textObject("late");
  writer.writeRoot(object);
  EXPECT_THAT(out.pieces, ElementsAre("earlylate"));
}

TEST_F(CharWriter, HandsItsBytesToBlobSend) {
  class BlobOutput : public NotingOutput {
  public:
    void blobSend(char* data, int n) override { blobs.emplace_back(data, n); }
    std::vector<std::string> blobs;

  private:
    void blobSend(NOXPBlob* /*blob*/) override {}
  } blobOut;
  char_writer blobWriter(&blobOut);
  Object object = textObject("x");
  blobWriter.writeRoot(object);
  EXPECT_THAT(blobOut.blobs, ElementsAre("x"));
  EXPECT_THAT(blobOut.pieces, IsEmpty());
}

TEST_F(CharWriter, WritesNothingForOtherFields) {
  int number = 5;
  NOXPString text("text");
  NOXPBlob blob("blob");
  Object object(0, [&](Object&, Archive& ar, unsigned int) {
    ar.process(number, "n").process(&text, "s").process(&blob, "b");
  });
  writer.writeRoot(object);
  EXPECT_EQ(out.all(), "");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
}

TEST_F(CharWriter, WritesNestedObjectsAndNothingForNull) {
  Object inner = textObject("inner");
  Object outer(0, [&](Object&, Archive& ar, unsigned int) {
    std::string before = "<";
    std::string after = ">";
    ar.process(before, "").process(&inner, "").process(static_cast<Serializable*>(nullptr), "");
    ar.process(after, "");
  });
  writer.writeRoot(outer);
  EXPECT_THAT(out.pieces, ElementsAre("<inner>"));
}

TEST_F(CharWriter, SerialisesWithTheVersionOfTheClass) {
  unsigned int serialized = 0;
  Object object(0, [&](Object&, Archive&, unsigned int version) { serialized = version; });
  object.version = 3;
  object.setClassVersion(9);
  writer.writeRoot(object);
  EXPECT_EQ(serialized, 3U);
}

TEST_F(CharWriter, WritesNothingForANullRoot) {
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_EQ(out.all(), "");
}

TEST_F(CharWriter, StartsAfreshOnAnotherStream) {
  Object object = textObject("old");
  writer.writeRoot(object);
  NotingOutput other;
  writer.setOutStream(&other);
  EXPECT_EQ(writer.getOutStream(), &other);
  object.text = "new";
  writer.writeRoot(&object);
  EXPECT_THAT(other.pieces, ElementsAre("new"));
  EXPECT_THAT(out.pieces, ElementsAre("old"));
}

TEST_F(CharWriter, SendsNothingWithoutAStream) {
  char_writer nowhere(nullptr);
  Object object = textObject("x");
  nowhere.writeRoot(object);
  nowhere.setOutStream(&out);
  nowhere.writeRoot(object);
  EXPECT_THAT(out.pieces, ElementsAre("x"));
}

TEST_F(CharWriter, SendsTextsLongerThanItsFirstBlock) {
  Object object = textObject(std::string(50000, 'x'));
  writer.writeRoot(object);
  EXPECT_THAT(out.pieces, ElementsAre(std::string(50000, 'x')));
}

TEST_F(CharWriter, CopiesGoOnWithTheSameTextEachByItself) {
  for (const std::size_t length : {std::size_t{1}, std::size_t{20000}}) {
    out.pieces.clear();
    writer.setOutStream(&out);
    const std::string start(length, 's');
    Object object = textObject(start);
    writer.writeRoot(object);
    char_writer copy(writer);
    char_writer assigned(nullptr);
    assigned = writer;
    object.text = "c";
    copy.writeRoot(object);
    object.text = "a";
    assigned.writeRoot(object);
    object.text = "w";
    writer.writeRoot(object);
    EXPECT_THAT(out.pieces, ElementsAre(start, start + "c", start + "a", start + "w"));
  }
}

}  // namespace
}  // namespace nox::test
