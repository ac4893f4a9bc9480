// Bytes as a JSON value.
#pragma once

#include <string>
#include <string_view>

namespace nox::command {

/// UTF-8 text as a JSON string; other bytes as {"base64": "..."}.
std::string jsonText(std::string_view bytes);
/// The same at the end of `json`.
void addJsonText(std::string& json, std::string_view bytes);

/// Whether the text is a number as JSON writes it: 0, -1.50, 2e9, and neither 007 nor .5.
bool isJsonNumber(std::string_view text);

}  // namespace nox::command
