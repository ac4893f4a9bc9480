#include "agent/server/transport.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

namespace nox::agent {

bool isTick(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

namespace {

class PlainTransport : public Transport {
public:
  using Transport::Transport;

  bool handshake(Clock::time_point /*deadline*/, std::string& /*reason*/) override { return true; }

  int receive(char* to, std::size_t room) override {
    const ssize_t count = recv(descriptor(), to, room, 0);
    if (count > 0) return static_cast<int>(count);
    return count < 0 && isTick(errno) ? kNothingYet : kEnded;
  }

  int send(const char* from, std::size_t n) override {
    const std::size_t most = std::numeric_limits<int>::max();
    const ssize_t count = ::send(descriptor(), from, std::min(n, most), MSG_NOSIGNAL);
    if (count > 0) return static_cast<int>(count);
    return count < 0 && isTick(errno) ? kNothingYet : kEnded;
  }

  void sayGoodbye() override { shutDownWriting(); }
};

}  // namespace

Transport::~Transport() = default;

void Transport::waitReadable(std::optional<Clock::time_point> until) {
  using std::chrono::milliseconds;
  if (hasBuffered()) return;
  int wait = -1;
  if (until) {
    // Rounded up, so that the deadline has passed when the wait is over.
    constexpr milliseconds::rep kLongest = 24 * 60 * 60 * 1000;
    const auto left = std::chrono::ceil<milliseconds>(*until - Clock::now()).count();
    wait = static_cast<int>(std::clamp<milliseconds::rep>(left, 0, kLongest));
  }
  pollfd waited{socket_.get(), POLLIN, 0};
  poll(&waited, 1, wait);
}

bool Transport::isReadable() const {
  if (hasBuffered()) return true;
  pollfd looked{socket_.get(), POLLIN, 0};
  return poll(&looked, 1, 0) != 0;
}

bool Transport::hasPeerClosed() const {
  pollfd looked{socket_.get(), POLLRDHUP, 0};
  return poll(&looked, 1, 0) != 0;
}

bool Transport::discard() {
  std::array<char, 4096> bytes;
  const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
  return count > 0 || (count < 0 && isTick(errno));
}

void Transport::shutDownReading() { shutdown(socket_.get(), SHUT_RD); }

void Transport::shutDownWriting() { shutdown(socket_.get(), SHUT_WR); }

void Transport::shutDown() { shutdown(socket_.get(), SHUT_RDWR); }

std::unique_ptr<Transport> makePlainTransport(Descriptor socket) {
  return std::make_unique<PlainTransport>(std::move(socket));
}

}  // namespace nox::agent
