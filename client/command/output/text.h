// Text as a terminal shows it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nox::command {

/// `bytes` without anything that a terminal would obey or could not show: marks as the symbols ^
/// (of attributes), ] (of values) and \ (of subvalues), other control characters and bytes that are
/// no UTF-8 as \xHH. Line feeds stay where `lines` says so.
std::string visible(std::string_view bytes, bool lines = false);

/// UTF-8 text as it stands in an attribute of XML; nothing for bytes that no XML can hold.
std::optional<std::string> xmlText(std::string_view bytes);

/// How many columns of a terminal UTF-8 text takes: wide characters two, combining ones none.
std::size_t displayWidth(std::string_view utf8);

}  // namespace nox::command
