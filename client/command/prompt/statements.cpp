#include "client/command/prompt/statements.h"

#include <algorithm>
#include <utility>

#include "client/command/context.h"

namespace nox::command {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// The words up to the third, in capitals.
std::vector<std::string> firstWords(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty() && words.size() < 3) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) break;
    const std::size_t end = std::min(text.find_first_of(kBlanks, begin), text.size());
    words.push_back(upperCase(text.substr(begin, end - begin)));
    text.remove_prefix(end);
  }
  return words;
}

/// SELECT FILE, SELECT DICT FILE, SELECT FILE 'id' ..., SELECT FILE WITH ... and BY ...: the
/// command.
bool isSelectCommand(const std::vector<std::string>& words) {
  if (words.size() < 2) return false;
  const std::string& target = words[1];
  const bool isName =
      target.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._$-") == std::string::npos;
  if (!isName || target == "DISTINCT" || target == "ALL") return false;
  if (words.size() == 2 || target == "DICT") return true;
  return words[2] == "WITH" || words[2] == "BY" || words[2] == "BY-DSND" || words[2][0] == '\'';
}

}  // namespace

bool isOneOf(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool beginsSql(std::string_view line) {
  const std::vector<std::string> words = firstWords(line);
  if (words.empty() || !isOneOf(sqlVerbs(), words[0])) return false;
  return words[0] != "SELECT" || !isSelectCommand(words);
}

std::optional<Statement> StatementReader::add(std::string_view line) {
  const std::string_view text = trimmed(line);
  if (!isOpen()) {
    if (text.empty() || text.front() == '#' || text.substr(0, 2) == "--") return std::nullopt;
    if (text.front() == '\\') return Statement{Statement::Kind::Meta, std::string(text.substr(1))};
  }
  const bool ends = !text.empty() && text.back() == ';';
  if (!isOpen() && !ends && !beginsSql(text)) {
    return Statement{Statement::Kind::Command, std::string(text)};
  }
  if (isOpen()) sql_ += '\n';
  sql_ += line;
  if (!ends) return std::nullopt;
  std::string sql = drop();
  sql.erase(sql.find_last_of(';'));
  return Statement{Statement::Kind::Sql, std::move(sql)};
}

std::string StatementReader::drop() { return std::exchange(sql_, std::string()); }

std::vector<std::string> splitWords(std::string_view text) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  char quote = '\0';
  for (const char c : text) {
    if (quote != '\0') {
      if (c == quote) {
        quote = '\0';
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      inWord = true;
    } else if (kBlanks.find(c) != std::string_view::npos) {
      if (inWord) words.push_back(std::exchange(word, std::string()));
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (quote != '\0') throw UsageError("a quotation does not end");
  if (inWord) words.push_back(std::move(word));
  return words;
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

const std::vector<std::string>& commandVerbs() {
  static const std::vector<std::string> verbs = {
      "CLEAR-FILE",  "CLEARSELECT", "COUNT",   "CREATE-FILE", "DATE", "DELETE-FILE",
      "DELETE-LIST", "GET-LIST",    "LIST",    "LISTF",       "RUN",  "SAVE-LIST",
      "SELECT",      "SORT",        "SSELECT", "TIME",        "WHO"};
  return verbs;
}

const std::vector<std::string>& sqlVerbs() {
  static const std::vector<std::string> verbs = {"ALTER",   "CREATE", "DELETE",  "DROP",
                                                 "EXPLAIN", "INSERT", "REPLACE", "SELECT",
                                                 "UPDATE",  "VALUES", "WITH"};
  return verbs;
}

}  // namespace nox::command
