// The fields of a request as bytes, without copies.
#pragma once

#include <string_view>

#include <nox/nox.h>

namespace nox::agent {

/// The UTF-8 text of a field as it came, NULs included; empty for one that is absent. Valid while
/// the request lives. A string that was read keeps the bytes of the wire, which are UTF-8 (or
/// claim to be), and calls them Narrow; only a Wide one is converted.
inline std::string_view textOf(NOXPString* field) {
  if (!field) return {};
  const NOXPString::Type type = field->getType();
  if (type != NOXPString::Narrow && type != NOXPString::Utf8 && !field->toUTF8()) return {};
  const char* const text = field->c_str();
  return text ? std::string_view(text, field->length()) : std::string_view();
}

/// The bytes of a field; empty for one that is absent. Valid while the request lives.
inline std::string_view bytesOf(const NOXPBlob* field) {
  if (!field || !field->getBuf()) return {};
  return {reinterpret_cast<const char*>(field->getBuf()), field->length()};
}

}  // namespace nox::agent
