// Which bytes are UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace nox::client::detail {

/// Bytes of the well-formed character that `text` begins with (no overlong forms, no surrogates, up
/// to U+10FFFF); 0 where it begins with none.
std::size_t utf8CharacterLength(std::string_view text);

}  // namespace nox::client::detail
