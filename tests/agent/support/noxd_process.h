// The real noxd, started as a process of its own on free ports and a fresh data directory.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "agent/descriptor.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {

/// What a program did: its exit status (128 and the signal's number where one ended it), and what
/// it printed on standard output and standard error.
struct Finished {
  int status = 0;
  std::string output;
};

/// Has the account MAIN and the user kUser, who may administer it. `configure`, then `start`; what
/// still runs is killed at the end. Everything that is waited for has a deadline, after which it
/// throws std::runtime_error with the log.
class NoxdProcess {
public:
  static constexpr const char* kUser = "ann";
  static constexpr const char* kPassword = "correct horse";

  /// Makes the data directory.
  NoxdProcess();
  ~NoxdProcess();
  NoxdProcess(const NoxdProcess&) = delete;
  NoxdProcess& operator=(const NoxdProcess&) = delete;

  /// A setting of the configuration file, as it stands there: ("server.max_connections", "2"),
  /// ("log.level", "\"debug\""). Holds from the next start, or reload, on.
  NoxdProcess& set(const std::string& key, const std::string& value);
  /// Turns TLS on, with a certificate of `tlsAuthority()` for localhost.
  NoxdProcess& withTls();
  /// How many descriptors the process may have.
  NoxdProcess& withDescriptors(unsigned int most);
  /// Adds a user; `grants` as on the command line: "MAIN=read".
  void addUser(const std::string& name, const std::string& password,
               const std::vector<std::string>& grants);

  /// Starts it on what is in the data directory, and waits until it serves.
  void start();
  /// The same for a start that is to fail: waits for its end.
  Finished startToFail();
  int plainPort() const { return plainPort_; }
  int tlsPort() const { return tlsPort_; }
  pid_t pid() const { return pid_; }

  void signal(int signal) const;
  /// Writes the settings, sends SIGHUP, and waits until it has been followed.
  void reload();
  /// Waits for the end that it was told to find; its exit status.
  int wait();
  bool isRunning();
  /// SIGKILL, and waits for the end.
  void kill();
  /// SIGTERM, and waits for the end; its exit status.
  int stop();

  /// Another noxd command on the same data, as {"user", "list"}; `input` is its standard input.
  Finished run(const std::vector<std::string>& arguments, const std::string& input = {}) const;
  /// Everything that has been logged and printed since the first start.
  std::string log() const;
  /// Waits until the log holds `text`.
  void waitForLog(const std::string& text);

  std::string file(const std::string& name) const { return directory_.file(name); }
  std::string dataDirectory() const { return file("data"); }
  /// The certificates that clients trust, in PEM.
  std::string tlsAuthority() const { return file("authority.pem"); }
  std::string tlsCertificate() const { return file("certificate.pem"); }
  std::string tlsKey() const { return file("key.pem"); }

  /// From /proc: kibibytes of memory in use, threads, open descriptors.
  long memoryKiB() const;
  int threads() const;
  /// Those of files named `without` are not counted.
  int descriptors(const std::string& without = {}) const;

private:
  void writeConfiguration() const;
  pid_t launch(const std::vector<std::string>& arguments, const std::string& output,
               const std::string& input) const;
  void waitForNotice(const std::string& notice);
  void readPorts();
  [[noreturn]] void fail(const std::string& what) const;

  TempDirectory directory_;
  std::map<std::string, std::string> settings_;
  unsigned int descriptors_ = 0;
  Descriptor notices_;  // what it tells its service manager
  pid_t pid_ = 0;
  int plainPort_ = 0;
  int tlsPort_ = 0;
};

}  // namespace nox::agent::test
