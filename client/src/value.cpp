#include "nox/client/value.h"

#include <cmath>

#include "client/src/numbers.h"
#include "nox/client/error.h"
#include "nox/client/record.h"

namespace nox::client {

namespace {

const std::string& notNull(const Value& value) {
  if (value.isNull()) {
    throw Error(sqlstate::kNull, "null was asked for its number", Outcome::NotSent);
  }
  return value.text();
}

}  // namespace

Value::Value(const char* text) {
  if (!text) return;
  kind_ = Kind::Text;
  bytes_ = text;
}

Value::Value(const Record& record) : kind_(Kind::Bytes), bytes_(record.bytes()) {}

Value::Value(double number) : kind_(Kind::Real), bytes_(detail::shortestText(number)) {
  if (!std::isfinite(number)) {
    throw Error(sqlstate::kBadArgument, bytes_ + " is no number that can travel", Outcome::NotSent);
  }
}

Value Value::bytes(std::string bytes) {
  Value value;
  value.kind_ = Kind::Bytes;
  value.bytes_ = std::move(bytes);
  return value;
}

std::int64_t Value::int64() const { return detail::requireInt64(notNull(*this)); }

double Value::real() const { return detail::requireDouble(notNull(*this)); }

}  // namespace nox::client
