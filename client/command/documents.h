// The man page and the completions of shells, made from the table of subcommands.
#pragma once

#include <string>

namespace nox::command {

/// Of the command: "1.0.0".
const char* version();

/// In the language of man.
std::string manPage();
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

/// Prints "man", "bash", "zsh" or "fish" to standard output; an exit status.
int printDocument(const std::string& name);

}  // namespace nox::command
