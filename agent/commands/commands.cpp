#include "agent/commands/commands.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "agent/commands/errors.h"
#include "agent/commands/grammar.h"
#include "agent/commands/report.h"
#include "agent/commands/rows.h"
#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/conversions/conversions.h"
#include "agent/lists/select_lists.h"
#include "agent/multivalue.h"
#include "agent/requests/fields.h"
#include "agent/scripting/subroutine.h"
#include "agent/session/data_access.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

constexpr int kDone = 0;
constexpr int kNotDone = 1;  // refused at the prompt, aborted, or failed

constexpr char kListsFile[] = "NOX.LISTS";

/// What a command answers with when it is done.
struct Outcome {
  std::string output;
  std::uint64_t items = 0;
  int code = kDone;
};

Outcome counted(std::uint64_t number, const char* what) {
  return {std::to_string(number) + " " + what, number};
}

/// Holds what all commands have: output, code, number of items, and their reply.
class BasicCommand : public CommandProgram {
public:
  explicit BasicCommand(Session& session) : session_(session) {}

  State run(std::optional<std::string_view> input) final {
    try {
      const State state = asCommandFailure([&] { return proceed(input); });
      if (state == State::Done) session_.setLastCommandCode(outcome_.code);
      return state;
    } catch (const Failure&) {
      session_.setLastCommandCode(kNotDone);
      throw;
    }
  }

  std::string takeOutput() override { return std::exchange(outcome_.output, {}); }
  int code() const override { return outcome_.code; }
  std::uint64_t items() const override { return outcome_.items; }

  void finish(Reply& reply) override {
    const std::string output = takeOutput();
    const std::string setting = std::to_string(code()) + kAttribute + std::to_string(items());
    std::unique_ptr<noxp::remote::SelectListProt> list = offerList();
    // The list has a quarter of the frame.
    const std::size_t room = session_.roomInFrame();
    if (output.size() > (list ? room - room / 4 : room)) {
      session_.setLastCommandCode(kNotDone);
      throw Failure("IE", "011", "the output is longer than a frame may be");
    }
    const NOXPBlob capturing(output.data(), output.size());
    const NOXPBlob set(setting.data(), setting.size());
    reply.send(noxp::remote::ExecuteResponseProt(&capturing, &set, list.release()));
  }

protected:
  virtual State proceed(std::optional<std::string_view> input) = 0;

  Session& session() { return session_; }
  Outcome& outcome() { return outcome_; }

private:
  /// A command whose list finds no room has failed, and leaves none.
  std::unique_ptr<noxp::remote::SelectListProt> offerList() {
    try {
      return session_.lists().offerActive();
    } catch (const Failure&) {
      session_.lists().clearActive();
      session_.setLastCommandCode(kNotDone);
      throw;
    }
  }

  Session& session_;
  Outcome outcome_;
};

// What the commands do that ask nothing.

Outcome carryOut(Session& session, const CreateFileCommand& command) {
  session.requireWrite();
  if (!asCommandFailure([&] { return session.store().createFile(command.file); })) {
    throw Failure("IE", "011", "there is a file \"" + command.file + "\" already");
  }
  return {"File " + command.file + " created"};
}

Outcome carryOut(Session& session, const ListFilesCommand& /*command*/) {
  const std::vector<std::string> files = asCommandFailure([&] { return session.store().files(); });
  Outcome outcome;
  for (const std::string& file : files) outcome.output += file + kAttribute;
  outcome.output += kAttribute;
  outcome.output += std::to_string(files.size()) + " files listed";
  outcome.items = files.size();
  return outcome;
}

Outcome carryOut(Session& session, const ListCommand& command) {
  std::vector<Item> items = listedItems(session, command);
  Report report(items, command.headings, session.roomInFrame());
  Rows rows(session, command.target, std::move(items), command.first);
  Outcome outcome;
  while (rows.next()) {
    report.add(rows.columns());
    ++outcome.items;
  }
  outcome.output = report.text();
  if (!outcome.output.empty()) outcome.output += kAttribute;
  outcome.output += kAttribute;
  outcome.output += std::to_string(outcome.items) + " records listed";
  return outcome;
}

Outcome carryOut(Session& session, const CountCommand& command) {
  Rows rows(session, command.target, {});
  std::uint64_t number = 0;
  while (rows.next()) ++number;
  return counted(number, "records counted");
}

Outcome carryOut(Session& session, const SelectCommand& command) {
  Rows rows(session, command.target, {});
  SelectedKeys selected;
  selected.file = command.target.file;
  while (rows.next()) selected.keys.add(rows.id());
  const std::uint64_t number = selected.keys.size();
  session.lists().setActive(std::move(selected));
  return counted(number, "records selected");
}

