#include "nox/core/archive.h"

#include <gtest/gtest.h>

#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/io/buffered_out_stream.h"
#include "tests/core/expect_logged.h"
#include "tests/core/samples.h"
#include "tests/support/frames.h"

#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using test::Bare;
using test::LogCapture;
using test::RecordingReader;
using test::RecordingWriter;
using Lines = std::vector<std::string>;

// What an application writes: the five `process` and nothing else.
class CountingArchive : public Archive {
public:
  using Archive::process;
  Archive& process(NOXPBlob*, const char*) override { return count(); }
  Archive& process(NOXPString*, const char*) override { return count(); }
  Archive& process(std::string&, const char*) override { return count(); }
  Archive& process(int&, const char*) override { return count(); }
  Archive& process(Serializable*, const char*) override { return count(); }
  int calls_ = 0;

private:
  Archive& count() {
    ++calls_;
    return *this;
  }
};

// A reader and a writer with no more than they must have.
class NumberReader : public Reader {
public:
  using Reader::process;
  Archive& process(int& value, const char*) override {
    value = 5;
    return *this;
  }
  Archive& process(Serializable*, const char*) override { return *this; }
};

class NumberWriter : public Writer {
public:
  using Writer::process;
  Archive& process(int&, const char*) override { return *this; }
  Archive& process(Serializable*, const char*) override { return *this; }
};

TEST(Archive, NeedsJustTheFiveKindsOfField) {
  CountingArchive archive;
  int number = 0;
  std::string plain;
  NOXPString text;
  NOXPBlob blob;
  Bare<2> object;
  Archive& result = archive & number & plain & &text & &blob & &object;
  EXPECT_EQ(archive.calls_, 5);
  EXPECT_EQ(&result, &archive);
}

TEST(Archive, OperatorsPassFieldsWithoutAName) {
  RecordingWriter writer;
  int number = 5;
  std::string plain = "p";
  NOXPString text("t");
  NOXPBlob blob("A");
  Bare<2> object;
  Archive& result = writer & number & plain & &text & &blob & &object;
  EXPECT_EQ(&result, &writer);
  EXPECT_EQ(writer.lines(), (Lines{"int -=5", "text -=p", "string -=t", "blob -=41",
                                   "object -=type 2 version 0", "end"}));
}

TEST(Archive, ChainsNamedFieldsInOrder) {
  test::Everything object(7, "p", "t", "A");
  EXPECT_EQ(test::fieldsOf(object),
            (Lines{"int number=7", "text plain=p", "string text=t", "blob blob=41",
                   "object inner=type 8 version 0", "int -=0", "end", "string absent=null"}));
}

TEST(Archive, FillsAnAbsentOwnedFieldBeforeReadingIt) {
  OwnedString text = nullptr;
  OwnedBlob blob = nullptr;
  RecordingReader reader;
  reader.process(text, "text").process(blob, "blob");
  EXPECT_EQ(reader.lines(), (Lines{"string text", "blob blob"}));
  EXPECT_TRUE(text);
  EXPECT_TRUE(blob);
}

TEST(Archive, KeepsAPresentOwnedFieldWhereItIs) {
  OwnedString text(CopiedString("old"));
  NOXPString* const before = text.get();
  RecordingReader reader;
  reader.process(text, "text");
  EXPECT_EQ(text.get(), before);
  EXPECT_STREQ(text->c_str(), "old");
}

TEST(Archive, WritesAnAbsentOwnedFieldAsNull) {
  OwnedString text = nullptr;
  OwnedBlob blob = nullptr;
  RecordingWriter writer;
  writer.process(text, "text").process(blob, "blob");
  EXPECT_EQ(writer.lines(), (Lines{"string text=null", "blob blob=null"}));
  EXPECT_FALSE(text);
}

TEST(Archive, HandlesAFieldThatMayBeTheCallersAsAnObject) {
  MaybeOwned<test::Pair> absent;
  RecordingWriter writer;
  writer.process(absent, "pair");
  EXPECT_EQ(writer.lines(), Lines{"object pair=null"});
  EXPECT_FALSE(absent);

  RecordingReader reader;
  reader.process(absent, "pair");
  EXPECT_EQ(reader.lines(), Lines{"object pair"});
  EXPECT_TRUE(absent);
  EXPECT_TRUE(absent.owns());
}

