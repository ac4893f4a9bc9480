#include "client/command/prompt/prompt.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>

#include "client/command/command_line.h"
#include "client/command/context.h"
#include "client/command/dictionary.h"
#include "client/command/interrupt.h"
#include "client/command/load/record_reader.h"
#include "client/command/prompt/line_editor.h"
#include "client/command/prompt/statements.h"

namespace nox::command {

namespace {

constexpr const char* kHelp =
    "A line is a command of the server (LIST PACKAGES WITH SIZE > 100); SQL ends with a semicolon\n"
    "at the end of a line and may take several lines. SELECT and one word are a command where "
    "there\n"
    "is a file of that name. Lines with a backslash are nox's own:\n"
    "\n"
    "  \\q              leave\n"
    "  \\?              this text; \\? NAME tells about one of the words below\n"
    "  \\x              values below each other, or in columns again\n"
    "  \\format FORMAT  how rows are printed: table, expanded, csv, tsv, json, jsonl, raw\n"
    "  \\timing         tell how long each statement took, or no longer\n"
    "\n"
    "and the subcommands, in this session:\n"
    "\n";

/// Names from the server, asked for once and again after a statement that may change them.
class ServerNames : public NameSource {
public:
  explicit ServerNames(Context& context) : context_(context) {}

  void forget() {
    files_.reset();
    tables_.reset();
    items_.clear();
    columns_.clear();
  }

  std::vector<std::string> files() override {
    if (!files_) {
      files_ = ask([](client::Connection& connection) { return filesOf(connection); });
    }
    return *files_;
  }
  std::vector<std::string> items(const std::string& file) override {
    const auto [known, isNew] = items_.try_emplace(file);
    if (isNew) {
      known->second = ask([&](client::Connection& connection) {
        std::vector<std::string> names;
        for (const DictionaryItem& item : dictionaryOf(connection, file))
          names.push_back(item.name);
        return names;
      });
    }
    return known->second;
  }
  std::vector<std::string> tables() override {
    if (!tables_) {
      tables_ = ask([](client::Connection& connection) {
        std::vector<std::string> names;
        for (const client::Row& row : connection.catalog(client::Catalog::Tables)) {
          names.emplace_back(row["TABLE_NAME"].textOr(""));
        }
        return names;
      });
    }
    return *tables_;
  }
  std::vector<std::string> columns(const std::string& table) override {
    const auto [known, isNew] = columns_.try_emplace(table);
    if (isNew) {
      known->second = ask([&](client::Connection& connection) {
        std::vector<std::string> names;
        for (const client::Row& row : connection.catalog(client::Catalog::Columns, {table})) {
          names.emplace_back(row["COLUMN_NAME"].textOr(""));
        }
        return names;
      });
    }
    return known->second;
  }

private:
  /// Completion fails silently: what is typed goes on.
  template <class Question>
  std::vector<std::string> ask(Question question) {
    try {
      if (context_.isConnected()) return question(context_.connection());
    } catch (const std::exception&) {
    }
    return {};
  }

  Context& context_;
  std::optional<std::vector<std::string>> files_;
  std::optional<std::vector<std::string>> tables_;
  std::map<std::string, std::vector<std::string>> items_;
  std::map<std::string, std::vector<std::string>> columns_;
};

/// The reader of an Interpreter's statements. Asks the server where a statement may be either.
StatementReader readerFor(Context& context) {
  return StatementReader([&context](const std::string& name) {
    try {
      return isOneOf(filesOf(context.connection()), name);
    } catch (const std::exception&) {
      return true;  // it is run at once, then, and tells what is wrong
    }
  });
}

/// What statements do, typed or from a script.
class Interpreter {
public:
  explicit Interpreter(Context& context) : context_(context) {}

  bool isOver() const { return over_; }

  int run(const Statement& statement) {
    const auto start = std::chrono::steady_clock::now();
    const int status = guarded(context_, [&] { return dispatch(statement); });
    guarded(context_, [&] {
      context_.out().flush();
      return kDone;
    });
    if (timing_ && !over_) {
      const std::chrono::duration<double, std::milli> took =
          std::chrono::steady_clock::now() - start;
      std::fprintf(stderr, "Time: %.3f ms\n", took.count());
    }
    return status;
  }

private:
  int dispatch(const Statement& statement) {
    Arguments arguments;
    switch (statement.kind) {
      case Statement::Kind::Sql:
        arguments.set("STATEMENT", statement.text);
        return runSql(context_, arguments);
      case Statement::Kind::Command:
        arguments.set("COMMAND", statement.text);
        return runRun(context_, arguments);
      case Statement::Kind::Meta:
        break;
    }
    const std::vector<std::string> words = splitWords(statement.text);
    if (words.empty()) throw UsageError("a word was expected behind the backslash; \\? helps");
    if (words[0] == "q") {
      over_ = true;
    } else if (words[0] == "?") {
      help(words);
    } else if (words[0] == "x") {
      if (context_.format() == Format::Expanded) {
        context_.setFormat(inColumns_);
      } else {
        choose(Format::Expanded);
      }
    } else if (words[0] == "timing") {
      timing_ = !timing_;
    } else if (words[0] == "format") {
      const auto format = words.size() == 2 ? parseFormat(words[1]) : std::nullopt;
      if (!format) throw UsageError("\\format takes one of the formats; \\? lists them");
      choose(*format);
    } else {
      const PromptInvocation invocation = parsePromptCommand(words);
      return invocation.command->run(context_, invocation.arguments);
    }
    return kDone;
  }

