#include "client/command/output/rows.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "client/command/output/json_text.h"

namespace nox::command {
namespace {

using Row = std::vector<OutputValue>;

/// What a writer makes of the rows.
std::string written(Format format, const std::vector<OutputColumn>& columns,
                    const std::vector<Row>& rows, const OutputStyle& style = {}) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  Output output(fileno(file.get()));
  const auto writer = makeRowWriter(format, output, style);
  writer->begin(columns);
  for (const Row& row : rows) writer->row(row);
  writer->end();
  std::string text(static_cast<std::size_t>(lseek(fileno(file.get()), 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(fileno(file.get()), text.data(), text.size(), 0),
            static_cast<ssize_t>(text.size()));
  return text;
}

const std::vector<OutputColumn> kColumns = {{"ID", false}, {"QTY", true}};

TEST(TableRows, AreAlignedUnderTheirHeading) {
  EXPECT_EQ(written(Format::Table, kColumns, {{"A1", "7"}, {"B", "1234"}}),
            "ID   QTY\n"
            "--  ----\n"
            "A1     7\n"
            "B   1234\n");
}

TEST(TableRows, AreAlignedByWhatATerminalShows) {
  EXPECT_EQ(written(Format::Table, {{"NAME"}, {"X"}}, {{"値段", "1"}, {"Größe", "2"}}),
            "NAME   X\n"
            "-----  -\n"
            "値段   1\n"
            "Größe  2\n");
}

TEST(TableRows, ShowMarksAndNoControlCharacters) {
  EXPECT_EQ(written(Format::Table, {{"R"}}, {{"a\xFE\x1b"}}), "R\n------\na^\\x1B\n");
}

TEST(TableRows, WiderThanTheFirstThousandPushTheirLine) {
  std::vector<Row> rows(1000, Row{"x", "1"});
  rows.push_back({"xxxxx", "22"});
  const std::string text = written(Format::Table, {{"A"}, {"B"}}, rows);
  EXPECT_EQ(text.substr(text.size() - 15), "x  1\nxxxxx  22\n");
}

TEST(TableRows, NeedNoHeading) {
  EXPECT_EQ(written(Format::Table, kColumns, {{"A", "1"}}, {false, false}), "A     1\n");
}

TEST(ExpandedRows, GiveEachValueALine) {
  EXPECT_EQ(written(Format::Expanded, kColumns, {{"A1", "7"}, {"B", std::nullopt}}),
            "-- 1\n"
            "ID   A1\n"
            "QTY  7\n"
            "-- 2\n"
            "ID   B\n"
            "QTY\n");
}

TEST(CsvRows, QuoteWhatWouldBeMisread) {
  EXPECT_EQ(written(Format::Csv, kColumns, {{"a,b", "say \"x\""}, {"two\nlines", "plain"}}),
            "ID,QTY\n"
            "\"a,b\",\"say \"\"x\"\"\"\n"
            "\"two\nlines\",plain\n");
}

TEST(CsvRows, TellNullFromAnEmptyText) {
  EXPECT_EQ(written(Format::Csv, kColumns, {{std::nullopt, ""}}), "ID,QTY\n,\"\"\n");
}

TEST(TsvRows, EscapeTabsLineFeedsAndNull) {
  EXPECT_EQ(written(Format::Tsv, kColumns, {{"a\tb\n\r\\", std::nullopt}}),
            "ID\tQTY\na\\tb\\n\\r\\\\\t\\N\n");
}

TEST(JsonRows, AreOneArrayOfObjects) {
  EXPECT_EQ(written(Format::Json, kColumns, {{"A\"1", "7"}, {"B", std::nullopt}}),
            "[\n{\"ID\":\"A\\\"1\",\"QTY\":\"7\"},\n{\"ID\":\"B\",\"QTY\":null}\n]\n");
  EXPECT_EQ(written(Format::Json, kColumns, {}), "[]\n");
}

TEST(JsonRows, ShowNumbersOfNumericColumnsAsSuch) {
  EXPECT_EQ(written(Format::Jsonl, {{"N", true, true}, {"T"}},
                    {{"42", "42"}, {"-1.50e+3", ""}, {"007", ""}, {"2026-07-24", ""}, {"", ""}}),
            "{\"N\":42,\"T\":\"42\"}\n"
            "{\"N\":-1.50e+3,\"T\":\"\"}\n"
            "{\"N\":\"007\",\"T\":\"\"}\n"
            "{\"N\":\"2026-07-24\",\"T\":\"\"}\n"
            "{\"N\":\"\",\"T\":\"\"}\n");
}

TEST(JsonNumbers, FollowTheGrammar) {
  for (const char* text :
       {"0", "-0", "10", "0.5", "-12.50", "1e5", "1E+05", "0e-1", "12345678901234567890123"}) {
    EXPECT_TRUE(isJsonNumber(text)) << text;
  }
  for (const char* text :
       {"",   "-",  "+1", "01",  "-01", ".5",  "1.",  "1.e5", "1e",    "1e+",
        "1 ", " 1", "1a", "0x1", "Inf", "NaN", "--1", "1,5",  "1.2.3", "1e5.0"}) {
    EXPECT_FALSE(isJsonNumber(text)) << text;
  }
}

TEST(JsonRows, CarryBytesThatAreNoTextAsBase64) {
  EXPECT_EQ(written(Format::Jsonl, {{"R"}},
                    {{"a\xFE"
                      "b"}}),
            "{\"R\":{\"base64\":\"Yf5i\"}}\n");
}

TEST(RawRows, AreTheBytesThemselves) {
  EXPECT_EQ(written(Format::Raw, kColumns,
                    {{"a\xFD"
                      "b",
                      "\x01"}}),
            "a\xFD"
            "b\xFE\x01\n");
}

TEST(Formats, AreFoundByTheirNames) {
  for (const std::string& name : formatNames()) {
    const auto format = parseFormat(name);
    ASSERT_TRUE(format) << name;
    EXPECT_EQ(nameOf(*format), name);
  }
  EXPECT_EQ(formatNames().size(), 7u);
  EXPECT_FALSE(parseFormat("yaml"));
}

}  // namespace
}  // namespace nox::command
