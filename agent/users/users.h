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

/// The agent's own store, `users.db` in the data directory. Safe for threads. Throws
/// std::runtime_error where the file cannot be used.
class Users {
public:
  /// Opens the file; makes it where `create` says so.
  explicit Users(const std::string& file, bool create = false);
  ~Users();

  /// Whether the password is the user's. Takes as long for a user that is not there.
  bool verify(const std::string& user, std::string_view password) const;
  /// What the user may do in the account; nothing: not enter it.
  std::optional<Right> right(const std::string& user, const std::string& account) const;

  /// False where there is such a user.
  bool add(const std::string& user, std::string_view password);
  /// False, as below, where there is none.
  bool setPassword(const std::string& user, std::string_view password);
  bool remove(const std::string& user);
  bool grant(const std::string& user, const std::string& account, Right right);
  bool revoke(const std::string& user, const std::string& account);
  std::vector<UserInfo> list() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
