// The data directory: what lies where, and who may serve it.
#pragma once

#include <string>
#include <vector>

#include "agent/admin/files.h"

namespace nox::agent {

/// Names things; makes and checks only where a function says so. Failures are AdminErrors.
///
///     users.db          users, hashed passwords and grants
///     accounts/NAME.db  one account each
///     noxd.lock         held by the agent that serves the directory
///     noxd.toml, tls/   as `noxd init` leaves them; they may lie elsewhere
class DataDirectory {
public:
  explicit DataDirectory(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  std::string users() const { return path_ + "/users.db"; }
  std::string accounts() const { return path_ + "/accounts"; }
  std::string account(const std::string& name) const { return accounts() + "/" + name + ".db"; }
  std::string lockFile() const { return path_ + "/noxd.lock"; }

  /// Sees to it that there is an empty folder, readable to its owner alone. True when it was made.
  bool makeEmpty() const;
  /// Refuses a folder that was never initialised, that is somebody else's, or that cannot be
  /// written.
  void require() const;
  /// Who else may read what lies here; a line each.
  std::vector<std::string> permissionMistakes() const;

private:
  std::string path_;
};

/// While it lives no other agent can serve the directory; the system lets go of it even when the
/// process is killed.
class DirectoryLock {
public:
  /// Throws AdminError InUse where another one serves it.
  explicit DirectoryLock(const DataDirectory& directory);

private:
  Descriptor descriptor_;
};

}  // namespace nox::agent
