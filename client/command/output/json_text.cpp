#include "client/command/output/json_text.h"

#include <nlohmann/json.hpp>

#include "client/command/base64.h"

namespace nox::command {

std::string jsonText(std::string_view bytes) {
  try {
    return nlohmann::json(bytes).dump();
  } catch (const nlohmann::json::type_error&) {  // no UTF-8
    return R"({"base64":")" + base64Of(bytes) + "\"}";
  }
}

}  // namespace nox::command
