#include "agent/users/users.h"

#include <fcntl.h>
#include <sodium.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "agent/names.h"
#include "agent/store/sqlite/sqlite_error.h"
#include "agent/store/store.h"

namespace nox::agent {

namespace {

constexpr int kBusyMilliseconds = 10'000;
// Tells users.db from other databases: "nxus".
constexpr int kApplicationId = 0x6E787573;
constexpr int kSchemaVersion = 1;

constexpr const char* kSchema =
    "CREATE TABLE users(name TEXT PRIMARY KEY, password TEXT NOT NULL) STRICT, WITHOUT ROWID;"
    "CREATE TABLE grants("
    "  user TEXT NOT NULL REFERENCES users(name) ON DELETE CASCADE,"
    "  account TEXT NOT NULL,"
    "  access INTEGER NOT NULL CHECK(access BETWEEN 1 AND 3),"
    "  PRIMARY KEY(user, account)) STRICT, WITHOUT ROWID;";

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

[[noreturn]] void fail(const std::string& file, sqlite3* database, int code) {
  throw storeError(database, code, file);
}

/// Prepared, bound from left to right, and stepped through.
class Statement {
public:
  Statement(const std::string& file, sqlite3* database, const char* sql)
      : file_(file), database_(database) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    statement_.reset(statement);
    if (code != SQLITE_OK) fail(file_, database_, code);
  }

  Statement& bind(std::string_view text) {
    // The texts outlive the statement.
    check(sqlite3_bind_text64(statement_.get(), ++bound_, text.data(), text.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
    return *this;
  }
  Statement& bind(int number) {
    check(sqlite3_bind_int(statement_.get(), ++bound_, number));
    return *this;
  }

  bool next() {
    const int code = sqlite3_step(statement_.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE) fail(file_, database_, code);
    return code == SQLITE_ROW;
  }
  /// Runs a change; whether it changed any row.
  bool change() {
    next();
    return sqlite3_changes(database_) > 0;
  }

  std::string text(int column) const {
    const auto* bytes =
        reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(
                                          sqlite3_column_bytes(statement_.get(), column)))
                 : std::string();
  }
  int number(int column) const { return sqlite3_column_int(statement_.get(), column); }

private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };

  void check(int code) {
    if (code != SQLITE_OK) fail(file_, database_, code);
  }

  const std::string& file_;
  sqlite3* database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int bound_ = 0;
};

/// Makes the file before SQLite opens it, since that would make it readable to more than its owner.
void makeFile(const std::string& file) {
  constexpr mode_t kOwnerOnly = 0600;
  const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnerOnly);
  if (descriptor < 0) {
    throw StoreError(errno == ENOSPC ? StoreError::Kind::Full : StoreError::Kind::Failed,
                     file + " cannot be made: " + std::strerror(errno));
  }
  close(descriptor);
}

Database openDatabase(const std::string& file) {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &opened,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  Database database(opened);
  if (code != SQLITE_OK) fail(file, database.get(), code);
  sqlite3_busy_timeout(opened, kBusyMilliseconds);
  sqlite3_extended_result_codes(opened, 1);
  return database;
}

void useSodium() {
  if (sodium_init() < 0) throw std::runtime_error("libsodium cannot be used");
}

