// A certificate for first steps, which clients have to be told to trust.
#pragma once

#include <string>

namespace nox::agent {

struct SelfSigned {
  std::string certificate;  // PEM
  std::string key;          // PEM
  std::string fingerprint;  // SHA-256 of the certificate, as "AB:CD:.."
};

/// For this machine's name, localhost, 127.0.0.1 and ::1; good for two years. Throws AdminError.
SelfSigned makeSelfSigned();

}  // namespace nox::agent
