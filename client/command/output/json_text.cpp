#include "client/command/output/json_text.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "client/command/base64.h"

namespace nox::command {

namespace {

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

}  // namespace nox::command
