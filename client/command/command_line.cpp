#include "client/command/command_line.h"

#include <getopt.h>

#include <algorithm>

#include "client/command/context.h"

namespace nox::command {

namespace {

constexpr std::size_t kHelpColumn = 28;
constexpr std::size_t kHelpWidth = 96;

std::string optionNames(const OptionSpec& option) {
  std::string names = option.name;
  if (*option.letter != '\0') names = std::string(option.letter) + "," + names;
  return names;
}

/// "table, csv or raw".
std::string alternatives(const std::vector<std::string>& choices) {
  std::string text;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (i > 0) text += i + 1 == choices.size() ? " or " : ", ";
    text += choices[i];
  }
  return text;
}

/// What is wrong with `value` for whoever takes only `choices`; empty where nothing is.
std::string complaint(const std::string& name, const std::vector<std::string>& choices,
                      const std::string& value) {
  if (choices.empty() || std::find(choices.begin(), choices.end(), value) != choices.end()) {
    return "";
  }
  return name + ": " + alternatives(choices) + " was expected, not \"" + value + "\"";
}

/// Takes the options out of a line of words with getopt_long, and hands the others on as they
/// stand. What is wrong is kept until all words were seen: help may be asked for behind it. One
/// thread at a time, since getopt keeps its place in variables of the process.
class WordReader {
public:
  void know(const std::vector<OptionSpec>& options, Arguments& to) {
    for (const OptionSpec& option : options) known_.push_back({&option, &to});
  }

  /// `other` is told each word that belongs to no option, and may make further options known.
  template <class Other>
  void read(const std::vector<std::string>& words, Other other) {
    auto word = words.begin();
    while (word != words.end()) {
      bool literal = false;  // behind "--"
      word += readOptions({word, words.end()}, literal);
      if (literal) return (void)std::for_each(word, words.end(), other);
      if (word != words.end()) other(*word++);
    }
  }

  void fail(const std::string& why) {
    if (problem_.empty()) problem_ = why;
  }
  /// Throws UsageError where something was wrong.
  void check() const {
    if (!problem_.empty()) throw UsageError(problem_);
  }

private:
  struct Known {
    const OptionSpec* option;
    Arguments* to;
  };
  static constexpr int kFirstLong = 256;  // behind all letters

  /// The options that `words` begin with. Returns how many words they are, a "--" behind them
  /// included.
  int readOptions(std::vector<std::string> words, bool& literal) {
    std::vector<char*> line = {program_.data()};
    for (std::string& word : words) line.push_back(word.data());
    line.push_back(nullptr);
    std::string letters = "+:";  // stops at the first other word; tells what lacks its value
    std::vector<option> names;
    for (const Known& known : known_) {
      const bool isFlag = *known.option->argument == '\0';
      const int value = kFirstLong + static_cast<int>(names.size());
      names.push_back(
          {known.option->name + 2, isFlag ? no_argument : required_argument, nullptr, value});
      if (*known.option->letter == '\0') continue;
      letters += known.option->letter[1];
      if (!isFlag) letters += ':';
    }
    names.push_back({});

    opterr = 0;
    optind = 0;  // begins anew
    for (int at = 1;; at = std::max(optind, 1)) {
      const int code = getopt_long(static_cast<int>(words.size()) + 1, line.data(), letters.c_str(),
                                   names.data(), nullptr);
      if (code == -1) {
        literal = optind > at;
        return optind - 1;
      }
      note(code, line[static_cast<std::size_t>(at)]);
    }
  }

  void note(int code, const std::string& word) {
    const bool isBad = code == '?' || code == ':';
    const Known* const known = find(isBad ? optopt : code);
    const bool isLong = word.compare(0, 2, "--") == 0;
    const std::string given = isLong ? word.substr(0, word.find('=')) : word;
    // It takes the beginning of a name for the whole.
    if (!known || (isLong && given != known->option->name)) {
      return fail("there is no option " + given + "; behind -- words are no options");
    }
    const std::string name = known->option->name;
    if (code == '?') return fail(name + " takes no value");
    if (code == ':') return fail(name + " needs " + known->option->argument);
    if (*known->option->argument == '\0') return known->to->set(name, "");
    if (!known->option->repeated && known->to->has(name)) return fail(name + " is given twice");
    const std::string why = complaint(name, known->option->choices, optarg);
    if (!why.empty()) return fail(why);
    known->to->add(name, optarg);
  }

  /// By what getopt_long returns.
  const Known* find(int code) const {
    for (std::size_t i = 0; i < known_.size(); ++i) {
      const char* const letter = known_[i].option->letter;
      const bool isLetter = *letter != '\0' && code == static_cast<unsigned char>(letter[1]);
      if (isLetter || code == kFirstLong + static_cast<int>(i)) return &known_[i];
    }
    return nullptr;
  }

