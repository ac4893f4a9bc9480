// The floor: blocking sockets, plain and TLS, without a protocol. The other end is echo_server.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>

#include "bench/agent/operation.h"

namespace {

class Socket {
public:
  explicit Socket(std::uint16_t port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd_ < 0 || connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("no echo server");
    }
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(fd_); }
  int fd() const { return fd_; }

private:
  int fd_;
};

class RawEcho : public Operation {
public:
  explicit RawEcho(std::uint16_t port) : socket_(port) { out_.fill('x'); }

  std::uint64_t run() override {
    if (send(socket_.fd(), out_.data(), out_.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(out_.size())) {
      throw std::runtime_error("raw echo: cannot send");
    }
    std::size_t have = 0;
    while (have < in_.size()) {
      const ssize_t n = recv(socket_.fd(), in_.data() + have, in_.size() - have, 0);
      if (n <= 0) throw std::runtime_error("raw echo: cannot receive");
      have += static_cast<std::size_t>(n);
    }
    if (in_ != out_) throw std::runtime_error("raw echo: other bytes came back");
    return 1;
  }

private:
  Socket socket_;
  std::array<char, kEchoBytes> out_{};
  std::array<char, kEchoBytes> in_{};
};

struct FreeSsl {
  void operator()(SSL* ssl) const { SSL_free(ssl); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

class RawTlsEcho : public Operation {
public:
  explicit RawTlsEcho(std::uint16_t port)
      : socket_(port), context_(SSL_CTX_new(TLS_client_method())), ssl_(SSL_new(context_.get())) {
    SSL_set_fd(ssl_.get(), socket_.fd());
    if (SSL_connect(ssl_.get()) != 1) throw std::runtime_error("raw TLS echo: no handshake");
    out_.fill('x');
  }

  std::uint64_t run() override {
    if (SSL_write(ssl_.get(), out_.data(), static_cast<int>(out_.size())) <= 0) {
      throw std::runtime_error("raw TLS echo: cannot send");
    }
    int have = 0;
    while (have < static_cast<int>(in_.size())) {
      const int n = SSL_read(ssl_.get(), in_.data() + have, static_cast<int>(in_.size()) - have);
      if (n <= 0) throw std::runtime_error("raw TLS echo: cannot receive");
      have += n;
    }
    if (in_ != out_) throw std::runtime_error("raw TLS echo: other bytes came back");
    return 1;
  }

private:
  Socket socket_;
  std::unique_ptr<SSL_CTX, FreeSsl> context_;
  std::unique_ptr<SSL, FreeSsl> ssl_;
  std::array<char, kEchoBytes> out_{};
  std::array<char, kEchoBytes> in_{};
};

}  // namespace

Contender rawEcho(const Servers& servers) {
  return {"raw socket", [port = servers.rawPort] { return std::make_unique<RawEcho>(port); }};
}

Contender rawTlsEcho(const Servers& servers) {
  return {"raw TLS", [port = servers.rawTlsPort] { return std::make_unique<RawTlsEcho>(port); }};
}
