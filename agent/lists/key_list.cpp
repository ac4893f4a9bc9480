#include "agent/lists/key_list.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "agent/failure.h"

namespace nox::agent {

namespace {

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

/// How many keys are copied at once, from a list that is shared.
constexpr std::size_t kCopiedAtOnce = 10'000;

/// How many keys a row of the table holds: a row costs as much as the keys of many.
constexpr std::size_t kInBlock = 256;

using Length = std::uint32_t;

void addTo(std::string& block, std::string_view key) {
  const auto length = static_cast<Length>(key.size());
  char bytes[sizeof length];
  std::memcpy(bytes, &length, sizeof length);
  block.append(bytes, sizeof length).append(key);
}

std::string_view takeFrom(std::string_view& block) {
  Length length = 0;
  std::memcpy(&length, block.data(), sizeof length);
  const std::string_view key = block.substr(sizeof length, length);
  block.remove_prefix(sizeof length + length);
  return key;
}

}  // namespace

/// A database of its own that has no name: it lies in a file that is deleted already, as far as its
/// small cache does not hold it. The keys of the last block are not in it yet.
class KeyList::Table {
public:
  Table() {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(
        "", &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    check(code);
    // Nobody else sees it and nothing of it outlives a crash: one transaction that never ends.
    check(sqlite3_exec(opened,
                       "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;"
                       "PRAGMA cache_size = -512;"
                       "CREATE TABLE blocks (number INTEGER PRIMARY KEY, keys BLOB NOT NULL);"
                       "BEGIN",
                       nullptr, nullptr, nullptr));
    insert_ = prepare("INSERT INTO blocks VALUES (?, ?)");
    select_ = prepare("SELECT keys FROM blocks WHERE number >= ? AND number <= ? ORDER BY number");
  }

  void add(std::string_view key) {
    addTo(last_, key);
    if (++size_ % kInBlock != 0) return;
    insert(size_ / kInBlock - 1);
    last_.clear();
  }

  /// Which must be there, one at least.
  std::vector<std::string> read(std::size_t first, std::size_t count) {
    std::vector<std::string> keys;
    keys.reserve(count);
    const std::size_t end = first + count;
    std::size_t at = first / kInBlock * kInBlock;
    const auto take = [&](std::string_view block) {
      for (; !block.empty() && at < end; ++at) {
        const std::string_view key = takeFrom(block);
        if (at >= first) keys.emplace_back(key);
      }
    };
    sqlite3_stmt* const statement = select_.get();
    check(sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(first / kInBlock)));
    check(sqlite3_bind_int64(statement, 2, static_cast<sqlite3_int64>((end - 1) / kInBlock)));
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
      const auto* const block = static_cast<const char*>(sqlite3_column_blob(statement, 0));
      take({block, static_cast<std::size_t>(sqlite3_column_bytes(statement, 0))});
    }
    sqlite3_reset(statement);
    if (code != SQLITE_DONE) check(code);
    take(last_);
    return keys;
  }

private:
  void insert(std::size_t number) {
    sqlite3_stmt* const statement = insert_.get();
    check(sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(number)));
    check(sqlite3_bind_blob64(statement, 2, last_.data(), last_.size(), SQLITE_STATIC));
    const int code = sqlite3_step(statement);
    sqlite3_reset(statement);
    if (code != SQLITE_DONE) check(code);
  }

  Statement prepare(const char* sql) {
    sqlite3_stmt* prepared = nullptr;
    check(sqlite3_prepare_v2(database_.get(), sql, -1, &prepared, nullptr));
    return Statement(prepared);
  }

  static void check(int code) {
    if (code == SQLITE_OK) return;
    throw Failure("IE", "007", std::string("the keys could not be kept: ") + sqlite3_errstr(code),
                  code);
  }

  Database database_;
  Statement insert_;
  Statement select_;
  std::size_t size_ = 0;
  std::string last_;
};

struct KeyList::Keys {
  std::vector<std::string> inMemory;
  std::unique_ptr<Table> table;  // holds all keys, where there is one
  std::size_t size = 0;

  std::vector<std::string> read(std::size_t first, std::size_t count) const {
    if (first >= size) return {};
    count = std::min(count, size - first);
    if (table) return table->read(first, count);
    const auto begin = inMemory.begin() + static_cast<std::ptrdiff_t>(first);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
  }

  void add(std::string_view key) {
    if (!table && size < kMostInMemory) {
      inMemory.emplace_back(key);
    } else {
      if (!table) moveToTable();
      table->add(key);
    }
    ++size;
  }

  void moveToTable() {
    auto filled = std::make_unique<Table>();
    for (const std::string& key : inMemory) filled->add(key);
    table = std::move(filled);
    std::vector<std::string>().swap(inMemory);
  }
};

KeyList::KeyList() = default;
KeyList::KeyList(const KeyList&) = default;
KeyList& KeyList::operator=(const KeyList&) = default;
KeyList::KeyList(KeyList&&) noexcept = default;
KeyList& KeyList::operator=(KeyList&&) noexcept = default;
KeyList::~KeyList() = default;

KeyList::Keys& KeyList::own() {
  if (!keys_) {
    keys_ = std::make_shared<Keys>();
  } else if (keys_.use_count() > 1) {
    auto copy = std::make_shared<Keys>();
    for (std::size_t first = 0; first < keys_->size; first += kCopiedAtOnce) {
      for (const std::string& key : keys_->read(first, kCopiedAtOnce)) copy->add(key);
    }
    keys_ = std::move(copy);
  }
  return *keys_;
}

void KeyList::add(std::string_view key) { own().add(key); }

std::size_t KeyList::size() const { return keys_ ? keys_->size : 0; }

std::vector<std::string> KeyList::read(std::size_t first, std::size_t count) const {
  return keys_ ? keys_->read(first, count) : std::vector<std::string>();
}

}  // namespace nox::agent
