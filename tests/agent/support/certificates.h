// Certificates for tests, made on the spot.
#pragma once

#include <memory>
#include <string>

namespace nox::agent::test {

/// A certificate with its key, valid for a day around now.
class Certificate {
public:
  /// An authority that has signed itself.
  static Certificate authority(const std::string& name);
  /// Of `name`, which is also the host that it stands for, and of 127.0.0.1.
  Certificate issue(const std::string& name) const;

  /// Writes both in PEM; the key for its owner alone.
  void write(const std::string& certificateFile, const std::string& keyFile) const;
  std::string pem() const;

private:
  struct Parts;
  explicit Certificate(std::shared_ptr<const Parts> parts) : parts_(std::move(parts)) {}
  static Certificate make(const std::string& name, const Parts* issuer);

  std::shared_ptr<const Parts> parts_;
};

}  // namespace nox::agent::test
