#include "agent/admin/initialise.h"

#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include "agent/admin/certificate.h"
#include "agent/admin/data_directory.h"
#include "agent/admin/exit_status.h"
#include "agent/admin/passwords.h"
#include "agent/admin/stores.h"
#include "agent/names.h"
#include "agent/users/users.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;

/// What was made so far; removed, the last first, unless it is kept.
class Made {
public:
  Made() = default;
  ~Made() {
    for (auto path = paths_.rbegin(); path != paths_.rend(); ++path) {
      std::error_code ignored;
      fs::remove_all(*path, ignored);
    }
  }
  Made(const Made&) = delete;
  Made& operator=(const Made&) = delete;

  void add(std::string path) { paths_.push_back(std::move(path)); }
  void keep() { paths_.clear(); }

private:
  std::vector<std::string> paths_;
};

void checkName(const std::string& name, const std::string& what) {
  if (isFileName(name)) return;
  throw AdminError(ExitStatus::Usage, "\"" + name + "\" is no name of " + what);
}

}  // namespace

void initialise(const InitOptions& options) {
  checkName(options.account, "an account");
  checkName(options.user, "a user");
  const std::string& named = options.locations.dataDirectory;
  const DataDirectory directory(
      fs::absolute(named.empty() ? ConfigurationValues{}.dataDirectory : named)
          .lexically_normal()
          .string());
  const bool configurationInside = options.locations.configuration.empty();
  const std::string configuration =
      configurationInside ? directory.path() + "/noxd.toml" : options.locations.configuration;
  std::error_code error;
  if (fs::exists(configuration, error)) {
    throw AdminError(ExitStatus::Failed, configuration + " is there already; nothing was changed");
  }
  const Secret password = readNewPassword(options.passwordFile, options.user);

  Made made;
  if (directory.makeEmpty()) made.add(directory.path());
  made.add(directory.lockFile());
  const DirectoryLock lock(directory);

  made.add(directory.accounts());
  makeFolder(directory.accounts());
  createAccount(directory, options.account);

  ConfigurationValues values;
  values.dataDirectory = configurationInside ? "." : directory.path();
  values.defaultAccount = options.account;
  std::string fingerprint;
  if (options.selfSigned) {
    const SelfSigned certificate = makeSelfSigned();
    const std::string folder = directory.path() + "/tls";
    made.add(folder);
    makeFolder(folder);
    writeNewFile(folder + "/certificate.pem", certificate.certificate);
    writeNewFile(folder + "/key.pem", certificate.key);
    const std::string inFile = configurationInside ? "tls" : folder;
    values.tls.enabled = true;
    values.tls.certificate = inFile + "/certificate.pem";
    values.tls.key = inFile + "/key.pem";
    fingerprint = certificate.fingerprint;
  }
  made.add(configuration);
  writeNewFile(configuration, configurationText(values));

  // Last, since an agent serves no directory without it.
  made.add(directory.users());
  Users users(directory.users(), true);
  users.add(options.user, password.view());
  users.grant(options.user, options.account, Right::Admin);
  syncFolder(directory.path());
  made.keep();

  std::cout << "data directory  " << directory.path() << "\nconfiguration   " << configuration
            << "\naccount         " << options.account << "\nuser            " << options.user
            << ", who may administer it\n";
  if (!fingerprint.empty()) {
    std::cout << "certificate     " << directory.path()
              << "/tls/certificate.pem, signed by itself; SHA-256\n                " << fingerprint
              << '\n';
  }
  std::cout << "\nStart it with: noxd --config " << configuration << '\n';
}

}  // namespace nox::agent
