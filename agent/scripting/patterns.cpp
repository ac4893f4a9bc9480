#include "agent/scripting/patterns.h"

#include <cstring>
#include <type_traits>

namespace nox::agent {

static_assert(std::is_trivially_destructible_v<PatternMatcher>);

namespace {

constexpr char kEscape = '%';

// The classes as the language has them in its plain locale: ASCII alone.
bool isUpper(unsigned char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(unsigned char c) { return c >= 'a' && c <= 'z'; }
bool isAlpha(unsigned char c) { return isUpper(c) || isLower(c); }
bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }
bool isGraph(unsigned char c) { return c > 0x20 && c < 0x7F; }
bool isControl(unsigned char c) { return c < 0x20 || c == 0x7F; }
bool isSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isAlnum(unsigned char c) { return isAlpha(c) || isDigit(c); }
bool isHex(unsigned char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Whether `c` is in the class that `%name` stands for. Another byte than a class's letter stands
/// for itself.
bool isInClass(unsigned char c, unsigned char name) {
  const unsigned char lower = isUpper(name) ? static_cast<unsigned char>(name + 0x20) : name;
  bool in = false;
  switch (lower) {
    case 'a':
      in = isAlpha(c);
      break;
    case 'c':
      in = isControl(c);
      break;
    case 'd':
      in = isDigit(c);
      break;
    case 'g':
      in = isGraph(c);
      break;
    case 'l':
      in = isLower(c);
      break;
    case 'p':
      in = isGraph(c) && !isAlnum(c);
      break;
    case 's':
      in = isSpace(c);
      break;
    case 'u':
      in = isUpper(c);
      break;
    case 'w':
      in = isAlnum(c);
      break;
    case 'x':
      in = isHex(c);
      break;
    case 'z':  // an old name, still understood
      in = c == 0;
      break;
    default:
      return name == c;
  }
  return isUpper(name) ? !in : in;
}

}  // namespace

PatternMatcher::PatternMatcher(std::string_view subject, std::string_view pattern, Tick tick,
                               void* context)
    : subject_(subject.data()),
      subjectEnd_(subject.data() + subject.size()),
      pattern_(pattern.data()),
      patternEnd_(pattern.data() + pattern.size()),
      tick_(tick),
      context_(context) {}

bool PatternMatcher::isPlain(std::string_view pattern) {
  return pattern.find_first_of("^$*+?.([%-") == std::string_view::npos;
}

const char* PatternMatcher::matchAt(const char* place) {
  level_ = 0;
  depth_ = 0;
  const char* const end = match(place, pattern_);
  return isOver() ? nullptr : end;
}

bool PatternMatcher::spend(std::size_t work) {
  work_ += work;
  if (work_ >= kWorkPerTick) {
    work_ = 0;
    if (!tick_(context_)) stopped_ = true;
  }
  return !isOver();
}

const char* PatternMatcher::fail(const char* error) {
  if (!error_) error_ = error;
  return nullptr;
}

const char* PatternMatcher::match(const char* s, const char* p) {
  if (depth_ == kDeepest) return fail("pattern too complex");
  ++depth_;
  const char* const end = matchHere(s, p);
  --depth_;
  return end;
}

const char* PatternMatcher::matchHere(const char* s, const char* p) {
  while (p != patternEnd_) {
    if (!spend(1)) return nullptr;
    const char following = p + 1 == patternEnd_ ? '\0' : p[1];
    switch (*p) {
      case '(':
        return following == ')' ? openCapture(s, p + 2, true) : openCapture(s, p + 1, false);
      case ')':
        return closeCapture(s, p + 1);
      case '$':
        if (p + 1 == patternEnd_) return s == subjectEnd_ ? s : nullptr;
        break;
      case kEscape:
        if (following == 'b') {
          s = matchBalanced(s, p + 2);
          if (!s) return nullptr;
          p += 4;
          continue;
        }
        if (following == 'f') {  // the border of a set, which takes no byte
          p += 2;
          if (p == patternEnd_ || *p != '[') return fail("missing '[' after '%f' in pattern");
          const char* const end = itemEnd(p);
          if (!end) return nullptr;
          const char before = s == subject_ ? '\0' : s[-1];
          const char at = s == subjectEnd_ ? '\0' : *s;
          if (!spend(static_cast<std::size_t>(end - p) / 8)) return nullptr;
          if (isInSet(static_cast<unsigned char>(before), p, end - 1) ||
              !isInSet(static_cast<unsigned char>(at), p, end - 1)) {
            return nullptr;
          }
          p = end;
          continue;
        }
        if (isDigit(static_cast<unsigned char>(following))) {
          s = matchCapture(s, following);
          if (!s) return nullptr;
          p += 2;
          continue;
        }
        break;
      default:
        break;
    }

    const char* const end = itemEnd(p);
    if (!end) return nullptr;
    switch (end == patternEnd_ ? '\0' : *end) {
      case '*':
        return expandMost(s, p, end);
      case '+':
        return isItem(s, p, end) ? expandMost(s + 1, p, end) : nullptr;
      case '-':
        return expandLeast(s, p, end);
      case '?':
        if (isItem(s, p, end)) {
          if (const char* const found = match(s + 1, end + 1)) return found;
          if (isOver()) return nullptr;
        }
        p = end + 1;
        break;
      default:
        if (!isItem(s, p, end)) return nullptr;
        ++s;
        p = end;
        break;
    }
  }
  return s;
}

const char* PatternMatcher::openCapture(const char* s, const char* p, bool isPosition) {
  if (level_ == kMostCaptures) return fail("too many captures");
  const auto index = static_cast<std::size_t>(level_);
  captures_[index] = Capture{s, 0, isPosition, !isPosition};
  ++level_;
  const char* const end = match(s, p);
  if (!end) --level_;
  return end;
}

const char* PatternMatcher::closeCapture(const char* s, const char* p) {
  std::size_t index = static_cast<std::size_t>(level_);
  while (index > 0 && !captures_[index - 1].isOpen) --index;
  if (index == 0) return fail("invalid pattern capture");
  Capture& capture = captures_[--index];
  capture.length = static_cast<std::size_t>(s - capture.begin);
  capture.isOpen = false;
  const char* const end = match(s, p);
  if (!end) capture.isOpen = true;
  return end;
}

const char* PatternMatcher::matchBalanced(const char* s, const char* p) {
  if (patternEnd_ - p < 2) return fail("malformed pattern (missing arguments to '%b')");
  if (s == subjectEnd_ || *s != p[0]) return nullptr;
  std::size_t nesting = 1;
  for (const char* at = s + 1; at != subjectEnd_; ++at) {
    if (*at == p[1]) {
      if (--nesting == 0) return spend(static_cast<std::size_t>(at - s)) ? at + 1 : nullptr;
    } else if (*at == p[0]) {
      ++nesting;
    }
  }
  spend(static_cast<std::size_t>(subjectEnd_ - s));
  return nullptr;
}

const char* PatternMatcher::matchCapture(const char* s, char digit) {
  const int index = digit - '1';
  if (index < 0 || index >= level_) return fail("invalid capture index in pattern");
  const Capture& capture = captures_[static_cast<std::size_t>(index)];
  if (capture.isOpen) return fail("invalid capture index in pattern");
  // A position has no text to find again.
  if (capture.isPosition) return nullptr;
  if (static_cast<std::size_t>(subjectEnd_ - s) < capture.length) return nullptr;
  if (!spend(capture.length / 8)) return nullptr;
  return std::memcmp(capture.begin, s, capture.length) == 0 ? s + capture.length : nullptr;
}

const char* PatternMatcher::expandMost(const char* s, const char* p, const char* end) {
  const char* last = s;
  while (isItem(last, p, end)) {
    if (!spend(1)) return nullptr;
    ++last;
  }
  for (;; --last) {  // the longest first
    if (const char* const found = match(last, end + 1)) return found;
    if (last == s || !spend(1)) return nullptr;
  }
}

const char* PatternMatcher::expandLeast(const char* s, const char* p, const char* end) {
  for (;; ++s) {
    if (const char* const found = match(s, end + 1)) return found;
    if (!spend(1) || !isItem(s, p, end)) return nullptr;
  }
}

const char* PatternMatcher::itemEnd(const char* p) {
  if (*p == kEscape) {
    if (p + 1 == patternEnd_) return fail("malformed pattern (ends with '%')");
    return p + 2;
  }
  if (*p != '[') return p + 1;
  const char* at = p + 1;
  if (at != patternEnd_ && *at == '^') ++at;
  do {  // the first byte of a set is never its end
    if (at == patternEnd_) return fail("malformed pattern (missing ']')");
    if (*at == kEscape) {
      ++at;
      if (at == patternEnd_) return fail("malformed pattern (missing ']')");
    }
    ++at;
  } while (at == patternEnd_ || *at != ']');
  if (!spend(static_cast<std::size_t>(at - p) / 8)) return nullptr;
  return at + 1;
}

bool PatternMatcher::isItem(const char* s, const char* p, const char* end) {
  if (s == subjectEnd_) return false;
  const auto c = static_cast<unsigned char>(*s);
  switch (*p) {
    case '.':
      return true;
    case kEscape:
      return isInClass(c, static_cast<unsigned char>(p[1]));
    case '[':
      return spend(static_cast<std::size_t>(end - p) / 8) && isInSet(c, p, end - 1);
    default:
      return static_cast<unsigned char>(*p) == c;
  }
}

bool PatternMatcher::isInSet(unsigned char c, const char* p, const char* last) const {
  const auto byte = [](const char* at) { return static_cast<unsigned char>(*at); };
  ++p;  // behind '['
  const bool inverted = *p == '^';
  if (inverted) ++p;
  for (; p < last; ++p) {
    if (*p == kEscape) {
      ++p;
      if (isInClass(c, byte(p))) return !inverted;
    } else if (p + 2 < last && p[1] == '-') {
      if (byte(p) <= c && c <= byte(p + 2)) return !inverted;
      p += 2;
    } else if (byte(p) == c) {
      return !inverted;
    }
  }
  return inverted;
}

}  // namespace nox::agent
