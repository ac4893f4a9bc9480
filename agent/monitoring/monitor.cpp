#include "agent/monitoring/monitor.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <initializer_list>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include "agent/failure.h"
#include "agent/locks/lock_table.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/monitoring/monitor_command.h"
#include "agent/session/agent.h"
#include "agent/session/branches.h"
#include "agent/session/session.h"
#include "agent/session/session_registry.h"
#include "agent/store/store.h"
#include "agent/version.h"

// An administrator has his right in one account, and sees and ends what belongs to it alone; only
// the sums of `status` are the whole agent's.

namespace nox::agent {

namespace {

/// Lines of fields, as long as they fit into a reply's text. What is left out is left out by whole
/// lines.
class Table {
public:
  explicit Table(std::initializer_list<std::string> heading) { add(heading); }

  void add(std::initializer_list<std::string> fields) {
    std::string line;
    for (const std::string& field : fields) {
      if (&field != fields.begin()) line += '\t';
      line += Log::escaped(field);
    }
    const std::size_t needed = line.size() + (text_.empty() ? 0 : 1);
    isFull_ = isFull_ || text_.size() + needed > kMostMonitoringBytes;
    if (isFull_) return;
    if (!text_.empty()) text_ += '\n';
    text_ += line;
  }

  bool isFull() const { return isFull_; }
  std::string take() { return std::move(text_); }

private:
  std::string text_;
  bool isFull_ = false;
};

template <class Number>
std::string numeral(Number number) {
  return std::to_string(number);
}

std::string yesOrNo(bool flag) { return flag ? "yes" : "no"; }

/// In UTC.
std::string timeText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[sizeof "-2147481748-12-31T23:59:59Z"];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return std::string(text, size);
}

std::string textOf(const BranchId& id) { return std::to_string(id.format) + ":" + id.id; }

std::vector<SessionInfo> sessionsOf(Session& asker) {
  std::vector<SessionInfo> sessions = asker.agent().sessions.list();
  sessions.erase(
      std::remove_if(sessions.begin(), sessions.end(),
                     [&](const SessionInfo& info) { return info.account != asker.account(); }),
      sessions.end());
  return sessions;
}

std::string status(Session& session) {
  const Agent& agent = session.agent();
  const StoreStatistics store = agent.stores.open(session.account()).statistics();
  Table table{"name", "value"};
  table.add({"version", version()});
  table.add({"sessions", numeral(agent.sessions.size())});
  table.add({"connections", numeral(agent.metrics.connections())});
  table.add({"requests", numeral(agent.metrics.requests())});
  table.add({"locks", numeral(agent.locks.size())});
  table.add({"account", session.account()});
  table.add({"account sessions", numeral(sessionsOf(session).size())});
  table.add({"account locks", numeral(agent.locks.list(session.account()).size())});
  table.add({"account branches", numeral(agent.branches.list(session.account()).size())});
  table.add({"account writes", numeral(store.writes)});
  table.add({"account commits", numeral(store.commits)});
  table.add({"account bytes", numeral(store.bytes)});
  return table.take();
}

std::string sessions(Session& session) {
  Table table{"session", "user",        "account", "peer",     "tls",      "client",    "state",
              "request", "transaction", "lists",   "requests", "bytes in", "bytes out", "since"};
  for (const SessionInfo& info : sessionsOf(session)) {
    table.add({numeral(info.id), info.user, info.account, info.peer, yesOrNo(info.tls),
               info.clientName, info.state, info.lastRequest, yesOrNo(info.inTransaction),
               numeral(info.openLists), numeral(info.requests), numeral(info.bytesIn),
               numeral(info.bytesOut), timeText(info.since)});
  }
  return table.take();
}

std::string lists(Session& session) {
  Table table{"session", "user", "lists"};
  for (const SessionInfo& info : sessionsOf(session)) {
    if (info.openLists > 0) table.add({numeral(info.id), info.user, numeral(info.openLists)});
  }
  return table.take();
}

/// Who keeps locks, as people know them.
std::map<LockOwner, std::string> lockOwners(Session& session) {
  std::map<LockOwner, std::string> owners;
  // Branches first: one that runs in a session has the session's locks.
  for (const BranchInfo& info : session.agent().branches.list(session.account())) {
    owners.emplace(info.owner, "branch " + textOf(info.id));
  }
  for (const SessionInfo& info : sessionsOf(session)) {
    owners.insert_or_assign(info.lockOwner, "session " + numeral(info.id));
  }
  owners.insert_or_assign(session.lockOwner(), "session " + numeral(session.id()));
  return owners;
}

std::string locks(Session& session, const MonitorCommand& command) {
  const auto owners = lockOwners(session);
  Table table{"file", "id", "kind", "owner", "waiting"};
  for (const HeldLock& lock : session.agent().locks.list(session.account(), command.file.file)) {
    if (command.file.part == Part::Dict && lock.record.file.part != Part::Dict) continue;
    if (table.isFull()) break;
    const auto owner = owners.find(lock.owner);
    table.add({lock.record.file.text(), lock.record.id,
               lock.kind == LockKind::Shared ? "shared" : "update",
               owner == owners.end() ? std::string() : owner->second, numeral(lock.waiting)});
  }
  return table.take();
}

std::string unlock(Session& session, const MonitorCommand& command) {
  LockTable& table = session.agent().locks;
  const RecordLock record{session.account(), command.file, command.id};
  std::vector<LockOwner> holders;
  for (const HeldLock& lock : table.list(session.account(), command.file.file)) {
    if (lock.record == record) holders.push_back(lock.owner);
  }
  // A branch without its locks could no longer be committed safely.
  for (const BranchInfo& branch : session.agent().branches.list(session.account())) {
    if (branch.state != "started" &&
        std::find(holders.begin(), holders.end(), branch.owner) != holders.end()) {
      throw std::invalid_argument("branch " + textOf(branch.id) +
                                  " keeps this lock until it is committed or rolled back");
    }
  }
  for (const LockOwner holder : holders) table.release(holder, record);
  Table answer{"file", "id", "released"};
  answer.add({command.file.text(), command.id, numeral(holders.size())});
  return answer.take();
}

std::string kill(Session& session, SessionId victim) {
  if (victim == session.id()) throw std::invalid_argument("that is this session itself");
  const std::vector<SessionInfo> all = sessionsOf(session);
  const bool isHere = std::any_of(all.begin(), all.end(),
                                  [&](const SessionInfo& info) { return info.id == victim; });
  if (!isHere || !session.agent().sessions.kill(victim)) {
    throw std::invalid_argument("there is no session " + numeral(victim));
  }
  Table table{"session", "state"};
  table.add({numeral(victim), "ending"});
  return table.take();
}

std::string listBranches(Session& session) {
  Table table{"branch", "state", "locks", "since"};
  for (const BranchInfo& info : session.agent().branches.list(session.account())) {
    table.add({textOf(info.id), info.state, numeral(info.locks), timeText(info.since)});
  }
  return table.take();
}

/// The branch that the list shows like this. What is not in the list may be typed in full.
BranchId branchOf(Session& session, const std::string& shown) {
  for (const BranchInfo& info : session.agent().branches.list(session.account())) {
    const std::string text = textOf(info.id);
    if (text == shown || Log::escaped(text) == shown) return info.id;
  }
  throw std::invalid_argument("there is no branch " + shown);
}

std::string settleBranch(Session& session, const MonitorCommand& command) {
  const BranchId id = branchOf(session, command.id);
  const bool commits = command.verb == MonitorCommand::Verb::XaCommit;
  Branches& branches = session.agent().branches;
  if (commits) {
    branches.commit(session.account(), id);
  } else {
    branches.rollback(session.account(), id);
  }
  session.agent().log.warning("user " + session.user() + " " +
                              (commits ? "committed" : "rolled back") + " branch " + textOf(id) +
                              " of account " + session.account());
  Table table{"branch", "state"};
  table.add({textOf(id), commits ? "committed" : "rolled back"});
  return table.take();
}

std::string versions() {
  Table table{"name", "version"};
  table.add({"noxd", version()});
  return table.take();
}

std::string answer(Session& session, std::string_view line) {
  using Verb = MonitorCommand::Verb;
  const MonitorCommand command = parseMonitorCommand(line);
  switch (command.verb) {
    case Verb::Status:
      return status(session);
    case Verb::Sessions:
      return sessions(session);
    case Verb::Locks:
      return locks(session, command);
    case Verb::Lists:
      return lists(session);
    case Verb::XaList:
      return listBranches(session);
    case Verb::XaCommit:
    case Verb::XaRollback:
      return settleBranch(session, command);
    case Verb::Kill:
      return kill(session, command.session);
    case Verb::Unlock:
      return unlock(session, command);
    case Verb::Version:
      return versions();
  }
  return {};
}

std::string errorText(const std::string& reason) {
  constexpr std::size_t kLongest = 1000;
  return "error: " + Log::escaped(std::string_view(reason).substr(0, kLongest));
}

}  // namespace

std::string monitor(Session& session, std::string_view command) {
  if (session.right() < Right::Admin) return "error: not allowed";
  try {
    return answer(session, command);
  } catch (const std::invalid_argument& mistake) {
    return errorText(mistake.what());
  } catch (const Failure& failure) {
    return errorText(failure.what());
  } catch (const StoreError& error) {
    return errorText(error.what());
  }
}

}  // namespace nox::agent
