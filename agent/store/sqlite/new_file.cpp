#include "agent/store/sqlite/new_file.h"

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/descriptor.h"
#include "agent/store/store.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& path, int error) {
  const bool isNoRoom = error == ENOSPC || error == EDQUOT || error == EFBIG;
  throw StoreError(isNoRoom ? StoreError::Kind::Full : StoreError::Kind::Failed,
                   path.string() + ": " + std::generic_category().message(error), error);
}

Descriptor openOrFail(const fs::path& path, int flags) {
  Descriptor descriptor(::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!descriptor) fail(path, errno);
  return descriptor;
}

void synchronise(const fs::path& path, int flags) {
  const Descriptor descriptor = openOrFail(path, flags);
  if (::fsync(descriptor.get()) != 0) fail(path, errno);
}

fs::path besides(const fs::path& place) {
  // Processes that make the same file at the same time stay apart.
  return place.string() + "." + std::to_string(::getpid()) + ".new";
}

}  // namespace

NewFile::NewFile(fs::path place) : place_(std::move(place)), path_(besides(place_)) {
  std::error_code ignored;
  if (fs::exists(place_, ignored)) fail(place_, EEXIST);
  openOrFail(path_, O_RDWR | O_CREAT | O_TRUNC);
}

NewFile::~NewFile() {
  std::error_code ignored;
  fs::remove(path_, ignored);
}

void NewFile::publish() {
  synchronise(path_, O_RDONLY);
  // Unlike a renaming, a link does not replace a file that somebody else made meanwhile.
  if (::link(path_.c_str(), place_.c_str()) != 0) fail(place_, errno);
  synchronise(place_.parent_path(), O_RDONLY | O_DIRECTORY);
}

}  // namespace nox::agent
