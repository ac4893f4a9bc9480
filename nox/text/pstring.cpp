#include "nox/text/pstring.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

#include "nox/diag/file_loggers.h"
#include "nox/text/blob.h"
#include "nox/text/conversion.h"

namespace filelog = nox::filelog;
using nox::EndLog;
using nox::detail::CodePage;

/// What few strings need. Once made it stays for the life of the string.
struct NOXPString::Rare {
  std::wstring wide;
  std::u16string unicode;
  // Payloads that a copy assignment left behind. Only those with a block of their own: short texts
  // lie inside this object or the string, where old pointers stay readable anyway.
  std::vector<std::string> abandonedBytes;
  std::vector<std::wstring> abandonedWide;
};

void NOXPString::RareDeleter::operator()(Rare* rare) const { delete rare; }

namespace {

constexpr unsigned char kAttributeMark = 0xFE;
constexpr unsigned char kValueMark = 0xFD;
constexpr unsigned char kSubValueMark = 0xFC;

void logBadType(const char* text, int type) {
  NOX_LOG(filelog::debug) << text << static_cast<long>(type) << EndLog();
}

// Narrow and wide text are not meant to be turned into each other; it works, and is reported.
void logWideConversion() {
  NOX_LOG(filelog::debug) << "Warning : wstring to string conversion abnormal." << EndLog();
}

template <class Text>
bool ownsBlock(const Text& text) {
  return text.capacity() > Text().capacity();
}

template <class Char>
bool liesIn(const std::basic_string<Char>& text, const Char* p) {
  const std::less<const Char*> before;
  return !before(p, text.data()) && !before(text.data() + text.size(), p);
}

/// Appends `n` elements that may lie inside `text`, its terminator included.
template <class Char>
void appendTo(std::basic_string<Char>& text, const Char* added, std::size_t n) {
  if (liesIn(text, added)) {
    text += std::basic_string<Char>(added, n);
  } else {
    text.append(added, n);
  }
}

std::size_t lengthBeforeNul(const char* text, std::size_t n) {
  const void* nul = n > 0 ? std::memchr(text, 0, n) : nullptr;
  return nul ? static_cast<std::size_t>(static_cast<const char*>(nul) - text) : n;
}

/// Each element is one UTF-16 unit; where wchar_t is wider, one above FFFF is a code point.
void appendUtf16(std::u16string& units, const wchar_t* text, std::size_t n) {
  units.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto c = static_cast<std::uint32_t>(text[i]);
    if (c <= 0xFFFF) {
      units += static_cast<char16_t>(c);
    } else if (c <= 0x10FFFF) {
      units += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      units += u'\uFFFD';
    }
  }
}

/// Steps over `count` marks. False when the text ends before.
bool skipMarks(std::string_view& text, unsigned char mark, int count) {
  for (; count > 0; --count) {
    const std::size_t at = text.find(static_cast<char>(mark));
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + 1);
  }
  return true;
}

/// The field's bytes; none when there is no such field or it is empty.
std::optional<std::string_view> findField(std::string_view text, int attribute, int value,
                                          int subValue) {
  text = text.substr(0, lengthBeforeNul(text.data(), text.size()));
  char ends[3];
  std::size_t numEnds = 0;
  ends[numEnds++] = static_cast<char>(kAttributeMark);
  // Deliberate: the first attribute is 1, but value 1 is what follows the first value mark, and
  // sub-value 1 what follows the first sub-value mark. The searches for them pass attribute marks.
  if (attribute > 1 && !skipMarks(text, kAttributeMark, attribute - 1)) return std::nullopt;
  if (value >= 1) {
    if (!skipMarks(text, kValueMark, value)) return std::nullopt;
    ends[numEnds++] = static_cast<char>(kValueMark);
    if (subValue >= 1) {
      if (!skipMarks(text, kSubValueMark, subValue)) return std::nullopt;
      ends[numEnds++] = static_cast<char>(kSubValueMark);
    }
  }
  text = text.substr(0, text.find_first_of(std::string_view(ends, numEnds)));
  if (text.empty()) return std::nullopt;
  return text;
}

int countFields(std::string_view text, unsigned char delimiter) {
  if (text.empty()) return 0;
  return static_cast<int>(std::count(text.begin(), text.end(), static_cast<char>(delimiter))) + 1;
}

}  // namespace

// --- Construction and assignment ---

NOXPString::NOXPString(const char* text, std::size_t n, bool utf8) { assign(text, n, utf8); }

