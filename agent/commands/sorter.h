// Sorter: brings any number of entries into order with bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// Entries go in, each with its key; then they come out by their keys, bytewise, those with the
/// same key as they went in. What memory does not hold lies in sorted runs in a temporary file,
/// which no other process sees and which ends with the sorter. Throws Failure IE/011 where there is
/// no room for it.
class Sorter {
public:
  /// `memory`: how many bytes of entries it keeps before it writes a run.
  explicit Sorter(std::size_t memory);
  ~Sorter();
  Sorter(const Sorter&) = delete;
  Sorter& operator=(const Sorter&) = delete;

  /// Not after the first `next`.
  void add(std::string key, std::string_view content);
  /// Moves to the next entry; false behind the last.
  bool next();
  /// What was added. Valid until the next call.
  std::string_view content() const { return content_; }
  /// How many runs lie in the file.
  std::size_t runs() const;

private:
  struct Entry {
    std::string key;
    std::string content;
  };
  class File;
  class Run;

  void sortEntries();
  void spill();
  void startMerge();

  std::size_t memory_;
  std::size_t used_ = 0;
  std::vector<Entry> entries_;
  std::size_t next_ = 0;  // of the entries, where all are in memory
  std::unique_ptr<File> file_;
  std::vector<Run> runs_;
  std::vector<std::size_t> heap_;  // runs by their first entry, the lowest in front
  bool merging_ = false;
  bool started_ = false;
  std::string_view content_;
};

}  // namespace nox::agent
