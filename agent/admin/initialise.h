// `noxd init`: from nothing to a data directory that can be served.
#pragma once

#include <string>

#include "agent/admin/locations.h"

namespace nox::agent {

struct InitOptions {
  Locations locations;
  std::string account = "MAIN";
  std::string user = "admin";  // may administer the account
  std::string passwordFile;    // empty: asked for
  bool selfSigned = false;     // with a certificate, and TLS on
};

/// Makes the data directory, which must be empty or not there, and a configuration file, which must
/// not be there: the one that is named, or noxd.toml in the data directory. Says on standard output
/// what was made. Throws AdminError, StoreError and std::invalid_argument; nothing is left of what
/// was begun then.
void initialise(const InitOptions& options);

}  // namespace nox::agent
