// nox, the command-line client of noxd.
#include <fcntl.h>
#include <langinfo.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "client/command/command_line.h"
#include "client/command/context.h"
#include "client/command/documents.h"
#include "client/command/interrupt.h"
#include "client/command/output/output.h"
#include "client/command/prompt/prompt.h"

namespace nox::command {

namespace {

/// A standard stream that is closed would become the number of the connection's socket, and what is
/// printed would go to the server. Here it becomes one on which everything fails.
void openStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

/// On standard output. Throws OutputError.
void print(const std::string& text) {
  Output out(STDOUT_FILENO);
  out.write(text);
  out.flush();
}

int runIn(Context& context, const Invocation& invocation) {
  if (invocation.kind == Invocation::Kind::Run) {
    return guarded(context, [&] { return invocation.command->run(context, invocation.arguments); });
  }
  if (!invocation.script.empty()) return runScript(context, invocation.script, invocation.echo);
  if (isatty(STDIN_FILENO) == 1) return runPrompt(context);
  return runScript(context, "-", invocation.echo);
}

int runInvocation(const Invocation& invocation) {
  if (invocation.kind == Invocation::Kind::Help) {
    print(helpText(invocation.command));
    return kDone;
  }
  if (invocation.kind == Invocation::Kind::Version) {
    print(std::string("nox ") + version() + "\n");
    return kDone;
  }
  Context context(invocation.common);
  const int status = runIn(context, invocation);
  if (status != kDone) return status;
  return guarded(context, [&] {
    context.out().finish();
    return status;
  });
}

int run(const std::vector<std::string>& words) {
  try {
    // For packages and tests: documents that are made from the table of subcommands.
    if (words.size() == 2 && words[0] == "--print-document") return printDocument(words[1]);
    return runInvocation(parseCommandLine(words));
  } catch (const UsageError& error) {
    std::fprintf(stderr, "nox: %s\nnox --help says how it is used.\n", error.what());
    return kUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "nox: %s\n", error.what());
    return kRefused;
  }
}

}  // namespace

}  // namespace nox::command

int main(int argc, char** argv) {
  nox::command::openStandardStreams();
  // Which bytes are characters, for the line that is typed. Numbers never follow the locale.
  std::setlocale(LC_CTYPE, "");
  // What the server takes and gives is UTF-8 anyway; LC_ALL=C says nothing about the terminal.
  if (std::string_view(nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
  nox::command::Interrupt::install();
  return nox::command::run(std::vector<std::string>(argv + 1, argv + argc));
}
