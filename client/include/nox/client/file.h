// File: a MultiValue file, and the records in it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nox/client/export.h"
#include "nox/client/record.h"
#include "nox/client/select_list.h"

namespace nox::client {

namespace detail {
class Link;
}

/// What a request found that it could not do, without being wrong.
enum class Status {
  Done = 0,
  NotDone = 1,  ///< there is no such record; for a new one, there is one already
  Locked = 2    ///< another session holds a lock on it
};

enum class Lock {
  None,
  Shared,  ///< others may read, nobody may write
  Update   ///< nobody else gets a lock
};

enum class Wait {
  Yes,  ///< as long as the session's LOCK_WAIT
  No
};

/// A record that was asked for together with a lock. The lock is held when `status` is Done or
/// NotDone, so that "read, create if missing" is safe.
struct ReadResult {
  Status status = Status::NotDone;
  Record record;

  explicit operator bool() const { return status == Status::Done; }
};

/// A file that the server has opened; it is closed with this object. Moves only. Belongs to its
/// connection: use it in the thread that uses the connection.
///
/// Every operation may throw Error; a record that another session has locked throws one with the
/// SQLSTATE sqlstate::kLocked, unless the operation answers with a Status.
class NOX_CLIENT_EXPORT File {
public:
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  ~File();

  /// As it was opened: "NAME" or "DICT NAME".
  const std::string& name() const { return name_; }

  /// The record as it is committed, or as this session changed it; nothing where there is none.
  /// Takes no lock and waits for none.
  std::optional<Record> read(std::string_view id) const;
  /// Takes the lock first, also where there is no record.
  [[nodiscard]] ReadResult read(std::string_view id, Lock lock, Wait wait = Wait::Yes) const;
  bool exists(std::string_view id) const;

  /// Writes and gives this session's lock on the record back.
  void write(std::string_view id, const Record& record);
  /// Writes and keeps the lock, or takes it.
  void writeAndKeepLock(std::string_view id, const Record& record);
  /// Writes only where there is no such record; says whether it did.
  [[nodiscard]] bool writeNew(std::string_view id, const Record& record);
  /// Says whether there was such a record.
  bool remove(std::string_view id);
  [[nodiscard]] Status tryWrite(std::string_view id, const Record& record);
  [[nodiscard]] Status tryRemove(std::string_view id);

  /// Gives one lock back; nothing happens where none is held.
  void release(std::string_view id);
  /// Gives this session's locks on all records of the file back.
  void releaseAll();
  /// Deletes every record, or none.
  void clear();
  /// The ids of all records, as a list that the server keeps.
  SelectList select() const;
  /// Closes the file before its destructor would.
  void close();

private:
  friend class Connection;
  File(std::shared_ptr<detail::Link> link, std::string name);
  Status write(std::string_view id, const Record& record, int mode);

  std::shared_ptr<detail::Link> link_;
  std::string name_;
};

}  // namespace nox::client
