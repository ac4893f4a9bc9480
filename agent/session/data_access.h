// Records and files as a session works on them: names checked, rights checked, locks kept.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "agent/locks/lock_table.h"
#include "agent/names.h"
#include "agent/store/store.h"

namespace nox::agent {

class Session;

/// What the record requests, select lists, commands and subroutines have in common. File names come
/// as clients write them ("NAME" or "DICT NAME"). Everything throws Failure: the request's own code
/// for what is wrong with the file or the store, IE/024 for a store that stays busy, 40/000 for a
/// wait that would close a cycle (an open transaction is rolled back then).
///
/// What writes or deletes locks the record for update while it does, and waits for those who have
/// it locked. The lock stays where mode 1 says so, and in a transaction until its end.
class DataAccess {
public:
  /// The outcome as it travels.
  enum Status { Done = 0, NotDone = 1, Locked = 2 };

  // Modes as they travel.
  static constexpr int kReadPlain = 0;
  static constexpr int kReadShared = 1;
  static constexpr int kReadUpdate = 2;
  static constexpr int kDoNotWait = 4;  // added to a read mode
  static constexpr int kWriteAndRelease = 0;
  static constexpr int kWriteAndKeep = 1;
  static constexpr int kWriteNew = 2;
  static constexpr int kReleaseRecord = 0;
  static constexpr int kReleaseFile = 1;
  static constexpr int kReleaseAll = 2;

  explicit DataAccess(Session& session) : session_(session) {}

  void open(std::string_view file);
  /// Deletes all records of the part, or none; IE/024 where other sessions keep some locked.
  void clear(std::string_view file);
  /// Deletes the file with both its parts, or nothing; false where there is none. IE/010; IE/024 as
  /// above.
  bool deleteFile(const std::string& file);
  /// Modes 1 and 2 lock the record, whether it is there or not, and keep the lock in either case.
  Status read(std::string_view file, std::string_view id, int mode, NOXPBlob& body);
  Status write(std::string_view file, std::string_view id, std::string_view body, int mode);
  Status remove(std::string_view file, std::string_view id);
  Status exists(std::string_view file, std::string_view id);
  void release(int mode, std::string_view file, std::string_view id);
  /// Writes all or none, each under the rules of mode 0.
  void writeAll(std::vector<RecordWrite> writes);
  /// Every record of the part, in key order, one state of it. Failure IE/007; what the cursor
  /// throws is the store's own StoreError.
  std::unique_ptr<RecordCursor> scan(const FilePart& file, bool withBodies);

private:
  class WriteLock;

  /// A name that was taken apart before: most requests are about few files.
  struct KnownFile {
    std::string text;
    FilePart file;
  };

  /// Valid until the next call.
  const FilePart& part(std::string_view text, const char* sqlClass, const char* sqlSubClass);
  LockOutcome lock(const RecordLock& record, LockKind kind, std::chrono::milliseconds wait,
                   const char* sqlClass, const char* sqlSubClass);
  RecordLock lockOf(const FilePart& file, std::string_view id) const;

  Session& session_;
  std::array<KnownFile, 4> known_;
  std::size_t nextKnown_ = 0;
};

/// What a store's failure is to a client whose request fails with the given code: Busy is IE/024,
/// RolledBack 40/000, NotInBranch 0A/000, Interrupted the given code for a request that took too
/// long, the rest the given code with the store's reason, each with the engine's status.
[[noreturn]] void throwAsFailure(const StoreError& error, const char* sqlClass,
                                 const char* sqlSubClass);

}  // namespace nox::agent