TEST(Reader, SaysThatItReads) {
  NumberReader reader;
  EXPECT_FALSE(reader.isWriting());
  EXPECT_EQ(reader.getWriter(), nullptr);
  EXPECT_EQ(reader.getReader(), &reader);
}

TEST(Writer, SaysThatItWrites) {
  NumberWriter writer;
  EXPECT_TRUE(writer.isWriting());
  EXPECT_EQ(writer.getWriter(), &writer);
  EXPECT_EQ(writer.getReader(), nullptr);
}

TEST(Reader, LeavesFieldsItDoesNotSupportAndSaysSo) {
  const LogCapture log;
  NumberReader reader;
  int number = 0;
  std::string plain = "old";
  NOXPString text("old");
  NOXPBlob blob("old");
  Archive& result = reader & plain & &text & &blob & number;
  EXPECT_EQ(&result, &reader);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(plain, "old");
  EXPECT_STREQ(text.c_str(), "old");
  EXPECT_EQ(blob.length(), 3u);
  EXPECT_LOGGED(log, debug, "Reader does not support string serialization");
  EXPECT_LOGGED(log, debug, "Reader does not support NOXP string serialization");
  EXPECT_LOGGED(log, debug, "Reader does not support NOXP blob serialization");
}

TEST(Writer, LeavesOutFieldsItDoesNotSupportAndSaysSo) {
  const LogCapture log;
  NumberWriter writer;
  std::string plain = "p";
  NOXPString text("t");
  NOXPBlob blob("b");
  Archive& result = writer & plain & &text & &blob;
  EXPECT_EQ(&result, &writer);
  EXPECT_EQ(text.getType(), NOXPString::Narrow);  // not even converted
  EXPECT_LOGGED(log, debug, "Writer can't serialize strings");
  EXPECT_LOGGED(log, debug, "Writer can't serialize NOXP strings");
  EXPECT_LOGGED(log, debug, "Writer can't serialize NOXP blobs");
}

// A class that overrides one overload hides the others of its base unless it says `using`. These
// calls compile only while every concrete archive and stream does.

template <class AnArchive>
void callEveryProcess(AnArchive& archive) {
  int number = 1;
  std::string plain = "p";
  NOXPString text("t");
  NOXPBlob blob("b");
  Bare<2> object;
  OwnedString ownedText;
  OwnedBlob ownedBlob;
  MaybeOwned<Bare<2>> maybe{Borrowed<Bare<2>>(&object)};
  archive.process(number, "n")
      .process(plain, "p")
      .process(&text, "t")
      .process(&blob, "b")
      .process(&object, "o");
  archive.process(ownedText, "t");
  archive.process(ownedBlob, "b");
  archive.process(maybe, "m");
  Archive& result = archive & number & plain & &text & &blob & &object;
  EXPECT_EQ(&result, &archive);
}

TEST(Overloads, EveryProcessCanBeCalledOnAConcreteArchive) {
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  callEveryProcess(writer);
  writer.writeRoot(*std::make_unique<Bare<2>>());
  const std::string written = out.str().substr(4);

  test::Classes<Bare<2>> factory;
  MemoryBufferInputStream in(written.data(), written.size());
  BinaryReader reader(&factory, &in);
  callEveryProcess(reader);

  CountingArchive counting;
  callEveryProcess(counting);
  EXPECT_EQ(counting.calls_, 13);
}

TEST(Overloads, RootsAreWrittenByReferenceAndByPointer) {
  NullOutStream out;
  BinaryWriter writer(&out);
  Bare<2> message;
  writer.writeRoot(message);
  writer.writeRoot(&message);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_EQ(message.getPacketSize(), 18u);
}

template <class Stream>
void callEverySend(Stream& stream) {
  NOXPString text("t");
  NOXPBlob blob("b");
  char data[] = "d";
  stream.send(text);
  stream.send(&text);
  stream.send(blob);
  stream.send(&blob);
  stream.send(data, 1);
  stream.blobSend(data, 1);
}

TEST(Overloads, EverySendCanBeCalledOnAConcreteStream) {
  MemoryBufferOutStream memory;
  callEverySend(memory);
  EXPECT_EQ(memory.str(), "ttbbdd");
  NullOutStream nowhere;
  callEverySend(nowhere);
  BufferedOutStream buffered(nullptr, true);
  callEverySend(buffered);
  EXPECT_EQ(buffered.getLength(), 6u);
}

}  // namespace
}  // namespace nox
