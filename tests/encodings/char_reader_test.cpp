#include "nox/encodings/char_reader.h"

#include <gmock/gmock.h>

#include "nox/core/exceptions.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/encodings/samples.h"
#include "tests/encodings/scripted_stream.h"
#include "tests/support/caught.h"

namespace nox::test {
namespace {

using testing::ElementsAre;
using Read = ScriptedInput::Read;

void readText(Object& self, Archive& ar, unsigned int) { ar.process(self.text, "text"); }

/// A factory whose object of type 0 reads one text.
class TextFactory : public Factory {
public:
  TextFactory() {
    Object prototype(0, readText);
    prototype.setClassVersion(5);
    prototype.setPacketSize(6);
    know(prototype);
  }
};

TEST(CharReader, ReadsOneBlockWithinOneSecond) {
  TextFactory factory;
  ScriptedInput in("LIST CUSTOMERS");
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(static_cast<Object&>(*root).text, "LIST CUSTOMERS");
  EXPECT_THAT(in.blockReads, ElementsAre(Read{10240, 1}));
}

TEST(CharReader, SetsThePacketSizeToTheBytesReadAndTheVersionToZero) {
  Factory factory;
  unsigned int serialized = 99;
  std::uint64_t sizeWhileReading = 99;
  Object prototype(0, [&](Object& self, Archive&, unsigned int version) {
    serialized = version;
    sizeWhileReading = self.getPacketSize();
  });
  prototype.setClassVersion(5);
  prototype.setPacketSize(6);
  factory.know(prototype);
  ScriptedInput in("four");
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_EQ(serialized, 0U);
  EXPECT_EQ(sizeWhileReading, 0U);
  EXPECT_EQ(root->getClassVersion(), 0);
  EXPECT_EQ(root->getPacketSize(), 4U);
}

TEST(CharReader, LeavesWhatExceedsABlockForTheNextObject) {
  TextFactory factory;
  ScriptedInput in(std::string(10240, 'a') + "b");
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> first(reader.readRootObject());
  const std::unique_ptr<Serializable> second(reader.readRootObject());
  EXPECT_EQ(static_cast<Object&>(*first).text, std::string(10240, 'a'));
  EXPECT_EQ(first->getPacketSize(), 10240U);
  EXPECT_EQ(static_cast<Object&>(*second).text, "b");
}

TEST(CharReader, ReadsSilenceAsEmptyText) {
  TextFactory factory;
  ScriptedInput in("", ScriptedInput::Silence);
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_EQ(static_cast<Object&>(*root).text, "");
  EXPECT_EQ(root->getPacketSize(), 0U);
}

TEST(CharReader, ReadsTheEndOfTheStreamAsEmptyText) {
  TextFactory factory;
  ScriptedInput in("");
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_EQ(static_cast<Object&>(*root).text, "");
  EXPECT_EQ(root->getPacketSize(), 0U);
}

TEST(CharReader, GivesTheWholeBlockToTheFirstText) {
  Factory factory;
  std::string first = "x";
  std::string second = "x";
  Object prototype(0, [&](Object&, Archive& ar, unsigned int) {
    ar.process(first, "first").process(second, "second");
  });
  factory.know(prototype);
  ScriptedInput in(std::string("a\0b", 3));
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_EQ(first, std::string("a\0b", 3));
  EXPECT_EQ(second, "");
}

TEST(CharReader, ReadsFromMemoryOnlyWhileTheObjectReadsItself) {
  Factory factory;
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  InputStream* during = nullptr;
  Object prototype(0, [&](Object&, Archive&, unsigned int) { during = reader.getInputStream(); });
  factory.know(prototype);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_NE(during, &in);
  EXPECT_EQ(reader.getInputStream(), &in);
}

TEST(CharReader, GoesBackToItsStreamAndDeletesTheObjectWhenReadingThrows) {
  Factory factory;
  Object prototype(0, [](Object&, Archive&, unsigned int) { throw new UnexpectedChar(1, 2); });
  factory.know(prototype);
  bool deleted = false;
  ScriptedInput in("abc");
  in.deleted = &deleted;
  char_reader reader(&factory, &in);
  auto error = caught<UnexpectedChar>([&] { reader.readRootObject(); });
  EXPECT_EQ(reader.getInputStream(), &in);
  EXPECT_FALSE(deleted);
  EXPECT_EQ(*prototype.alive(), 2);  // this one and the factory's
}

TEST(CharReader, NeedsAnObjectOfTypeZero) {
  Factory factory;
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  auto error = caught<UnknownType>([&] { reader.readRootObject(); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getTypeCode(), 0);
  EXPECT_EQ(reader.getInputStream(), &in);
  EXPECT_EQ(in.rest(), "");

  char_reader withoutFactory(nullptr, &in);
  EXPECT_EQ(caught<UnknownType>([&] { withoutFactory.readRootObject(); })->getTypeCode(), 0);
}

TEST(CharReader, PassesOnWhatTheStreamThrows) {
  TextFactory factory;
  ScriptedInput in("", ScriptedInput::ThrowLast);
  char_reader reader(&factory, &in);
  caught<LAST>([&] { reader.readRootObject(); });
}

TEST(CharReader, ReadsATextStraightFromItsStream) {
  ScriptedInput in("direct");
  char_reader reader(nullptr, &in);
  std::string text = "old";
  EXPECT_EQ(&static_cast<ObjectReader&>(reader).process(text, "text"), &reader);
  EXPECT_EQ(text, "direct");
  EXPECT_THAT(in.blockReads, ElementsAre(Read{10240, -1}));
  reader.process(text, "text");
  EXPECT_EQ(text, "");
}

TEST(CharReader, ReadsSilenceInsideAnObjectAsEmptyText) {
  ScriptedInput in("", ScriptedInput::Silence);
  char_reader reader(nullptr, &in);
  std::string text = "old";
  reader.process(text, "text");
  EXPECT_EQ(text, "");
}

TEST(CharReader, LeavesOtherFieldsAsTheyAre) {
  ScriptedInput in("abc");
  char_reader reader(nullptr, &in);
  int number = 5;
  NOXPString text("text");
  NOXPBlob blob("blob");
  Object object(3, readText);
  reader.process(number, "n").process(&text, "s").process(&blob, "b").process(&object, "o");
  EXPECT_EQ(number, 5);
  EXPECT_STREQ(text.c_str(), "text");
  EXPECT_EQ(blob.length(), 4U);
  EXPECT_EQ(object.text, "");
  EXPECT_EQ(in.rest(), "abc");
}

TEST(CharReader, LetsAnObjectReadItself) {
  TextFactory factory;
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  unsigned int serialized = 0;
  Object object(3, [&](Object& self, Archive& ar, unsigned int version) {
    serialized = version;
    ar.process(self.text, "text");
  });
  object.setClassVersion(7);
  EXPECT_EQ(reader.readObject(&object), &object);
  EXPECT_EQ(object.text, "abc");
  EXPECT_EQ(serialized, 7U);
}

TEST(CharReader, ReadsARootWhereNoObjectIsGiven) {
  TextFactory factory;
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readObject(nullptr));
  EXPECT_EQ(root->getPacketSize(), 3U);
}

TEST(CharReader, ReturnsARootThatIsARequest) {
  Factory factory;
  Request prototype(0, nullptr);
  factory.know(prototype);
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  const std::unique_ptr<noxp::RequestProt> request(reader.readRequest());
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->getPacketSize(), 3U);
}

TEST(CharReader, DeletesARootThatIsNoRequest) {
  Factory factory;
  Object prototype(0, readText);
  factory.know(prototype);
  ScriptedInput in("abc");
  char_reader reader(&factory, &in);
  EXPECT_EQ(reader.readRequest(), nullptr);
  EXPECT_EQ(*prototype.alive(), 2);
}

TEST(CharReader, ReadsSingleBytesAndNumbersAsAnInputReader) {
  ScriptedInput in(std::string("A\x00\x00\x01\x02rest", 9));
  char_reader reader(nullptr, &in);
  input_reader& primitives = reader;
  EXPECT_EQ(primitives.readChar(), 'A');
  EXPECT_EQ(primitives.readInt(), 258);
  primitives.checkEndOfObjectMarker();
  primitives.readNOXPString(nullptr);
  primitives.readNOXPBlob(nullptr);
  const std::unique_ptr<std::string> text(primitives.readString());
  EXPECT_EQ(*text, "rest");
  EXPECT_EQ(primitives.readInt(), 0);
}

}  // namespace
}  // namespace nox::test
