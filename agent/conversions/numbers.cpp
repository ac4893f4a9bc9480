#include "agent/conversions/numbers.h"

#include <algorithm>
#include <cstdint>

#include "agent/conversions/characters.h"
#include "agent/conversions/conversions.h"

namespace nox::agent {

namespace {

/// A number's text in its parts, without the zeros that say nothing.
struct Parts {
  bool negative = false;
  std::string_view whole;     // without leading zeros
  std::string_view fraction;  // without trailing zeros

  bool isZero() const { return whole.empty() && fraction.empty(); }
};

Parts partsOf(std::string_view number) {
  Parts parts;
  if (number.front() == '-' || number.front() == '+') {
    parts.negative = number.front() == '-';
    number.remove_prefix(1);
  }
  const std::size_t point = std::min(number.find('.'), number.size());
  parts.whole = number.substr(0, point);
  parts.whole.remove_prefix(std::min(parts.whole.find_first_not_of('0'), parts.whole.size()));
  parts.fraction = number.substr(std::min(point + 1, number.size()));
  parts.fraction = parts.fraction.substr(0, parts.fraction.find_last_not_of('0') + 1);
  if (parts.isZero()) parts.negative = false;
  return parts;
}

int compareMagnitudes(const Parts& a, const Parts& b) {
  if (a.whole.size() != b.whole.size()) return a.whole.size() < b.whole.size() ? -1 : 1;
  int order = a.whole.compare(b.whole);
  if (order == 0) order = a.fraction.compare(b.fraction);
  return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

void dropLeadingZeros(std::string& digits) {
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
}

}  // namespace

bool isNumber(std::string_view text) {
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
  bool digits = false;
  bool point = false;
  for (const char c : text) {
    if (isAsciiDigit(c)) {
      digits = true;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  return digits;
}

int compareNumbers(std::string_view a, std::string_view b) {
  const Parts left = partsOf(a);
  const Parts right = partsOf(b);
  if (left.negative != right.negative) return left.negative ? -1 : 1;
  return left.negative ? compareMagnitudes(right, left) : compareMagnitudes(left, right);
}

std::optional<Decimal> parseDecimal(std::string_view text) {
  if (!isNumber(text)) return {};
  const Parts parts = partsOf(text);
  Decimal number;
  number.negative = parts.negative;
  number.digits.append(parts.whole).append(parts.fraction);
  number.decimals = parts.fraction.size();
  dropLeadingZeros(number.digits);
  return number;
}

void roundTo(Decimal& number, std::size_t decimals) {
  if (number.decimals <= decimals) return;
  const std::size_t cut = number.decimals - decimals;
  const bool up = number.digits.size() >= cut && number.digits[number.digits.size() - cut] >= '5';
  number.digits.resize(number.digits.size() - std::min(cut, number.digits.size()));
  number.decimals = decimals;
  if (up) {
    std::size_t at = number.digits.size();
    while (at > 0 && number.digits[at - 1] == '9') number.digits[--at] = '0';
    if (at > 0) {
      ++number.digits[at - 1];
    } else {
      number.digits.insert(0, 1, '1');
    }
  }
  if (number.isZero()) number.negative = false;
}

void multiply(Decimal& number, std::size_t places) {
  const std::size_t taken = std::min(places, number.decimals);
  number.decimals -= taken;
  if (!number.isZero()) number.digits.append(places - taken, '0');
}

void divide(Decimal& number, std::size_t places) { number.decimals += places; }

std::string wholeDigits(const Decimal& number) {
  if (number.digits.size() <= number.decimals) return "0";
  return number.digits.substr(0, number.digits.size() - number.decimals);
}

std::string fractionDigits(const Decimal& number) {
  if (number.digits.size() >= number.decimals) {
    return number.digits.substr(number.digits.size() - number.decimals);
  }
  return std::string(number.decimals - number.digits.size(), '0') + number.digits;
}

std::string sortableNumber(std::string_view number) {
  const Parts parts = partsOf(number);
  if (parts.isZero()) return "1";
  // How many digits stand in front of the point; fewer than none when the fraction begins with
  // zeros. The offset keeps it positive, four bytes hold it: no text is longer.
  constexpr std::int64_t kOffset = std::int64_t{1} << 31;
  std::int64_t magnitude = static_cast<std::int64_t>(parts.whole.size());
  std::string digits;
  digits.append(parts.whole).append(parts.fraction);
  if (parts.whole.empty()) {
    magnitude = -static_cast<std::int64_t>(parts.fraction.find_first_not_of('0'));
    dropLeadingZeros(digits);
  } else {
    digits.resize(digits.find_last_not_of('0') + 1);
  }
  std::string sortable;
  for (int shift = 24; shift >= 0; shift -= 8) {
    sortable += static_cast<char>((magnitude + kOffset) >> shift & 0xFF);
  }
  sortable += digits;
  sortable += '\0';
  if (parts.negative) {
    for (char& c : sortable) c = static_cast<char>(~c);
  }
  return (parts.negative ? "0" : "2") + sortable;
}

}  // namespace nox::agent
