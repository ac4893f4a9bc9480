// The log: its lines, what it does to hostile texts, and that callers never wait for it.
#include "agent/log/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/agent/support/files.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {
namespace {

using test::contentOfFile;
using test::TempDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using namespace std::chrono_literals;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

AccessRecord record() {
  AccessRecord record;
  record.session = 7;
  record.user = "ann";
  record.account = "MAIN";
  record.request = "ReadRecord";
  record.bytesIn = 45;
  record.bytesOut = 210;
  record.duration = 83'999ns;
  record.outcome = "ok";
  return record;
}

class LogTest : public testing::Test {
protected:
  std::vector<std::string> lines() const { return linesOf(contentOfFile(file)); }

  TempDirectory directory;
  std::string file = directory.file("noxd.log");
};

TEST_F(LogTest, ALineHasTheTimeInUtcTheLevelAndTheText) {
  Log log(file, LogLevel::Debug);
  log.debug("one");
  log.info("two");
  log.warning("three");
  log.error("four");
  const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ";
  EXPECT_THAT(lines(),
              ElementsAre(MatchesRegex(time + "debug one"), MatchesRegex(time + "info two"),
                          MatchesRegex(time + "warning three"), MatchesRegex(time + "error four")));
}

TEST_F(LogTest, LinesBelowTheLevelAreLeftOut) {
  Log log(file, LogLevel::Warning);
  log.info("one");
  log.warning("two");
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("two")));
}

TEST_F(LogTest, TheLevelMayChange) {
  Log log(file, LogLevel::Warning);
  log.setLevel(LogLevel::Debug);
  log.debug("one");
  log.setLevel(LogLevel::Error);
  log.warning("two");
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("one")));
}

TEST_F(LogTest, AnAccessLineSaysWhoAskedWhatAndWhatBecameOfIt) {
  Log log(file, LogLevel::Info);
  log.access(record());
  log.flush();
  EXPECT_THAT(lines(), ElementsAre(HasSubstr(
                           " info access session=7 user=ann account=MAIN request=ReadRecord in=45 "
                           "out=210 us=83 outcome=ok")));
}

TEST_F(LogTest, ASlowRequestIsAWarning) {
  Log log(file, LogLevel::Warning);
  log.access(record());
  log.slow(record());
  log.flush();
  EXPECT_THAT(lines(), ElementsAre(HasSubstr(" warning slow session=7 user=ann ")));
}

TEST_F(LogTest, AnAccessLineNeedsNothingOfItsCallerLater) {
  Log log(file, LogLevel::Info);
  {
    const std::string user = "a user of a name that lies in memory of its own";
    AccessRecord access = record();
    access.user = user;
    log.access(access);
  }
  log.flush();
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("user=a\\x20user\\x20of")));
}

TEST_F(LogTest, AFieldHoldsNoSpaceAndNoLineAndHasAnEnd) {
  Log log(file, LogLevel::Info);
  AccessRecord access = record();
  access.user = "x outcome=ok\nuser=root";
  access.account = "";
  access.outcome = std::string_view("42/000");
  log.access(access);
  access.user = std::string_view();
  log.access(access);
  const std::string longName(100, 'n');
  access.user = longName;
  log.access(access);
  log.flush();
  const std::vector<std::string> written = lines();
  ASSERT_THAT(written, SizeIs(3));
  EXPECT_THAT(written[0], HasSubstr("user=x\\x20outcome=ok\\x0Auser=root account=- "));
  EXPECT_THAT(written[1], HasSubstr("user=- "));
  EXPECT_THAT(written[2], HasSubstr("user=" + std::string(64, 'n') + " "));
}

TEST_F(LogTest, ATextIsOneLineWhateverIsInIt) {
  Log log(file, LogLevel::Info);
  log.info("one\ntwo\r\n2026-01-01T00:00:00.000Z error three\x1B[2J");
  EXPECT_THAT(lines(),
              ElementsAre(HasSubstr("info one\\x0Atwo\\x0D\\x0A2026-01-01T00:00:00.000Z error "
                                    "three\\x1B[2J")));
}

TEST_F(LogTest, WhatWaitsIsWrittenAtTheEnd) {
  {
    Log log(file, LogLevel::Info);
    for (int i = 0; i < 100; ++i) log.access(record());
  }
  EXPECT_THAT(lines(), SizeIs(100));
}

TEST_F(LogTest, IsAddedToWhatIsThere) {
  { Log(file, LogLevel::Info).info("one"); }
  { Log(file, LogLevel::Info).info("two"); }
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("one"), HasSubstr("two")));
}

TEST_F(LogTest, AFileThatCannotBeWrittenIsAnError) {
  try {
    Log(directory.file("none/noxd.log"), LogLevel::Info);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("none/noxd.log cannot be written: No such file"));
  }
}

TEST_F(LogTest, IsNotForOthersToRead) {
  const Log log(file, LogLevel::Info);
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0137U, 0U);
}

TEST_F(LogTest, ReopenedAfterRotationBeginsANewFile) {
  Log log(file, LogLevel::Info);
  log.info("one");
  log.access(record());
  std::filesystem::rename(file, file + ".1");
  log.reopen();
  log.info("two");
  EXPECT_THAT(linesOf(contentOfFile(file + ".1")),
              ElementsAre(HasSubstr("one"), HasSubstr("access")));
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("two")));
}

