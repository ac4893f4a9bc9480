#include "agent/store/sqlite/read_snapshot.h"

#include <cstddef>

#include <sqlite3.h>

namespace nox::agent {

namespace {

// The index of the log, as SQLite documents its format: in its first block the header of 48 bytes,
// a copy of the header, and how many frames of the log the database has already.
constexpr int kIndexBlock = 32 * 1024;  // bytes
constexpr std::size_t kHeaderWords = 12;
constexpr std::size_t kCarriedWord = 24;

}  // namespace

void ReadSnapshot::keep() {
  if (isKept_) return;
  if (!holder_) {
    holder_ = Statement(db_, "SELECT 1 FROM sqlite_schema LIMIT 1");
    // The index is there from the first reading on.
    const StatementUse first(holder_);
    first->step();
    findIndex();
  }
  if (index_ == nullptr) return;
  // Before the snapshot is taken: a commit in between makes it look older than it is, never newer.
  head_ = indexHead();
  isKept_ = holder_.step();
}

void ReadSnapshot::end() noexcept {
  if (!isKept_) return;
  holder_.reset();
  isKept_ = false;
}

/// Leaves it unknown where the database keeps no index in shared memory; nothing is kept then.
void ReadSnapshot::findIndex() noexcept {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  constexpr int kVersionWithSharedMemory = 2;
  if (file == nullptr || file->pMethods == nullptr ||
      file->pMethods->iVersion < kVersionWithSharedMemory) {
    return;
  }
  // The block stays where it is as long as the connection is open.
  void volatile* block = nullptr;
  if (file->pMethods->xShmMap(file, 0, kIndexBlock, 0, &block) != SQLITE_OK) return;
  index_ = static_cast<const volatile std::uint32_t*>(block);
}

ReadSnapshot::IndexHead ReadSnapshot::indexHead() const noexcept {
  // What is read next is no older than this.
  const auto load = [this](std::size_t word) {
    return __atomic_load_n(index_ + word, __ATOMIC_ACQUIRE);
  };
  IndexHead head;
  for (std::size_t i = 0; i < kHeaderWords; ++i) head[i] = load(i);
  head[kHeaderWords] = load(kCarriedWord);
  return head;
}

}  // namespace nox::agent
