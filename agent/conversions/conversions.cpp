#include "agent/conversions/conversions.h"

#include <algorithm>

#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"
#include "agent/multivalue.h"

namespace nox::agent {

namespace {

struct Family {
  std::string_view letters;
  CodePointer (*make)(std::string_view options);
};

constexpr Family kFamilies[] = {
    {"D", makeDateCode},  {"MT", makeTimeCode}, {"MD", makeDecimalCode},
    {"MC", makeTextCode}, {"MX", makeHexCode},  {"G", makeGroupCode},
};

CodePointer makeCode(std::string_view code) {
  for (const auto& [letters, make] : kFamilies) {
    if (code.substr(0, letters.size()) != letters) continue;
    if (CodePointer made = make(code.substr(letters.size()))) return made;
  }
  throw Failure("42", "S72", quoted(code));
}

/// Each value of `data` as `change` makes it, with the marks between them.
template <class Change>
std::string eachValue(std::string_view data, Change change) {
  constexpr char kMarks[] = {kAttribute, kValue, kSubvalue};
  std::string result;
  while (true) {
    const std::size_t end =
        std::min(data.find_first_of(std::string_view(kMarks, sizeof kMarks)), data.size());
    if (end > 0) result += change(data.substr(0, end));
    if (end == data.size()) return result;
    result += data[end];
    data.remove_prefix(end + 1);
  }
}

}  // namespace

std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 60;  // bytes
  if (text.size() <= kShown) return "\"" + std::string(text) + "\"";
  std::size_t cut = kShown;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return "\"" + std::string(text.substr(0, cut)) + "...\"";
}

Conversion::Conversion() = default;
Conversion::Conversion(Conversion&&) noexcept = default;
Conversion& Conversion::operator=(Conversion&&) noexcept = default;
Conversion::~Conversion() = default;

Conversion::Conversion(std::string_view codes) {
  if (codes.empty()) return;
  for (Fields code(codes, kValue); code; code.next()) {
    // Each code may make a value longer; without a limit, a short request could ask for gigabytes.
    if (codes_.size() == kMostCodes) {
      throw Failure("42", "S72", "more than " + std::to_string(kMostCodes) + " codes");
    }
    codes_.push_back(makeCode(*code));
  }
}

std::string Conversion::apply(std::string_view data, Direction direction) const {
  std::string result(data);
  for (const auto& code : codes_) {
    result = eachValue(result, [&](std::string_view value) {
      return direction == Direction::Output ? code->output(value) : code->input(value);
    });
  }
  return result;
}

std::string Conversion::applyWherePossible(std::string_view data, Direction direction) const {
  if (codes_.empty()) return std::string(data);
  return eachValue(data, [&](std::string_view value) {
    try {
      return apply(value, direction);
    } catch (const Failure&) {
      return std::string(value);
    }
  });
}

std::string convert(std::string_view data, std::string_view codes, Direction direction) {
  return Conversion(codes).apply(data, direction);
}

}  // namespace nox::agent
