// Records as dynamic arrays: attributes, values and subvalues divided by marks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nox::agent {

constexpr char kAttribute = '\xFE';
constexpr char kValue = '\xFD';
constexpr char kSubvalue = '\xFC';

/// A place in a record, each number from 1; 0 means the whole level above, -1 behind the last.
struct Position {
  int attribute = 0;
  int value = 0;
  int subvalue = 0;
};

/// The field at `at`, empty where there is none. The view lies in `record`.
std::string_view extract(std::string_view record, Position at);
/// `record` with the field at `at` replaced; missing fields before it are added empty.
std::string replace(std::string_view record, Position at, std::string_view value);
/// `record` with a new field in front of the one at `at`.
std::string insert(std::string_view record, Position at, std::string_view value);
/// `record` without the field at `at`.
std::string remove(std::string_view record, Position at);
/// How many fields `delimiter` divides `text` into; 0 for an empty text.
std::size_t dcount(std::string_view text, char delimiter);

/// Walks the fields of a text: for (Fields f(text, kValue); f; f.next()) use(*f). An empty text has
/// one empty field.
class Fields {
public:
  Fields(std::string_view text, char delimiter) : rest_(text), delimiter_(delimiter) { cut(); }
  explicit operator bool() const { return !over_; }
  std::string_view operator*() const { return field_; }
  void next() {
    if (last_) {
      over_ = true;
    } else {
      cut();
    }
  }

private:
  void cut() {
    const std::size_t end = rest_.find(delimiter_);
    field_ = rest_.substr(0, end);
    last_ = end == std::string_view::npos;
    if (!last_) rest_.remove_prefix(end + 1);
  }

  std::string_view rest_;
  std::string_view field_;
  char delimiter_;
  bool last_ = false;
  bool over_ = false;
};

}  // namespace nox::agent
