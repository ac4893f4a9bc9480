// Record: a MultiValue record as a dynamic array of attributes, values and subvalues.
//
//   Record person{"SMITH", "Oslo", ""};
//   person[3][2] = "second phone";       // fields in between come into being, empty
//   person.append(3, "third phone");     // a new value of attribute 3
//   for (std::string_view phone : person[3]) ...
//   person[1] = person[2];               // what is assigned is text, a number or a field
//
// All numbers count from 1; 0 throws std::out_of_range where a field is asked for by it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "nox/client/export.h"

namespace nox::client {

constexpr char kAttributeMark = '\xFE';
constexpr char kValueMark = '\xFD';
constexpr char kSubvalueMark = '\xFC';

class FieldReference;
class FieldView;
class Record;

namespace detail {

/// What is text by itself; a null pointer is none.
template <class T>
struct IsText : std::bool_constant<std::is_convertible_v<const T&, std::string_view> &&
                                   !std::is_same_v<std::decay_t<T>, std::nullptr_t>> {};
template <class T>
constexpr bool kIsText = IsText<T>::value;

/// Characters that are no bytes: they are neither text here nor numbers.
template <class T>
constexpr bool kIsWideCharacter =
    std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#ifdef __cpp_char8_t
    || std::is_same_v<T, char8_t>
#endif
    ;

template <class T>
using IsField = std::disjunction<std::is_same<T, FieldView>, std::is_same<T, FieldReference>>;

/// A field beside another, or beside text. Whether something is text is asked beside a field alone:
/// every comparison in this namespace comes by here.
template <class A, class B>
using AreComparable =
    std::conjunction<std::disjunction<IsField<A>, IsField<B>>, IsText<A>, IsText<B>>;

}  // namespace detail

/// What a field may be given: text, another field, a character, or a number in decimal, whatever
/// the locale. For arguments alone: it looks at the text that it was made of.
class NOX_CLIENT_EXPORT FieldText {
public:
  template <class Text, std::enable_if_t<detail::kIsText<Text>, int> = 0>
  FieldText(const Text& text) : text_(text) {}
  /// Error 22023 for a number that is not finite.
  template <
      class Number,
      std::enable_if_t<std::is_arithmetic_v<Number> && !detail::kIsWideCharacter<Number>, int> = 0>
  FieldText(Number number) : written_(written(number)), text_(written_) {}
  FieldText(std::nullptr_t) = delete;
  FieldText(const FieldText&) = delete;
  FieldText& operator=(const FieldText&) = delete;

  std::string_view view() const { return text_; }

private:
  static std::string writtenReal(double number);
  template <class Number>
  static std::string written(Number number) {
    if constexpr (std::is_same_v<Number, char>) {
      return std::string(1, number);
    } else if constexpr (std::is_floating_point_v<Number>) {
      return writtenReal(static_cast<double>(number));
    } else {
      return std::to_string(number);
    }
  }

  std::string written_;  // of a number
  std::string_view text_;
};

namespace detail {

/// A range of what fields may be given, which is not text itself.
template <class T, class = void>
struct IsRangeOfTexts : std::false_type {};
template <class T>
struct IsRangeOfTexts<T, std::void_t<decltype(*std::begin(std::declval<const T&>())),
                                     decltype(std::end(std::declval<const T&>()))>> {
  using Element = decltype(*std::begin(std::declval<const T&>()));
  static constexpr bool value = !kIsText<T> && !std::is_same_v<T, Record> &&
                                !std::is_same_v<std::decay_t<Element>, char> &&
                                std::is_constructible_v<FieldText, Element>;
};

}  // namespace detail

/// Names a field. 0 for value or subvalue means the whole level above: {3} is attribute 3, {3, 2}
/// its second value.
struct Position {
  std::size_t attribute = 0;
  std::size_t value = 0;
  std::size_t subvalue = 0;

  Position(std::size_t a, std::size_t v = 0, std::size_t s = 0)
      : attribute(a), value(v), subvalue(s) {}
};

/// A record, an attribute, a value or a subvalue: a view of bytes that belong to somebody else and
/// must outlive it. As a range it walks the parts one level below; an empty field has none. Like
/// any view it becomes a std::string only where that is asked for: str(), or std::string(field).
class NOX_CLIENT_EXPORT FieldView {
public:
  enum class Level { Record, Attribute, Value, Subvalue };
  class Iterator;

