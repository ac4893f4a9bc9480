#include "client/command/interrupt.h"

#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

#include "client/command/commands.h"

namespace nox::command {

namespace {

std::atomic<bool> interrupted{false};
std::atomic<bool> leavesAtOnce{false};
std::mutex watchedMutex;
std::optional<client::Canceller> watched;
bool isIdle = false;

// What the terminal was like before anybody edited a line on it.
termios terminal{};
bool hasTerminal = false;

/// The second Ctrl-C leaves whatever runs where it is.
[[noreturn]] void leave() {
  if (hasTerminal) tcsetattr(STDIN_FILENO, TCSANOW, &terminal);
  _exit(kInterrupted);
}

sigset_t taken() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

void take() {
  const sigset_t set = taken();
  for (;;) {
    int signal = 0;
    if (sigwait(&set, &signal) != 0) continue;
    // Locked before it is known, so that whoever ends an Idle and sees nothing pressed is cancelled
    // only by what is pressed later.
    const std::lock_guard<std::mutex> lock(watchedMutex);
    // The second one leaves at once: whatever is cancelled has not stopped yet.
    if (interrupted.exchange(true) || leavesAtOnce || signal == SIGTERM) leave();
    if (watched && !isIdle) watched->cancel();
  }
}

}  // namespace

void Interrupt::install() {
  std::signal(SIGPIPE, SIG_IGN);
  hasTerminal = tcgetattr(STDIN_FILENO, &terminal) == 0;
  const sigset_t set = taken();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread(take).detach();
}

bool Interrupt::pressed() { return interrupted; }

void Interrupt::clear() { interrupted = false; }

Interrupt::Watch::Watch(client::Canceller canceller) {
  const std::lock_guard<std::mutex> lock(watchedMutex);
  watched = std::move(canceller);
}

Interrupt::Watch::~Watch() {
  const std::lock_guard<std::mutex> lock(watchedMutex);
  watched.reset();
}

Interrupt::Idle::Idle() {
  const std::lock_guard<std::mutex> lock(watchedMutex);
  isIdle = true;
}

Interrupt::Idle::~Idle() {
  const std::lock_guard<std::mutex> lock(watchedMutex);
  isIdle = false;
}

Interrupt::Exit::Exit() {
  leavesAtOnce = true;
  // One that came just before was taken for something to cancel.
  if (interrupted) leave();
}

Interrupt::Exit::~Exit() { leavesAtOnce = false; }

}  // namespace nox::command
