// Where a command finds its configuration and its data.
#pragma once

#include <string>

#include "agent/config/configuration.h"

namespace nox::agent {

/// As on the command line; empty where it says nothing.
struct Locations {
  std::string configuration;
  std::string dataDirectory;
};

/// The file that holds: the one that is named; else noxd.toml in the data directory, where that is
/// named; else /etc/noxd/noxd.toml, or noxd.toml in the default data directory. Empty where there
/// is none and the defaults hold.
std::string configurationFile(const Locations& locations);

/// What that file says, in the data directory that the command line names. `forServing` also looks
/// at the files that it names. Throws ConfigurationError.
ConfigurationValues configurationOf(const Locations& locations, bool forServing);

/// For the commands that need no more.
std::string dataDirectoryOf(const Locations& locations);

}  // namespace nox::agent
