// Lines of the prompt, put together to statements.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nox::command {

struct Statement {
  enum class Kind {
    Meta,     // \word: a subcommand or a switch of the prompt
    Command,  // a line of the command language
    Sql       // up to a semicolon
  };
  Kind kind = Kind::Command;
  std::string text;  // without the backslash, and without the semicolon and what is behind it
};

/// Whether the account has a file of that name.
using IsFile = std::function<bool(const std::string&)>;

/// A line that begins with a backslash is one of the prompt's own. SQL goes on to a semicolon
/// behind which a line holds nothing but comments; one in a quotation, a comment or the body of a
/// trigger ends nothing. A line is taken for SQL when it ends that way, or begins with a verb of
/// SQL. Lines of the command language are always whole: SELECT is one of them unless it is followed
/// by more than a file and its clauses. "--" at the begin of a line, and "#", begin a comment.
class StatementReader {
public:
  explicit StatementReader(IsFile isFile) : isFile_(std::move(isFile)) {}

  /// Takes a line; a statement when it is whole.
  std::optional<Statement> add(std::string_view line);
  /// Whether SQL has begun and not ended.
  bool isOpen() const { return !sql_.empty(); }
  /// SQL that was begun; empty where there is none. Drops it.
  std::string drop();

private:
  IsFile isFile_;
  std::string sql_;
};

/// Whether a line that ends with no semicolon begins SQL all the same. `isFile` is asked about
/// SELECT with a single word, and not elsewhere.
bool beginsSql(std::string_view line, const IsFile& isFile);

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
