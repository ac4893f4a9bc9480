// Rows: the records that a command takes, in its order, each as the columns that it shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/commands/dictionary.h"
#include "agent/commands/grammar.h"

namespace nox::agent {

class Filter;
class Session;
class Sorter;

/// What LIST, SORT, COUNT, SELECT and SSELECT have in common.
///
/// The records are those of the active list, which is consumed, in its order; without one, those of
/// the ids that the command names; else all of the file, in key order and as they are at one
/// moment. Memory does not depend on how many there are. Every call may throw Failure: IE/011, also
/// for a command that takes too long, and what reading a record throws.
class Rows {
public:
  static constexpr std::size_t kSortMemory = 32u * 1024 * 1024;

  /// `columns`: what each row shows. `first`: at most that many rows. `memory`: how much of a sort
  /// stays in memory, in bytes.
  Rows(Session& session, const Target& target, std::vector<Item> columns,
       std::optional<std::uint64_t> first = std::nullopt, std::size_t memory = kSortMemory);
  ~Rows();

  /// Moves to the next row; false behind the last.
  bool next();
  // Of the row: valid until the next call.
  std::string_view id() const { return id_; }
  /// The columns as they are shown, with attribute marks between them.
  std::string_view columns() const { return columns_; }

private:
  class Source;
  class FileSource;
  class IdSource;
  class NamedSource;
  class ListSource;
  struct Order {
    Item item;
    bool descending;
  };

  std::unique_ptr<Source> makeSource(const Target& target, bool withBodies);
  void checkNowAndThen();
  bool nextSelected();
  void sort();
  void show();

  Session& session_;
  std::unique_ptr<Filter> filter_;
  std::vector<Order> order_;
  std::vector<Item> items_;
  std::uint64_t rest_;  // rows that may still come
  std::unique_ptr<Source> source_;
  std::unique_ptr<Sorter> sorter_;
  unsigned int sinceCheck_ = 0;
  std::string_view id_;
  std::string shown_;
  std::string_view columns_;
};

/// The items that a LIST shows: those it names, or those of the dictionary's "@LIST"; in front of
/// them the id, unless it is among them or suppressed. Throws Failure IE/011.
std::vector<Item> listedItems(Session& session, const ListCommand& list);

}  // namespace nox::agent
