// What the string tests share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nox/diag/logger.h"
#include "nox/text/pstring.h"

namespace nox::test {

/// Another native code page for the life of the object; UTF-8 afterwards, as at the start.
class NativePage {
public:
  explicit NativePage(const char* name) { EXPECT_TRUE(change(name)); }
  ~NativePage() { EXPECT_TRUE(change("UTF-8")); }
  NativePage(const NativePage&) = delete;
  NativePage& operator=(const NativePage&) = delete;

  static bool change(std::string name) { return NOXPString::changeCodePage(name); }
};

/// What a build with output logs; one without logs nothing.
inline std::vector<std::string> withOutput(std::vector<std::string> texts) {
  if (!kLoggerOutput) texts.clear();
  return texts;
}

/// The string in the representation that conversions pass through; nothing public asks for it.
bool makeUnicode(NOXPString& text);

inline NOXPString utf8(const std::string& bytes) {
  return NOXPString(bytes.data(), bytes.size(), true);
}

/// A string of the given type without a payload, as a failed extraction leaves it.
inline NOXPString nullPayload(NOXPString text) {
  EXPECT_FALSE(text.ExtractFrom(static_cast<NOXPString*>(nullptr), 1, 0, 0));
  return text;
}

inline std::string utf8Of(NOXPString& text) {
  return reinterpret_cast<const char*>(text.getUTF8());
}

}  // namespace nox::test
