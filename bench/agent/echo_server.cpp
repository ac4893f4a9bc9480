// The other end of the floor: sends back what comes, with a thread per connection.
//
//   echo_server CERTIFICATE KEY
//
// prints its plain and its TLS port in one line and serves until it is ended.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace {

int listenOnLoopback(std::uint16_t& port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd, 64) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot listen");
  }
  port = ntohs(address.sin_port);
  return fd;
}

void echo(int fd) {
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t n = recv(fd, buffer.data(), buffer.size(), 0);
    if (n <= 0 || send(fd, buffer.data(), static_cast<std::size_t>(n), MSG_NOSIGNAL) != n) break;
  }
  close(fd);
}

void echoOverTls(int fd, SSL_CTX* context) {
  SSL* const ssl = SSL_new(context);
  SSL_set_fd(ssl, fd);
  std::array<char, 4096> buffer{};
  if (SSL_accept(ssl) == 1) {
    for (;;) {
      const int n = SSL_read(ssl, buffer.data(), static_cast<int>(buffer.size()));
      if (n <= 0 || SSL_write(ssl, buffer.data(), n) != n) break;
    }
  }
  SSL_free(ssl);
  close(fd);
}

template <class Serve>
void acceptAll(int listener, Serve serve) {
  for (;;) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::thread([=] { serve(fd); }).detach();
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: echo_server CERTIFICATE KEY");
  std::signal(SIGPIPE, SIG_IGN);
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  if (SSL_CTX_use_certificate_chain_file(context, argv[1]) != 1 ||
      SSL_CTX_use_PrivateKey_file(context, argv[2], SSL_FILETYPE_PEM) != 1) {
    throw std::runtime_error("no certificate");
  }
  std::uint16_t plainPort = 0;
  std::uint16_t tlsPort = 0;
  const int plain = listenOnLoopback(plainPort);
  const int tls = listenOnLoopback(tlsPort);
  std::printf("%u %u\n", plainPort, tlsPort);
  std::fflush(stdout);
  std::thread([=] { acceptAll(tls, [=](int fd) { echoOverTls(fd, context); }); }).detach();
  acceptAll(plain, [](int fd) { echo(fd); });
} catch (const std::exception& error) {
  std::fprintf(stderr, "echo_server: %s\n", error.what());
  return 1;
}
