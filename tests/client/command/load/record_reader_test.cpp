#include "client/command/load/record_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "client/command/context.h"

namespace nox::command {
namespace {

/// A file with this content, removed at the end.
class TextFile {
public:
  explicit TextFile(const std::string& text) {
    const int file = mkstemp(name_);
    EXPECT_GE(file, 0);
    close(file);
    std::ofstream(name_, std::ios::binary) << text;
  }
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;
  ~TextFile() { unlink(name_); }
  const char* name() const { return name_; }

private:
  char name_[32] = "/tmp/record_reader_test.XXXXXX";
};

const ColumnMapping kMapping = {"", {{"NAME", 1}, {"@ID", 0}, {"PHONES", 3}}};

using Make = std::unique_ptr<RecordReader> (*)(LineReader&, const ColumnMapping&);

/// "id=record" of each, records as people read them; "!line: why" for bad ones.
std::vector<std::string> readAll(const std::string& text, Make make,
                                 const ColumnMapping& mapping = kMapping) {
  const TextFile file(text);
  LineReader lines(file.name());
  const auto reader = make(lines, mapping);
  std::vector<std::string> seen;
  for (InputRecord record;;) {
    try {
      if (!reader->next(record)) return seen;
      seen.push_back(record.id + "=" + record.record.toString());
    } catch (const BadRecord& bad) {
      seen.push_back("!" + std::to_string(bad.line()) + ": " + bad.what());
    }
  }
}

std::unique_ptr<RecordReader> makeJson(LineReader& lines, const ColumnMapping& /*mapping*/) {
  return makeJsonReader(lines);
}

using Strings = std::vector<std::string>;

TEST(CsvReader, PutsColumnsIntoTheirAttributes) {
  EXPECT_EQ(readAll("ID,PHONES,NAME,5\n1,a]b,Ann,x\n2,,Bob,\n", makeCsvReader),
            (Strings{"1=Ann^^a]b^^x", "2=Bob"}));
}

TEST(CsvReader, ReadsQuotationsOverSeveralLines) {
  EXPECT_EQ(readAll("ID,NAME\r\n\"1\",\"a \"\"b\"\", c\"\r\n2,\"two\nlines\"\n", makeCsvReader),
            (Strings{"1=a \"b\", c", "2=two~0Alines"}));
}

TEST(CsvReader, GoesOnBehindABadRow) {
  EXPECT_EQ(readAll("ID,NAME\n1,a,b\n2,~ZZ\n3,ok\n", makeCsvReader).size(), 3u);
  const Strings seen = readAll("ID,NAME\n1,a,b\n3,ok\n", makeCsvReader);
  EXPECT_EQ(seen, (Strings{"!2: 3 values under 2 columns", "3=ok"}));
  EXPECT_EQ(readAll("ID,NAME\n1,\"open\n", makeCsvReader),
            (Strings{"!2: a quotation does not end"}));
}

TEST(CsvReader, TakesAnyColumnForTheId) {
  EXPECT_EQ(readAll("KEY,NAME\n7,x\n", makeCsvReader, {"KEY", kMapping.items}), (Strings{"7=x"}));
  EXPECT_EQ(readAll("\xEF\xBB\xBF@ID,NAME\n7,x\n", makeCsvReader), (Strings{"7=x"}));
}

TEST(CsvReader, LeavesFurtherColumnsWithTheIdOut) {
  const ColumnMapping mapping = {"", {{"@ID", 0}, {"KEY", 0}, {"NAME", 1}, {"ID", 2}}};
  EXPECT_EQ(readAll("KEY,ID,@ID,NAME\n8,7,9,x\n", makeCsvReader, mapping), (Strings{"7=x"}));
  EXPECT_EQ(readAll("@ID,ID\n7,x\n", makeCsvReader, mapping), (Strings{"7=^x"}));
}

TEST(CsvReader, RefusesTwoColumnsForOneAttribute) {
  const auto whyNot = [](const std::string& heading) -> std::string {
    try {
      readAll(heading + "\n", makeCsvReader);
    } catch (const Refused& refused) {
      return refused.what();
    }
    return "taken";
  };
  EXPECT_EQ(whyNot("ID,NAME,1"), R"(the columns "NAME" and "1" are both attribute 1)");
  EXPECT_EQ(whyNot("ID,NAME,NAME"), R"(the columns "NAME" and "NAME" are both attribute 1)");
  EXPECT_EQ(whyNot("ID,NAME,2"), "taken");
}

TEST(CsvReader, TakesEveryNumberThatADictionaryMayHave) {
  EXPECT_EQ(readAll("ID,65535\n1,\n", makeCsvReader), (Strings{"1="}));
  EXPECT_THROW(readAll("ID,65536\n1,\n", makeCsvReader), Refused);
}

TEST(CsvReader, RefusesHeadingsItCannotPlace) {
  EXPECT_THROW(readAll("NAME\nx\n", makeCsvReader), Refused);
  EXPECT_THROW(readAll("ID,NONSENSE\n1,x\n", makeCsvReader), Refused);
  EXPECT_THROW(readAll("ID,0\n1,x\n", makeCsvReader), Refused);
  EXPECT_THROW(readAll("ID,ID\n1,x\n", makeCsvReader), Refused);
  EXPECT_THROW(readAll("", makeCsvReader), Refused);
}

TEST(CsvReader, RefusesARowWithoutAnId) {
  EXPECT_EQ(readAll("ID,NAME\nA,first\n,second\n\"\",third\nB,fourth\n", makeCsvReader),
            (Strings{"A=first", "!3: the id is empty", "!4: the id is empty", "B=fourth"}));
}

TEST(TsvReader, RefusesARowWithoutAnId) {
  EXPECT_EQ(readAll("ID\tNAME\nA\tfirst\n\\N\tsecond\n\tthird\n", makeTsvReader),
            (Strings{"A=first", "!3: the id is empty", "!4: the id is empty"}));
}

TEST(RecordReaders, TakeAByteOrderMarkInFrontOfTheFirstLineAlone) {
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_EQ(readAll(mark + "ID,NAME\n" + mark + "7,x\n", makeCsvReader), (Strings{mark + "7=x"}));
  EXPECT_EQ(readAll(mark + "\"ID\",NAME\n7,x\n", makeCsvReader), (Strings{"7=x"}));
  EXPECT_EQ(readAll(mark + "ID\tNAME\n7\tx\n", makeTsvReader), (Strings{"7=x"}));
  EXPECT_EQ(readAll(mark + "{\"id\": \"7\", \"record\": \"x\"}\n", makeJson), (Strings{"7=x"}));
}

TEST(TsvReader, ReadsEscapesAndNull) {
  EXPECT_EQ(readAll("ID\tNAME\tPHONES\n1\ta\\tb\\nc~5Cd\t\\N\n", makeTsvReader),
            (Strings{"1=a~09b~0Ac~5Cd"}));
}

TEST(TsvReader, TakesABackslashForASubvalueMark) {
  EXPECT_EQ(readAll("ID\tNAME\n1\ta\\\\b\n", makeTsvReader), (Strings{"1=a\\b"}));
}

TEST(JsonReader, ReadsAttributesValuesAndSubvalues) {
  EXPECT_EQ(readAll(R"({"id": "a", "record": ["x", ["1", ["2", "3"]], null, {"base64": "/g=="}]})"
                    "\n\n"
                    R"({"id": 7, "record": "plain"})"
                    "\n",
                    makeJson),
            (Strings{"a=x^1]2\\3^^^", "7=plain"}));
}

TEST(JsonReader, PassesOtherKeysOver) {
  EXPECT_EQ(
      readAll(R"({"record": ["x", [], ""], "of": {"id": "b", "record": [[[[1]]]]}, "id": "a"})"
              "\n"
              R"({"id": {"base64": "/g=="}, "record": null, "more": [{"base64": 1}, null]})"
              "\n",
              makeJson),
      (Strings{"a=x^^", "\xFE="}));
}

TEST(JsonReader, TakesTheLastOfAKeyThatComesTwice) {
  EXPECT_EQ(readAll(R"({"id": "a", "record": ["x", ["y"]], "record": ["z"], "id": "b"})"
                    "\n",
                    makeJson),
            (Strings{"b=z"}));
}

TEST(JsonReader, TakesNothingButTextsForIdsAndParts) {
  const std::string expected = "a text was expected; this is of the kind ";
  EXPECT_EQ(readAll(R"({"id": null, "record": []})"
                    "\n"
                    R"({"id": ["a"], "record": []})"
                    "\n"
                    R"({"id": "a", "record": [{}]})"
                    "\n"
                    R"({"id": "a", "record": {"base64": "", "more": 1}})"
                    "\n"
                    R"({"id": "a", "record": {"base64": true}})"
                    "\n"
                    R"({"id": "a", "record": {"base64": ["/g=="]}})"
                    "\n"
                    R"([{"id": "a", "record": []}])"
                    "\n",
                    makeJson),
            (Strings{"!1: " + expected + "null", "!2: " + expected + "array",
                     "!3: " + expected + "object", "!4: " + expected + "object",
                     "!5: " + expected + "object", "!6: " + expected + "object",
                     "!7: {\"id\": ..., \"record\": [...]} was expected"}));
}

TEST(JsonReader, KeepsEveryDigitOfANumber) {
  EXPECT_EQ(readAll(R"({"id": 12345678901234567890123, "record": [1.10, 1e2, -0, 0, -7, [0.1E-5]]})"
                    "\n"
                    R"({"id": 18446744073709551615, "record": -9223372036854775809})"
                    "\n"
                    R"({"id": 1.0, "record": [true, false]})"
                    "\n",
                    makeJson),
            (Strings{"12345678901234567890123=1.10^1e2^-0^0^-7^0.1E-5",
                     "18446744073709551615=-9223372036854775809", "1.0=true^false"}));
}

TEST(JsonReader, SaysWhichNumberNoMachineCanHold) {
  EXPECT_EQ(readAll("{\"id\": \"a\", \"record\": [1e999]}\n", makeJson),
            (Strings{"!1: byte 28: number overflow parsing '1e999'"}));
}

TEST(JsonReader, SaysWhatIsWrongWithALine) {
  const Strings seen = readAll(
      "{\n"
      "{\"id\": \"a\"}\n"
      "{\"id\": \"a\", \"record\": [[[[1]]]]}\n"
      "{\"id\": \"b\", \"record\": []}\n",
      makeJson);
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0].compare(0, 12, "!1: byte 2: "), 0) << seen[0];
  EXPECT_EQ(seen[0].find("json"), std::string::npos) << seen[0];
  EXPECT_EQ(seen[0].find("line"), std::string::npos) << seen[0];
  EXPECT_EQ(seen[1], "!2: {\"id\": ..., \"record\": [...]} was expected");
  EXPECT_EQ(seen[2], "!3: arrays nest three deep at most");
  EXPECT_EQ(seen[3], "b=");
}