std::string hashOf(std::string_view password) {
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  if (crypto_pwhash_str(hash.data(), password.data(), password.size(),
                        crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    throw StoreError(StoreError::Kind::Failed, "there is no memory to hash a password");
  }
  return hash.data();
}

/// A hash of no password, which costs what a real one costs.
const std::string& hashOfNobody() {
  static const std::string hash =
      "$argon2id$v=19$m=" + std::to_string(crypto_pwhash_MEMLIMIT_INTERACTIVE / 1024) +
      ",t=" + std::to_string(crypto_pwhash_OPSLIMIT_INTERACTIVE) +
      ",p=1$AAAAAAAAAAAAAAAAAAAAAA$AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA";
  return hash;
}

/// crypto_pwhash_str_verify wants its text in an array of this size, filled up with zeros.
std::array<char, crypto_pwhash_STRBYTES> padded(const std::string& hash) {
  std::array<char, crypto_pwhash_STRBYTES> text{};
  if (hash.size() < text.size()) std::copy(hash.begin(), hash.end(), text.begin());
  return text;
}

void checkName(const std::string& name, const char* what) {
  if (isFileName(name)) return;
  throw std::invalid_argument("\"" + name + "\" is no name of " + what +
                              ": letters, digits and . _ $ - are, up to 64 of them, beginning with "
                              "a letter or digit");
}

void checkPassword(std::string_view password) {
  if (password.empty()) throw std::invalid_argument("a password has at least one byte");
  if (password.size() > kLongestPassword) {
    throw std::invalid_argument("a password has at most 1024 bytes");
  }
}

}  // namespace

std::optional<Right> parseRight(std::string_view text) {
  for (const Right right : {Right::Read, Right::Write, Right::Admin}) {
    if (text == nameOf(right)) return right;
  }
  return std::nullopt;
}

const char* nameOf(Right right) {
  switch (right) {
    case Right::Read:
      return "read";
    case Right::Write:
      return "write";
    case Right::Admin:
      break;
  }
  return "admin";
}

struct Users::Impl {
  Impl(const std::string& path, bool create) : file(path) {
    useSodium();
    if (create) makeFile(file);
    database = openDatabase(file);
    // A journal of its own beside the file, and the folder synchronised when it goes: a change that
    // was acknowledged survives a loss of power.
    run("PRAGMA journal_mode=DELETE");
    run("PRAGMA synchronous=EXTRA");
    run("PRAGMA foreign_keys=ON");
    run("PRAGMA trusted_schema=OFF");
    if (create && number("PRAGMA user_version") == 0) makeSchema();
    if (number("PRAGMA application_id") != kApplicationId) {
      throw StoreError(StoreError::Kind::Damaged, file + " does not hold the agent's users");
    }
    if (number("PRAGMA user_version") != kSchemaVersion) {
      throw StoreError(StoreError::Kind::Failed,
                       file + " was written by another version of the agent");
    }
  }

  Statement prepare(const char* sql) const { return Statement(file, database.get(), sql); }

  void run(const char* sql) const {
    const int code = sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(file, database.get(), code);
  }

  int number(const char* sql) const {
    Statement statement = prepare(sql);
    return statement.next() ? statement.number(0) : 0;
  }

