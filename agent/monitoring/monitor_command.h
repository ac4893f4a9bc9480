// The language of the monitoring commands.
#pragma once

#include <string>
#include <string_view>

#include "agent/names.h"
#include "agent/session/session_registry.h"

namespace nox::agent {

/// A command, taken apart:
///
///   status | sessions | locks [FILE] | lists | version
///   xa list | xa commit FORMAT:ID | xa rollback FORMAT:ID
///   kill SESSION | unlock FILE ID
///
/// FILE is a name or `DICT name`. Words are divided by blanks; the last argument is the rest of the
/// line, since ids of records and of branches may hold blanks.
struct MonitorCommand {
  enum class Verb {
    Status,
    Sessions,
    Locks,
    Lists,
    XaList,
    XaCommit,
    XaRollback,
    Kill,
    Unlock,
    Version
  };

  Verb verb = Verb::Status;
  bool hasFile = false;
  FilePart file;
  std::string id;  // of a record, or of a branch as "format:id"
  SessionId session = 0;
};

/// Throws std::invalid_argument that says what is wrong.
MonitorCommand parseMonitorCommand(std::string_view line);

}  // namespace nox::agent
