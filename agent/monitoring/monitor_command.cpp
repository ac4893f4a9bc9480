#include "agent/monitoring/monitor_command.h"

#include <charconv>
#include <stdexcept>

#include "agent/log/log.h"

namespace nox::agent {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::size_t kLongestShown = 100;  // bytes of what was typed, in an error

[[noreturn]] void fail(std::string_view what, std::string_view typed) {
  throw std::invalid_argument(std::string(what) + ": \"" +
                              Log::escaped(typed.substr(0, kLongestShown)) + "\"");
}

/// The words of a line, one after another.
class Words {
public:
  explicit Words(std::string_view line) : rest_(line) {
    skipBlanks();
    const std::size_t last = rest_.find_last_not_of(kBlanks);
    rest_ = rest_.substr(0, last == std::string_view::npos ? 0 : last + 1);
  }

  /// The next one; empty behind the last.
  std::string_view next() {
    const std::string_view word = rest_.substr(0, rest_.find_first_of(kBlanks));
    rest_.remove_prefix(word.size());
    skipBlanks();
    return word;
  }
  /// All that is left, blanks included.
  std::string_view rest() {
    const std::string_view all = rest_;
    rest_ = {};
    return all;
  }
  bool hasMore() const { return !rest_.empty(); }

private:
  void skipBlanks() {
    const std::size_t first = rest_.find_first_not_of(kBlanks);
    rest_.remove_prefix(first == std::string_view::npos ? rest_.size() : first);
  }

  std::string_view rest_;
};

/// `DICT name` names a dictionary. A file may be called DICT, too: where an id follows, that takes
/// a third word.
FilePart fileOf(Words& words, bool idFollows) {
  FilePart file;
  std::string_view name = words.next();
  if (name == "DICT" && words.hasMore()) {
    Words ahead = words;
    ahead.next();
    if (!idFollows || ahead.hasMore()) {
      file.part = Part::Dict;
      name = words.next();
    }
  }
  if (!isFileName(name)) fail("no file name", name);
  file.file = name;
  return file;
}

MonitorCommand parseXa(Words& words) {
  MonitorCommand command;
  const std::string_view action = words.next();
  if (action == "list") {
    command.verb = MonitorCommand::Verb::XaList;
    return command;
  }
  if (action == "commit") {
    command.verb = MonitorCommand::Verb::XaCommit;
  } else if (action == "rollback") {
    command.verb = MonitorCommand::Verb::XaRollback;
  } else {
    fail("xa takes list, commit or rollback", action);
  }
  command.id = words.rest();
  if (command.id.empty()) throw std::invalid_argument("a branch is missing: FORMAT:ID");
  return command;
}

MonitorCommand parseKill(Words& words) {
  MonitorCommand command;
  command.verb = MonitorCommand::Verb::Kill;
  const std::string_view number = words.next();
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, command.session);
  if (number.empty() || error != std::errc() || rest != end) {
    fail("kill takes the number of a session", number);
  }
  return command;
}

MonitorCommand parseUnlock(Words& words) {
  MonitorCommand command;
  command.verb = MonitorCommand::Verb::Unlock;
  if (!words.hasMore()) throw std::invalid_argument("unlock takes a file and a record's id");
  command.file = fileOf(words, true);
  command.hasFile = true;
  command.id = words.rest();
  if (command.id.empty()) throw std::invalid_argument("unlock takes a file and a record's id");
  return command;
}

MonitorCommand parse(Words& words, std::string_view line) {
  using Verb = MonitorCommand::Verb;
  MonitorCommand command;
  const std::string_view verb = words.next();
  if (verb == "xa") return parseXa(words);
  if (verb == "kill") return parseKill(words);
  if (verb == "unlock") return parseUnlock(words);
  if (verb == "status") {
    command.verb = Verb::Status;
  } else if (verb == "sessions") {
    command.verb = Verb::Sessions;
  } else if (verb == "lists") {
    command.verb = Verb::Lists;
  } else if (verb == "version") {
    command.verb = Verb::Version;
  } else if (verb == "locks") {
    command.verb = Verb::Locks;
    command.hasFile = words.hasMore();
    if (command.hasFile) command.file = fileOf(words, false);
  } else {
    fail("unknown command", line);
  }
  return command;
}

}  // namespace

MonitorCommand parseMonitorCommand(std::string_view line) {
  Words words(line);
  MonitorCommand command = parse(words, line);
  if (words.hasMore()) fail("too much", words.rest());
  return command;
}

}  // namespace nox::agent
