// One noxd, and two clients of it, for all tests of a suite. Each test has a file of its own and
// leaves neither locks nor a transaction behind, so that none depends on another.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {

// Modes as they travel.
constexpr int kShared = 1;
constexpr int kUpdate = 2;
constexpr int kDoNotWait = 4;
constexpr int kKeep = 1;
constexpr int kOnlyNew = 2;

/// Nobody waits for locks, unless a test says so.
class SharedNoxd : public ::testing::Test {
protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  SharedNoxd();
  ~SharedNoxd() override;

  static NoxdProcess& noxd() { return *noxd_; }
  /// Logged in as ann, who may administer MAIN.
  static std::unique_ptr<Client> newClient();
  /// Lets the client wait for locks, from here to the end of the test.
  static void letWait(Client& client);

  static Client& ann() { return *ann_; }
  static Client& bob() { return *bob_; }
  /// The test's own file, which is empty at first.
  const char* file() const { return file_.c_str(); }
  std::string dict() const { return "DICT " + file_; }

private:
  static std::unique_ptr<NoxdProcess> noxd_;
  static std::unique_ptr<Client> ann_;
  static std::unique_ptr<Client> bob_;
  static int files_;

  const std::string file_ = "T" + std::to_string(++files_);
};

}  // namespace nox::agent::test
