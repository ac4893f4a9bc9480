#include "client/src/trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>

#include "client/src/socket.h"
#include "client/src/uri.h"

namespace nox::client::detail {

namespace {

std::atomic<std::uint64_t> connections{0};

std::string timestamp() {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto sinceEpoch =
      duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch());
  const std::time_t seconds = static_cast<std::time_t>(sinceEpoch.count() / 1'000'000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(sinceEpoch.count() % 1'000'000));
  return text;
}

void appendHex(std::string& to, std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    to += kDigits[byte >> 4];
    to += kDigits[byte & 0x0F];
  }
}

}  // namespace

Trace::Trace(const std::string& file, bool showPayload)
    : showsPayload_(showPayload), connection_(++connections) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
  file_ = Descriptor(::open(file.c_str(), kFlags, 0600));
  if (!file_) throwBadOption("the trace file " + file + " cannot be opened: " + systemText(errno));
}

void Trace::write(Direction direction, const char* name, int type, std::uint64_t bytes,
                  std::string_view body, bool isSecret) noexcept {
  if (!isOn()) return;
  try {
    std::string line = timestamp();
    line += ' ' + std::to_string(::getpid()) + '.' + std::to_string(connection_);
    line += direction == Direction::Sent ? " > " : " < ";
    line += name;
    line += " type=" + std::to_string(type) + " bytes=" + std::to_string(bytes) + " payload=";
    if (showsPayload_ && !isSecret) {
      appendHex(line, body);
    } else {
      line += "***";
    }
    line += '\n';
    // One write, and no second try: a part of a line would spoil the next one.
    static_cast<void>(::write(file_.get(), line.data(), line.size()) < 0);
  } catch (const std::exception&) {
    // No memory for the line: it is left out.
  }
}

}  // namespace nox::client::detail
