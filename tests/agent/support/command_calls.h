// Commands, queries, conversions and subroutines as calls, and their replies as texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nox/nox.h>

#include "tests/agent/support/client_calls.h"

namespace nox::agent::test {

/// Marks that a test can type: "^" for the attribute mark, "]" for the value mark, "\" for the
/// subvalue mark.
std::string marked(std::string text);
std::string unmarked(std::string text);

/// What a command answered. Texts are unmarked, but the output has a line feed between lines.
struct CommandReply {
  std::string error;    // "IE/011: the reason"; empty: none
  int prompt = 0;       // 1 and 2: it waits for input, hidden with 2
  std::string output;   // what it printed
  std::string setting;  // "0^3"
  std::string list;     // as `describe` says; "none"

  /// The output, or the error.
  std::string text() const { return error.empty() ? output : error; }
};

/// `version`: that of the request's layout; the list travels in 1 only.
CommandReply execute(ClientCalls& client, std::string_view command,
                     noxp::remote::SelectListProt* list = nullptr, unsigned int version = 1);
/// Answers a prompt.
CommandReply answer(ClientCalls& client, std::string_view input);

struct QueryReply {
  std::string error;
  std::string heading;
  std::string list;  // id and keys of the first chunk
  int id = 0;
};

QueryReply query(ClientCalls& client, const char* text,
                 noxp::remote::SelectListProt* list = nullptr, unsigned int version = 1);

struct RowsReply {
  std::string error;
  int status = -1;
  std::vector<std::string> rows;
  std::vector<int> types;
};

RowsReply fetchRows(ClientCalls& client, int id, int rows);
/// All rows, fetched `atOnce` at a time.
std::vector<std::string> allRows(ClientCalls& client, int id, int atOnce);

/// The result, or "22/007: the reason". Both texts are marked.
std::string convertAt(ClientCalls& client, int type, std::string_view data,
                      std::string_view conversion);

/// A parameter and its type; nothing: null.
using Parameter = std::pair<std::optional<std::string>, int>;
struct SubroutineReply {
  std::string error;
  int prompt = 0;
  std::string output;
  int status = -1;
  std::vector<Parameter> parameters;
};

/// Null parameters: the request has none.
SubroutineReply call(ClientCalls& client, const char* name,
                     const std::optional<std::vector<Parameter>>& parameters);
SubroutineReply answerSubroutine(ClientCalls& client, std::string_view input);

/// A client's own list of keys, which travels with a command.
noxp::remote::SelectListProt listOf(const std::vector<std::string>& keys);

}  // namespace nox::agent::test
