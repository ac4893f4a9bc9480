// The requests that drive a branch.
#pragma once

#include <nox/nox.h>

#include "client/src/link.h"
#include "nox/client/transaction.h"

namespace nox::client::detail {

/// Fills the branch's name in, sends the request and takes its answer.
void ask(Link& link, noxp::remote::XARequestProt& request, const Xid& xid);

}  // namespace nox::client::detail
