// Lua's patterns, matched so that a hostile one cannot keep the agent: the library's own functions
// may work for years on one call, and nothing can stop them.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace nox::agent {

/// Matches a pattern at places of a subject. Both are borrowed. Nothing here throws or allocates,
/// and the class has no destructor to miss: an error of Lua may jump over it.
class PatternMatcher {
public:
  static constexpr int kMostCaptures = 32;

  /// Asked now and then while a match goes on; false ends it.
  using Tick = bool (*)(void* context);

  struct Capture {
    const char* begin = nullptr;
    std::size_t length = 0;
    bool isPosition = false;  // `()`: only where it begins counts
    bool isOpen = false;      // the pattern has no `)` for it
  };

  /// `pattern` without the anchor `^`, which is the caller's to see to.
  PatternMatcher(std::string_view subject, std::string_view pattern, Tick tick, void* context);

  /// Where the match that begins exactly at `place` ends, or null.
  const char* matchAt(const char* place);

  /// After a null: what is wrong with the pattern. Null where it simply did not match, or where the
  /// match was ended.
  const char* error() const { return error_; }
  /// Whether `tick` ended the match.
  bool stopped() const { return stopped_; }
  int captureCount() const { return level_; }
  /// Of the last match; `index` from 0.
  const Capture& capture(int index) const { return captures_[static_cast<std::size_t>(index)]; }

  /// Whether the pattern has nothing but plain text.
  static bool isPlain(std::string_view pattern);

private:
  static constexpr int kDeepest = 200;  // of the recursion, as in the language itself
  static constexpr std::size_t kWorkPerTick = 100'000;

  bool isOver() const { return error_ != nullptr || stopped_; }
  /// Notes work; false when the match is over.
  bool spend(std::size_t work);
  const char* fail(const char* error);

  const char* match(const char* s, const char* p);
  const char* matchHere(const char* s, const char* p);
  const char* openCapture(const char* s, const char* p, bool isPosition);
  const char* closeCapture(const char* s, const char* p);
  const char* matchBalanced(const char* s, const char* p);
  const char* matchCapture(const char* s, char digit);
  const char* expandMost(const char* s, const char* p, const char* end);
  const char* expandLeast(const char* s, const char* p, const char* end);
  /// Behind the single item that begins at `p`; null, with an error, where there is none.
  const char* itemEnd(const char* p);
  /// Whether the byte at `s` is one of those that the item from `p` to `end` stands for.
  bool isItem(const char* s, const char* p, const char* end);
  bool isInSet(unsigned char c, const char* p, const char* last) const;

  const char* const subject_;
  const char* const subjectEnd_;
  const char* const pattern_;
  const char* const patternEnd_;
  const Tick tick_;
  void* const context_;
  std::size_t work_ = 0;
  int depth_ = 0;
  int level_ = 0;
  bool stopped_ = false;
  const char* error_ = nullptr;
  std::array<Capture, kMostCaptures> captures_;
};

}  // namespace nox::agent