TEST_F(LogTest, ThatCannotBeReopenedKeepsTheOldFileAndSaysSo) {
  const std::string folder = directory.file("logs");
  std::filesystem::create_directory(folder);
  Log log(folder + "/noxd.log", LogLevel::Info);
  std::filesystem::rename(folder, directory.file("old"));
  log.reopen();
  log.info("two");
  EXPECT_THAT(linesOf(contentOfFile(directory.file("old/noxd.log"))),
              ElementsAre(HasSubstr("error the log cannot be opened anew"), HasSubstr("two")));
}

TEST_F(LogTest, WithoutAFileGoesToStandardError) {
  testing::internal::CaptureStderr();
  {
    Log log("", LogLevel::Info);
    log.info("one");
    log.reopen();
    log.access(record());
  }
  EXPECT_THAT(linesOf(testing::internal::GetCapturedStderr()),
              ElementsAre(HasSubstr("info one"), HasSubstr("access session=7")));
}

TEST_F(LogTest, RequestsDoNotWaitForADiskThatHangsAndMissingLinesAreCounted) {
  // A pipe that nobody reads at first: the log's thread hangs when it is full.
  const std::string pipe = directory.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  auto log = std::make_unique<Log>(pipe, LogLevel::Info);
  constexpr std::size_t kMany = 5 * Log::kMostWaiting;
  for (std::size_t i = 0; i < kMany; ++i) log->access(record());

  std::string text;
  std::thread reading([&] {
    std::array<char, 65536> block{};
    // The destructor below writes this line last.
    while (text.find("the end") == std::string::npos) {
      const ssize_t got = read(reader, block.data(), block.size());
      if (got <= 0) break;
      text.append(block.data(), static_cast<std::size_t>(got));
    }
  });
  log->flush();
  log->info("the end");
  reading.join();
  log.reset();
  close(reader);

  std::size_t written = 0;
  std::size_t missing = 0;
  const std::string before = " warning ";
  for (const std::string& line : linesOf(text)) {
    if (line.find(" access session=7 ") != std::string::npos) ++written;
    if (line.find(" access lines are missing") == std::string::npos) continue;
    missing += std::stoul(line.substr(line.find(before) + before.size()));
  }
  EXPECT_GT(missing, 0U);
  EXPECT_EQ(written + missing, kMany);
}

TEST_F(LogTest, ThreadsMayUseItTogether) {
  {
    Log log(file, LogLevel::Info);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int n = 0; n < 200; ++n) {
          log.access(record());
          if (n % 50 == 0) log.info("between");
          if (n % 100 == 0) log.flush();
        }
      });
    }
    log.reopen();
    log.setLevel(LogLevel::Debug);
    for (std::thread& thread : threads) thread.join();
  }
  std::size_t access = 0;
  std::size_t between = 0;
  for (const std::string& line : lines()) {
    EXPECT_THAT(line, testing::EndsWith(line.find("access") != std::string::npos ? "outcome=ok"
                                                                                 : "between"));
    ++(line.find("access") != std::string::npos ? access : between);
  }
  EXPECT_EQ(access, 800U);
  EXPECT_EQ(between, 16U);
}

TEST(LogEscapes, LeaveTextAsItIs) {
  EXPECT_EQ(Log::escaped("Grüße, 世界 \xF0\x9F\x98\x80 ~"), "Grüße, 世界 \xF0\x9F\x98\x80 ~");
  EXPECT_EQ(Log::escaped(""), "");
}

TEST(LogEscapes, ControlCharacters) {
  EXPECT_EQ(Log::escaped(std::string_view("\0\t\n\x1B\x7F", 5)), "\\x00\\x09\\x0A\\x1B\\x7F");
  // U+0085 and U+009B, which some terminals obey.
  EXPECT_EQ(Log::escaped("\xC2\x85\xC2\x9B"), "\\xC2\\x85\\xC2\\x9B");
  EXPECT_EQ(Log::escaped("\xC2\xA0"), "\xC2\xA0");
}

TEST(LogEscapes, WhatBreaksLinesOrTurnsTextAround) {
  EXPECT_EQ(Log::escaped("\xE2\x80\xA8"), "\\xE2\\x80\\xA8");  // U+2028
  EXPECT_EQ(Log::escaped("\xE2\x80\xAE"), "\\xE2\\x80\\xAE");  // U+202E
  EXPECT_EQ(Log::escaped("\xE2\x81\xA6"), "\\xE2\\x81\\xA6");  // U+2066
  EXPECT_EQ(Log::escaped("\xE2\x80\x94"), "\xE2\x80\x94");     // a dash
}

TEST(LogEscapes, BytesThatAreNoUtf8) {
  EXPECT_EQ(Log::escaped("a\xFE"
                         "b\xFC"),
            "a\\xFEb\\xFC");
  EXPECT_EQ(Log::escaped("\xC3"), "\\xC3");
  EXPECT_EQ(Log::escaped("\xC3\xC3\xA9"), "\\xC3é");
  EXPECT_EQ(Log::escaped("\xF0\x9F\x98"), "\\xF0\\x9F\\x98");
  EXPECT_EQ(Log::escaped("\xED\xA0\x80"), "\\xED\\xA0\\x80");
}

TEST(LogEscapes, CannotBeFaked) { EXPECT_EQ(Log::escaped("a\\x0Ab"), "a\\\\x0Ab"); }

TEST(LogLevels, AreReadByTheirNames) {
  EXPECT_EQ(parseLogLevel("debug"), LogLevel::Debug);
  EXPECT_EQ(parseLogLevel("info"), LogLevel::Info);
  EXPECT_EQ(parseLogLevel("warning"), LogLevel::Warning);
  EXPECT_EQ(parseLogLevel("error"), LogLevel::Error);
  EXPECT_EQ(parseLogLevel("INFO"), std::nullopt);
}

}  // namespace
}  // namespace nox::agent
