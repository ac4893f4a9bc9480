// Another native code page for the length of a test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "nox/text/pstring.h"

namespace nox::test {

/// Makes `name` the process's native code page and puts UTF-8 back.
class CodePage {
public:
  explicit CodePage(std::string name) { EXPECT_TRUE(NOXPString::changeCodePage(name)) << name; }
  ~CodePage() {
    std::string utf8 = "UTF-8";
    NOXPString::changeCodePage(utf8);
  }
  CodePage(const CodePage&) = delete;
  CodePage& operator=(const CodePage&) = delete;
};

}  // namespace nox::test
