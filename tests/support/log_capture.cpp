#include "tests/support/log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <atomic>
#include <mutex>

namespace nox::test {

namespace {

const char* nameOf(int priority) {
  switch (priority) {
    case LM_TRACE:
      return "TRACE";
    case nox::debug:
      return "DEBUG";
    case nox::info:
      return "INFO";
    case nox::notice:
      return "NOTICE";
    case nox::warning:
      return "WARNING";
    case nox::error:
      return "ERROR";
    case nox::critical:
      return "CRITICAL ERROR";
    case nox::alert:
      return "ALERT";
    case nox::emergency:
      return "EMERGENCY";
    default:
      return "";
  }
}

/// Takes "(process|thread) NAME " and, for debug records, the indentation and its blank off `line`.
/// A line of another shape stays as it is.
std::string withoutPrefix(const std::string& line, int priority, int depth) {
  const std::size_t process = line.find(") ");
  if (line.empty() || line[0] != '(' || process == std::string::npos) return line;
  std::string prefix = std::string(nameOf(priority)) + ' ';
  constexpr int kBlanksPerLevel = 4;
  if (priority == nox::debug)
    prefix.append(static_cast<std::size_t>(kBlanksPerLevel * depth) + 1, ' ');
  if (line.compare(process + 2, prefix.size(), prefix) != 0) return line;
  return line.substr(process + 2 + prefix.size());
}

}  // namespace

class LogCapture::Sink : public ACE_Log_Msg_Callback {
public:
  void log(ACE_Log_Record& record) override {
    ACE_Log_Msg& backEnd = *ACE_Log_Msg::instance();
    const int priority = static_cast<int>(record.type());
    const std::string line = record.msg_data();
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      records_.push_back({priority, line, withoutPrefix(line, priority, backEnd.trace_depth()),
                          backEnd.file() ? backEnd.file() : "", backEnd.linenum()});
    }
    if (auto* const reaction = reaction_.load()) reaction();
  }

  std::vector<LogRecord> records() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return records_;
  }

  void clear() {
    const std::lock_guard<std::mutex> guard(mutex_);
    records_.clear();
  }

  std::atomic<void (*)()> reaction_{nullptr};

private:
  mutable std::mutex mutex_;
  std::vector<LogRecord> records_;
};

// The back end's flags are the process's, its callback is each thread's own.
LogCapture::LogCapture()
    : sink_(std::make_unique<Sink>()), outerFlags_(ACE_Log_Msg::instance()->flags()) {
  thread_ = std::make_unique<Thread>(*this);
  ACE_Log_Msg* const backEnd = ACE_Log_Msg::instance();
  backEnd->clr_flags(outerFlags_);
  backEnd->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

LogCapture::~LogCapture() {
  ACE_Log_Msg* const backEnd = ACE_Log_Msg::instance();
  backEnd->clr_flags(backEnd->flags());
  backEnd->set_flags(outerFlags_);
}

LogCapture::Thread::Thread(LogCapture& capture)
    : outer_(ACE_Log_Msg::instance()->msg_callback(capture.sink_.get())) {}

LogCapture::Thread::~Thread() { ACE_Log_Msg::instance()->msg_callback(outer_); }

void LogCapture::onRecord(void (*reaction)()) { sink_->reaction_ = reaction; }

std::vector<LogRecord> LogCapture::records() const { return sink_->records(); }

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> found;
  for (const LogRecord& record : sink_->records()) found.push_back(record.text);
  return found;
}

std::vector<std::string> LogCapture::texts(int priority) const {
  std::vector<std::string> found;
  for (const LogRecord& record : sink_->records()) {
    if (record.priority == priority) found.push_back(record.text);
  }
  return found;
}

std::string LogCapture::output() const {
  std::string all;
  for (const LogRecord& record : sink_->records()) all += record.line;
  return all;
}

void LogCapture::clear() { sink_->clear(); }

}  // namespace nox::test