/// A saved list is a record of NOX.LISTS with a key per attribute. The record of the same name in
/// the dictionary part says to which file the keys belong: "L", then the file.
std::string dictionaryOfLists() { return FilePart{kListsFile, Part::Dict}.text(); }
constexpr char kListKind[] = "L";

bool hasListsFile(Session& session) {
  return asCommandFailure([&] { return session.store().hasFile(kListsFile); });
}

bool readSaved(Session& session, const std::string& file, const std::string& name,
               NOXPBlob& record) {
  return asCommandFailure([&] {
           return session.data().read(file, name, DataAccess::kReadPlain, record);
         }) == DataAccess::Done;
}

Outcome carryOut(Session& session, const SaveListCommand& command) {
  session.requireWrite();
  if (!session.lists().hasActive()) throw Failure("IE", "011", "no list is active");
  if (!hasListsFile(session)) {
    // Another session may have made it meanwhile.
    asCommandFailure([&] { return session.store().createFile(kListsFile); });
  }
  const std::optional<SelectedKeys> selected = session.lists().takeActive();
  std::string keys;
  for (std::size_t position = 0; position < selected->keys.size();) {
    constexpr std::size_t kChunk = 10'000;
    const std::vector<std::string> chunk = selected->keys.read(position, kChunk);
    for (const std::string& key : chunk) {
      if (position++ > 0) keys += kAttribute;
      keys += key;
    }
    if (keys.size() > kLongestRecord) {
      throw Failure("IE", "011", "the list is longer than a record may be");
    }
  }
  std::string about = kListKind;
  about += kAttribute;
  about += selected->file.text();
  std::vector<RecordWrite> writes(2);
  writes[0].file = {kListsFile, Part::Data};
  writes[0].id = command.name;
  writes[0].body = std::move(keys);
  writes[1].file = {kListsFile, Part::Dict};
  writes[1].id = command.name;
  writes[1].body = std::move(about);
  asCommandFailure([&] { session.data().writeAll(std::move(writes)); });
  Outcome outcome;
  outcome.items = selected->keys.size();
  outcome.output = std::to_string(outcome.items) + " keys saved in list " + command.name;
  return outcome;
}

[[noreturn]] void refuseList(const std::string& name) {
  throw Failure("IE", "011", "there is no saved list \"" + name + "\"");
}

Outcome carryOut(Session& session, const GetListCommand& command) {
  NOXPBlob keys;
  if (!hasListsFile(session) || !readSaved(session, kListsFile, command.name, keys)) {
    refuseList(command.name);
  }
  SelectedKeys selected;
  NOXPBlob about;
  if (readSaved(session, dictionaryOfLists(), command.name, about)) {
    const std::string_view kind = extract(bytesOf(&about), {1});
    const std::string_view file = extract(bytesOf(&about), {2});
    if (kind == kListKind) selected.file = parseFilePart(file, "IE", "011");
  }
  for (Fields key(bytesOf(&keys), kAttribute); key; key.next()) {
    if ((*key).empty()) continue;
    checkRecordId(*key);
    selected.keys.add(*key);
  }
  const std::uint64_t number = selected.keys.size();
  session.lists().setActive(std::move(selected));
  return counted(number, "records selected");
}

Outcome carryOut(Session& session, const DeleteListCommand& command) {
  session.requireWrite();
  if (!hasListsFile(session)) refuseList(command.name);
  const auto remove = [&](const std::string& file) {
    return asCommandFailure([&] { return session.data().remove(file, command.name); });
  };
  const DataAccess::Status status = remove(kListsFile);
  if (status == DataAccess::NotDone) refuseList(command.name);
  if (status == DataAccess::Locked) {
    throw Failure("IE", "024", "another session locks the list \"" + command.name + "\"");
  }
  remove(dictionaryOfLists());
  return {"List " + command.name + " deleted"};
}

Outcome carryOut(Session& session, const ClearSelectCommand& /*command*/) {
  session.lists().clearActive();
  return {};
}

Outcome carryOut(Session& session, const WhoCommand& /*command*/) {
  return {std::to_string(session.id()) + " " + session.account() + " " + session.user()};
}

Outcome carryOut(Session& session, const DateCommand& /*command*/) {
  const DayAndSecond today = now(session.settings().timezone);
  return {convert(std::to_string(today.day), "D", Direction::Output)};
}

