#include "tests/agent/support/client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "agent/descriptor.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/support/signals.h"

namespace nox::agent::test {

namespace {

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error("client: " + what); }

struct SslFree {
  void operator()(SSL* ssl) const { SSL_free(ssl); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using Ssl = std::unique_ptr<SSL, SslFree>;
using SslContext = std::unique_ptr<SSL_CTX, SslFree>;

Descriptor connectTo(int port) {
  Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (!connection ||
      connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail(std::string("cannot connect: ") + std::strerror(errno));
  }
  const timeval patience{Client::kPatience.count(), 0};
  const int on = 1;
  setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connection;
}

Ssl shakeHands(int connection, const ClientTls& tls) {
  const SslContext context(SSL_CTX_new(TLS_client_method()));
  if (tls.version != 0) {
    SSL_CTX_set_min_proto_version(context.get(), tls.version);
    SSL_CTX_set_max_proto_version(context.get(), tls.version);
    // Old versions are refused by the agent, not by what this client is willing to do.
    SSL_CTX_set_security_level(context.get(), 0);
  }
  if (!tls.authority.empty()) {
    SSL_CTX_load_verify_file(context.get(), tls.authority.c_str());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  }
  if (!tls.certificate.empty() &&
      (SSL_CTX_use_certificate_chain_file(context.get(), tls.certificate.c_str()) != 1 ||
       SSL_CTX_use_PrivateKey_file(context.get(), tls.key.c_str(), SSL_FILETYPE_PEM) != 1)) {
    fail("no certificate");
  }
  Ssl ssl(SSL_new(context.get()));
  SSL_set_fd(ssl.get(), connection);
  if (SSL_connect(ssl.get()) != 1) {
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    fail(std::string("no TLS: ") + (reason ? reason : "the connection broke"));
  }
  return ssl;
}

bool isPatienceOver(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

}  // namespace

struct Client::Impl {
  Descriptor connection;
  Ssl ssl;

  /// Up to `room` bytes; 0 at the end of the connection, however it came.
  std::size_t receive(char* to, std::size_t room) {
    if (ssl) {
      const nox::test::SigpipeBlocked blocked;  // an end without a goodbye is answered
      const int n = SSL_read(ssl.get(), to, static_cast<int>(room));
      if (n > 0) return static_cast<std::size_t>(n);
      if (SSL_get_error(ssl.get(), n) == SSL_ERROR_WANT_READ) fail("the agent says nothing");
      ERR_clear_error();
      return 0;
    }
    const ssize_t n = recv(connection.get(), to, room, 0);
    if (n < 0 && isPatienceOver(errno)) fail("the agent says nothing");
    return n > 0 ? static_cast<std::size_t>(n) : 0;
  }

  std::size_t send(const char* from, std::size_t n) {
    if (ssl) {
      const nox::test::SigpipeBlocked blocked;
      const int sent = SSL_write(ssl.get(), from, static_cast<int>(n));
      if (sent <= 0) ERR_clear_error();
      return sent > 0 ? static_cast<std::size_t>(sent) : 0;
    }
    const ssize_t sent = ::send(connection.get(), from, n, MSG_NOSIGNAL);
    if (sent < 0 && isPatienceOver(errno)) fail("the agent takes nothing");
    return sent > 0 ? static_cast<std::size_t>(sent) : 0;
  }
};

Client::Client(int port) : impl_(std::make_unique<Impl>()) { impl_->connection = connectTo(port); }

Client::Client(int port, const ClientTls& tls) : Client(port) {
  impl_->ssl = shakeHands(impl_->connection.get(), tls);
}

Client::~Client() = default;

std::string Client::logIn(const std::string& user, const std::string& password,
                          const std::string& account) {
  noxp::AuthenticationRequestProt request(
      new AccountUserCredentialsProt(user.c_str(), account.c_str(), password.c_str()));
  return say(request);
}

Client& Client::logIn() {
  const std::string answer = logIn(NoxdProcess::kUser, NoxdProcess::kPassword);
  if (answer != "OK") fail("no login: " + answer);
  return *this;
}

std::unique_ptr<Serializable> Client::ask(noxp::RequestProt& request) {
  send(request);
  std::unique_ptr<Serializable> reply = receive();
  if (!reply) fail("the agent has closed the connection");
  return reply;
}

bool Client::echoes(std::size_t n) {
  noxp::common::EchoRequestProt request(n);
  if (n > 0) std::memset(request.getBuffer()->getBuf(), 'e', n);
  const auto reply = askFor<noxp::common::EchoResponseProt>(request);
  if (!reply || !reply->getBuffer() || reply->getBuffer()->length() != n) return false;
  return n == 0 || std::memcmp(reply->getBuffer()->getBuf(), request.getBuffer()->getBuf(), n) == 0;
}

std::string Client::monitor(const std::string& command) {
  noxp::remote::MonitoringRequestProt request(command);
  const auto reply = askFor<noxp::remote::MonitoringResponseProt>(request);
  return reply ? reply->getResponse() : std::string();
}

void Client::send(Serializable& message) {
  MemoryBufferOutStream frame;
  BinaryWriter(&frame).writeRoot(message);
  if (!sendBytes(frame.str())) fail("the agent takes nothing");
}

bool Client::sendBytes(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t sent = impl_->send(bytes.data(), bytes.size());
    if (sent == 0) return false;
    bytes.remove_prefix(sent);
  }
  return true;
}

std::string Client::receiveBytes(std::size_t n) {
  std::string bytes(n, '\0');
  std::size_t got = 0;
  while (got < n) {
    const std::size_t more = impl_->receive(bytes.data() + got, n - got);
    if (more == 0) break;
    got += more;
  }
  bytes.resize(got);
  return bytes;
}

std::string Client::receiveFrame() {
  constexpr std::size_t kLengthSize = 4;
  std::string frame = receiveBytes(kLengthSize);
  if (frame.empty()) return frame;
  if (frame.size() < kLengthSize) fail("the connection broke in a frame");
  const auto length = static_cast<std::uint32_t>(loadBigEndian32(frame.data()));
  frame += receiveBytes(length);
  if (frame.size() < kLengthSize + length) fail("the connection broke in a frame");
  return frame;
}

std::unique_ptr<Serializable> Client::receive() {
  const std::string frame = receiveFrame();
  if (frame.empty()) return nullptr;
  ClientObjectFactory factory;
  MemoryBufferInputStream stream(frame.data(), frame.size());
  return std::unique_ptr<Serializable>(BinaryReader(&factory, &stream).readRootObject());
}

std::string Client::receiveAll() {
  std::string all;
  std::array<char, 4096> bytes;
  while (const std::size_t n = impl_->receive(bytes.data(), bytes.size())) {
    all.append(bytes.data(), n);
  }
  return all;
}

bool Client::hasInput(std::chrono::milliseconds within) {
  if (impl_->ssl && SSL_has_pending(impl_->ssl.get()) != 0) return true;
  pollfd waited{impl_->connection.get(), POLLIN, 0};
  return poll(&waited, 1, static_cast<int>(within.count())) > 0;
}

std::string Client::certificateName() const {
  X509* const certificate = SSL_get1_peer_certificate(impl_->ssl.get());
  std::array<char, 256> name{};
  X509_NAME_oneline(X509_get_subject_name(certificate), name.data(), static_cast<int>(name.size()));
  X509_free(certificate);
  return name.data();
}

std::string Client::tlsVersion() const { return SSL_get_version(impl_->ssl.get()); }

int Client::descriptor() const { return impl_->connection.get(); }

void Client::endWriting() {
  if (impl_->ssl) SSL_shutdown(impl_->ssl.get());
  shutdown(impl_->connection.get(), SHUT_WR);
}

void Client::close() {
  impl_->ssl.reset();
  impl_->connection = Descriptor();
}

}  // namespace nox::agent::test
