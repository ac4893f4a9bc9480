#include "tests/agent/support/client_calls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <typeinfo>

namespace nox::agent::test {

using namespace noxp::remote;

namespace {

/// Bytes that go out as they are, whether they are UTF-8 or not.
NOXPString raw(const char* bytes) { return NOXPString(bytes, true); }

SQLExtError* errorIn(const Serializable& reply) {
  if (const auto* const error = dynamic_cast<const ErrorResponseProt*>(&reply)) {
    return error->getError();
  }
  if (const auto* const error = dynamic_cast<const noxp::sql::SQLErrorResponseProt*>(&reply)) {
    return error->getError();
  }
  return nullptr;
}

std::string textOf(const NOXPBlob& blob) {
  return blob.getBuf() ? std::string(reinterpret_cast<const char*>(blob.getBuf()), blob.length())
                       : std::string();
}

std::string describe(const ToviResponseProt& reply) {
  std::string text = std::to_string(reply.getStatus());
  // A null record and an empty one read alike; only a record that was found has a body.
  if (reply.getRecord() && reply.getRecord()->length() > 0) {
    text += " '" + textOf(*reply.getRecord()) + "'";
  }
  return text;
}

}  // namespace

std::string errorOf(const Serializable& reply) {
  SQLExtError* const error = errorIn(reply);
  if (!error) return {};
  const SQLSTATE& state = error->getSqlState();
  std::string text = state.sqlClass + "/" + state.sqlSubClass;
  const std::string& message = error->getMsg();
  const std::string mark = " (Status = 0x";
  const std::size_t at = message.rfind(mark);
  if (at != std::string::npos && message.back() == ')') {
    const std::size_t begin = at + mark.size();
    text += " " + message.substr(begin, message.size() - 1 - begin);
  }
  return text;
}

std::string messageOf(const Serializable& reply) {
  SQLExtError* const error = errorIn(reply);
  return error ? error->getMsg() : std::string();
}

std::string describe(SelectListProt* list) {
  if (!list || list->getId() < 0) return "none";
  std::string text = std::to_string(list->getId()) + ":";
  list->goToPosition(0);
  while (list->next()) {
    text += " " + list->getKey();
    if (!list->hasRecordData()) continue;
    const NOXPBlob* const record = list->getRecord();
    text += "=" + (record && record->length() > 0 ? textOf(*record) : "-");
  }
  if (!list->getAllModified()->empty()) {
    text += " [";
    for (const unsigned long position : *list->getAllModified()) {
      if (text.back() != '[') text += ' ';
      text += std::to_string(position);
    }
    text += "]";
  }
  return text;
}

void change(SelectListProt& list, unsigned long position, std::string_view body) {
  list.setHasRecordData(true);
  list.goToPosition(position);
  list.setRecord(new NOXPBlob(body.data(), body.size()));
}

ClientCalls::~ClientCalls() = default;

void ClientCalls::failOn(const Serializable& answer) {
  ADD_FAILURE() << "the reply is a " << typeid(answer).name() << " " << errorOf(answer) << " "
                << messageOf(answer);
}

std::string ClientCalls::say(noxp::RequestProt& request) {
  const std::unique_ptr<Serializable> reply = ask(request);
  const std::string error = errorOf(*reply);
  if (!error.empty()) return error;
  if (dynamic_cast<OKResponseProt*>(reply.get()) ||
      dynamic_cast<TransactionResponseProt*>(reply.get()) ||
      dynamic_cast<noxp::common::SetPropertiesResponseProt*>(reply.get())) {
    return "OK";
  }
  if (const auto* const tovi = dynamic_cast<ToviResponseProt*>(reply.get())) {
    return describe(*tovi);
  }
  if (const auto* const chunk = dynamic_cast<SelectListFetchResponseProt*>(reply.get())) {
    return test::describe(chunk->getSelectList());
  }
  failOn(*reply);
  return {};
}

std::string ClientCalls::open(const char* file) { return say(OpenFileRequestProt(file)); }
std::string ClientCalls::closeFile(const char* file) { return say(CloseFileRequestProt(file)); }
std::string ClientCalls::clear(const char* file) { return say(ClearFileRequestProt(file)); }

std::string ClientCalls::read(const char* file, const char* id, int mode) {
  const NOXPString fileName = raw(file);
  const NOXPString recordId = raw(id);
  return say(ReadRecordRequestProt(mode, &fileName, &recordId));
}

std::string ClientCalls::write(const char* file, const char* id, std::string_view body, int mode) {
  const NOXPString fileName = raw(file);
  const NOXPString recordId = raw(id);
  const NOXPBlob record(body.data(), body.size());
  WriteRecordRequestProt request(mode, &fileName, &recordId, &record);
  return say(request);
}

std::string ClientCalls::remove(const char* file, const char* id) {
  const NOXPString fileName = raw(file);
  const NOXPString recordId = raw(id);
  return say(DeleteRecordRequestProt(&fileName, &recordId));
}

std::string ClientCalls::exists(const char* file, const char* id) {
  const NOXPString fileName = raw(file);
  const NOXPString recordId = raw(id);
  return say(ExistsRecordRequestProt(&fileName, &recordId));
}

std::string ClientCalls::release(int mode, const char* file, const char* id) {
  const NOXPString fileName = raw(file);
  const NOXPString recordId = raw(id);
  return say(ReleaseRecordLockRequestProt(mode, &fileName, &recordId));
}

std::string ClientCalls::common(const char* name) {
  ReadCommonRequestProt request(name);
  const auto reply = askFor<ReadCommonResponseProt>(request);
  return reply && reply->getValue() ? textOf(*reply->getValue()) : std::string();
}

std::string ClientCalls::select(const char* file, int version) {
  SelectFileRequestProt request(file);
  request.setClassVersion(version);
  const std::unique_ptr<Serializable> reply = ask(request);
  const auto* const tovi = dynamic_cast<ToviResponseProt*>(reply.get());
  if (!tovi) return errorOf(*reply);
  return test::describe(dynamic_cast<SelectListProt*>(tovi->getSelectList()));
}

std::string ClientCalls::fetch(int list, int direction, unsigned long size, bool withRecords,
                               SelectListProt* modified) {
  SelectListProt none;
  return say(
      SelectListFetchRequestProt(list, direction, size, withRecords, modified ? modified : &none));
}

std::unique_ptr<SelectListFetchResponseProt> ClientCalls::fetchChunk(int list, int direction,
                                                                     unsigned long size) {
  SelectListProt none;
  SelectListFetchRequestProt request(list, direction, size, true, &none);
  return askFor<SelectListFetchResponseProt>(request);
}

std::string ClientCalls::commitList(SelectListProt& list) {
  return say(SelectListCommitRequestProt(&list));
}

std::string ClientCalls::closeList(int list) { return say(SelectListCloseRequestProt(list)); }

std::string ClientCalls::begin() { return say(BeginTransactionRequestProt()); }
std::string ClientCalls::commit() { return say(CommitTransactionRequestProt()); }
std::string ClientCalls::rollback() { return say(RollbackTransactionRequestProt()); }

namespace {

template <class Request>
std::string sayBranch(ClientCalls& calls, const char* id, int format) {
  Request request;
  const NOXPString name = raw(id);
  request.getXid()->setTransactionId(&name);
  request.getXid()->setFormat(format);
  return calls.say(request);
}

}  // namespace

std::string ClientCalls::xaStart(const char* id, int format) {
  return sayBranch<XAStartTransactionRequestProt>(*this, id, format);
}
std::string ClientCalls::xaEnd(const char* id, int format) {
  return sayBranch<XAEndTransactionRequestProt>(*this, id, format);
}
std::string ClientCalls::xaPrepare(const char* id, int format) {
  return sayBranch<XAPrepareTransactionRequestProt>(*this, id, format);
}
std::string ClientCalls::xaCommit(const char* id, int format) {
  return sayBranch<XACommitTransactionRequestProt>(*this, id, format);
}
std::string ClientCalls::xaRollback(const char* id, int format) {
  return sayBranch<XARollbackTransactionRequestProt>(*this, id, format);
}

std::string ClientCalls::set(const char* key, const char* value) {
  Properties properties;
  properties.setProperty(key, value);
  return say(noxp::common::SetPropertiesRequestProt(properties));
}

std::string ClientCalls::sql(const char* statement) {
  noxp::sql::CompileAndExecuteRequestProt request(new NOXPString(statement));
  const std::string error = errorOf(*ask(request));
  return error.empty() ? "OK" : error;
}

std::string ClientCalls::run(const char* command) {
  NOXPBlob line(command);
  RemoteExecuteRequestProt request(&line);
  const std::unique_ptr<Serializable> reply = ask(request);
  const auto* const done = dynamic_cast<ExecuteResponseProt*>(reply.get());
  if (!done) return errorOf(*reply);
  std::string output = textOf(*done->getCapturingVariable());
  std::replace(output.begin(), output.end(), static_cast<char>(kAttributeMark), '|');
  return output;
}

}  // namespace nox::agent::test
