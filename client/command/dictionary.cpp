#include "client/command/dictionary.h"

#include <algorithm>
#include <charconv>
#include <tuple>

namespace nox::command {

namespace {

/// The attribute that a dictionary record describes; nothing for other kinds of records.
std::optional<std::size_t> attributeOf(const client::Record& record) {
  // A description may follow the letter.
  const std::string_view kind = record.value(1);
  if (kind.substr(0, kind.find(' ')) != "D") return std::nullopt;
  const std::string_view text = record.value(2);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > kMostAttributes) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

bool isDictionary(const std::string& file) { return file.compare(0, 5, "DICT ") == 0; }

std::vector<DictionaryItem> dictionaryOf(client::Connection& connection, const std::string& file) {
  std::vector<DictionaryItem> items;
  if (isDictionary(file)) return items;
  client::File dictionary = connection.file("DICT " + file);
  client::SelectList list = dictionary.select().withRecords();
  for (const client::SelectList::Entry& entry : list) {
    if (!entry.hasRecord()) continue;
    if (const auto attribute = attributeOf(entry.record())) {
      items.push_back({entry.id(), *attribute});
    }
  }
  std::sort(items.begin(), items.end(), [](const DictionaryItem& a, const DictionaryItem& b) {
    return std::tie(a.attribute, a.name) < std::tie(b.attribute, b.name);
  });
  return items;
}

std::vector<std::string> filesOf(client::Connection& connection) {
  std::vector<std::string> names;
  const client::CommandResult listed = connection.execute("LISTF");
  for (const client::FieldView line : listed.output) {
    if (line.empty()) break;  // how many there are follows
    names.push_back(line.str());
  }
  return names;
}

std::vector<std::string> namesByAttribute(const std::vector<DictionaryItem>& items) {
  std::vector<std::string> names;
  for (const DictionaryItem& item : items) {
    if (item.attribute >= names.size()) names.resize(item.attribute + 1);
    if (names[item.attribute].empty()) names[item.attribute] = item.name;
  }
  return names;
}

}  // namespace nox::command
