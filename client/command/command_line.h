// The command line, taken apart by the table of subcommands.
#pragma once

#include <string>
#include <vector>

#include "client/command/commands.h"

namespace nox::command {

/// What the command line asks for.
struct Invocation {
  enum class Kind { Run, Prompt, Help, Version };
  Kind kind = Kind::Prompt;
  const CommandSpec* command = nullptr;  // of Run, and of the help of one subcommand
  Arguments common;
  Arguments arguments;
  std::string script;  // of a prompt: the file with its statements
  bool echo = false;   // and whether they are printed
};

/// `words` without the program's name. Common options stand before or behind the subcommand's name.
/// Throws UsageError.
Invocation parseCommandLine(const std::vector<std::string>& words);

/// A subcommand as it is given at the prompt: its name and what follows.
struct PromptInvocation {
  const CommandSpec* command = nullptr;
  Arguments arguments;
};
PromptInvocation parsePromptCommand(const std::vector<std::string>& words);

/// The text of --help: of the whole, or of one subcommand.
std::string helpText(const CommandSpec* command);

}  // namespace nox::command
