// The agent at work, from its start to its end.
#pragma once

#include <string>

#include "agent/admin/locations.h"

namespace nox::agent {

struct ServeOptions {
  Locations locations;
  std::string portsFile;  // where Server::writePorts goes; empty: nowhere
};

/// Serves the data directory until a signal ends it: SIGTERM drains, SIGINT stops, SIGHUP reloads.
/// Throws where it cannot start. To be called before any other thread is there.
void serve(const ServeOptions& options);

}  // namespace nox::agent
