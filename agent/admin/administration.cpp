#include "agent/admin/administration.h"

#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "agent/admin/backup.h"
#include "agent/admin/data_directory.h"
#include "agent/admin/exit_status.h"
#include "agent/admin/passwords.h"
#include "agent/admin/stores.h"
#include "agent/names.h"
#include "agent/server/tls.h"
#include "agent/users/users.h"

namespace nox::agent {

namespace {

[[noreturn]] void fail(const std::string& message) {
  throw AdminError(ExitStatus::Failed, message);
}

DataDirectory openDirectory(const Locations& locations) {
  DataDirectory directory(dataDirectoryOf(locations));
  directory.require();
  return directory;
}

Grant parseGrant(const std::string& account, const std::string& rightText) {
  const std::optional<Right> right = parseRight(rightText);
  if (!right) {
    throw AdminError(ExitStatus::Usage,
                     "\"" + rightText + "\" is no right: read, write and admin are");
  }
  return Grant{account, *right};
}

Grant parseGrant(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw AdminError(ExitStatus::Usage, "\"" + text + "\" is no grant, like MAIN=write");
  }
  return parseGrant(text.substr(0, equals), text.substr(equals + 1));
}

void requireAccount(const DataDirectory& directory, const std::string& account) {
  if (isFileName(account) && openStores(directory, true)->hasAccount(account)) return;
  fail("there is no account \"" + account + "\"; nothing was changed");
}

/// As serving would: a key may be there and belong to another certificate.
void readCertificate(const ConfigurationValues& values) {
  try {
    const TlsContext context(
        values.tls, [](std::string_view warning) { std::cerr << "warning: " << warning << '\n'; });
  } catch (const std::runtime_error& error) {
    throw AdminError(ExitStatus::Configuration, error.what());
  }
}

[[noreturn]] void noUser(const std::string& user) { fail("there is no user \"" + user + "\""); }

}  // namespace

void addUser(const Locations& locations, const std::string& user,
             const std::vector<std::string>& grants, const std::string& passwordFile) {
  std::vector<Grant> parsed;
  parsed.reserve(grants.size());
  for (const std::string& text : grants) parsed.push_back(parseGrant(text));
  const DataDirectory directory = openDirectory(locations);
  for (const Grant& grant : parsed) requireAccount(directory, grant.account);
  Users users(directory.users());
  const Secret password = readNewPassword(passwordFile, user);
  if (!users.add(user, password.view())) fail("there is a user \"" + user + "\" already");
  for (const Grant& grant : parsed) users.grant(user, grant.account, grant.right);
  std::cout << "user " << user << " added\n";
}

void changePassword(const Locations& locations, const std::string& user,
                    const std::string& passwordFile) {
  Users users(openDirectory(locations).users());
  const Secret password = readNewPassword(passwordFile, user);
  if (!users.setPassword(user, password.view())) noUser(user);
  std::cout << "password of " << user << " changed\n";
}

void grantRight(const Locations& locations, const std::string& user, const std::string& account,
                const std::string& right) {
  const Grant grant = parseGrant(account, right);
  const DataDirectory directory = openDirectory(locations);
  requireAccount(directory, account);
  if (!Users(directory.users()).grant(user, account, grant.right)) noUser(user);
  std::cout << user << " has the right " << right << " in " << account << '\n';
}

void revokeRight(const Locations& locations, const std::string& user, const std::string& account) {
  if (!Users(openDirectory(locations).users()).revoke(user, account)) {
    fail("nothing is granted to \"" + user + "\" in \"" + account + "\"");
  }
  std::cout << user << " has no right in " << account << " any more\n";
}

void removeUser(const Locations& locations, const std::string& user) {
  if (!Users(openDirectory(locations).users()).remove(user)) noUser(user);
  std::cout << "user " << user << " removed\n";
}

void listUsers(const Locations& locations) {
  const std::vector<UserInfo> users = Users(openDirectory(locations).users()).list();
  std::cout << "user\taccount\tright\n";
  for (const UserInfo& user : users) {
    if (user.grants.empty()) std::cout << user.name << "\t-\t-\n";
    for (const Grant& grant : user.grants) {
      std::cout << user.name << '\t' << grant.account << '\t' << nameOf(grant.right) << '\n';
    }
  }
}

void addAccount(const Locations& locations, const std::string& account) {
  if (!isFileName(account)) {
    throw AdminError(ExitStatus::Usage, "\"" + account + "\" is no name of an account");
  }
  const DataDirectory directory = openDirectory(locations);
  if (openStores(directory, true)->hasAccount(account)) {
    fail("there is an account \"" + account + "\" already");
  }
  createAccount(directory, account);
  std::cout << "account " << account << " added\n";
}

void listAccounts(const Locations& locations) {
  const DataDirectory directory = openDirectory(locations);
  const std::vector<std::string> accounts = openStores(directory, true)->accounts();
  std::cout << "account\tbytes\n";
  for (const std::string& account : accounts) {
    std::cout << account << '\t' << sizeOfFile(directory.account(account)) << '\n';
  }
}

void makeBackup(const Locations& locations, const std::string& target) {
  const std::vector<BackupFile> files = backUp(DataDirectory(dataDirectoryOf(locations)), target);
  for (const BackupFile& file : files) std::cout << file.path << '\t' << file.bytes << '\n';
  std::cout << "backed up into " << target << '\n';
}

void restoreBackup(const Locations& locations, const std::string& backup) {
  const DataDirectory directory(dataDirectoryOf(locations));
  const std::vector<BackupFile> files = restore(backup, directory);
  for (const BackupFile& file : files) std::cout << file.path << '\t' << file.bytes << '\n';
  std::cout << "restored into " << directory.path() << '\n';
}

void verifyData(const Locations& locations) {
  const DataDirectory directory(dataDirectoryOf(locations));
  const std::vector<std::string> mistakes = verify(directory);
  for (const std::string& mistake : mistakes) std::cout << mistake << '\n';
  if (!mistakes.empty()) {
    throw AdminError(ExitStatus::Damaged, directory.path() + " is not as it should be; see above");
  }
  std::cout << directory.path() << " is sound\n";
}

void checkConfiguration(const Locations& locations) {
  const std::string file = configurationFile(locations);
  if (file.empty()) {
    std::cout << "there is no configuration file, and the defaults hold\n";
    return;
  }
  const ConfigurationValues values = readConfiguration(file);
  if (values.tls.enabled) readCertificate(values);
  std::cout << file << " is sound\n";
}

}  // namespace nox::agent
