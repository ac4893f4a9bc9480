#include "client/src/wire_text.h"

#include <memory>
#include <new>

#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

// The types of parameters, as the catalogue's TYPES names them.
constexpr int kIntegerType = 4;
constexpr int kRealType = 8;
constexpr int kTextType = 12;
constexpr int kBlobType = 2004;

int typeOf(Value::Kind kind) {
  switch (kind) {
    case Value::Kind::Integer:
      return kIntegerType;
    case Value::Kind::Real:
      return kRealType;
    case Value::Kind::Bytes:
      return kBlobType;
    default:
      return kTextType;
  }
}

/// A value of the kind that `type` says; a number as text where it is none after all.
Value valueOf(std::string_view bytes, int type) {
  if (type == kBlobType) return Value::bytes(std::string(bytes));
  return Value(bytes);
}

void check(std::string_view text, const char* what) {
  std::string mistake;
  if (text.size() > kLongestText) {
    mistake = " has " + std::to_string(text.size()) + " bytes; 65535 can travel";
  } else if (text.find('\0') != std::string_view::npos) {
    mistake = " has a NUL, which cannot travel";
  }
  if (!mistake.empty()) throw Error(sqlstate::kBadArgument, what + mistake, Outcome::NotSent);
}

}  // namespace

void put(NOXPString* field, std::string_view text, const char* what) {
  check(text, what);
  field->assign(text.data() ? text.data() : "", text.size(), true);
}

std::string checkedText(std::string_view text, const char* what) {
  check(text, what);
  return std::string(text);
}

void put(NOXPBlob* field, std::string_view bytes) {
  field->assign(bytes.data(), bytes.size());
  if (field->length() != bytes.size()) throw std::bad_alloc();
}

std::string_view bytesOf(const NOXPBlob* field) {
  if (!field || !field->getBuf()) return {};
  return {reinterpret_cast<const char*>(field->getBuf()), field->length()};
}

std::unique_ptr<noxp::ACEBinaryFormatParameterListProt> parametersOf(
    const std::vector<Value>& values) {
  auto list =
      std::make_unique<noxp::ACEBinaryFormatParameterListProt>(static_cast<int>(values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    const int index = static_cast<int>(i);
    const int type = typeOf(values[i].kind());
    if (values[i].isNull()) {
      list->setNull(index, type);
    } else {
      list->setString(index, values[i].text(), type);
    }
  }
  return list;
}

std::vector<Value> valuesOf(noxp::ParameterListProt* list) {
  std::vector<Value> values;
  const unsigned int count = list ? list->count() : 0;
  values.reserve(count);
  for (unsigned int i = 0; i < count; ++i) {
    const int index = static_cast<int>(i);
    if (list->isNull(index) != 0) {
      values.emplace_back();
    } else {
      values.push_back(valueOf(bytesOf(list->getPtr(i)), list->getParameterType(index)));
    }
  }
  return values;
}

}  // namespace nox::client::detail
