// What the library hands to the log back end, as records a test can look at.
#pragma once

#include <ace/config-macros.h>

#include <memory>
#include <string>
#include <vector>

#include "nox/diag/logger.h"

ACE_BEGIN_VERSIONED_NAMESPACE_DECL
class ACE_Log_Msg_Callback;
ACE_END_VERSIONED_NAMESPACE_DECL

namespace nox::test {

struct LogRecord {
  int priority;      // a Log_Priority, or 2 for traces
  std::string line;  // as formatted: "(123|124) DEBUG  text"
  std::string text;  // the line without the prefix "(123|124) DEBUG  ", indentation included
  std::string file;  // the source position that was set for it
  int sourceLine;
};

/// Catches the records of the thread that makes it, in place of the standard error stream, until it
/// is destroyed. Captures nest. In builds that discard logger output only the tracer and the
/// socket-option errors write anything:
///
///   LogCapture log;
///   reader.readRootObject();
///   if (nox::kLoggerOutput) {
///     EXPECT_THAT(log.texts(), Contains("Corrupted data. "));
///   }
class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Catches the records of a further thread, the one that makes it, for as long as it lives.
  class Thread {
  public:
    explicit Thread(LogCapture& capture);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

  private:
    ACE_Log_Msg_Callback* outer_;
  };

  /// Calls `reaction` within the back end, after each record was kept.
  void onRecord(void (*reaction)());

  std::vector<LogRecord> records() const;
  /// The records' texts, oldest first.
  std::vector<std::string> texts() const;
  /// Those of one priority.
  std::vector<std::string> texts(int priority) const;
  /// The records' whole lines, one after the other.
  std::string output() const;
  void clear();

private:
  class Sink;
  std::unique_ptr<Sink> sink_;
  std::unique_ptr<Thread> thread_;
  unsigned long outerFlags_;
};

/// Runs `action` and returns the texts it logged in this thread; none without logger output.
template <class Action>
std::vector<std::string> logged(Action&& action) {
  const LogCapture log;
  action();
  return log.texts();
}

}  // namespace nox::test
