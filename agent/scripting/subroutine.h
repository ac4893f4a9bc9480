// Subroutines: Lua programs of an account, run in the caller's session and with its rights.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/scripting/argument.h"
#include "agent/session/program.h"

namespace nox::agent {

class Session;

/// A subroutine that is running or has run.
class Subroutine : public Program {
public:
  /// The parameters as it left them.
  virtual const std::vector<Argument>& arguments() const = 0;
  /// Whether it ended itself with nox.abort().
  virtual bool aborted() const = 0;
};

/// Whether the account has a subroutine of this name, and its text compiles. Throws Failure IE/004.
void checkSubroutine(Session& session, std::string_view name);

/// Loads it. Throws Failure IE/004 where there is none; running it throws IE/003 with the error's
/// text. `mayPrompt`: whether nox.input() is allowed. `finish` is the caller's to override by
/// wrapping; of itself it answers nothing.
std::unique_ptr<Subroutine> makeSubroutine(Session& session, std::string_view name,
                                           std::vector<Argument> arguments, bool mayPrompt);

/// The value of a dictionary's expression for one record: it sees `id` and `record`, and of `nox`
/// what works on texts. Compiled once. Throws Failure IE/011 with the error's text, also where it
/// takes more than some million steps for a record.
class Expression {
public:
  virtual ~Expression() = default;
  /// nil is empty, true and false are 1 and 0.
  virtual std::string evaluate(std::string_view id, std::string_view record) = 0;
};
std::unique_ptr<Expression> makeExpression(Session& session, std::string_view expression);

}  // namespace nox::agent
