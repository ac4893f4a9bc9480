// files, create-file, read, write, delete, exists, select.
#include <algorithm>
#include <charconv>

#include "client/command/context.h"
#include "client/command/dictionary.h"
#include "client/command/output/record_text.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

using client::Record;

client::Lock lockOf(const Arguments& arguments) {
  const std::string kind = arguments.get("--lock");
  if (kind == "update") return client::Lock::Update;
  if (kind == "shared") return client::Lock::Shared;
  return client::Lock::None;
}

/// How records are printed.
enum class Shape { Tree, Text, Raw, Json, Rows };

Shape shapeOf(const Context& context, const Arguments& arguments, Output& out) {
  if (arguments.has("--tree")) return Shape::Tree;
  if (arguments.has("--text")) return Shape::Text;
  const auto format = context.chosenFormat();
  if (!format) return out.isTerminal() ? Shape::Tree : Shape::Raw;
  if (*format == Format::Raw) return Shape::Raw;
  if (*format == Format::Json || *format == Format::Jsonl) return Shape::Json;
  return Shape::Rows;
}

/// "3=x", "3.2=x", "3.2.1=x".
struct FieldChange {
  client::Position at{1};
  std::string text;
};

FieldChange parseChange(const std::string& given) {
  const std::size_t equals = given.find('=');
  std::size_t numbers[3] = {0, 0, 0};
  std::size_t count = 0;
  std::string_view place = std::string_view(given).substr(0, equals);
  bool good = equals != std::string::npos;
  while (good && count < 3) {
    const std::size_t dot = std::min(place.find('.'), place.size());
    const auto [end, error] = std::from_chars(place.data(), place.data() + dot, numbers[count]);
    constexpr std::size_t kFarthest = 100'000;
    good = error == std::errc() && end == place.data() + dot && numbers[count] >= 1 &&
           numbers[count] <= kFarthest;
    ++count;
    if (dot == place.size()) {
      place = {};
      break;
    }
    place.remove_prefix(dot + 1);
  }
  if (!good || !place.empty()) {
    throw UsageError("--set: PLACE=TEXT was expected, as in 3=x or 3.2.1=x, not \"" + given + "\"");
  }
  return {{numbers[0], numbers[1], numbers[2]}, given.substr(equals + 1)};
}

std::string missing(const std::string& file, const std::string& id) {
  std::string text = "there is no record \"";
  text.append(id).append("\" in ").append(file);
  return text;
}

[[noreturn]] void throwLocked(const std::string& file, const std::string& id) {
  throw Refused("\"" + id + "\" of " + file + " is locked by another session");
}

}  // namespace

int runFiles(Context& context, const Arguments& /*arguments*/) {
  const std::vector<std::string> names = filesOf(context.connection());
  const auto rows = context.rows(std::vector<OutputColumn>{{"FILE"}});
  for (const std::string& name : names) rows->row({name});
  rows->end();
  return kDone;
}

int runCreateFile(Context& context, const Arguments& arguments) {
  context.connection().execute("CREATE-FILE " + arguments.get("FILE"));
  return kDone;
}

int runRead(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  const std::string name = arguments.get("FILE");
  client::File file = connection.file(name);
  const client::Lock lock = lockOf(arguments);
  const auto wait = arguments.has("--no-wait") ? client::Wait::No : client::Wait::Yes;
  Output& out = context.out();
  const Shape shape = shapeOf(context, arguments, out);
  std::vector<std::string> names;
  if (shape == Shape::Tree || shape == Shape::Rows) {
    names = namesByAttribute(dictionaryOf(connection, name));
  }
  std::unique_ptr<RowWriter> rows;
  if (shape == Shape::Rows) {
    rows =
        context.rows(std::vector<OutputColumn>{{"ID"}, {"ATTRIBUTE", true}, {"NAME"}, {"CONTENT"}});
  }

  int status = kDone;
  for (const std::string& id : arguments.all("ID")) {
    const client::ReadResult found = lock == client::Lock::None
                                         ? [&] {
                                             auto record = file.read(id);
                                             return client::ReadResult{
                                                 record ? client::Status::Done
                                                        : client::Status::NotDone,
                                                 record ? std::move(*record) : Record()};
                                           }()
                                         : file.read(id, lock, wait);
    if (found.status == client::Status::Locked) throwLocked(name, id);
    if (found.status == client::Status::NotDone) {
      out.flush();
      context.say(missing(name, id));
      status = kRefused;
      continue;
    }
    switch (shape) {
      case Shape::Tree:
        out.write(recordTree(id, found.record, names));
        break;
      case Shape::Text:
        out.write(found.record.toString() + "\n");
        break;
      case Shape::Raw:
        out.write(found.record.bytes());
        // Several are told apart; a single one is the bytes and nothing else.
        if (arguments.all("ID").size() > 1 || out.isTerminal()) out.write("\n");
        break;
      case Shape::Json:
        out.write(recordJson(found.record) + "\n");
        break;
      case Shape::Rows: {
        std::size_t i = 0;
        for (const client::FieldView attribute : found.record) {
          const std::string number = std::to_string(++i);
          const std::string label = i < names.size() ? names[i] : "";
          const std::string content = attribute.toString();
          rows->row({id, number, label, content});
        }
        break;
      }
    }
  }
  if (rows) rows->end();
  out.flush();
  return status;
}

