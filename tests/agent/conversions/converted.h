// A conversion's result, or the SQLSTATE with which it failed, as one text.
#pragma once

#include <string>
#include <string_view>

#include "agent/conversions/conversions.h"
#include "agent/failure.h"

namespace nox::agent::test {

inline std::string converted(std::string_view data, std::string_view codes, Direction direction) {
  try {
    return convert(data, codes, direction);
  } catch (const Failure& failure) {
    return failure.state().sqlClass + "/" + failure.state().sqlSubClass;
  }
}

/// Internal to external.
inline std::string shown(std::string_view data, std::string_view codes) {
  return converted(data, codes, Direction::Output);
}

/// External to internal.
inline std::string stored(std::string_view data, std::string_view codes) {
  return converted(data, codes, Direction::Input);
}

constexpr char kNoCode[] = "42/S72";
constexpr char kNoDate[] = "22/007";
constexpr char kNoData[] = "22/018";

}  // namespace nox::agent::test
