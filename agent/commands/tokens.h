// The words of a command line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/commands/grammar.h"

namespace nox::agent {

struct Token {
  enum class Kind {
    Plain,   // WITH
    Id,      // 'in single quotes'
    Text,    // "in double quotes"
    Nothing  // behind the last
  };
  Kind kind = Kind::Nothing;
  Word word;  // without the quotes
};

/// Splits at blanks; a quote at the beginning of a word encloses it. The last token is Nothing.
/// Throws Failure IE/011 for a quote that is not closed, and for a line that is no line of text.
std::vector<Token> tokensOf(std::string_view line);

}  // namespace nox::agent
