#include "agent/session/dispatcher.h"

namespace nox::agent {

std::vector<const char*> Dispatcher::names() const {
  std::vector<const char*> names(entries_.size());
  for (const auto& [type, entry] : entries_) names[entry.index] = entry.name;
  return names;
}

Dispatcher allRequests() {
  Dispatcher dispatcher;
  registerCommonRequests(dispatcher);
  registerRecordRequests(dispatcher);
  registerFileRequests(dispatcher);
  registerSelectListRequests(dispatcher);
  registerTransactionRequests(dispatcher);
  registerCommandRequests(dispatcher);
  registerQueryRequests(dispatcher);
  registerAccountRequests(dispatcher);
  registerSqlRequests(dispatcher);
  return dispatcher;
}

}  // namespace nox::agent
