#include "agent/failure.h"

#include <array>
#include <cstdio>
#include <utility>

namespace nox::agent {

namespace {

std::string textOf(const SQLSTATE& state, const std::string& reason,
                   std::optional<std::int32_t> status) {
  std::string text = state.getMsg();
  if (!reason.empty()) text += ": " + reason;
  if (status) {
    std::array<char, 32> suffix{};
    std::snprintf(suffix.data(), suffix.size(), " (Status = 0x%x)",
                  static_cast<unsigned int>(*status));
    text += suffix.data();
  }
  return text;
}

}  // namespace

Failure::Failure(const char* sqlClass, const char* sqlSubClass, std::string reason,
                 std::optional<std::int32_t> status)
    : state_(sqlClass, sqlSubClass),
      reason_(std::move(reason)),
      status_(status),
      text_(textOf(state_, reason_, status_)) {}

SQLExtError Failure::error() const { return SQLExtError(state_, text_); }

}  // namespace nox::agent
