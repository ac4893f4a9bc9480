// From options to a session.
#pragma once

#include <memory>

#include "client/src/link.h"

namespace nox::client::detail {

/// Everything that Connection::open does. Throws Error.
std::shared_ptr<Link> openLink(const Options& options);

}  // namespace nox::client::detail
