#include "nox/client/listing.h"

#include <utility>

#include "client/src/listing_state.h"
#include "client/src/wire_text.h"

namespace nox::client {

bool Listing::State::next() {
  for (;;) {
    if (page && at < page->count()) {
      row = Record(detail::bytesOf(page->getPtr(at++)));
      return true;
    }
    if (isAtEnd) {
      page = nullptr;
      row = Record();
      return false;
    }
    constexpr int kEnd = 1;
    noxp::remote::StatementFetchRequestProt request(id, fetchSize);
    answer = link->ask<noxp::remote::StatementFetchResponseProt>(request);
    isAtEnd = answer->getStatus() == kEnd;
    page = answer->getRows();
    at = 0;
    // A page without rows that is not the last one would be asked for for ever.
    if (!isAtEnd && (!page || page->count() == 0)) isAtEnd = true;
  }
}

Listing::Listing(std::unique_ptr<State> state) : state_(std::move(state)) {}

Listing::Listing(Listing&& other) noexcept = default;

Listing& Listing::operator=(Listing&& other) noexcept {
  Listing taken(std::move(other));
  std::swap(state_, taken.state_);
  return *this;
}

Listing::~Listing() = default;

const Record& Listing::heading() const { return state_->heading; }

Listing& Listing::fetchSize(int rows) & {
  state_->fetchSize = rows;
  return *this;
}

Listing Listing::fetchSize(int rows) && {
  fetchSize(rows);
  return std::move(*this);
}

Listing::Iterator Listing::begin() { return Iterator(next() ? this : nullptr); }
Listing::Iterator Listing::end() { return {}; }
bool Listing::next() { return state_->next(); }
const Record& Listing::row() const { return state_->row; }

}  // namespace nox::client
