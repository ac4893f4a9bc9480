// The patterns of subroutines, as text: the first line is the pattern, the rest the subject. A
// match lies within its subject, and so do its captures.
#include <algorithm>
#include <string>
#include <string_view>

#include "agent/scripting/patterns.h"
#include "fuzz/fuzz_target.h"

namespace {

using nox::agent::PatternMatcher;
using nox::fuzz::require;

bool countDown(void* ticks) { return --*static_cast<int*>(ticks) > 0; }

void checkMatch(const PatternMatcher& matcher, std::string_view subject, const char* begin,
                const char* end) {
  const char* const subjectEnd = subject.data() + subject.size();
  require(begin <= end && end <= subjectEnd, "a match lies in its subject");
  for (int i = 0; i < matcher.captureCount(); ++i) {
    const PatternMatcher::Capture& capture = matcher.capture(i);
    require(begin <= capture.begin && capture.begin <= end, "a capture begins in its match");
    require(capture.length <= static_cast<std::size_t>(end - capture.begin),
            "a capture ends in its match");
    require(!capture.isPosition || capture.length == 0, "a position has no length");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of their own, so that the sanitizer sees what is read behind them.
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t line = std::min(text.find('\n'), text.size());
  const std::string pattern = text.substr(0, line);
  const std::string subject = text.substr(std::min(line + 1, text.size()));

  int ticks = 20;
  PatternMatcher matcher(subject, pattern, countDown, &ticks);
  for (std::size_t i = 0; i <= subject.size(); ++i) {
    const char* const begin = subject.data() + i;
    if (const char* const end = matcher.matchAt(begin)) checkMatch(matcher, subject, begin, end);
    if (matcher.stopped() || matcher.error()) break;
  }
  return 0;
}
