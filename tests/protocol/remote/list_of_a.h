// The list that the tests of messages with lists carry, and what it is on the wire.
#pragma once

#include <string>

#include "nox/protocol/remote/select_list.h"

namespace nox::noxp::remote {

/// A list with id 0 of the one key A.
inline SelectListProt listOfA() {
  const NOXPBlob key("A");
  return SelectListProt(&key);
}

inline const std::string kListOfA =
    "4C  49 00 00 01 94  49 00 00 00 00"
    "49 00 00 00 00  49 00 00 00 01  73 00 01 41 3B  49 00 00 00 00  3B";
inline const std::string kNull = "4C 49 00 00 00 01 3B";  // no object

}  // namespace nox::noxp::remote
