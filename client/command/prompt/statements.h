// Lines of the prompt, put together to statements.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nox::command {

struct Statement {
  enum class Kind {
    Meta,     // \word: a subcommand or a switch of the prompt
    Command,  // a line of the command language
    Sql       // up to a semicolon
  };
  Kind kind = Kind::Command;
  std::string text;  // without the backslash, and without the semicolon
};

/// A line that begins with a backslash is one of the prompt's own. SQL goes on to a semicolon that
/// ends a line: a line is taken for SQL when it ends with one, or begins with a verb of SQL. Lines
/// of the command language are always whole: SELECT is one of them unless it is followed by more
/// than a file and its clauses. "--" at the begin of a line, and "#", begin a comment.
class StatementReader {
public:
  /// Takes a line; a statement when it is whole.
  std::optional<Statement> add(std::string_view line);
  /// Whether SQL has begun and not ended.
  bool isOpen() const { return !sql_.empty(); }
  /// SQL that was begun; empty where there is none. Drops it.
  std::string drop();

private:
  std::string sql_;
};

/// Whether a line that ends with no semicolon begins SQL all the same.
bool beginsSql(std::string_view line);

/// Words divided by blanks; '...' and "..." hold words together. Throws UsageError for a quotation
/// that does not end.
std::vector<std::string> splitWords(std::string_view text);

/// ASCII alone, whatever the locale.
std::string upperCase(std::string_view text);

bool isOneOf(const std::vector<std::string>& words, const std::string& word);

/// The verbs of the command language and of SQL, for completion.
const std::vector<std::string>& commandVerbs();
const std::vector<std::string>& sqlVerbs();

}  // namespace nox::command