  void choose(Format format) {
    if (context_.format() != Format::Expanded) inColumns_ = context_.chosenFormat();
    context_.setFormat(format);
  }

  void help(const std::vector<std::string>& words) {
    if (words.size() > 1) {
      const CommandSpec* const command =
          findCommand(words[1][0] == '\\' ? words[1].substr(1) : words[1]);
      if (!command) throw UsageError("there is no \\" + words[1]);
      context_.out().write(helpText(command));
      return;
    }
    std::string text = kHelp;
    for (const CommandSpec& command : commands()) {
      std::string name = std::string("  \\") + command.name;
      name.resize(std::max<std::size_t>(name.size() + 1, 18), ' ');
      text += name + command.summary + "\n";
    }
    context_.out().write(text);
  }

  Context& context_;
  std::optional<Format> inColumns_;  // what was chosen before Expanded
  bool over_ = false;
  bool timing_ = false;
};

}  // namespace

int runPrompt(Context& context) {
  context.setSession();
  const int connected = guarded(context, [&] {
    client::Connection& connection = context.connection();
    std::printf("nox, connected to %s:%u. \\? helps, \\q leaves.\n", connection.host().name.c_str(),
                static_cast<unsigned int>(connection.host().port));
    std::fflush(stdout);
    return kDone;
  });
  if (connected != kDone) return connected;

  ServerNames names(context);
  StatementReader statements = readerFor(context);
  std::string open;  // SQL of the lines before
  LineEditor editor([&](const std::string& left, const std::string& right) {
    Completion completion = complete(open + left, right, names);
    completion.begin -= std::min(completion.begin, open.size());
    return completion;
  });
  Interpreter interpreter(context);
  bool interruptedBefore = false;
  while (!interpreter.isOver()) {
    const std::string account =
        context.isConnected() ? context.connection().account() : std::string();
    std::string prompt = account.empty() ? "nox" : account;
    if (context.transaction()) prompt += '*';
    prompt += statements.isOpen() ? "-> " : "=> ";
    std::string line;
    switch (editor.read(prompt, line)) {
      case LineEditor::Outcome::End:
        std::fputc('\n', stdout);
        return kDone;
      case LineEditor::Outcome::Interrupted:
        if (interruptedBefore) return kInterrupted;
        interruptedBefore = true;
        Interrupt::clear();
        statements.drop();
        open.clear();
        continue;
      case LineEditor::Outcome::Line:
        break;
    }
    interruptedBefore = false;
    const auto statement = statements.add(line);
    if (statements.isOpen()) {
      open += line + "\n";
      continue;
    }
    if (!statement) continue;
    editor.remember(open + line);
    open.clear();
    // Pressed behind the line's end: the statement was not meant after all.
    if (Interrupt::pressed()) {
      context.say("interrupted");
    } else {
      interpreter.run(*statement);
    }
    interruptedBefore = Interrupt::pressed();
    if (interruptedBefore) LineEditor::dropTyped();
    Interrupt::clear();
    names.forget();
  }
  return kDone;
}

int runScript(Context& context, const std::string& path, bool echo) {
  context.setSession();
  return guarded(context, [&] {
    LineReader lines(path);
    StatementReader statements = readerFor(context);
    Interpreter interpreter(context);
    std::string line;
    while (!interpreter.isOver() && lines.next(line)) {
      if (echo) context.out().write((statements.isOpen() ? "-> " : "=> ") + line + "\n");
      const auto statement = statements.add(line);
      if (!statement) continue;
      const int status = interpreter.run(*statement);
      if (status != kDone) {
        context.say("line " + std::to_string(lines.number()) + ": the script ends here");
        return status;
      }
    }
    if (statements.isOpen()) throw UsageError("the last statement has no semicolon");
    return static_cast<int>(kDone);
  });
}

}  // namespace nox::command
