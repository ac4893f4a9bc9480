#include "agent/commands/sort_key.h"

#include "agent/conversions/conversions.h"
#include "agent/conversions/numbers.h"
#include "agent/multivalue.h"

namespace nox::agent {

namespace {

// What stands in front of a value. The lowest ends the list, so that "A" sorts before "A]B".
constexpr char kEnd = '\x00';
constexpr char kEmpty = '\x01';
constexpr char kNumber = '\x02';
constexpr char kText = '\x03';

/// A text and its end: NULs inside it are marked, so that a shorter text sorts first.
void appendText(std::string& key, std::string_view text) {
  for (const char c : text) {
    key += c;
    if (c == '\0') key += '\xFF';
  }
  key.append(2, '\0');
}

}  // namespace

void appendSortKey(std::string& key, std::string_view values, bool asNumbers, bool descending) {
  const std::size_t begin = key.size();
  for (Fields value(values, kValue); value; value.next()) {
    if ((*value).empty()) {
      key += kEmpty;
    } else if (asNumbers && isNumber(*value)) {
      key += kNumber;
      key += sortableNumber(*value);
    } else {
      key += kText;
      appendText(key, *value);
    }
  }
  key += kEnd;
  if (!descending) return;
  for (std::size_t i = begin; i < key.size(); ++i) key[i] = static_cast<char>(~key[i]);
}

}  // namespace nox::agent
