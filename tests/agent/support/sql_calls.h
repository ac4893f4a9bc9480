// The SQL requests of a client as calls, and their answers as short texts that a test can compare.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "agent/store/store.h"
#include "tests/agent/support/client_calls.h"

namespace nox::agent::test {

/// A parameter: its text, or null; and its type.
struct SqlParameter {
  SqlParameter(const char* itsText, int itsType = SqlType::kText)
      : text(itsText ? std::optional<std::string>(itsText) : std::nullopt), type(itsType) {}
  SqlParameter(std::string itsText, int itsType = SqlType::kText)
      : text(std::move(itsText)), type(itsType) {}

  std::optional<std::string> text;
  int type;
};

std::unique_ptr<noxp::ACEBinaryFormatParameterListProt> parameterList(
    const std::vector<SqlParameter>& parameters);

/// Answers read: "1 ok"; "1 changed 3"; "1 rows a,b|c,-", with the statement's id first, "|"
/// between rows, and "-" for null (the byte 80); an error as `errorOf` says it, with the statement
/// that it is about in front: "1 42/S02". What is none of these: the class of the reply.
class SqlCalls {
public:
  explicit SqlCalls(ClientCalls& client) : client_(client) {}

  std::string compile(std::string_view sql);
  std::string precompile(std::string_view sql);
  std::string bind(int id, const std::vector<SqlParameter>& parameters);
  std::string execute(int id);
  std::string run(std::string_view sql);
  std::string fetch(int id, int rows);
  std::string release(int id);
  /// "1 columns NAME:type ... parameters NAME:type ...".
  std::string describe(int id);
  std::string load(const char* subroutine);
  /// "1 left a,b".
  std::string call(int id, const std::vector<SqlParameter>& parameters = {});
  std::string catalog(const char* property, const std::vector<SqlParameter>& patterns = {});

  std::string begin();
  std::string commit();
  std::string rollback();

  /// Runs a statement that is not to stay, and says what came without the id.
  std::string once(std::string_view sql, const std::vector<SqlParameter>& parameters = {});

  /// The message of the last answer, where that was an error.
  const std::string& message() const { return message_; }
  std::string say(noxp::RequestProt& request);
  std::string say(noxp::RequestProt&& request) { return say(request); }

private:
  ClientCalls& client_;
  std::string message_;
};

}  // namespace nox::agent::test
