// Dictionaries and what is printed by them: the input's first line is an item's record, the other
// lines are rows of two such columns.
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/commands/report.h"
#include "agent/failure.h"
#include "agent/multivalue.h"
#include "agent/scripting/subroutine.h"
#include "fuzz/fuzz_target.h"

namespace {

using nox::agent::Definition;
using nox::agent::Failure;
using nox::agent::Item;
using nox::agent::Report;
using nox::fuzz::require;

constexpr std::size_t kMost = 64 * 1024;

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view record = input.substr(0, input.find('\n'));
  input.remove_prefix(std::min(record.size() + 1, input.size()));
  try {
    std::vector<Item> items;
    for (const char* const name : {"FIRST", "SECOND"}) {
      Definition definition = nox::agent::parseDefinition(record);
      require(!definition.width || *definition.width <= Definition::kWidest, "widths are bounded");
      definition.expression.reset();  // what an expression does is not tried here
      items.emplace_back(name, std::move(definition), nullptr);
    }
    Report report(items, true, kMost);
    std::string shown;
    for (nox::agent::Fields line(input, '\n'); line; line.next()) {
      report.add(*line);
      shown = items.front().shown("id", *line);
    }
    require(report.text().size() <= kMost, "a report has its bounds");
  } catch (const Failure& failure) {
    require(failure.state().sqlClass == "IE" && failure.state().sqlSubClass == "011",
            "dictionaries and reports fail as a command");
  }
  return 0;
}
