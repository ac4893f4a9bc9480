// sql, run, call: what runs on the server.
#include <deque>

#include "client/command/context.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

constexpr std::string_view kNull = "\\N";

std::vector<client::Value> valuesOf(const std::vector<std::string>& texts) {
  std::vector<client::Value> values;
  values.reserve(texts.size());
  for (const std::string& text : texts) {
    values.push_back(text == kNull ? client::Value() : client::Value(text));
  }
  return values;
}

void printLines(Output& out, const client::Record& lines) {
  for (const client::FieldView line : lines) {
    // On a terminal nothing of the data is obeyed; elsewhere it is what it is.
    out.write(out.isTerminal() ? visible(line.view()) : line.str());
    out.write("\n");
  }
}

/// Answers a program's questions until it is done.
void converse(Context& context, client::Conversation& talk, const Arguments& arguments) {
  const auto& given = arguments.all("--answer");
  std::size_t next = 0;
  while (talk.isWaiting()) {
    client::Record output = talk.output();
    const std::string question = talk.prompt();
    if (output.count() > 0) output.remove(output.count());
    printLines(context.out(), output);
    context.out().flush();
    if (next < given.size()) {
      // What a person would see on the terminal; a hidden answer stays hidden.
      printLines(context.out(), client::Record(question + (talk.hidden() ? "" : given[next])));
      talk.answer(given[next++]);
      continue;
    }
    const auto answer = context.ask(visible(question), talk.hidden());
    if (!answer) throw Refused("it asks \"" + question + "\", and there is nobody to answer");
    talk.answer(*answer);
  }
}

}  // namespace

int runSql(Context& context, const Arguments& arguments) {
  std::string text = arguments.get("STATEMENT");
  if (text == "-") text = readAll("");
  client::Connection& connection = context.connection();
  client::SqlResult result = connection.sql(text, valuesOf(arguments.all("VALUE")));
  if (!result.rows) {
    context.say(std::to_string(result.changes) + (result.changes == 1 ? " row" : " rows"));
    return kDone;
  }
  if (arguments.has("--fetch-size")) {
    result.rows->fetchSize(
        static_cast<int>(numberOf(arguments.get("--fetch-size"), "--fetch-size", 1'000'000)));
  }
  const auto writer = context.rows(result.rows->columns());
  const auto progress = context.progress("rows", std::nullopt);
  std::vector<OutputValue> values;
  std::uint64_t done = 0;
  while (result.rows->next()) {
    context.checkInterrupt();
    const client::Row& row = result.rows->row();
    values.clear();
    for (std::size_t i = 0; i < row.size(); ++i) values.push_back(row[i].get());
    writer->row(values);
    progress->show(++done);
  }
  writer->end();
  return kDone;
}

int runRun(Context& context, const Arguments& arguments) {
  std::string command;
  for (const std::string& word : arguments.all("COMMAND")) {
    if (!command.empty()) command += ' ';
    command += word;
  }
  client::Connection& connection = context.connection();
  if (arguments.has("--rows")) {
    client::Listing listing = connection.listing(command);
    std::vector<OutputColumn> columns;
    for (const client::FieldView heading : listing.heading()) columns.push_back({heading.str()});
    const std::size_t width = columns.size();
    const auto writer = context.rows(std::move(columns));
    const auto progress = context.progress("rows", std::nullopt);
    std::uint64_t done = 0;
    while (listing.next()) {
      context.checkInterrupt();
      std::vector<OutputValue> values;
      for (std::size_t i = 1; i <= width; ++i) values.emplace_back(listing.row()[i].view());
      writer->row(values);
      progress->show(++done);
    }
    writer->end();
    return kDone;
  }
  client::Conversation talk = connection.converse(command);
  converse(context, talk, arguments);
  const client::CommandResult& result = talk.command();
  printLines(context.out(), result.output);
  if (result.list) {
    context.out().flush();
    context.say("a list of " + std::to_string(result.items()) + " ids is active");
  }
  context.out().flush();
  return result.code() == 0 ? kDone : kRefused;
}

int runCall(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  client::Subroutine subroutine = connection.subroutine(arguments.get("SUBROUTINE"));
  client::Conversation talk = subroutine.start(valuesOf(arguments.all("VALUE")));
  converse(context, talk, arguments);
  const client::CallResult& result = talk.call();
  const auto writer = context.rows(std::vector<OutputColumn>{{"PARAMETER", true}, {"VALUE"}});
  std::size_t i = 0;
  for (const client::Value& value : result.parameters) {
    const std::string number = std::to_string(++i);
    writer->row({number, value.isNull() ? OutputValue() : OutputValue(value.text())});
  }
  writer->end();
  if (result.aborted) {
    context.say("the subroutine ended itself");
    return kRefused;
  }
  return kDone;
}

}  // namespace nox::command