NOXPString::NOXPString(const std::wstring& text) {
  rare().wide = text;
  type_ = Wide;
  hasPayload_ = true;
}

NOXPString& NOXPString::operator=(const char* text) {
  assign(text, text ? std::strlen(text) : 0, false);
  return *this;
}

NOXPString& NOXPString::operator=(const NOXPString& other) {
  if (!rare_ && !other.rare_ && !ownsBlock(bytes_) && other.type_ != Unicode) {
    bytes_ = other.bytes_;  // nothing to abandon
    type_ = other.type_;
    hasPayload_ = other.hasPayload_;
    return *this;
  }
  NOXPString copy(other);
  abandon();
  bytes_ = std::move(copy.bytes_);
  if (copy.rare_) rare().wide = std::move(copy.rare_->wide);
  type_ = copy.type_;
  hasPayload_ = copy.hasPayload_;
  return *this;
}

NOXPString& NOXPString::operator=(const NOXPString* other) {
  if (other) return *this = *other;
  return *this = NOXPString();
}

NOXPString& NOXPString::operator=(const wchar_t* text) {
  if (!text) {
    setEmpty();
    return *this;
  }
  const std::size_t n = std::wcslen(text);
  std::u16string units;
  appendUtf16(units, text, n);
  std::string image;
  image.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned unit = units[i / 2];
    image += static_cast<char>(i % 2 == 0 ? unit & 0xFF : unit >> 8);
  }
  setBytes(std::move(image), Narrow);
  return *this;
}

void NOXPString::assign(const char* text, std::size_t n, bool utf8) {
  if (!text) return setEmpty();
  if (utf8) n = lengthBeforeNul(text, n);
  if (n > bytes_.max_size()) throw std::bad_alloc();
  if (liesIn(bytes_, text)) return setBytes(std::string(text, n), utf8 ? Utf8 : Narrow);
  bytes_.assign(text, n);
  releaseRare();
  type_ = utf8 ? Utf8 : Narrow;
  hasPayload_ = true;
}

NOXPString::Rare& NOXPString::rare() {
  if (!rare_) rare_.reset(new Rare);
  return *rare_;
}

void NOXPString::copyRare(const NOXPString& other) {
  if (type_ == Wide && hasPayload_) rare().wide = other.rare_->wide;
  if (type_ == Unicode) {
    logBadType("Bad NOXPString type in constructor.", type_);
    hasPayload_ = false;
  }
}

void NOXPString::setBytes(std::string&& bytes, Type type) {
  bytes_ = std::move(bytes);
  releaseRare();
  type_ = type;
  hasPayload_ = true;
}

void NOXPString::setEmpty() {
  release();
  type_ = Empty;
}

void NOXPString::release() {
  bytes_.clear();
  releaseRare();
  hasPayload_ = false;
}

void NOXPString::releaseRare() {
  if (!rare_) return;
  std::wstring().swap(rare_->wide);
  std::u16string().swap(rare_->unicode);
}

void NOXPString::abandon() {
  if (hasPayload_ && ownsBlock(bytes_)) rare().abandonedBytes.push_back(std::move(bytes_));
  if (rare_ && ownsBlock(rare_->wide)) rare_->abandonedWide.push_back(std::move(rare_->wide));
  release();
}

void NOXPString::makePayload() {
  if (type_ == Wide) rare();
  hasPayload_ = hasPayload_ || holdsBytes() || type_ == Wide;
}

// --- Conversions ---

bool NOXPString::toUtf16(std::u16string& units) const {
  int code = 0;
  const char* failure = "Cannot convert string to unicode.";
  switch (type_) {
    case Narrow:
      code = nox::detail::toUtf16(CodePage::Native, bytes_, units);
      break;
    case Utf8:
      code = nox::detail::toUtf16(CodePage::Utf8, bytes_, units);
      failure = "Cannot convert UTF8 to unicode.";
      break;
    case Wide:
      appendUtf16(units, rare_->wide.data(), rare_->wide.size());
      break;
    default:
      units = rare_->unicode;
      break;
  }
  if (code <= 0) return true;
  NOX_LOG(filelog::debug) << failure << static_cast<long>(code) << EndLog();
  return false;
}

bool NOXPString::toUString() {
  if (!hasPayload_ || type_ == Unicode) return true;
  std::u16string units;
  if (!toUtf16(units)) return false;
  Rare& store = rare();
  release();
  store.unicode = std::move(units);
  type_ = Unicode;
  hasPayload_ = true;
  return true;
}

