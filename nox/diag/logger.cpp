#include "nox/diag/logger.h"

#if NOX_LOGGER_OUTPUT

#include <ace/Log_Msg.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

namespace nox {

namespace {

/// The text that one thread has inserted into one logger since that logger's last EndLog.
struct Chain {
  std::uint64_t logger;
  std::string text = {};
  const char* file = "";
  unsigned int line = 0;
};

/// The open chains of a thread: few, since only a chain inside another's arguments adds one.
class Chains {
public:
  ~Chains() { gone_ = true; }

  /// The calling thread's. Null once its thread-local objects are destroyed, when static objects
  /// still have something to say: that is discarded.
  static Chains* ofThread() {
    if (gone_) return nullptr;
    thread_local Chains chains;
    return &chains;
  }

  Chain& open(std::uint64_t logger) {
    const auto found = find(logger);
    if (found != open_.end()) return *found;
    open_.push_back(Chain{logger});
    return open_.back();
  }

  Chain take(std::uint64_t logger) {
    const auto found = find(logger);
    if (found == open_.end()) return Chain{logger};
    Chain chain = std::move(*found);
    open_.erase(found);
    return chain;
  }

private:
  std::vector<Chain>::iterator find(std::uint64_t logger) {
    return std::find_if(open_.begin(), open_.end(),
                        [logger](const Chain& chain) { return chain.logger == logger; });
  }

  // Has no destructor, so that it can be read after those of the thread have run.
  static thread_local bool gone_;

  std::vector<Chain> open_;
};

thread_local bool Chains::gone_ = false;

std::uint64_t nextId() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

/// Runs `action` on the calling thread's open chain of a logger. What there is no memory for is
/// left out: reporting a condition never adds another, least of all in a destructor.
template <class Action>
void gather(std::uint64_t logger, Action action) noexcept {
  try {
    if (Chains* chains = Chains::ofThread()) action(chains->open(logger));
  } catch (const std::bad_alloc&) {
    return;
  }
}

}  // namespace

Logger::Logger(Log_Priority priority, const char* format)
    : priority_(priority),
      format_(format),
      id_(nextId()),
      timestamps_(std::getenv("AGENT_LOG_TIME") != nullptr) {}

Logger::~Logger() {
  if (Chains* chains = Chains::ofThread()) chains->take(id_);
}

Logger& Logger::operator<<(const char* text) {
  if (text) gather(id_, [text](Chain& chain) { chain.text += text; });
  return *this;
}

Logger& Logger::operator<<(const std::string& text) {
  gather(id_, [&text](Chain& chain) { chain.text += text; });
  return *this;
}

Logger& Logger::operator<<(const void* address) {
  constexpr int kMostCharacters = 32;
  char text[kMostCharacters];
  std::snprintf(text, sizeof text, "%p", address);
  return *this << text;
}

Logger& Logger::operator<<(long number) {
  gather(id_, [number](Chain& chain) { chain.text += std::to_string(number); });
  return *this;
}

Logger& Logger::operator<<(const EndLog&) {
  const int error = errno;
  if (Chains* chains = Chains::ofThread()) {
    // Taken out first: a back end's callback may log through this logger too.
    const Chain chain = chains->take(id_);
    const MutexGuard guard(mutex_);
    ACE_Log_Msg& log = *ACE_Log_Msg::instance();
    log.conditional_set(chain.file, static_cast<int>(chain.line), 0, error);
    // The text is an argument, never the format: it may hold a peer's bytes.
    log.log(static_cast<ACE_Log_Priority>(priority_), format_, chain.text.c_str());
  }
  errno = error;
  return *this;
}

Logger& Logger::setFile(const char* file) {
  gather(id_, [file](Chain& chain) { chain.file = file ? file : ""; });
  return *this;
}

Logger& Logger::setLine(unsigned int line) {
  gather(id_, [line](Chain& chain) { chain.line = line; });
  return *this;
}

}  // namespace nox

#endif