  void makeSchema() const {
    run("BEGIN IMMEDIATE");
    try {
      run(kSchema);
      run(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
      run(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
      run("COMMIT");
    } catch (...) {
      sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
      throw;
    }
  }

  std::optional<std::string> storedHash(const std::string& user) const {
    const std::lock_guard<std::mutex> lock(mutex);
    Statement statement = prepare("SELECT password FROM users WHERE name = ?");
    if (!statement.bind(user).next()) return std::nullopt;
    return statement.text(0);
  }

  /// After a login, where a newer library would hash with more effort.
  void renewHash(const std::string& user, std::string_view password, const std::string& old) const {
    try {
      const std::string renewed = hashOf(password);
      const std::lock_guard<std::mutex> lock(mutex);
      // Only what was verified is replaced: somebody may have changed the password meanwhile.
      prepare("UPDATE users SET password = ? WHERE name = ? AND password = ?")
          .bind(renewed)
          .bind(user)
          .bind(old)
          .change();
    } catch (const StoreError&) {
      // The old hash is as good for the next login.
      return;
    }
  }

  const std::string file;
  Database database;
  mutable std::mutex mutex;  // one statement at a time
};

Users::Users(const std::string& file, bool create) : impl_(std::make_unique<Impl>(file, create)) {}

Users::~Users() = default;

bool Users::verify(const std::string& user, std::string_view password) const {
  const std::optional<std::string> stored = impl_->storedHash(user);
  const auto hash = padded(stored ? *stored : hashOfNobody());
  const bool right =
      crypto_pwhash_str_verify(hash.data(), password.data(), password.size()) == 0 && stored;
  if (right && crypto_pwhash_str_needs_rehash(hash.data(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                              crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    impl_->renewHash(user, password, *stored);
  }
  return right;
}

std::optional<Right> Users::right(const std::string& user, const std::string& account) const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Statement statement = impl_->prepare("SELECT access FROM grants WHERE user = ? AND account = ?");
  if (!statement.bind(user).bind(account).next()) return std::nullopt;
  return static_cast<Right>(statement.number(0));
}

bool Users::add(const std::string& user, std::string_view password) {
  checkName(user, "a user");
  checkPassword(password);
  const std::string hash = hashOf(password);
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->prepare("INSERT INTO users VALUES(?, ?) ON CONFLICT DO NOTHING")
      .bind(user)
      .bind(hash)
      .change();
}

bool Users::setPassword(const std::string& user, std::string_view password) {
  checkPassword(password);
  const std::string hash = hashOf(password);
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->prepare("UPDATE users SET password = ? WHERE name = ?")
      .bind(hash)
      .bind(user)
      .change();
}

bool Users::remove(const std::string& user) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->prepare("DELETE FROM users WHERE name = ?").bind(user).change();
}

bool Users::grant(const std::string& user, const std::string& account, Right right) {
  checkName(account, "an account");
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_
      ->prepare(
          "INSERT INTO grants SELECT name, ?, ? FROM users WHERE name = ? "
          "ON CONFLICT(user, account) DO UPDATE SET access = excluded.access")
      .bind(account)
      .bind(static_cast<int>(right))
      .bind(user)
      .change();
}

bool Users::revoke(const std::string& user, const std::string& account) {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->prepare("DELETE FROM grants WHERE user = ? AND account = ?")
      .bind(user)
      .bind(account)
      .change();
}

std::vector<UserInfo> Users::list() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  Statement statement = impl_->prepare(
      "SELECT name, account, access FROM users LEFT JOIN grants ON user = name "
      "ORDER BY name, account");
  std::vector<UserInfo> users;
  while (statement.next()) {
    if (users.empty() || users.back().name != statement.text(0)) {
      users.push_back(UserInfo{statement.text(0), {}});
    }
    const int access = statement.number(2);
    if (access != 0) {
      users.back().grants.push_back(Grant{statement.text(1), static_cast<Right>(access)});
    }
  }
  return users;
}

void Users::backup(const std::string& file) const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  makeFile(file);
  // In one step, which a writer waits for; the copy is synchronised when it is closed.
  impl_->prepare("VACUUM INTO ?").bind(file).next();
}

std::vector<std::string> Users::check() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  std::vector<std::string> mistakes;
  try {
    Statement integrity = impl_->prepare("PRAGMA integrity_check");
    while (integrity.next()) {
      if (integrity.text(0) != "ok") mistakes.push_back(impl_->file + ": " + integrity.text(0));
    }
    Statement lonely = impl_->prepare("PRAGMA foreign_key_check");
    while (lonely.next()) {
      mistakes.push_back(impl_->file + ": something is granted to a user who is not there");
    }
    Statement hashes = impl_->prepare("SELECT name, password FROM users ORDER BY name");
    while (hashes.next()) {
      const auto hash = padded(hashes.text(1));
      if (crypto_pwhash_str_needs_rehash(hash.data(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                         crypto_pwhash_MEMLIMIT_INTERACTIVE) < 0) {
        mistakes.push_back(impl_->file + ": the password of " + hashes.text(0) +
                           " is stored in no known form");
      }
    }
  } catch (const StoreError& error) {
    mistakes.emplace_back(error.what());
  }
  return mistakes;
}

}  // namespace nox::agent
