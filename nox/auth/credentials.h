// Credentials: who a user claims to be. The library carries them; checking them is the agent's.
#pragma once

#include "nox/protocol/message.h"

namespace nox {

/// The root of all credentials.
class NOX_EXPORT UserCredentials : public Serializable {
public:
  UserCredentials() = default;
  UserCredentials(const UserCredentials&) = default;
  UserCredentials& operator=(const UserCredentials&) = default;
  ~UserCredentials() override;
};

/// A user name and a password; the seed is a value of the agent's for the exchange of passwords.
class NOX_EXPORT LocalUserCredentials
    : public Message<LocalUserCredentials, TypeCode::LocalUserCredentials, UserCredentials> {
public:
  LocalUserCredentials() = default;
  /// Copies both; without a seed.
  LocalUserCredentials(const NOXPString& user, const NOXPString& password);

  NOXPString* getUserName() const { return userName_.get(); }
  NOXPString* getPassword() const { return password_.get(); }
  NOXPString* getSeed() const { return seed_.get(); }
  int getNumberOfFailedLoginAttempts() const { return failedLoginAttempts_; }

  /// Assigns to the password string that is there, so pointers to it stay valid. Null changes
  /// nothing.
  void setPassword(const NOXPString* password);
  /// Replaces the seed by a copy; null removes it.
  void setSeed(const NOXPString* seed);

  /// Deliberate: the password travels before the seed.
  Archive& serialize(Archive& ar, unsigned int version) override;

protected:
  OwnedString userName_ = CopiedString("");
  OwnedString seed_ = CopiedString("");
  OwnedString password_ = CopiedString("");
  int failedLoginAttempts_ = 0;
};

/// Adds the account, the database area to log in to.
class NOX_EXPORT AccountUserCredentialsProt
    : public Message<AccountUserCredentialsProt, TypeCode::AccountUserCredentials,
                     LocalUserCredentials> {
public:
  AccountUserCredentialsProt() = default;
  /// Copies the texts. A null `password` means none, which travels as a null string; other nulls
  /// count as empty. The seed is empty.
  AccountUserCredentialsProt(const char* user, const char* account, const char* password);

  NOXPString* getAccount() const { return account_.get(); }

  /// Deliberate: user name, account and password alone; seed and failed attempts never travel.
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString account_ = CopiedString("");
};

}  // namespace nox
