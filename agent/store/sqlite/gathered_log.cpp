#include "agent/store/sqlite/gathered_log.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <sqlite3.h>

namespace nox::agent {

namespace {

constexpr const char* kName = "nox-gathered-log";
constexpr std::size_t kMostGathered = 64u * 1024;  // bytes: some fifteen pages

struct Layer : sqlite3_vfs {
  sqlite3_vfs* below = nullptr;
};

/// An open log, in memory that SQLite owns; the file of the layer below lies behind it.
struct LogFile : sqlite3_file {
  sqlite3_file* below = nullptr;
  bool isInCommit = false;
  std::unique_ptr<char[]> gathered;  // from the first commit on
  std::size_t size = 0;
  sqlite3_int64 begin = 0;  // where the gathered bytes belong
};

constexpr std::size_t kOwnBytes =
    (sizeof(LogFile) + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);

LogFile& logOf(sqlite3_file* file) { return *static_cast<LogFile*>(file); }

/// Writes what was gathered. It is given up where that fails: the COMMIT fails then, and SQLite
/// takes the transaction back.
int writeGathered(LogFile& log) {
  if (log.size == 0) return SQLITE_OK;
  const auto size = static_cast<int>(std::exchange(log.size, 0));
  return log.below->pMethods->xWrite(log.below, log.gathered.get(), size, log.begin);
}

bool gather(LogFile& log, const void* bytes, std::size_t size, sqlite3_int64 at) {
  if (!log.isInCommit || size > kMostGathered - log.size) return false;
  if (log.size == 0) {
    if (!log.gathered) log.gathered.reset(new (std::nothrow) char[kMostGathered]);
    if (!log.gathered) return false;
    log.begin = at;
  } else if (at != log.begin + static_cast<sqlite3_int64>(log.size)) {
    return false;
  }
  std::memcpy(log.gathered.get() + log.size, bytes, size);
  log.size += size;
  return true;
}

int write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 at) {
  LogFile& log = logOf(file);
  const auto length = static_cast<std::size_t>(size);
  if (gather(log, bytes, length, at)) return SQLITE_OK;
  const int code = writeGathered(log);
  if (code != SQLITE_OK) return code;
  if (gather(log, bytes, length, at)) return SQLITE_OK;
  return log.below->pMethods->xWrite(log.below, bytes, size, at);
}

/// Writes what was gathered, then lets `call(below)` see the file as SQLite knows it.
template <class Call>
int onWritten(sqlite3_file* file, Call call) {
  LogFile& log = logOf(file);
  const int code = writeGathered(log);
  return code == SQLITE_OK ? call(log.below) : code;
}

int read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
  return onWritten(
      file, [=](sqlite3_file* below) { return below->pMethods->xRead(below, to, size, at); });
}

int truncate(sqlite3_file* file, sqlite3_int64 size) {
  return onWritten(file,
                   [=](sqlite3_file* below) { return below->pMethods->xTruncate(below, size); });
}

int sync(sqlite3_file* file, int flags) {
  return onWritten(file, [=](sqlite3_file* below) { return below->pMethods->xSync(below, flags); });
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  return onWritten(file,
                   [=](sqlite3_file* below) { return below->pMethods->xFileSize(below, size); });
}

int close(sqlite3_file* file) {
  LogFile& log = logOf(file);
  const int code = writeGathered(log);
  const int closed = log.below->pMethods->xClose(log.below);
  log.~LogFile();
  return code == SQLITE_OK ? closed : code;
}

int lock(sqlite3_file* file, int level) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xLock(below, level);
}

int unlock(sqlite3_file* file, int level) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xUnlock(below, level);
}

int checkReservedLock(sqlite3_file* file, int* result) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xCheckReservedLock(below, result);
}

int fileControl(sqlite3_file* file, int operation, void* argument) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xFileControl(below, operation, argument);
}

int sectorSize(sqlite3_file* file) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xSectorSize(below);
}

int deviceCharacteristics(sqlite3_file* file) {
  sqlite3_file* const below = logOf(file).below;
  return below->pMethods->xDeviceCharacteristics(below);
}

/// The first version: no shared memory, and nothing mapped, in a log.
sqlite3_io_methods logMethods() {
  sqlite3_io_methods methods{};
  methods.iVersion = 1;
  methods.xClose = close;
  methods.xRead = read;
  methods.xWrite = write;
  methods.xTruncate = truncate;
  methods.xSync = sync;
  methods.xFileSize = fileSize;
  methods.xLock = lock;
  methods.xUnlock = unlock;
  methods.xCheckReservedLock = checkReservedLock;
  methods.xFileControl = fileControl;
  methods.xSectorSize = sectorSize;
  methods.xDeviceCharacteristics = deviceCharacteristics;
  return methods;
}

const sqlite3_io_methods kLogMethods = logMethods();

int open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  sqlite3_vfs* const below = static_cast<Layer*>(vfs)->below;
  if ((flags & SQLITE_OPEN_WAL) == 0) return below->xOpen(below, name, file, flags, outFlags);
  auto* const log = new (file) LogFile;
  log->below = reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + kOwnBytes);
  log->below->pMethods = nullptr;
  const int code = below->xOpen(below, name, log->below, flags, outFlags);
  if (code == SQLITE_OK) {
    log->pMethods = &kLogMethods;
    return code;
  }
  // One that could not be opened is closed where it has methods.
  if (log->below->pMethods != nullptr) log->below->pMethods->xClose(log->below);
  log->~LogFile();
  file->pMethods = nullptr;
  return code;
}

}  // namespace

const char* GatheredLog::vfsName() {
  static const bool isRegistered = [] {
    registerAbove(*sqlite3_vfs_find(nullptr), kName);
    return true;
  }();
  static_cast<void>(isRegistered);
  return kName;
}

void GatheredLog::registerAbove(sqlite3_vfs& below, const char* name) {
  // SQLite keeps it until the process ends. All but the opening of files is the same as below.
  auto* const layer = new Layer;
  static_cast<sqlite3_vfs&>(*layer) = below;
  layer->below = &below;
  layer->zName = name;
  layer->pNext = nullptr;
  layer->szOsFile = static_cast<int>(kOwnBytes) + below.szOsFile;
  layer->xOpen = open;
  sqlite3_vfs_register(layer, 0);
}

GatheredLog::Commit::Commit(sqlite3* db) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(db, "main", SQLITE_FCNTL_JOURNAL_POINTER, &file);
  if (file == nullptr || file->pMethods != &kLogMethods) return;
  log_ = file;
  logOf(log_).isInCommit = true;
}

GatheredLog::Commit::~Commit() {
  if (log_ == nullptr) return;
  // After a COMMIT that failed before it synchronised; what it would have written is taken back.
  logOf(log_).size = 0;
  logOf(log_).isInCommit = false;
}

}  // namespace nox::agent
