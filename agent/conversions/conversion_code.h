// What one conversion code does. Internal to agent/conversions.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace nox::agent {

/// Values are not empty and hold no marks. Throws Failure 22/007 or 22/018 for one that it cannot
/// take.
class ConversionCode {
public:
  virtual ~ConversionCode() = default;
  virtual std::string output(std::string_view value) const = 0;
  virtual std::string input(std::string_view value) const = 0;
};

using CodePointer = std::unique_ptr<const ConversionCode>;

// One per family, each in the file of its name. They take the code behind the family's letters, and
// give null for one that they do not know.
CodePointer makeDateCode(std::string_view options);     // D
CodePointer makeTimeCode(std::string_view options);     // MT
CodePointer makeDecimalCode(std::string_view options);  // MD
CodePointer makeTextCode(std::string_view options);     // MC
CodePointer makeHexCode(std::string_view options);      // MX
CodePointer makeGroupCode(std::string_view options);    // G

/// `text` as error messages show it: in quotes, cut when it is long.
std::string quoted(std::string_view text);

}  // namespace nox::agent
