// Program: a command or a subroutine that may stop for input and go on later.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nox::agent {

class Reply;

/// Runs in the session's thread. Programs nest: a subroutine may execute a command that calls
/// another; when the innermost asks for input, all of them stand still until it comes.
class Program {
public:
  enum class State {
    Done,
    WantsInput,
    WantsHiddenInput  // that a client must not show
  };

  /// Drops what is unfinished. Never rolls anything back: that is the session's to do.
  virtual ~Program() = default;
  /// Runs until the program is done or wants input; `input` answers the last prompt and is absent
  /// the first time. Throws Failure, after which the program is over.
  virtual State run(std::optional<std::string_view> input) = 0;
  /// What was printed since the last call, the prompt included, with an attribute mark between
  /// lines.
  virtual std::string takeOutput() = 0;
  /// Answers the request that finished the program.
  virtual void finish(Reply& reply) = 0;
};

}  // namespace nox::agent
