#include "agent/server/signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <string>

namespace nox::agent {
namespace {

TEST(Signals, BecomeCallsOneAfterTheOther) {
  std::promise<std::string> told;
  std::string calls;
  Signals signals;
  Signals::Handlers handlers;
  handlers.hangUp = [&] { calls += "h"; };
  handlers.terminate = [&] {
    calls += "t";
    kill(getpid(), SIGINT);
  };
  handlers.interrupt = [&] { told.set_value(calls + "i"); };
  signals.watch(std::move(handlers));
  kill(getpid(), SIGHUP);
  kill(getpid(), SIGTERM);
  const std::string order = told.get_future().get();
  // Which of two that wait is taken first is the system's to say.
  EXPECT_TRUE(order == "hti" || order == "ti" || order == "thi") << order;
}

TEST(Signals, AreNotLostBeforeSomebodyWatches) {
  Signals signals;
  kill(getpid(), SIGTERM);
  std::promise<void> told;
  Signals::Handlers handlers;
  handlers.terminate = [&] { told.set_value(); };
  signals.watch(std::move(handlers));
  told.get_future().get();
}

TEST(Signals, OfBrokenPipesAreIgnored) {
  const Signals signals;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  close(ends[1]);
}

TEST(Signals, WithoutAHandlerDoNothing) {
  std::promise<void> told;
  Signals signals;
  Signals::Handlers handlers;
  handlers.interrupt = [&] { told.set_value(); };
  signals.watch(std::move(handlers));
  kill(getpid(), SIGTERM);
  kill(getpid(), SIGINT);
  told.get_future().get();
}

}  // namespace
}  // namespace nox::agent
