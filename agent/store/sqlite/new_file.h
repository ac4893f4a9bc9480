// NewFile: a file that appears under its name when it is complete, and durable.
#pragma once

#include <filesystem>

namespace nox::agent {

/// While it is written it lies beside its place under another name, readable by its owner alone; it
/// is removed unless it is published.
class NewFile {
public:
  /// An empty file for `place`. Throws StoreError, also where `place` is taken.
  explicit NewFile(std::filesystem::path place);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// Where it is written. Nobody has it open any more when it is published.
  const std::filesystem::path& path() const { return path_; }
  /// Synchronises it with the disk and gives it its name; never replaces a file.
  void publish();

private:
  const std::filesystem::path place_;
  const std::filesystem::path path_;
};

}  // namespace nox::agent