bool NOXPString::toString() {
  if (!hasPayload_ || type_ == Narrow) return true;
  if (type_ == Utf8 && isSameInUtf8(bytes_)) {
    type_ = Narrow;
    return true;
  }
  if (type_ == Wide) logWideConversion();
  std::u16string units;
  if (!toUtf16(units)) return false;
  std::string narrow;
  const int code = nox::detail::fromUtf16(CodePage::Native, units, narrow);
  if (code > 0) {
    NOX_LOG(filelog::debug) << "Cannot convert Unicode to chars." << static_cast<long>(code)
                            << EndLog();
    return false;
  }
  setBytes(std::move(narrow), Narrow);
  return true;
}

bool NOXPString::toUTF8() {
  if (!hasPayload_ || type_ == Utf8) return true;
  if (type_ == Narrow && isSameInUtf8(bytes_)) {
    type_ = Utf8;
    return true;
  }
  std::u16string units;
  if (!toUtf16(units)) return false;
  std::string utf8;
  const int code = nox::detail::fromUtf16(CodePage::Utf8, units, utf8);
  if (code > 0) {
    NOX_LOG(filelog::debug) << "Cannot convert Unicode to UTF8." << nox::detail::errorName(code)
                            << EndLog();
    return false;
  }
  utf8.resize(lengthBeforeNul(utf8.data(), utf8.size()));
  setBytes(std::move(utf8), Utf8);
  return true;
}

bool NOXPString::toWString() {
  if (!hasPayload_ || type_ == Wide) return true;
  if (type_ == Narrow) logWideConversion();
  std::u16string units;
  if (!toUtf16(units)) return false;
  // A pair of surrogates stays two elements. The text ends at its first NUL.
  std::wstring wide(units.begin(), std::find(units.begin(), units.end(), u'\0'));
  Rare& store = rare();
  release();
  store.wide = std::move(wide);
  type_ = Wide;
  hasPayload_ = true;
  return true;
}

std::string& NOXPString::getString() {
  toString();
  if (type_ == Narrow && hasPayload_) return bytes_;
  thread_local std::string none;
  none.clear();
  return none;
}

const unsigned char* NOXPString::getUTF8() {
  toUTF8();
  return reinterpret_cast<const unsigned char*>(type_ == Utf8 ? bytes_.c_str() : "");
}

std::wstring& NOXPString::getWString() {
  toWString();
  if (type_ == Wide && hasPayload_) return rare_->wide;
  thread_local std::wstring none;
  none.clear();
  return none;
}

std::string_view NOXPString::convertedUtf8Bytes() {
  toUTF8();
  return type_ == Utf8 ? std::string_view(bytes_) : std::string_view();
}

bool NOXPString::isSameInUtf8(std::string_view text) { return nox::detail::isSameInUtf8(text); }

const char* NOXPString::rareCString() {
  if (type_ == Wide) return toString() ? bytes_.c_str() : "";
  logBadType("Bad NOXPString type in c_str() ", type_);
  return nullptr;
}

std::size_t NOXPString::rareLength() const {
  if (type_ == Wide) return hasPayload_ ? rare_->wide.size() : 0;
  logBadType("Bad NOXPString type in c_str() ", type_);
  return 0;
}

bool NOXPString::changeCodePage(std::string& name) {
  const int code = nox::detail::changeNativePage(name);
  if (code <= 0) return true;
  NOX_LOG(filelog::debug) << "Cannot open codepage (" << name << ") converter."
                          << static_cast<long>(code) << EndLog();
  return false;
}

// --- Comparison ---

bool NOXPString::operator>(const NOXPString& other) const {
  return other.type_ != Empty && compare(other) > 0;
}

bool NOXPString::operator<(const NOXPString& other) const {
  return other.type_ != Empty && compare(other) < 0;
}

bool NOXPString::operator==(const NOXPString& other) const {
  return other.type_ == Empty || compare(other) == 0;
}

