// A snapshot of record keys, in memory while it is short and in a temporary table beyond.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// Keys in order, positions from 0. More than kMostInMemory keys move to a temporary table that
/// ends with the list. A copy shares the keys until one of the two is added to. Belongs, with its
/// copies, to one thread at a time. Throws Failure IE/007 where the table finds no room.
class KeyList {
public:
  static constexpr std::size_t kMostInMemory = 100'000;

  KeyList();
  KeyList(const KeyList&);
  KeyList& operator=(const KeyList&);
  KeyList(KeyList&&) noexcept;
  KeyList& operator=(KeyList&&) noexcept;
  ~KeyList();

  void add(std::string_view key);
  std::size_t size() const;
  /// Up to `count` keys from position `first` on.
  std::vector<std::string> read(std::size_t first, std::size_t count) const;

private:
  class Table;
  struct Keys;

  /// The keys, unshared.
  Keys& own();

  std::shared_ptr<Keys> keys_;  // null: none
};

}  // namespace nox::agent
