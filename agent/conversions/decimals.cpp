// MD, the conversion of numbers with implied decimals.
#include <algorithm>
#include <optional>
#include <utility>

#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/conversions/numbers.h"
#include "agent/failure.h"

namespace nox::agent {

namespace {

constexpr std::size_t kGroup = 3;  // digits between two commas

[[noreturn]] void refuseNumber(std::string_view value) {
  throw Failure("22", "018", quoted(value) + " is no number");
}

std::string grouped(std::string digits) {
  for (std::size_t at = digits.size(); at > kGroup;) {
    at -= kGroup;
    digits.insert(at, 1, ',');
  }
  return digits;
}

/// Takes the commas out of a number's whole part; false where one does not stand before a group of
/// three digits.
bool removeCommas(std::string& text) {
  const std::size_t end = std::min(text.find('.'), text.size());
  std::string plain;
  const std::size_t first = std::min(text.find(','), end);
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != ',') {
      plain += text[at];
    } else if (at > end || at == 0 || first > kGroup || !isAsciiDigit(text[at - 1]) ||
               (at - first) % (kGroup + 1) != 0 || (end - at) % (kGroup + 1) != 0) {
      return false;
    }
  }
  text = std::move(plain);
  return true;
}

class DecimalCode : public ConversionCode {
public:
  std::size_t shown = 0;    // decimals
  std::size_t implied = 0;  // decimals that the stored number does not show
  bool commas = false;
  bool dollar = false;
  bool zeroIsEmpty = false;

  std::string output(std::string_view value) const override {
    std::optional<Decimal> number = parseDecimal(value);
    if (!number) refuseNumber(value);
    divide(*number, implied);
    roundTo(*number, shown);
    if (zeroIsEmpty && number->isZero()) return {};
    std::string text = number->negative ? "-" : "";
    if (dollar) text += '$';
    text += commas ? grouped(wholeDigits(*number)) : wholeDigits(*number);
    if (shown > 0) {
      std::string fraction = fractionDigits(*number);
      fraction.resize(shown, '0');
      text += "." + fraction;
    }
    return text;
  }

  std::string input(std::string_view value) const override {
    // A sign and a dollar in either order, then the number.
    std::string_view rest = value;
    char sign = '+';
    bool hadSign = false;
    bool hadDollar = false;
    while (!rest.empty()) {
      const char c = rest.front();
      if ((c == '-' || c == '+') && !hadSign) {
        hadSign = true;
        sign = c;
      } else if (c == '$' && !hadDollar) {
        hadDollar = true;
      } else {
        break;
      }
      rest.remove_prefix(1);
    }
    std::string plain(rest);
    if (rest.empty() || rest.front() == '+' || rest.front() == '-' || !removeCommas(plain)) {
      refuseNumber(value);
    }
    std::optional<Decimal> number = parseDecimal(sign + plain);
    if (!number) refuseNumber(value);
    roundTo(*number, std::max(shown, implied));
    multiply(*number, implied);
    std::string text = (number->negative ? "-" : "") + wholeDigits(*number);
    std::string fraction = fractionDigits(*number);
    fraction.resize(fraction.find_last_not_of('0') + 1);
    if (!fraction.empty()) text += "." + fraction;
    return text;
  }
};

}  // namespace

CodePointer makeDecimalCode(std::string_view options) {
  const auto takeDigit = [&](std::size_t& to) {
    if (options.empty() || !isAsciiDigit(options.front())) return false;
    to = static_cast<std::size_t>(options.front() - '0');
    options.remove_prefix(1);
    return true;
  };
  auto code = std::make_unique<DecimalCode>();
  if (!takeDigit(code->shown)) return nullptr;
  if (!takeDigit(code->implied)) code->implied = code->shown;
  for (const char option : options) {
    bool* const flag = option == ','   ? &code->commas
                       : option == '$' ? &code->dollar
                       : option == 'Z' ? &code->zeroIsEmpty
                                       : nullptr;
    if (!flag || *flag) return nullptr;
    *flag = true;
  }
  return code;
}

}  // namespace nox::agent
