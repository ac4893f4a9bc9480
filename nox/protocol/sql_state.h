// SQLSTATE: the five characters that classify an error, and the catalogue of their messages.
#pragma once

#include <string>

#include "nox/core/export.h"

/// A class of two characters and a subclass of three. What a peer sends may be of any length.
struct NOX_EXPORT AG_SQLSTATE {
  std::string sqlClass;
  std::string sqlSubClass;
};

class NOX_EXPORT SQLSTATE : public AG_SQLSTATE {
public:
  SQLSTATE() = default;
  /// Null counts as empty.
  SQLSTATE(const char* sqlClass, const char* sqlSubClass);
  SQLSTATE(const std::string& sqlClass, const std::string& sqlSubClass);

  std::string& getSQLClass() { return sqlClass; }
  std::string& getSQLSubClass() { return sqlSubClass; }
  /// The catalogue's message for this code; "Unknown SQLSTATE" for a code that is not in it. The
  /// string belongs to the whole process: copy it before changing it.
  std::string& getMsg() const;
};
