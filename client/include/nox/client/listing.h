// Listing: the rows of a LIST, SORT, SELECT or SSELECT, converted for people.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>

#include "nox/client/export.h"
#include "nox/client/record.h"

namespace nox::client {

/// A query of the command language, run on the server: a single-pass range of records whose
/// attributes are the columns. Only one page is in memory. Moves only. Belongs to its connection:
/// use it in the thread that uses the connection.
class NOX_CLIENT_EXPORT Listing {
public:
  class Iterator;

  Listing(Listing&& other) noexcept;
  Listing& operator=(Listing&& other) noexcept;
  ~Listing();

  /// The columns' headings, one per attribute.
  const Record& heading() const;
  /// Rows per page from the next one on.
  Listing& fetchSize(int rows) &;
  Listing fetchSize(int rows) &&;

  Iterator begin();
  Iterator end();
  /// The same by hand: moves to the next row, the first one at first; false behind the last.
  bool next();
  const Record& row() const;

private:
  friend class Connection;
  struct NOX_CLIENT_HIDDEN State;
  explicit Listing(std::unique_ptr<State> state);

  std::unique_ptr<State> state_;
};

/// Belongs to its listing, which must stay where it is.
class NOX_CLIENT_EXPORT Listing::Iterator {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Record;
  using difference_type = std::ptrdiff_t;
  using pointer = const Record*;
  using reference = const Record&;

  Iterator() = default;
  reference operator*() const { return listing_->row(); }
  pointer operator->() const { return &listing_->row(); }
  Iterator& operator++() {
    if (!listing_->next()) listing_ = nullptr;
    return *this;
  }
  void operator++(int) { ++*this; }
  friend bool operator==(const Iterator& a, const Iterator& b) { return a.listing_ == b.listing_; }
  friend bool operator!=(const Iterator& a, const Iterator& b) { return a.listing_ != b.listing_; }

private:
  friend class Listing;
  explicit Iterator(Listing* listing) : listing_(listing) {}
  Listing* listing_ = nullptr;  // null at the end
};

}  // namespace nox::client
