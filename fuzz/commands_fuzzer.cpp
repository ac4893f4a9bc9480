// The command language: the input as a line, and as a text with a pattern and a value to compare.
#include <string>
#include <string_view>

#include "agent/commands/filter.h"
#include "agent/commands/grammar.h"
#include "agent/failure.h"
#include "fuzz/fuzz_target.h"

namespace {

using nox::agent::Command;
using nox::agent::Failure;
using nox::fuzz::require;

/// Which command a line is; -1 for none.
int kindOf(std::string_view line) {
  try {
    return static_cast<int>(nox::agent::parseCommand(line).index());
  } catch (const Failure& failure) {
    const std::string& sqlClass = failure.state().sqlClass;
    require(sqlClass == "IE" || sqlClass == "22", "a line fails as a command or as an id");
    require(!failure.reason().empty(), "errors have a reason");
    return -1;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  const int kind = kindOf(line);
  if (kind >= 0) {
    require(kindOf("  " + std::string(line) + "\t ") == kind, "blanks around a line say nothing");
  }

  const std::size_t middle = line.find('\n');
  if (middle == std::string_view::npos) return 0;
  const std::string_view text = line.substr(0, middle);
  const std::string pattern(line.substr(middle + 1));
  if (nox::agent::isLike(text, pattern)) {
    require(nox::agent::isLike("x" + std::string(text), "..." + pattern), "\"...\" takes any text");
  }
  require(nox::agent::isLike(text, "..."), "\"...\" takes every text");
  require(nox::agent::compareValues(text, pattern) == -nox::agent::compareValues(pattern, text),
          "values compare alike from both sides");
  return 0;
}