Outcome carryOut(Session& session, const TimeCommand& /*command*/) {
  const DayAndSecond today = now(session.settings().timezone);
  return {convert(std::to_string(today.second), "MTS", Direction::Output)};
}

// What the commands do that ask first.

Outcome carryOut(Session& session, const DeleteFileCommand& command) {
  if (!asCommandFailure([&] { return session.data().deleteFile(command.file); })) {
    throw Failure("IE", "011", "there is no file \"" + command.file + "\"");
  }
  return {"File " + command.file + " deleted"};
}

Outcome carryOut(Session& session, const ClearFileCommand& command) {
  asCommandFailure([&] { session.data().clear(command.file); });
  return {"File " + command.file + " cleared"};
}

std::string question(const DeleteFileCommand& command) {
  return "Delete file " + command.file + " with all its records (Y/N)? ";
}
std::string question(const ClearFileCommand& command) {
  return "Clear file " + command.file + " of all its records (Y/N)? ";
}

bool isYes(std::string_view answer) {
  while (!answer.empty() && answer.front() == ' ') answer.remove_prefix(1);
  while (!answer.empty() && answer.back() == ' ') answer.remove_suffix(1);
  return equalsIgnoringCase(answer, "Y") || equalsIgnoringCase(answer, "YES");
}

/// A command that asks nothing.
template <class Parsed>
class PlainCommand : public BasicCommand {
public:
  PlainCommand(Session& session, Parsed command)
      : BasicCommand(session), command_(std::move(command)) {}

private:
  State proceed(std::optional<std::string_view> /*input*/) override {
    outcome() = carryOut(session(), command_);
    return State::Done;
  }

  Parsed command_;
};

/// A command that takes records away, and asks first where its line does not say yes.
template <class Parsed>
class ConfirmedCommand : public BasicCommand {
public:
  ConfirmedCommand(Session& session, Parsed command)
      : BasicCommand(session), command_(std::move(command)) {}

private:
  State proceed(std::optional<std::string_view> input) override {
    if (!input) {
      session().requireWrite();
      if (!asCommandFailure([&] { return session().store().hasFile(command_.file); })) {
        throw Failure("IE", "011", "there is no file \"" + command_.file + "\"");
      }
      if (!command_.confirmed) {
        outcome().output = question(command_);
        return State::WantsInput;
      }
    } else if (!isYes(*input)) {
      outcome() = {"Nothing done", 0, kNotDone};
      return State::Done;
    }
    outcome() = carryOut(session(), command_);
    return State::Done;
  }

  Parsed command_;
};

class RunProgram : public BasicCommand {
public:
  RunProgram(Session& session, RunCommand command)
      : BasicCommand(session), command_(std::move(command)) {}

  std::string takeOutput() override {
    return subroutine_ ? subroutine_->takeOutput() : std::string();
  }

private:
  State proceed(std::optional<std::string_view> input) override {
    if (!subroutine_) load();
    const State state = subroutine_->run(input);
    if (state == State::Done && subroutine_->aborted()) outcome().code = kNotDone;
    return state;
  }

  void load() {
    std::vector<Argument> arguments(command_.arguments.begin(), command_.arguments.end());
    try {
      subroutine_ = makeSubroutine(session(), command_.subroutine.text, std::move(arguments), true);
    } catch (const Failure& failure) {
      if (failure.state().sqlClass != "IE") throw;
      refuseWord(command_.subroutine, failure.reason());
    }
  }

  RunCommand command_;
  std::unique_ptr<Subroutine> subroutine_;
};

/// The program of each command.
struct Maker {
  Session& session;

  template <class Parsed>
  std::unique_ptr<CommandProgram> operator()(Parsed& command) const {
    return std::make_unique<PlainCommand<Parsed>>(session, std::move(command));
  }
  std::unique_ptr<CommandProgram> operator()(DeleteFileCommand& command) const {
    return std::make_unique<ConfirmedCommand<DeleteFileCommand>>(session, std::move(command));
  }
  std::unique_ptr<CommandProgram> operator()(ClearFileCommand& command) const {
    return std::make_unique<ConfirmedCommand<ClearFileCommand>>(session, std::move(command));
  }
  std::unique_ptr<CommandProgram> operator()(RunCommand& command) const {
    return std::make_unique<RunProgram>(session, std::move(command));
  }
};

}  // namespace

std::unique_ptr<CommandProgram> makeCommand(Session& session, std::string_view line) {
  try {
    Command command = parseCommand(line);
    return std::visit(Maker{session}, command);
  } catch (const Failure&) {
    session.setLastCommandCode(kNotDone);
    throw;
  }
}

}  // namespace nox::agent
