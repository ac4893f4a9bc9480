#include "client/command/output/record_text.h"

#include <gtest/gtest.h>

namespace nox::command {
namespace {

using client::Record;

TEST(RecordTree, ShowsAttributesValuesAndSubvalues) {
  EXPECT_EQ(recordTree("bash", Record::parse("5.2^libc6]libtinfo6 \\libtinfo5^^last")),
            "bash\n"
            "├─ 1  5.2\n"
            "├─ 2\n"
            "│  ├─ 2.1  libc6\n"
            "│  └─ 2.2\n"
            "│     ├─ 2.2.1  libtinfo6 \n"
            "│     └─ 2.2.2  libtinfo5\n"
            "├─ 3\n"
            "└─ 4  last\n");
}

TEST(RecordTree, NamesAttributesByTheDictionary) {
  EXPECT_EQ(recordTree("1", Record::parse("a^b"), {"ID", "NAME"}),
            "1\n"
            "├─ 1 NAME  a\n"
            "└─ 2  b\n");
}

TEST(RecordTree, ShowsNothingThatATerminalWouldObey) {
  EXPECT_EQ(recordTree("\x1b", Record("a\x1b[1m")), "\\x1B\n└─ 1  a\\x1B[1m\n");
}

TEST(RecordJson, NestsWhatIsDivided) {
  EXPECT_EQ(recordJson(Record::parse("a^b]c^d]e\\f^")), R"(["a",["b","c"],["d",["e","f"]],""])");
  EXPECT_EQ(recordJson(Record::parse("a\\b")), R"([[["a","b"]]])");
  EXPECT_EQ(recordJson(Record("")), "[]");
}

TEST(RecordJson, EscapesWhatAJsonStringCannotHold) {
  EXPECT_EQ(recordJson(Record("say \"hi\"\\\n\x01~\x7f")),
            "[\"say \\\"hi\\\"\\\\\\n\\u0001~\x7f\"]");
  EXPECT_EQ(recordJson(Record("Gr\xC3\xBC\xC3\x9F\x65")), "[\"Gr\xC3\xBC\xC3\x9F\x65\"]");
}

TEST(RecordJson, IsAddedBehindWhatIsThere) {
  std::string json = "1:";
  addRecordJson(json, Record::parse("a^b"));
  EXPECT_EQ(json, R"(1:["a","b"])");
}

TEST(RecordJson, CarriesBytesThatAreNoText) {
  EXPECT_EQ(recordJson(Record(std::string("\xFF", 1))), R"([{"base64":"/w=="}])");
}

}  // namespace
}  // namespace nox::command
