// Record: a MultiValue record as a dynamic array of attributes, values and subvalues.
//
//   Record person{"SMITH", "Oslo", ""};
//   person[3][2] = "second phone";       // fields in between come into being, empty
//   person.append(3, "third phone");     // a new value of attribute 3
//   for (std::string_view phone : person[3]) ...
//
// All numbers count from 1; 0 throws std::out_of_range where a field is asked for by it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
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

class Record;

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
/// must outlive it. As a range it walks the parts one level below; an empty field has none.
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

  friend bool operator==(FieldView a, std::string_view b) { return a.bytes_ == b; }
  friend bool operator==(std::string_view a, FieldView b) { return a == b.bytes_; }
  friend bool operator==(FieldView a, FieldView b) { return a.bytes_ == b.bytes_; }
  friend bool operator!=(FieldView a, std::string_view b) { return a.bytes_ != b; }
  friend bool operator!=(std::string_view a, FieldView b) { return a != b.bytes_; }
  friend bool operator!=(FieldView a, FieldView b) { return a.bytes_ != b.bytes_; }

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
  std::size_t count() const { return get().count(); }
  FieldView::Iterator begin() const { return get().begin(); }
  FieldView::Iterator end() const { return {}; }
  std::int64_t toInt64() const { return get().toInt64(); }
  double toDouble() const { return get().toDouble(); }

  /// One level deeper. Throws std::out_of_range below a subvalue.
  FieldReference operator[](std::size_t n) const;

  const FieldReference& operator=(std::string_view text) const;
  const FieldReference& operator=(const char* text) const { return *this = std::string_view(text); }
  const FieldReference& operator=(const std::string& text) const {
    return *this = std::string_view(text);
  }
  const FieldReference& operator=(FieldView other) const;
  /// Copies the field's content.
  FieldReference& operator=(
      const FieldReference& other);  // NOLINT(misc-unconventional-assign-operator)
  /// In decimal.
  template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
  const FieldReference& operator=(Number number) const {
    return *this = std::string_view(std::to_string(number));
  }

  friend bool operator==(const FieldReference& a, std::string_view b) { return a.view() == b; }
  friend bool operator==(std::string_view a, const FieldReference& b) { return a == b.view(); }
  friend bool operator!=(const FieldReference& a, std::string_view b) { return a.view() != b; }
  friend bool operator!=(std::string_view a, const FieldReference& b) { return a != b.view(); }

private:
  friend class Record;
  FieldReference(Record& record, Position at) : record_(&record), at_(at) {}

  Record* record_;
  Position at_;
};

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
  /// One attribute each: Record{"SMITH", "Oslo"}.
  Record(std::initializer_list<std::string_view> attributes);

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
  const std::string& bytes() const& { return bytes_; }
  std::string bytes() && { return std::move(bytes_); }

  // Changing. `text` may hold marks, which then divide it, and may lie in this record.

  /// Replaces the field; what is missing before it is added empty.
  Record& set(Position at, std::string_view text);
  /// A new field in front of the one at `at`, which moves on by one.
  Record& insert(Position at, std::string_view text);
  /// Takes the field out; those behind it move up. Nothing happens where there is none.
  Record& remove(Position at);
  /// A new attribute behind the last. The first of an empty record becomes its first.
  Record& append(std::string_view text);
  /// A new part behind the last of the field: append(3, t) adds a value to attribute 3,
  /// append({3, 2}, t) a subvalue to its second value.
  Record& append(Position of, std::string_view text);

  // For people.

  /// Marks as "^", "]" and "\"; these, "~", control characters and what is no UTF-8 as "~" and two
  /// hexadecimal digits. `parse` gives the same bytes back.
  std::string toString() const;
  /// The reverse. Throws Error 22018 for a "~" that is not followed by two hexadecimal digits.
  static Record parse(std::string_view text);

  friend bool operator==(const Record& a, const Record& b) { return a.bytes_ == b.bytes_; }
  friend bool operator!=(const Record& a, const Record& b) { return a.bytes_ != b.bytes_; }

private:
  static std::size_t checked(std::size_t n);

  std::string bytes_;
};

}  // namespace nox::client
