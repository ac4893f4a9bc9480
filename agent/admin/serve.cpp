#include "agent/admin/serve.h"

#include <malloc.h>
#include <sys/resource.h>

#include <nox/nox.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "agent/admin/data_directory.h"
#include "agent/admin/exit_status.h"
#include "agent/admin/service_manager.h"
#include "agent/admin/stores.h"
#include "agent/locks/lock_table.h"
#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/server/server.h"
#include "agent/server/signals.h"
#include "agent/session/agent.h"
#include "agent/session/branches.h"
#include "agent/session/dispatcher.h"
#include "agent/session/session_registry.h"
#include "agent/users/logins.h"
#include "agent/users/users.h"
#include "agent/version.h"

namespace nox::agent {

namespace {

LogLevel levelOf(const ConfigurationValues& values) {
  return parseLogLevel(values.logLevel).value_or(LogLevel::Info);
}

/// As many descriptors as the system lets the process have: each client needs one.
void raiseDescriptorLimit(const ConfigurationValues& values, Log& log) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  constexpr rlim_t kForTheRest = 128;  // stores, log, ports
  if (limit.rlim_max < values.maxConnections + kForTheRest) {
    log.warning("the system allows " + std::to_string(limit.rlim_max) +
                " open files, too few for server.max_connections = " +
                std::to_string(values.maxConnections));
  }
}

/// Large blocks go back to the system when they are freed. Left to itself, malloc takes the largest
/// one that was ever freed for the measure of what to keep.
void giveLargeBlocksBack() {
  constexpr int kLarge = 1024 * 1024;
  mallopt(M_MMAP_THRESHOLD, kLarge);
  mallopt(M_TRIM_THRESHOLD, 2 * kLarge);
}

/// Reads the file again. A mistake in it leaves everything as it was.
void reloadConfiguration(const Locations& locations, Configuration& configuration, Log& log) {
  try {
    ConfigurationValues next = configurationOf(locations, true);
    const std::vector<std::string> kept = keepWhatNeedsRestart(*configuration.values(), next);
    log.setLevel(levelOf(next));
    configuration.replace(std::move(next));
    log.info("the configuration was read again");
    for (const std::string& key : kept) {
      log.warning(key + " has changed; the new value holds after a restart");
    }
  } catch (const ConfigurationError& error) {
    log.error("the configuration stays as it was:");
    std::istringstream mistakes(error.what());
    for (std::string line; std::getline(mistakes, line);) log.error(line);
  } catch (const std::exception& error) {
    log.error(std::string("the configuration stays as it was: ") + error.what());
  }
}

/// What goes wrong here without a class of its own is about the certificate.
void open(Server& server) {
  try {
    server.open();
  } catch (const ListenError&) {
    throw;
  } catch (const std::system_error&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw AdminError(ExitStatus::Configuration, error.what());
  }
}

/// Everything after the log is there.
void serve(const ServeOptions& options, std::unique_ptr<Signals> signals,
           Configuration& configuration, const DataDirectory& directory, Log& log) {
  const std::shared_ptr<const ConfigurationValues> values = configuration.values();
  log.info(std::string("noxd ") + version() + " starts; data directory " + directory.path());
  for (const std::string& mistake : directory.permissionMistakes()) log.warning(mistake);
  raiseDescriptorLimit(*values, log);

  Users users(directory.users());
  const std::unique_ptr<StoreEngine> stores = openStores(directory, values->synchronousFull);
  LockTable locks;
  Branches branches(*stores, locks);
  // Before the port opens, so that nobody gets at records that a prepared branch has locked.
  branches.recover(log);
  const Dispatcher dispatcher = allRequests();
  Metrics metrics(dispatcher.names());
  SessionRegistry sessions;
  Logins logins(users);
  Agent agent{configuration, log, metrics, users, *stores, locks, branches, sessions, logins};

  Server server(agent, dispatcher);
  open(server);
  if (!options.portsFile.empty()) server.writePorts(options.portsFile);

  // Made last, so that it ends before what its handlers use.
  const std::unique_ptr<Signals> watching = std::move(signals);
  Signals::Handlers handlers;
  handlers.terminate = [&] {
    log.info("SIGTERM: no new clients; running requests finish");
    notifyServiceManager("STOPPING=1");
    server.drain();
  };
  handlers.interrupt = [&] {
    log.info("SIGINT: stops");
    notifyServiceManager("STOPPING=1");
    server.stop();
  };
  handlers.hangUp = [&] {
    notifyServiceManager(reloadingNotice());
    log.reopen();
    reloadConfiguration(options.locations, configuration, log);
    server.reload();
    notifyServiceManager("READY=1");
  };
  watching->watch(std::move(handlers));
  notifyServiceManager("READY=1");
  server.run();
}

}  // namespace

void serve(const ServeOptions& options) {
  // What the library converts is UTF-8, whatever the locale says: descriptions of columns, say.
  std::string codePage = "UTF-8";
  NOXPString::changeCodePage(codePage);
  giveLargeBlocksBack();
  // Before any thread, which would get the signals otherwise.
  auto signals = std::make_unique<Signals>();
  Configuration configuration(configurationOf(options.locations, true));
  const std::shared_ptr<const ConfigurationValues> values = configuration.values();
  const DataDirectory directory(values->dataDirectory);
  directory.require();
  const DirectoryLock lock(directory);
  Log log(values->logFile, levelOf(*values));
  try {
    serve(options, std::move(signals), configuration, directory, log);
    log.info("noxd ends");
  } catch (const std::exception& error) {
    // Standard error hears of it from main().
    if (!values->logFile.empty()) log.error(error.what());
    if (statusOf(error) != ExitStatus::Damaged) throw;
    throw AdminError(ExitStatus::Damaged,
                     std::string(error.what()) +
                         "; noxd verify says more, and noxd restore brings a backup back");
  }
}

}  // namespace nox::agent
