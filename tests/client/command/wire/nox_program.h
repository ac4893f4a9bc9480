// The real nox, run as a process against the real noxd.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/agent/support/noxd_process.h"

namespace nox::command::test {

struct Outcome {
  int status = 0;  // 128 and the signal's number where one ended it
  std::string out;
  std::string err;
};

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// Runs nox with nothing of the environment but `environment`; `input` is its standard input.
/// Throws std::runtime_error when it does not end.
Outcome runNox(const Words& words, const Environment& environment, const std::string& input = {});

/// nox on a pseudo-terminal, as a person sits before it.
class Terminal {
public:
  Terminal(const Words& words, const Environment& environment);
  /// Kills what still runs.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void type(const std::string& text);
  /// Waits until `text` was shown behind what was waited for before; what came up to its end.
  /// Throws std::runtime_error, with what was shown, when it does not come.
  std::string waitFor(const std::string& text);
  /// Waits for the end; its exit status.
  int wait();
  const std::string& shown() const { return shown_; }

private:
  bool readMore();

  pid_t pid_ = 0;
  int terminal_ = -1;
  std::string shown_;
  std::size_t seen_ = 0;
};

/// A suite with an agent, and a home of its own for nox.
class NoxTest : public ::testing::Test {
protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();

  static agent::test::NoxdProcess& noxd() { return *noxd_; }
  /// Where to connect, as whom, with which password, and a home.
  static Environment environment();
  /// A file in a directory that goes with the suite.
  static std::string file(const std::string& name) { return noxd_->file(name); }
  static std::string write(const std::string& name, const std::string& text);
  static std::string contentOf(const std::string& name);

  static Outcome nox(const Words& words, const std::string& input = {}) {
    return runNox(words, environment(), input);
  }
  /// The output of a run that must end with status 0.
  static std::string done(const Words& words, const std::string& input = {});

private:
  static std::unique_ptr<agent::test::NoxdProcess> noxd_;
};

}  // namespace nox::command::test
