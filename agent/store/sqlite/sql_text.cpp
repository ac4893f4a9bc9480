#include "agent/store/sqlite/sql_text.h"

namespace nox::agent {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == ';';
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

/// Behind the end of the comment that `text` begins with; a comment may lack its end.
std::size_t commentLength(std::string_view text, std::string_view end) {
  const std::size_t at = text.find(end, 2);
  return at == std::string_view::npos ? text.size() : at + end.size();
}

}  // namespace

std::string_view withoutLeadingBlanks(std::string_view text) {
  while (!text.empty()) {
    if (isBlank(text.front())) {
      text.remove_prefix(1);
    } else if (text.substr(0, 2) == "--") {
      text.remove_prefix(commentLength(text, "\n"));
    } else if (text.substr(0, 2) == "/*") {
      text.remove_prefix(commentLength(text, "*/"));
    } else {
      break;
    }
  }
  return text;
}

std::string firstWord(std::string_view text) {
  std::string word;
  for (const char c : text) {
    if (!isLetter(c)) break;
    word += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return word;
}

std::string quotedName(std::string_view name) {
  std::string result(1, '"');
  for (const char c : name) {
    if (c == '"') result += c;
    result += c;
  }
  return result + '"';
}

}  // namespace nox::agent
