// Subroutines: Lua programs of an account, run in the caller's session and with its rights.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/session/program.h"

namespace nox::agent {

class Session;

/// A parameter: bytes, or nothing for null.
using Argument = std::optional<std::string>;

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

/// The value of a dictionary's expression for one record: `expression` sees `id` and `record`.
/// Compiled once. Throws Failure IE/011 with the error's text.
class Expression {
public:
  virtual ~Expression() = default;
  virtual std::string evaluate(std::string_view id, std::string_view record) = 0;
};
std::unique_ptr<Expression> makeExpression(Session& session, std::string_view expression);

}  // namespace nox::agent
