// Subroutines of an account, as tests write and run them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "agent/failure.h"
#include "agent/scripting/subroutine.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {

/// Interrupts the session a moment after a script of it has started. Earlier or later does not
/// matter to the outcome: the script ends, or it does not.
class InterruptSoon {
public:
  explicit InterruptSoon(Session& session) : thread_([this, &session] { run(session); }) {}
  ~InterruptSoon() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      over_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

private:
  void run(Session& session) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(30), [this] { return over_; });
    session.interrupt();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool over_ = false;
  std::thread thread_;
};

class Scripts : public testing::Test {
protected:
  explicit Scripts(Right right = Right::Admin) {
    const auto admin = agent_.newSession();
    admin->store().createFile("NOX.SUBS");
    admin->store().createFile("F");
    session_ = agent_.newSession(right);
  }

  Session& session() { return *session_; }
  AgentInProcess& agent() { return agent_; }

  void store(const std::string& name, std::string_view source) {
    session().store().write({"NOX.SUBS", Part::Data}, name, source);
  }

  std::unique_ptr<Subroutine> make(std::string_view source, std::vector<Argument> arguments = {},
                                   bool mayPrompt = true) {
    store("TEST", source);
    return makeSubroutine(session(), "TEST", std::move(arguments), mayPrompt);
  }

  /// What it left in its first argument ("nil" for null), or the error: "IE/003: reason".
  std::string run(std::string_view source, std::vector<Argument> arguments = {std::nullopt}) {
    try {
      const auto program = make(source, std::move(arguments));
      if (program->run(std::nullopt) != Program::State::Done) return "wants input";
      return program->arguments().at(0).value_or("nil");
    } catch (const Failure& failure) {
      return describe(failure);
    }
  }

  /// The value of an expression of Lua.
  std::string value(const std::string& expression) { return run("args[1] = " + expression); }

  static std::string describe(const Failure& failure) {
    return failure.state().sqlClass + "/" + failure.state().sqlSubClass + ": " + failure.reason();
  }

private:
  AgentInProcess agent_;
  std::unique_ptr<Session> session_;
};

}  // namespace nox::agent::test
