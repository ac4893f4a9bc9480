// A snapshot of record keys, in memory while it is short and in a temporary table beyond.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// Keys in order, positions from 0. More than kMostInMemory keys move to a temporary table that
/// ends with the list.
class KeyList {
public:
  static constexpr std::size_t kMostInMemory = 100'000;

  KeyList();
  KeyList(KeyList&&) noexcept;
  KeyList& operator=(KeyList&&) noexcept;
  ~KeyList();

  void add(std::string_view key);
  std::size_t size() const;
  /// Up to `count` keys from position `first` on.
  std::vector<std::string> read(std::size_t first, std::size_t count) const;

private:
  struct Table;
  std::vector<std::string> keys_;
  std::unique_ptr<Table> table_;
  std::size_t size_ = 0;
};

}  // namespace nox::agent
