#include "nox/diag/logger.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "nox/diag/file_loggers.h"
#include "tests/support/log_capture.h"

namespace nox::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// What a build with output writes; one without writes nothing.
std::vector<std::string> withOutput(std::vector<std::string> texts) {
  if (!kLoggerOutput) texts.clear();
  return texts;
}

TEST(Logger, PrioritiesAreThoseOfTheLogBackEnd) {
  EXPECT_EQ(nox::debug, 4);
  EXPECT_EQ(nox::info, 8);
  EXPECT_EQ(nox::notice, 16);
  EXPECT_EQ(nox::warning, 32);
  EXPECT_EQ(nox::error, 128);
  EXPECT_EQ(nox::critical, 256);
  EXPECT_EQ(nox::alert, 512);
  EXPECT_EQ(nox::emergency, 1024);
}

TEST(Logger, EveryOperationReturnsTheLogger) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  const EndLog end;
  EXPECT_EQ(&(logger << "text"), &logger);
  EXPECT_EQ(&(logger << std::string("text")), &logger);
  EXPECT_EQ(&(logger << static_cast<const void*>(&logger)), &logger);
  EXPECT_EQ(&(logger << 5L), &logger);
  EXPECT_EQ(&logger.setFile("file.cpp"), &logger);
  EXPECT_EQ(&logger.setLine(7), &logger);
  EXPECT_EQ(&(logger << end), &logger);
  logger.setLogLevel(nox::alert);
}

TEST(Logger, IsNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<Logger>);
  EXPECT_FALSE(std::is_copy_assignable_v<Logger>);
}

TEST(Logger, WritesAChainAsOneMessageAtItsPriority) {
  const LogCapture log;
  Logger logger(nox::notice, "<%s>");
  logger << "count " << 42L << ' ' << std::string("of ") << -1L << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"<count 4232of -1>"}));  // a char is a number
  if (!kLoggerOutput) return;
  EXPECT_EQ(log.records().at(0).priority, nox::notice);
}

TEST(Logger, WritesAddressesInHexadecimal) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  logger << reinterpret_cast<const void*>(0x1234) << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"0x1234"}));
}

TEST(Logger, TakesANullTextAsEmpty) {
  const LogCapture log;
  Logger logger(nox::info, "[%s]");
  const char* const null = nullptr;
  logger << "a" << null << "b" << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"[ab]"}));
}

TEST(Logger, NeverTakesATextAsAFormat) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  logger << "100%n %s %d" << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"100%n %s %d"}));
}

TEST(Logger, StartsANewMessageAfterEachEnd) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  logger << "one" << EndLog() << "two" << EndLog() << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"one", "two", ""}));
}

TEST(Logger, WritesNothingBeforeTheEnd) {
  const LogCapture log;
  {
    Logger logger(nox::info, "%s");
    logger << "open";
    EXPECT_THAT(log.texts(), IsEmpty());
  }
  EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Logger, KeepsAChainInsideAnothersArgumentsApart) {
  const LogCapture log;
  Logger outer(nox::info, "%s");
  Logger inner(nox::info, "%s");
  const auto logging = [&] {
    inner << "inner " << 1L << EndLog();
    return "result";
  };
  outer << "outer " << logging() << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"inner 1", "outer result"}));
}

TEST(Logger, GivesTheBackEndTheSourcePositionOfOneMessage) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  logger.setFile("some_file.cpp").setLine(77) << "placed" << EndLog();
  logger << "not placed" << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"placed", "not placed"}));
  if (!kLoggerOutput) return;
  EXPECT_EQ(log.records().at(0).file, "some_file.cpp");
  EXPECT_EQ(log.records().at(0).sourceLine, 77);
  EXPECT_EQ(log.records().at(1).file, "");
  EXPECT_EQ(log.records().at(1).sourceLine, 0);
}

TEST(Logger, SurvivesATextLongerThanARecord) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  logger << std::string(100000, 'x') << EndLog();
  EXPECT_THAT(log.texts(), SizeIs(kLoggerOutput ? 1 : 0));
}