int runWrite(Context& context, const Arguments& arguments) {
  const std::string name = arguments.get("FILE");
  const std::string id = arguments.get("ID");
  std::vector<FieldChange> changes;
  for (const std::string& given : arguments.all("--set")) changes.push_back(parseChange(given));
  if (!changes.empty() &&
      (arguments.has("TEXT") || arguments.has("--from") || arguments.has("--new"))) {
    throw UsageError("--set changes a record that is there; it takes no content and no --new");
  }
  if (arguments.has("TEXT") && arguments.has("--from")) {
    throw UsageError("give either TEXT or --from");
  }

  client::File file = context.connection().file(name);
  Record record;
  if (!changes.empty()) {
    client::ReadResult found = file.read(id, client::Lock::Update);
    if (found.status == client::Status::Locked) throwLocked(name, id);
    if (found.status == client::Status::NotDone) {
      file.release(id);  // it is taken also where there is nothing
      throw Refused(missing(name, id));
    }
    record = std::move(found.record);
    for (const FieldChange& change : changes) record.set(change.at, change.text);
  } else if (arguments.has("TEXT")) {
    record = Record::parse(arguments.get("TEXT"));
  } else {
    record = Record(readAll(arguments.get("--from")));
  }

  if (arguments.has("--new")) {
    if (!file.writeNew(id, record)) {
      throw Refused("there is a record \"" + id + "\" in " + name + " already");
    }
    return kDone;
  }
  if (arguments.has("--keep-lock")) {
    file.writeAndKeepLock(id, record);
    return kDone;
  }
  if (file.tryWrite(id, record) == client::Status::Locked) throwLocked(name, id);
  return kDone;
}

int runDelete(Context& context, const Arguments& arguments) {
  const std::string name = arguments.get("FILE");
  client::File file = context.connection().file(name);
  int status = kDone;
  for (const std::string& id : arguments.all("ID")) {
    switch (file.tryRemove(id)) {
      case client::Status::Done:
        break;
      case client::Status::NotDone:
        context.say(missing(name, id));
        status = kRefused;
        break;
      case client::Status::Locked:
        throwLocked(name, id);
    }
  }
  return status;
}

int runExists(Context& context, const Arguments& arguments) {
  return context.connection().file(arguments.get("FILE")).exists(arguments.get("ID")) ? kDone
                                                                                      : kRefused;
}

int runSelect(Context& context, const Arguments& arguments) {
  std::string command = arguments.has("--sorted") ? "SSELECT " : "SELECT ";
  command += arguments.get("FILE");
  for (const std::string& word : arguments.all("CLAUSE")) command += " " + word;
  const bool records = arguments.has("--records");

  client::Connection& connection = context.connection();
  client::SelectList list = connection.select(command);
  list.withRecords(records);
  if (arguments.has("--page-size")) {
    list.pageSize(numberOf(arguments.get("--page-size"), "--page-size", 10'000));
  }
  std::vector<OutputColumn> columns = {{"ID"}};
  if (records) columns.push_back({"RECORD"});
  const auto rows = context.rows(std::move(columns));
  const auto progress = context.progress("ids", std::nullopt);
  std::uint64_t done = 0;
  for (const client::SelectList::Entry& entry : list) {
    context.checkInterrupt();
    if (!records) {
      rows->row({entry.id()});
    } else if (entry.hasRecord()) {
      const std::string text = entry.record().toString();
      rows->row({entry.id(), text});
    } else {  // deleted since
      rows->row({entry.id(), std::nullopt});
    }
    progress->show(++done);
  }
  rows->end();
  return kDone;
}

}  // namespace nox::command
