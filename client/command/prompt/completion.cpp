#include "client/command/prompt/completion.h"

#include <algorithm>
#include <set>

#include "client/command/commands.h"
#include "client/command/output/rows.h"
#include "client/command/prompt/statements.h"

namespace nox::command {

namespace {

using Words = std::vector<std::string>;

/// Where the word at the end of `text` begins.
std::size_t wordBegin(std::string_view text, std::string_view dividers) {
  const std::size_t divider = text.find_last_of(dividers);
  return divider == std::string_view::npos ? 0 : divider + 1;
}

Words wordsOf(std::string_view text, std::string_view dividers) {
  Words words;
  while (!text.empty()) {
    const std::size_t begin = text.find_first_not_of(dividers);
    if (begin == std::string_view::npos) break;
    const std::size_t end = std::min(text.find_first_of(dividers, begin), text.size());
    words.emplace_back(text.substr(begin, end - begin));
    text.remove_prefix(end);
  }
  return words;
}

/// Sorted, without doubles, and those alone that begin like `begun`.
Words matching(const Words& all, std::string_view begun) {
  std::set<std::string> found;
  const std::string wanted = upperCase(begun);
  for (const std::string& each : all) {
    if (upperCase(std::string_view(each).substr(0, wanted.size())) == wanted) found.insert(each);
  }
  return {found.begin(), found.end()};
}

void append(Words& to, const Words& more) { to.insert(to.end(), more.begin(), more.end()); }

/// \read and its kin: their options, and files for the arguments of that name.
Words afterMeta(const Words& words, std::string_view begun, NameSource& names) {
  if (words[0] == "\\format") return words.size() == 1 ? formatNames() : Words();
  const CommandSpec* const command = findCommand(words[0].substr(1));
  if (!command) return {};
  Words candidates;
  if (!begun.empty() && begun.front() == '-') {
    for (const OptionSpec& option : command->options) candidates.emplace_back(option.name);
    return candidates;
  }
  if (words.size() > 1) {
    for (const OptionSpec& option : command->options) {
      if (words.back() == option.name) return option.choices;
    }
  }
  const std::size_t given = static_cast<std::size_t>(
      std::count_if(words.begin() + 1, words.end(),
                    [](const std::string& word) { return word.compare(0, 1, "-") != 0; }));
  if (given >= command->arguments.size()) return {};
  const ArgumentSpec& argument = command->arguments[given];
  if (!argument.choices.empty()) return argument.choices;
  return std::string_view(argument.name) == "FILE" ? names.files() : Words();
}

Words afterCommand(const Words& words, NameSource& names) {
  const std::string verb = upperCase(words[0]);
  const bool queries =
      verb == "LIST" || verb == "SORT" || verb == "COUNT" || verb == "SELECT" || verb == "SSELECT";
  const bool takesFile = queries || verb == "CLEAR-FILE" || verb == "DELETE-FILE";
  if (!takesFile) return {};
  const bool isDict = words.size() > 1 && upperCase(words[1]) == "DICT";
  const std::size_t fileAt = isDict ? 2 : 1;
  if (words.size() == fileAt) {
    Words candidates = names.files();
    if (queries && !isDict) candidates.emplace_back("DICT");
    return candidates;
  }
  if (!queries) return {};
  Words candidates = {"AND", "BY", "BY-DSND", "EVERY", "LIKE", "OR", "WITH"};
  if (verb == "LIST" || verb == "SORT") append(candidates, {"FIRST", "HDR-SUPP", "ID-SUPP"});
  // Dictionaries all have the same dictionary.
  static const Words kItemsOfDictionaries = {"CONV", "FORMAT", "HEADING", "LOC", "SM", "TYPE"};
  append(candidates, isDict ? kItemsOfDictionaries : names.items(words[fileAt]));
  return candidates;
}

Words afterSql(const Words& words, const Words& wordsBehind, NameSource& names) {
  static const Words kBeforeTable = {"FROM", "JOIN", "INTO", "UPDATE", "TABLE"};
  if (isOneOf(kBeforeTable, upperCase(words.back()))) return names.tables();
  Words candidates = {"AND",   "AS",     "BY",    "CASE",   "COUNT(*)", "DISTINCT", "FROM",
                      "GROUP", "HAVING", "IN",    "INTO",   "IS",       "JOIN",     "LEFT",
                      "LIKE",  "LIMIT",  "NOT",   "NULL",   "ON",       "OR",       "ORDER",
                      "SET",   "TABLE",  "UNION", "VALUES", "WHERE"};
  const Words tables = names.tables();
  Words all = words;
  append(all, wordsBehind);
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    if (!isOneOf(kBeforeTable, upperCase(all[i]))) continue;
    for (const std::string& table : tables) {
      if (upperCase(table) == upperCase(all[i + 1])) append(candidates, names.columns(table));
    }
  }
  return candidates;
}

}  // namespace

Completion complete(std::string_view text, std::string_view behind, NameSource& names) {
  constexpr std::string_view kBlanks = " \t\n";
  constexpr std::string_view kSqlDividers = " \t\n,()=<>;";
  Completion completion;
  const bool isMeta = !text.empty() && text.front() == '\\';
  const std::string verb = [&] {
    const Words first = wordsOf(text.substr(0, std::min<std::size_t>(text.size(), 40)), kBlanks);
    return first.empty() ? std::string() : upperCase(first[0]);
  }();
  const bool isSql = !isMeta && isOneOf(sqlVerbs(), verb);
  completion.begin = wordBegin(text, kBlanks);
  Words before = wordsOf(text.substr(0, completion.begin), kBlanks);
  Words candidates;
  if (before.empty()) {
    if (isMeta) {
      for (const CommandSpec& command : commands()) {
        candidates.push_back(std::string("\\") + command.name);
      }
      append(candidates, {"\\?", "\\format", "\\q", "\\timing", "\\x"});
    } else {
      append(candidates, commandVerbs());
      append(candidates, sqlVerbs());
    }
  } else if (isMeta) {
    candidates = afterMeta(before, text.substr(completion.begin), names);
  } else {
    const Words wordsBehind = wordsOf(behind, kSqlDividers);
    // The word that is begun may become any.
    const std::string around = std::string(text.substr(0, completion.begin)).append(behind);
    // SELECT alone may be either.
    const bool both = verb == "SELECT" && before.size() == 1 && wordsBehind.empty();
    const bool isBegun = isSql && !both && beginsSql(around, [&](const std::string& name) {
                           return isOneOf(names.files(), name);
                         });
    if (!isBegun) {
      candidates = afterCommand(before, names);
    } else {
      completion.begin = wordBegin(text, kSqlDividers);
      before = wordsOf(text.substr(0, completion.begin), kSqlDividers);
      candidates = afterSql(before, wordsBehind, names);
    }
  }
  completion.candidates = matching(candidates, text.substr(completion.begin));
  return completion;
}

std::string commonBegin(const std::vector<std::string>& candidates) {
  if (candidates.empty()) return {};
  std::string common = candidates[0];
  for (const std::string& each : candidates) {
    const auto [a, b] = std::mismatch(common.begin(), common.end(), each.begin(), each.end());
    static_cast<void>(b);
    common.erase(a, common.end());
  }
  return common;
}

}  // namespace nox::command
