#include "nox/diag/tracer.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "nox/diag/mutex.h"

namespace nox {

namespace {

// Both live for ever: tracers and threads may outlast the library's static objects.
Mutex& tracerMutex() {
  static Mutex& mutex = *new Mutex;
  return mutex;
}

std::vector<Tracer*>& tracerStack() {
  static auto& tracers = *new std::vector<Tracer*>;
  return tracers;
}

/// Writes a line as the log back end's own macros do: source position and errno first.
template <class... Arguments>
void write(ACE_Log_Msg& log, int line, const char* format, Arguments... arguments) {
  log.conditional_set("Logger.cpp", line, 0, errno);
  log.log(LM_TRACE, format, arguments...);
}

/// Keeps the back end from tracing its own output, and tracers made there from writing.
class TraceActive {
public:
  explicit TraceActive(ACE_Log_Msg& log) : log_(log) { log_.trace_active(true); }
  ~TraceActive() { log_.trace_active(false); }
  TraceActive(const TraceActive&) = delete;
  TraceActive& operator=(const TraceActive&) = delete;

private:
  ACE_Log_Msg& log_;
};

int processorClock() { return static_cast<int>(std::clock()); }

}  // namespace

std::atomic<bool> Tracer::enabled_{false};
Mutex& Tracer::__mutex = tracerMutex();
std::vector<Tracer*>* Tracer::stack = &tracerStack();

Tracer::Tracer(const Tracer& other)
    : label_(other.label_), where_(other.where_), what_(other.what_) {
  const MutexGuard guard(tracerMutex());  // the other's line may be changing
  line_ = other.line_;
  timestamps_ = other.timestamps_;
}

Tracer& Tracer::operator=(const Tracer& other) {
  const MutexGuard guard(tracerMutex());  // a stack trace may be reading
  label_ = other.label_;
  where_ = other.where_;
  line_ = other.line_;
  what_ = other.what_;
  timestamps_ = other.timestamps_;
  return *this;
}

void Tracer::enter() {
  // The back end traces in every thread by default, so a thread's own flag only takes out.
  ACE_Log_Msg& log = *ACE_Log_Msg::instance();
  if (!log.tracing_enabled()) return;
  timestamps_ = std::getenv("AGENT_LOG_TIME") != nullptr;
  const MutexGuard guard(tracerMutex());
  if (!enabled() || log.trace_active()) return;
  tracerStack().push_back(this);
  onStack_.store(true, std::memory_order_relaxed);
  const TraceActive active(log);
  if (timestamps_) {
    write(log, __LINE__, "(%P|%t) TRACE %I => %s, %s +%d [%d]\n", where_, what_, line_,
          processorClock());
  } else {
    write(log, __LINE__, "(%P|%t) TRACE %I => %s, %s +%d\n", where_, what_, line_);
  }
  log.inc();
}

void Tracer::leave() {
  const MutexGuard guard(tracerMutex());
  std::vector<Tracer*>& tracers = tracerStack();
  const bool pushed = onStack_.load(std::memory_order_relaxed);
  // Its own entry goes whatever else happens: a stack trace must never meet a dead tracer.
  if (pushed) remove(std::find(tracers.begin(), tracers.end(), this));
  if (!enabled()) return;
  ACE_Log_Msg& log = *ACE_Log_Msg::instance();
  if (!log.tracing_enabled() || log.trace_active()) return;
  const TraceActive active(log);
  log.dec();
  if (timestamps_) {
    write(log, __LINE__, "(%P|%t) TRACE %I <= %s, %s +%d [%d]\n", where_, what_, line_,
          processorClock());
  } else {
    write(log, __LINE__, "(%P|%t) TRACE %I <= %s, %s +%d\n", where_, what_, line_);
  }
  // Deliberate: a tracer that was made while tracing was off takes the newest entry with it.
  if (!pushed && !tracers.empty()) remove(tracers.end() - 1);
}

void Tracer::remove(std::vector<Tracer*>::iterator entry) {
  Tracer& tracer = **entry;
  tracerStack().erase(entry);
  tracer.onStack_.store(false, std::memory_order_relaxed);  // last: it may be destroyed right after
}

void Tracer::changeLine(int line) {
  if (!ACE_Log_Msg::instance()->tracing_enabled()) return;
  const MutexGuard guard(tracerMutex());
  line_ = line;
}

void Tracer::printStackTrace() {
  if (!enabled()) return;
  ACE_Log_Msg& log = *ACE_Log_Msg::instance();
  if (!log.tracing_enabled()) return;
  const MutexGuard guard(tracerMutex());
  write(log, __LINE__, "(%P|%t) %s", "STACK TRACE:\n");
  for (const Tracer* tracer : tracerStack()) {
    write(log, __LINE__, "   %s, %s +%d\n", tracer->where_, tracer->what_, tracer->line_);
  }
}

void Tracer::enable() {
  enabled_.store(true, std::memory_order_relaxed);
  ACE_Log_Msg::instance()->start_tracing();
}

void Tracer::disable() {
  enabled_.store(false, std::memory_order_relaxed);
  ACE_Log_Msg::instance()->stop_tracing();
}

}  // namespace nox
