// What the subcommands do to users and accounts, also while an agent serves them.
#pragma once

#include <string>
#include <vector>

#include "agent/admin/locations.h"

namespace nox::agent {

// Each says on standard output what was done, and throws AdminError, StoreError or
// std::invalid_argument where it was not.

/// `grants`: "ACCOUNT=RIGHT" each.
void addUser(const Locations& locations, const std::string& user,
             const std::vector<std::string>& grants, const std::string& passwordFile);
void changePassword(const Locations& locations, const std::string& user,
                    const std::string& passwordFile);
void grantRight(const Locations& locations, const std::string& user, const std::string& account,
                const std::string& right);
void revokeRight(const Locations& locations, const std::string& user, const std::string& account);
void removeUser(const Locations& locations, const std::string& user);
/// A heading, and a line per user and grant, tab-separated.
void listUsers(const Locations& locations);

void addAccount(const Locations& locations, const std::string& account);
/// A heading, and a line per account with its size in bytes.
void listAccounts(const Locations& locations);

void makeBackup(const Locations& locations, const std::string& target);
void restoreBackup(const Locations& locations, const std::string& backup);
/// Throws AdminError Damaged when anything is wrong.
void verifyData(const Locations& locations);
/// Throws ConfigurationError.
void checkConfiguration(const Locations& locations);

}  // namespace nox::agent
