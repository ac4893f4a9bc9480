#include "tests/client/support/peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace nox::client::test {

namespace {

[[noreturn]] void throwSystem(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// All requests that a client may send.
class RequestFactory : public noxp::remote::RemoteObjectFactory {
public:
  RequestFactory() {
    add<noxp::AuthenticationRequestProt>("Authentication");
    add<AccountUserCredentialsProt>("AccountUserCredentials");
    add<noxp::sql::CompileRequestProt>("Compile");
    add<noxp::sql::ExecuteRequestProt>("Execute");
    add<noxp::sql::BindRequestProt>("Bind");
    add<noxp::sql::FetchRequestProt>("Fetch");
    add<noxp::sql::MetaDataRequestProt>("MetaData");
    add<noxp::sql::ReleaseStatementRequestProt>("Release");
    add<noxp::sql::TransactionStartRequestProt>("Start");
    add<noxp::sql::TransactionCommitRequestProt>("Commit");
    add<noxp::sql::TransactionRollbackRequestProt>("Rollback");
    add<noxp::sql::CompileAndExecuteRequestProt>("CompileAndExecute");
    add<noxp::sql::DatabaseMetaDataRequestProt>("DatabaseMetaData");
    add<noxp::remote::SelectListCommitRequestProt>("ListCommit");
    add<noxp::remote::SelectListCloseRequestProt>("ListClose");
    add<noxp::common::LoggingRequestProt>("Logging");
    add<noxp::common::EchoRequestProt>("Echo");
  }
};

RequestFactory& requestFactory() {
  static RequestFactory factory;
  return factory;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// A socket on a free port, which it says.
int bound(std::uint16_t& port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throwSystem("socket");
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    ::close(fd);
    throwSystem("bind");
  }
  port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

/// Exact reads; LAST where the client closed.
class PeerConnection::Input : public InputStream {
public:
  explicit Input(PeerConnection& connection) : connection_(connection) {}
  std::int64_t readMax(char* to, int n) override {
    int got = 0;
    while (got < n) {
      const std::size_t count =
          connection_.receiveBytes(to + got, static_cast<std::size_t>(n - got));
      if (count == 0) throw new LAST;
      got += static_cast<int>(count);
    }
    return got;
  }
  std::int64_t readMax(char* to, int n, int /*timeout*/) override { return readMax(to, n); }

private:
  PeerConnection& connection_;
};

std::unique_ptr<Serializable> PeerConnection::receive() {
  Input input(*this);
  BinaryReader reader(&requestFactory(), &input);
  try {
    return std::unique_ptr<Serializable>(reader.readRootObject());
  } catch (LAST* end) {
    const std::unique_ptr<LAST> marker(end);
    return nullptr;
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    ADD_FAILURE() << "a request cannot be read: " << error->what();
    return nullptr;
  }
}

void PeerConnection::failOn(const Serializable* request) {
  if (!request) return;  // the client has gone: what it saw is for the test to judge
  ADD_FAILURE() << "a request of another class came: "
                << const_cast<Serializable*>(request)->getType();
}

void PeerConnection::welcome() {
  if (receiveA<noxp::AuthenticationRequestProt>()) send(OKResponseProt());
}

std::string PeerConnection::frameOf(Serializable& message) {
  MemoryBufferOutStream out;
  BinaryWriter(&out).writeRoot(message);
  return out.str();
}

bool PeerConnection::send(Serializable& reply) { return sendBytes(frameOf(reply)); }

bool PeerConnection::refuse(const char* sqlClass, const char* sqlSubClass,
                            const std::string& message) {
  ErrorResponseProt reply(SQLExtError(sqlClass, sqlSubClass, message));
  return send(reply);
}

void PeerConnection::sendSlowly(std::string_view bytes, std::chrono::milliseconds time) {
  for (const char byte : bytes) {
    if (!pause(time) || !sendBytes(std::string_view(&byte, 1))) return;
  }
}

void PeerConnection::receiveSlowly(std::size_t n, std::chrono::milliseconds time) {
  std::string bytes(n, '\0');
  while (pause(time) && receiveBytes(bytes.data(), n) > 0) {
  }
}

struct Peer::Tls {
  SSL_CTX* context = nullptr;
  ~Tls() { SSL_CTX_free(context); }
};

/// The server's end of one connection.
class Peer::Connection final : public PeerConnection {
public:
  Connection(int fd, SSL_CTX* context) : fd_(fd) {
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (!context) return;
    ssl_ = SSL_new(context);
    SSL_set_fd(ssl_, fd_);
  }
  ~Connection() override { SSL_free(ssl_); }

  bool shakeHands() { return !ssl_ || SSL_accept(ssl_) == 1; }

  bool sendBytes(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t count = ssl_ ? SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size()))
                                 : ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  void waitForClient() override {
    if (ssl_ && SSL_has_pending(ssl_) != 0) return;
    pollfd waited{fd_, POLLIN, 0};
    ::poll(&waited, 1, -1);
  }

  void waitForEnd() override {
    pollfd waited{fd_, POLLRDHUP, 0};
    ::poll(&waited, 1, -1);
  }

  void close() override {
    if (ssl_) SSL_shutdown(ssl_);
    ::shutdown(fd_, SHUT_RDWR);
  }

  void reset() override {
    const linger now{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    // Connects to nowhere, which ends the connection at once; the descriptor stays the peer's.
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    ::connect(fd_, &nowhere, sizeof nowhere);
  }

protected:
  std::size_t receiveBytes(char* to, std::size_t n) override {
    const ssize_t count = ssl_ ? SSL_read(ssl_, to, static_cast<int>(n)) : ::recv(fd_, to, n, 0);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  bool pause(std::chrono::milliseconds time) override {
    pollfd waited{fd_, POLLRDHUP, 0};
    return ::poll(&waited, 1, static_cast<int>(time.count())) == 0;
  }

private:
  int fd_;
  SSL* ssl_ = nullptr;
};

Peer::Peer(Script script) : script_(std::move(script)) { start(); }

Peer::Peer(Script script, const CertificateFiles& certificate, const std::string& clientCa)
    : script_(std::move(script)), tls_(std::make_unique<Tls>()) {
  SSL_CTX* const context = tls_->context = SSL_CTX_new(TLS_server_method());
  if (SSL_CTX_use_certificate_chain_file(context, certificate.certificate.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(context, certificate.key.c_str(), SSL_FILETYPE_PEM) != 1) {
    throw std::runtime_error("the peer's certificate cannot be used");
  }
  if (!clientCa.empty()) {
    SSL_CTX_load_verify_locations(context, clientCa.c_str(), nullptr);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  start();
}

void Peer::start() {
  listener_ = bound(port_);
  if (::listen(listener_, SOMAXCONN) != 0) throwSystem("listen");
  accepting_ = std::thread([this] { run(); });
}

void Peer::run() {
  for (;;) {
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isOver_) {
      ::close(fd);
      return;
    }
    ++connections_;
    sockets_.push_back(fd);
    threads_.emplace_back([this, fd] {
      // TLS writes without MSG_NOSIGNAL.
      sigset_t sigpipe;
      sigemptyset(&sigpipe);
      sigaddset(&sigpipe, SIGPIPE);
      pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
      Connection connection(fd, tls_ ? tls_->context : nullptr);
      if (connection.shakeHands()) {
        script_(connection);
        connection.close();
      }
      ERR_clear_error();
      // The client sees the end now; the number stays taken until the peer ends.
      ::shutdown(fd, SHUT_RDWR);
    });
  }
}

Peer::~Peer() {
  isOver_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  accepting_.join();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const int fd : sockets_) ::shutdown(fd, SHUT_RDWR);
  }
  for (std::thread& thread : threads_) thread.join();
  for (const int fd : sockets_) ::close(fd);
  ::close(listener_);
}

std::string Peer::uri(const std::string& more) const {
  std::string uri = "nox://ann@127.0.0.1:" + std::to_string(port_) + "/MAIN";
  if (!tls_) {
    uri += "?tls=off";
    if (!more.empty()) uri += '&' + more;
  } else if (!more.empty()) {
    uri += '?' + more;
  }
  return uri;
}

std::uint16_t refusedPort() {
  std::uint16_t port = 0;
  ::close(bound(port));
  return port;
}

BlackHole::BlackHole() {
  listener_ = bound(port_);
  if (::listen(listener_, 0) != 0) throwSystem("listen");
  // Connections that nobody accepts, until the next one is no longer answered.
  constexpr int kEnough = 64;
  constexpr int kPatience = 200;  // milliseconds
  for (int i = 0; i < kEnough; ++i) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) throwSystem("socket");
    fillers_.push_back(fd);
    const sockaddr_in address = loopback(port_);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) continue;
    pollfd waited{fd, POLLOUT, 0};
    if (::poll(&waited, 1, kPatience) == 0) return;
  }
}

BlackHole::~BlackHole() {
  for (const int fd : fillers_) ::close(fd);
  ::close(listener_);
}

Peer::Script serving(std::function<void(PeerConnection&, Serializable& request)> answer) {
  return [answer = std::move(answer)](PeerConnection& client) {
    client.welcome();
    while (const std::unique_ptr<Serializable> request = client.receive()) {
      answer(client, *request);
    }
  };
}

}  // namespace nox::client::test
