// The monitoring commands: what is understood names valid things; what is not is refused with a
// line that a terminal may show.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "agent/monitoring/monitor_command.h"
#include "fuzz/fuzz_target.h"

namespace {

using nox::agent::MonitorCommand;
using nox::fuzz::require;
using Verb = MonitorCommand::Verb;

void check(const MonitorCommand& command) {
  const bool namesFile = command.verb == Verb::Unlock || command.hasFile;
  require(!namesFile || nox::agent::isFileName(command.file.file), "a file has a file's name");
  const bool namesItem = command.verb == Verb::Unlock || command.verb == Verb::XaCommit ||
                         command.verb == Verb::XaRollback;
  require(namesItem != command.id.empty(), "an item is named where there must be one");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    check(nox::agent::parseMonitorCommand({reinterpret_cast<const char*>(data), size}));
  } catch (const std::invalid_argument& mistake) {
    const std::string text = mistake.what();
    require(!text.empty() && text.size() < 1000, "a mistake is a short text");
    require(std::none_of(text.begin(), text.end(),
                         [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }),
            "a mistake is one line that no terminal obeys");
  }
  return 0;
}
