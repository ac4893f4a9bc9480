#include "tests/support/sockets.h"

#include <ace/INET_Addr.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/SOCK_Connector.h>
#include <ace/SSL/SSL_Context.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>

#include <cerrno>
#include <future>
#include <stdexcept>

namespace nox::test {

namespace {

void require(bool done, const char* step) {
  if (!done) throw std::runtime_error(std::string("no test connection: ") + step);
}

template <class T, void (*free)(T*)>
struct Freed {
  void operator()(T* object) const { free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509, X509_free>>;

Certificate selfSigned(EVP_PKEY* key) {
  constexpr long kVersion3 = 2;
  constexpr long kOneDay = 24L * 60 * 60;
  Certificate certificate(X509_new());
  X509* const x = certificate.get();
  X509_set_version(x, kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(x), 1);
  X509_gmtime_adj(X509_getm_notBefore(x), -kOneDay);
  X509_gmtime_adj(X509_getm_notAfter(x), kOneDay);
  X509_NAME* const name = X509_get_subject_name(x);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
  X509_set_issuer_name(x, name);
  X509_set_pubkey(x, key);
  require(X509_sign(x, key, EVP_sha256()) != 0, "certificate");
  return certificate;
}

/// Closes without TLS's own farewell, which writes to a peer that may be gone.
void closeQuietly(ACE_SOCK& socket) {
  if (socket.get_handle() != ACE_INVALID_HANDLE) socket.ACE_SOCK::close();
}

template <class Stream>
std::string receiveUpTo(Stream& socket, std::size_t n) {
  std::string data(n, '\0');
  std::size_t total = 0;
  while (total < n) {
    const ssize_t got = socket.recv(data.data() + total, n - total);
    if (got <= 0 && !(got == -1 && (errno == EINTR || errno == EWOULDBLOCK))) break;
    if (got > 0) total += static_cast<std::size_t>(got);
  }
  data.resize(total);
  return data;
}

}  // namespace

ACE_SSL_Context& tlsContext() {
  // Never destroyed: connections of other static objects may use it to the end.
  static ACE_SSL_Context& context = *[] {
    auto made = std::make_unique<ACE_SSL_Context>();
    require(made->set_mode(ACE_SSL_Context::SSLv23) == 0, "TLS context");
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key");
    const Certificate certificate = selfSigned(key.get());
    SSL_CTX* const ssl = made->context();
    require(SSL_CTX_use_certificate(ssl, certificate.get()) == 1, "certificate");
    require(SSL_CTX_use_PrivateKey(ssl, key.get()) == 1, "private key");
    SSL_CTX_set_num_tickets(ssl, 0);  // nothing but the test's own bytes after the handshake
    return made.release();
  }();
  return context;
}

PlainPair::PlainPair() {
  ACE_SOCK_Acceptor acceptor;
  ACE_INET_Addr address(static_cast<u_short>(0), "127.0.0.1");
  require(acceptor.open(address) == 0 && acceptor.get_local_addr(address) == 0, "listen");
  const bool connected = ACE_SOCK_Connector().connect(client_, address) == 0;
  const bool accepted = connected && acceptor.accept(server_) == 0;
  acceptor.close();
  require(connected, "connect");
  require(accepted, "accept");
}

PlainPair::~PlainPair() {
  closeQuietly(client_);
  closeQuietly(server_);
}

void PlainPair::closeServer() { server_.close(); }

TlsPair::TlsPair() : client_(&tlsContext()), server_(&tlsContext()) {
  client_.set_handle(plain_.client().get_handle());
  server_.set_handle(plain_.server().get_handle());
  plain_.client().set_handle(ACE_INVALID_HANDLE);
  plain_.server().set_handle(ACE_INVALID_HANDLE);
  auto accepted = std::async(std::launch::async, [this] { return SSL_accept(server_.ssl()); });
  const int connected = SSL_connect(client_.ssl());
  require(accepted.get() == 1 && connected == 1, "TLS handshake");
}

TlsPair::~TlsPair() {
  closeQuietly(client_);
  closeQuietly(server_);
}

void TlsPair::closeServer() {
  SSL_shutdown(server_.ssl());
  closeQuietly(server_);
}

int optionOf(const ACE_SOCK& socket, int level, int name) {
  int value = 0;
  int size = sizeof value;
  require(socket.get_option(level, name, &value, &size) == 0, "get_option");
  return value;
}

void endWriting(const ACE_SOCK& socket) { ::shutdown(socket.get_handle(), SHUT_WR); }

void sendAll(ACE_SOCK_Stream& socket, std::string_view data) {
  std::size_t total = 0;
  while (total < data.size()) {
    const ssize_t sent =
        ::send(socket.get_handle(), data.data() + total, data.size() - total, MSG_NOSIGNAL);
    if (sent > 0) total += static_cast<std::size_t>(sent);
    require(sent > 0 || errno == EINTR, "send");
  }
}

void sendAll(ACE_SSL_SOCK_Stream& socket, std::string_view data) {
  require(SSL_write(socket.ssl(), data.data(), static_cast<int>(data.size())) ==
              static_cast<int>(data.size()),
          "send");
}

std::string receive(ACE_SOCK_Stream& socket, std::size_t n) { return receiveUpTo(socket, n); }
std::string receive(ACE_SSL_SOCK_Stream& socket, std::size_t n) { return receiveUpTo(socket, n); }

}  // namespace nox::test
