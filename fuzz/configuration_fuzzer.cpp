// The configuration file of the agent: what is understood is written and understood again; what is
// not is refused with mistakes that a person can find and a terminal may show.
#include <algorithm>
#include <string>

#include "agent/config/configuration.h"
#include "fuzz/fuzz_target.h"

namespace {

using namespace nox::agent;

constexpr const char* kFile = "/etc/noxd/noxd.toml";

void checkMistakes(const ConfigurationError& error, const std::string& text) {
  const auto lines = static_cast<unsigned int>(std::count(text.begin(), text.end(), '\n')) + 1;
  nox::fuzz::require(!error.mistakes().empty(), "an error names a mistake");
  for (const ConfigurationMistake& mistake : error.mistakes()) {
    nox::fuzz::require(mistake.line <= lines, "a mistake is in a line of the file");
    nox::fuzz::require(!mistake.text.empty(), "a mistake has a text");
    nox::fuzz::require(std::none_of(mistake.text.begin(), mistake.text.end(),
                                    [](char c) {
                                      const auto byte = static_cast<unsigned char>(c);
                                      return byte < 0x20 || byte == 0x7F;
                                    }),
                       "a mistake is one line that no terminal obeys");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    ConfigurationValues values = parseConfiguration(text, kFile);
    const std::string written = configurationText(values);
    const std::string again = configurationText(parseConfiguration(written, kFile));
    nox::fuzz::require(again == written, "what is written is read as the same");
    nox::fuzz::require(keepWhatNeedsRestart(values, values).empty(), "nothing differs from itself");
  } catch (const ConfigurationError& error) {
    checkMistakes(error, text);
  }
  return 0;
}
