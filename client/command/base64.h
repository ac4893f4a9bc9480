// Bytes as base64, and back.
#pragma once

#include <string>
#include <string_view>

namespace nox::command {

std::string base64Of(std::string_view bytes);
/// Throws std::runtime_error for what is no base64.
std::string bytesOfBase64(std::string_view text);

}  // namespace nox::command
