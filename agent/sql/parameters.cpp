#include "agent/sql/parameters.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "agent/failure.h"
#include "agent/requests/fields.h"

namespace nox::agent {

namespace {

constexpr int kNull = 1;
constexpr int kNeverSet = -1;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Takes the digits that `text` begins with, and says whether there were any.
bool takeDigits(std::string_view& text) {
  std::size_t count = 0;
  while (count < text.size() && isDigit(text[count])) ++count;
  text.remove_prefix(count);
  return count > 0;
}

void takeSign(std::string_view& text) {
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
}

/// Sign, digits with a point, exponent: what the number types of SQL can be written as.
bool isSqlNumber(std::string_view text) {
  takeSign(text);
  bool digits = takeDigits(text);
  if (!text.empty() && text.front() == '.') {
    text.remove_prefix(1);
    digits = takeDigits(text) || digits;
  }
  if (!digits) return false;
  if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
    text.remove_prefix(1);
    takeSign(text);
    if (!takeDigits(text)) return false;
  }
  return text.empty();
}

bool isWholeNumber(std::string_view text) {
  takeSign(text);
  return takeDigits(text) && text.empty();
}

SqlValue::Kind kindOf(int type) {
  switch (type) {
    case SqlType::kInteger:
    case SqlType::kReal:
    case SqlType::kNumeric:
      return SqlValue::Kind::Number;
    case SqlType::kBlob:
      return SqlValue::Kind::Bytes;
    default:
      return SqlValue::Kind::Text;
  }
}

}  // namespace

std::vector<SqlValue> valuesOf(noxp::ParameterListProt* parameters) {
  std::vector<SqlValue> values;
  const int count = parameters ? static_cast<int>(parameters->count()) : 0;
  for (int i = 0; i < count; ++i) {
    SqlValue value;
    if (parameters->isNull(i) == kNeverSet) {
      throw Failure("02", "001", "parameter " + std::to_string(i + 1) + " has no value");
    }
    if (parameters->isNull(i) != kNull) {
      const int type = parameters->getParameterType(i);
      value.kind = kindOf(type);
      value.bytes = bytesOf(parameters->getPtr(static_cast<unsigned int>(i)));
      if (value.kind == SqlValue::Kind::Number &&
          !(type == SqlType::kInteger ? isWholeNumber(value.bytes) : isSqlNumber(value.bytes))) {
        throw Failure("22", "018",
                      "parameter " + std::to_string(i + 1) +
                          (type == SqlType::kInteger ? " is no whole number" : " is no number"));
      }
    }
    values.push_back(std::move(value));
  }
  return values;
}

std::vector<Argument> argumentsOf(noxp::ParameterListProt* parameters) {
  std::vector<Argument> arguments;
  const int count = parameters ? static_cast<int>(parameters->count()) : 0;
  for (int i = 0; i < count; ++i) {
    Argument argument;
    if (parameters->isNull(i) == 0) {
      argument.emplace(bytesOf(parameters->getPtr(static_cast<unsigned int>(i))));
    }
    arguments.push_back(std::move(argument));
  }
  return arguments;
}

noxp::ACEBinaryFormatParameterListProt parametersOf(const std::vector<Argument>& arguments,
                                                    noxp::ParameterListProt* calledWith) {
  noxp::ACEBinaryFormatParameterListProt parameters(static_cast<int>(arguments.size()));
  for (int i = 0; i < static_cast<int>(arguments.size()); ++i) {
    const bool asCalled = calledWith && i < static_cast<int>(calledWith->count());
    const int type = asCalled ? calledWith->getParameterType(i) : SqlType::kText;
    const Argument& argument = arguments[static_cast<std::size_t>(i)];
    if (argument) {
      parameters.setString(i, *argument, type);
    } else {
      parameters.setNull(i, type);
    }
  }
  return parameters;
}

}  // namespace nox::agent
