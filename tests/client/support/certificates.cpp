#include "tests/client/support/certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>

namespace nox::client::test {

namespace {

template <class T, void (*free)(T*)>
struct Freed {
  void operator()(T* object) const { free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509, X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION, X509_EXTENSION_free>>;

struct Closed {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, Closed>;

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("certificate: ") + what);
}

OpenFile create(const std::string& name) {
  OpenFile file(std::fopen(name.c_str(), "w"));
  require(file != nullptr, "no file");
  return file;
}

void extend(X509* certificate, int what, const std::string& value) {
  const Extension extension(X509V3_EXT_conf_nid(nullptr, nullptr, what, value.c_str()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "no extension");
}

std::string alternativeNames(const CertificateText& text) {
  std::string names;
  const auto add = [&names](const std::string& name) {
    names += (names.empty() ? "" : ",") + name;
  };
  for (const std::string& host : text.hosts) add("DNS:" + host);
  for (const std::string& address : text.addresses) add("IP:" + address);
  return names;
}

/// Signed by `issuer` with `issuerKey`; null: by itself.
Certificate make(EVP_PKEY* key, const CertificateText& text, X509* issuer, EVP_PKEY* issuerKey,
                 bool isAuthority) {
  constexpr long kVersion3 = 2;
  constexpr long kDay = 24L * 60 * 60;
  static int serial = 0;
  Certificate made(X509_new());
  X509* const x = made.get();
  X509_set_version(x, kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(x), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(x), -2 * kDay);
  X509_gmtime_adj(X509_getm_notAfter(x), text.isExpired ? -kDay : kDay);
  X509_NAME* const name = X509_get_subject_name(x);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(text.name.c_str()), -1, -1, 0);
  X509_set_issuer_name(x, issuer ? X509_get_subject_name(issuer) : name);
  X509_set_pubkey(x, key);
  if (isAuthority) extend(x, NID_basic_constraints, "critical,CA:TRUE");
  const std::string alternatives = alternativeNames(text);
  if (!alternatives.empty()) extend(x, NID_subject_alt_name, alternatives);
  require(X509_sign(x, issuerKey ? issuerKey : key, EVP_sha256()) != 0, "no signature");
  return made;
}

CertificateFiles save(const Scratch& directory, const std::string& name, X509* certificate,
                      EVP_PKEY* key) {
  const CertificateFiles files{directory.file(name + ".pem"), directory.file(name + ".key")};
  require(PEM_write_X509(create(files.certificate).get(), certificate) == 1, "not written");
  require(PEM_write_PrivateKey(create(files.key).get(), key, nullptr, nullptr, 0, nullptr,
                               nullptr) == 1,
          "key not written");
  return files;
}

}  // namespace

struct Authority::Impl {
  Key key;
  Certificate certificate;
  int issued = 0;
};

Authority::Authority(const Scratch& directory, const std::string& name)
    : directory_(directory), impl_(std::make_unique<Impl>()) {
  CertificateText text;
  text.name = name;
  impl_->key.reset(EVP_EC_gen("P-256"));
  impl_->certificate = make(impl_->key.get(), text, nullptr, nullptr, true);
  certificateFile_ = save(directory, name, impl_->certificate.get(), impl_->key.get()).certificate;
}

Authority::~Authority() = default;

CertificateFiles Authority::issue(const CertificateText& text) {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate =
      make(key.get(), text, impl_->certificate.get(), impl_->key.get(), false);
  return save(directory_, text.name + std::to_string(++impl_->issued), certificate.get(),
              key.get());
}

CertificateFiles Authority::selfSigned(const Scratch& directory, const CertificateText& text) {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate = make(key.get(), text, nullptr, nullptr, false);
  return save(directory, text.name + "-self", certificate.get(), key.get());
}

}  // namespace nox::client::test
