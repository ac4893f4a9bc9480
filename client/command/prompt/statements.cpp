#include "client/command/prompt/statements.h"

#include <sqlite3.h>

#include <algorithm>

#include "client/command/context.h"

namespace nox::command {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// The words up to the third.
std::vector<std::string> firstWords(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty() && words.size() < 3) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) break;
    const std::size_t end = std::min(text.find_first_of(kBlanks, begin), text.size());
    words.emplace_back(text.substr(begin, end - begin));
    text.remove_prefix(end);
  }
  return words;
}

/// SELECT FILE, SELECT DICT FILE, SELECT FILE 'id' ..., SELECT FILE WITH ... and BY ...: the
/// command.
bool isSelectCommand(const std::vector<std::string>& words, const IsFile& isFile) {
  if (words.size() < 2) return false;
  const std::string target = upperCase(words[1]);
  const bool isName =
      target.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._$-") == std::string::npos;
  if (!isName || target == "DISTINCT" || target == "ALL") return false;
  // SELECT ID may go on in the next line.
  if (words.size() == 2) return isFile(words[1]);
  if (target == "DICT") return true;
  const std::string clause = upperCase(words[2]);
  return clause == "WITH" || clause == "BY" || clause == "BY-DSND" || clause[0] == '\'';
}

/// Whether SQL ends with its last semicolon, of which quotations, comments and the bodies of
/// triggers may hold others: the store's own opinion.
bool isWhole(const std::string& sql) { return sqlite3_complete(sql.c_str()) != 0; }

/// What stands before the semicolon that makes `sql` whole, which it is.
std::string withoutEnd(std::string sql) {
  std::size_t end = sql.rfind(';');
  while (isWhole(sql.substr(0, end)) || !isWhole(sql.substr(0, end + 1))) {
    end = sql.rfind(';', end - 1);
  }
  sql.erase(end);
  return sql;
}

}  // namespace

bool isOneOf(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool beginsSql(std::string_view line, const IsFile& isFile) {
  const std::vector<std::string> words = firstWords(line);
  if (words.empty()) return false;
  const std::string verb = upperCase(words[0]);
  return isOneOf(sqlVerbs(), verb) && (verb != "SELECT" || !isSelectCommand(words, isFile));
}

std::optional<Statement> StatementReader::add(std::string_view line) {
  const std::string_view text = trimmed(line);
  if (!isOpen()) {
    if (text.empty() || text.front() == '#' || text.substr(0, 2) == "--") return std::nullopt;
    if (text.front() == '\\') return Statement{Statement::Kind::Meta, std::string(text.substr(1))};
  }
  const bool goesOn = isOpen();
  if (goesOn) sql_ += '\n';
  sql_ += line;
  // What can end SQL: for no other line is all that came before looked through again.
  const bool mayEnd =
      line.find(';') != std::string_view::npos || line.find("*/") != std::string_view::npos;
  if (mayEnd && isWhole(sql_)) return Statement{Statement::Kind::Sql, withoutEnd(drop())};
  if (goesOn) return std::nullopt;
  std::string begun = drop();
  if (!beginsSql(text, isFile_)) return Statement{Statement::Kind::Command, std::string(text)};
  sql_ = std::move(begun);
  return std::nullopt;
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
