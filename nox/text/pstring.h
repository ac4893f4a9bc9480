// NOXPString: the protocol's string, which holds its text in whichever form was asked for last.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "nox/core/export.h"
#include "nox/text/ascii.h"

class NOXPBlob;

namespace nox {
class BinaryReader;
class BinaryWriter;

namespace detail {
/// Whether the native code page maps 01-7F to themselves; false until the page is open.
extern std::atomic<bool> nativeKeepsAscii;
}  // namespace detail
}  // namespace nox

/// Text in one of four representations: narrow (the process code page), wide (one UTF-16 unit per
/// element), UTF-8, or Unicode (the UTF-16 text that conversions pass through). Conversions are
/// lazy and happen in place, also through the accessors; a failed one logs a line and leaves the
/// string as it was. Not shared between threads. Nothing throws but std::bad_alloc.
///
/// MultiValue marks (bytes FC-FE) are no UTF-8: as Narrow text they survive a conversion only under
/// a single-byte code page, and then as U+00FC-U+00FE. Records with marks belong in a NOXPBlob, or
/// in a string constructed as UTF-8, whose bytes nothing looks at.
///
/// Narrow and UTF-8 text lie in one inline std::string, so that a short text costs no allocation
/// and turning one into the other costs a scan, where both have the same bytes.
class NOX_EXPORT NOXPString {
public:
  enum Type { Empty = 0, Narrow = 1, Wide = 2, Utf8 = 3, Unicode = 4 };

  NOXPString() noexcept {}
  /// A Narrow copy; null gives Empty.
  NOXPString(const char* text) {
    if (!text) return;
    if (*text != '\0') bytes_.assign(text);
    type_ = Narrow;
    hasPayload_ = true;
  }
  NOXPString(const char* text, bool utf8) : NOXPString(text) {
    if (text && utf8) type_ = Utf8;
  }
  /// Exactly `n` bytes. As UTF-8 the text ends at its first NUL. Without the third argument, a
  /// number takes the constructor above: all of the text, as UTF-8.
  NOXPString(const char* text, std::size_t n, bool utf8);
  NOXPString(const unsigned char* text, std::size_t n, bool utf8)
      : NOXPString(reinterpret_cast<const char*>(text), n, utf8) {}
  /// A deep copy of the same type. A Unicode string cannot be copied: the copy says so in the log
  /// and holds no payload.
  NOXPString(const NOXPString& other)
      : bytes_(other.bytes_), type_(other.type_), hasPayload_(other.hasPayload_) {
    if (other.rare_ || other.type_ == Unicode) copyRare(other);
  }
  /// Null gives Empty.
  NOXPString(const NOXPString* other) {
    if (other) *this = *other;
  }
  /// `other` becomes Empty.
  NOXPString(NOXPString&& other) noexcept
      : bytes_(std::move(other.bytes_)),
        type_(std::exchange(other.type_, std::uint8_t{Empty})),
        hasPayload_(std::exchange(other.hasPayload_, false)),
        rare_(std::move(other.rare_)) {}
  NOXPString(const std::string& text) : bytes_(text), type_(Narrow), hasPayload_(true) {}
  NOXPString(const std::wstring& text);
  ~NOXPString() = default;

  /// Releases the old payload; `text` may lie inside it. Null gives Empty.
  NOXPString& operator=(const char* text);
  /// Deliberate: the old payload is abandoned, not released, so pointers into it stay readable; it
  /// ends with this object.
  NOXPString& operator=(const NOXPString& other);
  NOXPString& operator=(const NOXPString* other);
  /// Deliberate: stores the 16-bit image of the wide text but says Narrow.
  NOXPString& operator=(const wchar_t* text);
  /// Releases the old payload; `text` may lie inside it.
  void assign(const char* text, std::size_t n, bool utf8);

  /// The text as it stands; a Wide one becomes Narrow first. Null, with a log line, for Unicode.
  const char* c_str() {
    if (type_ == Empty) return "";
    return holdsBytes() ? bytes_.c_str() : rareCString();
  }
  /// Bytes of Narrow and UTF-8 text, elements of Wide text.
  std::size_t length() const {
    return type_ == Empty || holdsBytes() ? bytes_.size() : rareLength();
  }
  Type getType() const { return static_cast<Type>(type_); }

  /// The conversions give false, with a log line, when they fail; a string without text converts
  /// to nothing and keeps its type.
  bool toString();
  bool toUTF8();
  bool toWString();
  /// The text after its conversion, valid until the string changes. An Empty string, or one that
  /// cannot be converted, gives an empty text that is not its own (one per thread).
  std::string& getString();
  const unsigned char* getUTF8();
  std::wstring& getWString();

  /// Replaces the process's native code page (an ICU converter name). False, with a log line, when
  /// there is no such page: conversions then use ICU's default page (UTF-8 on Linux). Not while
  /// other threads convert.
  static bool changeCodePage(std::string& name);

