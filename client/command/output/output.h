// Standard output as the command uses it: for data alone, in large pieces, with every failure seen.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace nox::command {

/// The output takes no more: the disk is full, or its reader has gone (`closed`). Thrown by value.
class OutputError : public std::runtime_error {
public:
  OutputError(const std::string& why, bool closed) : std::runtime_error(why), closed_(closed) {}
  /// The reader has gone, as `head` does: nothing to complain about.
  bool closed() const { return closed_; }

private:
  bool closed_;
};

/// Gathers text and hands it to a file descriptor that stays the caller's, or to a file of its own.
/// One thread at a time.
class Output {
public:
  explicit Output(int descriptor);
  /// A file that is made, or emptied, once there is something to write: whatever fails before
  /// leaves it as it was. Throws OutputError where it is clear by now that it cannot be written.
  explicit Output(std::string path);
  /// Writes what is left, silently.
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Throws OutputError.
  void write(std::string_view text) {
    if (pending_.size() + text.size() > kBlock) flush();
    pending_ += text;
  }
  void flush();
  /// Flushes; a file is made, or emptied, although nothing was written.
  void finish();
  bool isTerminal() const;
  /// Columns of the terminal; 0 where there is none.
  int width() const;

private:
  static constexpr std::size_t kBlock = 64 * 1024;

  void openFile();
  [[noreturn]] void fail(const std::string& what, int error);

  int descriptor_ = -1;
  std::string path_;  // of a file of its own
  std::string pending_;
};

}  // namespace nox::command
