// The agent's log: one line per event, nothing in it that a terminal would obey.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace nox::agent {

enum class LogLevel { Debug, Info, Warning, Error };

/// One answered request.
struct AccessRecord {
  std::uint64_t session = 0;
  std::string_view user;
  std::string_view account;
  const char* request = "";  // its class, a literal
  std::uint64_t bytesIn = 0;
  std::uint64_t bytesOut = 0;
  std::chrono::nanoseconds duration{0};
  std::string_view outcome;  // "ok", or an SQLSTATE
};

/// Safe for threads. Texts are escaped: control characters and bytes that are no UTF-8 as \xHH.
class Log {
public:
  /// `file` empty: standard error. Throws std::runtime_error when it cannot be written.
  Log(const std::string& file, LogLevel level);
  ~Log();

  void write(LogLevel level, std::string_view text);
  void debug(std::string_view text) { write(LogLevel::Debug, text); }
  void info(std::string_view text) { write(LogLevel::Info, text); }
  void warning(std::string_view text) { write(LogLevel::Warning, text); }
  void error(std::string_view text) { write(LogLevel::Error, text); }
  /// Cheap for the caller: formatted by a thread of the log.
  void access(const AccessRecord& record);
  void slow(const AccessRecord& record);

  /// Opens the file anew, after it was rotated.
  void reopen();
  void flush();

  static std::string escaped(std::string_view text);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