  FieldView() = default;
  FieldView(std::string_view bytes, Level level) : bytes_(bytes), level_(level) {}

  operator std::string_view() const { return bytes_; }
  std::string_view view() const { return bytes_; }
  std::string str() const { return std::string(bytes_); }
  bool empty() const { return bytes_.empty(); }
  Level level() const { return level_; }

  /// Part `n`, empty where there is none. A subvalue has itself as its only part.
  FieldView operator[](std::size_t n) const;
  /// How many parts there are.
  std::size_t count() const;
  inline Iterator begin() const;
  inline Iterator end() const;
  /// The number of the first part that equals `text`; 0 where none does.
  std::size_t find(std::string_view text) const;

  /// The field as a decimal number, whatever the locale. Throws Error 22018 where it is none.
  std::int64_t toInt64() const;
  double toDouble() const;

  /// For people: see Record::toString.
  std::string toString() const;

private:
  std::string_view bytes_;
  Level level_ = Level::Record;
};

/// Walks the parts of a field.
class NOX_CLIENT_EXPORT FieldView::Iterator {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = FieldView;
  using difference_type = std::ptrdiff_t;
  using pointer = const FieldView*;
  using reference = const FieldView&;

  /// The end of any field.
  Iterator() = default;
  /// The first part.
  explicit Iterator(FieldView whole);

  reference operator*() const { return part_; }
  pointer operator->() const { return &part_; }
  Iterator& operator++();
  Iterator operator++(int) {
    Iterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const Iterator& a, const Iterator& b) { return a.at_ == b.at_; }
  friend bool operator!=(const Iterator& a, const Iterator& b) { return a.at_ != b.at_; }

private:
  void cut();

  const char* at_ = nullptr;  // where the part begins; null at the end
  std::string_view rest_;     // behind the part, from its mark on
  FieldView::Level level_ = FieldView::Level::Record;
  FieldView part_;
};

inline FieldView::Iterator FieldView::begin() const { return Iterator(*this); }
inline FieldView::Iterator FieldView::end() const { return {}; }

/// A place in a record that can be assigned to. It belongs to the record that made it, and is valid
/// while that record lives in its place.
class NOX_CLIENT_EXPORT FieldReference {
public:
  FieldReference(const FieldReference&) = default;

  operator FieldView() const { return get(); }
  operator std::string_view() const { return get(); }
  FieldView get() const;
  std::string_view view() const { return get().view(); }
  std::string str() const { return get().str(); }
  bool empty() const { return get().empty(); }
  FieldView::Level level() const { return get().level(); }
  std::size_t count() const { return get().count(); }
  FieldView::Iterator begin() const { return get().begin(); }
  FieldView::Iterator end() const { return {}; }
  std::size_t find(std::string_view text) const { return get().find(text); }
  std::int64_t toInt64() const { return get().toInt64(); }
  double toDouble() const { return get().toDouble(); }
  std::string toString() const { return get().toString(); }

  /// One level deeper. Throws std::out_of_range below a subvalue.
  FieldReference operator[](std::size_t n) const;

  const FieldReference& operator=(const FieldText& text) const;
  /// Copies the field's content.
  FieldReference& operator=(
      const FieldReference& other);  // NOLINT(misc-unconventional-assign-operator)

private:
  friend class Record;
  FieldReference(Record& record, Position at) : record_(&record), at_(at) {}

  Record* record_;
  Position at_;
};

// Fields compare with one another and with text, byte by byte.

template <class A, class B, std::enable_if_t<detail::AreComparable<A, B>::value, int> = 0>
bool operator==(const A& a, const B& b) {
  return std::string_view(a) == std::string_view(b);
}
template <class A, class B, std::enable_if_t<detail::AreComparable<A, B>::value, int> = 0>
bool operator!=(const A& a, const B& b) {
  return !(a == b);
}

/// A field's bytes, as any text is written.
NOX_CLIENT_EXPORT std::ostream& operator<<(std::ostream& out, FieldView field);

/// Any bytes; the marks among them divide the fields. Moving is as cheap as moving a std::string.
/// A plain value: threads may use different ones freely.
///
/// Fields are views of their record, so that a temporary record gives none: keep it in a variable.
class NOX_CLIENT_EXPORT Record {
public:
  Record() = default;
  /// The bytes as they are, marks and all.
  explicit Record(std::string bytes) : bytes_(std::move(bytes)) {}
  explicit Record(std::string_view bytes) : bytes_(bytes) {}
  explicit Record(const char* bytes) : bytes_(bytes) {}
  Record(std::nullptr_t) = delete;
  /// One attribute each: Record{"SMITH", "Oslo", 42}.
  Record(std::initializer_list<FieldText> attributes);
  /// The same from a range, such as a std::vector<std::string>.
  template <class Range, std::enable_if_t<detail::IsRangeOfTexts<Range>::value, int> = 0>
  explicit Record(const Range& attributes) {
    bool isFirst = true;
    for (const auto& attribute : attributes) {
      if (!isFirst) bytes_ += kAttributeMark;
      bytes_ += FieldText(attribute).view();
      isFirst = false;
    }
  }

