// The configuration file, checked: what each setting is, its unit and its default.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace nox::agent {

struct ListenAddress {
  std::string host;  // an address or a name; brackets around IPv6 in the file
  std::uint16_t port = 0;
};

struct TlsSettings {
  bool enabled = false;
  ListenAddress listen{"127.0.0.1", 7434};
  std::string certificate;  // PEM, the chain
  std::string key;          // PEM
  std::string clientCa;     // PEM; empty: clients need no certificate
  bool requireClientCertificate = false;
};

/// What the file says, or what holds where it is silent.
struct ConfigurationValues {
  // [server]
  std::string dataDirectory = "/var/lib/noxd";
  ListenAddress listen{"127.0.0.1", 7433};
  bool plainListener = true;
  bool plainLoginEverywhere = false;  // passwords without TLS from other machines
  std::size_t maxConnections = 512;
  std::size_t maxFrame = 16u * 1024u * 1024u;  // bytes
  std::string defaultAccount = "MAIN";
  std::string timezone = "UTC";
  bool http = true;
  bool httpEverywhere = false;     // also to other machines
  std::chrono::seconds login{10};  // login_timeout, and so on
  std::chrono::seconds frame{30};
  std::chrono::seconds idle{0};  // 0: never
  std::chrono::seconds drain{30};
  std::chrono::seconds send{30};
  // [tls]
  TlsSettings tls;
  // [store]
  bool synchronousFull = true;
  // [session]: the first three are what properties may change
  std::chrono::seconds lockWait{5};
  std::chrono::seconds statementTimeout{60};  // 0: none
  int fetchSize = 1000;
  std::chrono::seconds transactionIdle{300};
  std::chrono::seconds prompt{300};
  // [log]
  std::string logFile;  // empty: standard error
  std::string logLevel = "info";
  bool accessLog = true;
  std::chrono::milliseconds slowRequest{1000};  // 0: off
};

/// A mistake in the file.
struct ConfigurationMistake {
  unsigned int line = 0;  // 0: of no line
  std::string text;
};

/// All mistakes at once. Thrown by value.
class ConfigurationError : public std::runtime_error {
public:
  ConfigurationError(const std::string& file, std::vector<ConfigurationMistake> mistakes);
  const std::vector<ConfigurationMistake>& mistakes() const { return mistakes_; }

private:
  std::vector<ConfigurationMistake> mistakes_;
};

/// Reads TOML text. Paths that are not absolute start at the folder of `file`, which is not opened.
/// Throws ConfigurationError.
ConfigurationValues parseConfiguration(const std::string& text, const std::string& file);

/// Reads a file; with `checkFiles`, also sees to it that the files which it names can be read.
/// Throws ConfigurationError.
ConfigurationValues readConfiguration(const std::string& file, bool checkFiles = true);

/// A file with all settings and what they mean. Those that are at their defaults are commented out.
std::string configurationText(const ConfigurationValues& values);

/// A setting, as "section.key".
struct ConfigurationKey {
  std::string name;
  bool needsRestart = false;
};
std::vector<ConfigurationKey> configurationKeys();

/// Puts the settings that a running agent cannot change back to what they are in `running`, and
/// names those that differed.
std::vector<std::string> keepWhatNeedsRestart(const ConfigurationValues& running,
                                              ConfigurationValues& next);

/// "host:port", with brackets around an IPv6 address.
std::string textOf(const ListenAddress& address);

/// The values that hold now. A reload swaps them; whoever holds the pointer keeps the old ones.
/// Safe for threads.
class Configuration {
public:
  explicit Configuration(ConfigurationValues values);
  std::shared_ptr<const ConfigurationValues> values() const;
  void replace(ConfigurationValues values);

private:
  mutable std::mutex mutex_;
  std::shared_ptr<const ConfigurationValues> values_;
};

}  // namespace nox::agent
