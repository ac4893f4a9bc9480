// Conversions between bytes and UTF-16, through ICU. Internal to nox/text.
//
// The native code page is the process's, the converters are each thread's own: an ICU converter has
// state and no lock. A thread opens its pair when it first converts, and the native one again when
// a generation counter says that the page has changed.
#pragma once

#include <string>
#include <string_view>

namespace nox::detail {

enum class CodePage { Native, Utf8 };

/// Both give ICU's error code, which is above 0 when the conversion failed; the result is then
/// unspecified. Bytes and characters that have no counterpart are substituted, which is no failure.
int toUtf16(CodePage page, std::string_view bytes, std::u16string& units);
int fromUtf16(CodePage page, const std::u16string& units, std::string& bytes);

/// Whether `text` is the same bytes in the native code page and in UTF-8, and a conversion through
/// UTF-16 would give them back unchanged. Texts with a NUL are not: UTF-8 text ends there.
bool isSameInUtf8(std::string_view text);

/// Makes `name` the native code page. Gives ICU's error code; above 0, there is no native page and
/// conversions use ICU's default one.
int changeNativePage(const std::string& name);

/// ICU's name of an error code.
const char* errorName(int code);

/// ICU's code for a text whose length does not fit its 32 bits.
constexpr int kTextTooLong = 8;

}  // namespace nox::detail
