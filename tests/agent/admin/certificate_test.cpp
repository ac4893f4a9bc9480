// The certificate for first steps.
#include "agent/admin/certificate.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>
#include <string>

namespace nox::agent {
namespace {

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Bio = std::unique_ptr<BIO, FreeWith<BIO_free>>;
using X509Pointer = std::unique_ptr<X509, FreeWith<X509_free>>;
using KeyPointer = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;

class SelfSignedTest : public testing::Test {
protected:
  SelfSignedTest() {
    const Bio certificateText(
        BIO_new_mem_buf(made.certificate.data(), static_cast<int>(made.certificate.size())));
    certificate.reset(PEM_read_bio_X509(certificateText.get(), nullptr, nullptr, nullptr));
    const Bio keyText(BIO_new_mem_buf(made.key.data(), static_cast<int>(made.key.size())));
    key.reset(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
  }

  const SelfSigned made = makeSelfSigned();
  X509Pointer certificate;
  KeyPointer key;
};

TEST_F(SelfSignedTest, TheKeyIsThatOfTheCertificate) {
  ASSERT_TRUE(certificate && key);
  EXPECT_EQ(X509_check_private_key(certificate.get(), key.get()), 1);
}

TEST_F(SelfSignedTest, StandsForThisMachineUnderItsLocalNames) {
  ASSERT_TRUE(certificate);
  EXPECT_EQ(X509_check_host(certificate.get(), "localhost", 0, 0, nullptr), 1);
  EXPECT_EQ(X509_check_ip_asc(certificate.get(), "127.0.0.1", 0), 1);
  EXPECT_EQ(X509_check_ip_asc(certificate.get(), "::1", 0), 1);
  EXPECT_EQ(X509_check_host(certificate.get(), "example.com", 0, 0, nullptr), 0);
}

TEST_F(SelfSignedTest, IsGoodForTheNextYear) {
  ASSERT_TRUE(certificate);
  std::time_t now = std::time(nullptr);
  std::time_t inAYear = now + 365L * 24 * 3600;
  EXPECT_LT(X509_cmp_time(X509_get0_notBefore(certificate.get()), &now), 0);
  EXPECT_GT(X509_cmp_time(X509_get0_notAfter(certificate.get()), &inAYear), 0);
}

TEST_F(SelfSignedTest, IsTrustedByWhoeverTrustsIt) {
  ASSERT_TRUE(certificate);
  const std::unique_ptr<X509_STORE, FreeWith<X509_STORE_free>> store(X509_STORE_new());
  ASSERT_EQ(X509_STORE_add_cert(store.get(), certificate.get()), 1);
  const std::unique_ptr<X509_STORE_CTX, FreeWith<X509_STORE_CTX_free>> context(
      X509_STORE_CTX_new());
  ASSERT_EQ(X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), nullptr), 1);
  X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER);
  EXPECT_EQ(X509_verify_cert(context.get()), 1)
      << X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

TEST_F(SelfSignedTest, TheFingerprintIsThirtyTwoBytesInHexadecimal) {
  EXPECT_EQ(made.fingerprint.size(), 32U * 3 - 1);
  EXPECT_EQ(made.fingerprint.find_first_not_of("0123456789ABCDEF:"), std::string::npos);
}

TEST_F(SelfSignedTest, EachIsAnother) {
  const SelfSigned other = makeSelfSigned();
  EXPECT_NE(other.key, made.key);
  EXPECT_NE(other.fingerprint, made.fingerprint);
}

}  // namespace
}  // namespace nox::agent
