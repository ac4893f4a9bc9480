#include "agent/log/log.h"

#include <fcntl.h>
#include <spdlog/fmt/fmt.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "agent/names.h"

namespace nox::agent {

namespace {

using SystemClock = std::chrono::system_clock;

/// How long the log's thread lets access lines gather before it writes them at one go.
constexpr std::chrono::milliseconds kGather{20};

spdlog::level::level_enum levelOf(LogLevel level) {
  switch (level) {
    case LogLevel::Debug:
      return spdlog::level::debug;
    case LogLevel::Info:
      return spdlog::level::info;
    case LogLevel::Warning:
      return spdlog::level::warn;
    case LogLevel::Error:
      break;
  }
  return spdlog::level::err;
}

/// Gathers lines and writes them to a file or to standard error when it is flushed. What cannot be
/// written is lost: there is no better place to say so.
class DescriptorSink : public spdlog::sinks::base_sink<std::mutex> {
public:
  /// Throws std::runtime_error.
  explicit DescriptorSink(std::string file)
      : file_(std::move(file)), descriptor_(file_.empty() ? STDERR_FILENO : openFile()) {
    if (descriptor_ < 0) {
      throw std::runtime_error("the log " + file_ + " cannot be written: " + std::strerror(errno));
    }
  }
  ~DescriptorSink() override {
    if (!file_.empty()) close(descriptor_);
  }
  DescriptorSink(const DescriptorSink&) = delete;
  DescriptorSink& operator=(const DescriptorSink&) = delete;

  /// What went wrong; empty: nothing.
  std::string reopen() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (file_.empty()) return {};
    const int next = openFile();
    if (next < 0) return std::strerror(errno);
    close(std::exchange(descriptor_, next));
    return {};
  }

protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    formatter_->format(message, gathered_);
    constexpr std::size_t kMostGathered = 64 * 1024;
    if (gathered_.size() >= kMostGathered) flush_();
  }

  void flush_() override {
    const char* next = gathered_.data();
    std::size_t left = gathered_.size();
    while (left > 0) {
      const ssize_t written = ::write(descriptor_, next, left);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) break;
      next += written;
      left -= static_cast<std::size_t>(written);
    }
    gathered_.clear();
  }

private:
  int openFile() const {
    constexpr mode_t kOwnerWritesGroupReads = 0640;
    return open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kOwnerWritesGroupReads);
  }

  const std::string file_;
  int descriptor_;
  spdlog::memory_buf_t gathered_;
};

/// A text of up to 64 bytes that lies inside its record, so that queueing one allocates nothing.
class ShortText {
public:
  explicit ShortText(std::string_view text)
      : size_(static_cast<std::uint8_t>(std::min(text.size(), kMost))) {
    std::copy_n(text.data(), size_, bytes_.data());
  }
  std::string_view view() const { return {bytes_.data(), size_}; }

private:
  static constexpr std::size_t kMost = 64;
  std::uint8_t size_;
  std::array<char, kMost> bytes_;
};

/// An access record as it waits: it refers to nothing that may go away.
struct WaitingLine {
  WaitingLine(const AccessRecord& record, bool isSlow)
      : time(SystemClock::now()),
        session(record.session),
        user(record.user),
        account(record.account),
        request(record.request),
        bytesIn(record.bytesIn),
        bytesOut(record.bytesOut),
        duration(record.duration),
        outcome(record.outcome),
        slow(isSlow) {}

  SystemClock::time_point time;
  std::uint64_t session;
  ShortText user;
  ShortText account;
  const char* request;
  std::uint64_t bytesIn;
  std::uint64_t bytesOut;
  std::chrono::nanoseconds duration;
  ShortText outcome;
  bool slow;
};

/// A character as a terminal, or a reader of lines, may obey it: C0, DEL, C1, and those that break
/// lines or turn the direction of the text around.
bool isObeyed(std::string_view character) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(character[i]); };
  if (character.size() == 1) return byte(0) < 0x20 || byte(0) == 0x7F;
  if (character.size() == 2) return byte(0) == 0xC2 && byte(1) < 0xA0;  // U+0080 to U+009F
  if (character.size() != 3 || byte(0) != 0xE2) return false;
  if (byte(1) == 0x80) {  // U+200E, U+200F, U+2028 to U+202E
    return byte(2) == 0x8E || byte(2) == 0x8F || (byte(2) >= 0xA8 && byte(2) <= 0xAE);
  }
  return byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9;  // U+2066 to U+2069
}

std::size_t lengthAnnouncedBy(char lead) {
  const auto byte = static_cast<std::uint8_t>(lead);
  if (byte < 0xC0) return 1;
  if (byte < 0xE0) return 2;
  return byte < 0xF0 ? 3 : 4;
}

void appendHex(std::string& text, char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<std::uint8_t>(c);
  text += "\\x";
  text += kDigits[byte >> 4U];
  text += kDigits[byte & 0x0FU];
}

// Faster than a format string; there may be a line for each request.
void append(fmt::memory_buffer& line, std::string_view text) {
  line.append(text.data(), text.data() + text.size());
}
void append(fmt::memory_buffer& line, std::uint64_t number) {
  const fmt::format_int digits(number);
  append(line, std::string_view(digits.data(), digits.size()));
}

bool isPlain(char c) { return c > ' ' && c < 0x7F && c != '\\'; }

