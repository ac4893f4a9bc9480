#include <sys/socket.h>

#include <cerrno>

#include "client/src/socket.h"
#include "client/src/transport.h"

namespace nox::client::detail {

namespace {

using Kind = Transport::Result::Kind;

class PlainTransport final : public Transport {
public:
  explicit PlainTransport(Descriptor descriptor) : Transport(std::move(descriptor)) {}

  Result read(char* to, std::size_t n) override {
    for (;;) {
      const ssize_t count = ::recv(fd(), to, n, MSG_DONTWAIT);
      if (count > 0) return {Kind::Bytes, static_cast<std::size_t>(count)};
      if (count == 0) return {Kind::End};
      if (errno == EAGAIN || errno == EWOULDBLOCK) return {Kind::WantsRead};
      if (errno != EINTR) return failed();
    }
  }

  Result write(const char* from, std::size_t n) override {
    for (;;) {
      const ssize_t count = ::send(fd(), from, n, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count >= 0) {
        bytesOnWire_ += static_cast<std::size_t>(count);
        return {Kind::Bytes, static_cast<std::size_t>(count)};
      }
      if (errno == EAGAIN || errno == EWOULDBLOCK) return {Kind::WantsWrite};
      if (errno != EINTR) return failed();
    }
  }

  bool mayHoldBytes() const override { return false; }
  void sayGoodbye() noexcept override {}
  bool isEncrypted() const override { return false; }

private:
  Result failed() {
    failure_ = systemText(errno);
    return {Kind::Failed};
  }
};

}  // namespace

std::unique_ptr<Transport> makePlainTransport(Descriptor descriptor) {
  return std::make_unique<PlainTransport>(std::move(descriptor));
}

}  // namespace nox::client::detail
