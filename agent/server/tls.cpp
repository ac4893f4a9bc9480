#include "agent/server/tls.h"

#include <ace/SSL/SSL_Context.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace nox::agent {

namespace {

/// What OpenSSL last complained about in this thread, which forgets it.
std::string takeReason() {
  std::string reason;
  while (const unsigned long error = ERR_get_error()) {
    // The first one is the cause, those behind it are its consequences.
    if (!reason.empty()) continue;
    const char* const text = ERR_reason_error_string(error);
    reason = text ? text : "error " + std::to_string(error);
  }
  return reason.empty() ? "no reason given" : reason;
}

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("TLS: " + what + ": " + takeReason());
}

void requireReadable(const std::string& file, const char* what) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    const int error = errno;
    throw std::runtime_error("TLS: the " + std::string(what) + " " + file +
                             " cannot be read: " + std::system_category().message(error));
  }
}

/// A key with a passphrase is refused: there is nobody to ask for it.
int noPassphrase(char* /*to*/, int /*size*/, int /*writing*/, void* /*user*/) { return 0; }

// The agent's own BIO. What OpenSSL's does in one call of SSL_read can be many reads, each of which
// may wait: here the first may wait for a tick, those after it take only what is there.

struct SocketBio {
  int socket = -1;
  bool mayWait = true;  // set before each call of OpenSSL
};

int flagsFor(SocketBio& bio) { return std::exchange(bio.mayWait, false) ? 0 : MSG_DONTWAIT; }

int readBio(BIO* bio, char* to, int room) {
  auto& state = *static_cast<SocketBio*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  const ssize_t count = recv(state.socket, to, static_cast<std::size_t>(room), flagsFor(state));
  if (count < 0 && isTick(errno)) BIO_set_retry_read(bio);
  return static_cast<int>(count);
}

int writeBio(BIO* bio, const char* from, int n) {
  auto& state = *static_cast<SocketBio*>(BIO_get_data(bio));
  BIO_clear_retry_flags(bio);
  const ssize_t count =
      send(state.socket, from, static_cast<std::size_t>(n), flagsFor(state) | MSG_NOSIGNAL);
  if (count < 0 && isTick(errno)) BIO_set_retry_write(bio);
  return static_cast<int>(count);
}

long controlBio(BIO* /*bio*/, int command, long /*number*/, void* /*pointer*/) {
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

struct BioMethodFree {
  void operator()(BIO_METHOD* method) const { BIO_meth_free(method); }
};

BIO_METHOD* socketBioMethod() {
  static const std::unique_ptr<BIO_METHOD, BioMethodFree> kMethod = [] {
    std::unique_ptr<BIO_METHOD, BioMethodFree> method(
        BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "connection"));
    if (method) {
      BIO_meth_set_read(method.get(), readBio);
      BIO_meth_set_write(method.get(), writeBio);
      BIO_meth_set_ctrl(method.get(), controlBio);
    }
    return method;
  }();
  return kMethod.get();
}

struct SslFree {
  void operator()(SSL* ssl) const { SSL_free(ssl); }
};

class TlsTransport : public Transport {
public:
  TlsTransport(Descriptor socket, SSL_CTX* context)
      : Transport(std::move(socket)), ssl_(SSL_new(context)) {
    bioState_.socket = descriptor();
    BIO_METHOD* const method = socketBioMethod();
    BIO* const bio = method ? BIO_new(method) : nullptr;
    if (!ssl_ || !bio) {
      BIO_free(bio);
      fail("no memory for a connection");
    }
    BIO_set_data(bio, &bioState_);
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl_.get(), bio, bio);  // takes the BIO over
    SSL_set_accept_state(ssl_.get());
  }

  bool handshake(Clock::time_point deadline, std::string& reason) override {
    for (;;) {
      bioState_.mayWait = true;
      const int result = SSL_do_handshake(ssl_.get());
      if (result == 1) return true;
      const int error = SSL_get_error(ssl_.get(), result);
      if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
        reason = error == SSL_ERROR_SSL ? takeReason() : "the connection broke";
        ERR_clear_error();
        return false;
      }
      if (Clock::now() >= deadline) {
        reason = "it took too long";
        return false;
      }
    }
  }

  int receive(char* to, std::size_t room) override {
    bioState_.mayWait = true;
    return outcome(SSL_read(ssl_.get(), to, asInt(room)));
  }

  int send(const char* from, std::size_t n) override {
    bioState_.mayWait = true;
    return outcome(SSL_write(ssl_.get(), from, asInt(n)));
  }

  void sayGoodbye() override {
    // Not after a failure, nor before the handshake: OpenSSL would only complain.
    if (!failed_ && SSL_is_init_finished(ssl_.get())) {
      bioState_.mayWait = true;
      SSL_shutdown(ssl_.get());
      ERR_clear_error();
    }
    shutDownWriting();
  }

