// One noxd for all tests of a suite, and two connections to it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "nox/client/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/client/support/environment.h"

namespace nox::client::test {

/// Nobody waits for locks, unless a test says so. Each test finds both sessions as they were at
/// first.
class NoxdSession : public testing::Test {
protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  NoxdSession();
  ~NoxdSession() override;

  static agent::test::NoxdProcess& noxd() { return *noxd_; }
  /// Where noxd is, as ann, with her password.
  static Options options();
  static Connection connect() { return Connection::open(options()); }
  /// The test's own file, which is empty at first.
  const std::string& fileName() const { return fileName_; }

  const Environment empty_;
  Connection& ann_ = *anns_;
  Connection& bob_ = *bobs_;

private:
  static std::unique_ptr<Connection> anns_;
  static std::unique_ptr<Connection> bobs_;
  static std::unique_ptr<agent::test::NoxdProcess> noxd_;
  static int files_;
  const std::string fileName_ = "T" + std::to_string(++files_);
};

/// Options for a noxd of the test's own.
Options optionsFor(const agent::test::NoxdProcess& noxd);

/// The SQLSTATE and outcome of an action's error: "IE005 Rejected"; "no error".
std::string errorOf(const std::function<void()>& action);

}  // namespace nox::client::test