TEST(Logger, KeepsErrno) {
  const LogCapture log;
  Logger logger(nox::info, "%s");
  errno = 4711;
  logger << "text" << EndLog();
  EXPECT_EQ(errno, 4711);
}

TEST(FileLoggers, WriteTheirPriorityInFrontOfTheText) {
  const LogCapture log;
  NOX_LOG(filelog::debug) << "text" << EndLog();
  NOX_LOG(filelog::info) << "text" << EndLog();
  NOX_LOG(filelog::notice) << "text" << EndLog();
  NOX_LOG(filelog::warning) << "text" << EndLog();
  NOX_LOG(filelog::error) << "text" << EndLog();
  NOX_LOG(filelog::critical) << "text" << EndLog();
  NOX_LOG(filelog::alert) << "text" << EndLog();
  NOX_LOG(filelog::emergency) << "text" << EndLog();
  // The main thread's number is the process's. Only debug has the (here empty) indentation.
  const std::string ids = "(" + std::to_string(getpid()) + "|" + std::to_string(gettid()) + ") ";
  const std::string all = ids + "DEBUG  text" + ids + "INFO text" + ids + "NOTICE text" + ids +
                          "WARNING text" + ids + "ERROR text" + ids + "CRITICAL ERROR text" + ids +
                          "ALERT text" + ids + "EMERGENCY text";
  EXPECT_EQ(log.output(), kLoggerOutput ? all : "");
}

TEST(LogStatement, EvaluatesItsArgumentsOnlyWhenThereIsOutput) {
  const LogCapture log;
  int calls = 0;
  const auto counting = [&] { return static_cast<long>(++calls); };
  NOX_LOG(filelog::info) << "call " << counting() << EndLog();
  EXPECT_EQ(calls, kLoggerOutput ? 1 : 0);
  EXPECT_EQ(log.texts(), withOutput({"call 1"}));
}

TEST(LogStatement, LeavesAnElseToTheIfBeforeIt) {
  const LogCapture log;
  const auto branch = [](bool condition) {
    if (condition)
      NOX_LOG(filelog::info) << "then" << EndLog();
    else
      return std::string("else");
    if (condition) NOX_LOG(filelog::info) << "alone" << EndLog();
    return std::string("after");
  };
  EXPECT_EQ(branch(true), "after");
  EXPECT_EQ(branch(false), "else");
  EXPECT_EQ(log.texts(), withOutput({"then", "alone"}));
}

TEST(LogStatement, IsOneStatementOfALoopAndOfAnElse) {
  const LogCapture log;
  for (long i = 0; i < 3; ++i)
    if (i == 1)
      continue;
    else
      NOX_LOG(filelog::info) << i << EndLog();
  EXPECT_EQ(log.texts(), withOutput({"0", "2"}));
}

TEST(LoggerThreads, GatherTheirOwnTextInASharedLogger) {
  LogCapture log;
  Logger logger(nox::info, "%s");
  constexpr int kThreads = 4;
  constexpr int kMessages = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&log, &logger, t] {
      const LogCapture::Thread captured(log);
      const std::string name(1, static_cast<char>('a' + t));
      for (int i = 0; i < kMessages; ++i) {
        logger << name << name;
        std::this_thread::yield();
        logger << name << EndLog();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<int> counts(kThreads);
  for (const std::string& text : log.texts()) {
    ASSERT_EQ(text, std::string(3, text.at(0)));
    ++counts.at(static_cast<std::size_t>(text[0] - 'a'));
  }
  const int expected = kLoggerOutput ? kMessages : 0;
  EXPECT_THAT(counts, ElementsAre(expected, expected, expected, expected));
}

TEST(LoggerThreads, AChainWithoutEndHoldsUpNobody) {
  LogCapture log;
  Logger logger(nox::info, "%s");
  logger << "never ended";
  std::thread([&] {
    const LogCapture::Thread captured(log);
    logger << "other" << EndLog();
  }).join();
  EXPECT_EQ(log.texts(), withOutput({"other"}));
}

}  // namespace
}  // namespace nox::test
