#include "nox/text/conversion.h"

#include <unicode/ucnv.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "nox/diag/file_loggers.h"
#include "nox/text/ascii.h"
#include "nox/text/pstring.h"

namespace nox::detail {

std::atomic<bool> nativeKeepsAscii{false};

namespace {

std::atomic<bool> nativeIsUtf8{false};
std::atomic<unsigned> nativeGeneration{0};  // 0 until the native page was opened

struct CloseConverter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

static_assert(kTextTooLong == U_INDEX_OUTOFBOUNDS_ERROR);
constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max();

/// Null when `code` says failure. A null name opens ICU's default converter.
Converter openConverter(const char* name, UErrorCode& code) {
  code = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &code));
  // Only codes above 0 are failures: windows-1252 opens with a warning below it.
  if (U_FAILURE(code)) converter.reset();
  return converter;
}

int toUtf16(UConverter* converter, std::string_view bytes, std::u16string& units) {
  if (bytes.size() > kLongest) return kTextTooLong;
  const auto n = static_cast<std::int32_t>(bytes.size());
  units.resize(bytes.size());
  UErrorCode code = U_ZERO_ERROR;
  std::int32_t length = ucnv_toUChars(converter, units.data(), n, bytes.data(), n, &code);
  if (code == U_BUFFER_OVERFLOW_ERROR) {
    units.resize(static_cast<std::size_t>(length));
    code = U_ZERO_ERROR;  // entered with a failure, ICU does nothing
    length = ucnv_toUChars(converter, units.data(), length, bytes.data(), n, &code);
  }
  if (U_SUCCESS(code)) units.resize(static_cast<std::size_t>(length));
  return code;
}

int fromUtf16(UConverter* converter, const std::u16string& units, std::string& bytes) {
  if (units.size() > kLongest) return kTextTooLong;
  const auto n = static_cast<std::int32_t>(units.size());
  bytes.resize(units.size());
  UErrorCode code = U_ZERO_ERROR;
  std::int32_t length = ucnv_fromUChars(converter, bytes.data(), n, units.data(), n, &code);
  if (code == U_BUFFER_OVERFLOW_ERROR) {
    bytes.resize(static_cast<std::size_t>(length));
    code = U_ZERO_ERROR;
    length = ucnv_fromUChars(converter, bytes.data(), length, units.data(), n, &code);
  }
  if (U_SUCCESS(code)) bytes.resize(static_cast<std::size_t>(length));
  return code;
}

/// Whether the converter maps 01-7F to themselves in both directions. All of them in one text, so
/// that pages with escapes or shifts are found out too.
bool keepsAscii(UConverter* converter) {
  std::string ascii;
  for (char c = 1; c < 0x7F; ++c) ascii += c;
  ascii += '\x7F';
  std::u16string units;
  std::string back;
  return toUtf16(converter, ascii, units) <= 0 &&
         units == std::u16string(ascii.begin(), ascii.end()) &&
         fromUtf16(converter, units, back) <= 0 && back == ascii;
}

/// The process's native code page. `mutex` guards the name.
struct NativePage {
  std::mutex mutex;
  std::string name;
  bool isOpen = false;
};

/// Never destroyed: static objects of the application may convert in their destructors.
NativePage& nativePage() {
  static NativePage& page = *new NativePage;
  return page;
}

/// The name for openConverter; null when there is no page, which opens ICU's default one.
const char* openName(const NativePage& page) { return page.isOpen ? page.name.c_str() : nullptr; }

/// Call with the page's mutex held.
UErrorCode openPage(NativePage& page, const std::string& name) {
  UErrorCode code;
  page.isOpen = openConverter(name.c_str(), code) != nullptr;
  page.name = name;
  UErrorCode used;
  const Converter converter = openConverter(openName(page), used);
  nativeKeepsAscii = converter && keepsAscii(converter.get());
  nativeIsUtf8 = converter && ucnv_getType(converter.get()) == UCNV_UTF8;
  ++nativeGeneration;
  return code;
}