  std::string program_ = "nox";
  std::vector<Known> known_;
  std::string problem_;
};

/// Gives the words the names of the arguments in whose places they stand. Throws UsageError.
void assign(const CommandSpec& command, const std::vector<std::string>& words, Arguments& to) {
  auto word = words.begin();
  for (const ArgumentSpec& argument : command.arguments) {
    if (word == words.end()) {
      if (!argument.required) continue;
      throw UsageError(std::string(command.name) + " needs " + argument.name);
    }
    const auto end = argument.repeated ? words.end() : word + 1;
    for (; word != end; ++word) {
      const std::string why = complaint(argument.name, argument.choices, *word);
      if (!why.empty()) throw UsageError(why);
      to.add(argument.name, *word);
    }
  }
  if (word != words.end()) {
    throw UsageError("\"" + *word + "\" is more than " + command.name + " takes");
  }
}

void addWrapped(std::string& text, const std::string& words, std::size_t indent,
                std::size_t column) {
  std::size_t begin = 0;
  bool first = true;
  while (begin < words.size()) {
    std::size_t end = std::min(words.find(' ', begin), words.size());
    const std::string word = words.substr(begin, end - begin);
    if (!first && column + 1 + word.size() > kHelpWidth) {
      text += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (!first) {
      text += ' ';
      ++column;
    }
    text += word;
    column += word.size();
    first = false;
    begin = end + 1;
  }
  text += '\n';
}

void addEntry(std::string& text, const std::string& name, const std::string& what) {
  std::string line = "  " + name;
  if (line.size() + 2 > kHelpColumn) {
    text += line + "\n" + std::string(kHelpColumn, ' ');
  } else {
    line.resize(kHelpColumn, ' ');
    text += line;
  }
  addWrapped(text, what, kHelpColumn, kHelpColumn);
}

std::string withChoices(std::string what, const std::vector<std::string>& choices) {
  if (choices.empty()) return what;
  what += " (";
  for (const std::string& choice : choices) {
    if (what.back() != '(') what += ", ";
    what += choice;
  }
  return what + ")";
}

void addOptions(std::string& text, const std::vector<OptionSpec>& options) {
  for (const OptionSpec& option : options) {
    std::string name = optionNames(option);
    if (*option.letter == '\0') name.insert(0, "    ");
    if (*option.argument != '\0') name += std::string(" ") + option.argument;
    addEntry(text, name, withChoices(option.help, option.choices));
  }
}

std::string synopsis(const CommandSpec& command) {
  std::string text = std::string("nox ") + command.name;
  if (!command.options.empty()) text += " [OPTION...]";
  for (const ArgumentSpec& argument : command.arguments) {
    std::string name = argument.name;
    if (argument.repeated) name += "...";
    text += argument.required ? " " + name : " [" + name + "]";
  }
  return text;
}

}  // namespace

Invocation parseCommandLine(const std::vector<std::string>& words) {
  Invocation invocation;
  Arguments program;
  WordReader reader;
  reader.know(commonOptions(), invocation.common);
  reader.know(programOptions(), program);
  std::vector<std::string> others;
  bool named = false;
  reader.read(words, [&](const std::string& word) {
    if (named) return others.push_back(word);
    named = true;
    const CommandSpec* const command = findCommand(word);
    if (!command) return reader.fail("there is no subcommand \"" + word + "\"");
    if (command->promptOnly) return reader.fail(word + " is for the prompt and for scripts alone");
    invocation.command = command;
    reader.know(command->options, invocation.arguments);
  });
  if (program.has("--help")) {
    invocation.kind = Invocation::Kind::Help;
    return invocation;
  }
  reader.check();
  if (program.has("--version")) {
    invocation.kind = Invocation::Kind::Version;
    return invocation;
  }
  invocation.script = program.get("--script");
  invocation.echo = program.has("--echo");
  if (invocation.command) {
    if (program.has("--script")) {
      throw UsageError("--script and a subcommand exclude each other");
    }
    assign(*invocation.command, others, invocation.arguments);
    invocation.kind = Invocation::Kind::Run;
  }
  return invocation;
}

PromptInvocation parsePromptCommand(const std::vector<std::string>& words) {
  PromptInvocation invocation;
  const CommandSpec* const command = words.empty() ? nullptr : findCommand(words[0]);
  if (!command) throw UsageError("there is no \\" + (words.empty() ? "" : words[0]));
  WordReader reader;
  reader.know(command->options, invocation.arguments);
  std::vector<std::string> others;
  reader.read({words.begin() + 1, words.end()},
              [&](const std::string& word) { others.push_back(word); });
  reader.check();
  assign(*command, others, invocation.arguments);
  invocation.command = command;
  return invocation;
}

std::string helpText(const CommandSpec* command) {
  std::string text;
  if (command) {
    text = "Usage: " + synopsis(*command) + "\n\n";
    std::string description = command->description;
    for (std::size_t begin = 0; begin < description.size();) {
      const std::size_t end = std::min(description.find("\n\n", begin), description.size());
      addWrapped(text, description.substr(begin, end - begin), 0, 0);
      text += '\n';
      begin = end + 2;
    }
    if (!command->arguments.empty()) {
      text += "Arguments:\n";
      for (const ArgumentSpec& argument : command->arguments) {
        addEntry(text, argument.name, withChoices(argument.help, argument.choices));
      }
      text += '\n';
    }
    if (!command->options.empty()) {
      text += "Options:\n";
      addOptions(text, command->options);
      text += '\n';
    }
    return text + "Options for the connection and the output: nox --help\n";
  }
  text =
      "Usage: nox [OPTION...] SUBCOMMAND ...\n"
      "       nox [OPTION...] [--script FILE]    a prompt, or the statements of a script\n"
      "\n"
      "Speaks to noxd, an agent for MultiValue data.\n"
      "\n"
      "Subcommands (nox SUBCOMMAND --help says more):\n";
  for (const CommandSpec& each : commands()) {
    if (!each.promptOnly) addEntry(text, each.name, each.summary);
  }
  text += "\nOptions:\n";
  addOptions(text, commonOptions());
  addOptions(text, programOptions());
  text +=
      "\n"
      "The environment: NOX_URI, NOX_HOST, NOX_PORT, NOX_USER, NOX_ACCOUNT, NOX_PASSWORD_FILE,\n"
      "NOX_TLS, NOX_CA and more, as the man page says; NO_COLOR.\n"
      "\n"
      "Exit status: 0 done, 1 refused, 2 wrong usage, 3 no connection or login, 4 interrupted.\n";
  return text;
}

}  // namespace nox::command
