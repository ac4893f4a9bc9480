#include "agent/admin/certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "agent/admin/exit_status.h"
#include "agent/names.h"

namespace nox::agent {

namespace {

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, FreeWith<BIO_free_all>>;

void check(bool done) {
  if (done) return;
  std::array<char, 256> reason{};
  ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
  throw AdminError(ExitStatus::Failed, std::string("no certificate can be made: ") + reason.data());
}

/// This machine's name, where it has one that a certificate can carry.
std::string hostName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return {};
  return isFileName(name.data()) ? name.data() : std::string();
}

void addExtension(X509* certificate, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
  check(extension != nullptr);
  check(X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::string contentOf(BIO* memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory, &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

void setSerial(X509* certificate) {
  std::array<unsigned char, 16> random{};
  check(RAND_bytes(random.data(), static_cast<int>(random.size())) == 1);
  random[0] &= 0x7FU;  // positive
  const std::unique_ptr<BIGNUM, FreeWith<BN_free>> number(
      BN_bin2bn(random.data(), static_cast<int>(random.size()), nullptr));
  check(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)));
}

std::string fingerprintOf(const X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
  unsigned int size = 0;
  check(X509_digest(certificate, EVP_sha256(), sum.data(), &size) == 1);
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    std::array<char, 4> byte{};
    std::snprintf(byte.data(), byte.size(), i == 0 ? "%02X" : ":%02X", sum[i]);
    text += byte.data();
  }
  return text;
}

}  // namespace

SelfSigned makeSelfSigned() {
  const Key key(EVP_EC_gen("P-256"));
  check(key != nullptr);
  const Certificate certificate(X509_new());
  check(certificate != nullptr);

  constexpr long kVersion3 = 2;
  constexpr long kHour = 3600;
  constexpr long kTwoYears = 730 * 24 * kHour;
  check(X509_set_version(certificate.get(), kVersion3) == 1);
  setSerial(certificate.get());
  // Clients whose clock is a little behind accept it, too.
  check(X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kHour) != nullptr);
  check(X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kTwoYears) != nullptr);
  check(X509_set_pubkey(certificate.get(), key.get()) == 1);

  const std::string host = hostName();
  const std::string& common = host.empty() ? "localhost" : host;
  X509_NAME* name = X509_get_subject_name(certificate.get());
  check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(common.c_str()), -1, -1,
                                   0) == 1);
  check(X509_set_issuer_name(certificate.get(), name) == 1);

  std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
  if (!host.empty() && host != "localhost") names += ",DNS:" + host;
  addExtension(certificate.get(), NID_subject_alt_name, names);
  addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(certificate.get(), NID_key_usage, "critical,digitalSignature,keyCertSign");
  addExtension(certificate.get(), NID_ext_key_usage, "serverAuth");
  addExtension(certificate.get(), NID_subject_key_identifier, "hash");
  check(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0);

  SelfSigned made;
  const Memory certificateText(BIO_new(BIO_s_mem()));
  check(certificateText && PEM_write_bio_X509(certificateText.get(), certificate.get()) == 1);
  made.certificate = contentOf(certificateText.get());
  const Memory keyText(BIO_new(BIO_s_secmem()));
  check(keyText && PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                            nullptr) == 1);
  made.key = contentOf(keyText.get());
  made.fingerprint = fingerprintOf(certificate.get());
  return made;
}

}  // namespace nox::agent
