// The only user of OpenSSL.
#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "client/src/socket.h"
#include "client/src/transport.h"
#include "client/src/transport_failure.h"
#include "client/src/uri.h"
#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

using Kind = Transport::Result::Kind;

/// std::unique_ptr for OpenSSL's objects.
template <class T, void (*free)(T*)>
struct Freed {
  void operator()(T* object) const { free(object); }
};
using ContextPtr = std::unique_ptr<SSL_CTX, Freed<SSL_CTX, SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Freed<SSL, SSL_free>>;
using BioMethodPtr = std::unique_ptr<BIO_METHOD, Freed<BIO_METHOD, BIO_meth_free>>;

/// The oldest error that OpenSSL holds for this thread, as text; the others are dropped.
std::string takeError() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (code == 0) return "no reason given";
  if (ERR_SYSTEM_ERROR(code)) return systemText(ERR_GET_REASON(code));
  const char* const reason = ERR_reason_error_string(code);
  if (reason) return reason;
  char text[256];
  ERR_error_string_n(code, text, sizeof text);
  return text;
}

// OpenSSL's own socket BIO writes without MSG_NOSIGNAL: a peer that closed would end the process by
// SIGPIPE. This one does not, and counts what really left.

/// What a BIO knows of its transport.
struct Wire {
  int fd = -1;
  std::uint64_t written = 0;
  int error = 0;  // the last that a call met; 0: none
  bool ended = false;
};

Wire& wireOf(BIO* bio) { return *static_cast<Wire*>(BIO_get_data(bio)); }

bool wouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

int writeWire(BIO* bio, const char* from, std::size_t n, std::size_t* done) {
  Wire& wire = wireOf(bio);
  BIO_clear_retry_flags(bio);
  for (;;) {
    const ssize_t count = ::send(wire.fd, from, n, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      *done = static_cast<std::size_t>(count);
      wire.written += *done;
      return 1;
    }
    if (errno == EINTR) continue;
    if (wouldBlock(errno)) {
      BIO_set_retry_write(bio);
    } else {
      wire.error = errno;
    }
    return 0;
  }
}

int readWire(BIO* bio, char* to, std::size_t n, std::size_t* done) {
  Wire& wire = wireOf(bio);
  BIO_clear_retry_flags(bio);
  for (;;) {
    const ssize_t count = ::recv(wire.fd, to, n, MSG_DONTWAIT);
    if (count > 0) {
      *done = static_cast<std::size_t>(count);
      return 1;
    }
    if (count == 0) {
      wire.ended = true;
      return 0;
    }
    if (errno == EINTR) continue;
    if (wouldBlock(errno)) {
      BIO_set_retry_read(bio);
    } else {
      wire.error = errno;
    }
    return 0;
  }
}

long controlWire(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
  if (command == BIO_CTRL_EOF) return wireOf(bio).ended ? 1 : 0;
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

const BIO_METHOD* wireMethod() {
  static const BioMethodPtr method = [] {
    BioMethodPtr made(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "nox client"));
    if (!made || BIO_meth_set_write_ex(made.get(), writeWire) != 1 ||
        BIO_meth_set_read_ex(made.get(), readWire) != 1 ||
        BIO_meth_set_ctrl(made.get(), controlWire) != 1) {
      throw std::bad_alloc();
    }
    return made;
  }();
  return method.get();
}

class TlsTransport final : public Transport {
public:
  TlsTransport(Descriptor descriptor, SSL_CTX& context)
      : Transport(std::move(descriptor)), ssl_(SSL_new(&context)) {
    BIO* const bio = ssl_ ? BIO_new(wireMethod()) : nullptr;
    if (!bio) throw std::bad_alloc();
    wire_.fd = fd();
    BIO_set_data(bio, &wire_);
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl_.get(), bio, bio);  // takes it over
    SSL_set_connect_state(ssl_.get());
  }

  SSL* ssl() { return ssl_.get(); }

  Result shakeHands() {
    prepare();
    const int done = SSL_do_handshake(ssl_.get());
    return done == 1 ? Result{Kind::Bytes} : outcome(done);
  }

  Result read(char* to, std::size_t n) override {
    prepare();
    std::size_t count = 0;
    const int done = SSL_read_ex(ssl_.get(), to, n, &count);
    return done == 1 ? Result{Kind::Bytes, count} : outcome(done);
  }

  Result write(const char* from, std::size_t n) override {
    prepare();
    std::size_t count = 0;
    const int done = SSL_write_ex(ssl_.get(), from, n, &count);
    bytesOnWire_ = wire_.written;
    return done == 1 ? Result{Kind::Bytes, count} : outcome(done);
  }

  bool mayHoldBytes() const override { return SSL_has_pending(ssl_.get()) == 1; }

  void sayGoodbye() noexcept override {
    if (broken_ || !SSL_is_init_finished(ssl_.get())) return;
    ERR_clear_error();
    static_cast<void>(SSL_shutdown(ssl_.get()));
    ERR_clear_error();
  }

  bool isEncrypted() const override { return true; }

private:
  void prepare() {
    ERR_clear_error();  // SSL_get_error looks at what others left, too
    wire_.error = 0;
  }

  Result outcome(int done) {
    bytesOnWire_ = wire_.written;
    switch (SSL_get_error(ssl_.get(), done)) {
      case SSL_ERROR_WANT_READ:
        return {Kind::WantsRead};
      case SSL_ERROR_WANT_WRITE:
        return {Kind::WantsWrite};
      case SSL_ERROR_ZERO_RETURN:
        return {Kind::End};
      default:
        break;
    }
    broken_ = true;
    if (wire_.error != 0) {
      failure_ = systemText(wire_.error);
    } else if (wire_.ended) {
      return {Kind::End};  // without the goodbye that TLS asks for; frames tell what is missing
    } else {
      failure_ = "TLS: " + takeError();
    }
    return {Kind::Failed};
  }

  Wire wire_;
  SslPtr ssl_;
  bool broken_ = false;
};

