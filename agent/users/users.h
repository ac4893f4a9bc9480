// Users: their hashed passwords, and which accounts they may enter.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// Each includes the ones before.
enum class Right { Read = 1, Write = 2, Admin = 3 };

std::optional<Right> parseRight(std::string_view text);
const char* nameOf(Right right);

struct Grant {
  std::string account;
  Right right = Right::Read;
};

struct UserInfo {
  std::string name;
  std::vector<Grant> grants;
};

constexpr std::size_t kLongestPassword = 1024;  // bytes

/// The agent's own store, `users.db` in the data directory. Changes are durable when a call
/// returns, and other processes that have the file open see them at once. Safe for threads. Throws
/// StoreError where the file cannot be used, and std::invalid_argument for a name that cannot be
/// one (see isFileName) and a password that is empty or too long, where they would be stored.
class Users {
public:
  /// Opens the file; makes it, readable to its owner alone, where `create` says so.
  explicit Users(const std::string& file, bool create = false);
  ~Users();
  Users(const Users&) = delete;
  Users& operator=(const Users&) = delete;

  /// Whether the password is the user's. Takes as long, and as much memory (64 MiB for the moment),
  /// for a user that is not there.
  bool verify(const std::string& user, std::string_view password) const;
  /// What the user may do in the account; nothing: not enter it.
  std::optional<Right> right(const std::string& user, const std::string& account) const;

  /// False where there is such a user.
  bool add(const std::string& user, std::string_view password);
  /// False, as below, where there is none.
  bool setPassword(const std::string& user, std::string_view password);
  /// The user and all that was granted.
  bool remove(const std::string& user);
  /// Replaces what was granted before.
  bool grant(const std::string& user, const std::string& account, Right right);
  /// False also where nothing was granted.
  bool revoke(const std::string& user, const std::string& account);
  /// By name, with grants by account.
  std::vector<UserInfo> list() const;

  /// Copies all of it, as it is at this moment, into `file`, which must not be there yet; durable.
  void backup(const std::string& file) const;
  /// Reads all of it; what is wrong, a line each. Empty: sound.
  std::vector<std::string> check() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
