// Agent: what all sessions share.
#pragma once

#include <memory>

namespace nox::agent {

class Branches;
class Configuration;
class LockTable;
class Log;
class Logins;
class Metrics;
class Monitor;
class SessionRegistry;
class StoreEngine;
class Users;

/// Borrowed parts; main() owns them and outlives every session.
struct Agent {
  const Configuration& configuration;
  Log& log;
  Metrics& metrics;
  Users& users;
  StoreEngine& stores;
  LockTable& locks;
  Branches& branches;
  SessionRegistry& sessions;
  Logins& logins;
};

}  // namespace nox::agent