  /// The type of the right side decides how both are compared; the left one takes part as it would
  /// read after a conversion to that type.
  bool operator>(const NOXPString& other) const;
  bool operator<(const NOXPString& other) const;
  /// Deliberate: against a UTF-8 right side only the first bytes are compared, and an Empty right
  /// side equals everything.
  bool operator==(const NOXPString& other) const;
  bool operator!=(const NOXPString& other) const { return !(*this == other); }

  /// Appending logs a line and changes nothing where this string is Empty. UTF-8 text takes what
  /// precedes the first NUL. The text may lie inside this string; null has no effect.
  NOXPString& append(const char* text);
  NOXPString& append(const char* text, std::size_t n);
  NOXPString& append(const wchar_t* text);
  NOXPString& append(const wchar_t* text, std::size_t n);
  /// Converts this string to the other's type first. An Empty other is logged as an error.
  NOXPString& append(const NOXPString& other);
  /// The number in decimal; a character is a number too.
  NOXPString& append(int value);

  /// Fields of this text, which must be UTF-8 (else 0).
  int DCount(unsigned char delimiter);
  int DCount(const unsigned char* text, unsigned char delimiter);
  /// Replaces this string by one field of the source (which may be this string). Attributes count
  /// from 1; deliberate: values and subvalues count from 0 past the first. False when there is no
  /// such field or it is empty; the string then keeps its type and has no payload.
  bool ExtractFrom(NOXPString* source, int attribute, int value, int subValue);
  bool ExtractFrom(NOXPBlob* source, int attribute, int value, int subValue);
  /// Replaces this UTF-8 string by one of its fields, and gives the number that field begins with.
  /// 0 when the string is not UTF-8 or has no such field.
  int ExtractNumber(int attribute, int value, int subValue);

private:
  friend class nox::BinaryReader;
  friend class nox::BinaryWriter;

  struct Rare;  // wide and Unicode text, abandoned payloads
  struct RareDeleter {
    void operator()(Rare* rare) const;
  };

  static constexpr std::size_t kInlineText = 15;  // what a std::string holds without allocating
  static constexpr std::size_t kShortScan = 64;   // longer texts are scanned out of line

  bool toUString();

  /// The UTF-8 bytes, for a writer: converts in place as toUTF8() does. A string without payload,
  /// or one whose conversion failed, gives no bytes. Valid until the string changes.
  std::string_view utf8Bytes() {
    return becomesUtf8() ? std::string_view(bytes_) : convertedUtf8Bytes();
  }
  /// Makes short plain text UTF-8, without a call. Whether this string now is UTF-8.
  bool becomesUtf8() {
    if (type_ == Narrow && hasPayload_ && bytes_.size() <= kShortScan &&
        nox::detail::nativeKeepsAscii.load(std::memory_order_relaxed) &&
        nox::detail::isPlainAscii(bytes_.data(), bytes_.size())) {
      type_ = Utf8;
    }
    return type_ == Utf8;
  }
  std::string_view convertedUtf8Bytes();
  /// Whether these bytes say the same in the native code page and in UTF-8 and hold no NUL, so that
  /// they need no conversion either way.
  static bool isSameInUtf8(std::string_view text);
  /// Replaces the text by `n` Narrow bytes, for a reader; `text` lies outside this string.
  /// `readable` says how many bytes may be looked at from `text` on: where they are enough, a short
  /// text is copied in constant steps.
  void assignNarrow(const char* text, std::size_t n, std::size_t readable = 0) {
    if (rare_) releaseRare();
    if (n <= kInlineText && readable >= kInlineText) {
      bytes_.~basic_string();
      ::new (static_cast<void*>(&bytes_)) std::string(text, kInlineText);
      bytes_.erase(n);
    } else {
      bytes_.assign(text, n);
    }
    type_ = Narrow;
    hasPayload_ = true;
  }

  bool holdsBytes() const { return type_ == Narrow || type_ == Utf8; }
  void setBytes(std::string&& bytes, Type type);
  void setEmpty();
  void release();
  void releaseRare();
  void abandon();
  void copyRare(const NOXPString& other);
  Rare& rare();
  const char* rareCString();
  std::size_t rareLength() const;
  bool toUtf16(std::u16string& units) const;
  void makePayload();
  int compare(const NOXPString& other) const;
  bool takeField(std::string_view text, int attribute, int value, int subValue);

  std::string bytes_;  // Narrow or UTF-8 text; UTF-8 text holds no NUL
  std::uint8_t type_ = Empty;
  bool hasPayload_ = false;  // false after a failed extraction: such a string behaves as empty
  std::unique_ptr<Rare, RareDeleter> rare_;
};

namespace nox {
using ::NOXPBlob;
using ::NOXPString;
}  // namespace nox