/// A value of key=value: what separates fields is escaped, too. Nearly all are plain text already.
void appendField(fmt::memory_buffer& line, std::string_view text) {
  if (text.empty()) text = "-";
  if (std::all_of(text.begin(), text.end(), isPlain)) {
    append(line, text);
    return;
  }
  std::string escaped;
  for (const char c : Log::escaped(text)) {
    if (c == ' ') {
      appendHex(escaped, c);
    } else {
      escaped += c;
    }
  }
  append(line, escaped);
}

}  // namespace

std::optional<LogLevel> parseLogLevel(std::string_view text) {
  if (text == "debug") return LogLevel::Debug;
  if (text == "info") return LogLevel::Info;
  if (text == "warning") return LogLevel::Warning;
  if (text == "error") return LogLevel::Error;
  return std::nullopt;
}

struct Log::Impl {
  Impl(const std::string& file, LogLevel level)
      : sink(std::make_shared<DescriptorSink>(file)), logger("noxd", sink) {
    logger.set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%Y-%m-%dT%H:%M:%S.%eZ %l %v", spdlog::pattern_time_type::utc));
    logger.set_level(levelOf(level));
    thread = std::thread([this] { run(); });
  }

  ~Impl() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      ending = true;
    }
    wake.notify_one();
    thread.join();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void queue(const AccessRecord& record, bool isSlow) {
    if (!logger.should_log(isSlow ? spdlog::level::warn : spdlog::level::info)) return;
    const WaitingLine line(record, isSlow);
    bool wakeUp = false;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (waiting.size() >= kMostWaiting) {
        ++lost;
        return;
      }
      waiting.push_back(line);
      ++queued;
      // A thread that gathers comes by itself; one wake-up serves many lines.
      wakeUp = std::exchange(resting, false);
    }
    if (wakeUp) wake.notify_one();
  }

  void flush() {
    std::unique_lock<std::mutex> lock(mutex);
    const std::uint64_t last = queued;
    hurry = true;
    wake.notify_one();
    drained.wait(lock, [&] { return written >= last; });
  }

  void run() {
    std::vector<WaitingLine> batch;
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
      resting = true;
      wake.wait(lock, [&] { return !waiting.empty() || lost > 0 || hurry || ending; });
      resting = false;
      wake.wait_for(lock, kGather, [&] { return hurry || ending; });
      hurry = false;
      const bool last = ending;
      batch.swap(waiting);
      const std::uint64_t missing = std::exchange(lost, 0);
      lock.unlock();
      for (const WaitingLine& line : batch) format(line);
      if (missing > 0) {
        logger.warn("{} access lines are missing: the log could not keep up", missing);
      }
      logger.flush();
      lock.lock();
      written += batch.size();
      batch.clear();
      drained.notify_all();
      if (last && waiting.empty()) return;
    }
  }

  void format(const WaitingLine& line) {
    using std::chrono::duration_cast;
    const auto microseconds = duration_cast<std::chrono::microseconds>(line.duration).count();
    fmt::memory_buffer text;
    append(text, line.slow ? "slow session=" : "access session=");
    append(text, line.session);
    append(text, " user=");
    appendField(text, line.user.view());
    append(text, " account=");
    appendField(text, line.account.view());
    append(text, " request=");
    append(text, line.request);
    append(text, " in=");
    append(text, line.bytesIn);
    append(text, " out=");
    append(text, line.bytesOut);
    append(text, " us=");
    append(text, static_cast<std::uint64_t>(std::max<std::int64_t>(microseconds, 0)));
    append(text, " outcome=");
    appendField(text, line.outcome.view());
    logger.log(line.time, spdlog::source_loc{},
               line.slow ? spdlog::level::warn : spdlog::level::info,
               spdlog::string_view_t(text.data(), text.size()));
  }

  const std::shared_ptr<DescriptorSink> sink;
  spdlog::logger logger;

  std::mutex mutex;
  std::condition_variable wake;
  std::condition_variable drained;
  std::vector<WaitingLine> waiting;
  std::uint64_t queued = 0;
  std::uint64_t written = 0;
  std::uint64_t lost = 0;
  bool resting = false;  // the thread waits for a first line
  bool hurry = false;
  bool ending = false;
  std::thread thread;
};

Log::Log(const std::string& file, LogLevel level) : impl_(std::make_unique<Impl>(file, level)) {}

Log::~Log() = default;

void Log::setLevel(LogLevel level) { impl_->logger.set_level(levelOf(level)); }

void Log::write(LogLevel level, std::string_view text) {
  if (!impl_->logger.should_log(levelOf(level))) return;
  const std::string line = escaped(text);
  impl_->logger.log(levelOf(level), spdlog::string_view_t(line.data(), line.size()));
  impl_->logger.flush();
}

void Log::access(const AccessRecord& record) { impl_->queue(record, false); }

void Log::slow(const AccessRecord& record) { impl_->queue(record, true); }

void Log::reopen() {
  flush();
  const std::string mistake = impl_->sink->reopen();
  if (!mistake.empty()) error("the log cannot be opened anew and stays as it is: " + mistake);
}

void Log::flush() { impl_->flush(); }

std::string Log::escaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view character = text.substr(0, lengthAnnouncedBy(text.front()));
    if (!isUtf8(character)) {
      // One byte at a time: the next may begin a character.
      appendHex(result, text.front());
      text.remove_prefix(1);
      continue;
    }
    if (isObeyed(character)) {
      for (const char c : character) appendHex(result, c);
    } else if (character == "\\") {
      // Doubled, so that nobody can write what only looks like an escape.
      result += "\\\\";
    } else {
      result += character;
    }
    text.remove_prefix(character.size());
  }
  return result;
}

}  // namespace nox::agent
