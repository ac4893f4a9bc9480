// The command line: what 220 runs, and what a subroutine executes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "agent/session/program.h"

namespace nox::agent {

class Session;

/// A command that is running or has run.
class CommandProgram : public Program {
public:
  /// 0, or what the command left.
  virtual int code() const = 0;
  /// How many items it listed, selected or counted.
  virtual std::uint64_t items() const = 0;
};

/// Parses the line. Throws Failure IE/011 for one that cannot be understood; the message names the
/// word. The program answers with ExecuteResponseProt.
std::unique_ptr<CommandProgram> makeCommand(Session& session, std::string_view line);

}  // namespace nox::agent
