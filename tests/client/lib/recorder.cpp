#include "tests/client/lib/recorder.h"

namespace nox::client::test {

namespace {

using namespace noxp::remote;
using namespace noxp::sql;

std::string textOf(NOXPString* text) { return text->getString(); }

std::string textOf(const NOXPBlob* blob) {
  if (!blob || !blob->getBuf()) return {};
  return {reinterpret_cast<const char*>(blob->getBuf()), blob->length()};
}

std::string numbers(std::initializer_list<long> values) {
  std::string text;
  for (const long value : values) text += ' ' + std::to_string(value);
  return text;
}

/// A list that travels with a request: its id, and each modified key with its record.
std::string changesOf(SelectListProt* list) {
  if (!list || list->getId() < 0) return "none";
  std::string text = std::to_string(list->getId());
  for (const unsigned long position : *list->getAllModified()) {
    list->goToPosition(position);
    text += ' ' + list->getKey() + '=' + textOf(list->getRecord());
  }
  return text;
}

std::string keysOf(SelectListProt* list) {
  if (!list || list->getId() < 0) return "none";
  std::string keys;
  list->keysToString(&keys);
  for (char& c : keys) {
    if (c == '\xFE') c = '|';
  }
  return std::to_string(list->getId()) + ":" + keys;
}

std::string valuesOf(noxp::ParameterListProt* list) {
  std::string text;
  for (unsigned int i = 0; list && i < list->count(); ++i) {
    const int index = static_cast<int>(i);
    text += ' ' + std::to_string(list->getParameterType(index)) + ':';
    text += list->isNull(index) == 1 ? "null" : textOf(list->getPtr(i));
  }
  return text;
}

template <class Request>
std::string record(const char* name, Request& request) {
  return std::string(name) + ' ' + textOf(request.getFileName()) + '/' +
         textOf(request.getRecordId());
}

std::string branch(const char* name, XARequestProt& request) {
  return std::string(name) + ' ' + std::to_string(request.getXid()->getFormat()) + ' ' +
         textOf(request.getXid()->getTransactionId());
}

/// Requests that destructors send, and whose answers nobody waits for.
bool isClosing(int type) {
  return type == TypeCode::CloseFileRequest || type == TypeCode::SelectListCloseRequest ||
         type == TypeCode::ReleaseStatementRequest;
}

}  // namespace

std::string describe(Serializable& any) {
  if (auto* r = dynamic_cast<ReadRecordRequestProt*>(&any)) {
    return record(("Read" + numbers({r->getReadMode()})).c_str(), *r);
  }
  if (auto* r = dynamic_cast<WriteRecordRequestProt*>(&any)) {
    return record(("Write" + numbers({r->getWriteMode()})).c_str(), *r) + '=' +
           textOf(r->getRecord());
  }
  if (auto* r = dynamic_cast<DeleteRecordRequestProt*>(&any)) return record("Delete", *r);
  if (auto* r = dynamic_cast<ExistsRecordRequestProt*>(&any)) return record("Exists", *r);
  if (auto* r = dynamic_cast<ReleaseRecordLockRequestProt*>(&any)) {
    return record(("Release" + numbers({r->getLockMode()})).c_str(), *r);
  }
  if (auto* r = dynamic_cast<OpenFileRequestProt*>(&any)) return "Open " + textOf(r->getFileName());
  if (auto* r = dynamic_cast<CloseFileRequestProt*>(&any)) {
    return "Close " + textOf(r->getFileName());
  }
  if (auto* r = dynamic_cast<ClearFileRequestProt*>(&any)) {
    return "Clear " + textOf(r->getFileName());
  }
  if (auto* r = dynamic_cast<SelectFileRequestProt*>(&any)) {
    return "Select " + textOf(r->getFileName()) + " v" + std::to_string(r->getClassVersion());
  }
  if (auto* r = dynamic_cast<SelectListFetchRequestProt*>(&any)) {
    return "ListFetch" +
           numbers({r->getSelectListId(), r->getFetchDirection(),
                    static_cast<long>(r->getFetchSize()), r->getFetchData() ? 1 : 0}) +
           " changes " + changesOf(r->getModifiedSelectList());
  }
  if (auto* r = dynamic_cast<SelectListCommitRequestProt*>(&any)) {
    return "ListCommit " + changesOf(r->getModifiedSelectList());
  }
  if (auto* r = dynamic_cast<SelectListCloseRequestProt*>(&any)) {
    return "ListClose" + numbers({r->getSelectListId()});
  }
  if (auto* r = dynamic_cast<RemoteExecuteRequestProt*>(&any)) {
    return "Run " + textOf(r->getCommand()) + " list " + keysOf(r->getSelectList()) + " v" +
           std::to_string(r->getClassVersion());
  }
  if (auto* r = dynamic_cast<RemoteInputRequestProt*>(&any)) {
    return "Input " + textOf(r->getInputData());
  }
  if (auto* r = dynamic_cast<RemoteSubroutineRequestProt*>(&any)) {
    return "Call " + textOf(r->getSubroutineName()) + valuesOf(r->getParameters());
  }
  if (auto* r = dynamic_cast<StatementExecuteQueryRequestProt*>(&any)) {
    return "Query " + textOf(r->getQuery()) + " v" + std::to_string(r->getClassVersion());
  }
  if (auto* r = dynamic_cast<StatementFetchRequestProt*>(&any)) {
    return "QueryFetch" + numbers({r->getStatementId(), r->getRowsToFetch()});
  }
  if (auto* r = dynamic_cast<ConvRequestProt*>(&any)) {
    return "Conv" + numbers({r->getConvType()}) + ' ' + textOf(r->getData()) + ' ' +
           textOf(r->getConversion());
  }
  if (auto* r = dynamic_cast<SwitchAccountRequestProt*>(&any)) {
    return "Switch " + textOf(r->getUser()) + '/' + textOf(r->getAccount()) + '/' +
           textOf(r->getPassword());
  }
  if (auto* r = dynamic_cast<ReadCommonRequestProt*>(&any)) return "Common " + textOf(r->getName());
  if (auto* r = dynamic_cast<MonitoringRequestProt*>(&any)) return "Monitor " + r->getCommand();
  if (auto* r = dynamic_cast<noxp::common::LoggingRequestProt*>(&any)) {
    return "Log" + numbers({r->getLevel()}) + ' ' + textOf(r->getInfo());
  }
  if (auto* r = dynamic_cast<noxp::common::SetPropertiesRequestProt*>(&any)) {
    std::string text = "Properties";
    for (const auto& [key, value] : *r->getProperties()) text += ' ' + key + '=' + value;
    return text;
  }
  if (auto* r = dynamic_cast<CompileRequestProt*>(&any)) return "Compile " + textOf(r->getSQL());
  if (auto* r = dynamic_cast<CompileAndExecuteRequestProt*>(&any)) {
    return "CompileAndExecute " + textOf(r->getSQL());
  }
  if (auto* r = dynamic_cast<BindRequestProt*>(&any)) {
    return "Bind" + numbers({r->getStatementId()}) + valuesOf(r->getParams());
  }
  if (auto* r = dynamic_cast<ExecuteRequestProt*>(&any)) {
    return "Execute" + numbers({r->getStatementId()});
  }
  if (auto* r = dynamic_cast<FetchRequestProt*>(&any)) {
    return "Fetch" + numbers({r->getStatementId(), r->getFetchSize()});
  }
  if (auto* r = dynamic_cast<MetaDataRequestProt*>(&any)) {
    return "MetaData" + numbers({r->getStatementId()});
  }
  if (auto* r = dynamic_cast<ReleaseStatementRequestProt*>(&any)) {
    return "ReleaseStatement" + numbers({r->getStatementId()});
  }
  if (auto* r = dynamic_cast<DatabaseMetaDataRequestProt*>(&any)) {
    return "Catalog " + r->getRequestProtedProperty() + valuesOf(r->getParams());
  }
  if (auto* r = dynamic_cast<TransactionStartRequestProt*>(&any)) {
    return "Begin" + numbers({r->getIsolationLevel()});
  }
  if (dynamic_cast<TransactionCommitRequestProt*>(&any)) return "Commit";
  if (dynamic_cast<TransactionRollbackRequestProt*>(&any)) return "Rollback";
  if (auto* r = dynamic_cast<XAStartTransactionRequestProt*>(&any)) return branch("XAStart", *r);
  if (auto* r = dynamic_cast<XAEndTransactionRequestProt*>(&any)) return branch("XAEnd", *r);
  if (auto* r = dynamic_cast<XAPrepareTransactionRequestProt*>(&any)) {
    return branch("XAPrepare", *r);
  }
  if (auto* r = dynamic_cast<XACommitTransactionRequestProt*>(&any)) return branch("XACommit", *r);
  if (auto* r = dynamic_cast<XARollbackTransactionRequestProt*>(&any)) {
    return branch("XARollback", *r);
  }
  if (dynamic_cast<DateTimeRequestProt*>(&any)) return "DateTime";
  if (dynamic_cast<EISMetaDataRequestProt*>(&any)) return "MetaDataOfServer";
  return "request " + std::to_string(any.getType());
}

void RecordedSession::answer(PeerConnection& client, Serializable& request) {
  if (auto* const echo = dynamic_cast<noxp::common::EchoRequestProt*>(&request)) {
    client.send(noxp::common::EchoResponseProt(new NOXPBlob(*echo->getBuffer())));
    return;
  }
  std::string frame;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    asked_.push_back(describe(request));
    if (!replies_.empty() && !isClosing(request.getType())) {
      frame = std::move(replies_.front());
      replies_.pop_front();
    }
  }
  if (frame.empty()) {
    client.send(OKResponseProt());
  } else {
    client.sendBytes(frame);
  }
}

}  // namespace nox::client::test
