// The table of settings: what the file may say, and where it goes.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "agent/config/configuration.h"

namespace nox::agent {

/// true or false.
struct FlagKey {
  bool& (*value)(ConfigurationValues&);
};

/// A whole number in the unit that the comment names.
struct NumberKey {
  std::int64_t least;
  std::int64_t most;
  std::int64_t (*get)(const ConfigurationValues&);
  void (*set)(ConfigurationValues&, std::int64_t);
};

struct TextKey {
  std::string (*get)(const ConfigurationValues&);
  void (*set)(ConfigurationValues&, std::string);
  /// What is wrong with a text; empty: nothing.
  std::string (*mistakeIn)(const std::string&);
};

/// A file or folder.
struct PathKey {
  std::string& (*value)(ConfigurationValues&);
  bool isRead;  // when the agent starts
};

struct AddressKey {
  ListenAddress& (*value)(ConfigurationValues&);
};

struct Key {
  const char* section;
  const char* name;
  std::variant<FlagKey, NumberKey, TextKey, PathKey, AddressKey> kind;
  const char* comment;  // sentences, for the file
  bool needsRestart = false;

  std::string fullName() const { return std::string(section) + "." + name; }
};

/// In the order of the file: a section's keys stand together.
const std::vector<Key>& allKeys();

/// The value as it is written in a file.
std::string valueText(const Key& key, ConfigurationValues values);

/// Sets `to`'s value from `from`'s.
void copyValue(const Key& key, ConfigurationValues from, ConfigurationValues& to);

}  // namespace nox::agent
