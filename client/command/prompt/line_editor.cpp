#include "client/command/prompt/line_editor.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "client/command/interrupt.h"

namespace nox::command {

namespace {

constexpr int kMostRemembered = 1000;
constexpr const char* kHeading = "_HiStOrY_V2_\n";  // of a file that the editor's library reads

/// Makes the folders that are missing, for the user alone. Empty where there is no home.
std::string historyFile() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  const char* const home = std::getenv("HOME");
  std::string folder;
  if (state && *state == '/') {
    folder = state;
  } else if (home && *home == '/') {
    folder = std::string(home) + "/.local/state";
  } else {
    return {};
  }
  folder += "/nox";
  for (std::size_t slash = 1; slash != std::string::npos;) {
    slash = folder.find('/', slash + 1);
    mkdir(folder.substr(0, slash).c_str(), 0700);  // there already: as good
  }
  return folder + "/history";
}

struct EndEditLine {
  void operator()(EditLine* editor) const { el_end(editor); }
  void operator()(History* history) const { history_end(history); }
};

/// As the editor's library reads it: a line for each statement, whatever is in it.
std::string lineOf(const std::string& statement) {
  std::string line;
  for (const char c : statement) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte != '\\' && byte != 0x7F) {
      line += c;
    } else {
      line += '\\';
      for (const int shift : {6, 3, 0}) line += static_cast<char>('0' + ((byte >> shift) & 7));
    }
  }
  return line + '\n';
}

/// The file that all prompts of a user write to, locked while it lives. One that cannot be opened
/// or written to is none: statements are typed all the same.
class HistoryFile {
public:
  HistoryFile(const std::string& path, int flags)
      : descriptor_(path.empty() ? -1 : open(path.c_str(), flags | O_APPEND | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) return;
    // Before anything is written, so that nobody else ever reads it.
    fchmod(descriptor_, 0600);
    flock(descriptor_, LOCK_EX);
  }
  ~HistoryFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  HistoryFile(const HistoryFile&) = delete;
  HistoryFile& operator=(const HistoryFile&) = delete;

  void append(const std::string& statement) const {
    struct stat status {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) return;
    const std::string text = (status.st_size == 0 ? kHeading : "") + lineOf(statement);
    static_cast<void>(!::write(descriptor_, text.data(), text.size()));
  }

private:
  int descriptor_;
};

}  // namespace

struct LineEditor::Impl {
  Completer complete;
  std::string prompt;
  std::string file = historyFile();
  std::unique_ptr<History, EndEditLine> history{history_init()};
  std::unique_ptr<EditLine, EndEditLine> editor{el_init("nox", stdin, stdout, stderr)};
  bool interrupted = false;

  static Impl& of(EditLine* editor) {
    Impl* impl = nullptr;
    el_get(editor, EL_CLIENTDATA, &impl);
    return *impl;
  }

  static const char* showPrompt(EditLine* editor) { return of(editor).prompt.c_str(); }

  /// Waits for a byte, but not through Ctrl-C, which another thread takes.
  static bool waitForByte() {
    constexpr int kLookEvery = 100;  // milliseconds
    for (;;) {
      if (Interrupt::pressed()) return false;
      pollfd waited{STDIN_FILENO, POLLIN, 0};
      if (poll(&waited, 1, kLookEvery) > 0) return true;
    }
  }

  static int readCharacter(EditLine* editor, wchar_t* character) {
    std::mbstate_t state{};
    for (;;) {
      if (!waitForByte()) {
        of(editor).interrupted = true;
        errno = EINTR;
        return -1;
      }
      char byte = 0;
      const ssize_t n = ::read(STDIN_FILENO, &byte, 1);
      if (n <= 0) return static_cast<int>(n);
      // What a Ctrl-D becomes that was typed while a statement ran, and the terminal read lines.
      if (byte == '\0') byte = '\x04';
      const std::size_t result = std::mbrtowc(character, &byte, 1, &state);
      if (result == static_cast<std::size_t>(-2)) continue;  // more bytes to come
      if (result == static_cast<std::size_t>(-1)) {
        el_beep(editor);
        std::fflush(stdout);
        state = std::mbstate_t();
        continue;
      }
      return 1;
    }
  }

