#include "client/command/output/json_text.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "client/command/base64.h"

namespace nox::command {

namespace {

/// Takes the digits in front away; how many there were.
std::size_t takeDigits(std::string_view& text) {
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(digits);
  return digits;
}

/// Stands in a JSON string as itself.
bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

}  // namespace

std::string jsonText(std::string_view bytes) {
  std::string json;
  addJsonText(json, bytes);
  return json;
}

void addJsonText(std::string& json, std::string_view bytes) {
  // Most texts need nothing, and are many.
  if (std::all_of(bytes.begin(), bytes.end(), isPlain)) {
    json += '"';
    json += bytes;
    json += '"';
    return;
  }
  try {
    json += nlohmann::json(bytes).dump();
  } catch (const nlohmann::json::type_error&) {  // no UTF-8
    json += R"({"base64":")" + base64Of(bytes) + "\"}";
  }
}

bool isJsonNumber(std::string_view text) {
  if (!text.empty() && text.front() == '-') text.remove_prefix(1);
  const bool padded = !text.empty() && text.front() == '0';
  const std::size_t digits = takeDigits(text);
  if (digits == 0 || (padded && digits > 1)) return false;
  if (!text.empty() && text.front() == '.') {
    text.remove_prefix(1);
    if (takeDigits(text) == 0) return false;
  }
  if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
    text.remove_prefix(1);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    if (takeDigits(text) == 0) return false;
  }
  return text.empty();
}

}  // namespace nox::command
