#include "certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace {

constexpr const char* kName = "localhost";

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("TLS: ") + what);
}

/// std::unique_ptr for OpenSSL's objects.
template <class T, void (*free)(T*)>
struct Freed {
  void operator()(T* object) const { free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509, X509_free>>;

struct Closed {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closed>;

Certificate selfSigned(EVP_PKEY* key) {
  constexpr long kVersion3 = 2;
  constexpr long kOneDay = 24L * 60 * 60;
  Certificate certificate(X509_new());
  X509* const x = certificate.get();
  X509_set_version(x, kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(x), 1);
  // A machine's clock may have been set back since; an hour is enough for that.
  X509_gmtime_adj(X509_getm_notBefore(x), -60L * 60);
  X509_gmtime_adj(X509_getm_notAfter(x), kOneDay);
  X509_NAME* const name = X509_get_subject_name(x);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(kName), -1, -1, 0);
  X509_set_issuer_name(x, name);
  X509_set_pubkey(x, key);
  require(X509_sign(x, key, EVP_sha256()) != 0, "cannot sign the certificate");
  return certificate;
}

}  // namespace

void showNewCertificate(ACE_SSL_Context& context, const std::string& certificateFile) {
  require(context.set_mode(ACE_SSL_Context::SSLv23_server) == 0, "no context");
  const Key key(EVP_EC_gen("P-256"));
  require(key != nullptr, "cannot make a key");
  const Certificate certificate = selfSigned(key.get());
  require(SSL_CTX_use_certificate(context.context(), certificate.get()) == 1 &&
              SSL_CTX_use_PrivateKey(context.context(), key.get()) == 1,
          "cannot use the certificate");
  const File file(std::fopen(certificateFile.c_str(), "w"));
  require(file != nullptr && PEM_write_X509(file.get(), certificate.get()) == 1 &&
              std::fflush(file.get()) == 0,
          "cannot write the certificate");
}

void trustOnly(ACE_SSL_Context& context, const std::string& certificateFile) {
  require(context.set_mode(ACE_SSL_Context::SSLv23_client) == 0, "no context");
  SSL_CTX* const ssl = context.context();
  require(SSL_CTX_load_verify_file(ssl, certificateFile.c_str()) == 1, "no certificate to trust");
  require(X509_VERIFY_PARAM_set1_host(SSL_CTX_get0_param(ssl), kName, 0) == 1, "no name to expect");
  SSL_CTX_set_verify(ssl, SSL_VERIFY_PEER, nullptr);
}
