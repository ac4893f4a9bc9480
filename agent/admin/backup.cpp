#include "agent/admin/backup.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/admin/exit_status.h"
#include "agent/admin/stores.h"
#include "agent/names.h"
#include "agent/users/users.h"
#include "agent/version.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr const char* kManifest = "/manifest.json";
constexpr const char* kUsers = "users.db";
constexpr std::string_view kAccounts = "accounts/";
constexpr std::string_view kSuffix = ".db";
constexpr int kFormat = 1;
constexpr std::size_t kLargestManifest = 64 * 1024 * 1024;

/// Runs `undo` unless the work was done.
class Undo {
public:
  explicit Undo(std::function<void()> undo) : undo_(std::move(undo)) {}
  ~Undo() {
    if (undo_) undo_();
  }
  Undo(const Undo&) = delete;
  Undo& operator=(const Undo&) = delete;
  void keep() { undo_ = nullptr; }

private:
  std::function<void()> undo_;
};

void removeAll(const std::string& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

std::string now() {
  const std::time_t seconds = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string fileIn(const std::string& folder, const std::string& path) {
  return folder + "/" + path;
}

BackupFile finished(const std::string& folder, std::string path) {
  const std::string file = fileIn(folder, path);
  syncFile(file);
  return BackupFile{std::move(path), sizeOfFile(file), sha256OfFile(file)};
}

std::string manifestOf(const std::vector<BackupFile>& files) {
  json manifest{
      {"format", kFormat}, {"noxd", version()}, {"made", now()}, {"files", json::array()}};
  for (const BackupFile& file : files) {
    manifest["files"].push_back(
        {{"path", file.path}, {"bytes", file.bytes}, {"sha256", file.sha256}});
  }
  return manifest.dump(2) + "\n";
}

/// The account that a file of a backup holds; empty for another file.
std::string accountOf(std::string_view path) {
  if (path.size() < kAccounts.size() + kSuffix.size() ||
      path.substr(0, kAccounts.size()) != kAccounts ||
      path.substr(path.size() - kSuffix.size()) != kSuffix) {
    return {};
  }
  path.remove_prefix(kAccounts.size());
  path.remove_suffix(kSuffix.size());
  return isFileName(path) ? std::string(path) : std::string();
}

[[noreturn]] void damaged(const std::string& message) {
  throw AdminError(ExitStatus::Damaged, message);
}

std::vector<BackupFile> readManifest(const std::string& backup) {
  const std::string file = backup + kManifest;
  std::error_code error;
  if (!fs::exists(file, error)) {
    damaged(backup + " is no backup, or one that was interrupted: it has no manifest.json");
  }
  std::vector<BackupFile> files;
  std::set<std::string> paths;
  try {
    const json manifest = json::parse(readSmallFile(file, kLargestManifest));
    if (manifest.at("format").get<int>() != kFormat) {
      throw AdminError(ExitStatus::Failed,
                       file + " was written by another version of noxd; this one cannot read it");
    }
    for (const json& entry : manifest.at("files")) {
      files.push_back(BackupFile{entry.at("path").get<std::string>(),
                                 entry.at("bytes").get<std::uint64_t>(),
                                 entry.at("sha256").get<std::string>()});
      const std::string& path = files.back().path;
      if ((path != kUsers && accountOf(path).empty()) || !paths.insert(path).second) {
        damaged(file + " names a file that no backup has");
      }
    }
  } catch (const json::exception&) {
    damaged(file + " cannot be understood");
  }
  if (paths.count(kUsers) == 0) damaged(file + " names no " + kUsers);
  return files;
}

void checkFiles(const std::string& backup, const std::vector<BackupFile>& files) {
  for (const BackupFile& file : files) {
    const std::string path = fileIn(backup, file.path);
    std::error_code error;
    if (!fs::is_regular_file(path, error)) damaged(path + " is missing");
    if (sizeOfFile(path) != file.bytes || sha256OfFile(path) != file.sha256) {
      damaged(path + " is not what was backed up: its checksum differs");
    }
  }
}

void copyBack(const std::string& backup, const BackupFile& file, const DataDirectory& directory) {
  const std::string to = fileIn(directory.path(), file.path);
  if (copyToNewFile(fileIn(backup, file.path), to) != file.sha256) {
    damaged(to + " was changed on its way: its checksum differs");
  }
}

}  // namespace

std::vector<BackupFile> backUp(const DataDirectory& directory, const std::string& target) {
  directory.require();
  const Users users(directory.users());
  const std::unique_ptr<StoreEngine> stores = openStores(directory, true);

  std::error_code error;
  if (fs::exists(target, error)) {
    throw AdminError(ExitStatus::Failed, target + " is there already; nothing was changed");
  }
  makeFolder(target);
  Undo undo([&] { removeAll(target); });
  makeFolder(target + "/accounts");

  std::vector<BackupFile> files;
  for (const std::string& account : stores->accounts()) {
    std::string path(kAccounts);
    path.append(account).append(kSuffix);
    stores->backup(account, fileIn(target, path));
    files.push_back(finished(target, std::move(path)));
  }
  users.backup(target + "/" + kUsers);
  files.push_back(finished(target, kUsers));
  syncFolder(target + "/accounts");
  writeNewFile(target + kManifest, manifestOf(files));
  const std::string parent = fs::absolute(target).lexically_normal().parent_path().string();
  syncFolder(parent);
  undo.keep();
  return files;
}

std::vector<BackupFile> restore(const std::string& backup, const DataDirectory& directory) {
  std::vector<BackupFile> files = readManifest(backup);
  checkFiles(backup, files);

  const bool made = directory.makeEmpty();
  Undo undo([&] {
    removeAll(directory.accounts());
    removeAll(directory.users());
    removeAll(directory.lockFile());
    if (made) removeAll(directory.path());
  });
  const DirectoryLock lock(directory);
  makeFolder(directory.accounts());
  for (const BackupFile& file : files) {
    if (file.path != kUsers) copyBack(backup, file, directory);
  }
  const std::unique_ptr<StoreEngine> stores = openStores(directory, true);
  for (const std::string& account : stores->accounts()) {
    const std::vector<std::string> mistakes = stores->verify(account);
    if (!mistakes.empty()) damaged("account " + account + ": " + mistakes.front());
  }
  // Last, since an agent serves no directory without it: what a crash leaves half restored is never
  // taken for the whole.
  for (const BackupFile& file : files) {
    if (file.path == kUsers) copyBack(backup, file, directory);
  }
  const std::vector<std::string> mistakes = Users(directory.users()).check();
  if (!mistakes.empty()) damaged(mistakes.front());
  undo.keep();
  return files;
}

std::vector<std::string> verify(const DataDirectory& directory) {
  directory.require();
  std::vector<std::string> mistakes = directory.permissionMistakes();
  const std::unique_ptr<StoreEngine> stores = openStores(directory, true);
  const std::vector<std::string> accounts = stores->accounts();
  for (const std::string& account : accounts) {
    std::vector<std::string> found;
    try {
      found = stores->verify(account);
    } catch (const StoreError& error) {
      found.emplace_back(error.what());
    }
    const std::string prefix = "account " + account + ": ";
    for (std::string& mistake : found) mistakes.push_back(mistake.insert(0, prefix));
  }
  try {
    const Users users(directory.users());
    for (std::string& mistake : users.check()) mistakes.push_back(std::move(mistake));
    for (const UserInfo& user : users.list()) {
      for (const Grant& grant : user.grants) {
        if (std::find(accounts.begin(), accounts.end(), grant.account) == accounts.end()) {
          mistakes.push_back("user " + user.name + " may enter account " + grant.account +
                             ", which is not there");
        }
      }
    }
  } catch (const StoreError& error) {
    mistakes.emplace_back(error.what());
  }
  return mistakes;
}

}  // namespace nox::agent
