// What a session may set with properties, and their defaults.
#pragma once

#include <chrono>
#include <string>

namespace nox::agent {

struct Settings {
  std::chrono::seconds lockWait{5};           // LOCK_WAIT
  int fetchSize = 1000;                       // FETCH_SIZE, rows
  std::chrono::seconds statementTimeout{60};  // STATEMENT_TIMEOUT, 0: none
  int compressThreshold = -1;                 // COMPRESS_THRESHOLD, bytes; -1: off
  std::string timezone = "UTC";               // TIMEZONE
  std::string clientName;                     // CLIENT_NAME
  bool emptyNull = false;                     // EMPTY_NULL
};

}  // namespace nox::agent
