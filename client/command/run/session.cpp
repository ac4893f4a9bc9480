// ping, login, monitor, conv, begin, commit, rollback, set, release.
#include <chrono>
#include <cstdio>

#include "client/command/context.h"
#include "client/command/interrupt.h"

namespace nox::command {

namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

void requireTransaction(Context& context) {
  if (!context.transaction() || !context.transaction()->isOpen()) {
    throw UsageError("no transaction was begun");
  }
}

}  // namespace

int runPing(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  const std::uint64_t count = numberOf(arguments.get("--count", "4"), "--count", 1'000'000);
  const auto rows = context.rows(std::vector<OutputColumn>{{"ECHO", true}, {"MS", true}});
  for (std::uint64_t i = 1; i <= count; ++i) {
    context.checkInterrupt();
    const std::chrono::duration<double, std::milli> took = connection.ping();
    char milliseconds[32];
    std::snprintf(milliseconds, sizeof milliseconds, "%.3f", took.count());
    rows->row({std::to_string(i), milliseconds});
  }
  rows->end();
  return kDone;
}

int runLogin(Context& context, const Arguments& /*arguments*/) {
  client::Connection& connection = context.connection();
  const client::ServerInfo server = connection.serverInfo();
  const std::string host = connection.host().name + ":" + std::to_string(connection.host().port);
  const std::string account = connection.common("@ACCOUNT").bytes();
  const std::string session = connection.common("@SESSION").bytes();
  const auto rows = context.rows(std::vector<OutputColumn>{{"WHAT"}, {"VALUE"}});
  const std::string connections = std::to_string(server.maxConnections);
  rows->row({"server", server.name + " " + server.version});
  rows->row({"host", host});
  rows->row({"encrypted", connection.isEncrypted() ? "yes" : "no"});
  rows->row({"user", server.user});
  rows->row({"account", account});
  rows->row({"session", session});
  rows->row({"connections", connections});
  rows->end();
  return kDone;
}

int runMonitor(Context& context, const Arguments& arguments) {
  const std::string text = context.connection().monitor(joined(arguments.all("COMMAND")));
  std::unique_ptr<RowWriter> rows;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    begin = end + 1;
    std::vector<OutputValue> fields;
    for (std::size_t at = 0; at <= line.size();) {
      const std::size_t tab = std::min(line.find('\t', at), line.size());
      fields.emplace_back(line.substr(at, tab - at));
      at = tab + 1;
    }
    if (rows) {
      rows->row(fields);
      continue;
    }
    std::vector<OutputColumn> columns;
    columns.reserve(fields.size());
    for (const OutputValue& field : fields) columns.push_back({std::string(*field)});
    rows = context.rows(std::move(columns));
  }
  if (rows) rows->end();
  return kDone;
}

int runConv(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  const std::string code = arguments.get("CODE");
  const bool input = arguments.has("--input");
  // Bytes alone are of use only without what they were made from.
  const bool raw = context.format() == Format::Raw;
  const std::vector<std::string>& all = arguments.all("DATA");
  std::vector<std::string> results;
  results.reserve(all.size());
  for (const std::string& data : all) {
    results.push_back(input ? connection.convertInput(data, code)
                            : connection.convertOutput(data, code));
  }
  const auto rows = raw ? context.rows(std::vector<OutputColumn>{{"RESULT"}})
                        : context.rows(std::vector<OutputColumn>{{"DATA"}, {"RESULT"}});
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (raw) {
      rows->row({results[i]});
    } else {
      rows->row({all[i], results[i]});
    }
  }
  rows->end();
  return kDone;
}

int runBegin(Context& context, const Arguments& /*arguments*/) {
  client::Connection& connection = context.connection();
  context.transaction() = connection.begin();
  return kDone;
}

int runCommit(Context& context, const Arguments& /*arguments*/) {
  requireTransaction(context);
  client::Transaction work = std::move(*context.transaction());
  context.transaction().reset();
  work.commit();
  return kDone;
}

int runRollback(Context& context, const Arguments& /*arguments*/) {
  requireTransaction(context);
  client::Transaction work = std::move(*context.transaction());
  context.transaction().reset();
  work.rollback();
  return kDone;
}

int runSet(Context& context, const Arguments& arguments) {
  context.connection().setProperty(arguments.get("PROPERTY"), arguments.get("VALUE"));
  return kDone;
}

int runRelease(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  if (!arguments.has("FILE")) {
    connection.releaseLocks();
  } else if (!arguments.has("ID")) {
    connection.file(arguments.get("FILE")).releaseAll();
  } else {
    connection.file(arguments.get("FILE")).release(arguments.get("ID"));
  }
  return kDone;
}

}  // namespace nox::command
