#include "agent/commands/definition.h"

#include <charconv>

#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"
#include "agent/multivalue.h"

namespace nox::agent {

namespace {

constexpr int kKind = 1;
constexpr int kSource = 2;
constexpr int kConversion = 3;
constexpr int kHeading = 4;
constexpr int kFormat = 5;
constexpr int kValues = 6;

[[noreturn]] void refuse(int attribute, std::string_view text, const char* expected) {
  throw Failure(
      "IE", "011",
      "attribute " + std::to_string(attribute) + " is " + quoted(text) + " and not " + expected);
}

/// The number that begins `text`, which is taken from it; nothing beyond `most`.
std::optional<std::size_t> takeNumber(std::string_view& text, std::size_t most) {
  std::size_t number = 0;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number > most) return {};
  text.remove_prefix(static_cast<std::size_t>(stopped - text.data()));
  return number;
}

void parseSource(Definition& definition, std::string_view kind, std::string_view source) {
  // A description may follow the letter.
  const std::string_view letter = kind.substr(0, kind.find(' '));
  if (letter == "I") {
    if (source.empty()) refuse(kSource, source, "an expression");
    definition.expression = source;
    return;
  }
  if (letter != "D") refuse(kKind, kind, "D or I");
  std::string_view rest = source;
  const std::optional<std::size_t> number = takeNumber(rest, Definition::kMostAttributes);
  if (!number || !rest.empty()) refuse(kSource, source, "the number of an attribute");
  definition.attribute = *number;
}

void parseFormat(Definition& definition, std::string_view format) {
  if (format.empty()) return;
  std::string_view rest = format;
  definition.width = takeNumber(rest, Definition::kWidest);
  if (!definition.width || *definition.width == 0 || (rest != "L" && rest != "R")) {
    refuse(kFormat, format, "a width and L or R, as 10L");
  }
  if (rest == "R") definition.justification = Justification::Right;
}

}  // namespace

Definition parseDefinition(std::string_view record) {
  const auto attribute = [&](int number) { return extract(record, {number}); };
  Definition definition;
  parseSource(definition, attribute(kKind), attribute(kSource));
  try {
    definition.conversion = Conversion(attribute(kConversion));
  } catch (const Failure&) {
    refuse(kConversion, attribute(kConversion), "a conversion");
  }
  definition.heading = attribute(kHeading);
  parseFormat(definition, attribute(kFormat));
  const std::string_view values = attribute(kValues);
  if (!values.empty() && values != "S" && values != "M") refuse(kValues, values, "S or M");
  definition.multivalued = values == "M";
  return definition;
}

}  // namespace nox::agent
