#include "agent/store/sqlite/sqlite_engine.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "agent/store/sqlite/new_file.h"
#include "agent/store/sqlite/sqlite_backup.h"
#include "agent/store/sqlite/sqlite_store.h"
#include "agent/store/sqlite/sqlite_verify.h"
#include "agent/store/sqlite/store_layout.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSuffix = ".db";

class SqliteEngine : public StoreEngine {
public:
  SqliteEngine(const std::string& directory, SqliteOptions options)
      // Absolute: names that begin with "file:" mean something else to the engine.
      : directory_(fs::absolute(directory)), options_(std::move(options)) {}

  bool hasAccount(const std::string& account) override {
    std::error_code ignored;
    return isFileName(account) && fs::is_regular_file(fileOf(account), ignored);
  }

  void createAccount(const std::string& account) override {
    if (!isFileName(account)) {
      throw StoreError(StoreError::Kind::Failed, "\"" + account + "\" is no name for an account");
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (hasAccount(account)) {
      throw StoreError(StoreError::Kind::Failed, "there is an account " + account);
    }
    std::error_code error;
    fs::create_directories(directory_, error);
    if (error) fail(error);
    // Made whole beside its place: an agent that dies meanwhile leaves no half of an account.
    NewFile file(fileOf(account));
    {
      SqliteConnection connection(optionsOf(file.path()));
      makeLayout(connection);
    }
    file.publish();
  }

  std::vector<std::string> accounts() override {
    std::vector<std::string> accounts;
    std::error_code error;
    for (fs::directory_iterator entry(directory_, error), end; !error && entry != end;
         entry.increment(error)) {
      if (entry->path().extension() != kSuffix) continue;
      const std::string account = entry->path().stem().string();
      if (hasAccount(account)) accounts.push_back(account);
    }
    if (error && error != std::errc::no_such_file_or_directory) fail(error);
    std::sort(accounts.begin(), accounts.end());
    return accounts;
  }

  Store& open(const std::string& account) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const auto found = stores_.find(account); found != stores_.end()) return *found->second;
    requireAccount(account);
    auto store = std::make_unique<SqliteStore>(account, optionsOf(fileOf(account)));
    return *stores_.emplace(account, std::move(store)).first->second;
  }

  void backup(const std::string& account, const std::string& file) override {
    requireAccount(account);
    SqliteConnection connection(optionsOf(fileOf(account)));
    requireLayout(connection, account);
    copyDatabase(connection, fs::absolute(file));
  }

  std::vector<std::string> verify(const std::string& account) override {
    requireAccount(account);
    try {
      SqliteConnection connection(optionsOf(fileOf(account)));
      requireLayout(connection, account);
      return findMistakes(connection);
    } catch (const StoreError& error) {
      if (error.kind() != StoreError::Kind::Damaged) throw;
      return {error.what()};
    }
  }

private:
  fs::path fileOf(const std::string& account) const { return directory_ / (account + kSuffix); }

  [[noreturn]] void fail(const std::error_code& error) const {
    throw StoreError(StoreError::Kind::Failed, directory_.string() + ": " + error.message(),
                     error.value());
  }

  void requireAccount(const std::string& account) {
    if (!hasAccount(account)) {
      throw StoreError(StoreError::Kind::Failed, "there is no account " + account);
    }
  }

  ConnectionOptions optionsOf(const fs::path& file) const {
    ConnectionOptions options;
    options.file = file.string();
    options.synchronousFull = options_.synchronousFull;
    options.mostBytes = options_.mostBytes;
    options.conversions = options_.conversions;
    return options;
  }

  const fs::path directory_;
  const SqliteOptions options_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<SqliteStore>> stores_;
};

}  // namespace

std::unique_ptr<StoreEngine> makeSqliteEngine(const std::string& directory, SqliteOptions options) {
  return std::make_unique<SqliteEngine>(directory, std::move(options));
}

}  // namespace nox::agent
