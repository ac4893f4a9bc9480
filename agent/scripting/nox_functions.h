// What scripts find in the table `nox`.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "agent/scripting/lua_machine.h"

namespace nox::agent {

struct SelectedKeys;

/// What a subroutine does for the functions that its script calls.
class ScriptHost : public LuaMachine::Owner {
public:
  /// Adds a line to the output. Throws ScriptError when there is too much of it.
  virtual void print(std::string_view line) = 0;
  /// Throws ScriptError where the caller of the subroutine cannot answer.
  virtual void checkMayPrompt() const = 0;
  /// Starts a command, or continues it with input; whether it is done.
  enum class Step { Done, WantsInput, WantsHiddenInput };
  virtual Step execute(std::string_view line) = 0;
  virtual Step continueExecution(std::string_view input) = 0;
  /// Drops the command that runs.
  virtual void dropExecution() noexcept = 0;
  /// Of the command that was done last: all that it printed, and its code. Taken once.
  struct Executed {
    std::string output;
    int code = 0;
  };
  virtual Executed takeExecuted() = 0;
  /// Keeps the keys of a file for an iterator. Throws ScriptError when there are too many of them.
  virtual std::int64_t keepKeys(std::string_view file) = 0;
  /// The next one; nothing at the end.
  virtual std::optional<std::string_view> nextKey(std::int64_t handle) = 0;
};

/// Marks, conversions: what works on texts alone.
void addTextFunctions(LuaMachine& machine);

/// All the rest. The machine's owner must be a ScriptHost.
void addSessionFunctions(LuaMachine& machine);

}  // namespace nox::agent
