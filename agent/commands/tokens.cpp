#include "agent/commands/tokens.h"

#include <algorithm>

#include "agent/failure.h"

namespace nox::agent {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::size_t charactersIn(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

void checkLine(std::string_view line) {
  const auto refuse = [](const char* why) { throw Failure("IE", "011", why); };
  if (line.size() > kLongestCommand) refuse("a command has at most 1 MiB");
  if (!isUtf8(line)) refuse("a command is UTF-8 text, without marks");
  if (std::any_of(line.begin(), line.end(),
                  [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\t'; })) {
    refuse("a command is one line, without control characters");
  }
}

}  // namespace

std::vector<Token> tokensOf(std::string_view line) {
  checkLine(line);
  std::vector<Token> tokens;
  std::size_t at = 0;
  std::size_t position = 1;
  const auto moveTo = [&](std::size_t next) {
    position += charactersIn(line.substr(at, next - at));
    at = next;
  };
  while (true) {
    std::size_t begin = at;
    while (begin < line.size() && isBlank(line[begin])) ++begin;
    moveTo(begin);
    Token token;
    token.word.position = position;
    if (at == line.size()) {
      tokens.push_back(std::move(token));
      return tokens;
    }
    const char quote = line[at];
    if (quote == '\'' || quote == '"') {
      const std::size_t end = line.find(quote, at + 1);
      if (end == std::string_view::npos) {
        token.word.text = line.substr(at);
        refuseWord(token.word, "the quote is not closed");
      }
      token.kind = quote == '"' ? Token::Kind::Text : Token::Kind::Id;
      token.word.text = line.substr(at + 1, end - at - 1);
      moveTo(end + 1);
    } else {
      const std::size_t end = static_cast<std::size_t>(
          std::find_if(line.begin() + static_cast<std::ptrdiff_t>(at), line.end(), isBlank) -
          line.begin());
      token.kind = Token::Kind::Plain;
      token.word.text = line.substr(at, end - at);
      moveTo(end);
    }
    tokens.push_back(std::move(token));
  }
}

}  // namespace nox::agent
