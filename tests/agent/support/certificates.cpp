#include "tests/agent/support/certificates.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace nox::agent::test {

namespace {

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("certificate: ") + what);
}

template <class T, void (*free)(T*)>
struct Freed {
  void operator()(T* object) const { free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY, EVP_PKEY_free>>;
using X = std::unique_ptr<X509, Freed<X509, X509_free>>;
using Memory = std::unique_ptr<BIO, Freed<BIO, BIO_free_all>>;

void extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
  require(extension && X509_add_ext(certificate, extension, -1) == 1, "no extension");
  X509_EXTENSION_free(extension);
}

std::string textOf(BIO* memory) {
  char* bytes = nullptr;
  const long n = BIO_get_mem_data(memory, &bytes);
  return std::string(bytes, static_cast<std::size_t>(n));
}

void writeFile(const std::string& file, const std::string& text, mode_t mode) {
  std::ofstream(file, std::ios::trunc) << text;
  require(chmod(file.c_str(), mode) == 0, "cannot write");
}

}  // namespace

struct Certificate::Parts {
  Key key;
  X certificate;
};

Certificate Certificate::authority(const std::string& name) { return make(name, nullptr); }

Certificate Certificate::issue(const std::string& name) const { return make(name, parts_.get()); }

Certificate Certificate::make(const std::string& name, const Parts* issuer) {
  constexpr long kVersion3 = 2;
  constexpr long kOneDay = 24L * 60 * 60;
  static long serial = 0;
  auto parts = std::make_shared<Parts>();
  parts->key.reset(EVP_EC_gen("P-256"));
  parts->certificate.reset(X509_new());
  require(parts->key && parts->certificate, "no memory");
  X509* const x = parts->certificate.get();
  X509_set_version(x, kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(x), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(x), -kOneDay);
  X509_gmtime_adj(X509_getm_notAfter(x), kOneDay);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  X509* const signer = issuer ? issuer->certificate.get() : x;
  X509_set_issuer_name(x, X509_get_subject_name(signer));
  X509_set_pubkey(x, parts->key.get());
  if (issuer) {
    extend(x, signer, NID_subject_alt_name, "DNS:" + name + ",IP:127.0.0.1");
  } else {
    extend(x, signer, NID_basic_constraints, "critical,CA:TRUE");
  }
  EVP_PKEY* const key = issuer ? issuer->key.get() : parts->key.get();
  require(X509_sign(x, key, EVP_sha256()) != 0, "cannot sign");
  return Certificate(std::move(parts));
}

std::string Certificate::pem() const {
  const Memory memory(BIO_new(BIO_s_mem()));
  require(memory && PEM_write_bio_X509(memory.get(), parts_->certificate.get()) == 1, "no memory");
  return textOf(memory.get());
}

void Certificate::write(const std::string& certificateFile, const std::string& keyFile) const {
  const Memory memory(BIO_new(BIO_s_mem()));
  require(memory && PEM_write_bio_PrivateKey(memory.get(), parts_->key.get(), nullptr, nullptr, 0,
                                             nullptr, nullptr) == 1,
          "no memory");
  writeFile(certificateFile, pem(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
  writeFile(keyFile, textOf(memory.get()), S_IRUSR | S_IWUSR);
}

}  // namespace nox::agent::test
