#include "nox/diag/tracer.h"

#include <ace/Log_Msg.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "nox/diag/mutex.h"
#include "tests/support/log_capture.h"

namespace nox::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr int kTracePriority = 2;

/// Tests leave tracing off, this thread's own switch on, and nothing on the stack.
class TracerTest : public ::testing::Test {
protected:
  void SetUp() override {
    unsetenv("AGENT_LOG_TIME");
    ACE_Log_Msg::instance()->trace_depth(0);
  }
  void TearDown() override {
    EXPECT_THAT(*Tracer::stack, IsEmpty());
    Tracer::disable();
    ACE_Log_Msg::instance()->start_tracing();
    unsetenv("AGENT_LOG_TIME");
  }

  LogCapture log_;
};

using TracerThreads = TracerTest;

TEST_F(TracerTest, WritesNothingUntilTracingIsEnabled) {
  {
    Tracer tracer("label", "where", 1, "what");
    tracer.setLine(2);
    EXPECT_THAT(*Tracer::stack, IsEmpty());
    Tracer::printStackTrace();
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TracerTest, WritesEntryAndExitIndentedByTheirDepth) {
  Tracer::enable();
  {
    const Tracer outer("label", "outer.cpp", 10, "outer()");
    const Tracer inner("label", "inner.cpp", -20, "inner()");
  }
  const std::string ids = "(" + std::to_string(getpid()) + "|" + std::to_string(gettid()) + ") ";
  EXPECT_EQ(log_.output(), ids + "TRACE  => outer.cpp, outer() +10\n" +           //
                               ids + "TRACE      => inner.cpp, inner() +-20\n" +  //
                               ids + "TRACE      <= inner.cpp, inner() +-20\n" +  //
                               ids + "TRACE  <= outer.cpp, outer() +10\n");
}

TEST_F(TracerTest, NamesItsSourceAndPriorityToTheBackEnd) {
  Tracer::enable();
  { const Tracer tracer("label", "where", 1, "what"); }
  ASSERT_THAT(log_.records(), SizeIs(2));
  EXPECT_EQ(log_.records()[0].priority, kTracePriority);
  EXPECT_EQ(log_.records()[0].file, "Logger.cpp");
  EXPECT_NE(log_.records()[0].sourceLine, log_.records()[1].sourceLine);
}

TEST_F(TracerTest, ShowsTheLineThatWasSetLast) {
  Tracer::enable();
  {
    Tracer tracer("label", "where", 1, "what");
    tracer.setLine(2);
  }
  EXPECT_THAT(log_.texts(), ElementsAre(" => where, what +1\n", " <= where, what +2\n"));
}

TEST_F(TracerTest, KeepsTheLineThatIsSetWhileTracingIsOff) {
  Tracer tracer("label", "where", 1, "what");
  tracer.setLine(2);
  Tracer::enable();
  const Tracer copy(tracer);
  { const Tracer dying(copy); }
  EXPECT_THAT(log_.texts(), ElementsAre(" <= where, what +1\n"));
  Tracer::disable();
}

TEST_F(TracerTest, ShowsTheProcessorClockWhenTheEnvironmentAsks) {
  Tracer::enable();
  for (const char* value : {"1", ""}) {
    setenv("AGENT_LOG_TIME", value, 1);
    log_.clear();
    {
      const Tracer tracer("label", "where", 1, "what");
      unsetenv("AGENT_LOG_TIME");  // read once per tracer
    }
    EXPECT_THAT(log_.texts(), ElementsAre(MatchesRegex(" => where, what \\+1 \\[-?[0-9]+\\]\n"),
                                          MatchesRegex(" <= where, what \\+1 \\[-?[0-9]+\\]\n")));
  }
}

TEST_F(TracerTest, PrintsTheLiveTracersOldestFirst) {
  Tracer::enable();
  const Tracer outer("label", "outer.cpp", 10, "outer()");
  Tracer inner("label", "inner.cpp", 20, "inner()");
  inner.setLine(21);
  log_.clear();
  Tracer::printStackTrace();
  const std::string ids = "(" + std::to_string(getpid()) + "|" + std::to_string(gettid()) + ") ";
  EXPECT_EQ(log_.output(), ids +
                               "STACK TRACE:\n"
                               "   outer.cpp, outer() +10\n"
                               "   inner.cpp, inner() +21\n");
  EXPECT_EQ(log_.records()[1].priority, kTracePriority);
  Tracer::disable();
}

TEST_F(TracerTest, PrintsOnlyTheHeadingOfAnEmptyStack) {
  Tracer::enable();
  Tracer::printStackTrace();
  ASSERT_THAT(log_.records(), SizeIs(1));
  EXPECT_THAT(log_.output(), MatchesRegex("\\([0-9]+\\|[0-9]+\\) STACK TRACE:\n"));
}

TEST_F(TracerTest, ExitsWithoutAnEntryWhenEnabledInBetween) {
  {
    const Tracer tracer("label", "where", 1, "what");
    setenv("AGENT_LOG_TIME", "1", 1);
    Tracer::enable();
    EXPECT_THAT(*Tracer::stack, IsEmpty());
  }
  EXPECT_THAT(log_.texts(), ElementsAre(" <= where, what +1\n"));  // no clock: never looked
}

TEST_F(TracerTest, MadeWhileTracingIsOffTakesTheNewestEntryWithIt) {
  Tracer::enable();
  const Tracer first("label", "first", 1, "what");
  const Tracer second("label", "second", 2, "what");
  {
    Tracer::disable();
    const Tracer unseen("label", "unseen", 3, "what");
    Tracer::enable();
  }
  EXPECT_THAT(*Tracer::stack, ElementsAre(&first));
  Tracer::disable();
}

TEST_F(TracerTest, LeavesTheStackSilentlyWhenTracingIsOff) {
  Tracer::enable();
  {
    const Tracer tracer("label", "where", 1, "what");
    log_.clear();
    Tracer::disable();
    EXPECT_THAT(*Tracer::stack, ElementsAre(&tracer));
  }
  EXPECT_THAT(*Tracer::stack, IsEmpty());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TracerTest, LeavesTheStackInAnyOrder) {
  Tracer::enable();
  std::optional<Tracer> first;
  first.emplace("label", "first", 1, "what");
  const Tracer second("label", "second", 2, "what");
  first.reset();
  EXPECT_THAT(*Tracer::stack, ElementsAre(&second));
}

TEST_F(TracerTest, CopiesTheDescriptionButNotThePlaceOnTheStack) {
  Tracer::enable();
  {
    const Tracer original("label", "original", 1, "what");
    Tracer assigned("label", "assigned", 2, "what");
    assigned = original;
    EXPECT_THAT(*Tracer::stack, ElementsAre(&original, &assigned));
    log_.clear();
    {
      const Tracer copy(original);
      EXPECT_THAT(*Tracer::stack, SizeIs(2));
    }
    // The copy was not on the stack, so its end took the newest entry.
    EXPECT_THAT(*Tracer::stack, ElementsAre(&original));
  }
  EXPECT_THAT(log_.texts(), ElementsAre("     <= original, what +1\n",
                                        " <= original, what +1\n",  // written by `assigned`
                                        " <= original, what +1\n"));
}

TEST_F(TracerTest, IsSilentInsideTheLogBackEnd) {
  Tracer::enable();
  log_.onRecord([] { const Tracer tracer("label", "callback", 9, "what"); });
  {
    const Tracer tracer("label", "where", 1, "what");
    EXPECT_THAT(*Tracer::stack, ElementsAre(&tracer));
  }
  EXPECT_THAT(log_.texts(), ElementsAre(" => where, what +1\n", " <= where, what +1\n"));
}

TEST_F(TracerTest, ObeysAThreadThatStoppedTracingForItself) {
  Tracer::enable();
  ACE_Log_Msg::instance()->stop_tracing();
  {
    const Tracer tracer("label", "where", 1, "what");
    EXPECT_THAT(*Tracer::stack, IsEmpty());
    Tracer::printStackTrace();
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TracerThreads, AreReachedByEnableAndDisable) {
  const auto traceInAnotherThread = [this] {
    log_.clear();
    std::thread([this] {
      const LogCapture::Thread captured(log_);
      const Tracer tracer("label", "thread", 1, "what");
    }).join();
    return log_.texts();
  };
  EXPECT_THAT(traceInAnotherThread(), IsEmpty());
  Tracer::enable();
  EXPECT_THAT(traceInAnotherThread(),
              ElementsAre(" => thread, what +1\n", " <= thread, what +1\n"));
  Tracer::disable();
  EXPECT_THAT(traceInAnotherThread(), IsEmpty());
}

TEST_F(TracerThreads, ShareOneStackAndTakeOnlyTheirOwnEntriesOffIt) {
  Tracer::enable();
  const Tracer mine("label", "mine", 1, "what");
  std::promise<void> entered;
  std::promise<void> mayLeave;
  std::thread other([&] {
    const LogCapture::Thread captured(log_);
    std::optional<Tracer> theirs;
    theirs.emplace("label", "theirs", 2, "what");
    entered.set_value();
    mayLeave.get_future().wait();
  });
  entered.get_future().wait();
  {
    const Tracer inner("label", "inner", 3, "what");
    EXPECT_THAT(*Tracer::stack, SizeIs(3));
    mayLeave.set_value();
    other.join();
    EXPECT_THAT(*Tracer::stack, ElementsAre(&mine, &inner));
  }
  EXPECT_THAT(*Tracer::stack, ElementsAre(&mine));
  Tracer::disable();
}

TEST_F(TracerThreads, TraceSetLinesAndPrintTogether) {
  Tracer::enable();
  constexpr int kThreads = 4;
  constexpr int kRounds = 100;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this] {
      const LogCapture::Thread captured(log_);
      for (int i = 0; i < kRounds; ++i) {
        Tracer tracer("label", "where", i, "what");
        tracer.setLine(i + 1);
        const Tracer copy(tracer);
        Tracer::printStackTrace();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(log_.texts(kTracePriority).size(), log_.records().size());
}

}  // namespace
}  // namespace nox::test