bool isAddress(const std::string& host) {
  unsigned char room[sizeof(in6_addr)];
  const std::string withoutZone = host.substr(0, host.find('%'));
  return ::inet_pton(AF_INET, host.c_str(), room) == 1 ||
         ::inet_pton(AF_INET6, withoutZone.c_str(), room) == 1;
}

[[noreturn]] void refuseFile(const char* what, const std::string& file) {
  throwBadOption(std::string(what) + ' ' + file + " cannot be used: " + takeError());
}

/// Instead of OpenSSL's own, which asks at the terminal.
int noPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/) { return 0; }

class OpenSslContext final : public TlsContext {
public:
  explicit OpenSslContext(const Options& options)
      : verify_(options.tls == Tls::VerifyFull), name_(options.tlsName) {
    ERR_clear_error();
    context_.reset(SSL_CTX_new(TLS_client_method()));
    if (!context_) throw std::bad_alloc();
    SSL_CTX* const context = context_.get();
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_AUTO_RETRY);
    // Fewer receives: the head of a record and its content come in one.
    constexpr std::size_t kReadBuffer = 65536;
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_read_buffer_len(context, kReadBuffer);
    SSL_CTX_set_verify(context, verify_ ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_default_passwd_cb(context, noPassphrase);
    if (verify_) trust(options.ca);
    if (!options.certificate.empty()) {
      show(options.certificate, options.key.empty() ? options.certificate : options.key);
    } else if (!options.key.empty()) {
      throwBadOption("a key is given without its certificate (cert)");
    }
  }

  std::unique_ptr<Transport> connect(Descriptor descriptor, const std::string& host,
                                     const Deadline& deadline) const override {
    auto transport = std::make_unique<TlsTransport>(std::move(descriptor), *context_);
    const std::string& name = name_.empty() ? host : name_;
    expect(transport->ssl(), name);
    for (;;) {
      const Transport::Result result = transport->shakeHands();
      if (result.kind == Kind::Bytes) return transport;
      if (result.kind == Kind::End || result.kind == Kind::Failed) fail(*transport, result, name);
      const short events = result.kind == Kind::WantsRead ? POLLIN : POLLOUT;
      if (waitFor(transport->fd(), events, deadline) == 0) {
        throw TransportFailure{sqlstate::kConnectTimeout, "no TLS handshake in time"};
      }
    }
  }

private:
  void trust(const std::string& file) {
    if (file.empty()) {
      SSL_CTX_set_default_verify_paths(context_.get());
    } else if (SSL_CTX_load_verify_locations(context_.get(), file.c_str(), nullptr) != 1) {
      refuseFile("the file of trusted certificates", file);
    }
  }

  void show(const std::string& certificate, const std::string& key) {
    SSL_CTX* const context = context_.get();
    if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1) {
      refuseFile("the client certificate", certificate);
    }
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context) != 1) {
      refuseFile("the key of the client certificate", key);
    }
  }

  /// Whom the certificate must name, and whom the server should answer as.
  void expect(SSL* ssl, const std::string& name) const {
    const bool address = isAddress(name);
    bool done = true;
    if (verify_) {
      X509_VERIFY_PARAM* const expected = SSL_get0_param(ssl);
      // A subject was never meant to name hosts: authorities do not look at it as closely.
      X509_VERIFY_PARAM_set_hostflags(
          expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
      const std::string withoutZone = name.substr(0, name.find('%'));
      done = address ? X509_VERIFY_PARAM_set1_ip_asc(expected, withoutZone.c_str()) == 1
                     : X509_VERIFY_PARAM_set1_host(expected, name.c_str(), name.size()) == 1;
    }
    if (done && !address) done = SSL_set_tlsext_host_name(ssl, name.c_str()) == 1;
    if (!done) throw TransportFailure{sqlstate::kCannotConnect, "TLS: " + takeError()};
  }

  [[noreturn]] static void fail(TlsTransport& transport, const Transport::Result& result,
                                const std::string& name) {
    const long verdict = SSL_get_verify_result(transport.ssl());
    const bool verifies = SSL_get_verify_mode(transport.ssl()) == SSL_VERIFY_PEER;
    std::string why;
    if (verifies && verdict != X509_V_OK) {
      why = std::string("the server's certificate is refused: ") +
            X509_verify_cert_error_string(verdict);
      const bool isMisnamed =
          verdict == X509_V_ERR_HOSTNAME_MISMATCH || verdict == X509_V_ERR_IP_ADDRESS_MISMATCH;
      if (isMisnamed) why += ": it is not for " + name;
    } else if (result.kind == Kind::End) {
      why = "the server closed the connection during the TLS handshake";
    } else {
      why = transport.failure();
      if (why.find("wrong version number") != std::string::npos) {
        why += " (does this port speak TLS?)";
      }
    }
    throw TransportFailure{sqlstate::kCannotConnect, why};
  }

  bool verify_;
  std::string name_;
  ContextPtr context_;
};

}  // namespace

std::unique_ptr<TlsContext> makeTlsContext(const Options& options) {
  return std::make_unique<OpenSslContext>(options);
}

}  // namespace nox::client::detail