TEST(JsonReader, RefusesWhatIsDeeperThanAnyRecord) {
  constexpr int kLevels = 200'000;
  std::string objects;
  for (int i = 0; i < kLevels; ++i) objects += "{\"a\":";
  objects += "1" + std::string(kLevels, '}');
  const std::string arrays = std::string(kLevels, '[') + std::string(kLevels, ']');
  EXPECT_EQ(readAll("{\"id\": \"a\", \"record\": " + objects +
                        "}\n"
                        "{\"id\": " +
                        objects +
                        ", \"record\": []}\n"
                        "{\"id\": \"a\", \"record\": " +
                        arrays + "}\n",
                    makeJson),
            (Strings{"!1: a text was expected; this is of the kind object",
                     "!2: a text was expected; this is of the kind object",
                     "!3: arrays nest three deep at most"}));
}

TEST(CsvReader, RefusesAQuotationThatTakesAllThatFollows) {
  std::string text = "ID,NAME\n1,\"open\n";
  const std::string line(1u << 20, 'x');
  for (std::size_t size = 0; size <= LineReader::kLongestLine; size += line.size()) {
    text += line + "\n";
  }
  EXPECT_THROW(readAll(text, makeCsvReader), Refused);
}

TEST(LineReader, HandsOutLinesWithAnyBytesAndTheLastOneWithoutALineFeed) {
  const std::string longer(200'000, 'y');
  const TextFile file(std::string("a\0\xFE\n\n", 5) + longer + "\n" + "end");
  LineReader lines(file.name());
  Strings seen;
  for (std::string line; lines.next(line);) seen.push_back(line);
  EXPECT_EQ(seen, (Strings{std::string("a\0\xFE", 3), "", longer, "end"}));
  EXPECT_EQ(lines.number(), 4u);
  EXPECT_EQ(lines.bytes(), lines.size());
}

TEST(LineReader, TellsInputsApartByTheirDigest) {
  const auto digestOf = [](const std::string& text) {
    const TextFile file(text);
    LineReader lines(file.name());
    for (std::string line; lines.next(line);) continue;
    return lines.digest();
  };
  EXPECT_EQ(digestOf(""), 0xCBF29CE484222325u);  // the published basis of FNV-1a
  EXPECT_EQ(digestOf("a\nb\n"), digestOf("a\nb"));
  EXPECT_NE(digestOf("a\nb\n"), digestOf("ab\n"));
  EXPECT_NE(digestOf("a\nb\n"), digestOf("b\na\n"));
  EXPECT_NE(digestOf("a\nb\n"), digestOf("a\n"));
}

TEST(LineReader, TakesNoMoreOfALineThanItMayHave) {
  LineReader lines("/dev/zero");
  std::string line;
  EXPECT_THROW(lines.next(line), Refused);
}

TEST(LineReader, SaysWhatItCannotRead) {
  EXPECT_THROW(LineReader("/nonexistent/file"), Refused);
  EXPECT_THROW(
      {
        LineReader directory("/tmp");
        std::string line;
        directory.next(line);
      },
      Refused);
}

}  // namespace
}  // namespace nox::command