  static unsigned char completeWord(EditLine* editor, std::wint_t /*key*/) {
    const LineInfo* const line = el_line(editor);
    const std::string left(line->buffer, line->cursor);
    const std::string right(line->cursor, line->lastchar);
    const Completion found = of(editor).complete(left, right);
    if (found.candidates.empty()) return CC_REFRESH_BEEP;
    const std::size_t typed = left.size() - found.begin;
    std::string text = commonBegin(found.candidates);
    const bool one = found.candidates.size() == 1;
    if (one) text += ' ';
    if (text.size() > typed || one) {
      el_deletestr(editor, static_cast<int>(typed));
      el_insertstr(editor, text.c_str());
      return CC_REFRESH;
    }
    std::fputc('\n', stdout);
    for (const std::string& candidate : found.candidates) {
      std::fprintf(stdout, "%s  ", candidate.c_str());
    }
    std::fputc('\n', stdout);
    return CC_REDISPLAY;
  }
};

LineEditor::LineEditor(Completer complete) : impl_(std::make_unique<Impl>()) {
  impl_->complete = std::move(complete);
  EditLine* const editor = impl_->editor.get();
  HistEvent event{};
  history(impl_->history.get(), &event, H_SETSIZE, kMostRemembered);
  history(impl_->history.get(), &event, H_SETUNIQUE, 1);
  {
    const HistoryFile file(impl_->file, O_WRONLY);
    const int found = history(impl_->history.get(), &event, H_LOAD, impl_->file.c_str());
    // What is appended is cut now and then.
    if (found > 2 * kMostRemembered) {
      history(impl_->history.get(), &event, H_SAVE, impl_->file.c_str());
    }
  }
  el_set(editor, EL_CLIENTDATA, impl_.get());
  el_set(editor, EL_PROMPT, Impl::showPrompt);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_SIGNAL, 0);
  // The terminal would throw away, at Ctrl-C, what was written and not shown yet, and might do it
  // so late that the next prompt is a part of that.
  el_set(editor, EL_SETTY, "-d", "+noflsh", nullptr);
  el_set(editor, EL_SETTY, "-x", "+noflsh", nullptr);
  el_set(editor, EL_HIST, history, impl_->history.get());
  // The narrow form copies both texts and never frees the copies.
  el_wset(editor, EL_ADDFN, L"nox-complete", L"Complete what was typed", Impl::completeWord);
  el_set(editor, EL_BIND, "^I", "nox-complete", nullptr);
  el_set(editor, EL_GETCFN, Impl::readCharacter);
  el_source(editor, nullptr);  // the user's own bindings
}

LineEditor::~LineEditor() = default;

LineEditor::Outcome LineEditor::read(const std::string& prompt, std::string& line) {
  const Interrupt::Idle idle;
  impl_->prompt = prompt;
  impl_->interrupted = false;
  int count = 0;
  const char* const text = el_gets(impl_->editor.get(), &count);
  if (impl_->interrupted) {
    dropTyped();
    std::fputs("^C\n", stdout);
    el_reset(impl_->editor.get());
    return Outcome::Interrupted;
  }
  if (!text || count <= 0) return Outcome::End;
  line.assign(text, static_cast<std::size_t>(count));
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  return Outcome::Line;
}

void LineEditor::dropTyped() { tcflush(STDIN_FILENO, TCIFLUSH); }

void LineEditor::remember(const std::string& statement) {
  HistEvent event{};
  history(impl_->history.get(), &event, H_ENTER, statement.c_str());
  // At once: a terminal may be closed, and another prompt writes as well.
  HistoryFile(impl_->file, O_WRONLY | O_CREAT).append(statement);
}

}  // namespace nox::command
