// The insertion-chain logger through which the library reports conditions.
#pragma once

#include <cstdint>
#include <string>

#include "nox/config.h"
#include "nox/core/export.h"
#include "nox/diag/mutex.h"

namespace nox {

/// Whether this build writes what is inserted (NOX_LOGGER_OUTPUT=ON) or discards it.
constexpr bool kLoggerOutput = NOX_LOGGER_OUTPUT != 0;

/// The priority bits of the log back end.
enum Log_Priority {
  debug = 4,
  info = 8,
  notice = 16,
  warning = 32,
  error = 128,
  critical = 256,
  alert = 512,
  emergency = 1024
};

/// Ends a message when it is inserted.
class NOX_EXPORT EndLog {};

/// A message is a chain: the logger, texts and numbers, and an EndLog. Without output every
/// operation discards its argument and costs nothing; with it the chain gathers its text and EndLog
/// hands it to the log back end, as the one argument of the format, at the logger's priority.
/// Threads may share a logger: each gathers its own text.
class NOX_EXPORT Logger {
public:
#if NOX_LOGGER_OUTPUT
  /// `format` is constant text with one %s for the text.
  Logger(Log_Priority priority, const char* format);
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  /// Null counts as empty text.
  Logger& operator<<(const char* text);
  Logger& operator<<(const std::string& text);
  Logger& operator<<(const void* address);
  Logger& operator<<(long number);
  Logger& operator<<(const EndLog& end);
  /// The source position of this thread's next message; `file` is kept by address.
  Logger& setFile(const char* file);
  Logger& setLine(unsigned int line);
  void setLogLevel(Log_Priority) {}

private:
  Log_Priority priority_;
  const char* format_;
  std::uint64_t id_;                  // finds the thread's gathered text; never used again
  Mutex mutex_;                       // one message at a time
  [[maybe_unused]] bool timestamps_;  // AGENT_LOG_TIME was set; the formats have no place for it
#else
  constexpr Logger(Log_Priority priority, const char* format)
      : priority_(priority), format_(format) {}
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  Logger& operator<<(const char*) { return *this; }
  Logger& operator<<(const std::string&) { return *this; }
  Logger& operator<<(const void*) { return *this; }
  Logger& operator<<(long) { return *this; }
  Logger& operator<<(const EndLog&) { return *this; }
  Logger& setFile(const char*) { return *this; }
  Logger& setLine(unsigned int) { return *this; }
  void setLogLevel(Log_Priority) {}

private:
  [[maybe_unused]] Log_Priority priority_;
  [[maybe_unused]] const char* format_;
#endif
};

}  // namespace nox