void openDefaultPage() {
  NativePage& page = nativePage();
  const std::lock_guard<std::mutex> lock(page.mutex);
  if (nativeGeneration != 0) return;
  std::string name = ucnv_getDefaultName();
  // Some builds of ICU answer this for the C locale. UTF-8 contains it, and loses fewer bytes.
  if (name == "US-ASCII") name = "UTF-8";
  if (U_FAILURE(openPage(page, name))) {
    NOX_LOG(filelog::debug) << "Cannot open native codepage converter." << EndLog();
  }
  UErrorCode code;
  if (!openConverter("UTF-8", code)) {
    NOX_LOG(filelog::debug) << "Cannot open UTF-8 converter." << EndLog();
  }
}

[[maybe_unused]] const bool openedAtLoad = (openDefaultPage(), true);

struct ThreadConverters {
  Converter native;
  Converter utf8;
  unsigned generation = 0;
};

UConverter* converterOf(CodePage codePage) {
  thread_local ThreadConverters mine;
  UErrorCode code;
  if (codePage == CodePage::Utf8) {
    if (!mine.utf8) mine.utf8 = openConverter("UTF-8", code);
    return mine.utf8.get();
  }
  if (nativeGeneration == 0) openDefaultPage();  // called by another file's static object
  if (mine.generation != nativeGeneration || !mine.native) {
    NativePage& page = nativePage();
    const std::lock_guard<std::mutex> lock(page.mutex);
    mine.native = openConverter(openName(page), code);
    mine.generation = nativeGeneration;
  }
  return mine.native.get();
}

/// The first byte outside 01-7F, or one in whose neighbourhood it is worth looking at single bytes.
const unsigned char* skipPlainAscii(const unsigned char* p, const unsigned char* end) {
  std::uint64_t v[4];
  for (; end - p >= 32; p += 32) {
    std::memcpy(v, p, sizeof v);
    if (notPlainAscii(v[0]) | notPlainAscii(v[1]) | notPlainAscii(v[2]) | notPlainAscii(v[3]))
      break;
  }
  for (; end - p >= 8; p += 8) {
    std::memcpy(v, p, sizeof v[0]);
    if (notPlainAscii(v[0])) break;
  }
  return p;
}

/// Well-formed UTF-8 without a NUL: no overlong form, no surrogate, nothing above U+10FFFF. Those
/// are what ICU substitutes.
bool isUtf8(std::string_view text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = p + text.size();
  while (p < end) {
    p = skipPlainAscii(p, end);
    if (p == end) return true;
    const unsigned lead = *p++;
    if (lead == 0) return false;
    if (lead < 0x80) continue;
    std::ptrdiff_t more;
    unsigned low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
      more = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      more = 2;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      more = 3;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (end - p < more || *p < low || *p > high) return false;
    for (++p; --more > 0; ++p) {
      if ((*p & 0xC0) != 0x80) return false;
    }
  }
  return true;
}

}  // namespace

int toUtf16(CodePage page, std::string_view bytes, std::u16string& units) {
  return toUtf16(converterOf(page), bytes, units);
}

int fromUtf16(CodePage page, const std::u16string& units, std::string& bytes) {
  return fromUtf16(converterOf(page), units, bytes);
}

bool isSameInUtf8(std::string_view text) {
  if (text.size() > kLongest) return false;  // a conversion of it fails
  if (nativeIsUtf8.load(std::memory_order_relaxed)) return isUtf8(text);
  return nativeKeepsAscii.load(std::memory_order_relaxed) && isPlainAscii(text.data(), text.size());
}

int changeNativePage(const std::string& name) {
  NativePage& page = nativePage();
  const std::lock_guard<std::mutex> lock(page.mutex);
  return openPage(page, name);
}

const char* errorName(int code) { return u_errorName(static_cast<UErrorCode>(code)); }

}  // namespace nox::detail
