#include "client/command/documents.h"

#include <cstdio>
#include <vector>

#include <nox/nox.h>

#include "client/command/commands.h"

namespace nox::command {

namespace {

std::vector<OptionSpec> globalOptions() {
  std::vector<OptionSpec> all = commonOptions();
  all.insert(all.end(), programOptions().begin(), programOptions().end());
  return all;
}

std::string joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return text;
}

// --- man -----------------------------------------------------------------------------------------

/// Text in which nothing is a request or an escape of roff.
std::string roff(const std::string& text) {
  std::string escaped;
  bool lineBegins = true;
  for (const char c : text) {
    if (lineBegins && (c == '.' || c == '\'')) escaped += "\\&";
    lineBegins = c == '\n';
    switch (c) {
      case '\\':
        escaped += "\\e";
        break;
      case '-':
        escaped += "\\-";
        break;
      case '^':
        escaped += "\\(ha";
        break;
      case '~':
        escaped += "\\(ti";
        break;
      case '`':
        escaped += "\\(ga";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string roffParagraphs(const std::string& text) {
  std::string result;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find("\n\n", begin), text.size());
    if (begin > 0) result += ".IP\n";
    result += roff(text.substr(begin, end - begin)) + "\n";
    begin = end + 2;
  }
  return result;
}

std::string roffOption(const OptionSpec& option) {
  std::string text = ".TP\n";
  if (*option.letter != '\0') text += "\\fB" + roff(option.letter) + "\\fR, ";
  text += "\\fB" + roff(option.name) + "\\fR";
  if (*option.argument != '\0') text += std::string(" \\fI") + roff(option.argument) + "\\fR";
  text += "\n" + roff(option.help);
  if (!option.choices.empty()) text += ": " + roff(joined(option.choices, ", "));
  return text + ".\n";
}

std::string roffSynopsis(const CommandSpec& command) {
  std::string text = std::string("\\fB") + roff(command.name) + "\\fR";
  if (!command.options.empty()) text += " [\\fIoption\\fR...]";
  for (const ArgumentSpec& argument : command.arguments) {
    std::string name = std::string("\\fI") + roff(argument.name) + "\\fR";
    if (argument.repeated) name += "...";
    text += argument.required ? " " + name : " [" + name + "]";
  }
  return text;
}

constexpr const char* kManPrompt = R"(.SH PROMPT
Without a subcommand, nox reads statements: from the terminal, with a prompt, or from standard
input or a script, where the first error ends the run with its status.
A line is a command of the server's command language.
SQL ends with a semicolon at the end of a line and may take several lines; SELECT and one word are a
command where there is a file of that name.
Lines that begin with a backslash are nox's own: the subcommands above, in the session of the
prompt, and
.TP
.B \eq
leave;
.TP
.B \e?
help;
.TP
.B \ex
values below each other, or in columns again;
.TP
.B \eformat \fIFORMAT\fR
how rows are printed;
.TP
.B \etiming
tell how long each statement took, or no longer.
.PP
The first Ctrl\-C cancels what is running, or drops the line that is typed; the second leaves.
The tabulator completes verbs, files, items of dictionaries, tables and columns.
.SH FORMATS
.TP
.B table
aligned columns; marks are shown as \(ha (attributes), ] (values) and \e (subvalues)
.TP
.B expanded
a line per value
.TP
.B csv
RFC 4180 with line feeds; null is nothing, an empty text is \(dq\(dq
.TP
.B tsv
tabs, with \et, \en, \er and \e\e escaped; null is \eN
.TP
.B json\fR, \fBjsonl
an array of objects, and an object per line; numbers of SQL are numbers, bytes that are no UTF\-8
are {\(dqbase64\(dq: \(dq...\(dq}
.TP
.B raw
the bytes; columns joined by attribute marks
.SH EXIT STATUS
.TP
0
done
.TP
1
a request was refused, something was not there, or input or output was no good
.TP
2
the command line is wrong
.TP
3
no connection, or no login
.TP
4
interrupted
.SH ENVIRONMENT
.TP
.B NOX_URI
where to connect; the options above change parts of it
.TP
.B NOX_HOST\fR, \fBNOX_PORT\fR, \fBNOX_USER\fR, \fBNOX_ACCOUNT
parts of it
.TP
.B NOX_PASSWORD_FILE
the file with the password, of mode 0600
.TP
.B NOX_TLS\fR, \fBNOX_TLS_NAME\fR, \fBNOX_CA\fR, \fBNOX_CERT\fR, \fBNOX_KEY
encryption: verify\-full, insecure\-no\-verify or off; the name to verify; PEM files
.TP
.B NOX_CONNECT_TIMEOUT\fR, \fBNOX_REQUEST_TIMEOUT
as 500ms, 10s, 2m
.TP
.B NOX_FETCH_SIZE\fR, \fBNOX_MAX_FRAME\fR, \fBNOX_CLIENT_NAME
rows per page, the longest answer, the name that monitoring shows
.TP
.B NOX_TRACE\fR, \fBNOX_TRACE_PAYLOAD
a file that gets a line per frame; 1 shows what frames say
.TP
.B NO_COLOR
no colours
.TP
.B XDG_STATE_HOME
where nox/history is kept
.SH FILES
.TP
.I \(ti/.local/state/nox/history
what was typed at the prompt, for its user alone; never a password
.SH SEE ALSO
.BR noxd (8)
)";

}  // namespace

const char* version() { return NOX_VERSION; }

std::string manPage() {
  std::string text = std::string(".TH NOX 1 \"\" \"nox ") + NOX_VERSION + "\"\n" +
                     R"(.SH NAME
nox \- command\-line client of noxd
.SH SYNOPSIS
.B nox
.RI [ option ...]
.I subcommand
\&...
.br
.B nox
.RI [ option ...]
.RB [ \-\-script
.IR file ]
.SH DESCRIPTION
Speaks to noxd, an agent for MultiValue data: reads and writes records, runs commands, SQL and
subroutines, loads and exports files, and shows what goes over the wire.
.PP
Standard output carries data only; everything else goes to standard error.
The password is read from a file, or asked for without echo; it never stands on the command line.
.SH OPTIONS
Options stand before or behind the name of the subcommand.
)";
  for (const OptionSpec& option : globalOptions()) text += roffOption(option);
  text += ".SH SUBCOMMANDS\n";
  for (const CommandSpec& command : commands()) {
    text += ".SS " + roffSynopsis(command) + "\n";
    if (command.promptOnly) text += "At the prompt and in scripts only. ";
    text += roffParagraphs(command.description);
    for (const OptionSpec& option : command.options) text += roffOption(option);
  }
  return text + kManPrompt;
}

// --- bash ----------------------------------------------------------------------------------------

std::string bashCompletion() {
  std::string names;
  std::string optionsOf;
  std::string choicesOf;
  std::string filesOf;
  std::string takeArgument;
  const auto addOption = [&](const std::string& command, const OptionSpec& option) {
    if (*option.argument == '\0') return;
    std::string key = command + ":" + option.name;
    takeArgument += " " + std::string(option.name);
    if (*option.letter != '\0') {
      key.append(" | ").append(command).append(":").append(option.letter);
      takeArgument += " " + std::string(option.letter);
    }
    if (!option.choices.empty()) {
      choicesOf += "    " + key + ") words='" + joined(option.choices, " ") + "' ;;\n";
    } else if (option.names == Names::LocalFile) {
      filesOf += (filesOf.empty() ? "" : " | ") + key;
    }
  };
  std::string global;
  for (const OptionSpec& option : globalOptions()) {
    global += std::string(global.empty() ? "" : " ") + option.name;
    addOption("*", option);
  }
  std::string argumentsOf;
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    names += (names.empty() ? "" : " ") + std::string(command.name);
    std::string own;
    for (const OptionSpec& option : command.options) {
      own += " " + std::string(option.name);
      addOption(command.name, option);
    }
    if (!own.empty()) {
      optionsOf += std::string("    ") + command.name + ") words+='" + own + "' ;;\n";
    }
    std::string words;
    bool files = false;
    for (const ArgumentSpec& argument : command.arguments) {
      if (!argument.choices.empty()) words = joined(argument.choices, " ");
      files = files || argument.names == Names::LocalFile;
    }
    if (!words.empty()) {
      argumentsOf += std::string("    ") + command.name + ") words='" + words + "' ;;\n";
    } else if (files) {
      argumentsOf += std::string("    ") + command.name + ") files=yes ;;\n";
    }
  }
  return "# bash completion of nox; made from its table of subcommands\n"
         "_nox() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local command='' words='' files='' i word skip=''\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    word=${COMP_WORDS[i]}\n"
         "    if [ -n \"$skip\" ]; then skip=''; continue; fi\n"
         "    case \" " +
         takeArgument +
         " \" in *\" $word \"*) skip=yes; continue ;; esac\n"
         "    case $word in -*) continue ;; esac\n"
         "    command=$word\n"
         "    break\n"
         "  done\n"
         "  case $command:$previous in\n"
         "    " +
         (filesOf.empty() ? std::string("nothing") : filesOf) + ") files=yes ;;\n" + choicesOf +
         "  esac\n"
         "  if [ -z \"$words$files\" ]; then\n"
         "    case $current in\n"
         "      -*)\n"
         "        words='" +
         global +
         "'\n"
         "        case $command in\n" +
         optionsOf +
         "        esac ;;\n"
         "      *)\n"
         "        if [ -z \"$command\" ]; then\n"
         "          words='" +
         names +
         "'\n"
         "        else\n"
         "          case $command in\n" +
         argumentsOf +
         "          esac\n"
         "        fi ;;\n"
         "    esac\n"
         "  fi\n"
         "  if [ -n \"$files\" ]; then\n"
         "    # A folder gets its slash and no blank; a subcommand of a folder's name is none.\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -F _nox nox\n";
}

// --- zsh -----------------------------------------------------------------------------------------

namespace {

/// Inside single quotes, and inside the brackets of _arguments.
std::string zshText(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\'') {
      escaped += "'\\''";
    } else {
      if (c == '[' || c == ']' || c == ':' || c == '\\') escaped += '\\';
      escaped += c;
    }
  }
  return escaped;
}

std::string zshOption(const OptionSpec& option) {
  std::string tail = std::string("[") + zshText(option.help) + "]";
  if (*option.argument != '\0') {
    tail += std::string(":") + zshText(option.argument) + ":";
    if (!option.choices.empty()) {
      tail += "(" + joined(option.choices, " ") + ")";
    } else if (option.names == Names::LocalFile) {
      tail += "_files";
    }
  }
  const std::string many = option.repeated ? "*" : "";
  std::string text = "    '" + many + option.name + tail + "'";
  if (*option.letter != '\0') text += " \\\n    '" + many + option.letter + tail + "'";
  return text;
}

std::string zshArgument(const ArgumentSpec& argument) {
  std::string text = argument.repeated ? "    '*:" : argument.required ? "    ':" : "    '::";
  text += zshText(argument.name) + ":";
  if (!argument.choices.empty()) {
    text += "(" + joined(argument.choices, " ") + ")";
  } else if (argument.names == Names::LocalFile) {
    text += "_files";
  }
  return text + "'";
}

}  // namespace

std::string zshCompletion() {
  std::string text =
      "#compdef nox\n"
      "# zsh completion of nox; made from its table of subcommands\n"
      "_nox() {\n"
      "  local context state line\n"
      "  typeset -A opt_args\n"
      "  local -a common commands\n"
      "  common=(\n";
  for (const OptionSpec& option : globalOptions()) text += zshOption(option) + "\n";
  text += "  )\n  commands=(\n";
  for (const CommandSpec& command : commands()) {
    if (!command.promptOnly) {
      text += std::string("    '") + command.name + ":" + zshText(command.summary) + "'\n";
    }
  }
  text +=
      "  )\n"
      "  _arguments -C $common '1:subcommand:->command' '*::argument:->argument'\n"
      "  case $state in\n"
      "    command) _describe subcommand commands ;;\n"
      "    argument)\n"
      "      case $line[1] in\n";
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    text += std::string("        ") + command.name + ") _arguments $common";
    for (const OptionSpec& option : command.options) text += " \\\n" + zshOption(option);
    for (const ArgumentSpec& argument : command.arguments) text += " \\\n" + zshArgument(argument);
    text += " ;;\n";
  }
  return text +
         "      esac ;;\n"
         "  esac\n"
         "}\n"
         "_nox \"$@\"\n";
}

// --- fish ----------------------------------------------------------------------------------------

namespace {

std::string fishText(const std::string& text) {
  std::string escaped = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped + "'";
}

std::string fishOption(const OptionSpec& option, const std::string& condition) {
  std::string text = "complete -c nox";
  if (!condition.empty()) text += " -n " + fishText(condition);
  text += std::string(" -l ") + (option.name + 2);
  if (*option.letter != '\0') text += std::string(" -s ") + (option.letter + 1);
  if (*option.argument != '\0') {
    text += option.names == Names::LocalFile && option.choices.empty() ? " -r -F" : " -x";
    if (!option.choices.empty()) text += " -a " + fishText(joined(option.choices, " "));
  }
  return text + " -d " + fishText(option.help) + "\n";
}

}  // namespace

std::string fishCompletion() {
  std::string text =
      "# fish completion of nox; made from its table of subcommands\n"
      "complete -c nox -f\n";
  for (const OptionSpec& option : globalOptions()) text += fishOption(option, "");
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    text += std::string("complete -c nox -n __fish_use_subcommand -a ") + command.name + " -d " +
            fishText(command.summary) + "\n";
    const std::string condition = std::string("__fish_seen_subcommand_from ") + command.name;
    for (const OptionSpec& option : command.options) text += fishOption(option, condition);
    for (const ArgumentSpec& argument : command.arguments) {
      if (!argument.choices.empty()) {
        text += "complete -c nox -n " + fishText(condition) + " -a " +
                fishText(joined(argument.choices, " ")) + "\n";
      } else if (argument.names == Names::LocalFile) {
        text += "complete -c nox -n " + fishText(condition) + " -F\n";
      }
    }
  }
  return text;
}

int printDocument(const std::string& name) {
  std::string text;
  if (name == "man") {
    text = manPage();
  } else if (name == "bash") {
    text = bashCompletion();
  } else if (name == "zsh") {
    text = zshCompletion();
  } else if (name == "fish") {
    text = fishCompletion();
  } else {
    std::fprintf(stderr, "nox: there is no document \"%s\"\n", name.c_str());
    return kUsage;
  }
  std::fputs(text.c_str(), stdout);
  return kDone;
}

}  // namespace nox::command
