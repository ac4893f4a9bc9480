#include "agent/server/signals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>

#include "agent/descriptor.h"

namespace nox::agent {

namespace {

Descriptor opened(int fd) {
  if (fd < 0) throw std::system_error(errno, std::system_category(), "no descriptor for signals");
  return Descriptor(fd);
}

sigset_t watched() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

}  // namespace

struct Signals::Impl {
  Descriptor signals;
  Descriptor end;
  Handlers handlers;
  std::thread thread;

  void handle(std::uint32_t signal) const {
    if (signal == SIGTERM && handlers.terminate) handlers.terminate();
    if (signal == SIGINT && handlers.interrupt) handlers.interrupt();
    if (signal == SIGHUP && handlers.hangUp) handlers.hangUp();
  }

  void run() const {
    std::array<pollfd, 2> waited{pollfd{signals.get(), POLLIN, 0}, pollfd{end.get(), POLLIN, 0}};
    while (waited[1].revents == 0) {
      if (poll(waited.data(), waited.size(), -1) <= 0 || waited[0].revents == 0) continue;
      signalfd_siginfo info{};
      if (read(signals.get(), &info, sizeof info) == sizeof info) handle(info.ssi_signo);
    }
  }
};

Signals::Signals() : impl_(std::make_unique<Impl>()) {
  const sigset_t set = watched();
  const int error = pthread_sigmask(SIG_BLOCK, &set, nullptr);
  if (error != 0) throw std::system_error(error, std::system_category(), "signals");
  std::signal(SIGPIPE, SIG_IGN);
  impl_->signals = opened(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  impl_->end = opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

Signals::~Signals() {
  if (!impl_->thread.joinable()) return;
  eventfd_write(impl_->end.get(), 1);
  impl_->thread.join();
}

void Signals::watch(Handlers handlers) {
  impl_->handlers = std::move(handlers);
  impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
}

}  // namespace nox::agent
