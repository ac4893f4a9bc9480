// Texts and bytes on their way into the fields of messages, and out of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "nox/client/value.h"

namespace nox::client::detail {

/// The longest text of a field, in bytes.
constexpr std::size_t kLongestText = 65535;

/// Puts UTF-8 into a field, as it is. Error 22023, which says `what` it is, for a text with a NUL
/// and for one that is too long: neither would arrive whole.
void put(NOXPString* field, std::string_view text, const char* what);
/// A text for fields that are std::strings; checked the same way.
std::string checkedText(std::string_view text, const char* what);
/// Puts bytes into a field. Throws std::bad_alloc.
void put(NOXPBlob* field, std::string_view bytes);

/// The bytes of a field; empty for an absent one. Valid while the field is not changed.
std::string_view bytesOf(const NOXPBlob* field);

/// A list for a statement or a subroutine.
std::unique_ptr<noxp::ACEBinaryFormatParameterListProt> parametersOf(
    const std::vector<Value>& values);
/// The reverse; a null list gives no values.
std::vector<Value> valuesOf(noxp::ParameterListProt* list);

}  // namespace nox::client::detail
