// Entry and exit lines of traced scopes, and the stack of the scopes that are live.
#pragma once

#include <atomic>
#include <vector>

#include "nox/core/export.h"

namespace nox {

class Mutex;

/// Made at the start of a scope, writes that scope's entry line; its destructor writes the exit
/// line. While tracing is off, which it is until `enable()`, a tracer costs one atomic load.
///
/// A thread can opt out with `ACE_Log_Msg::stop_tracing()` of its own. All threads share one stack.
class NOX_EXPORT Tracer {
public:
  /// Guards the stack. Never destroyed.
  static Mutex& __mutex;
  /// The live tracers of all threads, oldest first. Never freed.
  static std::vector<Tracer*>* stack;

  /// The texts are kept by address and must outlive the tracer: pass string constants. `label` is
  /// never printed. With the environment variable AGENT_LOG_TIME set, even to nothing, both lines
  /// of this tracer carry the processor clock.
  Tracer(const char* label, const char* where, int line, const char* what)
      : label_(label), where_(where), line_(line), what_(what) {
    if (enabled()) enter();
  }
  /// Copies the description; the copy does not stand on the stack.
  Tracer(const Tracer& other);
  Tracer& operator=(const Tracer& other);
  ~Tracer() {
    if (onStack_.load(std::memory_order_relaxed) || enabled()) leave();
  }

  /// The line that the exit line and stack traces show. No effect while tracing is off.
  void setLine(int line) {
    if (enabled()) changeLine(line);
  }

  /// Writes the live tracers of all threads, oldest first; nothing while tracing is off.
  static void printStackTrace();

  /// Turns tracing on for the process, except in threads that stopped it for themselves; this
  /// thread starts again if it did.
  static void enable();
  /// Turns tracing off for the process.
  static void disable();

private:
  static bool enabled() { return enabled_.load(std::memory_order_relaxed); }
  void enter();
  void leave();
  void changeLine(int line);
  static void remove(std::vector<Tracer*>::iterator entry);

  static std::atomic<bool> enabled_;

  [[maybe_unused]] const char* label_;
  const char* where_;
  int line_;
  const char* what_;
  bool timestamps_ = false;
  std::atomic<bool> onStack_{false};  // changed under __mutex
};

}  // namespace nox
