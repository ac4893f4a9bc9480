// Bytes as a JSON value.
#pragma once

#include <string>
#include <string_view>

namespace nox::command {

/// UTF-8 text as a JSON string; other bytes as {"base64": "..."}.
std::string jsonText(std::string_view bytes);
/// The same at the end of `json`.
void addJsonText(std::string& json, std::string_view bytes);

}  // namespace nox::command
