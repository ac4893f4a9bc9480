// What a SelectList is made of.
#pragma once

#include <memory>
#include <optional>

#include <nox/nox.h>

#include "client/src/link.h"
#include "nox/client/select_list.h"

namespace nox::client {

struct SelectList::State {
  std::shared_ptr<detail::Link> link;
  int id = -1;  // below 0: no list, which has no pages
  std::size_t pageSize;
  bool withRecords = false;

  /// Ids that came with the list itself: its first page, unless another one is asked for.
  std::optional<Page> firstPage;
  Page page;
  bool isStarted = false;
  bool isModified() const;

  /// `list` is what an answer carried: a list, or nothing.
  static std::unique_ptr<State> from(std::shared_ptr<detail::Link> link, Serializable* list);

  /// As the wire numbers them.
  enum Direction { Last = -2, Previous = -1, Same = 0, Next = 1, First = 2 };
  bool fetch(Direction direction);
  void commit();
  void close() noexcept;

  static Page pageOf(noxp::remote::SelectListProt& list);
  std::unique_ptr<noxp::remote::SelectListProt> changes() const;
};

}  // namespace nox::client
