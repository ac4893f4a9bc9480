#include "agent/multivalue.h"

#include <algorithm>
#include <array>

namespace nox::agent {

namespace {

constexpr std::array<char, 3> kMarks = {kAttribute, kValue, kSubvalue};

/// The field numbers of a position, outermost first, up to the first 0.
struct Path {
  std::array<int, 3> numbers{};
  std::size_t depth = 0;
};

Path pathOf(Position at) {
  Path path;
  for (const int number : {at.attribute, at.value, at.subvalue}) {
    if (number == 0) break;
    path.numbers[path.depth++] = number;
  }
  return path;
}

/// Where field `number` of `text` lies, and how many marks are missing in front of it.
struct Place {
  std::size_t begin = 0;
  std::size_t length = 0;
  std::size_t missing = 0;
  bool exists = true;
};

Place find(std::string_view text, int number, char mark) {
  Place place;
  if (number < 0) {  // behind the last
    place.begin = text.size();
    place.missing = text.empty() ? 0 : 1;
    place.exists = false;
    return place;
  }
  for (int field = 1; field < number; ++field) {
    const std::size_t end = text.find(mark, place.begin);
    if (end == std::string_view::npos) {
      place.begin = text.size();
      place.missing = static_cast<std::size_t>(number - field);
      place.exists = false;
      return place;
    }
    place.begin = end + 1;
  }
  place.length = std::min(text.find(mark, place.begin), text.size()) - place.begin;
  return place;
}

enum class Edit { Replace, Insert };

std::string edit(std::string_view text, const Path& path, std::size_t level, std::string_view value,
                 Edit how) {
  const char mark = kMarks[level];
  const Place place = find(text, path.numbers[level], mark);
  const bool last = level + 1 == path.depth;
  const std::string_view old = text.substr(place.begin, place.length);
  std::string result(text.substr(0, place.begin));
  result.append(place.missing, mark);
  if (!last) {
    result += edit(old, path, level + 1, value, how);
  } else {
    result += value;
    if (how == Edit::Insert && place.exists) {
      result += mark;
      result += old;
    }
  }
  result += text.substr(place.begin + place.length);
  return result;
}

std::string erase(std::string_view text, const Path& path, std::size_t level) {
  const char mark = kMarks[level];
  const Place place = find(text, path.numbers[level], mark);
  if (!place.exists) return std::string(text);
  std::string result(text.substr(0, place.begin));
  std::string_view tail = text.substr(place.begin + place.length);
  if (level + 1 < path.depth) {
    result += erase(text.substr(place.begin, place.length), path, level + 1);
  } else if (!tail.empty()) {
    tail.remove_prefix(1);  // the mark behind it goes with the field,
  } else if (!result.empty()) {
    result.pop_back();  // or the one in front of it
  }
  result += tail;
  return result;
}

}  // namespace

std::string_view extract(std::string_view record, Position at) {
  const Path path = pathOf(at);
  for (std::size_t level = 0; level < path.depth; ++level) {
    const Place place = find(record, path.numbers[level], kMarks[level]);
    if (!place.exists) return {};
    record = record.substr(place.begin, place.length);
  }
  return record;
}

std::string replace(std::string_view record, Position at, std::string_view value) {
  const Path path = pathOf(at);
  return path.depth == 0 ? std::string(value) : edit(record, path, 0, value, Edit::Replace);
}

std::string insert(std::string_view record, Position at, std::string_view value) {
  const Path path = pathOf(at);
  return path.depth == 0 ? std::string(value) : edit(record, path, 0, value, Edit::Insert);
}

std::string remove(std::string_view record, Position at) {
  const Path path = pathOf(at);
  return path.depth == 0 ? std::string() : erase(record, path, 0);
}

std::size_t dcount(std::string_view text, char delimiter) {
  if (text.empty()) return 0;
  return 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), delimiter));
}

}  // namespace nox::agent
