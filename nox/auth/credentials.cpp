#include "nox/auth/credentials.h"

#include "nox/core/archive.h"
#include "nox/diag/file_loggers.h"

namespace nox {

UserCredentials::~UserCredentials() { NOX_LOG(filelog::debug) << "~UserCredentials()" << EndLog(); }

LocalUserCredentials::LocalUserCredentials(const NOXPString& user, const NOXPString& password)
    : userName_(CopiedString(&user)), seed_(nullptr), password_(CopiedString(&password)) {}

void LocalUserCredentials::setPassword(const NOXPString* password) {
  if (!password) return;
  if (password_) {
    *password_ = password;
  } else {
    password_.assign(password);
  }
}

void LocalUserCredentials::setSeed(const NOXPString* seed) {
  if (seed) {
    seed_.assign(seed);
  } else {
    seed_.reset();
  }
}

Archive& LocalUserCredentials::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(userName_, "userName")
      .process(password_, "password")
      .process(seed_, "seed")
      .process(failedLoginAttempts_, "failedLoginAttempts");
}

AccountUserCredentialsProt::AccountUserCredentialsProt(const char* user, const char* account,
                                                       const char* password)
    : account_(CopiedString(account)) {
  userName_.assign(user);
  if (password) {
    password_.assign(password);
  } else {
    password_.reset();
  }
}

Archive& AccountUserCredentialsProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(userName_, "userName")
      .process(account_, "account")
      .process(password_, "password");
}

}  // namespace nox
