// What a Listing is made of.
#pragma once

#include <memory>

#include <nox/nox.h>

#include "client/src/link.h"
#include "nox/client/listing.h"

namespace nox::client {

struct Listing::State {
  std::shared_ptr<detail::Link> link;
  int id = 0;
  int fetchSize = 0;
  Record heading;
  Record row;
  std::unique_ptr<noxp::remote::StatementFetchResponseProt> answer;
  noxp::ParameterListProt* page = nullptr;  // the answer's
  unsigned int at = 0;                      // the next row of the page
  bool isAtEnd = false;                     // nothing follows the page

  bool next();
};

}  // namespace nox::client