  // Looking.

  /// Attribute `n`, as a place in this record.
  FieldReference operator[](std::size_t n) & { return FieldReference(*this, checked(n)); }
  FieldView operator[](std::size_t n) const& { return view()[n]; }
  FieldView operator[](std::size_t n) const&& = delete;
  /// The field, empty where there is none: record.value(3), record.value(3, 2, 1).
  FieldView value(std::size_t attribute, std::size_t value = 0, std::size_t subvalue = 0) const& {
    return get({attribute, value, subvalue});
  }
  FieldView value(std::size_t attribute, std::size_t value = 0,
                  std::size_t subvalue = 0) const&& = delete;
  FieldView get(Position at) const&;
  FieldView get(Position at) const&& = delete;
  FieldView view() const& { return {bytes_, FieldView::Level::Record}; }
  FieldView view() const&& = delete;
  /// Attributes; 0 for the empty record.
  std::size_t count() const { return view().count(); }
  bool empty() const { return bytes_.empty(); }
  /// Walks the attributes.
  FieldView::Iterator begin() const& { return view().begin(); }
  FieldView::Iterator begin() const&& = delete;
  FieldView::Iterator end() const { return {}; }
  /// The number of the first attribute that equals `text`; 0 where none does.
  std::size_t find(std::string_view text) const { return view().find(text); }
  const std::string& bytes() const& { return bytes_; }
  std::string bytes() && { return std::move(bytes_); }

  // Changing. `text` may hold marks, which then divide it, and may lie in this record.

  /// Replaces the field; what is missing before it is added empty.
  Record& set(Position at, const FieldText& text);
  /// A new field in front of the one at `at`, which moves on by one.
  Record& insert(Position at, const FieldText& text);
  /// Takes the field out; those behind it move up. Nothing happens where there is none.
  Record& remove(Position at);
  /// A new attribute behind the last. The empty record has none, so that an empty one cannot be
  /// appended to it: Record{"", "x"} and set() can begin with an empty attribute.
  Record& append(const FieldText& text);
  /// A new part behind the last of the field: append(3, t) adds a value to attribute 3,
  /// append({3, 2}, t) a subvalue to its second value.
  Record& append(Position of, const FieldText& text);

  // For people.

  /// Marks as "^", "]" and "\"; these, "~", control characters and what is no UTF-8 as "~" and two
  /// hexadecimal digits. `parse` gives the same bytes back.
  std::string toString() const { return view().toString(); }
  /// The reverse. Throws Error 22018 for a "~" that is not followed by two hexadecimal digits.
  static Record parse(std::string_view text);

  friend bool operator==(const Record& a, const Record& b) { return a.bytes_ == b.bytes_; }
  friend bool operator!=(const Record& a, const Record& b) { return a.bytes_ != b.bytes_; }
  // In the order of their bytes.
  friend bool operator<(const Record& a, const Record& b) { return a.bytes_ < b.bytes_; }
  friend bool operator>(const Record& a, const Record& b) { return a.bytes_ > b.bytes_; }
  friend bool operator<=(const Record& a, const Record& b) { return a.bytes_ <= b.bytes_; }
  friend bool operator>=(const Record& a, const Record& b) { return a.bytes_ >= b.bytes_; }

private:
  static std::size_t checked(std::size_t n);

  std::string bytes_;
};

/// As toString() shows it.
NOX_CLIENT_EXPORT std::ostream& operator<<(std::ostream& out, const Record& record);

}  // namespace nox::client

template <>
struct std::hash<nox::client::Record> {
  std::size_t operator()(const nox::client::Record& record) const noexcept {
    return std::hash<std::string>()(record.bytes());
  }
};
