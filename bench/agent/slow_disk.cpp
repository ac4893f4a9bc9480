// A disk that takes its time, for servers that are measured: preloaded, it makes each fdatasync()
// last as many microseconds as NOX_BENCH_SYNC says, where the real one is over before.
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

constexpr long kNanosecondsPerSecond = 1'000'000'000;

long nanoseconds() {
  static const long time = [] {
    const char* const microseconds = std::getenv("NOX_BENCH_SYNC");
    return microseconds == nullptr ? 0 : std::atol(microseconds) * 1000;
  }();
  return time;
}

/// Timers of this thread come late by no more than they have to.
void expectPunctuality() {
  static thread_local const bool isSet = prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL) == 0;
  static_cast<void>(isSet);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int fdatasync(int file) {
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  const auto result = static_cast<int>(syscall(SYS_fdatasync, file));
  const int error = errno;
  expectPunctuality();
  end.tv_nsec += nanoseconds();
  end.tv_sec += end.tv_nsec / kNanosecondsPerSecond;
  end.tv_nsec %= kNanosecondsPerSecond;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
  errno = error;
  return result;
}
