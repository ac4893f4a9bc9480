// The line that is typed at the prompt: editing, history, completion.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/command/prompt/completion.h"

namespace nox::command {

/// One per process. The history is kept in `nox/history` under $XDG_STATE_HOME (~/.local/state),
/// readable by nobody else.
class LineEditor {
public:
  using Completer = std::function<Completion(const std::string& left, const std::string& right)>;

  /// `complete` is given what stands left and right of the cursor.
  explicit LineEditor(Completer complete);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  enum class Outcome { Line, End, Interrupted };
  /// The next line, without its line feed. Ctrl-C drops it, and leaves the connection alone.
  Outcome read(const std::string& prompt, std::string& line);
  /// What was typed and not read: after Ctrl-C nobody means it any more.
  static void dropTyped();
  /// Keeps a statement for later, in the file too.
  void remember(const std::string& statement);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::command
