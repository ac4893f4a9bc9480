// The prompt, and scripts: statements that share one session.
#pragma once

#include <string>

namespace nox::command {

class Context;

/// Reads statements from the terminal with a prompt, until \q or the end of input. An error is
/// reported and the next statement read. Returns an exit status: that of a connection that cannot
/// be made, kInterrupted after two Ctrl-C in a row, else kDone.
int runPrompt(Context& context);

/// Reads statements from a file, or standard input for "-". The first error ends the script with
/// its status.
int runScript(Context& context, const std::string& path, bool echo);

}  // namespace nox::command
