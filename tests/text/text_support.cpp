#include "tests/text/text_support.h"

namespace nox::test {
namespace {

// An explicit instantiation may name private members.
template <bool (NOXPString::*ToUString)()>
struct UnicodeAccess {
  friend bool convertToUnicode(NOXPString& text) { return (text.*ToUString)(); }
};
bool convertToUnicode(NOXPString& text);
template struct UnicodeAccess<&NOXPString::toUString>;

}  // namespace

bool makeUnicode(NOXPString& text) { return convertToUnicode(text); }

}  // namespace nox::test
