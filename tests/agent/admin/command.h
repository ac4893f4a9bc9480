// The real noxd as a command: what it prints, and how it ends.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {

struct Result {
  int status = 0;  // 128 and the signal's number where one ended it
  std::string out;
  std::string err;
};

/// Runs noxd to its end. `input` is its standard input. `prepare` runs in the child before; where
/// it returns false, the status is kNotPrepared. A command that takes longer than a minute is
/// killed.
constexpr int kNotPrepared = 126;
Result runNoxd(const std::vector<std::string>& arguments, const std::string& input = {},
               const std::function<bool()>& prepare = {});

/// Runs noxd on a terminal of its own: waits for each question, and types the answer. `out` is
/// what the terminal showed.
struct Answer {
  std::string question;
  std::string typed;
};
Result runNoxdOnTerminal(const std::vector<std::string>& arguments,
                         const std::vector<Answer>& answers);

/// A data directory with the account MAIN and the user "ann", password "one", who may administer
/// it, made without noxd and at little cost.
void makeDataDirectory(const std::string& path);

// For `prepare`: what the child alone sees. False where the system does not allow it.

/// A file system of this size, empty, at the folder.
bool mountSmallDisk(const std::string& folder, const std::string& size);
/// What is in the folder, but not to be written.
bool mountReadOnly(const std::string& folder);

}  // namespace nox::agent::test