int NOXPString::compare(const NOXPString& other) const {
  if (hasPayload_ && type_ != other.type_) {
    NOXPString copy(*this);
    switch (other.type_) {
      case Narrow:
        copy.toString();
        break;
      case Wide:
        copy.toWString();
        break;
      case Utf8:
        copy.toUTF8();
        break;
      default:
        copy.toUString();
        break;
    }
    // A copy that could not be converted takes part as an empty text.
    if (copy.type_ != other.type_) copy.release();
    return copy.compare(other);
  }

  switch (other.type_) {
    case Narrow:
      return bytes_.compare(other.bytes_);
    case Wide:
      return (rare_ ? std::wstring_view(rare_->wide) : std::wstring_view())
          .compare(other.hasPayload_ ? std::wstring_view(other.rare_->wide) : std::wstring_view());
    case Utf8:  // Deliberate: the first bytes alone decide.
      return static_cast<unsigned char>(*bytes_.c_str()) -
             static_cast<unsigned char>(*other.bytes_.c_str());
    default:
      return (rare_ ? std::u16string_view(rare_->unicode) : std::u16string_view())
          .compare(other.hasPayload_ ? std::u16string_view(other.rare_->unicode)
                                     : std::u16string_view());
  }
}

// --- Appending ---

NOXPString& NOXPString::append(const char* text) {
  return append(text, text ? std::strlen(text) : 0);
}

NOXPString& NOXPString::append(const char* text, std::size_t n) {
  if (!text) return *this;
  makePayload();
  if (type_ == Wide) toString();
  if (!holdsBytes()) {
    if (type_ != Wide) logBadType("Bad NOXPString type in append.", type_);
    return *this;
  }
  if (type_ == Utf8) n = lengthBeforeNul(text, n);
  if (n > bytes_.max_size() - bytes_.size()) throw std::bad_alloc();
  appendTo(bytes_, text, n);
  return *this;
}

NOXPString& NOXPString::append(const wchar_t* text) {
  return append(text, text ? std::wcslen(text) : 0);
}

NOXPString& NOXPString::append(const wchar_t* text, std::size_t n) {
  if (!text) return *this;
  makePayload();
  if (holdsBytes() && !toWString()) return *this;
  if (type_ != Wide) {
    logBadType("Bad NOXPString type in append.", type_);
    return *this;
  }
  if (n > rare_->wide.max_size() - rare_->wide.size()) throw std::bad_alloc();
  appendTo(rare_->wide, text, n);
  return *this;
}

NOXPString& NOXPString::append(const NOXPString& other) {
  if (other.type_ == Empty || other.type_ == Unicode) {
    logBadType("Bad NOXPString type in append.", other.type_);
    return *this;
  }
  makePayload();
  if (!hasPayload_) {
    logBadType("Bad NOXPString type in append.", type_);
    return *this;
  }
  const bool converted = other.type_ == Narrow ? toString()
                         : other.type_ == Wide ? toWString()
                                               : toUTF8();
  if (!converted || !other.hasPayload_) return *this;
  if (type_ == Wide) return append(other.rare_->wide.data(), other.rare_->wide.size());
  return append(other.bytes_.data(), other.bytes_.size());
}

NOXPString& NOXPString::append(int value) {
  if (type_ == Wide) return append(std::to_wstring(value).c_str());
  return append(std::to_string(value).c_str());
}

// --- Fields ---

int NOXPString::DCount(unsigned char delimiter) {
  return type_ == Utf8 ? countFields(bytes_, delimiter) : 0;
}

int NOXPString::DCount(const unsigned char* text, unsigned char delimiter) {
  return text ? countFields(reinterpret_cast<const char*>(text), delimiter) : 0;
}

bool NOXPString::ExtractFrom(NOXPString* source, int attribute, int value, int subValue) {
  const char* text = source ? source->c_str() : nullptr;
  return takeField(text ? text : "", attribute, value, subValue);
}

bool NOXPString::ExtractFrom(NOXPBlob* source, int attribute, int value, int subValue) {
  std::string_view text;
  if (source && source->length() > 0) {
    text = {reinterpret_cast<const char*>(source->getBuf()), source->length()};
  }
  return takeField(text, attribute, value, subValue);
}

bool NOXPString::takeField(std::string_view text, int attribute, int value, int subValue) {
  const std::optional<std::string_view> field = findField(text, attribute, value, subValue);
  if (!field) {
    release();
    return false;
  }
  assign(field->data(), field->size(), true);
  return true;
}

int NOXPString::ExtractNumber(int attribute, int value, int subValue) {
  if (type_ != Utf8 || !takeField(bytes_, attribute, value, subValue)) return 0;
  const long number = std::strtol(bytes_.c_str(), nullptr, 10);
  return static_cast<int>(
      std::clamp<long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}
