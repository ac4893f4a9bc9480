#include "client/command/command_line.h"

#include <CLI/CLI.hpp>
#include <memory>

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

void addOption(CLI::App& app, const OptionSpec& option, Arguments& to) {
  const std::string name = option.name;
  if (*option.argument == '\0') {
    app.add_flag_callback(optionNames(option), [&to, name] { to.set(name, ""); });
    return;
  }
  CLI::Option* const added = app.add_option_function<std::vector<std::string>>(
      optionNames(option), [&to, name](const std::vector<std::string>& values) {
        for (const std::string& value : values) to.add(name, value);
      });
  added->expected(1)->allow_extra_args(false);
  if (option.repeated) {
    added->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  } else {
    added->multi_option_policy(CLI::MultiOptionPolicy::Throw);
  }
  if (!option.choices.empty()) added->check(CLI::IsMember(option.choices));
}

void addArgument(CLI::App& app, const ArgumentSpec& argument, Arguments& to) {
  const std::string name = argument.name;
  // CLI11 wants names of letters; they are seen by nobody.
  static int number = 0;
  CLI::Option* const added = app.add_option_function<std::vector<std::string>>(
      "argument" + std::to_string(++number), [&to, name](const std::vector<std::string>& values) {
        for (const std::string& value : values) to.add(name, value);
      });
  added->option_text(name);
  if (argument.repeated) {
    added->expected(1, CLI::detail::expected_max_vector_size);
  } else {
    added->expected(1)->allow_extra_args(false);
  }
  if (argument.required) added->required();
  if (!argument.choices.empty()) added->check(CLI::IsMember(argument.choices));
}

void addAll(CLI::App& app, const CommandSpec& command, Arguments& to) {
  for (const OptionSpec& option : command.options) addOption(app, option, to);
  for (const ArgumentSpec& argument : command.arguments) addArgument(app, argument, to);
}

/// CLI11 takes the words in reverse.
void parse(CLI::App& app, const std::vector<std::string>& words) {
  std::vector<std::string> reversed(words.rbegin(), words.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
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
  CLI::App app;
  app.set_help_flag();
  app.fallthrough();
  app.require_subcommand(0, 1);
  bool help = false;
  bool version = false;
  app.add_flag("-h,--help", help);
  app.add_flag("--version", version);
  app.add_option("--script", invocation.script);
  app.add_flag("--echo", invocation.echo);
  for (const OptionSpec& option : commonOptions()) addOption(app, option, invocation.common);
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    CLI::App* const sub = app.add_subcommand(command.name);
    sub->set_help_flag();
    addAll(*sub, command, invocation.arguments);
    // Help is wanted although an argument is missing.
    sub->final_callback([&invocation, &command] { invocation.command = &command; });
  }
  for (const std::string& word : words) {
    if (word == "--") break;
    help = help || word == "--help" || word == "-h";
  }
  if (help) {
    invocation.kind = Invocation::Kind::Help;
    for (const std::string& word : words) {
      const CommandSpec* const command = findCommand(word);
      if (!command || command->promptOnly) continue;
      invocation.command = command;
      break;
    }
    return invocation;
  }
  parse(app, words);
  if (version) {
    invocation.kind = Invocation::Kind::Version;
  } else if (invocation.command) {
    if (!invocation.script.empty())
      throw UsageError("--script and a subcommand exclude each other");
    invocation.kind = Invocation::Kind::Run;
  }
  return invocation;
}

PromptInvocation parsePromptCommand(const std::vector<std::string>& words) {
  PromptInvocation invocation;
  const CommandSpec* const command = words.empty() ? nullptr : findCommand(words[0]);
  if (!command) throw UsageError("there is no \\" + (words.empty() ? "" : words[0]));
  CLI::App app;
  app.set_help_flag();
  addAll(app, *command, invocation.arguments);
  parse(app, {words.begin() + 1, words.end()});
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
  addEntry(text, "    --script FILE", "run the statements of a file; \"-\" is standard input");
  addEntry(text, "    --echo", "print the statements of a script before what they give");
  addEntry(text, "-h,--help", "this text, or that of a subcommand");
  addEntry(text, "    --version", "the version");
  text +=
      "\n"
      "The environment: NOX_URI, NOX_HOST, NOX_PORT, NOX_USER, NOX_ACCOUNT, NOX_PASSWORD_FILE,\n"
      "NOX_TLS, NOX_CA and more, as the man page says; NO_COLOR.\n"
      "\n"
      "Exit status: 0 done, 1 refused, 2 wrong usage, 3 no connection or login, 4 interrupted.\n";
  return text;
}

}  // namespace nox::command
