// Backups: a folder with a copy of each account and of the users, and a manifest of checksums.
//
//     manifest.json     written last: a backup without it was interrupted
//     users.db
//     accounts/NAME.db
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/admin/data_directory.h"

namespace nox::agent {

struct BackupFile {
  std::string path;  // within the backup
  std::uint64_t bytes = 0;
  std::string sha256;
};

/// Copies each account and the users, each as it is at one moment, while an agent serves them or
/// not; durable when it returns. The folder must not be there, its parent must. Throws AdminError
/// and StoreError; what was begun is removed then.
std::vector<BackupFile> backUp(const DataDirectory& directory, const std::string& target);

/// Checks every file of the backup first, then brings it back into a data directory that is empty
/// or not there. Throws AdminError and StoreError; the data directory is as it was then.
std::vector<BackupFile> restore(const std::string& backup, const DataDirectory& directory);

/// Every mistake in the data directory, a line each. Empty: sound. An agent may serve it meanwhile.
std::vector<std::string> verify(const DataDirectory& directory);

}  // namespace nox::agent
