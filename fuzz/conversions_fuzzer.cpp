// Conversions: the input's first line is the codes, the rest the data, both ways. And the numbers
// that both are: what they compare as, and how they sort.
#include <string>
#include <string_view>

#include "agent/conversions/conversions.h"
#include "agent/conversions/numbers.h"
#include "agent/failure.h"
#include "fuzz/fuzz_target.h"

namespace {

using nox::agent::Conversion;
using nox::agent::Direction;
using nox::agent::Failure;
using nox::fuzz::require;

/// The result; false where the data is refused.
bool apply(const Conversion& conversion, std::string_view data, Direction direction,
           std::string& result) {
  try {
    result = conversion.apply(data, direction);
    return true;
  } catch (const Failure& failure) {
    const std::string& code = failure.state().sqlSubClass;
    require(failure.state().sqlClass == "22" && (code == "007" || code == "018"),
            "data fails as a date or time, or as other data");
    return false;
  }
}

void convertBothWays(std::string_view codes, std::string_view data) {
  try {
    const Conversion conversion(codes);
    std::string shown;
    std::string stored;
    const bool isShown = apply(conversion, data, Direction::Output, shown);
    apply(conversion, data, Direction::Input, stored);
    if (isShown) {
      require(conversion.applyWherePossible(data, Direction::Output) == shown,
              "what can be converted is");
    }
    // Codes that lose nothing.
    for (const std::string_view code : {"D", "DI", "D4/E", "MTS", "MX"}) {
      std::string again;
      if (codes != code || !isShown) continue;
      require(apply(conversion, shown, Direction::Input, stored), "what is shown can be typed");
      require(apply(conversion, stored, Direction::Output, again) && again == shown,
              "and is the same then");
    }
  } catch (const Failure& failure) {
    require(failure.state().sqlClass == "42" && failure.state().sqlSubClass == "S72",
            "unknown codes are named as such");
  }
}

void compare(std::string_view a, std::string_view b) {
  if (!nox::agent::isNumber(a) || !nox::agent::isNumber(b)) return;
  const int order = nox::agent::compareNumbers(a, b);
  require(order == -nox::agent::compareNumbers(b, a), "numbers compare alike from both sides");
  const int sorted = nox::agent::sortableNumber(a).compare(nox::agent::sortableNumber(b));
  require((sorted > 0) - (sorted < 0) == order, "numbers sort as they compare");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t middle = input.find('\n');
  if (middle == std::string_view::npos) return 0;
  convertBothWays(input.substr(0, middle), input.substr(middle + 1));
  compare(input.substr(0, middle), input.substr(middle + 1));
  return 0;
}
