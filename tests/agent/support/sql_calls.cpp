#include "tests/agent/support/sql_calls.h"

#include <algorithm>
#include <memory>
#include <typeinfo>

namespace nox::agent::test {

using namespace noxp::sql;

namespace {

std::unique_ptr<NOXPString> utf8(std::string_view text) {
  return std::make_unique<NOXPString>(text.data(), text.size(), true);
}

std::string shown(std::string_view value) { return value == "\x80" ? "-" : std::string(value); }

std::string rowsOf(ResultSetProt& set) {
  std::string text;
  while (RowProt* const row = set.next()) {
    if (!text.empty()) text += "|";
    for (int i = 0; i < row->getNumberOfFields(); ++i) {
      if (i > 0) text += ",";
      text += shown(row->getColumnView(i));
    }
  }
  return text;
}

std::string described(ColumnMetaDataProt& column) {
  return " " + column.getColumnName()->getString() + ":" + column.getDatatype()->getString();
}

std::string described(const ResultSetMetaDataProt& description) {
  std::string text = "columns";
  for (int i = 0; i < description.getNumberOfColumns(); ++i) {
    text += described(*description.getColumnMetaDataProt(i));
  }
  text += " parameters";
  for (int i = 0; i < description.getNumberOfParameters(); ++i) {
    text += described(*description.getParameterMetaDataProt(i));
  }
  return text;
}

std::string described(noxp::ParameterListProt& parameters) {
  std::string text;
  for (unsigned int i = 0; i < parameters.count(); ++i) {
    if (i > 0) text += ",";
    const NOXPBlob* const value = parameters.getPtr(i);
    text += parameters.isNull(static_cast<int>(i)) == 1
                ? "-"
                : std::string(reinterpret_cast<const char*>(value->getBuf()), value->length());
  }
  return text;
}

}  // namespace

std::unique_ptr<noxp::ACEBinaryFormatParameterListProt> parameterList(
    const std::vector<SqlParameter>& parameters) {
  auto list =
      std::make_unique<noxp::ACEBinaryFormatParameterListProt>(static_cast<int>(parameters.size()));
  for (int i = 0; i < static_cast<int>(parameters.size()); ++i) {
    const SqlParameter& parameter = parameters[static_cast<std::size_t>(i)];
    if (parameter.text) {
      list->setString(i, *parameter.text, parameter.type);
    } else {
      list->setNull(i, parameter.type);
    }
  }
  return list;
}

std::string SqlCalls::say(noxp::RequestProt& request) {
  const std::unique_ptr<Serializable> reply = client_.ask(request);
  message_ = messageOf(*reply);
  if (dynamic_cast<OKResponseProt*>(reply.get())) return "OK";
  auto* const answer = dynamic_cast<SQLResponseProt*>(reply.get());
  if (!answer) return errorOf(*reply) + " " + typeid(*reply).name();
  const std::string id = std::to_string(answer->getStatementId()) + " ";
  if (dynamic_cast<SQLErrorResponseProt*>(answer)) return id + errorOf(*reply);
  if (dynamic_cast<SQLOKResponseProt*>(answer)) return id + "ok";
  if (const auto* const update = dynamic_cast<SQLUpdateResponseProt*>(answer)) {
    return id + "changed " + std::to_string(update->getUpdateCount());
  }
  if (const auto* const rows = dynamic_cast<SQLResultResponseProt*>(answer)) {
    const std::string text = rowsOf(*rows->getResultSet());
    return id + "rows" + (text.empty() ? "" : " " + text);
  }
  if (const auto* const description = dynamic_cast<SQLRSMDResponseProt*>(answer)) {
    return id + described(*description->getResultSetMetaData());
  }
  if (const auto* const left = dynamic_cast<SQLParamsResponseProt*>(answer)) {
    return id + "left " + described(*left->getParameterList());
  }
  return id + typeid(*reply).name();
}

std::string SqlCalls::compile(std::string_view sql) {
  return say(CompileRequestProt(utf8(sql).release()));
}

std::string SqlCalls::precompile(std::string_view sql) {
  return say(PrecompileRequestProt(utf8(sql).release()));
}

std::string SqlCalls::bind(int id, const std::vector<SqlParameter>& parameters) {
  return say(BindRequestProt(id, parameterList(parameters).release()));
}

std::string SqlCalls::execute(int id) { return say(ExecuteRequestProt(id)); }

std::string SqlCalls::run(std::string_view sql) {
  return say(CompileAndExecuteRequestProt(utf8(sql).release()));
}

std::string SqlCalls::fetch(int id, int rows) {
  return say(FetchRequestProt(id, static_cast<unsigned long>(rows)));
}

std::string SqlCalls::release(int id) { return say(ReleaseStatementRequestProt(id)); }

std::string SqlCalls::describe(int id) { return say(MetaDataRequestProt(id)); }

std::string SqlCalls::load(const char* subroutine) {
  return say(LoadSubroutineRequestProt(utf8(subroutine).release()));
}

std::string SqlCalls::call(int id, const std::vector<SqlParameter>& parameters) {
  return say(CallSubroutineRequestProt(id, parameterList(parameters).release()));
}

std::string SqlCalls::catalog(const char* property, const std::vector<SqlParameter>& patterns) {
  return say(DatabaseMetaDataRequestProt(property, parameterList(patterns).release()));
}

std::string SqlCalls::begin() { return say(TransactionStartRequestProt()); }

std::string SqlCalls::commit() { return say(TransactionCommitRequestProt()); }

std::string SqlCalls::rollback() { return say(TransactionRollbackRequestProt()); }

std::string SqlCalls::once(std::string_view sql, const std::vector<SqlParameter>& parameters) {
  const auto withoutId = [](const std::string& answer) {
    return answer.substr(answer.find(' ') + 1);
  };
  const std::string compiled = compile(sql);
  if (withoutId(compiled) != "ok") return withoutId(compiled);
  const int id = std::stoi(compiled);
  std::string answer = parameters.empty() ? compiled : bind(id, parameters);
  if (withoutId(answer) == "ok") answer = execute(id);
  const std::string message = message_;
  release(id);
  message_ = message;
  return withoutId(answer);
}

}  // namespace nox::agent::test
