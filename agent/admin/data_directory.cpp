#include "agent/admin/data_directory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "agent/admin/exit_status.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;

constexpr mode_t kOthers = 077;

/// Whether nothing lies there but what an interrupted start, or the file system itself, leaves.
bool holdsNothing(const std::string& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path name = entry->path().filename();
    if (name != "noxd.lock" && name != "lost+found") return false;
  }
  if (error) throw AdminError(ExitStatus::Failed, folder + " cannot be read: " + error.message());
  return true;
}

void checkPermissions(const std::string& path, std::vector<std::string>& mistakes) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return;  // said by whoever needs it
  if ((status.st_mode & kOthers) != 0) {
    mistakes.push_back(path + " is open to others than its owner; chmod go= " + path);
  }
  if (status.st_uid != geteuid()) mistakes.push_back(path + " belongs to another user");
}

/// Nobody works on a directory of somebody else, root included: the owner could not use the files
/// that are made meanwhile.
void requireOwner(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) failWithErrno(path + " cannot be read");
  if (status.st_uid == geteuid()) return;
  const passwd* const owner = getpwuid(status.st_uid);
  const std::string name = owner ? owner->pw_name : std::to_string(status.st_uid);
  throw AdminError(ExitStatus::CannotWrite, "the data directory " + path + " belongs to user " +
                                                name + "; run noxd as that user");
}

}  // namespace

bool DataDirectory::makeEmpty() const {
  std::error_code error;
  const bool there = fs::exists(path_, error);
  if (there) {
    if (!fs::is_directory(path_, error)) {
      throw AdminError(ExitStatus::Failed, path_ + " is no folder");
    }
    if (!holdsNothing(path_)) {
      throw AdminError(ExitStatus::Failed, path_ + " is not empty; nothing was changed");
    }
    requireOwner(path_);
    constexpr mode_t kOwnerOnly = 0700;
    if (chmod(path_.c_str(), kOwnerOnly) != 0) failWithErrno(path_ + " cannot be closed to others");
  } else {
    makeFolder(path_);
    const std::string parent = fs::path(path_).parent_path().string();
    syncFolder(parent.empty() ? "." : parent);
  }
  return !there;
}

void DataDirectory::require() const {
  std::error_code error;
  if (!fs::is_directory(path_, error)) {
    throw AdminError(ExitStatus::Failed,
                     "there is no data directory " + path_ + "; noxd init makes one");
  }
  requireOwner(path_);
  if (access(path_.c_str(), R_OK | W_OK | X_OK) != 0) {
    failWithErrno("the data directory " + path_ + " cannot be written");
  }
  if (!fs::exists(users(), error)) {
    throw AdminError(ExitStatus::Failed,
                     path_ +
                         " holds no users.db; noxd init makes a data directory, and noxd "
                         "restore brings one back");
  }
}

std::vector<std::string> DataDirectory::permissionMistakes() const {
  std::vector<std::string> mistakes;
  checkPermissions(path_, mistakes);
  checkPermissions(users(), mistakes);
  checkPermissions(accounts(), mistakes);
  std::vector<std::string> files;
  std::error_code error;
  for (fs::directory_iterator entry(accounts(), error), end; !error && entry != end;
       entry.increment(error)) {
    files.push_back(entry->path().string());
  }
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) checkPermissions(file, mistakes);
  return mistakes;
}

DirectoryLock::DirectoryLock(const DataDirectory& directory) {
  constexpr mode_t kOwnerOnly = 0600;
  const std::string file = directory.lockFile();
  Descriptor descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnerOnly));
  if (!descriptor) failWithErrno(file + " cannot be made");
  if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) failWithErrno(file + " cannot be locked");
    throw AdminError(ExitStatus::InUse,
                     "another noxd serves " + directory.path() + ", or is just starting to");
  }
  descriptor_ = std::move(descriptor);
}

}  // namespace nox::agent
