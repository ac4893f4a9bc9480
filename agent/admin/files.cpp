#include "agent/admin/files.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include "agent/admin/exit_status.h"

namespace nox::agent {

namespace {

constexpr mode_t kOwnerOnlyFile = 0600;
constexpr mode_t kOwnerOnlyFolder = 0700;
constexpr std::size_t kBlock = 256 * 1024;

Descriptor openToRead(const std::string& file) {
  Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) failWithErrno(file + " cannot be read");
  return descriptor;
}

/// Hands the rest of the file over in blocks.
void readBlocks(const Descriptor& descriptor, const std::string& file,
                const std::function<void(const char*, std::size_t)>& take) {
  std::vector<char> block(kBlock);
  while (true) {
    const ssize_t got = read(descriptor.get(), block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failWithErrno(file + " cannot be read");
    if (got == 0) return;
    take(block.data(), static_cast<std::size_t>(got));
  }
}

void writeAll(const Descriptor& descriptor, const std::string& file, const char* bytes,
              std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(descriptor.get(), bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) failWithErrno(file + " cannot be written");
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

class Sha256 {
public:
  Sha256() { crypto_hash_sha256_init(&state_); }
  void add(const char* bytes, std::size_t size) {
    crypto_hash_sha256_update(&state_, reinterpret_cast<const unsigned char*>(bytes), size);
  }
  std::string text() {
    std::array<unsigned char, crypto_hash_sha256_BYTES> sum{};
    crypto_hash_sha256_final(&state_, sum.data());
    std::array<char, 2 * crypto_hash_sha256_BYTES + 1> hex{};
    return sodium_bin2hex(hex.data(), hex.size(), sum.data(), sum.size());
  }

private:
  crypto_hash_sha256_state state_{};
};

std::string parentOf(const std::string& path) {
  const std::string parent = std::filesystem::path(path).parent_path().string();
  return parent.empty() ? "." : parent;
}

/// Has `write` fill a file beside the one that is wanted, which takes its name when it is whole.
void makeWhole(const std::string& file, const std::function<void(const Descriptor&)>& write) {
  const std::string partial = file + ".partial";
  try {
    const Descriptor descriptor(
        open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kOwnerOnlyFile));
    if (!descriptor) failWithErrno(file + " cannot be made");
    write(descriptor);
    if (fsync(descriptor.get()) != 0) failWithErrno(file + " cannot be written");
    // Unlike a renaming, this never replaces a file.
    if (link(partial.c_str(), file.c_str()) != 0) failWithErrno(file + " cannot be made");
    unlink(partial.c_str());
  } catch (...) {
    unlink(partial.c_str());
    throw;
  }
  syncFolder(parentOf(file));
}

}  // namespace

void failWithErrno(const std::string& what) {
  const int error = errno;
  throw AdminError(statusOfErrno(error), what + ": " + std::strerror(error));
}

void makeFolder(const std::string& folder) {
  if (mkdir(folder.c_str(), kOwnerOnlyFolder) != 0) failWithErrno(folder + " cannot be made");
}

void syncFolder(const std::string& folder) {
  const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor || fsync(descriptor.get()) != 0) failWithErrno(folder + " cannot be written");
}

void syncFile(const std::string& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (!descriptor || fsync(descriptor.get()) != 0) failWithErrno(file + " cannot be written");
}

void writeNewFile(const std::string& file, std::string_view content) {
  makeWhole(file, [&](const Descriptor& descriptor) {
    writeAll(descriptor, file, content.data(), content.size());
  });
}

std::string copyToNewFile(const std::string& from, const std::string& to) {
  Sha256 sum;
  const Descriptor source = openToRead(from);
  makeWhole(to, [&](const Descriptor& descriptor) {
    readBlocks(source, from, [&](const char* bytes, std::size_t size) {
      sum.add(bytes, size);
      writeAll(descriptor, to, bytes, size);
    });
  });
  return sum.text();
}

std::string readSmallFile(const std::string& file, std::size_t mostBytes) {
  std::string content;
  readBlocks(openToRead(file), file, [&](const char* bytes, std::size_t size) {
    if (content.size() + size > mostBytes) {
      throw AdminError(ExitStatus::Failed, file + " is too large for what it should hold");
    }
    content.append(bytes, size);
  });
  return content;
}

std::uint64_t sizeOfFile(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) failWithErrno(file + " cannot be read");
  return static_cast<std::uint64_t>(status.st_size);
}

std::string sha256OfFile(const std::string& file) {
  Sha256 sum;
  readBlocks(openToRead(file), file,
             [&](const char* bytes, std::size_t size) { sum.add(bytes, size); });
  return sum.text();
}

}  // namespace nox::agent
