// The subcommands: what each is called, takes and does, in one table. The parser, the help, the man
// page and the completions of the shells are made from it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace nox::command {

class Context;

/// What an argument names, for completion.
enum class Names { Nothing, LocalFile, Choice };

struct OptionSpec {
  const char* name;      // "--format"
  const char* letter;    // "-f", or ""
  const char* argument;  // "FORMAT"; "" for a flag
  const char* help;      // a phrase without a full stop
  std::vector<std::string> choices = {};
  Names names = Names::Nothing;
  bool repeated = false;
};

struct ArgumentSpec {
  const char* name;  // "ID"
  const char* help;
  bool required = true;
  bool repeated = false;
  std::vector<std::string> choices = {};
  Names names = Names::Nothing;
};

/// What the user gave for one subcommand: options by name, arguments by name.
class Arguments {
public:
  bool has(std::string_view name) const { return values_.count(std::string(name)) > 0; }
  /// The value, or the first one; `otherwise` where there is none.
  std::string get(std::string_view name, std::string_view otherwise = {}) const;
  const std::vector<std::string>& all(std::string_view name) const;
  void add(const std::string& name, std::string value) {
    values_[name].push_back(std::move(value));
  }
  void set(const std::string& name, std::string value) { values_[name] = {std::move(value)}; }

private:
  std::map<std::string, std::vector<std::string>> values_;
};

/// Exit statuses of the command.
enum Exit {
  kDone = 0,
  kRefused = 1,       // the server refused a request, or the input or output was no good
  kUsage = 2,         // the command line is wrong
  kNoConnection = 3,  // no connection, or no login
  kInterrupted = 4
};

struct CommandSpec {
  const char* name;
  const char* summary;      // a phrase without a full stop
  const char* description;  // sentences; paragraphs divided by a blank line
  std::vector<ArgumentSpec> arguments;
  std::vector<OptionSpec> options;
  /// Returns an exit status. Throws what Context's functions throw.
  int (*run)(Context& context, const Arguments& arguments);
  bool connects = true;     // else it needs no server
  bool promptOnly = false;  // lives in a session: `\begin` at the prompt
};

/// Options that every subcommand takes.
const std::vector<OptionSpec>& commonOptions();
/// Options of the whole command: they belong to no session.
const std::vector<OptionSpec>& programOptions();
/// In the order of the help.
const std::vector<CommandSpec>& commands();
/// Null where there is none.
const CommandSpec* findCommand(std::string_view name);

// One per subcommand, in the files under run/.
int runPing(Context&, const Arguments&);
int runLogin(Context&, const Arguments&);
int runFiles(Context&, const Arguments&);
int runCreateFile(Context&, const Arguments&);
int runRead(Context&, const Arguments&);
int runWrite(Context&, const Arguments&);
int runDelete(Context&, const Arguments&);
int runExists(Context&, const Arguments&);
int runSelect(Context&, const Arguments&);
int runSql(Context&, const Arguments&);
int runRun(Context&, const Arguments&);
int runCall(Context&, const Arguments&);
int runConv(Context&, const Arguments&);
int runLoad(Context&, const Arguments&);
int runExport(Context&, const Arguments&);
int runXa(Context&, const Arguments&);
int runMonitor(Context&, const Arguments&);
int runDump(Context&, const Arguments&);
int runEncode(Context&, const Arguments&);
int runBench(Context&, const Arguments&);
int runBegin(Context&, const Arguments&);
int runCommit(Context&, const Arguments&);
int runRollback(Context&, const Arguments&);
int runRelease(Context&, const Arguments&);
int runSet(Context&, const Arguments&);

}  // namespace nox::command
