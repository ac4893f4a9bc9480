// The account's files and their dictionaries, as far as the command uses them: which item is which
// attribute.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nox/client/client.h>

namespace nox::command {

/// A D item.
struct DictionaryItem {
  std::string name;
  std::size_t attribute = 0;  // 0: the id
};

/// The server takes no item with a higher number.
constexpr std::size_t kMostAttributes = 65'535;

/// Whether `file` is the dictionary of one: "DICT NAME".
bool isDictionary(const std::string& file);

/// The D items of a file, by attribute and name. Empty for a dictionary, which has none of its own.
std::vector<DictionaryItem> dictionaryOf(client::Connection& connection, const std::string& file);

/// The account's files.
std::vector<std::string> filesOf(client::Connection& connection);

/// The names by attribute number; the first of several, empty where there is none.
std::vector<std::string> namesByAttribute(const std::vector<DictionaryItem>& items);

}  // namespace nox::command
