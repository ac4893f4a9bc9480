#include "tests/agent/support/command_calls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <typeinfo>

#include "agent/requests/fields.h"

namespace nox::agent::test {

using namespace noxp::remote;

namespace {

std::string swapped(std::string text, std::string_view from, std::string_view to) {
  for (char& c : text) {
    const std::size_t at = from.find(c);
    if (at != std::string_view::npos) c = to[at];
  }
  return text;
}

constexpr std::string_view kMarks = "\xFE\xFD\xFC";
constexpr std::string_view kTyped = "^]\\";

std::string bytesIn(const NOXPBlob* blob) { return std::string(bytesOf(blob)); }

std::string linesIn(const NOXPBlob* blob) { return unmarked(swapped(bytesIn(blob), "\xFE", "\n")); }

/// "IE/011: the reason": without what the catalogue says.
std::string failureOf(const Serializable& reply) {
  const std::string error = errorOf(reply);
  if (error.empty()) return error;
  const std::string message = messageOf(reply);
  const std::size_t at = message.find(": ");
  return error + (at == std::string::npos ? "" : message.substr(at));
}

NOXPString raw(std::string_view bytes) { return NOXPString(bytes.data(), bytes.size(), true); }

CommandReply readCommand(const Serializable& reply) {
  CommandReply read;
  read.error = failureOf(reply);
  if (const auto* const done = dynamic_cast<const ExecuteResponseProt*>(&reply)) {
    read.output = linesIn(done->getCapturingVariable());
    read.setting = unmarked(bytesIn(done->getSettingVariable()));
    read.list = test::describe(dynamic_cast<SelectListProt*>(done->getSelectList()));
  } else if (const auto* const asked = dynamic_cast<const noxp::InputOutputResponseProt*>(&reply)) {
    read.prompt = asked->getCommand();
    read.output = linesIn(asked->getOutput());
  } else if (read.error.empty()) {
    ADD_FAILURE() << "the reply is a " << typeid(reply).name();
  }
  return read;
}

SubroutineReply readSubroutine(const Serializable& reply) {
  SubroutineReply read;
  read.error = failureOf(reply);
  if (const auto* const done = dynamic_cast<const SubroutineResponseProt*>(&reply)) {
    read.status = done->getStatus();
    noxp::ParameterListProt* const parameters = done->getParameters();
    for (unsigned int i = 0; parameters && i < parameters->count(); ++i) {
      const int index = static_cast<int>(i);
      std::optional<std::string> value;
      if (parameters->isNull(index) == 0) value = bytesIn(parameters->getPtr(i));
      read.parameters.emplace_back(value, parameters->getParameterType(index));
    }
  } else if (const auto* const asked = dynamic_cast<const noxp::InputOutputResponseProt*>(&reply)) {
    read.prompt = asked->getCommand();
    read.output = linesIn(asked->getOutput());
  } else if (read.error.empty()) {
    ADD_FAILURE() << "the reply is a " << typeid(reply).name();
  }
  return read;
}

}  // namespace

std::string marked(std::string text) { return swapped(std::move(text), kTyped, kMarks); }
std::string unmarked(std::string text) { return swapped(std::move(text), kMarks, kTyped); }

CommandReply execute(ClientCalls& client, std::string_view command, SelectListProt* list,
                     unsigned int version) {
  NOXPBlob line(command.data(), command.size());
  RemoteExecuteRequestProt request(&line, list);
  request.setClassVersion(version);
  return readCommand(*client.ask(request));
}

CommandReply answer(ClientCalls& client, std::string_view input) {
  const NOXPString text = raw(input);
  RemoteInputRequestProt request(&text);
  return readCommand(*client.ask(request));
}

QueryReply query(ClientCalls& client, const char* text, SelectListProt* list,
                 unsigned int version) {
  StatementExecuteQueryRequestProt request(text, list);
  request.setClassVersion(version);
  const std::unique_ptr<Serializable> reply = client.ask(request);
  QueryReply read;
  read.error = failureOf(*reply);
  if (const auto* const opened = dynamic_cast<ToviResponseProt*>(reply.get())) {
    EXPECT_EQ(opened->getStatus(), 0);
    read.heading = unmarked(bytesIn(opened->getRecord()));
    auto* const chunk = dynamic_cast<SelectListProt*>(opened->getSelectList());
    read.list = test::describe(chunk);
    read.id = chunk ? chunk->getId() : 0;
  }
  return read;
}

RowsReply fetchRows(ClientCalls& client, int id, int rows) {
  StatementFetchRequestProt request(id, rows);
  const std::unique_ptr<Serializable> reply = client.ask(request);
  RowsReply read;
  read.error = failureOf(*reply);
  if (const auto* const fetched = dynamic_cast<StatementFetchResponseProt*>(reply.get())) {
    read.status = fetched->getStatus();
    noxp::ParameterListProt* const values = fetched->getRows();
    for (unsigned int i = 0; values && i < values->count(); ++i) {
      read.rows.push_back(unmarked(bytesIn(values->getPtr(i))));
      read.types.push_back(values->getParameterType(static_cast<int>(i)));
    }
  }
  return read;
}

std::vector<std::string> allRows(ClientCalls& client, int id, int atOnce) {
  std::vector<std::string> all;
  while (true) {
    RowsReply reply = fetchRows(client, id, atOnce);
    EXPECT_EQ(reply.error, "");
    std::move(reply.rows.begin(), reply.rows.end(), std::back_inserter(all));
    if (reply.status != 0) return all;
  }
}

std::string convertAt(ClientCalls& client, int type, std::string_view data,
                      std::string_view conversion) {
  const NOXPString from = raw(data);
  const NOXPString code = raw(conversion);
  ConvRequestProt request(type, &from, &code);
  const std::unique_ptr<Serializable> reply = client.ask(request);
  if (const auto* const done = dynamic_cast<ConvResponseProt*>(reply.get())) {
    return bytesIn(done->getResult());
  }
  return failureOf(*reply);
}

SubroutineReply call(ClientCalls& client, const char* name,
                     const std::optional<std::vector<Parameter>>& parameters) {
  std::unique_ptr<noxp::ACEBinaryFormatParameterListProt> list;
  if (parameters) {
    list = std::make_unique<noxp::ACEBinaryFormatParameterListProt>(
        static_cast<int>(parameters->size()));
    for (std::size_t i = 0; i < parameters->size(); ++i) {
      const auto& [value, type] = (*parameters)[i];
      if (value) {
        list->setString(static_cast<int>(i), *value, type);
      } else {
        list->setNull(static_cast<int>(i), type);
      }
    }
  }
  const NOXPString subroutine = raw(name);
  RemoteSubroutineRequestProt request(&subroutine, list.release());
  return readSubroutine(*client.ask(request));
}

SubroutineReply answerSubroutine(ClientCalls& client, std::string_view input) {
  const NOXPString text = raw(input);
  RemoteInputRequestProt request(&text);
  return readSubroutine(*client.ask(request));
}

SelectListProt listOf(const std::vector<std::string>& keys) {
  std::string joined;
  for (const std::string& key : keys) joined += key + '\xFE';
  const NOXPBlob blob(joined.data(), joined.size());
  return SelectListProt(&blob);
}

}  // namespace nox::agent::test
