#include "agent/session/session_registry.h"

#include <utility>

namespace nox::agent {

SessionId SessionRegistry::newId() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return ++lastId_;
}

void SessionRegistry::add(SessionId id, Describe describe, Kill kill) {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_[id] = Entry{std::move(describe), std::move(kill)};
}

void SessionRegistry::remove(SessionId id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.erase(id);
}

std::vector<SessionInfo> SessionRegistry::list() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<SessionInfo> infos;
  infos.reserve(entries_.size());
  for (const auto& [id, entry] : entries_) infos.push_back(entry.describe());
  return infos;
}

bool SessionRegistry::kill(SessionId id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(id);
  if (found == entries_.end()) return false;
  found->second.kill();
  return true;
}

std::size_t SessionRegistry::size() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

}  // namespace nox::agent
