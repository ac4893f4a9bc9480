// The agent's log: one line per event, nothing in it that a terminal would obey.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace nox::agent {

enum class LogLevel { Debug, Info, Warning, Error };

/// "debug", "info", "warning" or "error".
std::optional<LogLevel> parseLogLevel(std::string_view text);

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

/// Safe for threads. Texts are escaped: control characters and bytes that are no UTF-8 as \xHH, a
/// backslash as two.
///
/// What is written is in the file when the call returns. Access lines wait in a queue of
/// kMostWaiting records for the log's own thread, which writes them a moment later; where it cannot
/// keep up, because the disk does not, requests do not wait for it: lines are left out, and a
/// warning says how many.
class Log {
public:
  static constexpr std::size_t kMostWaiting = 8192;

  /// `file` empty: standard error. Throws std::runtime_error when it cannot be written.
  Log(const std::string& file, LogLevel level);
  /// Writes what waits.
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void setLevel(LogLevel level);

  void write(LogLevel level, std::string_view text);
  void debug(std::string_view text) { write(LogLevel::Debug, text); }
  void info(std::string_view text) { write(LogLevel::Info, text); }
  void warning(std::string_view text) { write(LogLevel::Warning, text); }
  void error(std::string_view text) { write(LogLevel::Error, text); }
  /// Cheap for the caller: formatted by a thread of the log. User and account are cut behind 64
  /// bytes.
  void access(const AccessRecord& record);
  /// The same, as a warning.
  void slow(const AccessRecord& record);

  /// Opens the file anew, after it was rotated. Where that fails the old one is kept, and a line
  /// in it says so.
  void reopen();
  /// Returns when everything that waited is written.
  void flush();

  static std::string escaped(std::string_view text);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
