// Certificates that are made when a test runs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/client/support/scratch.h"

namespace nox::client::test {

/// PEM files.
struct CertificateFiles {
  std::string certificate;
  std::string key;
};

/// What a certificate says.
struct CertificateText {
  std::string name = "test";           ///< the subject's
  std::vector<std::string> hosts;      ///< names that it vouches for
  std::vector<std::string> addresses;  ///< addresses that it vouches for
  bool isExpired = false;
};

/// An authority that signs certificates, in a directory of the test's.
class Authority {
public:
  /// `name` is its own, and that of its files.
  Authority(const Scratch& directory, const std::string& name);
  ~Authority();

  /// Its certificate, for those who trust it.
  const std::string& certificate() const { return certificateFile_; }
  CertificateFiles issue(const CertificateText& text);
  /// A certificate that nobody but itself vouches for.
  static CertificateFiles selfSigned(const Scratch& directory, const CertificateText& text);

private:
  struct Impl;
  const Scratch& directory_;
  std::string certificateFile_;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::client::test