private:
  bool hasBuffered() const override { return SSL_has_pending(ssl_.get()) != 0; }

  static int asInt(std::size_t n) {
    return static_cast<int>(std::min<std::size_t>(n, std::numeric_limits<int>::max()));
  }

  int outcome(int result) {
    if (result > 0) return result;
    const int error = SSL_get_error(ssl_.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return kNothingYet;
    if (error != SSL_ERROR_ZERO_RETURN) failed_ = true;
    ERR_clear_error();
    return kEnded;
  }

  SocketBio bioState_;
  std::unique_ptr<SSL, SslFree> ssl_;
  bool failed_ = false;
};

}  // namespace

struct TlsContext::Impl {
  ACE_SSL_Context context;
  SSL_CTX* ssl = nullptr;  // the context's own
};

TlsContext::TlsContext(const TlsSettings& settings,
                       const std::function<void(std::string_view)>& warn)
    : impl_(std::make_unique<Impl>()) {
  ERR_clear_error();
  if (impl_->context.set_mode(ACE_SSL_Context::SSLv23_server) != 0) fail("no context");
  SSL_CTX* const ssl = impl_->ssl = impl_->context.context();
  SSL_CTX_set_default_passwd_cb(ssl, noPassphrase);
  if (SSL_CTX_set_min_proto_version(ssl, TLS1_2_VERSION) != 1) fail("no TLS 1.2");
  SSL_CTX_set_options(ssl, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET | SSL_OP_NO_COMPRESSION |
                               SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_session_cache_mode(ssl, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_num_tickets(ssl, 0);
  // A connection at rest holds no buffers, a record takes one read, and a call returns after every
  // record, so that deadlines are looked at.
  SSL_CTX_clear_mode(ssl, SSL_MODE_AUTO_RETRY);
  SSL_CTX_set_mode(ssl, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                            SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_read_ahead(ssl, 1);

  requireReadable(settings.certificate, "certificate");
  if (SSL_CTX_use_certificate_chain_file(ssl, settings.certificate.c_str()) != 1) {
    fail("the certificate " + settings.certificate + " cannot be used");
  }
  requireReadable(settings.key, "key");
  struct stat status {};
  if (stat(settings.key.c_str(), &status) == 0 && (status.st_mode & (S_IRWXO | S_IWGRP)) != 0) {
    warn("TLS: others than its owner may use the key " + settings.key);
  }
  if (SSL_CTX_use_PrivateKey_file(ssl, settings.key.c_str(), SSL_FILETYPE_PEM) != 1) {
    fail("the key " + settings.key + " cannot be used");
  }
  if (settings.clientCa.empty()) return;
  requireReadable(settings.clientCa, "authority of clients");
  STACK_OF(X509_NAME)* const names = SSL_load_client_CA_file(settings.clientCa.c_str());
  if (!names || SSL_CTX_load_verify_file(ssl, settings.clientCa.c_str()) != 1) {
    sk_X509_NAME_pop_free(names, X509_NAME_free);
    fail("the authority of clients " + settings.clientCa + " cannot be used");
  }
  SSL_CTX_set_client_CA_list(ssl, names);  // takes the names over
  // Behind ACE's back, which says its own mind whenever it hands the context out: not again.
  SSL_CTX_set_verify(ssl,
                     settings.requireClientCertificate
                         ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT
                         : SSL_VERIFY_PEER,
                     nullptr);
}

TlsContext::~TlsContext() = default;

std::unique_ptr<Transport> TlsContext::makeTransport(Descriptor socket) const {
  return std::make_unique<TlsTransport>(std::move(socket), impl_->ssl);
}

}  // namespace nox::agent
