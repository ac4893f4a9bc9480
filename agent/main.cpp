// noxd: the command line, and what becomes of its errors.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "agent/admin/administration.h"
#include "agent/admin/exit_status.h"
#include "agent/admin/initialise.h"
#include "agent/admin/locations.h"
#include "agent/admin/serve.h"
#include "agent/version.h"

namespace nox::agent {
namespace {

constexpr const char* kPasswordFile =
    "Take the password from FILE's first line, not from the terminal or standard input";

/// What the command line said, and what is to be done about it.
struct CommandLine {
  CommandLine() : app("A MultiValue database server.", "noxd") {
    app.set_version_flag("--version", std::string("noxd ") + version());
    app.add_option("--config", locations.configuration, "The configuration file")
        ->option_text("FILE");
    app.add_option("--data-dir", locations.dataDirectory,
                   "The data directory, whatever the configuration says")
        ->option_text("DIR");
    app.add_option("--ports-file", serving.portsFile,
                   "When serving: write the ports there, once they are open")
        ->option_text("FILE");
    app.add_flag("--check-config", checkOnly,
                 "Name every mistake in the configuration, and do nothing else");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
      return std::string("noxd: ") + error.what() + "\nnoxd --help says what there is.\n";
    });
    app.require_subcommand(0, 1);
    app.fallthrough();

    add(app, "serve", "Serve the data directory to clients; the default", [this] { serveData(); });
    addInit();
    addUsers();
    addAccounts();
    addData();
    // Set last: subcommands made later would inherit it.
    app.footer("Without a subcommand it serves. noxd(8) says more.");
  }

  void run() {
    if (checkOnly) {
      checkConfiguration(locations);
    } else if (chosen) {
      chosen();
    } else {
      serveData();
    }
  }

  CLI::App app;

private:
  CLI::App* add(CLI::App& parent, const char* name, const char* description,
                std::function<void()> action) {
    CLI::App* command = parent.add_subcommand(name, description);
    command->fallthrough();
    if (action) {
      command->callback([this, action] { chosen = action; });
    } else {
      command->require_subcommand(1);
    }
    return command;
  }

  void addInit() {
    CLI::App* init = add(app, "init", "Make a data directory, with an account and a user", [this] {
      initOptions.locations = locations;
      initOptions.passwordFile = passwordFile;
      initialise(initOptions);
    });
    init->add_option("--account", initOptions.account, "The first account")
        ->option_text("NAME [MAIN]");
    init->add_option("--user", initOptions.user, "The first user, who may administer the account")
        ->option_text("NAME [admin]");
    addPasswordFile(init);
    init->add_flag("--self-signed", initOptions.selfSigned,
                   "Make a certificate for first steps, and turn TLS on");
  }

  void addUsers() {
    CLI::App* users = add(app, "user", "Add, change and list users", nullptr);
    CLI::App* adding = add(*users, "add", "Add a user",
                           [this] { addUser(locations, user, grants, passwordFile); });
    addUserName(adding);
    adding->add_option("--grant", grants, "Also grant a right; may be given more than once")
        ->option_text("ACCOUNT=RIGHT")
        ->allow_extra_args(false);
    addPasswordFile(adding);

    CLI::App* passwd = add(*users, "passwd", "Change a user's password",
                           [this] { changePassword(locations, user, passwordFile); });
    addUserName(passwd);
    addPasswordFile(passwd);

    CLI::App* grant = add(*users, "grant", "Let a user enter an account",
                          [this] { grantRight(locations, user, account, right); });
    addUserName(grant);
    addAccountName(grant);
    grant->add_option("RIGHT", right, "read, write (includes read) or admin (includes both)")
        ->required()
        ->option_text(" ");

    CLI::App* revoke = add(*users, "revoke", "Let a user enter an account no more",
                           [this] { revokeRight(locations, user, account); });
    addUserName(revoke);
    addAccountName(revoke);

    addUserName(add(*users, "remove", "Remove a user", [this] { removeUser(locations, user); }));
    add(*users, "list", "List users and their rights", [this] { listUsers(locations); });
  }

  void addAccounts() {
    CLI::App* accounts = add(app, "account", "Add and list accounts", nullptr);
    addAccountName(add(*accounts, "add", "Add an account, which is empty at first",
                       [this] { addAccount(locations, account); }));
    add(*accounts, "list", "List accounts and their sizes", [this] { listAccounts(locations); });
  }

  void addData() {
    add(app, "backup", "Copy all data into a new folder, also while they are served",
        [this] { makeBackup(locations, folder); })
        ->add_option("DIR", folder, "The folder, which must not be there")
        ->required()
        ->option_text(" ");
    add(app, "verify", "Read all data and say what is wrong with them",
        [this] { verifyData(locations); });
    add(app, "restore", "Bring a backup back into an empty data directory",
        [this] { restoreBackup(locations, folder); })
        ->add_option("DIR", folder, "The backup")
        ->required()
        ->option_text(" ");
  }

  void addUserName(CLI::App* command) {
    command->add_option("USER", user, "The user's name")->required()->option_text(" ");
  }
  void addAccountName(CLI::App* command) {
    command->add_option("ACCOUNT", account, "The account's name")->required()->option_text(" ");
  }
  void addPasswordFile(CLI::App* command) {
    command->add_option("--password-file", passwordFile, kPasswordFile)->option_text("FILE");
  }

  void serveData() {
    serving.locations = locations;
    serve(serving);
  }

  Locations locations;
  ServeOptions serving;
  InitOptions initOptions;
  bool checkOnly = false;
  std::string user;
  std::string account;
  std::string right;
  std::string folder;
  std::string passwordFile;
  std::vector<std::string> grants;
  std::function<void()> chosen;
};

int statusNumber(ExitStatus status) { return static_cast<int>(status); }

int runCommandLine(int argc, char** argv) {
  CommandLine commandLine;
  try {
    commandLine.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version come as errors of number 0.
    return commandLine.app.exit(error) == 0 ? statusNumber(ExitStatus::Ok)
                                            : statusNumber(ExitStatus::Usage);
  }
  try {
    commandLine.run();
    std::cout.flush();
    if (!std::cout) throw AdminError(ExitStatus::Failed, "standard output cannot be written");
    return statusNumber(ExitStatus::Ok);
  } catch (const ConfigurationError& error) {
    std::cerr << error.what() << '\n';  // a line per mistake, each with its file
    return statusNumber(ExitStatus::Configuration);
  } catch (const std::exception& error) {
    std::cerr << "noxd: " << error.what() << '\n';
    return statusNumber(statusOf(error));
  }
}

}  // namespace
}  // namespace nox::agent

int main(int argc, char** argv) {
  // Nothing that is made here is for others to read.
  constexpr mode_t kOthers = 077;
  umask(kOthers);
  try {
    return nox::agent::runCommandLine(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "noxd: " << error.what() << '\n';
    return 1;
  }
}
